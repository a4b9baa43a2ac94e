#include "state/request.h"

#include <exception>

#include "state/json_members.h"

namespace tolvarine::updater::application {
namespace {

using Json = nlohmann::json;

constexpr int kFormat = 1;

Json ToJson(const ProgramCopy& program) {
  return {{"path", JsonText(program.path)}, {"sha256", program.sha256}};
}

ProgramCopy ProgramFromJson(const Json& program) {
  return {WideMember(program, "path"), program.at("sha256").get<std::string>()};
}

Json ToJson(const UpdateRequest& request) {
  return {
      {"format", kFormat},
      {"target", JsonText(request.target)},
      {"package", JsonText(request.package)},
      {"restart", JsonText(request.restart)},
      {"source", JsonText(request.source)},
      {"inventory", SerializeSourceInventory(request.inventory)},
      {"deletions", SerializeManagedDeletionList(request.deletions)},
      {"updater", ToJson(request.updater)},
      {"resumer", ToJson(request.resumer)}};
}

// Throws what derives from std::exception for a record that holds no request.
UpdateRequest FromJson(const Json& record) {
  if (record.at("format") != kFormat) throw std::runtime_error("another format");
  UpdateRequest request;
  request.target = WideMember(record, "target");
  request.package = WideMember(record, "package");
  request.restart = WideMember(record, "restart");
  request.source = WideMember(record, "source");
  request.updater = ProgramFromJson(record.at("updater"));
  request.resumer = ProgramFromJson(record.at("resumer"));
  if (!ParseSourceInventory(record.at("inventory").get<std::string>(), request.inventory,
                            nullptr) ||
      !ParseManagedDeletionList(record.at("deletions").get<std::string>(), request.deletions,
                                nullptr)) {
    throw std::runtime_error("a malformed list");
  }
  return request;
}

}  // namespace

void SaveRequest(const UpdatePaths& paths, const UpdateRequest& request) {
  const std::string text = FormatRecord(ToJson(request));
  WriteFileDurably(paths.request_copy, text);
  WriteFileDurably(paths.request, text);
}

LoadedRequest LoadRequest(const UpdatePaths& paths) {
  const LoadedRecord loaded = LoadRecord(paths.request, paths.request_copy);
  if (loaded.state != RecordState::Sound) return {.state = loaded.state, .request = {}};
  try {
    return {RecordState::Sound, FromJson(loaded.record)};
  } catch (const std::exception&) {
    return {.state = RecordState::Damaged, .request = {}};
  }
}

}  // namespace tolvarine::updater::application
