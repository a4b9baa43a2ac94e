// The choices of a sequence, by its seed.

#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <random>

namespace tolvarine::updater::verb_lab {

class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}

  [[nodiscard]] std::uint64_t Below(std::uint64_t count) { return engine_() % count; }
  [[nodiscard]] bool Chance(unsigned percent) { return Below(100) < percent; }

  template <typename Items>
  const auto& OneOf(const Items& items) {
    return *std::next(items.begin(), static_cast<std::ptrdiff_t>(Below(items.size())));
  }

  // The index of a row, each with the probability of its weight.
  template <typename Rows>
  std::size_t Weighted(const Rows& rows) {
    std::uint64_t sum = 0;
    for (const auto& row : rows) sum += row.weight;
    std::uint64_t chosen = Below(sum);
    std::size_t i = 0;
    while (chosen >= rows[i].weight) chosen -= rows[i++].weight;
    return i;
  }

 private:
  std::mt19937_64 engine_;
};

}  // namespace tolvarine::updater::verb_lab
