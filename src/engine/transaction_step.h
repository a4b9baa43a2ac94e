// How the phases Backup, Apply and Rollback work on one entry: announce it in the journal, do it,
// count it in the journal. Each save is durable before it returns, so after a crash the record
// tells which entry may be half done, and the next run does that entry again from its start. A
// step that is never repeated leaves at worst its temporary and the directories that it made.

#pragma once

#include <cstdint>

#include "engine/transaction.h"
#include "journal/journal_record.h"
#include "journal/journal_store.h"

namespace tolvarine::updater {

// Calls the hook, if there is one; what it throws passes through.
inline void CallHook(const TransactionRequest& request, CrashPoint point, std::uint64_t index) {
  if (request.crash_hook) request.crash_hook(point, index);
}

// A counter of handled entries.
using EntryCounter = std::uint64_t TransactionJournal::*;

// What differs between the phases: the intent that announces an entry, the counter that counts it,
// and the crash points before and after its work.
struct StepRule {
  TransactionIntent intent;
  EntryCounter counter;
  CrashPoint started;
  CrashPoint done;
};

// Carries out `work` (given the entry and its index) on every entry from the rule's counter on,
// each between its announcement and its count. What the work, a hook or a save throws ends the
// walk, with the counter at that entry; where the save that counts it failed, behind it, but in
// memory alone.
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
