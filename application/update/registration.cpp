#include "update/registration.h"

#include "files/unique_handle.h"
#include "platform/error_codes.h"
#include "system/registry.h"
#include "text/system_error.h"

namespace tolvarine::updater::application {
namespace {

constexpr char16_t kRunKey[] = u"Software\\Microsoft\\Windows\\CurrentVersion\\Run";

bool CloseRegistryKey(platform::Handle key) { return platform::RegCloseKey(key) == 0; }
using RegistryKey = UniqueHandle<CloseRegistryKey, platform::kNullHandle>;

void ThrowUnlessDone(std::uint32_t code) {
  if (code != 0) throw SystemError(code, "The registration at logon cannot be changed");
}

RegistryKey OpenRunKey() {
  platform::Handle key = platform::kNullHandle;
  ThrowUnlessDone(platform::RegCreateKeyExW(kRunKey, platform::kKeySetValue, &key));
  return RegistryKey(key);
}

std::u16string ValueNameOf(const Installation& installation) {
  constexpr std::size_t kDigits = 16;
  return u"Tolvarine update " + installation.key.substr(0, kDigits);
}

}  // namespace

std::u16string RunTextOf(const Path& resumer) { return u"\"" + resumer + u"\""; }

void RegisterResumer(const Installation& installation, const Path& resumer) {
  const std::u16string text = RunTextOf(resumer);
  const RegistryKey key = OpenRunKey();
  const auto bytes = static_cast<std::uint32_t>((text.size() + 1) * sizeof(char16_t));
  ThrowUnlessDone(
      platform::RegSetValueExW(key.get(), ValueNameOf(installation).c_str(), text.c_str(), bytes));
  ThrowUnlessDone(platform::RegFlushKey(key.get()));
}

void UnregisterResumer(const Installation& installation) {
  const RegistryKey key = OpenRunKey();
  const std::uint32_t code =
      platform::RegDeleteValueW(key.get(), ValueNameOf(installation).c_str());
  if (code == platform::kErrorFileNotFound) return;
  ThrowUnlessDone(code);
  ThrowUnlessDone(platform::RegFlushKey(key.get()));
}

}  // namespace tolvarine::updater::application
