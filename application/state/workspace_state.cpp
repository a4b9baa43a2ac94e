#include "state/workspace_state.h"

#include <array>
#include <functional>
#include <stdexcept>
#include <utility>

#include "files/canonical_path.h"
#include "files/file_operations.h"
#include "files/sha256.h"
#include "journal/journal_store.h"
#include "journal/journal_text.h"
#include "lists/release_path.h"
#include "release/digest.h"
#include "release/file_bytes.h"
#include "text/fnv1a.h"
#include "text/system_error.h"

namespace tolvarine::updater::application {
namespace {

// What cannot be opened just now ends the reading.
struct Unopened {
  Path path;
  std::uint32_t code = 0;
};

bool Exists(const Path& path, FileKind& kind) {
  const FileStatus status = QueryLinkStatus(path);
  if (status.kind == FileKind::none) throw Unopened{path, status.error};
  kind = status.kind;
  return status.kind != FileKind::not_found;
}

// Reads a file that exists. False where it has gone meanwhile.
bool Visit(const Path& path, const std::function<void(std::string_view)>& visit) {
  try {
    VisitFileBlocks(path, visit);
    return true;
  } catch (const SystemError& failure) {
    if (IsNotFoundError(failure.code())) return false;
    throw Unopened{path, failure.code()};
  }
}

// A marker counts as a regular file that can be read.
bool HasMarker(const Path& path) {
  FileKind kind{};
  if (!Exists(path, kind) || kind != FileKind::regular) return false;
  return Visit(path, [](std::string_view) {});
}

// --- The transaction directory -------------------------------------------------------------------

struct TransactionFinding {
  bool holds_more = false;  // Something beside slot temporaries.
  std::optional<TransactionJournal> journal;
};

// Nothing for a slot that is missing or not sound.
std::optional<TransactionJournal> ReadSlot(const Path& path) {
  FileKind kind{};
  if (!Exists(path, kind) || kind != FileKind::regular) return std::nullopt;
  std::string text;
  if (!Visit(path, [&](std::string_view block) { text.append(block); })) return std::nullopt;
  try {
    return ParseJournal(text);
  } catch (const SystemError&) {
    return std::nullopt;  // A path in it is not UTF-8.
  }
}

bool IsSlotTemporary(const TreeEntry& entry) {
  const PathView name = LastComponent(entry.path);
  return KindOf(entry) == FileKind::regular &&
         (SamePathKey(name, u"journal.0.new") || SamePathKey(name, u"journal.1.new"));
}

TransactionFinding ReadTransaction(const Path& directory) {
  TransactionFinding finding;
  FileKind kind{};
  if (!Exists(directory, kind)) return finding;
  if (kind != FileKind::directory) return {.holds_more = true, .journal = {}};
  const std::uint32_t code =
      EnumerateDirectory(directory, [&](const TreeEntry& entry) -> std::uint32_t {
        if (!IsSlotTemporary(entry)) finding.holds_more = true;
        return 0;
      });
  if (code != 0 && !IsNotFoundError(code)) throw Unopened{directory, code};
  for (const std::uint64_t slot : {0U, 1U}) {
    std::optional<TransactionJournal> journal = ReadSlot(JournalSlot(directory, slot));
    if (!journal) continue;
    if (!finding.journal || journal->generation > finding.journal->generation) {
      finding.journal = std::move(journal);
    }
  }
  return finding;
}

// --- The listed files ----------------------------------------------------------------------------

struct ListedFiles {
  // The first one with content that is neither its baseline's nor its release's; empty without one.
  // A missing file is none: the verification after the update replaces it.
  Path foreign;
  bool all_new = true;  // Each is the release's, or missing where the release has none.
};

// What one listed path holds; a file that equals both versions holds both.
struct Versions {
  bool exists = false;
  bool baseline = false;
  bool release = false;
};

Versions VersionsAt(const JournalEntry& entry, const Path& path) {
  FileKind kind{};
  if (!Exists(path, kind)) return {};
  if (kind != FileKind::regular) return {.exists = true};
  std::uint64_t size = 0;
  std::uint64_t fnv1a = kFnv1aOffsetBasis;
  Sha256 sha256;
  sha256.Begin();
  const bool read = Visit(path, [&](std::string_view block) {
    size += block.size();
    fnv1a = Fnv1a64(block, fnv1a);
    sha256.Add(block);
  });
  if (!read) return {};
  return {.exists = true,
          .baseline =
              entry.baseline_exists && size == entry.baseline_size && fnv1a == entry.baseline_hash,
          .release = entry.kind == JournalEntryKind::Install && size == entry.size &&
                     HexOf(sha256.Finish()) == entry.sha256};
}

ListedFiles ReadListedFiles(const TransactionJournal& journal) {
  ListedFiles files;
  for (const JournalEntry& entry : journal.entries) {
    const Path path = JoinPath(journal.target, entry.path);
    const Versions versions = VersionsAt(entry, path);
    if (versions.exists && !versions.baseline && !versions.release) {
      return {.foreign = path, .all_new = false};
    }
    const bool is_new =
        entry.kind == JournalEntryKind::Delete ? !versions.exists : versions.release;
    files.all_new = files.all_new && is_new;
  }
  return files;
}

// --- The rules -----------------------------------------------------------------------------------

WorkspaceState StateOfPhase(TransactionPhase phase) {
  switch (phase) {
    case TransactionPhase::Apply:
      return WorkspaceState::Applying;
    case TransactionPhase::Rollback:
      return WorkspaceState::Restoring;
    case TransactionPhase::Committed:
      return WorkspaceState::Committed;
    case TransactionPhase::RolledBack:
      return WorkspaceState::Restored;
    default:  // A sound record holds no other phase.
      return WorkspaceState::BackingUp;
  }
}

void Set(WorkspaceReport& report, WorkspaceState state) {
  report.state = state;
  report.content = ContentOf(state);
}

void ApplyRulesOfJournal(const TransactionJournal& journal, WorkspaceReport& report) {
  Set(report, StateOfPhase(journal.phase));
  const bool applying = report.state == WorkspaceState::Applying;
  if (!applying && report.state != WorkspaceState::Restoring) return;
  ListedFiles files = ReadListedFiles(journal);
  if (!files.foreign.empty()) {
    Set(report, WorkspaceState::Foreign);
    report.path = std::move(files.foreign);
  } else if (applying && journal.apply == journal.entries.size() && files.all_new) {
    report.content = InstallationContent::New;
  }
}

void ApplyRules(const UpdatePaths& paths, WorkspaceReport& report) {
  report.pending = HasMarker(paths.pending);
  report.completed = HasMarker(paths.completed);
  report.launched = HasMarker(paths.launched);
  TransactionFinding transaction = ReadTransaction(paths.transaction);
  const bool sound = transaction.journal && SamePathKey(transaction.journal->target, paths.target);
  if (sound) report.journal = std::move(transaction.journal);
  if (report.completed && !report.pending) {
    Set(report, WorkspaceState::Installed);
  } else if (report.journal) {
    ApplyRulesOfJournal(*report.journal, report);
  } else if (transaction.holds_more) {
    Set(report, WorkspaceState::Damaged);
  } else if (report.pending) {
    Set(report, WorkspaceState::Prepared);
    if (report.completed) report.content = InstallationContent::WholeFiles;
  } else {
    Set(report, WorkspaceState::Remainder);
  }
}

struct StateText {
  std::string_view name;
  InstallationContent content;
  std::string_view next;
  std::string_view rule;
};

constexpr std::array kTexts = {
#define TOLVARINE_STATE(enumerator, name, content, next, rule) \
  StateText{name, InstallationContent::content, next, rule},
    TOLVARINE_WORKSPACE_STATES(TOLVARINE_STATE)
#undef TOLVARINE_STATE
};

const StateText& TextOf(WorkspaceState state) { return kTexts[static_cast<std::size_t>(state)]; }

}  // namespace

std::string_view NameOf(WorkspaceState state) { return TextOf(state).name; }
InstallationContent ContentOf(WorkspaceState state) { return TextOf(state).content; }
std::string_view NextStepOf(WorkspaceState state) { return TextOf(state).next; }
std::string_view RuleOf(WorkspaceState state) { return TextOf(state).rule; }

std::string_view SentenceOf(InstallationContent content) {
  static constexpr std::array<std::string_view, 5> kSentences = {
#define TOLVARINE_CONTENT(enumerator, sentence) sentence,
      TOLVARINE_INSTALLATION_CONTENTS(TOLVARINE_CONTENT)
#undef TOLVARINE_CONTENT
  };
  return kSentences[static_cast<std::size_t>(content)];
}

const std::vector<WorkspaceState>& AllWorkspaceStates() {
  static const std::vector<WorkspaceState> kStates = {
#define TOLVARINE_STATE(enumerator, ...) WorkspaceState::enumerator,
      TOLVARINE_WORKSPACE_STATES(TOLVARINE_STATE)
#undef TOLVARINE_STATE
  };
  return kStates;
}

std::string StatesAsMarkdown() {
  std::string text =
      "| State | What stands on the disk | What it says of the installation | What may come next | "
      "Another update |\n|---|---|---|---|---|\n";
  for (const WorkspaceState state : AllWorkspaceStates()) {
    text.append("| `").append(NameOf(state)).append("` | ").append(RuleOf(state)).append(" | ");
    text.append(SentenceOf(ContentOf(state))).append(" | ").append(NextStepOf(state));
    text.append(IsUnfinished(state) ? " | refused |\n" : " | allowed |\n");
  }
  return text;
}

bool IsUnfinished(WorkspaceState state) {
  switch (state) {
    case WorkspaceState::Applying:
    case WorkspaceState::Restoring:
    case WorkspaceState::Committed:
    case WorkspaceState::Unreadable:
    case WorkspaceState::Damaged:
    case WorkspaceState::Foreign:
      return true;
    default:
      return false;
  }
}

WorkspaceReport ReadWorkspace(const UpdatePaths& paths) {
  WorkspaceReport report;
  try {
    ApplyRules(paths, report);
  } catch (const Unopened& unopened) {
    Set(report, WorkspaceState::Unreadable);
    report.path = unopened.path;
    report.code = unopened.code;
  } catch (const std::runtime_error&) {  // The system's hashing cannot be used.
    Set(report, WorkspaceState::Unreadable);
  }
  return report;
}

}  // namespace tolvarine::updater::application
