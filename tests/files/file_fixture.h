// For the tests of files: what an operation throws, and faults in the calls that it makes.

#pragma once

#include <optional>
#include <stdexcept>
#include <string>

#include "files/failure.h"
#include "platform/files.h"
#include "support/simulated_fixture.h"

namespace tolvarine::updater {

using simulated::kAlways;

// The kind, code and text of what an operation throws, with * for the system's message; "done" if
// it throws nothing.
template <typename Operation>
std::string Thrown(Operation operation) {
  const auto describe = [](const char* kind, const auto& failure) {
    std::string text = failure.what();
    const std::string message = SystemMessage(failure.code());
    text.replace(text.find(message), message.size(), "*");
    return kind + std::to_string(failure.code()) + ": " + text;
  };
  try {
    static_cast<void>(operation());
    return "done";
  } catch (const SystemError& failure) {
    return describe("system ", failure);
  } catch (const FilesystemError& failure) {
    return describe("filesystem ", failure);
  } catch (const std::runtime_error& failure) {
    return std::string("runtime: ") + failure.what();
  }
}

class FileFixture : public SimulatedFixture {
 protected:
  // Replaces earlier faults. Calls of a kind whose path ends in `name` fail, `times` of them from
  // the `first` on, or move only `partial` bytes.
  void Inject(Call call, std::uint32_t code, std::u16string_view name = {}, std::uint64_t first = 1,
              std::uint64_t times = 1, std::optional<std::uint32_t> partial = {}) {
    computer.calls.ClearFaults();
    computer.calls.Inject({call, first, times, code, std::u16string(name), partial});
  }

  // Whether another process could open a file this way.
  bool CanOpen(const Path& path, std::uint32_t access,
               std::uint32_t sharing = platform::kFileShareAll) {
    const auto held = computer.disk.Hold(path, access, sharing);
    computer.disk.Release(held);
    return held != platform::kInvalidHandle;
  }

  // Runs an operation, and `hook` before each of its calls of a kind. There must be one.
  template <typename Hook, typename Operation>
  void RunWithHook(Call call, Hook hook, Operation operation) {
    bool fired = false;
    computer.calls.before_call = [&](const simulated::CallRecord& record) {
      if (record.call != call) return;
      fired = true;
      hook();
    };
    operation();
    computer.calls.before_call = nullptr;
    EXPECT_TRUE(fired) << CallName(call) << " was not called";
  }

  // How many calls of a kind an operation makes.
  template <typename Operation>
  std::ptrdiff_t Count(Call call, Operation operation) {
    computer.calls.trace.clear();
    computer.calls.keep_trace = true;
    operation();
    computer.calls.keep_trace = false;
    return std::ranges::count(computer.calls.trace, call, &simulated::CallRecord::call);
  }
};

}  // namespace tolvarine::updater
