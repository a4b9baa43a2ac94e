#include "simulated_windows/call_control.h"

#include <exception>

#include "simulated_windows/volume.h"

namespace tolvarine::updater::simulated {
namespace {

// No failure of Windows has this code, so that a test that prints it points here.
constexpr std::uint32_t kNoPower = 0x2BAD;

bool EndsWithFolded(std::u16string_view text, std::u16string_view suffix) {
  return suffix.empty() || FoldName(text).ends_with(FoldName(suffix));
}

}  // namespace

CallControl::CallControl() { no_power_.code = kNoPower; }

const Fault* CallControl::Enter(Call call, std::u16string_view path) {
  if (!power_is_off_) {
    const CallRecord record{call, ++occurrences_[static_cast<std::size_t>(call)], ++count_,
                            std::u16string(before_call || keep_trace ? path : u"")};
    if (keep_trace) trace.push_back(record);
    if (before_call) before_call(record);
  }
  if (power_is_off_) {
    // A second exception during unwinding, or one from a destructor, would end the test program.
    if (IsRelease(call) || std::uncaught_exceptions() > 0) return &no_power_;
    throw PowerCut{};
  }
  for (Fault& fault : faults_) {
    if (fault.call != call || !EndsWithFolded(path, fault.path_suffix)) continue;
    const std::uint64_t occurrence = ++fault.seen;
    if (occurrence >= fault.first && occurrence - fault.first < fault.times) return &fault;
  }
  return nullptr;
}

void CallControl::Reset() {
  faults_.clear();
  trace.clear();
  occurrences_.fill(0);
  count_ = 0;
  power_is_off_ = false;
}

}  // namespace tolvarine::updater::simulated
