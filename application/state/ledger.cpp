#include "state/ledger.h"

#include <algorithm>
#include <exception>

#include "release/file_bytes.h"
#include "state/json_members.h"

namespace tolvarine::updater::application {
namespace {

using Json = nlohmann::json;

constexpr int kFormat = 1;

Path FileOf(const Installation& installation) {
  return JoinPath(installation.state, u"ledger.json");
}

Path FormerFileOf(const Installation& installation) {
  return JoinPath(installation.state, u"ledger.former.json");
}

Json ToJson(const Ledger& ledger) {
  Json gone_back = Json::array();
  for (const std::u16string& id : ledger.gone_back_from) gone_back.push_back(JsonText(id));
  return {
      {"format", kFormat},
      {"highest_sequence", ledger.highest_sequence},
      {"highest_id", JsonText(ledger.highest_id)},
      {"gone_back_from", std::move(gone_back)},
      {"target", JsonText(ledger.target)},
      {"volume_serial", ledger.volume_serial},
      // As text: a file index has 64 bits, and JSON's numbers have 53.
      {"file_index", std::to_string(ledger.file_index)},
      {"last", {{"update_id", JsonText(ledger.last.update_id)}, {"outcome", ledger.last.outcome}}}};
}

// Throws what derives from std::exception for a record that holds no ledger.
Ledger FromJson(const Json& record) {
  if (record.at("format") != kFormat) throw std::runtime_error("another format");
  Ledger ledger;
  ledger.highest_sequence = record.at("highest_sequence").get<std::uint64_t>();
  ledger.highest_id = WideMember(record, "highest_id");
  for (const Json& id : record.at("gone_back_from")) {
    ledger.gone_back_from.push_back(Utf16FromUtf8(id.get<std::string>()));
  }
  ledger.target = WideMember(record, "target");
  ledger.volume_serial = record.at("volume_serial").get<std::uint32_t>();
  ledger.file_index = std::stoull(record.at("file_index").get<std::string>());
  const Json& last = record.at("last");
  ledger.last = {WideMember(last, "update_id"), last.at("outcome").get<std::string>()};
  return ledger;
}

}  // namespace

LoadedLedger LoadLedger(const Installation& installation) {
  const LoadedRecord loaded = LoadRecord(FileOf(installation), FormerFileOf(installation));
  if (loaded.state != RecordState::Sound) return {.state = loaded.state, .ledger = {}};
  try {
    return {RecordState::Sound, FromJson(loaded.record)};
  } catch (const std::exception&) {
    return {.state = RecordState::Damaged, .ledger = {}};
  }
}

void SaveLedger(const Installation& installation, const Ledger& ledger) {
  const LoadedLedger former = LoadLedger(installation);
  if (former.state == RecordState::Sound) {
    WriteFileDurably(FormerFileOf(installation), FormatRecord(ToJson(former.ledger)));
  }
  WriteFileDurably(FileOf(installation), FormatRecord(ToJson(ledger)));
}

std::string RefusalOf(const Ledger& ledger, std::uint64_t sequence, const std::u16string& id,
                      std::uint64_t accepted_sequence) {
  if (sequence == accepted_sequence) return {};
  const std::string number = std::to_string(sequence);
  const std::string remedy = " Accept sequence " + number + " by name to install it all the same.";
  if (std::ranges::find(ledger.gone_back_from, id) != ledger.gone_back_from.end()) {
    return "A person went back from this release, sequence " + number + "." + remedy;
  }
  if (sequence < ledger.highest_sequence) {
    return "The release has sequence " + number + ", and " +
           std::to_string(ledger.highest_sequence) + " has been installed." + remedy;
  }
  if (sequence == ledger.highest_sequence && id != ledger.highest_id) {
    return "Another release of sequence " + number + " has been installed." + remedy;
  }
  return {};
}

}  // namespace tolvarine::updater::application
