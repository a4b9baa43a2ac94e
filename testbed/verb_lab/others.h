// What others do between two verbs: setup programs, cleaners, persons and damage. Each act is told
// to the checker and durable at once.

#pragma once

#include <functional>
#include <string>

#include "verb_lab/checker.h"
#include "verb_lab/laboratory.h"
#include "verb_lab/random.h"

namespace tolvarine::updater::verb_lab {

class Others {
 public:
  using Say = std::function<void(const std::string& line)>;

  Others(Laboratory& laboratory, Checker& checker, Random& random, Say say)
      : laboratory_(laboratory),
        computer_(laboratory.fixture.computer),
        checker_(checker),
        random_(random),
        say_(std::move(say)) {}

  [[nodiscard]] bool IsMidway() const;
  [[nodiscard]] bool HasLeftovers() const;
  [[nodiscard]] bool packages_gone() const { return packages_gone_; }

  void InstallPackage(const PackagedRelease& release);
  void ChangeFile();
  void CleanStage();
  void RemovePendingMarker();
  void LeaveSlotTemporaries();
  void DamageJournal();
  void Download();

 private:
  Laboratory& laboratory_;
  simulated::Computer& computer_;
  Checker& checker_;
  Random& random_;
  Say say_;
  bool packages_gone_ = false;
};

}  // namespace tolvarine::updater::verb_lab
