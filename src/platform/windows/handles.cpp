#include "platform/handles.h"

#include "platform/error_codes.h"
#include "platform/windows/native.h"

namespace tolvarine::updater::platform {

// INVALID_HANDLE_VALUE is a cast from an integer and cannot be used in a constant expression. This
// compares the integer.
static_assert(kInvalidHandle == static_cast<Handle>(LONG_PTR{-1}));
static_assert(sizeof(Handle) == sizeof(HANDLE));

static_assert(kWaitObject0 == WAIT_OBJECT_0);
static_assert(kWaitAbandoned == WAIT_ABANDONED);
static_assert(kWaitTimeout == WAIT_TIMEOUT);
static_assert(kWaitFailed == WAIT_FAILED);
static_assert(kInfinite == INFINITE);

static_assert(kErrorSuccess == ERROR_SUCCESS);
static_assert(kErrorInvalidFunction == ERROR_INVALID_FUNCTION);
static_assert(kErrorFileNotFound == ERROR_FILE_NOT_FOUND);
static_assert(kErrorPathNotFound == ERROR_PATH_NOT_FOUND);
static_assert(kErrorAccessDenied == ERROR_ACCESS_DENIED);
static_assert(kErrorNoMoreFiles == ERROR_NO_MORE_FILES);
static_assert(kErrorWriteFault == ERROR_WRITE_FAULT);
static_assert(kErrorSharingViolation == ERROR_SHARING_VIOLATION);
static_assert(kErrorNotSupported == ERROR_NOT_SUPPORTED);
static_assert(kErrorBadNetPath == ERROR_BAD_NETPATH);
static_assert(kErrorNetNameDeleted == ERROR_NETNAME_DELETED);
static_assert(kErrorInvalidParameter == ERROR_INVALID_PARAMETER);
static_assert(kErrorInvalidName == ERROR_INVALID_NAME);
static_assert(kErrorDirNotEmpty == ERROR_DIR_NOT_EMPTY);
static_assert(kErrorBadPathname == ERROR_BAD_PATHNAME);
static_assert(kErrorAlreadyExists == ERROR_ALREADY_EXISTS);
static_assert(kErrorDirectory == ERROR_DIRECTORY);
static_assert(kErrorNoUnicodeTranslation == ERROR_NO_UNICODE_TRANSLATION);

std::uint32_t GetLastError() { return ::GetLastError(); }

void SetLastError(std::uint32_t code) { ::SetLastError(code); }

bool CloseHandle(Handle handle) { return ::CloseHandle(Native(handle)) != FALSE; }

std::uint32_t WaitForSingleObject(Handle handle, std::uint32_t milliseconds) {
  return ::WaitForSingleObject(Native(handle), milliseconds);
}

}  // namespace tolvarine::updater::platform
