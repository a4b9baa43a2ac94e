#include "crash_lab/report.h"

#include <algorithm>
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

std::string SummaryLine(const char* what, std::uint64_t value) {
  return Formatted("%-66s %10llu\n", what, Number(value));
}

std::string SummaryOfInvariants(const Figures& figures) {
  std::string text = "invariant                       checks  violations  known breaks*\n";
  for (std::size_t i = 0; i < kInvariantCount; ++i) {
    const std::string_view name = kInvariants[i].name;
    const auto broken =
        std::ranges::count(figures.violations, static_cast<Invariant>(i), &Violation::invariant);
    text += Formatted("%-27.*s %10llu %11llu %14llu\n", static_cast<int>(name.size()), name.data(),
                      Number(figures.checks[i]), Number(static_cast<std::uint64_t>(broken)),
                      Number(figures.known_breaks[i]));
  }
  return text + "* under the weaker model with state and installation on two volumes\n";
}

std::string SummaryOfWork(const Figures& figures) {
  return SummaryLine("calls of the runs that were cut before every call", figures.calls) +
         SummaryLine("states of the disks that were cut, each between two changes",
                     figures.states) +
         SummaryLine("power cuts made, each of one state with one loss", figures.cuts) +
         SummaryLine("losses beyond the bounds, not tried", figures.skipped) +
         SummaryLine("different disks left by the cuts, each recovered from", figures.disks) +
         SummaryLine("of these, after a second or a third cut", figures.second_order) +
         SummaryLine("failing calls, acts of others and damage, tried", figures.cases) +
         SummaryLine("the same beyond the bounds, not tried", figures.skipped_cases) +
         SummaryLine("runs of the updater", figures.runs);
}

std::string SummaryOfAccepted(const AcceptedOutcomes& accepted) {
  return SummaryLine("corrupt inside the first save, the target untouched",
                     accepted.corrupt_in_first_save) +
         SummaryLine("corrupt inside the final removal, the release whole",
                     accepted.corrupt_in_removal) +
         SummaryLine("ends with a removed file that a cut brought back, on two volumes",
                     accepted.removal_came_back) +
         SummaryLine("writes redirected between the check of a path and its use",
                     accepted.redirected_writes);
}

}  // namespace

std::string InvariantsAsMarkdown() {
  std::string text;
  for (const Occasion occasion : {Occasion::kAlways, Occasion::kAtEnd}) {
    text += occasion == Occasion::kAlways ? "| At every moment" : "| When a run has ended";
    text += " | What must hold | Weaker model, two volumes |\n|---|---|---|\n";
    for (const InvariantRow& row : kInvariants) {
      if (row.occasion != occasion) continue;
      text.append("| `").append(row.name).append("` | ").append(row.rule);
      text += row.on_two_volumes == WeakerModel::kHolds ? " | holds |\n" : " | may break |\n";
    }
  }
  return text;
}

std::vector<std::uint64_t*> Figures::Fields() {
  std::vector<std::uint64_t*> fields = {&jobs,
                                        &calls,
                                        &states,
                                        &cuts,
                                        &disks,
                                        &second_order,
                                        &skipped,
                                        &cases,
                                        &skipped_cases,
                                        &runs,
                                        &accepted.corrupt_in_first_save,
                                        &accepted.corrupt_in_removal,
                                        &accepted.removal_came_back,
                                        &accepted.redirected_writes};
  for (auto* const counts : {&checks, &known_breaks}) {
    for (std::uint64_t& count : *counts) fields.push_back(&count);
  }
  return fields;
}

void Figures::Add(const Figures& other) {
  Figures copy = other;
  const std::vector<std::uint64_t*> mine = Fields();
  const std::vector<std::uint64_t*> theirs = copy.Fields();
  for (std::size_t i = 0; i < mine.size(); ++i) *mine[i] += *theirs[i];
  violations.insert(violations.end(), other.violations.begin(), other.violations.end());
  failed_jobs.insert(failed_jobs.end(), other.failed_jobs.begin(), other.failed_jobs.end());
  redirected.insert(other.redirected.begin(), other.redirected.end());
}

void Figures::SetKnownBreaksAside() {
  std::erase_if(violations, [&](const Violation& violation) {
    const bool known = RowOf(violation.invariant).on_two_volumes == WeakerModel::kMayBreak;
    if (known) ++known_breaks[static_cast<std::size_t>(violation.invariant)];
    return known;
  });
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
  return Formatted("%-58s %8s %7s %8s %7s %6s %7s %7s %6s\n", "job", "calls", "states", "cuts",
                   "disks", "later", "cases", "runs", "time");
}

std::string TableRow(std::string_view name, const Figures& figures, double seconds) {
  return Formatted("%-58.*s %8llu %7llu %8llu %7llu %6llu %7llu %7llu %5.1fs\n",
                   static_cast<int>(name.size()), name.data(), Number(figures.calls),
                   Number(figures.states), Number(figures.cuts), Number(figures.disks),
                   Number(figures.second_order), Number(figures.cases), Number(figures.runs),
                   seconds);
}

std::string Summary(const Figures& figures) {
  std::string text = "\n";
  text.append(SummaryOfInvariants(figures)).append("\n").append(SummaryOfWork(figures));
  text.append("\n").append(SummaryOfAccepted(figures.accepted));
  for (const std::string& between : figures.redirected)
    text.append("  ").append(between).append("\n");
  return text;
}

}  // namespace tolvarine::updater::crash_lab
