#include "update_tool/verb_table.h"

#include <algorithm>
#include <array>
#include <set>

#include "driver/command_line.h"
#include "text/decimal.h"
#include "text/utf8.h"
#include "update/sentences.h"

namespace tolvarine::updater::update_tool {
namespace {

using application::Quoted;
using Value = std::u16string_view;

// --- How an option takes its value ---------------------------------------------------------------

template <Path Options::*field>
bool FillPath(Options& options, Value value) {
  options.*field = value;
  return !value.empty();
}

template <std::vector<Path> Options::*field>
bool AddPath(Options& options, Value value) {
  (options.*field).emplace_back(value);
  return !value.empty();
}

template <std::string Options::*field>
bool FillText(Options& options, Value value) {
  options.*field = Utf8FromUtf16(value);
  return !value.empty();
}

template <auto field>
bool FillNumber(Options& options, Value value) {
  const auto number =
      ParseDecimal<std::remove_reference_t<decltype(options.*field)>>(Utf8FromUtf16(value));
  options.*field = number.value_or(0);
  return number && *number != 0;
}

template <bool Options::*field>
bool SetSwitch(Options& options, Value) {
  options.*field = true;
  return true;
}

bool FillId(Options& options, Value value) {
  options.id = value;
  return IsInstallationIdentifier(value);
}

constexpr std::array kOptions = {
    OptionRow{u"--target", "DIR", "the installation", FillPath<&Options::target>},
    OptionRow{u"--state", "DIR", "what holds the state directories of all installations",
              FillPath<&Options::state>},
    OptionRow{u"--key", "FILE", "a public key (PEM) that releases are signed with; may be repeated",
              AddPath<&Options::keys>, true},
    OptionRow{u"--release", "FILE", "the signed release, release.json",
              FillPath<&Options::release>},
    OptionRow{u"--package", "DIR", "the directory with the files of the release",
              FillPath<&Options::package>},
    OptionRow{u"--restart", "PATH", "what is started after the update (Tolvarine.exe)",
              FillPath<&Options::restart>},
    OptionRow{u"--updater", "EXE", "the updater (TolvarineUpdater.exe beside this program)",
              FillPath<&Options::updater>},
    OptionRow{u"--resumer", "EXE", "the resumer (TolvarineResume.exe beside this program)",
              FillPath<&Options::resumer>},
    OptionRow{u"--id", "ID", "the update, where there is more than one", FillId},
    OptionRow{u"--wait", "PID", "the process whose end the updater waits for",
              FillNumber<&Options::wait>},
    OptionRow{u"--no-wait", "", "there is no process to wait for", SetSwitch<&Options::no_wait>},
    OptionRow{u"--accept-sequence", "N",
              "takes a release of this sequence although a later one was installed",
              FillNumber<&Options::accept_sequence>},
    OptionRow{u"--clear-read-only", "", "clears the read-only attribute of files to be replaced",
              SetSwitch<&Options::clear_read_only>},
    OptionRow{u"--channel", "NAME", "the channel of the release, such as stable",
              FillText<&Options::channel>},
    OptionRow{u"--version", "TEXT", "the version of the release, for people",
              FillText<&Options::version>},
    OptionRow{u"--sequence", "N", "the number of the release, greater than that of any earlier one",
              FillNumber<&Options::sequence>},
    OptionRow{u"--earlier", "FILE", "the release.json of an earlier release; may be repeated",
              AddPath<&Options::earlier>, true},
    OptionRow{u"--payload", "FILE", "the description: written in step 1, read in step 2",
              FillPath<&Options::payload>},
    OptionRow{u"--to-sign", "FILE", "receives the bytes that are to be signed",
              FillPath<&Options::to_sign>},
    OptionRow{u"--signature", "FILE", "their signature in DER; makes this step 2",
              FillPath<&Options::signature>},
    OptionRow{u"--output", "FILE", "receives the signed release", FillPath<&Options::output>},
    OptionRow{u"--json", "", "writes one JSON object instead of sentences",
              SetSwitch<&Options::json>},
};

// --- The verbs -----------------------------------------------------------------------------------

constexpr VerbOption kTarget = {u"--target", Need::Required};
constexpr VerbOption kState = {u"--state", Need::Required};
constexpr VerbOption kKey = {u"--key", Need::Required};
constexpr VerbOption kRelease = {u"--release", Need::Required};
constexpr VerbOption kPackage = {u"--package", Need::Required};
constexpr VerbOption kJson = {u"--json"};

constexpr std::array kDescribeOptions = {VerbOption{u"--package"},
                                         VerbOption{u"--channel"},
                                         VerbOption{u"--version"},
                                         VerbOption{u"--sequence"},
                                         VerbOption{u"--earlier"},
                                         VerbOption{u"--key"},
                                         VerbOption{u"--payload", Need::Required},
                                         VerbOption{u"--to-sign"},
                                         VerbOption{u"--signature"},
                                         VerbOption{u"--output"},
                                         kJson};
constexpr std::array kPrepareOptions = {kTarget,
                                        kState,
                                        kKey,
                                        kRelease,
                                        kPackage,
                                        VerbOption{u"--restart"},
                                        VerbOption{u"--updater"},
                                        VerbOption{u"--resumer"},
                                        VerbOption{u"--accept-sequence"},
                                        VerbOption{u"--clear-read-only"},
                                        kJson};
constexpr std::array kStartOptions = {
    kTarget, kState, VerbOption{u"--id"}, VerbOption{u"--wait"}, VerbOption{u"--no-wait"}, kJson};
constexpr std::array kStatusOptions = {kTarget, kState, kKey, kJson};
constexpr std::array kAbandonOptions = {kTarget, kState, VerbOption{u"--id"}, kJson};
constexpr std::array kAdoptOptions = {kTarget, kState, kKey, kRelease, kJson};

constexpr std::array kVerbs = {
    VerbRow{Verb::Describe, u"describe", "describes a release and makes it a signed one",
            "Step 1 checks and hashes the files of a release and writes its description, and the "
            "bytes\nthat are to be signed. Sign these with ECDSA on P-256 and SHA-256, for example "
            "with\n\"openssl dgst -sha256 -sign private.pem -out signature.der to-sign.bin\". Step "
            "2 takes the\nsignature and writes the signed release.\n"
            "Step 1 needs --package, --channel, --version, --sequence and --to-sign; step 2 needs\n"
            "--signature, --key and --output.",
            kDescribeOptions,
            "describe --package release-2 --channel stable --version 2.0 --sequence 2 "
            "--payload payload.json --to-sign to-sign.bin"},
    VerbRow{Verb::Check, u"check", "says every reason why an update could not be done",
            "Changes nothing.", kPrepareOptions,
            "check --target app --state state --key public.pem --release release.json "
            "--package release-2"},
    VerbRow{Verb::Prepare, u"prepare", "makes an update ready to be started",
            "Verifies the signed release, stages what differs, and keeps copies of what will be\n"
            "replaced. The application may run meanwhile. It can be cancelled and repeated.",
            kPrepareOptions,
            "prepare --target app --state state --key public.pem --release release.json "
            "--package release-2"},
    VerbRow{
        Verb::Start, u"start", "starts the updater",
        "The updater waits for the process that is named to end, so that the application names\n"
        "itself and quits.",
        kStartOptions, "start --target app --state state --no-wait"},
    VerbRow{Verb::Status, u"status", "says where every update of the installation stands", "",
            kStatusOptions, "status --target app --state state --key public.pem"},
    VerbRow{Verb::Finish, u"finish", "removes what installed and abandoned updates have left",
            "Verifies the whole installation against the installed release.", kStatusOptions,
            "finish --target app --state state --key public.pem"},
    VerbRow{Verb::Abandon, u"abandon", "gives up an update that has not changed the installation",
            "An update that is applying, restoring or committed cannot be given up.",
            kAbandonOptions, "abandon --target app --state state"},
    VerbRow{Verb::Adopt, u"adopt", "notes which release is installed, after a setup program",
            "Proves that the installation holds every file of the release. The way out of an "
            "update\nthat is damaged or foreign, once the full package has been installed.",
            kAdoptOptions,
            "adopt --target app --state state --key public.pem --release release.json"},
    VerbRow{Verb::Help, u"help", "explains a verb", "", {}, "help prepare"},
};

const VerbRow* VerbNamed(Value name) {
  const auto* const row = std::ranges::find(kVerbs, name, &VerbRow::name);
  return row == kVerbs.end() ? nullptr : row;
}

// --- Parsing -------------------------------------------------------------------------------------

bool Takes(const VerbRow& verb, Value name) {
  return std::ranges::find(verb.options, name, &VerbOption::name) != verb.options.end();
}

// Returns what is wrong; nothing if all is well.
std::string FillOptions(const VerbRow& verb, std::span<const Value> arguments, Options& options) {
  std::set<Value> seen;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string name = Quoted(arguments[i]);
    if (!Takes(verb, arguments[i])) {
      return name + " is not an option of " + Utf8FromUtf16(verb.name);
    }
    const OptionRow& option = OptionNamed(arguments[i]);
    if (!seen.insert(option.name).second && !option.repeats) return name + " is given twice";
    Value value;
    if (!option.value.empty()) {
      if (++i == arguments.size()) return name + " needs a value";
      value = arguments[i];
    }
    if (!option.fill(options, value)) return name + " cannot be " + Quoted(value);
  }
  for (const VerbOption& option : verb.options) {
    if (option.need == Need::Required && !seen.contains(option.name)) {
      return Utf8FromUtf16(option.name) + " is missing";
    }
  }
  return {};
}

// What the table cannot say of a single option.
std::string CheckTogether(const VerbRow& verb, const Options& options) {
  if (verb.verb == Verb::Start && (options.wait != 0) == options.no_wait) {
    return "either --wait or --no-wait is needed";
  }
  if (verb.verb != Verb::Describe) return {};
  if (options.signature.empty()) {
    const bool complete = !options.package.empty() && !options.channel.empty() &&
                          !options.version.empty() && options.sequence != 0 &&
                          !options.to_sign.empty();
    const bool keys = options.earlier.empty() || !options.keys.empty();
    if (!keys) return "--earlier needs --key, to verify the earlier release";
    return complete ? "" : "step 1 needs --package, --channel, --version, --sequence, --to-sign";
  }
  const bool complete = options.keys.size() == 1 && !options.output.empty();
  return complete ? "" : "step 2 needs --signature, one --key and --output";
}

}  // namespace

