#include "update_tool/commands.h"

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <vector>

#include "files/canonical_path.h"
#include "release/describe.h"
#include "release/file_bytes.h"
#include "release/signed_release.h"
#include "state/checked_record.h"
#include "text/system_error.h"
#include "text/utf8.h"
#include "update/sentences.h"
#include "update/verb_failure.h"
#include "update/verbs.h"

namespace tolvarine::updater::update_tool {
namespace {

namespace app = application;
using app::Outcome, app::Quoted, app::ReasonCode, app::VerbFailure;
using Json = nlohmann::json;

// Of a key, a payload or a signature.
constexpr std::size_t kSmallFileLimit = std::size_t{64} << 10;

// What a command gives: an object for programs, and lines for people.
struct Answer {
  app::VerbResult result{};
  Json json = Json::object();
  std::string text{};
};

// --- Reading what the options name ---------------------------------------------------------------

Path FullPath(const Path& path) {
  Path current;
  if (Canonicalize(u".", current) != 0) throw std::runtime_error("No current directory");
  std::uint32_t code = 0;
  Path full = WeaklyCanonicalize(JoinPath(current, path), code);
  if (code != 0) throw SystemError(code, Quoted(path));
  return full;
}

std::string ReadSmallFile(const Path& path, std::size_t limit) {
  try {
    return app::ReadFileBytes(FullPath(path), limit);
  } catch (const std::exception& failure) {
    throw VerbFailure(ReasonCode::SystemFailure,
                      Quoted(path) + " cannot be read: " + app::FailureText(failure), path);
  }
}

app::PublicKey ReadKey(const Path& path) {
  const std::string text = ReadSmallFile(path, kSmallFileLimit);
  try {
    return app::ParsePublicKey(text);
  } catch (const std::runtime_error& failure) {
    throw VerbFailure(ReasonCode::BadRelease, Quoted(path) + ": " + failure.what() + ".", path);
  }
}

std::vector<app::PublicKey> ReadKeys(const Options& options) {
  std::vector<app::PublicKey> keys;
  for (const Path& path : options.keys) keys.push_back(ReadKey(path));
  return keys;
}

app::VerifiedRelease ReadSigned(const Path& path, const std::vector<app::PublicKey>& keys) {
  std::string envelope = ReadSmallFile(path, app::kEnvelopeByteLimit);
  try {
    return app::VerifyRelease(std::move(envelope), keys);
  } catch (const std::runtime_error& failure) {
    throw VerbFailure(ReasonCode::BadRelease,
                      Quoted(path) + ": " + failure.what() + " Get the release again.", path);
  }
}

app::Installation Locate(const Options& options) {
  return app::LocateInstallation(options.target, options.state);
}

void WriteOutput(const Path& path, std::string_view content) {
  app::WriteFileDurably(FullPath(path), content);
}

// --- describe ------------------------------------------------------------------------------------

void AddMargins(const std::vector<app::ListMargin>& margins, Answer& answer) {
  answer.json["margins"] = Json::array();
  for (const app::ListMargin& margin : margins) {
    answer.json["margins"].push_back({{"from", margin.earlier_version},
                                      {"files", margin.files},
                                      {"inventory_bytes", margin.inventory_bytes},
                                      {"deletions", margin.deletions},
                                      {"deletion_bytes", margin.deletion_bytes},
                                      {"fits", margin.Fits()}});
    answer.text +=
        "From " + margin.earlier_version + ": " + std::to_string(margin.files) +
        " files in a list of " + std::to_string(margin.inventory_bytes) + " bytes, " +
        std::to_string(margin.deletions) + " deletions in one of " +
        std::to_string(margin.deletion_bytes) + ", of 1000 and 24576 each. " +
        (margin.Fits() ? "It fits.\n" : "It does not fit: the full package is needed.\n");
  }
}

void DescribeFirstStep(const Options& options, Answer& answer) {
  app::DescribeRequest request{.release = FullPath(options.package),
                               .channel = options.channel,
                               .version = options.version,
                               .sequence = options.sequence};
  const std::vector<app::PublicKey> keys = ReadKeys(options);
  for (const Path& path : options.earlier) {
    request.earlier.push_back(ReadSigned(path, keys).description);
  }
  const app::DescribedRelease described = app::DescribeRelease(request);
  for (const std::string& problem : described.problems) {
    answer.result.outcome = Outcome::Refused;
    answer.result.reasons.push_back({ReasonCode::BadRelease, problem});
  }
  if (!described.problems.empty()) return;
  WriteOutput(options.payload, described.payload);
  WriteOutput(options.to_sign,
              app::PreAuthenticationEncoding(app::kPayloadType, described.payload));
  answer.text = "The description is in " + Quoted(options.payload) + ". Sign " +
                Quoted(options.to_sign) + ", then describe again with the signature.\n";
  AddMargins(described.margins, answer);
}

void DescribeSecondStep(const Options& options, Answer& answer) {
  const std::string payload = ReadSmallFile(options.payload, app::kDescriptionByteLimit);
  const std::string signature = ReadSmallFile(options.signature, kSmallFileLimit);
  try {
    WriteOutput(options.output, app::SealRelease(payload, signature, ReadKeys(options).front()));
  } catch (const std::runtime_error& failure) {
    throw VerbFailure(ReasonCode::BadRelease, failure.what());
  }
  answer.text = "The signed release is in " + Quoted(options.output) + ".\n";
}

void Describe(const Options& options, Answer& answer) {
  options.signature.empty() ? DescribeFirstStep(options, answer)
                            : DescribeSecondStep(options, answer);
}

// --- check and prepare ---------------------------------------------------------------------------

void CheckOrPrepare(Verb verb, const Options& options, const Surroundings& surroundings,
                    Answer& answer) {
  const std::vector<app::PublicKey> keys = ReadKeys(options);
  app::PrepareRequest request{
      .package = FullPath(options.package),
      .release = ReadSigned(options.release, keys),
      .restart = options.restart,
      .updater = options.updater.empty()
                     ? JoinPath(surroundings.program_directory, u"TolvarineUpdater.exe")
                     : FullPath(options.updater),
      .resumer = options.resumer.empty()
                     ? JoinPath(surroundings.program_directory, app::kResumerName)
                     : FullPath(options.resumer),
      .accepted_sequence = options.accept_sequence,
      .clear_read_only = options.clear_read_only,
      .progress = surroundings.progress};
  const bool check = verb == Verb::Check;
  const app::PreparedUpdate prepared = check ? app::Check(Locate(options), request, keys)
                                             : app::Prepare(Locate(options), request, keys);
  answer.result = prepared.result;
  answer.json.update({{"id", Utf8FromUtf16(request.release.id)},
                      {"version", request.release.description.version},
                      {"sequence", request.release.description.sequence},
                      {"staged_files", prepared.staged},
                      {"staged_bytes", prepared.staged_bytes},
                      {"deletions", prepared.deletions},
                      {"unchanged_files", prepared.unchanged},
                      {"abandoned", Json::array()}});
  for (const std::u16string& id : prepared.abandoned) {
    answer.json["abandoned"].push_back(Utf8FromUtf16(id));
  }
  if (answer.result.outcome != Outcome::Done) return;
  answer.text = (check ? "The update can be done. " : "The update is prepared. ") +
                std::string("Version ") + request.release.description.version + ": " +
                std::to_string(prepared.staged) + " files differ (" +
                std::to_string(prepared.staged_bytes) + " bytes), " +
                std::to_string(prepared.deletions) + " are to be deleted, " +
                std::to_string(prepared.unchanged) + " stay as they are.\n";
  for (const std::u16string& id : prepared.abandoned) {
    answer.text += "The update " + Utf8FromUtf16(id) + " was given up for this one.\n";
  }
}

// --- The other verbs -----------------------------------------------------------------------------

void StartUpdate(const Options& options, Answer& answer) {
  const app::StartedUpdate started =
      app::Start(Locate(options), {.id = options.id, .wait_pid = options.wait});
  answer.result = started.result;
  if (answer.result.outcome != Outcome::Done) return;
  answer.json["process_id"] = started.process_id;
  answer.text = "The updater runs as process " + std::to_string(started.process_id) + ".\n";
}

Json JsonOf(const app::WorkspaceStatus& workspace) {
  const app::WorkspaceReport& report = workspace.report;
  Json json = {{"id", Utf8FromUtf16(workspace.id)},
               {"state", app::NameOf(report.state)},
               {"installation", app::SentenceOf(app::ContentOf(report.state))},
               {"next", app::NextStepOf(report.state)},
               {"started", report.launched}};
  if (!report.path.empty()) json["path"] = Quoted(report.path);
  return json;
}

void ShowStatus(const Options& options, Answer& answer) {
  const app::InstallationStatus status = app::Status(Locate(options), ReadKeys(options));
  answer.result = status.result;
  if (answer.result.outcome != Outcome::Done) return;
  Json workspaces = Json::array();
  for (const app::WorkspaceStatus& workspace : status.workspaces) {
    const app::WorkspaceState state = workspace.report.state;
    workspaces.push_back(JsonOf(workspace));
    answer.text.append("Update ").append(Utf8FromUtf16(workspace.id)).append(": ");
    answer.text.append(app::NameOf(state)).append(". ");
    answer.text.append(app::SentenceOf(app::ContentOf(state))).append(" What may come next: ");
    answer.text.append(app::NextStepOf(state)).append(".\n");
  }
  answer.json["updates"] = std::move(workspaces);
  if (status.installed_release) {
    answer.json["installed"] = {{"version", status.installed_release->version},
                                {"channel", status.installed_release->channel},
                                {"sequence", status.installed_release->sequence}};
    answer.text += "Installed: version " + status.installed_release->version + ", sequence " +
                   std::to_string(status.installed_release->sequence) + ".\n";
  } else {
    answer.json["installed"] = nullptr;
    answer.text += "Which release is installed is not known; adopt notes it.\n";
  }
  answer.json["highest_sequence"] = status.ledger.highest_sequence;
  answer.json["last_result"] = {{"id", Utf8FromUtf16(status.ledger.last.update_id)},
                                {"outcome", status.ledger.last.outcome}};
}

void CarryOut(const ParsedLine& line, const Surroundings& surroundings, Answer& answer) {
  const Options& options = line.options;
  switch (line.verb->verb) {
    case Verb::Describe:
      return Describe(options, answer);
    case Verb::Check:
    case Verb::Prepare:
      return CheckOrPrepare(line.verb->verb, options, surroundings, answer);
    case Verb::Start:
      return StartUpdate(options, answer);
    case Verb::Status:
      return ShowStatus(options, answer);
    case Verb::Finish:
      answer.result = app::Finish(Locate(options), surroundings.progress);
      answer.text = "What was left of installed updates is removed.\n";
      return;
    case Verb::Abandon:
      answer.result = app::Abandon(Locate(options), options.id);
      answer.text = "The update is given up.\n";
      return;
    case Verb::Adopt:
      answer.result =
          app::Adopt(Locate(options), {.release = ReadSigned(options.release, ReadKeys(options)),
                                       .progress = surroundings.progress});
      answer.text = "The installation is adopted.\n";
      return;
    case Verb::Help:
      answer.text = line.about != nullptr ? HelpOf(*line.about) : HelpOfTool();
      return;
  }
}

// --- Writing the answer --------------------------------------------------------------------------

std::string_view NameOf(Outcome outcome) {
  switch (outcome) {
    case Outcome::Done:
      return "done";
    case Outcome::UnfinishedUpdate:
      return "unfinished-update";
    case Outcome::Locked:
      return "locked";
    case Outcome::Refused:
      break;
  }
  return "refused";
}

void WriteJson(const ParsedLine& line, Answer& answer, const Surroundings& surroundings) {
  Json reasons = Json::array();
  for (const app::Reason& reason : answer.result.reasons) {
    Json one = {
        {"code", app::NameOf(reason.code)}, {"text", reason.text}, {"warning", reason.warning}};
    if (!reason.path.empty()) one["path"] = app::Utf8Of(reason.path);
    reasons.push_back(std::move(one));
  }
  answer.json["verb"] = Utf8FromUtf16(line.verb->name);
  answer.json["outcome"] = NameOf(answer.result.outcome);
  answer.json["reasons"] = std::move(reasons);
  surroundings.print(answer.json.dump(2) + "\n");
}

void WriteSentences(const Answer& answer, const Surroundings& surroundings) {
  for (const app::Reason& reason : answer.result.reasons) {
    surroundings.print_error((reason.warning ? "Warning: " : "") + reason.text + "\n");
  }
  if (answer.result.outcome == Outcome::Done && !answer.text.empty()) {
    surroundings.print(answer.text);
  }
}

}  // namespace

int RunCommand(const ParsedLine& line, const Surroundings& surroundings) {
  if (line.verb == nullptr) {
    surroundings.print_error("TolvarineUpdateTool: " + line.refusal + "\n");
    return kWrongUsage;
  }
  Answer answer;
  try {
    CarryOut(line, surroundings, answer);
  } catch (const VerbFailure& failure) {
    answer.result = {Outcome::Refused, {failure.reason()}};
  } catch (const std::exception& failure) {
    answer.result = {Outcome::Refused, {{ReasonCode::SystemFailure, app::FailureText(failure)}}};
  }
  if (line.options.json) {
    WriteJson(line, answer, surroundings);
  } else {
    WriteSentences(answer, surroundings);
  }
  return static_cast<int>(answer.result.outcome);
}

}  // namespace tolvarine::updater::update_tool
