// The words in which tests of files speak: what an act throws, and how it fares when one of its
// calls fails, each in turn.

#pragma once

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

#include "files/failure.h"
#include "platform/files.h"
#include "support/simulated_fixture.h"

namespace tolvarine::updater {

using simulated::kAlways;

// The kind, code and text of what an act throws, with * for the system's message; "done" where it
// throws nothing.
template <typename Act>
std::string Thrown(Act act) {
  const auto told = [](const char* kind, const auto& failure) {
    std::string text = failure.what();
    const std::string message = SystemMessage(failure.code());
    text.replace(text.find(message), message.size(), "*");
    return kind + std::to_string(failure.code()) + ": " + text;
  };
  try {
    static_cast<void>(act());
    return "done";
  } catch (const SystemError& failure) {
    return told("system ", failure);
  } catch (const FilesystemError& failure) {
    return told("filesystem ", failure);
  } catch (const std::runtime_error& failure) {
    return std::string("runtime: ") + failure.what();
  }
}

class FileFixture : public SimulatedFixture {
 protected:
  // The next calls of a kind fail, `times` of them from the `first` on, or move so many bytes; only
  // those whose path ends in `name` count. Earlier plans are dropped.
  void Inject(Call call, std::uint32_t code, std::u16string_view name = {}, std::uint64_t first = 1,
              std::uint64_t times = 1, std::optional<std::uint32_t> partial = {}) {
    computer.calls.ClearFaults();
    computer.calls.Inject({call, first, times, code, std::u16string(name), partial});
  }

  // Whether somebody else can open a file in a way.
  bool IsFree(const Path& path, std::uint32_t access,
              std::uint32_t sharing = platform::kFileShareAll) {
    const auto held = computer.disk.Hold(path, access, sharing);
    computer.disk.Release(held);
    return held != platform::kInvalidHandle;
  }

  // Does something when a call is about to be made.
  void Before(Call call, const std::function<void()>& act) {
    computer.calls.before_call = [=](const simulated::CallRecord& record) {
      if (record.call == call) act();
    };
  }

  // How often an act makes a call.
  template <typename Act>
  std::ptrdiff_t Count(Call call, Act act) {
    computer.calls.trace.clear();
    computer.calls.keep_trace = true;
    act();
    computer.calls.keep_trace = false;
    return std::ranges::count(computer.calls.trace, call, &simulated::CallRecord::call);
  }

  // Does an act once for each of its calls, which fails, and once in peace. A line tells the call,
  // the last name of its path, and the act's words; so the lines are the act's calls, in order, behind an
  // empty one.
  template <typename Prepare, typename Act>
  std::string FailingEachCall(Prepare prepare, Act act, std::uint32_t code = 5) {
    std::string lines = "\n";
    bool fails = true;
    for (std::uint64_t failing = 1; fails; ++failing) {
      prepare();
      std::string line = "in peace";
      fails = false;
      std::uint64_t made = 0;
      computer.calls.before_call = [&](const simulated::CallRecord& record) {
        if (record.call >= Call::WideCharToMultiByte || ++made != failing) return;
        fails = true;
        const std::string name = Shown(LastComponent(record.path));
        line = std::string(CallName(record.call)) + (name.empty() ? "" : " ") + name;
        computer.calls.Inject({.call = record.call, .code = code});
      };
      const std::string words = act();
      computer.calls.before_call = nullptr;
      computer.calls.ClearFaults();
      lines.append(line).append(": ").append(words).append("\n");
    }
    return lines;
  }
};

}  // namespace tolvarine::updater
