#include "inspection/saved_phase.h"

#include <exception>
#include <optional>

#include "inspection/file_tree.h"
#include "journal/journal_text.h"

namespace tolvarine::updater::inspection {
namespace {

namespace fs = std::filesystem;

std::optional<TransactionJournal> ReadSlot(const fs::path& slot) {
  try {
    return ParseJournal(ReadFile(slot));
  } catch (const std::exception&) {
    return std::nullopt;  // The slot is missing, or removed just now.
  }
}

}  // namespace

TransactionPhase SavedPhase(const fs::path& transaction) {
  std::optional<TransactionJournal> newest;
  for (const char* name : {"journal.0", "journal.1"}) {
    std::optional<TransactionJournal> record = ReadSlot(transaction / name);
    if (record && (!newest || record->generation > newest->generation)) newest = std::move(record);
  }
  if (newest) return newest->phase;
  std::error_code error;
  return fs::is_empty(transaction, error) || error ? TransactionPhase::None
                                                   : TransactionPhase::Corrupt;
}

}  // namespace tolvarine::updater::inspection
