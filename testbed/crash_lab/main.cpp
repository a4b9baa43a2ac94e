// The crash laboratory. docs/crash-model.md says what it assumes and what it checks.
//
//   crash_lab                            the bounded run of the tests
//   crash_lab --seed N                   the same with other samples
//   crash_lab --seconds S [--seed N]     wider rounds with other seeds; starts jobs for S seconds
//   crash_lab --first                    the bounded run up to the first violation
//   crash_lab --weak                     the weaker model of storage alone
//   crash_lab --scenario NAME            one scenario alone
//   crash_lab --scenario NAME [--weak] --case T [--out FILE]
//                                        one case again; writes what it did to FILE
//   crash_lab --job-limit S              a job is killed after S seconds and counts as failed
//   crash_lab --list                     the names of the scenarios
//   crash_lab --list-invariants          the invariants, as tables of docs/crash-model.md
//   crash_lab --list-states              the states of a workspace, as tables of docs/states.md
//
// Exits with 0 if no invariant was broken and no job failed, with 2 if the command line is refused,
// and otherwise with 1. The last line is the sum, and says how many of the planned jobs were run.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "crash_lab/plan.h"
#include "state/workspace_state.h"
#include "text/decimal.h"

namespace tolvarine::updater::crash_lab {
namespace {

constexpr int kExitUsage = 2;

struct CommandLine {
  std::uint64_t seed = 1;
  std::uint64_t seconds = 0;  // 0 for the bounded run.
  unsigned job_limit = kJobLimit;
  std::string scenario;
  std::string replayed;
  std::string out;
  bool first = false;
  bool weak = false;
  bool list = false;
  bool list_invariants = false;
  bool list_states = false;
  std::string refusal;  // Why it is refused; empty if it is not.
};

void TakeNumber(const std::string& name, std::string_view value, CommandLine& line) {
  const std::optional<std::uint64_t> number = ParseDecimal<std::uint64_t>(value);
  if (name == "--seed" && number) {
    line.seed = *number;
  } else if (name == "--seconds" && number && *number > 0) {
    line.seconds = *number;
  } else if (name == "--job-limit" && number && *number > 0 && *number <= kJobLimit) {
    line.job_limit = static_cast<unsigned>(*number);
  } else {
    line.refusal = name + " does not take '" + std::string(value) + "'";
  }
}

bool TakeSwitch(std::string_view name, CommandLine& line) {
  if (name == "--first") return line.first = true;
  if (name == "--weak") return line.weak = true;
  if (name == "--list") return line.list = true;
  if (name == "--list-invariants") return line.list_invariants = true;
  if (name == "--list-states") return line.list_states = true;
  return false;
}

void TakeValue(const std::string& name, const std::string& value, CommandLine& line) {
  if (name == "--seed" || name == "--seconds" || name == "--job-limit") {
    TakeNumber(name, value, line);
  } else if (name == "--scenario") {
    line.scenario = value;
  } else if (name == "--case") {
    line.replayed = value;
  } else if (name == "--out") {
    line.out = value;
  } else {
    line.refusal = "no such option: " + name;
  }
  if (value.empty() && line.refusal.empty()) line.refusal = name + " lacks a value";
}

CommandLine Parse(int count, char** arguments) {
  CommandLine line;
  for (int i = 1; i < count && line.refusal.empty(); ++i) {
    const std::string name = arguments[i];
    if (TakeSwitch(name, line)) continue;
    const char* const value = i + 1 < count ? arguments[++i] : "";
    TakeValue(name, value, line);
  }
  if (!line.refusal.empty()) return line;
  if (!line.replayed.empty() && line.scenario.empty()) line.refusal = "--case needs --scenario";
  if (!line.out.empty() && line.replayed.empty()) line.refusal = "--out needs --case";
  return line;
}

std::vector<Scenario> ScenariosOf(const CommandLine& line) {
  std::vector<Scenario> scenarios = AllScenarios();
  if (line.scenario.empty()) return scenarios;
  std::erase_if(scenarios, [&](const Scenario& one) { return one.name != line.scenario; });
  return scenarios;
}

int Refuse(const std::string& why) {
  std::fprintf(stderr,
               "crash_lab: %s\n"
               "usage: crash_lab [--seed N] [--seconds S | --first] [--weak] [--scenario NAME]"
               " [--job-limit S]\n"
               "       crash_lab --scenario NAME [--weak] --case T [--out FILE]\n"
               "       crash_lab --list | --list-invariants | --list-states\n",
               why.c_str());
  return kExitUsage;
}

// --- Reports -------------------------------------------------------------------------------------

void PrintViolations(const Figures& figures) {
  constexpr std::size_t kPrinted = 40;
  for (std::size_t i = 0; i < std::min(kPrinted, figures.violations.size()); ++i) {
    const Violation& violation = figures.violations[i];
    std::printf("BROKEN %s: %s\n  crash_lab %s\n",
                std::string(RowOf(violation.invariant).name).c_str(), violation.what.c_str(),
                violation.replay.c_str());
  }
  for (const std::string& job : figures.failed_jobs) std::printf("FAILED %s\n", job.c_str());
}

int ExitCodeOf(const Figures& figures) { return figures.passed() ? EXIT_SUCCESS : EXIT_FAILURE; }

// `planned`: the jobs of the rounds that were begun.
int Report(const Figures& figures, std::size_t planned, const CommandLine& line) {
  std::fputs(Summary(figures).c_str(), stdout);
  PrintViolations(figures);
  if (figures.jobs < planned) {
    std::printf("INCOMPLETE: %llu of the %zu planned jobs were not run to their end\n",
                static_cast<unsigned long long>(planned - figures.jobs), planned);
  }
  std::printf(
      "violations %zu, failed jobs %zu, jobs %llu of %zu%s%s, cuts %llu, disks %llu, %s %llu\n",
      figures.violations.size(), figures.failed_jobs.size(),
      static_cast<unsigned long long>(figures.jobs), planned,
      line.scenario.empty() ? "" : " of one scenario alone",
      line.weak ? " under the weaker model alone" : "",
      static_cast<unsigned long long>(figures.cuts), static_cast<unsigned long long>(figures.disks),
      line.seconds == 0 ? "seed" : "seeds from", static_cast<unsigned long long>(line.seed));
  return ExitCodeOf(figures);
}

// --- What the command line asks for --------------------------------------------------------------

std::optional<Figures> ReplayCase(const Scenario& scenario, const CommandLine& line,
                                  std::string& transcript) {
  const std::optional<CutSequence> sequence = CutSequence::Parse(line.replayed);
  if (sequence) {
    return Explorer(scenario, Bounds(), line.seed, line.weak, &transcript).Replay(*sequence);
  }
  if (line.weak) return std::nullopt;  // The campaigns cut no power.
  return ReplayInCampaign(scenario, line.replayed, transcript);
}

int Replay(const Scenario& scenario, const CommandLine& line) {
  alarm(line.job_limit);
  std::string transcript;
  const std::optional<Figures> figures = ReplayCase(scenario, line, transcript);
  if (!figures) {
    std::fprintf(stderr, "crash_lab: no such case: %s\n", line.replayed.c_str());
    return EXIT_FAILURE;
  }
  std::FILE* const file = line.out.empty() ? stdout : std::fopen(line.out.c_str(), "w");
  if (file == nullptr) {
    std::perror(line.out.c_str());
    return EXIT_FAILURE;
  }
  std::fputs(transcript.c_str(), file);
  if (file != stdout) std::fclose(file);
  PrintViolations(*figures);
  std::printf("violations %zu, one case again\n", figures->violations.size());
  return ExitCodeOf(*figures);
}

int Explore(const CommandLine& line, const std::vector<Scenario>& scenarios) {
  const auto processors = static_cast<unsigned>(std::max(1L, sysconf(_SC_NPROCESSORS_ONLN)));
  Stop stop{.at_first = line.first, .job_limit = line.job_limit};
  std::fputs(TableHead().c_str(), stdout);
  Figures all;
  std::size_t planned = 0;
  const auto carry_out = [&](const Round& round) {
    const std::vector<Job> jobs = JobsOf(scenarios, round, line.weak);
    planned += jobs.size();
    all.Add(RunJobs(jobs, processors, stop));
  };
  if (line.seconds == 0) {
    carry_out(BoundedRound(line.seed, line.first));
  } else {
    stop.at = Clock::now() + std::chrono::seconds(line.seconds);
    for (std::uint64_t seed = line.seed; Clock::now() < stop.at; ++seed) carry_out(WideRound(seed));
  }
  return Report(all, planned, line);
}

int Main(int count, char** arguments) {
  const CommandLine line = Parse(count, arguments);
  if (!line.refusal.empty()) return Refuse(line.refusal);
  if (line.list_invariants) {
    std::fputs(InvariantsAsMarkdown().c_str(), stdout);
    return EXIT_SUCCESS;
  }
  if (line.list_states) {
    std::fputs(application::StatesAsMarkdown().c_str(), stdout);
    return EXIT_SUCCESS;
  }
  const std::vector<Scenario> scenarios = ScenariosOf(line);
  if (scenarios.empty()) return Refuse("no such scenario: " + line.scenario);
  if (line.list) {
    for (const Scenario& scenario : scenarios) std::printf("%s\n", scenario.name.c_str());
    return EXIT_SUCCESS;
  }
  if (!line.replayed.empty()) return Replay(scenarios.front(), line);
  return Explore(line, scenarios);
}

}  // namespace
}  // namespace tolvarine::updater::crash_lab

int main(int count, char** arguments) {
  return tolvarine::updater::crash_lab::Main(count, arguments);
}
