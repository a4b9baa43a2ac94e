// The record of a transaction as the disk holds it, for operations that must act only on a durable
// state and not on what a run holds in memory.

#pragma once

#include "journal/journal_record.h"

namespace tolvarine::updater {

// Loads the journal of a transaction directory and returns its record if that is in `phase`.
// Otherwise throws std::runtime_error: with kJournalCorruptText if the journal is corrupt, with
// `refusal` if there is none or if it is in another phase. Changes nothing.
[[nodiscard]] TransactionJournal LoadDurableRecord(const Path& transaction, TransactionPhase phase,
                                                   const char* refusal);

}  // namespace tolvarine::updater
