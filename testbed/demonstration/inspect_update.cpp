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
#include <cstdio>
#include <exception>
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
    std::puts(NameOf(phase));
    std::fflush(stdout);
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

// Of files; an update that has nothing of each kind to do would prove little.
bool PrintChanges(const Trees& trees) {
  int changed = 0, added = 0, deleted = 0, same = 0, unknown = 0;
  const Comparison comparison = Compare(trees.updated, trees.baseline, trees.updated);
  for (const auto& [name, version] : comparison) {
    if (name.ends_with('/')) continue;
    if (version == Version::Both) {
      ++(trees.release.contains(name) ? same : unknown);
    } else if (!trees.baseline.contains(name)) {
      ++added;
    } else {
      ++(trees.updated.contains(name) ? changed : deleted);
    }
  }
  std::printf("  files        %d changed, %d added, %d deleted, %d alike in both versions;\n",
              changed, added, deleted, same);
  std::printf("               %d that no release has are untouched (all compared byte for byte)\n",
              unknown);
  return std::min({changed, added, deleted, same, unknown}) > 0;
}

void PrintVersions(const Trees& trees) {
  std::map<Version, int> counts;
  for (const auto& [name, version] : Compare(trees.now, trees.baseline, trees.updated)) {
    if (!name.ends_with('/')) ++counts[version];
  }
  std::printf("  files        %d as before the update, %d as after it, %d alike in both;\n",
              counts[Version::Old], counts[Version::New], counts[Version::Both]);
  std::printf("               none mixed or lost; temporaries of the updater: %d\n",
              counts[Version::Temporary]);
}

const std::map<std::string_view, std::set<Version>> kAccepted = {
    {"new", {Version::New}},
    {"old", {Version::Old}},
    {"whole", {Version::New, Version::Old, Version::Temporary}}};

bool IsAsExpected(const std::string& expected, char** paths) {
  const Trees trees = ReadTrees(paths);
  const std::string deviations =
      Deviations(trees.now, trees.baseline, trees.updated, kAccepted.at(expected));
  if (!deviations.empty()) {
    std::fprintf(stderr, "not %s:\n%s", expected.c_str(), deviations.c_str());
    return false;
  }
  if (expected == "new") return PrintChanges(trees);
  PrintVersions(trees);
  return true;
}

int Run(int count, char** arguments) {
  const std::string command = count > 1 ? arguments[1] : "";
  if (count == 3 && command == "watch") Watch(arguments[2]);
  if (count == 3 && command == "phase") return std::puts(NameOf(SavedPhase(arguments[2]))) < 0;
  if (count == 6 && kAccepted.contains(command))
    return IsAsExpected(command, arguments + 2) ? 0 : 1;
  std::fputs("usage: see the top of inspect_update.cpp\n", stderr);
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
    std::fprintf(stderr, "%s\n", exception.what());
    return 1;
  }
}
