// The command line: a fixed set of named options, each followed by its value.
//
// The parser is strict by design: no defaults for required options, no abbreviations, no repeated
// options, no `--name=value`, no option without a value. It reports no reason for a refusal and
// touches no file. It stores paths as given; ValidateRequest checks them.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "lists/managed_deletion_list.h"
#include "lists/source_inventory.h"
#include "text/path_algebra.h"

namespace tolvarine::updater {

struct UpdaterArguments {
  Path source;          // --source: the directory of the staged release.
  Path target;          // --target: the installation.
  Path restart;         // --restart: the program to start; relative to the target, or full.
  Path state_file;      // --state-file: the pending marker.
  Path completed_file;  // --completed-file: the completed marker.
  Path installed_manifest_file;           // --installed-manifest-file: the installed manifest.
  Path workspace;                         // --workspace: the protected update workspace.
  std::u16string update_id;               // --update-id: 64 lower-case hexadecimal digits.
  std::u16string install_key;             // --install-key: the same form.
  SourceInventory source_inventory;       // --source-inventory: its text form.
  ManagedDeletionList managed_deletions;  // --managed-deletions: its text form; optional.
  // --wait-pid: the process to wait for; 0 for none. Text after the digits is ignored.
  std::uint32_t wait_pid = 0;
  // --wait-process-created-at: its creation time, a raw file time (100 nanoseconds since 1601,
  // UTC). Required exactly if there is a process. Leading blanks and a sign are accepted, text
  // after the digits is not.
  std::uint64_t wait_process_created_at = 0;
  bool has_wait_process_created_at = false;
};

// Parses the argument vector, whose first element is the program's own name, into
// default-constructed arguments. Returns false if anything is not acceptable; the arguments may
// then be partly filled and must not be used. Throws only std::bad_alloc.
[[nodiscard]] bool ParseArguments(std::int32_t count, const char16_t* const* vector,
                                  UpdaterArguments& arguments);

// True for exactly 64 units, each 0-9 or a-f.
[[nodiscard]] bool IsInstallationIdentifier(std::u16string_view text);

}  // namespace tolvarine::updater
