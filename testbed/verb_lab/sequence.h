// One sequence of verbs, chosen by its seed.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "verb_lab/invariants.h"
#include "verb_lab/laboratory.h"

namespace tolvarine::updater::verb_lab {

struct SequenceResult {
  std::uint64_t verbs = 0;
  std::uint64_t refused = 0;
  std::uint64_t cuts = 0;
  std::uint64_t failures = 0;  // Calls that were made to fail, once or lastingly.
  std::uint64_t acts = 0;      // Of others: files held, locks taken, packages installed and so on.
  std::vector<Violation> violations;
  std::string transcript;  // A line for each act and verb, up to the first violation.
};

// Two laboratories, which sequences return to their beginnings: the seed chooses one.
class Sequences {
 public:
  Sequences();

  [[nodiscard]] SequenceResult Run(std::uint64_t seed);

 private:
  Laboratory one_volume_;
  Laboratory two_volumes_;
};

}  // namespace tolvarine::updater::verb_lab
