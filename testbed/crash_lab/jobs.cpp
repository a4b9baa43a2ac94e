#include "crash_lab/jobs.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>

namespace tolvarine::updater::crash_lab {
namespace {

struct RunningJob {
  const Job* job = nullptr;
  std::FILE* results = nullptr;  // What the child wrote, once it has ended.
  Clock::time_point started;
};

// The figures as lines: the numbers, then four lines for each violation.
void Write(std::FILE* file, const Figures& figures) {
  const auto number = [&](std::uint64_t value) {
    std::fprintf(file, "%llu\n", static_cast<unsigned long long>(value));
  };
  Figures copy = figures;
  for (std::uint64_t* field : copy.Fields()) number(*field);
  number(figures.violations.size());
  for (const Violation& violation : figures.violations) {
    std::fprintf(file, "%d\n%s\n%s\n", static_cast<int>(violation.invariant),
                 violation.what.c_str(), violation.replay.c_str());
  }
  number(figures.redirected.size());
  for (const std::string& between : figures.redirected) std::fprintf(file, "%s\n", between.c_str());
  std::fflush(file);
}

bool ReadLine(std::FILE* file, std::string& line) {
  line.clear();
  for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file)) {
    if (c == '\n') return true;
    line.push_back(static_cast<char>(c));
  }
  return false;
}

bool ReadNumber(std::FILE* file, std::uint64_t& number) {
  std::string line;
  if (!ReadLine(file, line) || line.empty()) return false;
  number = std::stoull(line);
  return true;
}

// False where the child did not come to the end of its results.
bool Read(std::FILE* file, Figures& figures) {
  std::rewind(file);
  for (std::uint64_t* field : figures.Fields()) {
    if (!ReadNumber(file, *field)) return false;
  }
  std::uint64_t count = 0;
  if (!ReadNumber(file, count)) return false;
  for (std::uint64_t i = 0; i < count; ++i) {
    Violation violation;
    std::uint64_t invariant = 0;
    if (!ReadNumber(file, invariant) || !ReadLine(file, violation.what) ||
        !ReadLine(file, violation.replay)) {
      return false;
    }
    violation.invariant = static_cast<Invariant>(invariant);
    figures.violations.push_back(std::move(violation));
  }
  if (!ReadNumber(file, count)) return false;
  for (std::uint64_t i = 0; i < count; ++i) {
    std::string between;
    if (!ReadLine(file, between)) return false;
    figures.redirected.insert(std::move(between));
  }
  return true;
}

pid_t Start(const Job& job, std::FILE* results) {
  std::fflush(stdout);
  const pid_t child = fork();
  if (child != 0) return child;
  Write(results, job.work());
  std::exit(EXIT_SUCCESS);  // Not _exit: what counts the lines that are run writes at exit.
}

Figures Finish(const RunningJob& running, int status) {
  Figures figures;
  const bool whole =
      Read(running.results, figures) && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  std::fclose(running.results);
  if (!whole) {
    figures.violations.push_back(
        {Invariant::kEndsByTheTable, "the job died: " + running.job->name, {}});
  }
  const std::chrono::duration<double> time = Clock::now() - running.started;
  std::fputs(TableRow(running.job->name, figures, time.count()).c_str(), stdout);
  std::fflush(stdout);
  return figures;
}

}  // namespace

Figures RunJobs(const std::vector<Job>& jobs, unsigned parallel, const Stop& stop) {
  Figures all;
  std::map<pid_t, RunningJob> running;
  std::size_t next = 0;
  const auto may_start = [&] { return next < jobs.size() && Clock::now() < stop.at; };
  while (may_start() || !running.empty()) {
    while (may_start() && running.size() < parallel) {
      RunningJob started{&jobs[next++], std::tmpfile(), Clock::now()};
      running[Start(*started.job, started.results)] = started;
    }
    int status = 0;
    const pid_t ended = wait(&status);
    const auto job = running.find(ended);
    if (job == running.end()) continue;
    all.Add(Finish(job->second, status));
    running.erase(job);
    if (stop.at_first && !all.violations.empty()) break;
  }
  for (const auto& [process, job] : running) {
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
  }
  return all;
}

}  // namespace tolvarine::updater::crash_lab
