// Jobs in processes of their own, so that the laboratory uses all processors although a simulated
// computer is one to a process, and survives whatever one of them dies of.

#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "crash_lab/report.h"

namespace tolvarine::updater::crash_lab {

struct Job {
  std::string name;
  std::function<Figures()> work;
};

using Clock = std::chrono::steady_clock;

// When no further job is to be started.
struct Stop {
  bool at_first = false;  // At the first that finds a violation; those that run are ended.
  Clock::time_point at = Clock::time_point::max();
};

// Runs the jobs, `parallel` at a time, and prints a row for each as it ends. Returns the sum of
// their figures. A job that dies counts as a violation.
Figures RunJobs(const std::vector<Job>& jobs, unsigned parallel, const Stop& stop = {});

}  // namespace tolvarine::updater::crash_lab
