// What a test does with the calls of a simulated computer: it counts and records them, injects
// faults, acts between two of them, and cuts the power.
//
// A fault makes a call fail with a chosen code at chosen occurrences, or transfer fewer bytes than
// requested. When the power is cut, calls throw PowerCut. Calls made by destructors, or while
// another exception propagates, cannot throw: they fail silently and change nothing.

#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulated_windows/call.h"

namespace tolvarine::updater::simulated {

// Thrown by calls once the power is cut. It does not derive from std::exception, so that no handler
// for failures catches it.
struct PowerCut {};

// A call that is about to be made.
struct CallRecord {
  Call call{};
  std::uint64_t occurrence = 0;  // Among the calls of its kind, from 1.
  std::uint64_t index = 0;       // Among all calls, from 1.
  std::u16string path;           // The first path argument, or that of the handle; may be empty.
};

// For Fault::times: at every occurrence from the first one on.
inline constexpr std::uint64_t kAlways = ~std::uint64_t{0};

// An injected fault.
struct Fault {
  Call call{};
  std::uint64_t first = 1;  // The first occurrence that fails, from 1.
  std::uint64_t times = 1;  // How many occurrences fail.
  std::uint32_t code = 5;   // A Win32 code; a status for the hash calls.
  // Only calls whose path ends in this text (in any case) count as occurrences; empty matches all.
  std::u16string path_suffix{};
  // If set, the call transfers at most this many bytes: WriteFile and fwrite then report success
  // with a short count; CopyFileW fails with `code` and leaves that many bytes at its destination.
  std::optional<std::uint32_t> partial{};
  std::uint64_t seen = 0;  // State: how many calls have matched.
};

class CallControl {
 public:
  CallControl();

  void Inject(Fault fault) { faults_.push_back(std::move(fault)); }
  void ClearFaults() { faults_.clear(); }

  // Runs before every call, with its record. It may edit the disks, inject faults or cut the power.
  // It makes no calls itself.
  std::function<void(const CallRecord&)> before_call;

  // Records every call in `trace`.
  bool keep_trace = false;
  std::vector<CallRecord> trace;
  [[nodiscard]] std::uint64_t count() const { return count_; }

  // Until Computer::Restart no call changes anything any more.
  void CutPower() { power_is_off_ = true; }
  [[nodiscard]] bool power_is_off() const { return power_is_off_; }

  // Every call begins with this: it counts the call, runs `before_call`, and returns the fault that
  // is injected into the call, or null. Throws PowerCut when the power is off and an exception can
  // propagate; otherwise it then returns a fault.
  const Fault* Enter(Call call, std::u16string_view path = {});

  // Forgets faults, trace and counts, and turns the power on. `before_call` stays.
  void Reset();

 private:
  std::vector<Fault> faults_;
  std::array<std::uint64_t, kCallCount> occurrences_{};
  std::uint64_t count_ = 0;
  bool power_is_off_ = false;
  Fault no_power_;  // For calls that cannot throw when the power is off.
};

}  // namespace tolvarine::updater::simulated
