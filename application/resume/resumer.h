// The resumer: supervises the update that was just asked for, finishes the one that an interruption
// has left, and settles what has ended. TolvarineResume.exe is this and an entry point.
//
// It holds S\lock from beginning to end, so that one resumer works and every other steps aside, and
// gives the mutex to each updater that it starts. It starts an updater
//
//   - for an update that is applying, restoring or committed, and
//   - for one that is prepared or backing-up where launched.json stands;
//
// one that is restored is never tried again unless it was just asked for. Before, it waits 60 seconds
// for the processes of the installation to end, and then names them in a box. After an updater has
// ended it reads the state again:
//
//   installed             the whole installation is verified; what differs is prepared again from the
//                         same release, once; then everything is finished as Finish does it
//   restored, or nothing  the result is noted, and the application is started again
//     changed
//   not whole             another updater is started; where the same happens twice, a box says so
//
// Nothing but an updater is started while the installation is not whole. Every step can be cut off
// anywhere: the next logon goes on.

#pragma once

#include <cstdint>

#include "resume/resume_arguments.h"
#include "state/state_directory.h"

namespace tolvarine::updater::application {

// How a resumer ends. Only tests and logs look at it.
enum class ResumeResult : std::int32_t {
  Done = 0,            // Nothing is left to resume.
  Stuck = 1,           // It could not go on, and has said so in a box.
  WrongArguments = 2,  // It has said so in a box.
  Postponed = 3,       // A person wants the update to wait for the next logon.
  Locked = 4,          // Another program works on the installation.
};

// The installation whose state directory a program lies in, as S\p\<16 digits>\<program>. The target is
// what the requests, journals or the ledger name. Throws std::runtime_error where there is none, or
// where the directory belongs to another target.
[[nodiscard]] Installation InstallationOfProgram(const Path& program);

// Runs the resumer with the command line of this process. Throws nothing but exhausted memory.
[[nodiscard]] ResumeResult RunResumer();

}  // namespace tolvarine::updater::application
