#include "crash_lab/jobs.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>

namespace tolvarine::updater::crash_lab {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Violation, invariant, what, replay)

namespace {

using Json = nlohmann::json;

struct RunningJob {
  const Job* job = nullptr;
  std::FILE* results = nullptr;  // The child's figures as JSON, once it has ended.
  Clock::time_point started;
};

void Write(std::FILE* file, Figures figures) {
  Json numbers = Json::array();
  for (const std::uint64_t* field : figures.Fields()) numbers.push_back(*field);
  const Json json = {{"numbers", std::move(numbers)},
                     {"violations", figures.violations},
                     {"redirected", figures.redirected}};
  std::fputs(json.dump(-1, ' ', /*ensure_ascii=*/true, Json::error_handler_t::replace).c_str(),
             file);
  std::fflush(file);
}

// Nothing where the child did not write all of its figures.
std::optional<Figures> Read(std::FILE* file) {
  std::rewind(file);
  const Json json = Json::parse(file, nullptr, /*allow_exceptions=*/false);
  if (json.is_discarded()) return std::nullopt;
  Figures figures;
  const std::vector<std::uint64_t*> fields = figures.Fields();
  for (std::size_t i = 0; i < fields.size(); ++i) json.at("numbers").at(i).get_to(*fields[i]);
  json.at("violations").get_to(figures.violations);
  json.at("redirected").get_to(figures.redirected);
  return figures;
}

pid_t Start(const Job& job, std::FILE* results, unsigned limit) {
  std::fflush(stdout);
  const pid_t child = fork();
  if (child != 0) return child;
  alarm(limit);  // Its signal ends a process that does not handle it.
  Write(results, job.work());
  std::exit(EXIT_SUCCESS);  // Not _exit: a build that counts lines writes its counts at exit.
}

// Why a job did not end by itself; empty if it did.
std::string FailureOf(int status) {
  if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM) return "killed at its time limit";
  if (WIFSIGNALED(status)) return "killed by signal " + std::to_string(WTERMSIG(status));
  if (WEXITSTATUS(status) != 0) return "exit code " + std::to_string(WEXITSTATUS(status));
  return {};
}

Figures Finish(const RunningJob& running, int status) {
  std::string failure = FailureOf(status);
  const std::optional<Figures> read = failure.empty() ? Read(running.results) : std::nullopt;
  std::fclose(running.results);
  Figures figures = read.value_or(Figures());
  figures.jobs = read ? 1 : 0;
  if (!read) {
    if (failure.empty()) failure = "its figures are incomplete";
    figures.failed_jobs.push_back(running.job->name + ": " + failure + "\n  crash_lab " +
                                  running.job->again);
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
      running[Start(*started.job, started.results, stop.job_limit)] = started;
    }
    int status = 0;
    const pid_t ended = wait(&status);
    const auto job = running.find(ended);
    if (job == running.end()) continue;
    all.Add(Finish(job->second, status));
    running.erase(job);
    if (stop.at_first && !all.passed()) break;
  }
  for (const auto& [process, job] : running) {
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
  }
  return all;
}

}  // namespace tolvarine::updater::crash_lab