std::span<const VerbRow> AllVerbs() { return kVerbs; }

const OptionRow& OptionNamed(std::u16string_view name) {
  return *std::ranges::find(kOptions, name, &OptionRow::name);
}

std::string HelpOf(const VerbRow& verb) {
  constexpr std::size_t kColumn = 24;
  const std::string name = Utf8FromUtf16(verb.name);
  std::string text = name + ": " + std::string(verb.summary) + "\n";
  if (!verb.help.empty()) text.append("\n").append(verb.help).append("\n");
  if (!verb.options.empty()) text += "\n";
  for (const VerbOption& one : verb.options) {
    const OptionRow& option = OptionNamed(one.name);
    std::string row = "  " + Utf8FromUtf16(option.name);
    if (!option.value.empty()) row.append(" ").append(option.value);
    row.resize(std::max(row.size() + 2, kColumn), ' ');
    text.append(row).append(option.help);
    text += one.need == Need::Required ? " (needed)\n" : "\n";
  }
  return text.append("\nExample:\n  TolvarineUpdateTool ").append(verb.example).append("\n");
}

std::string HelpOfTool() {
  std::string text = "TolvarineUpdateTool VERB [OPTION]...\n\n";
  for (const VerbRow& verb : kVerbs) {
    std::string row = "  " + Utf8FromUtf16(verb.name);
    row.resize(12, ' ');
    text.append(row).append(verb.summary).append("\n");
  }
  return text +
         "\n\"help VERB\" explains a verb and its options.\n\n"
         "Exit codes: 0 done; 1 refused or failed, with the reasons; 2 wrong usage; 3 refused "
         "because an\nunfinished update stands; 4 another program works on the installation.\n";
}

ParsedLine ParseLine(std::span<const std::u16string_view> arguments) {
  const VerbRow* const help = VerbNamed(u"help");
  if (arguments.empty()) return {.refusal = "a verb is needed; \"help\" lists them"};
  const VerbRow* const verb = VerbNamed(arguments.front());
  if (verb == nullptr) return {.refusal = Quoted(arguments.front()) + " is not a verb"};
  if (verb == help) {
    const VerbRow* const about = arguments.size() > 1 ? VerbNamed(arguments[1]) : nullptr;
    if (arguments.size() > 2 || (arguments.size() == 2 && about == nullptr)) {
      return {.refusal = "help takes one verb, or none"};
    }
    return {.verb = help, .about = about};
  }
  ParsedLine line{.verb = verb};
  line.refusal = FillOptions(*verb, arguments.subspan(1), line.options);
  if (line.refusal.empty()) line.refusal = CheckTogether(*verb, line.options);
  if (!line.refusal.empty()) line.verb = nullptr;
  return line;
}

}  // namespace tolvarine::updater::update_tool
