// The current user's part of the registry. Values of any other type than REG_SZ do not exist.

#include "system/registry.h"

#include <algorithm>
#include <string>

#include "platform/error_codes.h"
#include "simulated_windows/call_failure.h"
#include "simulated_windows/objects.h"
#include "simulated_windows/volume.h"

namespace tolvarine::updater::platform {

using simulated::Call;
using simulated::Computer;
using simulated::Fault;
using simulated::FoldName;
using simulated::KernelObjects;
using simulated::RegistryValue;

namespace {

// The key of a handle, where it was opened with the right to change it; otherwise sets the code.
const KernelObjects::RegistryKey* ChangeableKey(Handle handle, std::uint32_t* code) {
  const KernelObjects::RegistryKey* const key =
      Computer::Current().objects().FindRegistryKey(handle);
  *code = kErrorSuccess;
  if (key == nullptr) *code = simulated::kErrorInvalidHandle;
  if (key != nullptr && (key->access & kKeySetValue) == 0) *code = kErrorAccessDenied;
  return *code == kErrorSuccess ? key : nullptr;
}

}  // namespace

std::uint32_t RegCreateKeyExW(const char16_t* path, std::uint32_t access, Handle* key) {
  Computer& computer = Computer::Current();
  *key = kNullHandle;
  if (const Fault* fault = computer.calls.Enter(Call::RegCreateKeyExW, path)) return fault->code;
  computer.registry.values[FoldName(path)];
  *key = computer.objects().AddRegistryKey({FoldName(path), access});
  return kErrorSuccess;
}

std::uint32_t RegGetValueW(const char16_t* path, const char16_t* name, char16_t* buffer,
                           std::uint32_t* bytes) {
  constexpr std::uint32_t kMoreData = 234;
  Computer& computer = Computer::Current();
  if (const Fault* fault = computer.calls.Enter(Call::RegGetValueW, path)) return fault->code;
  const auto key = computer.registry.values.find(FoldName(path));
  if (key == computer.registry.values.end()) return kErrorFileNotFound;
  const auto value = key->second.find(FoldName(name));
  if (value == key->second.end()) return kErrorFileNotFound;
  const std::u16string& text = value->second.text;
  const auto needed = static_cast<std::uint32_t>((text.size() + 1) * sizeof(char16_t));
  const std::uint32_t room = *bytes;
  *bytes = needed;
  if (room < needed) return kMoreData;
  *std::ranges::copy(text, buffer).out = u'\0';
  return kErrorSuccess;
}

std::uint32_t RegSetValueExW(Handle key, const char16_t* name, const char16_t* text,
                             std::uint32_t bytes) {
  Computer& computer = Computer::Current();
  if (const Fault* fault = computer.calls.Enter(Call::RegSetValueExW, name)) return fault->code;
  std::uint32_t code = 0;
  const KernelObjects::RegistryKey* const opened = ChangeableKey(key, &code);
  if (opened == nullptr) return code;
  computer.registry.values[opened->path][FoldName(name)] = {
      name, std::u16string(text, bytes / sizeof(char16_t) - 1)};
  return kErrorSuccess;
}

std::uint32_t RegDeleteValueW(Handle key, const char16_t* name) {
  Computer& computer = Computer::Current();
  if (const Fault* fault = computer.calls.Enter(Call::RegDeleteValueW, name)) return fault->code;
  std::uint32_t code = 0;
  const KernelObjects::RegistryKey* const opened = ChangeableKey(key, &code);
  if (opened == nullptr) return code;
  const auto removed = computer.registry.values[opened->path].erase(FoldName(name));
  return removed == 1 ? kErrorSuccess : kErrorFileNotFound;
}

std::uint32_t RegFlushKey(Handle key) {
  Computer& computer = Computer::Current();
  if (const Fault* fault = computer.calls.Enter(Call::RegFlushKey)) return fault->code;
  if (computer.objects().FindRegistryKey(key) == nullptr) return simulated::kErrorInvalidHandle;
  computer.registry.durable = computer.registry.values;
  return kErrorSuccess;
}

std::uint32_t RegCloseKey(Handle key) {
  Computer& computer = Computer::Current();
  if (const Fault* fault = computer.calls.Enter(Call::RegCloseKey)) return fault->code;
  if (computer.objects().FindRegistryKey(key) == nullptr) return simulated::kErrorInvalidHandle;
  computer.objects().Close(key);
  return kErrorSuccess;
}

}  // namespace tolvarine::updater::platform
