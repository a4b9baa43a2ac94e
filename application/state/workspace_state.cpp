#include "state/workspace_state.h"

#include <algorithm>
#include <array>

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

// The content of a file that exists; nothing where it has gone meanwhile.
std::optional<std::string> Content(const Path& path) {
  try {
    std::string content;
    VisitFileBlocks(path, [&](std::string_view block) { content.append(block); });
    return content;
  } catch (const SystemError& failure) {
    if (IsNotFoundError(failure.code())) return std::nullopt;
    throw Unopened{path, failure.code()};
  }
}

// A marker counts as a regular file that can be opened.
bool HasMarker(const Path& path) {
  FileKind kind{};
  if (!Exists(path, kind) || kind != FileKind::regular) return false;
  return Content(path).has_value();
}

// --- The transaction directory -------------------------------------------------------------------

struct TransactionFinding {
  bool holds_more = false;  // Something beside slot temporaries.
  std::optional<TransactionJournal> journal;
};

std::optional<TransactionJournal> ReadSlot(const Path& path) {
  FileKind kind{};
  if (!Exists(path, kind) || kind != FileKind::regular) return std::nullopt;
  const std::optional<std::string> text = Content(path);
  if (!text) return std::nullopt;
  try {
    return ParseJournal(*text);
  } catch (const std::exception&) {
    return std::nullopt;  // A path in it is not well-formed.
  }
}

bool IsSlotTemporary(const Path& path) {
  const PathView name = LastComponent(path);
  return SamePathKey(name, u"journal.0.new") || SamePathKey(name, u"journal.1.new");
}

TransactionFinding ReadTransaction(const Path& directory) {
  TransactionFinding finding;
  FileKind kind{};
  if (!Exists(directory, kind)) return finding;
  if (kind != FileKind::directory) return {.holds_more = true, .journal = {}};
  const std::uint32_t code =
      EnumerateDirectory(directory, [&](const TreeEntry& entry) -> std::uint32_t {
        if (!IsSlotTemporary(entry.path)) finding.holds_more = true;
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

// --- Foreign content -----------------------------------------------------------------------------

struct Digests {
  std::uint64_t size = 0;
  std::uint64_t fnv1a = kFnv1aOffsetBasis;
  std::string sha256;
};

std::optional<Digests> DigestsOf(const Path& path) {
  try {
    Digests digests;
    Sha256 sha256;
    sha256.Begin();
    VisitFileBlocks(path, [&](std::string_view block) {
      digests.size += block.size();
      digests.fnv1a = Fnv1a64(block, digests.fnv1a);
      sha256.Add(block);
    });
    digests.sha256 = HexOf(sha256.Finish());
    return digests;
  } catch (const SystemError& failure) {
    if (IsNotFoundError(failure.code())) return std::nullopt;
    throw Unopened{path, failure.code()};
  }
}

bool IsKnownContent(const JournalEntry& entry, const Digests& digests) {
  const bool baseline = entry.baseline_exists && digests.size == entry.baseline_size &&
                        digests.fnv1a == entry.baseline_hash;
  const bool release = entry.kind == JournalEntryKind::Install && digests.size == entry.size &&
                       digests.sha256 == entry.sha256;
  return baseline || release;
}

// The first listed file with foreign content; empty without one. A missing file is no foreign
// content: the verification after the update replaces it.
Path FindForeignFile(const TransactionJournal& journal) {
  for (const JournalEntry& entry : journal.entries) {
    Path path = JoinPath(journal.target, entry.path);
    FileKind kind{};
    if (!Exists(path, kind)) continue;
    if (kind != FileKind::regular) return path;
    const std::optional<Digests> digests = DigestsOf(path);
    if (digests && !IsKnownContent(entry, *digests)) return path;
  }
  return {};
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

void ApplyRules(const UpdatePaths& paths, WorkspaceReport& report) {
  report.pending = HasMarker(paths.pending);
  report.completed = HasMarker(paths.completed);
  report.launched = HasMarker(paths.launched);
  TransactionFinding transaction = ReadTransaction(paths.transaction);
  report.journal = std::move(transaction.journal);
  if (report.completed && !report.pending) {
    report.state = WorkspaceState::Installed;
  } else if (!report.journal) {
    const WorkspaceState without =
        report.pending ? WorkspaceState::Prepared : WorkspaceState::Remainder;
    report.state = transaction.holds_more ? WorkspaceState::Damaged : without;
  } else {
    report.state = StateOfPhase(report.journal->phase);
    if (report.state != WorkspaceState::Applying && report.state != WorkspaceState::Restoring) {
      return;
    }
    report.path = FindForeignFile(*report.journal);
    if (!report.path.empty()) report.state = WorkspaceState::Foreign;
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
  switch (content) {
    case InstallationContent::Old:
      return "The installation is the old version, whole.";
    case InstallationContent::New:
      return "The installation is the new version, whole.";
    case InstallationContent::WholeFiles:
      return "Each file of the installation is whole, but not all are of one version.";
    case InstallationContent::Untouched:
      return "The update has not touched the installation.";
    case InstallationContent::Unknown:
      break;
  }
  return "Nothing is known of the installation.";
}

const std::vector<WorkspaceState>& AllWorkspaceStates() {
  static const std::vector<WorkspaceState> kStates = {
#define TOLVARINE_STATE(enumerator, ...) WorkspaceState::enumerator,
      TOLVARINE_WORKSPACE_STATES(TOLVARINE_STATE)
#undef TOLVARINE_STATE
  };
  return kStates;
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
    report.state = WorkspaceState::Unreadable;
    report.path = unopened.path;
    report.code = unopened.code;
  }
  return report;
}

}  // namespace tolvarine::updater::application
