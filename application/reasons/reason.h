// Why a verb was refused or failed: a stable name for programs, and a sentence for people that says
// what is wrong and what to do about it.

#pragma once

#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "text/path_algebra.h"

namespace tolvarine::updater::application {

// X(enumerator, name). The names are documented and never change their meaning.
// clang-format off
#define TOLVARINE_REASONS(X) \
  X(ElevatedCaller, "elevated-caller")              /* runs with an administrator's rights */ \
  X(TargetNotWritable, "target-not-writable") \
  X(StateNotWritable, "state-not-writable") \
  X(NotADirectory, "not-a-directory") \
  X(ReparsePointInPath, "link-in-path") \
  X(PathsOverlap, "paths-overlap") \
  X(UnsupportedFileSystem, "unsupported-file-system") /* FAT, exFAT */ \
  X(TwoVolumes, "two-volumes") \
  X(NoSpace, "no-space") \
  X(PathTooLong, "path-too-long") \
  X(ListTooLong, "list-too-long") \
  X(CommandLineTooLong, "command-line-too-long") \
  X(ReservedName, "reserved-name")                  /* log.txt, or a temporary's name */ \
  X(WrongKind, "wrong-kind")                        /* a directory or link where a file is meant */ \
  X(ReadOnlyFile, "read-only-file") \
  X(FileHeld, "file-held") \
  X(ProcessInTarget, "process-in-target") \
  X(ChangedFile, "changed-file")                    /* by somebody else */ \
  X(BadRestart, "bad-restart")                      /* the program to be started afterwards */ \
  X(BadRelease, "bad-release")                      /* signature or description */ \
  X(OldSequence, "old-sequence") \
  X(PackageMismatch, "package-mismatch")            /* a file that is not the one described */ \
  X(NothingToDo, "nothing-to-do") \
  X(LedgerDamaged, "ledger-damaged") \
  X(RequestDamaged, "request-damaged") \
  X(ProgramChanged, "program-changed") \
  X(ProcessGone, "process-gone")                    /* the process to wait for */ \
  X(KilledWithJob, "killed-with-job") \
  X(UnfinishedUpdate, "unfinished-update") \
  X(NoSuchUpdate, "no-such-update") \
  X(WrongState, "wrong-state") \
  X(Locked, "locked") \
  X(Cancelled, "cancelled") \
  X(NotTheRelease, "not-the-release")               /* adopt: the target holds something else */ \
  X(SystemFailure, "system-failure")
// clang-format on

enum class ReasonCode {
#define TOLVARINE_REASON(enumerator, name) enumerator,
  TOLVARINE_REASONS(TOLVARINE_REASON)
#undef TOLVARINE_REASON
};

[[nodiscard]] std::string_view NameOf(ReasonCode code);

struct Reason {
  ReasonCode code{};
  std::string text;      // UTF-8, a whole sentence or two; paths in double quotes.
  Path path{};           // The file or directory that it is about; may be empty.
  bool warning = false;  // It refuses nothing.
};

using Reasons = std::vector<Reason>;

// The reason of a failure: that of a VerbFailure itself, NoSpace for a full disk, and SystemFailure
// for any other, with the failure's text and what helps against it.
[[nodiscard]] Reason ReasonOf(const std::exception& failure);

// True where at least one is not a warning.
[[nodiscard]] bool Refuses(const Reasons& reasons);

// How a verb ended. The values are the tool's exit codes; 2 is its wrong usage.
enum class Outcome {
  Done = 0,
  Refused = 1,           // Or failed; the reasons say why.
  UnfinishedUpdate = 3,  // Refused because an unfinished update stands.
  Locked = 4,            // Another program works on the installation.
};

struct VerbResult {
  Outcome outcome = Outcome::Done;
  Reasons reasons{};  // Warnings too, for Done.
};

}  // namespace tolvarine::updater::application
