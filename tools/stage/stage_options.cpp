#include "stage/stage_options.h"

#include <algorithm>
#include <array>
#include <set>

#include "text/decimal.h"
#include "text/utf8.h"

namespace tolvarine::updater::stage {
namespace {

using Value = std::u16string_view;

template <auto field>
bool FillRequest(StageOptions& options, Value value) {
  options.request.*field = value;
  return !value.empty();
}

template <auto field>
bool FillIdentifier(StageOptions& options, Value value) {
  options.request.*field = value;
  return IsInstallationIdentifier(value);
}

template <auto field>
bool FillPath(StageOptions& options, Value value) {
  options.*field = value;
  return !value.empty();
}

bool FillDeletion(StageOptions& options, Value value) {
  options.request.deletions.emplace_back(value);
  return true;
}

template <auto field>
bool FillNumber(StageOptions& options, Value value) {
  const auto number =
      ParseDecimal<std::remove_reference_t<decltype(options.*field)>>(Utf8FromUtf16(value));
  options.*field = number.value_or(0);
  return number && *number != 0;
}

template <auto field>
bool FillSwitch(StageOptions& options, Value) {
  options.*field = true;
  return true;
}

struct Option {
  std::u16string_view name;
  bool (*fill)(StageOptions&, Value);
  bool takes_value = true;
  bool for_check = false;
  bool repeats = false;
};

using Request = staging::StagingRequest;

constexpr std::array<Option, 14> kOptions = {{
    {.name = u"--release", .fill = FillRequest<&Request::release>, .for_check = true},
    {.name = u"--target", .fill = FillRequest<&Request::target>, .for_check = true},
    {.name = u"--state", .fill = FillRequest<&Request::state_root>, .for_check = true},
    {.name = u"--previous", .fill = FillPath<&StageOptions::previous>, .for_check = true},
    {.name = u"--delete", .fill = FillDeletion, .for_check = true, .repeats = true},
    {.name = u"--install-key", .fill = FillIdentifier<&Request::install_key>},
    {.name = u"--update-id", .fill = FillIdentifier<&Request::update_id>},
    {.name = u"--restart", .fill = FillRequest<&Request::restart>},
    {.name = u"--updater", .fill = FillPath<&StageOptions::updater>},
    {.name = u"--wait-pid", .fill = FillNumber<&StageOptions::wait_pid>},
    {.name = u"--wait-process-created-at",
     .fill = FillNumber<&StageOptions::wait_process_created_at>},
    {.name = u"--without-wait",
     .fill = FillSwitch<&StageOptions::without_wait>,
     .takes_value = false},
    {.name = u"--print", .fill = FillSwitch<&StageOptions::print>, .takes_value = false},
    {.name = u"--run", .fill = FillSwitch<&StageOptions::run>, .takes_value = false},
}};

const Option* FindOption(Command command, Value name) {
  const auto* const option = std::ranges::find(kOptions, name, &Option::name);
  if (option == kOptions.end()) return nullptr;
  return command == Command::kStage || option->for_check ? option : nullptr;
}

// Returns the reason of a refusal, empty if all options are valid.
std::string FillAll(StageOptions& options, const std::vector<Value>& arguments) {
  std::set<Value> seen;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    const std::string name = staging::Quoted(arguments[i]);
    const Option* const option = FindOption(options.command, arguments[i]);
    if (option == nullptr) return name + " is no option of this command";
    if (!seen.insert(option->name).second && !option->repeats) return name + " is given twice";
    if (option->takes_value && ++i == arguments.size()) return name + " needs a value";
    if (!option->fill(options, arguments[i]))
      return name + " cannot be " + staging::Quoted(arguments[i]);
  }
  return {};
}

std::string MissingFrom(const StageOptions& options) {
  const Request& request = options.request;
  if (request.release.empty()) return "--release is missing";
  if (options.command == Command::kCheck) {
    const bool both_or_none = request.target.empty() == request.state_root.empty();
    return both_or_none ? "" : "--target and --state go together";
  }
  if (request.target.empty()) return "--target is missing";
  if (request.state_root.empty()) return "--state is missing";
  if (options.print == options.run) return "either --print or --run is needed";
  const bool waits = options.wait_pid != 0;
  if (waits != (options.wait_process_created_at != 0)) {
    return "--wait-pid and --wait-process-created-at go together";
  }
  if (options.without_wait && (waits || options.run)) {
    return "--without-wait goes with --print, and with no process to wait for";
  }
  return {};
}

std::optional<Command> CommandNamed(Value name) {
  if (name == u"check") return Command::kCheck;
  if (name == u"stage") return Command::kStage;
  return std::nullopt;
}

}  // namespace

ParsedOptions ParseOptions(const std::vector<Value>& arguments) {
  if (std::ranges::find(arguments, u"--help") != arguments.end()) return {StageOptions{}};
  const auto command = arguments.empty() ? std::nullopt : CommandNamed(arguments.front());
  if (!command) return {.refusal = "a command is needed, check or stage; --help tells more"};
  StageOptions options{.command = *command};
  std::string refusal = FillAll(options, arguments);
  if (refusal.empty()) refusal = MissingFrom(options);
  if (!refusal.empty()) return {.refusal = std::move(refusal)};
  return {std::move(options)};
}

}  // namespace tolvarine::updater::stage
