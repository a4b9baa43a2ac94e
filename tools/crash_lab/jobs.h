// Jobs in processes of their own, so that the laboratory uses all processors although a simulated
// world is one to a process, and survives whatever one of them dies of.

#pragma once

#include <functional>
#include <string>
#include <vector>

#include "crash_lab/report.h"

namespace tolvarine::updater::crash_lab {

struct Job {
  std::string name;
  std::function<Figures()> work;
};

// Runs the jobs, `parallel` at a time, and prints a row for each as it ends; with `stop_at_first`, no
// further than the first that finds a violation. Returns the sum of their figures. A job that dies
// counts as a violation.
Figures RunJobs(const std::vector<Job>& jobs, unsigned parallel, bool stop_at_first = false);

}  // namespace tolvarine::updater::crash_lab
