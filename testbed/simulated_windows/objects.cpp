#include "simulated_windows/objects.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "platform/error_codes.h"
#include "platform/processes.h"
#include "simulated_windows/call_failure.h"

namespace tolvarine::updater::simulated {

using platform::Handle;
using platform::kInfinite;
using platform::kNullHandle;

namespace {

constexpr std::uint64_t kFileTimeUnitsPerMs = 10'000;

}  // namespace

// --- Processes -------------------------------------------------------------------------------

Handle KernelObjects::OpenProcess(std::uint32_t access, std::uint32_t process_id) {
  const auto found = computer_.processes.by_id.find(process_id);
  if (found == computer_.processes.by_id.end() || found->second.gone) {
    return FailCall(platform::kErrorInvalidParameter, kNullHandle);
  }
  const Process& process = found->second;
  if (process.open_error != 0) return FailCall(process.open_error, kNullHandle);
  const Handle handle = NextHandle();
  handles_.emplace(handle, OpenedProcess{process_id, access, process.creation_time});
  return handle;
}

bool KernelObjects::GetProcessTimes(Handle process, std::uint64_t* creation, std::uint64_t* exit,
                                    std::uint64_t* kernel, std::uint64_t* user) {
  const std::optional<OpenedProcess> opened = OpenedOrOwn(process);
  if (!opened) return FailCall(kErrorInvalidHandle, false);
  if ((opened->access & platform::kProcessQueryLimitedInformation) == 0) {
    return FailCall(platform::kErrorAccessDenied, false);
  }
  const std::optional<std::uint64_t> end = EndOf(*opened);
  const bool ended = end && *end <= computer_.clock.elapsed_ms;
  *creation = opened->creation_time;
  *exit = ended ? opened->creation_time + *end * kFileTimeUnitsPerMs : 0;
  *kernel = 0;
  *user = 0;
  return true;
}

bool KernelObjects::GetExitCode(Handle process, std::uint32_t* exit_code) {
  constexpr std::uint32_t kStillActive = 259;
  const std::optional<OpenedProcess> opened = OpenedOrOwn(process);
  if (!opened) return FailCall(kErrorInvalidHandle, false);
  if ((opened->access & platform::kProcessQueryLimitedInformation) == 0) {
    return FailCall(platform::kErrorAccessDenied, false);
  }
  const std::optional<std::uint64_t> end = EndOf(*opened);
  const bool ended = end && *end <= computer_.clock.elapsed_ms;
  const auto record = computer_.processes.by_id.find(opened->id);
  const bool known = record != computer_.processes.by_id.end();
  *exit_code = ended ? (known ? record->second.exit_code : 0) : kStillActive;
  return true;
}

bool KernelObjects::TerminateProcess(Handle process, std::uint32_t exit_code) {
  if (process == platform::GetCurrentProcess()) {
    if (!computer_.calls.power_is_off()) computer_.processes.terminated_with = exit_code;
    return true;
  }
  const bool other = FindProcess(process) != nullptr;
  return FailCall(other ? platform::kErrorAccessDenied : kErrorInvalidHandle, false);
}

// When the opened process ends, as a value of Clock::elapsed_ms; nothing if it never does. It has
// ended already if its entry is missing or now describes another process with the same id.
std::optional<std::uint64_t> KernelObjects::EndOf(const OpenedProcess& process) const {
  const auto found = computer_.processes.by_id.find(process.id);
  const bool there = found != computer_.processes.by_id.end() && !found->second.gone &&
                     found->second.creation_time == process.creation_time;
  return there ? found->second.exits_after_ms : 0;
}

std::optional<KernelObjects::OpenedProcess> KernelObjects::OpenedOrOwn(Handle handle) {
  if (handle == platform::GetCurrentProcess()) {
    const std::uint32_t id = computer_.processes.own_id;
    const auto own = computer_.processes.by_id.find(id);
    if (own == computer_.processes.by_id.end()) return std::nullopt;
    return OpenedProcess{id, platform::kProcessQueryLimitedInformation, own->second.creation_time};
  }
  const OpenedProcess* opened = FindProcess(handle);
  return opened == nullptr ? std::nullopt : std::optional(*opened);
}

const Process* KernelObjects::QueryProcess(Handle process) {
  constexpr const Process* kNone = nullptr;
  const std::optional<OpenedProcess> opened = OpenedOrOwn(process);
  if (!opened) return FailCall(kErrorInvalidHandle, kNone);
  if ((opened->access & platform::kProcessQueryLimitedInformation) == 0) {
    return FailCall(platform::kErrorAccessDenied, kNone);
  }
  const std::optional<std::uint64_t> end = EndOf(*opened);
  if (end && *end <= computer_.clock.elapsed_ms) return FailCall(kErrorGenFailure, kNone);
  return &computer_.processes.by_id.at(opened->id);
}

bool KernelObjects::IsRunning(std::uint32_t process_id) const {
  const auto found = computer_.processes.by_id.find(process_id);
  if (found == computer_.processes.by_id.end() || found->second.gone) return false;
  const std::optional<std::uint64_t>& end = found->second.exits_after_ms;
  return !end || *end > computer_.clock.elapsed_ms;
}

Handle KernelObjects::AddToken(Token token) {
  return handles_.emplace(NextHandle(), token).first->first;
}

const KernelObjects::Token* KernelObjects::FindToken(Handle token) const {
  const auto found = handles_.find(token);
  return found == handles_.end() ? nullptr : std::get_if<Token>(&found->second);
}

Handle KernelObjects::AddRegistryKey(RegistryKey key) {
  return handles_.emplace(NextHandle(), std::move(key)).first->first;
}

const KernelObjects::RegistryKey* KernelObjects::FindRegistryKey(Handle key) const {
  const auto found = handles_.find(key);
  return found == handles_.end() ? nullptr : std::get_if<RegistryKey>(&found->second);
}

// --- Mutexes ---------------------------------------------------------------------------------

Handle KernelObjects::CreateMutex(bool initial_owner, const std::u16string& name) {
  const auto refused = computer_.processes.mutex_create_errors.find(name);
  if (refused != computer_.processes.mutex_create_errors.end())
    return FailCall(refused->second, kNullHandle);

  std::shared_ptr<Mutex> mutex = name.empty() ? nullptr : FindMutexByName(name);
  const bool existed = mutex != nullptr || computer_.processes.mutex_holders.contains(name);
  if (mutex == nullptr) mutex = std::make_shared<Mutex>(Mutex{name, 0});
  if (initial_owner && !existed) mutex->depth = 1;
  const Handle handle = NextHandle();
  handles_.emplace(handle, std::move(mutex));
  computer_.last_error = existed ? platform::kErrorAlreadyExists : platform::kErrorSuccess;
  return handle;
}

bool KernelObjects::ReleaseMutex(Handle mutex) {
  Mutex* const held = FindMutex(mutex);
  if (held == nullptr) return FailCall(kErrorInvalidHandle, false);
  if (held->depth == 0) return FailCall(kErrorNotOwner, false);
  --held->depth;
  return true;
}

std::shared_ptr<KernelObjects::Mutex> KernelObjects::FindMutexByName(
    const std::u16string& name) const {
  for (const auto& [handle, object] : handles_) {
    const auto* mutex = std::get_if<std::shared_ptr<Mutex>>(&object);
    if (mutex != nullptr && (*mutex)->name == name) return *mutex;
  }
  return nullptr;
}

// --- Waiting ---------------------------------------------------------------------------------

std::uint32_t KernelObjects::Wait(Handle handle, std::uint32_t milliseconds) {
  if (const OpenedProcess* process = FindProcess(handle)) {
    return WaitForProcess(*process, milliseconds);
  }
  if (Mutex* mutex = FindMutex(handle)) return WaitForMutex(*mutex, milliseconds);
  return FailCall(kErrorInvalidHandle, platform::kWaitFailed);
}

std::uint32_t KernelObjects::WaitForProcess(const OpenedProcess& process,
                                            std::uint32_t milliseconds) {
  if ((process.access & platform::kSynchronize) == 0) {
    return FailCall(platform::kErrorAccessDenied, platform::kWaitFailed);
  }
  return PassUntil(EndOf(process), milliseconds) ? platform::kWaitObject0 : platform::kWaitTimeout;
}

std::uint32_t KernelObjects::WaitForMutex(Mutex& mutex, std::uint32_t milliseconds) {
  const auto holder = computer_.processes.mutex_holders.find(mutex.name);
  if (mutex.depth > 0 || holder == computer_.processes.mutex_holders.end()) {
    ++mutex.depth;
    return platform::kWaitObject0;
  }
  const bool dies = holder->second.dies;
  std::optional<std::uint64_t> end = holder->second.releases_after_ms;
  if (dies && !end) end = 0;
  if (!PassUntil(end, milliseconds)) return platform::kWaitTimeout;
  computer_.processes.mutex_holders.erase(holder);
  ++mutex.depth;
  return dies ? platform::kWaitAbandoned : platform::kWaitObject0;
}

// Advances the clock to `time`, or to the end of the timeout if that comes first; true for `time`.
bool KernelObjects::PassUntil(std::optional<std::uint64_t> time, std::uint32_t milliseconds) {
  const std::uint64_t now = computer_.clock.elapsed_ms;
  const bool infinite = milliseconds == kInfinite;
  if (time && (infinite || *time <= now + milliseconds)) {
    computer_.clock.elapsed_ms = std::max(now, *time);
    return true;
  }
  if (infinite) {
    (void)std::fputs("simulated Windows: an infinite wait for what never happens\n", stderr);
    std::abort();
  }
  computer_.clock.elapsed_ms = now + milliseconds;
  return false;
}

// --- Hashing ---------------------------------------------------------------------------------

Handle KernelObjects::AddAlgorithm(std::u16string name) {
  return algorithms_.emplace(NextHandle(), std::move(name)).first->first;
}

const std::u16string* KernelObjects::FindAlgorithm(Handle algorithm) const {
  const auto found = algorithms_.find(algorithm);
  return found == algorithms_.end() ? nullptr : &found->second;
}

bool KernelObjects::CloseAlgorithm(Handle algorithm) {
  return algorithms_.erase(algorithm) == 1 || CountBadClose(algorithm);
}

Handle KernelObjects::AddHash(void* memory) {
  return hashes_.emplace(NextHandle(), Hash{memory, false}).first->first;
}

KernelObjects::Hash* KernelObjects::FindHash(Handle hash) {
  const auto found = hashes_.find(hash);
  return found == hashes_.end() ? nullptr : &found->second;
}

bool KernelObjects::CloseHash(Handle hash) {
  return hashes_.erase(hash) == 1 || CountBadClose(hash);
}

Handle KernelObjects::AddKey(Key key) {
  return keys_.emplace(NextHandle(), std::move(key)).first->first;
}

KernelObjects::Key KernelObjects::FindKey(Handle key) const {
  const auto found = keys_.find(key);
  return found == keys_.end() ? nullptr : found->second;
}

bool KernelObjects::CloseKey(Handle key) { return keys_.erase(key) == 1 || CountBadClose(key); }

// --- Handles ---------------------------------------------------------------------------------

bool KernelObjects::Close(Handle handle) {
  return handles_.erase(handle) == 1 || CountBadClose(handle);
}

void KernelObjects::Reset() {
  handles_.clear();
  algorithms_.clear();
  hashes_.clear();
  keys_.clear();
  restart_sessions.clear();
}

Handle KernelObjects::NextHandle() {
  const Handle handle = next_;
  next_ += 4;
  return handle;
}

// Always false. A handle that is no object's (but a file's, say) is not counted.
bool KernelObjects::CountBadClose(Handle handle) {
  if (handle >= kFirstHandle && handle < next_) ++bad_closes_;
  return false;
}

KernelObjects::OpenedProcess* KernelObjects::FindProcess(Handle handle) {
  const auto found = handles_.find(handle);
  return found == handles_.end() ? nullptr : std::get_if<OpenedProcess>(&found->second);
}

KernelObjects::Mutex* KernelObjects::FindMutex(Handle handle) {
  const auto found = handles_.find(handle);
  if (found == handles_.end()) return nullptr;
  const auto* mutex = std::get_if<std::shared_ptr<Mutex>>(&found->second);
  return mutex == nullptr ? nullptr : mutex->get();
}

}  // namespace tolvarine::updater::simulated
