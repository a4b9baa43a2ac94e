// CopyFileW: one call of the program, several changes of the disk.

#include "platform/error_codes.h"
#include "platform/files.h"
#include "simulated_windows/call_failure.h"
#include "simulated_windows/computer.h"
#include "simulated_windows/file_system.h"

namespace tolvarine::updater::platform {
namespace {

using simulated::Computer;
using simulated::FileSystem;

// An open file that is closed at the end of its scope.
class ScopedFile {
 public:
  ScopedFile(FileSystem& files, const simulated::OpenRequest& request)
      : files_(files), opened_(files.Open(request)) {}
  ScopedFile(const ScopedFile&) = delete;
  ScopedFile& operator=(const ScopedFile&) = delete;
  ~ScopedFile() { files_.Close(opened_.handle); }

  [[nodiscard]] bool is_open() const { return opened_.handle != kInvalidHandle; }
  [[nodiscard]] std::uint32_t code() const { return opened_.code; }
  simulated::OpenFile& operator*() { return *files_.Find(opened_.handle); }

 private:
  FileSystem& files_;
  FileSystem::Opened opened_;
};

// Copies content and attributes, but at most `limit` bytes of content. Returns `code` where nothing
// else fails.
std::uint32_t Copy(const char16_t* from, const char16_t* to, bool fail_if_exists,
                   std::uint64_t limit, std::uint32_t code) {
  FileSystem& files = Computer::Current().files();
  ScopedFile source(files, {.path = from,
                            .access = kGenericRead,
                            .sharing = kFileShareRead | kFileShareWrite | kFileShareDelete});
  if (!source.is_open()) return source.code();
  if (!fail_if_exists && files.LookUp(to).node == (*source).node) return kErrorSharingViolation;
  const simulated::Node& node = files.NodeOf((*source).node);
  ScopedFile target(files, {.path = to,
                            .access = kGenericWrite,
                            .sharing = kFileShareRead | kFileShareWrite,
                            .disposition = fail_if_exists ? kCreateNew : kCreateAlways,
                            .flags = node.attributes});
  if (!target.is_open()) return target.code();
  const std::string content = node.content->substr(0, limit);
  const std::uint32_t written = files.Write(*target, content);
  return written != 0 ? written : code;
}

}  // namespace

bool CopyFileW(const char16_t* from, const char16_t* to, bool fail_if_exists) {
  std::uint64_t limit = ~std::uint64_t{0};
  std::uint32_t injected = 0;
  if (const simulated::Fault* fault =
          Computer::Current().calls.Enter(simulated::Call::CopyFileW, from)) {
    if (!fault->partial) return simulated::FailCall(fault->code, false);
    limit = *fault->partial;
    injected = fault->code;
  }
  const std::uint32_t code = Copy(from, to, fail_if_exists, limit, injected);
  if (code == 0) return true;
  // A copy to a full disk deletes its destination. An injected partial copy leaves it, as a copy
  // does whose disk is removed.
  if (injected == 0 && code == simulated::kErrorDiskFull) Computer::Current().files().Delete(to);
  return simulated::FailCall(code, false);
}

}  // namespace tolvarine::updater::platform
