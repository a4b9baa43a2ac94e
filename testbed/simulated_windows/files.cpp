// The calls on files. FileSystem does their work.

#include "platform/files.h"

#include <algorithm>

#include "platform/error_codes.h"
#include "simulated_windows/call_failure.h"
#include "simulated_windows/computer.h"
#include "simulated_windows/file_system.h"

namespace tolvarine::updater::platform {

using simulated::Call;
using simulated::Computer;
using simulated::FailCall;
using simulated::Fault;
using simulated::FileSystem;
using simulated::kErrorInvalidHandle;
using simulated::Node;
using simulated::OpenFile;

namespace {

FileSystem& Files() { return Computer::Current().files(); }

// The result of a call: false with the code as the last error, or true for the code 0.
bool Answer(std::uint32_t code) {
  if (code != 0) Computer::Current().last_error = code;
  return code == 0;
}

Handle Open(Call call, const simulated::OpenRequest& request) {
  if (const Fault* fault = Computer::Current().calls.Enter(call, request.path)) {
    return FailCall(fault->code, kInvalidHandle);
  }
  const FileSystem::Opened opened = Files().Open(request);
  // A successful open sets the last error, too: 183 where the file existed.
  Computer::Current().last_error = opened.code;
  return opened.handle;
}

// Begins a call on an open file. Null where the call fails; its code is then the last error. A
// fault that shortens the call is returned in `partial`, if the caller passes one.
OpenFile* EnterOn(Call call, Handle handle, const Fault** partial = nullptr) {
  OpenFile* const file = Files().Find(handle);
  const Fault* fault =
      Computer::Current().calls.Enter(call, file == nullptr ? std::u16string_view() : file->path);
  if (partial != nullptr && fault != nullptr && fault->partial) {
    *partial = fault;
    fault = nullptr;
  }
  if (fault != nullptr) return FailCall(fault->code, static_cast<OpenFile*>(nullptr));
  // Looked up again: CallControl::before_call may have closed the handle.
  OpenFile* const present = Files().Find(handle);
  if (present == nullptr) Computer::Current().last_error = kErrorInvalidHandle;
  return present;
}

}  // namespace

Handle CreateFileW(const char16_t* path, std::uint32_t access, std::uint32_t sharing,
                   std::uint32_t disposition, std::uint32_t flags) {
  return Open(Call::CreateFileW, {path, access, sharing, disposition, flags});
}

Handle CreateFile2(const char16_t* path, std::uint32_t access, std::uint32_t sharing,
                   std::uint32_t disposition, std::uint32_t flags) {
  return Open(Call::CreateFile2, {path, access, sharing, disposition, flags});
}

bool ReadFile(Handle handle, void* buffer, std::uint32_t size, std::uint32_t* read) {
  const Fault* partial = nullptr;
  OpenFile* const file = EnterOn(Call::ReadFile, handle, &partial);
  if (file == nullptr) return false;
  if (partial != nullptr) size = std::min(size, *partial->partial);
  return Answer(Files().Read(*file, buffer, size, read));
}

bool WriteFile(Handle handle, const void* buffer, std::uint32_t size, std::uint32_t* written) {
  *written = 0;
  const Fault* partial = nullptr;
  OpenFile* const file = EnterOn(Call::WriteFile, handle, &partial);
  if (file == nullptr) return false;
  // A short write reports success and leaves the last error as it was.
  if (partial != nullptr) size = std::min(size, *partial->partial);
  if (!Answer(Files().Write(*file, {static_cast<const char*>(buffer), size}))) return false;
  *written = size;
  return true;
}

bool SetFilePointerEx(Handle handle, std::int64_t distance, std::uint32_t method) {
  OpenFile* const file = EnterOn(Call::SetFilePointerEx, handle);
  if (file == nullptr) return false;
  if (method != kFileBegin || distance < 0) return Answer(kErrorInvalidParameter);
  file->position = static_cast<std::uint64_t>(distance);
  return true;
}

bool GetFileSizeEx(Handle handle, std::int64_t* size) {
  const OpenFile* const file = EnterOn(Call::GetFileSizeEx, handle);
  if (file == nullptr) return false;
  *size = static_cast<std::int64_t>(Files().NodeOf(file->node).Size());
  return true;
}

bool FlushFileBuffers(Handle handle) {
  const OpenFile* const file = EnterOn(Call::FlushFileBuffers, handle);
  return file != nullptr && Answer(Files().Flush(*file));
}

bool GetFileInformationByHandle(Handle handle, ByHandleFileInformation* information) {
  const OpenFile* const file = EnterOn(Call::GetFileInformationByHandle, handle);
  if (file == nullptr) return false;
  information->number_of_links = Files().NodeOf(file->node).links;
  return true;
}

bool GetFileInformationByHandleEx(Handle handle, FileBasicInfo* information) {
  const OpenFile* const file = EnterOn(Call::GetFileInformationByHandleEx, handle);
  if (file == nullptr) return false;
  *information = {.attributes = Files().NodeOf(file->node).attributes};
  return true;
}

bool GetFileInformationByHandleEx(Handle handle, FileStandardInfo* information) {
  const OpenFile* const file = EnterOn(Call::GetFileInformationByHandleEx, handle);
  if (file == nullptr) return false;
  information->end_of_file = static_cast<std::int64_t>(Files().NodeOf(file->node).Size());
  return true;
}

bool GetFileInformationByHandleEx(Handle handle, FileAttributeTagInfo* information) {
  const OpenFile* const file = EnterOn(Call::GetFileInformationByHandleEx, handle);
  if (file == nullptr) return false;
  if (!Files().VolumeOf(file->node).attribute_tags) return Answer(kErrorInvalidParameter);
  const Node& node = Files().NodeOf(file->node);
  *information = {.attributes = node.attributes, .reparse_tag = node.reparse_tag};
  return true;
}

bool SetFileInformationByHandle(Handle handle, const FileBasicInfo& information) {
  const OpenFile* const file = EnterOn(Call::SetFileInformationByHandle, handle);
  return file != nullptr && Answer(Files().SetAttributes(*file, information.attributes));
}

bool SetFileInformationByHandle(Handle handle, const FileDispositionInfo& information) {
  OpenFile* const file = EnterOn(Call::SetFileInformationByHandle, handle);
  return file != nullptr && Answer(Files().Dispose(*file, information.delete_file, false, false));
}

bool SetFileInformationByHandle(Handle handle, const FileDispositionInfoEx& information) {
  OpenFile* const file = EnterOn(Call::SetFileInformationByHandle, handle);
  if (file == nullptr) return false;
  if (!Files().VolumeOf(file->node).posix_delete) return Answer(kErrorInvalidParameter);
  const auto has = [&](std::uint32_t flag) { return (information.flags & flag) != 0; };
  return Answer(Files().Dispose(*file, has(kFileDispositionDelete),
                                has(kFileDispositionPosixSemantics),
                                has(kFileDispositionIgnoreReadonly)));
}

std::uint32_t GetFinalPathNameByHandleW(Handle handle, char16_t* buffer, std::uint32_t size,
                                        std::uint32_t flags) {
  const OpenFile* const file = EnterOn(Call::GetFinalPathNameByHandleW, handle);
  if (file == nullptr) return 0;
  const auto path = Files().FinalPath(*file, flags == kVolumeNameNt);
  if (!path) return FailCall(kErrorPathNotFound, 0U);
  const auto length = static_cast<std::uint32_t>(path->size());
  if (length >= size) return length + 1;
  std::ranges::copy(*path, buffer);
  buffer[length] = u'\0';
  return length;
}

std::uint32_t GetFileAttributesW(const char16_t* path) {
  if (const Fault* fault = Computer::Current().calls.Enter(Call::GetFileAttributesW, path)) {
    return FailCall(fault->code, kInvalidFileAttributes);
  }
  const simulated::Resolved found = Files().LookUp(path);
  if (!Answer(found.code)) return kInvalidFileAttributes;
  return Files().NodeOf(found.node).attributes;
}

bool GetFileAttributesExW(const char16_t* path, FileAttributeData* data) {
  if (const Fault* fault = Computer::Current().calls.Enter(Call::GetFileAttributesExW, path)) {
    return FailCall(fault->code, false);
  }
  const simulated::Resolved found = Files().LookUp(path);
  if (!Answer(found.code)) return false;
  const Node& node = Files().NodeOf(found.node);
  *data = {.attributes = node.attributes, .size = node.Size()};
  return true;
}

bool MoveFileExW(const char16_t* from, const char16_t* to, std::uint32_t flags) {
  if (const Fault* fault = Computer::Current().calls.Enter(Call::MoveFileExW, from)) {
    return FailCall(fault->code, false);
  }
  return Answer(Files().Move(from, to, flags));
}

bool DeleteFileW(const char16_t* path) {
  if (const Fault* fault = Computer::Current().calls.Enter(Call::DeleteFileW, path)) {
    return FailCall(fault->code, false);
  }
  return Answer(Files().Delete(path));
}

bool CreateDirectoryW(const char16_t* path) {
  if (const Fault* fault = Computer::Current().calls.Enter(Call::CreateDirectoryW, path)) {
    return FailCall(fault->code, false);
  }
  return Answer(Files().MakeDirectory(path));
}

}  // namespace tolvarine::updater::platform
