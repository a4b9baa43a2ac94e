// The objects that the program reaches through handles other than those of files: processes,
// mutexes, hash providers and hashes.
//
// Processes and the mutexes of other processes are members of Computer::processes. KernelObjects
// has this program's handles to them and the mutexes that this program owns. Each call reads
// Computer::processes anew, since a test may change it between two calls.
//
// Handles begin at kFirstHandle and are multiples of 4. None is used twice, so that a handle that
// was closed stays invalid; closing it again is counted. What is still open when the program ends
// is what it leaked.
//
// The program has one thread, which owns every mutex that the program has acquired. Functions that
// can fail leave their code in Computer::last_error, as the calls do. None of them counts as a call
// or consults the injected faults.

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/handles.h"
#include "simulated_windows/computer.h"

namespace tolvarine::updater::simulated {

class KernelObjects {
 public:
  // The handles of files are smaller.
  static constexpr platform::Handle kFirstHandle = 0x10000000;

  // `computer` owns this object, and is current while a call uses it.
  explicit KernelObjects(Computer& computer) : computer_(computer) {}

  // --- Processes -----------------------------------------------------------------------------

  // A process that has ended can be opened until it is `gone`. Null on failure.
  platform::Handle OpenProcess(std::uint32_t access, std::uint32_t process_id);

  // The exit time is 0 while the process runs; kernel and user time are always 0.
  bool GetProcessTimes(platform::Handle process, std::uint64_t* creation, std::uint64_t* exit,
                       std::uint64_t* kernel, std::uint64_t* user);

  // 259 while the process runs.
  bool GetExitCode(platform::Handle process, std::uint32_t* exit_code);

  // For the handle of this process it leaves the code in ProcessTable::terminated_with and returns,
  // since the test continues. For any other process it fails with 5: the program never opens one
  // with the right to terminate it.
  bool TerminateProcess(platform::Handle process, std::uint32_t exit_code);

  // The record of a process, or of this one by its stand-in, for a call that asks about it. Null for
  // what is no process (6), a handle without the right to ask (5) and one that has ended (31).
  const Process* QueryProcess(platform::Handle process);
  // Whether the id names a process that has not ended.
  bool IsRunning(std::uint32_t process_id) const;

  struct Token {
    bool elevated = false;
  };

  platform::Handle AddToken(Token token);
  const Token* FindToken(platform::Handle token) const;  // Null where it is none.

  // --- Mutexes -------------------------------------------------------------------------------

  // A mutex without a name is always a new one. The last error is 183 where the name exists,
  // because another process holds it or this program has it open, and otherwise 0. Null on failure.
  platform::Handle CreateMutex(bool initial_owner, const std::u16string& name);
  bool ReleaseMutex(platform::Handle mutex);

  // --- Waiting -------------------------------------------------------------------------------

  // Advances Clock::elapsed_ms to the end of the wait: the process's end, the holder's release or
  // death, or the timeout. An event at the very time of the timeout counts as the event. When the
  // wait acquires a mutex, its holder is removed from ProcessTable::mutex_holders. A holder that
  // `dies` at no stated time is dead already. A wait that could never end aborts the test program.
  std::uint32_t Wait(platform::Handle handle, std::uint32_t milliseconds);

  // --- Hashing -------------------------------------------------------------------------------

  // The working state of a hash is in the program's own memory, as on Windows, so that a sanitizer
  // reports memory that is freed too early.
  struct Hash {
    void* memory = nullptr;
    bool finished = false;
  };

  platform::Handle AddAlgorithm(std::u16string name);
  // Its name; null where it is not open.
  const std::u16string* FindAlgorithm(platform::Handle algorithm) const;
  bool CloseAlgorithm(platform::Handle algorithm);

  platform::Handle AddHash(void* memory);
  Hash* FindHash(platform::Handle hash);  // Null where it is not open.
  bool CloseHash(platform::Handle hash);

  // A public key, whose type signing.cpp alone knows.
  using Key = std::shared_ptr<void>;

  platform::Handle AddKey(Key key);
  Key FindKey(platform::Handle key) const;  // Null where it is not open.
  bool CloseKey(platform::Handle key);

  // --- The restart manager -------------------------------------------------------------------

  // The open sessions, by number, with the files that each asks about.
  std::map<std::uint32_t, std::vector<std::u16string>> restart_sessions;

  // --- The registry --------------------------------------------------------------------------

  struct RegistryKey {
    std::u16string path;  // As FoldName gives it.
    std::uint32_t access = 0;
  };

  platform::Handle AddRegistryKey(RegistryKey key);
  const RegistryKey* FindRegistryKey(platform::Handle key) const;  // Null where it is not open.

  // --- Closing and counting ------------------------------------------------------------------

  // Closes the handle of any of these objects. False if it is of none; the caller then sets the
  // last error. A mutex stays owned while another handle to it is open.
  bool Close(platform::Handle handle);

  // CloseHandle's, and the sessions of the restart manager.
  std::size_t open_handles() const { return handles_.size() + restart_sessions.size(); }
  // With their providers, and keys.
  std::size_t open_hashes() const { return algorithms_.size() + hashes_.size() + keys_.size(); }
  std::size_t bad_closes() const { return bad_closes_; }  // Of handles that were not open.

  // The computer restarts: nothing is open or owned any more.
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

  using Object = std::variant<OpenedProcess, std::shared_ptr<Mutex>, Token, RegistryKey>;

  platform::Handle NextHandle();
  bool CountBadClose(platform::Handle handle);
  OpenedProcess* FindProcess(platform::Handle handle);
  // This process for its stand-in, otherwise the one that is open.
  std::optional<OpenedProcess> OpenedOrOwn(platform::Handle handle);
  Mutex* FindMutex(platform::Handle handle);
  std::shared_ptr<Mutex> FindMutexByName(const std::u16string& name) const;
  std::optional<std::uint64_t> EndOf(const OpenedProcess& process) const;
  std::uint32_t WaitForProcess(const OpenedProcess& process, std::uint32_t milliseconds);
  std::uint32_t WaitForMutex(Mutex& mutex, std::uint32_t milliseconds);
  bool PassUntil(std::optional<std::uint64_t> time, std::uint32_t milliseconds);

  Computer& computer_;
  platform::Handle next_ = kFirstHandle;
  std::map<platform::Handle, Object> handles_;
  std::map<platform::Handle, std::u16string> algorithms_;
  std::map<platform::Handle, Hash> hashes_;
  std::map<platform::Handle, Key> keys_;
  std::size_t bad_closes_ = 0;
};

}  // namespace tolvarine::updater::simulated
