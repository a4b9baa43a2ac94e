// The objects that the program reaches through handles other than those of files: processes,
// mutexes, hash providers and hashes.
//
// A process or a mutex exists in the computer (Computer::processes, Computer::mutex_holders); what stands
// here is this program's handles to it, and its own hold on a mutex. The furniture of the computer is
// read anew at each call, so that somebody else may act between two of them.
//
// Handles begin at kFirstHandle, are multiples of 4, and none is ever given out twice by one
// KernelObjects: a stale handle is always an invalid one, and closing it is counted. What the
// program leaked is what is still open when it ends.
//
// There is one thread: whatever this program holds, that thread owns. Functions that can fail leave
// their code in Computer::last_error, as the calls do; none counts as a call or asks for a fault.

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <variant>

#include "platform/handles.h"
#include "simulated_windows/computer.h"

namespace tolvarine::updater::simulated {

class KernelObjects {
 public:
  // Below it are the handles of files.
  static constexpr platform::Handle kFirstHandle = 0x10000000;

  // Keeps the reference: `world` is the one that owns it, and is current whenever it is used.
  explicit KernelObjects(Computer& computer) : computer_(computer) {}

  // --- Processes -----------------------------------------------------------------------------

  // An ended process can be opened until it is `gone`. Null on failure.
  platform::Handle OpenProcess(std::uint32_t access, std::uint32_t process_id);

  // The exit time is 0 while the process runs; kernel and user time are always 0.
  bool GetProcessTimes(platform::Handle process, std::uint64_t* creation, std::uint64_t* exit,
                       std::uint64_t* kernel, std::uint64_t* user);

  // Of this process only: it records the code in Computer::terminated_with and returns, since the test
  // lives on. A handle from OpenProcess never has the right to end anything (5).
  bool TerminateProcess(platform::Handle process, std::uint32_t exit_code);

  // --- Mutexes -------------------------------------------------------------------------------

  // An empty name makes one of its own. Leaves 183 as the last error where the name existed, be it
  // through Computer::mutex_holders or through a handle of this program, and 0 where it did not.
  platform::Handle CreateMutex(bool initial_owner, const std::u16string& name);
  bool ReleaseMutex(platform::Handle mutex);

  // --- Waiting -------------------------------------------------------------------------------

  // Lets Computer::elapsed_ms run up to the moment that ends the wait: the process's end, the
  // holder's release or death, or the timeout. A tie goes to the event. A holder that has given
  // the mutex up is removed from Computer::mutex_holders when the wait takes it; one that `dies` at
  // no stated time is dead already. A wait that could never end aborts the test program.
  std::uint32_t Wait(platform::Handle handle, std::uint32_t milliseconds);

  // --- Hashing -------------------------------------------------------------------------------

  // A hash's working state is in the program's own memory, as on Windows, so that a sanitizer sees
  // memory that was given back too early.
  struct Hash {
    void* memory = nullptr;
    bool finished = false;
  };

  platform::Handle AddAlgorithm();
  bool IsAlgorithm(platform::Handle algorithm) const { return algorithms_.contains(algorithm); }
  bool CloseAlgorithm(platform::Handle algorithm);

  platform::Handle AddHash(void* memory);
  Hash* FindHash(platform::Handle hash);  // Null where it is not open.
  bool CloseHash(platform::Handle hash);

  // --- Closing and counting ------------------------------------------------------------------

  // Closes a process or a mutex. False where it is neither; the last error is then the caller's.
  // A mutex closed while owned stays owned as long as another handle to it is open.
  bool Close(platform::Handle handle);

  std::size_t open_handles() const { return handles_.size(); }  // CloseHandle's.
  std::size_t open_hashes() const { return algorithms_.size() + hashes_.size(); }
  std::size_t bad_closes() const { return bad_closes_; }  // Of handles that were not open.

  // The machine restarts: nothing is open or owned any more.
  void Reset();

 private:
  struct OpenedProcess {
    std::uint32_t id = 0;
    std::uint32_t access = 0;
    std::uint64_t creation_time = 0;
  };

  struct Mutex {
    std::u16string name;
    std::uint32_t depth = 0;  // How often this program owns it.
  };

  using Object = std::variant<OpenedProcess, std::shared_ptr<Mutex>>;

  platform::Handle NextHandle();
  bool CountBadClose(platform::Handle handle);
  OpenedProcess* FindProcess(platform::Handle handle);
  Mutex* FindMutex(platform::Handle handle);
  std::shared_ptr<Mutex> FindMutexByName(const std::u16string& name) const;
  std::optional<std::uint64_t> EndOf(const OpenedProcess& process) const;
  std::uint32_t WaitForProcess(const OpenedProcess& process, std::uint32_t milliseconds);
  std::uint32_t WaitForMutex(Mutex& mutex, std::uint32_t milliseconds);
  bool PassUntil(std::optional<std::uint64_t> moment, std::uint32_t milliseconds);

  Computer& computer_;
  platform::Handle next_ = kFirstHandle;
  std::map<platform::Handle, Object> handles_;
  std::set<platform::Handle> algorithms_;
  std::map<platform::Handle, Hash> hashes_;
  std::size_t bad_closes_ = 0;
};

}  // namespace tolvarine::updater::simulated
