// How every phase does its work on one entry: announce it in the journal, do it, count it in the
// journal. Each save is durable before it returns, so after a crash the record tells which entry
// may be half done, and the next run does that entry again from its start.

#pragma once

#include "engine/transaction.h"
#include "journal/journal_record.h"
#include "journal/journal_store.h"

namespace tolvarine::updater {

// What is appended to an entry's path for the temporary beside its destination.
inline constexpr PathView kTemporarySuffix = u".tolvarine-update-new";

// The temporary of an entry, as a path relative to the same root.
[[nodiscard]] inline Path TemporaryOf(const JournalEntry& entry) {
  return entry.path + Path(kTemporarySuffix);
}

inline void CallHook(const TransactionRequest& request, CrashPoint point, std::uint64_t index) {
  if (request.crash_hook) request.crash_hook(point, index);
}

// The words in which a phase announces, counts and is watched.
struct StepRule {
  TransactionIntent intent;
  std::uint64_t TransactionJournal::*counter;
  CrashPoint started;
  CrashPoint done;
};

// Carries out `work` on every entry from the rule's counter on, each between its announcement and
// its count. What the work or a save raises ends the walk, with the counter at that entry.
template <typename Work>
void ForEachPendingEntry(const TransactionRequest& request, TransactionJournal& journal,
                         const StepRule& rule, Work work) {
  for (std::uint64_t i = journal.*rule.counter; i < journal.entries.size(); ++i) {
    journal.intent = rule.intent;
    journal.intent_entry = i;
    SaveJournal(request.transaction, journal);
    CallHook(request, rule.started, i);
    work(journal.entries[i], i);
    CallHook(request, rule.done, i);
    journal.*rule.counter = i + 1;
    journal.intent = TransactionIntent::None;
    journal.intent_entry = 0;
    SaveJournal(request.transaction, journal);
  }
}

}  // namespace tolvarine::updater
