#include "state/request.h"

#include <exception>

#include "state/json_members.h"

namespace tolvarine::updater::application {
namespace {

using Json = nlohmann::json;

constexpr int kFormat = 1;

Json ToJson(const UpdateRequest& request) {
  return {
      {"format", kFormat},
      {"target", JsonText(request.target)},
      {"package", JsonText(request.package)},
      {"restart", JsonText(request.restart)},
      {"source", JsonText(request.source)},
      {"inventory", SerializeSourceInventory(request.inventory)},
      {"deletions", SerializeManagedDeletionList(request.deletions)},
      {"updater", {{"path", JsonText(request.updater.path)}, {"sha256", request.updater.sha256}}}};
}

// Throws what derives from std::exception for a record that holds no request.
UpdateRequest FromJson(const Json& record) {
  if (record.at("format") != kFormat) throw std::runtime_error("another format");
  UpdateRequest request;
  request.target = WideMember(record, "target");
  request.package = WideMember(record, "package");
  request.restart = WideMember(record, "restart");
  request.source = WideMember(record, "source");
  const Json& updater = record.at("updater");
  request.updater = {WideMember(updater, "path"), updater.at("sha256").get<std::string>()};
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
