#include "engine/cleanup.h"

#include <exception>

#include "engine/durable_record.h"
#include "engine/entry_temporary.h"
#include "files/canonical_path.h"
#include "files/file_operations.h"
#include "text/error_text.h"

namespace tolvarine::updater {
namespace {

// The directories are in the order of the plan, children before their parents, so that a parent is
// empty when its turn comes.
void RemoveLeftovers(const Path& target, const TransactionJournal& journal) {
  for (const JournalEntry& entry : journal.entries) {
    RemoveEntry(SafeJoin(target, TemporaryOf(entry), "target temporary"));
  }
  for (const JournalDirectory& directory : journal.directories) {
    RemoveEntry(SafeJoin(target, directory.path, "update target directory"));
  }
}

}  // namespace

bool CleanupRolledBack(const TransactionRequest& request, std::string* error_out) {
  try {
    StoreErrorText(error_out, {});
    RemoveLeftovers(request.target,
                    LoadDurableRecord(request.transaction, TransactionPhase::RolledBack,
                                      "Cleanup requires a completed rollback"));
    return true;
  } catch (const std::exception& failure) {
    StoreErrorText(error_out, failure.what());
    return false;
  }
}

}  // namespace tolvarine::updater
