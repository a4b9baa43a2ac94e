#include "update/command_line_text.h"

#include "text/decimal.h"

namespace tolvarine::updater::application {
namespace {

std::u16string WidenAscii(std::string_view text) { return {text.begin(), text.end()}; }

std::u16string Decimal(std::uint64_t number) {
  std::string text;
  AppendDecimal(text, number);
  return WidenAscii(text);
}

void AppendOption(std::u16string& line, std::u16string_view name, std::u16string_view value) {
  line.append(u" ").append(name).append(u" ").append(QuoteArgument(value));
}

}  // namespace

std::u16string QuoteArgument(std::u16string_view argument) {
  std::u16string quoted = u"\"";
  std::size_t backslashes = 0;
  for (const char16_t unit : argument) {
    // Backslashes are literal unless a quotation mark follows, which then needs one of its own.
    if (unit == u'"') quoted.append(backslashes + 1, u'\\');
    backslashes = unit == u'\\' ? backslashes + 1 : 0;
    quoted.push_back(unit);
  }
  quoted.append(backslashes, u'\\');
  quoted.push_back(u'"');
  return quoted;
}

std::u16string CommandLineOf(const Path& updater, const UpdaterArguments& arguments) {
  std::u16string line = QuoteArgument(updater);
  AppendOption(line, u"--source", arguments.source);
  AppendOption(line, u"--target", arguments.target);
  AppendOption(line, u"--restart", arguments.restart);
  AppendOption(line, u"--state-file", arguments.state_file);
  AppendOption(line, u"--completed-file", arguments.completed_file);
  AppendOption(line, u"--installed-manifest-file", arguments.installed_manifest_file);
  AppendOption(line, u"--workspace", arguments.workspace);
  AppendOption(line, u"--update-id", arguments.update_id);
  AppendOption(line, u"--install-key", arguments.install_key);
  AppendOption(line, u"--source-inventory",
               WidenAscii(SerializeSourceInventory(arguments.source_inventory)));
  if (!arguments.managed_deletions.empty()) {
    AppendOption(line, u"--managed-deletions",
                 WidenAscii(SerializeManagedDeletionList(arguments.managed_deletions)));
  }
  AppendOption(line, u"--wait-pid", Decimal(arguments.wait_pid));
  if (arguments.has_wait_process_created_at) {
    AppendOption(line, u"--wait-process-created-at", Decimal(arguments.wait_process_created_at));
  }
  return line;
}

}  // namespace tolvarine::updater::application
