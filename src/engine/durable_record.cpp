#include "engine/durable_record.h"

#include <stdexcept>
#include <utility>

#include "journal/journal_store.h"

namespace tolvarine::updater {

TransactionJournal LoadDurableRecord(const Path& transaction, TransactionPhase phase,
                                     const char* refusal) {
  JournalLoadResult loaded = LoadJournal(transaction);
  if (loaded.state == JournalLoadState::Corrupt) throw std::runtime_error(kJournalCorruptText);
  if (!loaded.journal || loaded.journal->phase != phase) throw std::runtime_error(refusal);
  return *std::move(loaded.journal);
}

}  // namespace tolvarine::updater
