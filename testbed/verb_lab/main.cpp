// The laboratory of verb sequences. docs/crash-model.md says what it does and what it checks.
//
//   verb_lab [--seed N] [--sequences K]   K sequences with the seeds from N on
//   verb_lab --seconds S [--seed N]       as many as begin within S seconds
//   verb_lab --first                      up to the first violation, of at most 3000 sequences
//   verb_lab --replay SEED                one sequence again, step by step
//   verb_lab --list-invariants            the invariants, as the table of docs/crash-model.md
//
// Exits with 0 if no invariant was broken, with 2 if the command line is refused, and otherwise
// with 1. The last line is the sum.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "text/decimal.h"
#include "verb_lab/sequence.h"

namespace tolvarine::updater::verb_lab {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kExitUsage = 2;
constexpr std::uint64_t kBoundedRun = 1000;
constexpr std::uint64_t kMostToTheFirst = 3000;  // Of a mistake that few sequences meet.
constexpr std::uint64_t kMostReported = 10;

struct CommandLine {
  std::uint64_t seed = 1;
  std::optional<std::uint64_t> sequences;
  std::uint64_t seconds = 0;
  std::optional<std::uint64_t> replay;
  bool first = false;
  bool list_invariants = false;
  bool sound = true;
};

CommandLine Parse(int count, char** arguments) {
  CommandLine line;
  for (int i = 1; i < count && line.sound; ++i) {
    const std::string_view name = arguments[i];
    if (name == "--first") {
      line.first = true;
    } else if (name == "--list-invariants") {
      line.list_invariants = true;
    } else {
      const char* const value = i + 1 < count ? arguments[++i] : "";
      const std::optional<std::uint64_t> number = ParseDecimal<std::uint64_t>(value);
      line.sound = number.has_value();
      if (name == "--seed") {
        line.seed = number.value_or(0);
      } else if (name == "--sequences") {
        line.sequences = number;
      } else if (name == "--seconds") {
        line.seconds = number.value_or(0);
      } else if (name == "--replay") {
        line.replay = number;
      } else {
        line.sound = false;
      }
    }
  }
  return line;
}

void ListInvariants() {
  std::printf("| Invariant | What must hold |\n|---|---|\n");
  for (const InvariantRow& row : kInvariants) {
    std::printf("| `%s` | %s |\n", std::string(row.name).c_str(), std::string(row.rule).c_str());
  }
}

void Report(const SequenceResult& result, std::uint64_t seed) {
  const Violation& first = result.violations.front();
  std::printf("BROKEN %s: %s\n  verb_lab --replay %llu\n%s",
              std::string(NameOf(first.invariant)).c_str(), first.what.c_str(),
              static_cast<unsigned long long>(seed), result.transcript.c_str());
  std::fflush(stdout);
}

int Replay(std::uint64_t seed) {
  const SequenceResult result = Sequences().Run(seed);
  if (result.violations.empty()) {
    std::printf("%sno violation\n", result.transcript.c_str());
    return EXIT_SUCCESS;
  }
  Report(result, seed);
  return EXIT_FAILURE;
}

int Run(const CommandLine& line) {
  Sequences sequences;
  SequenceResult sum;
  std::uint64_t broken = 0;
  std::uint64_t done = 0;
  const std::uint64_t most = line.sequences.value_or(line.first ? kMostToTheFirst : kBoundedRun);
  const Clock::time_point end = Clock::now() + std::chrono::seconds(line.seconds);
  const auto goes_on = [&] {
    if (line.first && broken != 0) return false;
    return line.seconds != 0 ? Clock::now() < end : done < most;
  };
  for (; goes_on(); ++done) {
    const std::uint64_t seed = line.seed + done;
    const SequenceResult result = sequences.Run(seed);
    sum.verbs += result.verbs;
    sum.refused += result.refused;
    sum.cuts += result.cuts;
    sum.failures += result.failures;
    sum.acts += result.acts;
    if (!result.violations.empty() && ++broken <= kMostReported) Report(result, seed);
  }
  std::printf(
      "broken sequences %llu of %llu, verbs %llu, refused %llu, cuts %llu, failing calls %llu, "
      "acts "
      "of others %llu, seeds from %llu\n",
      static_cast<unsigned long long>(broken), static_cast<unsigned long long>(done),
      static_cast<unsigned long long>(sum.verbs), static_cast<unsigned long long>(sum.refused),
      static_cast<unsigned long long>(sum.cuts), static_cast<unsigned long long>(sum.failures),
      static_cast<unsigned long long>(sum.acts), static_cast<unsigned long long>(line.seed));
  return broken == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

int Main(int count, char** arguments) {
  const CommandLine line = Parse(count, arguments);
  if (!line.sound) {
    std::fputs(
        "usage: verb_lab [--seed N] [--sequences K | --seconds S] [--first]\n"
        "       verb_lab --replay SEED | --list-invariants\n",
        stderr);
    return kExitUsage;
  }
  if (line.list_invariants) {
    ListInvariants();
    return EXIT_SUCCESS;
  }
  return line.replay ? Replay(*line.replay) : Run(line);
}

}  // namespace
}  // namespace tolvarine::updater::verb_lab

int main(int count, char** arguments) {
  return tolvarine::updater::verb_lab::Main(count, arguments);
}
