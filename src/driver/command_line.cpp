#include "driver/command_line.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <set>

#include "lists/list_text.h"
#include "platform/text.h"
#include "text/hex.h"

namespace tolvarine::updater {
namespace {

constexpr char16_t kLastAscii = 0x7F;

// Converts a serialized list to 8-bit text. Returns nothing if it is too long or not ASCII.
std::optional<std::string> NarrowList(std::u16string_view value) {
  if (value.size() > kListTextByteLimit) return std::nullopt;
  std::string text;
  text.reserve(value.size());
  for (const char16_t unit : value) {
    if (unit > kLastAscii) return std::nullopt;
    text.push_back(static_cast<char>(unit));
  }
  return text;
}

bool FillInventory(UpdaterArguments& arguments, const char16_t* value) {
  const std::optional<std::string> text = NarrowList(value);
  return text && ParseSourceInventory(*text, arguments.source_inventory, nullptr);
}

bool FillDeletions(UpdaterArguments& arguments, const char16_t* value) {
  const std::optional<std::string> text = NarrowList(value);
  return text && ParseManagedDeletionList(*text, arguments.managed_deletions, nullptr);
}

// Text after the digits is ignored on purpose. The conversion accepts leading blanks and a sign, so
// -1 is 0xFFFFFFFF.
bool FillWaitPid(UpdaterArguments& arguments, const char16_t* value) {
  const char16_t* end = value;
  errno = 0;
  const std::uint32_t number = platform::wcstoul(value, &end);
  if (end == value || errno == ERANGE) return false;
  arguments.wait_pid = number;
  return true;
}

// Unlike the process id, the creation time must have no text after its digits.
bool FillCreationTime(UpdaterArguments& arguments, const char16_t* value) {
  const char16_t* end = value;
  errno = 0;
  const std::uint64_t number = platform::wcstoull(value, &end);
  if (end == value || errno == ERANGE) return false;
  arguments.wait_process_created_at = number;
  arguments.has_wait_process_created_at = *end == u'\0';
  return arguments.has_wait_process_created_at;
}

template <auto field>
bool FillText(UpdaterArguments& arguments, const char16_t* value) {
  arguments.*field = value;
  return true;
}

struct Option {
  std::u16string_view name;
  bool required;
  bool (*fill)(UpdaterArguments&, const char16_t*);
};

constexpr std::array<Option, 13> kOptions = {{
    {u"--source", true, FillText<&UpdaterArguments::source>},
    {u"--target", true, FillText<&UpdaterArguments::target>},
    {u"--restart", true, FillText<&UpdaterArguments::restart>},
    {u"--state-file", true, FillText<&UpdaterArguments::state_file>},
    {u"--completed-file", true, FillText<&UpdaterArguments::completed_file>},
    {u"--installed-manifest-file", true, FillText<&UpdaterArguments::installed_manifest_file>},
    {u"--workspace", true, FillText<&UpdaterArguments::workspace>},
    {u"--update-id", true, FillText<&UpdaterArguments::update_id>},
    {u"--install-key", true, FillText<&UpdaterArguments::install_key>},
    {u"--source-inventory", true, FillInventory},
    {u"--managed-deletions", false, FillDeletions},
    {u"--wait-pid", true, FillWaitPid},
    {u"--wait-process-created-at", false, FillCreationTime},
}};

constexpr std::array kRequiredPaths = {
    &UpdaterArguments::source,         &UpdaterArguments::target,
    &UpdaterArguments::restart,        &UpdaterArguments::state_file,
    &UpdaterArguments::completed_file, &UpdaterArguments::installed_manifest_file,
    &UpdaterArguments::workspace};

// A process is identified only by both values together, so one without the other is refused.
bool WaitOptionsAgree(const UpdaterArguments& arguments) {
  if (arguments.wait_pid == 0) return !arguments.has_wait_process_created_at;
  return arguments.has_wait_process_created_at && arguments.wait_process_created_at != 0;
}

bool IsComplete(const UpdaterArguments& arguments, const std::set<std::u16string_view>& seen) {
  const auto present = [&](const Option& option) {
    return !option.required || seen.contains(option.name);
  };
  const auto empty = [&](auto path) { return (arguments.*path).empty(); };
  return std::ranges::all_of(kOptions, present) && std::ranges::none_of(kRequiredPaths, empty) &&
         !arguments.source_inventory.empty() && IsInstallationIdentifier(arguments.update_id) &&
         IsInstallationIdentifier(arguments.install_key) && WaitOptionsAgree(arguments);
}

}  // namespace

bool ParseArguments(std::int32_t count, const char16_t* const* vector,
                    UpdaterArguments& arguments) {
  if (count < 2 || (count - 1) % 2 != 0) return false;
  std::set<std::u16string_view> seen;
  for (std::int32_t i = 1; i + 1 < count; i += 2) {
    const std::u16string_view name = vector[i];
    if (!seen.insert(name).second) return false;
    const auto* const option = std::ranges::find(kOptions, name, &Option::name);
    if (option == kOptions.end() || !option->fill(arguments, vector[i + 1])) return false;
  }
  return IsComplete(arguments, seen);
}

bool IsInstallationIdentifier(std::u16string_view text) { return IsLowerHex64(text); }

}  // namespace tolvarine::updater
