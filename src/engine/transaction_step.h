// The step that the phases Backup, Apply and Rollback share: for each entry, save the intent, do
// the work, save the counter. Each save is durable when it returns. After a crash the record
// therefore names the entry that may be incomplete, and the next run does that entry again from its
// start. An interrupted step that is never repeated leaves at most its temporary and the
// directories that it made.

#pragma once

#include <cstdint>

#include "engine/transaction.h"
#include "journal/journal_record.h"
#include "journal/journal_store.h"

namespace tolvarine::updater {

// Calls the hook, if there is one. Its exceptions pass through.
inline void CallHook(const TransactionRequest& request, CrashPoint point, std::uint64_t index) {
  if (request.crash_hook) request.crash_hook(point, index);
}

// A counter of handled entries.
using EntryCounter = std::uint64_t TransactionJournal::*;

// The differences between the phases: the intent, the counter, and the crash points before and
// after the work.
struct StepRule {
  TransactionIntent intent;
  EntryCounter counter;
  CrashPoint started;
  CrashPoint done;
};

// Calls `work(entry, index)` for every entry from the rule's counter on, each between the save of
// its intent and the save of its counter. Exceptions of the work, a hook or a save pass through.
// The counter is then the index of that entry, or, if the save of the counter failed, one more in
// memory but not on the disk.
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
