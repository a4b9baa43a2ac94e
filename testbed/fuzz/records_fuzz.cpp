// The records of the state directory: their frame, and the request and the ledger in it. An input
// is the text of a file, and once more the first line of one whose checksum is correct, since the
// reader refuses any other.

#include <stdexcept>

#include "fuzz_text.h"
#include "release/digest.h"
#include "state/ledger.h"
#include "state/request.h"

namespace tolvarine::updater::fuzz {
namespace {

using application::Installation;
using application::Ledger;
using application::RecordState;
using application::UpdatePaths;
using application::UpdateRequest;

constexpr char16_t kDirectory[] = u"C:\\S";

UpdatePaths Paths() {
  UpdatePaths paths;
  paths.request = Path(kDirectory) + u"\\request.json";
  paths.request_copy = Path(kDirectory) + u"\\request.copy.json";
  return paths;
}

std::string Described(const UpdateRequest& request) {
  return Shown(request.restart) + "\n" + Shown(request.source) + "\n" +
         SerializeSourceInventory(request.inventory) +
         SerializeManagedDeletionList(request.deletions) + Shown(request.updater.path) + "\n" +
         request.updater.sha256;
}

std::string Described(const Ledger& ledger) {
  std::string text = std::to_string(ledger.highest_sequence) + "\n" + Shown(ledger.highest_id) +
                     "\n" + Shown(ledger.target) + "\n" + std::to_string(ledger.volume_serial) +
                     " " + std::to_string(ledger.file_index) + "\n" + Shown(ledger.last.update_id) +
                     "\n" + ledger.last.outcome;
  for (const std::u16string& id : ledger.gone_back_from) text += "\n" + Shown(id);
  return text;
}

// The only files of the directory, one of which may be missing.
void Put(const Path& first, const std::string* first_text, const Path& second,
         const std::string* second_text) {
  simulated::DiskEditor& disk = simulated::Computer::Current().disk;
  disk.Remove(kDirectory);
  disk.MakeDirectory(kDirectory);
  if (first_text != nullptr) disk.WriteFile(first, *first_text);
  if (second_text != nullptr) disk.WriteFile(second, *second_text);
}

// `load` gives state and record of the two files, `save` makes them anew.
template <typename Load, typename Save>
void ExpectLoads(const Path& first, const Path& second, const std::string& sound,
                 const std::string& other, const Load& load, const Save& save) {
  Put(first, &other, second, nullptr);
  load();
  Put(first, &sound, second, nullptr);
  const auto alone = load();
  const bool accepted = alone.state == RecordState::Sound;
  Expect("a file that is there is sound or damaged",
         accepted || alone.state == RecordState::Damaged, sound);
  const std::string cut = sound.substr(0, sound.size() - 1);
  Put(first, &cut, second, &sound);
  ExpectSame("the second file counts where the first is damaged",
             load().state == RecordState::Sound, accepted, sound);
  if (!accepted) return;
  simulated::Computer::Current().disk.Remove(kDirectory);
  try {
    save(alone);
  } catch (const std::runtime_error&) {
    return;  // A text that cannot be written, such as a lone surrogate.
  }
  const auto again = load();
  Expect("what is saved is loaded", again.state == RecordState::Sound, sound);
  ExpectSame("a record is loaded as it was saved", again.text, alone.text, sound);
}

template <typename Record>
struct Loaded {
  RecordState state;
  Record record;
  std::string text;  // Describes it, where Sound.
};

void ExpectRequestProperties(const std::string& sound, const std::string& other) {
  const UpdatePaths paths = Paths();
  const auto load = [&]() -> Loaded<UpdateRequest> {
    const application::LoadedRequest loaded = application::LoadRequest(paths);
    const bool is_sound = loaded.state == RecordState::Sound;
    return {loaded.state, loaded.request, is_sound ? Described(loaded.request) : ""};
  };
  ExpectLoads(
      paths.request, paths.request_copy, sound, other, load,
      [&](const Loaded<UpdateRequest>& one) { application::SaveRequest(paths, one.record); });
}

void ExpectLedgerProperties(const std::string& sound, const std::string& other) {
  const Installation installation{.target = u"C:\\T", .state = kDirectory};
  const auto load = [&]() -> Loaded<Ledger> {
    const application::LoadedLedger loaded = application::LoadLedger(installation);
    const bool is_sound = loaded.state == RecordState::Sound;
    return {loaded.state, loaded.ledger, is_sound ? Described(loaded.ledger) : ""};
  };
  ExpectLoads(
      Path(kDirectory) + u"\\ledger.json", Path(kDirectory) + u"\\ledger.former.json", sound, other,
      load, [&](const Loaded<Ledger>& one) { application::SaveLedger(installation, one.record); });
}

void ExpectFrameProperties(const std::string& text) {
  const auto record = application::ParseRecord(text);
  if (!record) return;
  const auto again = application::ParseRecord(application::FormatRecord(*record));
  Expect("a record that is read can be written and read", again && *again == *record, text);
  std::string damaged = text;
  damaged[damaged.size() / 2] = static_cast<char>(damaged[damaged.size() / 2] ^ 1);
  Expect("a changed byte is detected", !application::ParseRecord(damaged), damaged);
}

}  // namespace
}  // namespace tolvarine::updater::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tolvarine::updater;
  // A new one each time: the disk of a computer remembers every file that was ever on it.
  simulated::Computer computer;
  computer.MakeCurrent();
  const std::string text(fuzz::Bytes(data, size));
  const std::string line = text.substr(0, text.find('\n'));
  const std::string sound = line + "\n" + application::Sha256OfBytes(line) + "\n";
  fuzz::ExpectFrameProperties(text);
  fuzz::ExpectFrameProperties(sound);
  fuzz::ExpectRequestProperties(sound, text);
  fuzz::ExpectLedgerProperties(sound, text);
  return 0;
}
