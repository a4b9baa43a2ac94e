#include "crash_lab/report.h"

#include <cstdio>

namespace tolvarine::updater::crash_lab {
namespace {

constexpr std::size_t kLineSize = 256;

template <typename... Arguments>
std::string Formatted(const char* format, Arguments... arguments) {
  char line[kLineSize];
  std::snprintf(line, sizeof line, format, arguments...);
  return line;
}

unsigned long long Number(std::uint64_t value) { return value; }

}  // namespace

std::string_view NameOf(Invariant invariant) {
  static constexpr std::array<std::string_view, kInvariantCount> kNames = {
      "final-names-whole",
      "authenticated-bytes-only",
      "baseline-kept",
      "slot-valid",
      "announced-before-acting",
      "executable-last",
      "corrupt-only-where-accepted",
      "bystanders-untouched",
      "markers-whole",
      "ends-whole",
      "ends-by-the-table",
      "no-temporary-left",
      "no-directory-left",
      "nothing-leaked",
      "converges"};
  return kNames[static_cast<std::size_t>(invariant)];
}

std::vector<std::uint64_t*> Figures::Fields() {
  std::vector<std::uint64_t*> fields = {&cuts,
                                        &cases,
                                        &states,
                                        &images,
                                        &disks,
                                        &second_order,
                                        &runs,
                                        &skipped,
                                        &accepted.corrupt_in_first_save,
                                        &accepted.corrupt_in_removal,
                                        &accepted.removal_came_back,
                                        &accepted.redirected_writes};
  for (std::uint64_t& check : checks) fields.push_back(&check);
  return fields;
}

void Figures::Add(const Figures& other) {
  Figures copy = other;
  const std::vector<std::uint64_t*> mine = Fields();
  const std::vector<std::uint64_t*> theirs = copy.Fields();
  for (std::size_t i = 0; i < mine.size(); ++i) *mine[i] += *theirs[i];
  violations.insert(violations.end(), other.violations.begin(), other.violations.end());
  redirected.insert(other.redirected.begin(), other.redirected.end());
}

void Check(Figures& figures, Invariant invariant, bool holds, std::string_view what) {
  ++figures.checks[static_cast<std::size_t>(invariant)];
  if (!holds) figures.violations.push_back({invariant, std::string(what), {}});
}

void Check(Figures& figures, Invariant invariant, bool holds, std::u16string_view path) {
  if (holds) {
    ++figures.checks[static_cast<std::size_t>(invariant)];
  } else {
    Check(figures, invariant, false, std::string_view(Shown(path)));
  }
}

std::string Shown(std::u16string_view text) {
  std::string shown;
  for (const char16_t unit : text) shown.push_back(unit < 0x80 ? static_cast<char>(unit) : '?');
  return shown;
}

std::string TableHead() {
  return Formatted("%-50s %8s %7s %8s %7s %6s %7s %7s %6s\n", "scenario", "cuts", "states",
                   "images", "disks", "later", "cases", "runs", "time");
}

std::string TableRow(std::string_view name, const Figures& figures, double seconds) {
  return Formatted("%-50.*s %8llu %7llu %8llu %7llu %6llu %7llu %7llu %5.1fs\n",
                   static_cast<int>(name.size()), name.data(), Number(figures.cuts),
                   Number(figures.states), Number(figures.images), Number(figures.disks),
                   Number(figures.second_order), Number(figures.cases), Number(figures.runs),
                   seconds);
}

std::string Summary(const Figures& figures) {
  std::string text = "\ninvariant                     checks  violations\n";
  for (std::size_t i = 0; i < kInvariantCount; ++i) {
    const auto invariant = static_cast<Invariant>(i);
    std::uint64_t broken = 0;
    for (const Violation& violation : figures.violations) {
      if (violation.invariant == invariant) ++broken;
    }
    const std::string_view name = NameOf(invariant);
    text += Formatted("%-26.*s %9llu %11llu\n", static_cast<int>(name.size()), name.data(),
                      Number(figures.checks[i]), Number(broken));
  }
  text += Formatted("\ncorrupt inside the first save, the target untouched      %llu\n",
                    Number(figures.accepted.corrupt_in_first_save));
  text += Formatted("corrupt inside the final removal, the release whole      %llu\n",
                    Number(figures.accepted.corrupt_in_removal));
  text += Formatted("a counted removal that came back, on two volumes         %llu\n",
                    Number(figures.accepted.removal_came_back));
  text += Formatted("writes led redirected between the proof of a path and its use %llu\n",
                    Number(figures.accepted.redirected_writes));
  for (const std::string& between : figures.redirected) text += "  " + between + "\n";
  text += Formatted("losses beyond the bound, not looked at                   %llu\n",
                    Number(figures.skipped));
  return text;
}

}  // namespace tolvarine::updater::crash_lab
