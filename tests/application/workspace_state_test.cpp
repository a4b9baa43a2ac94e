// What the crash laboratory cannot reach: things of the wrong kind, files that somebody holds, and
// calls that fail while the state is read.

#include "state/workspace_state.h"

#include <gtest/gtest.h>

#include <functional>

#include "journal/journal_text.h"
#include "platform/files.h"
#include "release/digest.h"
#include "simulated_windows/computer.h"
#include "simulated_windows/file_system.h"
#include "text/fnv1a.h"

namespace tolvarine::updater::application {
namespace {

using simulated::Computer;
using Content = InstallationContent;
using State = WorkspaceState;

constexpr char16_t kTarget[] = u"C:\\Apps\\Tolvarine";
constexpr char16_t kListed[] = u"C:\\Apps\\Tolvarine\\Tolvarine.exe";
constexpr char16_t kPending[] = u"C:\\W\\pending.json";
constexpr char16_t kCompleted[] = u"C:\\W\\completed.json";
constexpr char16_t kTransaction[] = u"C:\\W\\transaction";
constexpr char16_t kSlot[] = u"C:\\W\\transaction\\journal.1";

UpdatePaths Paths() {
  UpdatePaths paths;
  paths.target = kTarget;
  paths.workspace = u"C:\\W";
  paths.pending = kPending;
  paths.completed = kCompleted;
  paths.launched = u"C:\\W\\launched.json";
  paths.transaction = kTransaction;
  return paths;
}

// A prepared update with a journal in this phase, whose only entry is counted as applied. The
// target holds the release's file.
void Begin(Computer& computer, TransactionPhase phase) {
  TransactionJournal journal;
  journal.generation = 1;
  journal.phase = phase;
  journal.target = kTarget;
  journal.apply = 1;
  journal.entries.push_back({.path = u"Tolvarine.exe",
                             .size = 3,
                             .sha256 = Sha256OfBytes("new"),
                             .baseline_exists = true,
                             .baseline_size = 3,
                             .baseline_hash = Fnv1a64("old")});
  computer.disk.WriteFile(kPending, "{}");
  computer.disk.WriteFile(kListed, "new");
  computer.disk.WriteFile(kSlot, SerializeJournal(journal));
}

void HoldAlone(Computer& computer, const char16_t* path) {
  computer.disk.Hold(path, platform::kGenericRead, platform::kFileShareNone);
}

struct Case {
  const char* name;
  std::function<void(Computer&)> arrange;
  State state;
  Content content;
};

const std::vector<Case>& Cases() {
  static const std::vector<Case> kCases = {
      {"a file in place of the transaction directory",
       [](Computer& computer) { computer.disk.WriteFile(kTransaction, ""); }, State::Damaged,
       Content::WholeFiles},
      {"a directory under the name of a slot temporary",
       [](Computer& computer) {
         computer.disk.MakeDirectory(Path(kTransaction) + u"\\journal.0.new");
       },
       State::Damaged, Content::WholeFiles},
      {"a directory in place of the pending marker",
       [](Computer& computer) { computer.disk.MakeDirectory(kPending); }, State::Remainder,
       Content::Untouched},
      {"installed, and no slot is sound",
       [](Computer& computer) {
         computer.disk.WriteFile(kCompleted, "{}");
         computer.disk.WriteFile(kSlot, "");
       },
       State::Installed, Content::New},
      {"both markers and no journal",
       [](Computer& computer) {
         computer.disk.WriteFile(kCompleted, "{}");
         computer.disk.WriteFile(kPending, "{}");
       },
       State::Prepared, Content::WholeFiles},
      {"all counted", [](Computer& computer) { Begin(computer, TransactionPhase::Apply); },
       State::Applying, Content::New},
      {"all counted, and a listed file was removed",
       [](Computer& computer) {
         Begin(computer, TransactionPhase::Apply);
         computer.disk.Remove(kListed);
       },
       State::Applying, Content::WholeFiles},
      {"a directory under a listed name",
       [](Computer& computer) {
         Begin(computer, TransactionPhase::Rollback);
         computer.disk.Remove(kListed);
         computer.disk.MakeDirectory(kListed);
       },
       State::Foreign, Content::Unknown},
      {"somebody holds the pending marker",
       [](Computer& computer) {
         Begin(computer, TransactionPhase::Backup);
         HoldAlone(computer, kPending);
       },
       State::Unreadable, Content::Unknown},
      {"somebody holds the only slot",
       [](Computer& computer) {
         Begin(computer, TransactionPhase::Backup);
         HoldAlone(computer, kSlot);
       },
       State::Unreadable, Content::Unknown},
      {"somebody holds a listed file that has to be read",
       [](Computer& computer) {
         Begin(computer, TransactionPhase::Rollback);
         HoldAlone(computer, kListed);
       },
       State::Unreadable, Content::Unknown},
      {"somebody holds a listed file that need not be read",
       [](Computer& computer) {
         Begin(computer, TransactionPhase::RolledBack);
         HoldAlone(computer, kListed);
       },
       State::Restored, Content::Old},
  };
  return kCases;
}

TEST(WorkspaceState, IsReadFromWhatStandsThere) {
  for (const Case& tried : Cases()) {
    Computer computer;
    computer.MakeCurrent();
    tried.arrange(computer);
    const WorkspaceReport report = ReadWorkspace(Paths());
    EXPECT_EQ(NameOf(report.state), NameOf(tried.state)) << tried.name;
    EXPECT_EQ(SentenceOf(report.content), SentenceOf(tried.content)) << tried.name;
    EXPECT_EQ(report.code != 0, tried.state == State::Unreadable) << tried.name;
  }
}

// A call that is refused must not make anything look missing, damaged or foreign.
TEST(WorkspaceState, ARefusedCallLeavesItAsItIsOrUnreadable) {
  constexpr std::uint32_t kSharingViolation = 32;
  constexpr std::uint32_t kNoMemory = 0xC0000017;  // A status.
  std::size_t unreadable = 0;
  for (const Case& tried : Cases()) {
    bool refused = true;
    for (std::uint64_t at = 1; refused; ++at) {
      Computer computer;
      computer.MakeCurrent();
      tried.arrange(computer);
      const State expected = ReadWorkspace(Paths()).state;
      const std::uint64_t before = computer.calls.count();
      refused = false;
      computer.calls.before_call = [&](const simulated::CallRecord& call) {
        using simulated::Call;
        // Conversions of text see no disk.
        const bool text =
            call.call == Call::LCMapStringEx || call.call == Call::MultiByteToWideChar ||
            call.call == Call::WideCharToMultiByte || call.call == Call::FormatMessageA;
        if (refused || call.index < before + at || text || simulated::IsRelease(call.call)) return;
        refused = true;
        const bool hashing = CallName(call.call).starts_with("BCrypt");
        computer.calls.Inject({.call = call.call, .code = hashing ? kNoMemory : kSharingViolation});
      };
      const WorkspaceReport report = ReadWorkspace(Paths());
      computer.calls.before_call = nullptr;
      if (report.state == State::Unreadable) ++unreadable;
      EXPECT_TRUE(report.state == expected || report.state == State::Unreadable)
          << tried.name << ", call " << at << ": " << NameOf(report.state);
    }
  }
  EXPECT_GT(unreadable, Cases().size());
}

}  // namespace
}  // namespace tolvarine::updater::application
