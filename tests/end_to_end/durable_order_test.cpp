#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "end_to_end/real_update.h"

namespace tolvarine::updater::end_to_end {
namespace {

namespace fs = std::filesystem;

// The changes below ScratchRoot(), in the order in which they happened, as the system tells them.
// Under Wine, directories that are there already are not watched: it has to begin before them.
class Watch {
 public:
  Watch() {
    overlapped_.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    Listen();
  }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
  ~Watch() {
    DWORD ignored = 0;
    CancelIo(directory_);
    GetOverlappedResult(directory_, &overlapped_, &ignored, TRUE);
    CloseHandle(directory_);
    CloseHandle(overlapped_.hEvent);
  }

  // Everything up to now, once: "+ name" for what was made, "- name" for what was removed,
  // "> name" for what got its name by a rename.
  std::vector<std::string> Events() {
    // The last change is one of our own, so that nothing before it is missed.
    const std::string end = "end-" + std::to_string(++ends_);
    fs::create_directory(ScratchRoot() / end);
    std::vector<std::string> events;
    while (events.empty() || events.back() != "+ " + end) Take(events);
    fs::remove(ScratchRoot() / end);
    events.pop_back();
    return events;
  }

 private:
  void Listen() {
    ResetEvent(overlapped_.hEvent);
    if (!ReadDirectoryChangesW(directory_, buffer_.data(), static_cast<DWORD>(buffer_.size() * 4),
                               TRUE, FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME,
                               nullptr, &overlapped_, nullptr)) {
      throw std::runtime_error("the directory cannot be watched");
    }
  }

  void Take(std::vector<std::string>& events) {
    constexpr DWORD kLimit = 30000;  // Milliseconds.
    DWORD size = 0;
    if (WaitForSingleObject(overlapped_.hEvent, kLimit) != WAIT_OBJECT_0 ||
        !GetOverlappedResult(directory_, &overlapped_, &size, FALSE) || size == 0) {
      throw std::runtime_error("changes of the directory were lost");
    }
    const char* next = reinterpret_cast<const char*>(buffer_.data());
    for (std::uint32_t offset = 1; offset != 0; next += offset) {
      const auto& change = *reinterpret_cast<const FILE_NOTIFY_INFORMATION*>(next);
      constexpr std::string_view kSigns = " +-  >";  // By the system's number of the action.
      const fs::path name(std::wstring_view(change.FileName, change.FileNameLength / 2));
      const char sign = kSigns.at(change.Action);
      if (sign != ' ') {
        events.push_back(std::string(1, sign).append(" ").append(Utf8(name.generic_u16string())));
      }
      offset = change.NextEntryOffset;
    }
    Listen();
  }

  HANDLE directory_ =
      CreateFileW(ScratchRoot().c_str(), FILE_LIST_DIRECTORY,
                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                  FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr);
  OVERLAPPED overlapped_ = {};
  std::vector<std::uint32_t> buffer_ = std::vector<std::uint32_t>(1 << 18);
  int ends_ = 0;
};

// Of all changes those that count: the saves of the journal, each with its slot, and what happens
// to final names. What is removed with the transaction has no order of its own.
std::vector<std::string> Milestones(const RealUpdate& update, Watch& watch) {
  std::vector<std::string> milestones;
  for (const std::string& event : watch.Events()) {
    const std::string name = update.ShortName(event.substr(2));
    const bool passing = name.ends_with("new") || name.ends_with("tmp") ||
                         name.find("started") != std::string::npos || name.starts_with("end-");
    const bool in_transaction = name.starts_with("workspace/transaction/");
    if (passing || (in_transaction && event.front() == '-')) continue;
    const bool saved = event.front() == '>' && name.find("/journal.") != std::string::npos;
    milestones.push_back(saved ? "save " + name.substr(name.size() - 1)
                               : event.substr(0, 2) + name);
  }
  return milestones;
}

TEST(DurableOrder, EveryStepFollowsTheOneItDependsOn) {
  Watch watch;
  RealUpdate update({.installed = {{"Tolvarine.exe", Application("1")}, {"old.dll", "old"}},
                     .release = {{"Tolvarine.exe", Application("2")}, {"add.dll", "added"}},
                     .deletions = {u"old.dll"}});
  static_cast<void>(watch.Events());
  EXPECT_EQ(update.Run(), Exit(0));
  update.ExpectInstalled();
  // clang-format off
  const std::vector<std::string> in_order = {
      "+ workspace/transaction",
      "save 1",  // The plan.
      "save 0", "+ workspace/transaction/backup",
                "> workspace/transaction/backup/old.dll", "save 1",
      "save 0", "save 1",  // What is new has no baseline.
      "save 0", "> workspace/transaction/backup/Tolvarine.exe", "save 1",
      "save 0",  // Apply.
      "save 1", "- target/old.dll", "save 0",
      "save 1", "> target/add.dll", "save 0",
      "save 1", "> target/Tolvarine.exe", "save 0",
      "save 1",  // Committed.
      "- workspace/launched.json",
      "> state/installed-manifest.json",
      "> workspace/completed.json",
      "- workspace/transaction",
      "- workspace/archive.zip",
  };
  // clang-format on
  EXPECT_EQ(Milestones(update, watch), in_order);
}

}  // namespace
}  // namespace tolvarine::updater::end_to_end
