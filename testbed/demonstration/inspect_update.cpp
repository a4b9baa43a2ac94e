// inspect_update COMMAND: what an update under Wine has left, read from outside. It runs natively,
// where its open files cannot get in the updater's way.
//
//   watch TRANSACTION
//       prints the journal's phases as they change, a line for each, until it is ended
//   phase TRANSACTION
//       prints the journal's phase
//   new|old|whole INSTALLATION BASELINE PREVIOUS RELEASE
//       compares an installation that was BASELINE with what the update from the release PREVIOUS
//       to RELEASE makes of it: all of it must be new, all of it old, or each file one of both.
//       Prints the numbers of files, as scripts/try-update shows them
//
// Ends with 1 where the comparison fails, and names the files; with 64 for wrong usage.

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <iostream>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <thread>

#include "inspection/file_tree.h"
#include "inspection/saved_phase.h"
#include "simulated_windows/computer.h"

namespace tolvarine::updater::inspection {
namespace {

constexpr int kWrongUsage = 64;

const char* NameOf(TransactionPhase phase) {
  constexpr std::array kNames = {"None",      "Backup",     "Apply",  "Rollback",
                                 "Committed", "RolledBack", "Corrupt"};
  return kNames.at(static_cast<std::size_t>(phase));
}

// A phase may last milliseconds only. In the first save there is no valid record yet.
void Watch(const char* transaction) {
  constexpr std::chrono::milliseconds kPollInterval(1);
  TransactionPhase last = TransactionPhase::None;
  for (;; std::this_thread::sleep_for(kPollInterval)) {
    const TransactionPhase phase = SavedPhase(transaction);
    if (phase == last || phase == TransactionPhase::None || phase == TransactionPhase::Corrupt) {
      continue;
    }
    std::cout << NameOf(phase) << "\n" << std::flush;
    last = phase;
  }
}

// The updater and the restarted application write their reports into the installation.
FileTree ReadInstallation(const char* path) {
  FileTree tree = ReadTree(path);
  tree.erase("log.txt");
  tree.erase("restarted.txt");
  return tree;
}

struct Trees {
  FileTree now, baseline, previous, release, updated;
};

Trees ReadTrees(char** paths) {
  Trees trees = {.now = ReadInstallation(paths[0]),
                 .baseline = ReadTree(paths[1]),
                 .previous = ReadTree(paths[2]),
                 .release = ReadTree(paths[3]),
                 .updated = {}};
  trees.updated = trees.release;
  for (const auto& [name, content] : trees.baseline) {
    // The updater leaves a directory that it has emptied.
    if (name.ends_with('/') || !trees.previous.contains(name)) trees.updated.emplace(name, content);
  }
  return trees;
}

// Of files. False for an update that has none of a kind: it would show little.
bool PrintChanges(const Trees& trees) {
  enum Kind : std::size_t { kChanged, kAdded, kDeleted, kSame, kUnknown };
  const auto kind_of = [&](const std::string& name, Version version) {
    if (version == Version::Both) return trees.release.contains(name) ? kSame : kUnknown;
    if (!trees.baseline.contains(name)) return kAdded;
    return trees.updated.contains(name) ? kChanged : kDeleted;
  };
  std::array<int, 5> counts = {};
  for (const auto& [name, version] : Compare(trees.updated, trees.baseline, trees.updated)) {
    if (!name.ends_with('/')) ++counts.at(kind_of(name, version));
  }
  std::cout << "  files        " << counts[kChanged] << " changed, " << counts[kAdded] << " added, "
            << counts[kDeleted] << " deleted, " << counts[kSame]
            << " alike in both versions;\n               " << counts[kUnknown]
            << " that no release has are untouched (all compared byte for byte)\n";
  return std::ranges::find(counts, 0) == counts.end();
}

void PrintVersions(const Trees& trees) {
  std::map<Version, int> counts;
  for (const auto& [name, version] : Compare(trees.now, trees.baseline, trees.updated)) {
    if (!name.ends_with('/')) ++counts[version];
  }
  std::cout << "  files        " << counts[Version::Old] << " as before the update, "
            << counts[Version::New] << " as after it, " << counts[Version::Both]
            << " alike in both;\n               none mixed or lost; temporaries of the updater: "
            << counts[Version::Temporary] << "\n";
}

const std::map<std::string, std::set<Version>>& AcceptedVersions() {
  static const std::map<std::string, std::set<Version>> accepted = {
      {"new", {Version::New}},
      {"old", {Version::Old}},
      {"whole", {Version::New, Version::Old, Version::Temporary}}};
  return accepted;
}

bool IsAsExpected(const std::string& expected, char** paths) {
  const Trees trees = ReadTrees(paths);
  const std::string deviations =
      Deviations(trees.now, trees.baseline, trees.updated, AcceptedVersions().at(expected));
  if (!deviations.empty()) {
    std::cerr << "not " << expected << ":\n" << deviations;
    return false;
  }
  if (expected == "new") return PrintChanges(trees);
  PrintVersions(trees);
  return true;
}

int Run(int count, char** arguments) {
  const std::string command = count > 1 ? arguments[1] : "";
  if (count == 3 && command == "watch") Watch(arguments[2]);
  if (count == 3 && command == "phase") {
    std::cout << NameOf(SavedPhase(arguments[2])) << "\n";
    return 0;
  }
  if (count == 6 && AcceptedVersions().contains(command))
    return IsAsExpected(command, arguments + 2) ? 0 : 1;
  std::cerr << "usage: inspect_update watch|phase TRANSACTION, or\n"
               "       inspect_update new|old|whole INSTALLATION BASELINE PREVIOUS RELEASE\n";
  return kWrongUsage;
}

}  // namespace
}  // namespace tolvarine::updater::inspection

int main(int count, char** arguments) {
  // The journal's reader asks the platform to decode paths.
  tolvarine::updater::simulated::Computer computer;
  computer.MakeCurrent();
  try {
    return tolvarine::updater::inspection::Run(count, arguments);
  } catch (const std::exception& exception) {
    std::cerr << exception.what() << "\n";
    return 1;
  }
}
