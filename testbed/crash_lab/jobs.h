// Jobs in processes of their own: the laboratory uses all processors although a process holds only
// one simulated computer, and it outlives a job that crashes.

#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "crash_lab/report.h"

namespace tolvarine::updater::crash_lab {

struct Job {
  std::string name;
  std::string again;  // The arguments that run it again, among others of its scenario.
  std::function<Figures()> work;
};

using Clock = std::chrono::steady_clock;

// The longest job of the bounded run took two minutes on two processors that ten programs shared.
// A job that takes fifteen times as long hangs, in a wide round and in a build that counts as well.
inline constexpr unsigned kJobLimit = 1800;  // Seconds.

// When jobs are not started any more, or ended.
struct Stop {
  bool at_first = false;  // After the first that finds a violation; those that run are killed.
  Clock::time_point at = Clock::time_point::max();  // No job is started after it.
  unsigned job_limit = kJobLimit;                   // Seconds after which a job is killed.
};

// Runs the jobs, `parallel` at a time, and prints a row for each as it ends. Returns the sum of
// their figures. A job that does not end by itself, or whose figures are incomplete, is among the
// failed jobs.
Figures RunJobs(const std::vector<Job>& jobs, unsigned parallel, const Stop& stop = {});

}  // namespace tolvarine::updater::crash_lab
