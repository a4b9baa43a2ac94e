// Changes that tests make to the computer of a staged update, before the program runs or between
// two of its calls.

#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "files/failure.h"
#include "platform/files.h"
#include "simulated_update/simulated_update.h"
#include "support/failure_of.h"
#include "support/text_printers.h"

namespace tolvarine::updater {

using simulated::Call, simulated::CallRecord, simulated::FileSet, simulated::SimulatedUpdate;
using simulated::kAlways, simulated::TypicalPlan, simulated::UpdatePlan, simulated::Computer;

// Checks every case of a table. A case has a `name`, which a failure shows.
template <typename Cases, typename Check>
void ForEachCase(const Cases& cases, Check check) {
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    check(each);
  }
}

// Fails the test if nothing has called Fire when it is destroyed. A hook holds one, so that a hook
// that is never called is not taken for one that found nothing wrong.
class FiredCheck {
 public:
  explicit FiredCheck(std::string hook) : hook_(std::move(hook)) {}
  FiredCheck(const FiredCheck&) = delete;
  FiredCheck& operator=(const FiredCheck&) = delete;
  ~FiredCheck() { EXPECT_TRUE(fired_) << "never called: " << hook_; }

  void Fire() { fired_ = true; }

 private:
  std::string hook_;
  bool fired_ = false;
};

// Resolves a path of the update: S is the source, T the target, X the transaction directory, B its
// backup tree, W the workspace, K the stages. Any other path is returned unchanged.
inline Path Resolve(const SimulatedUpdate& update, const Path& path) {
  const inspection::UpdateLayout& layout = update.layout;
  const std::map<Path, Path> roots = {
      {u"S", update.source},    {u"T", update.target}, {u"X", layout.transaction},
      {u"W", layout.workspace}, {u"K", layout.stages}, {u"B", layout.transaction + u"\\backup"}};
  const auto root = roots.find(path.substr(0, path.find_first_of(u"\\/")));
  return root == roots.end() ? path : root->second + path.substr(1);
}

// Replaces every such path between two `|` in a text.
inline std::string ResolveIn(const SimulatedUpdate& update, std::string text) {
  for (std::size_t at = 0; (at = text.find('|', at)) != text.npos;) {
    const std::size_t length = text.find('|', at + 1) - at;
    const Path path(text.begin() + static_cast<std::ptrdiff_t>(at) + 1,
                    text.begin() + static_cast<std::ptrdiff_t>(at + length));
    text.replace(at, length + 1, NarrowPathText(Resolve(update, path)));
  }
  return text;
}

using Change = std::function<void(SimulatedUpdate&)>;

inline void NoChange(SimulatedUpdate&) {}

inline Change Write(const Path& path, const std::string& content = "") {
  return [=](SimulatedUpdate& u) { u.computer.disk.WriteFile(Resolve(u, path), content); };
}

inline Change Remove(const Path& path) {
  return [=](SimulatedUpdate& u) { u.computer.disk.Remove(Resolve(u, path)); };
}

inline Change Both(const Change& first, const Change& second) {
  return [=](SimulatedUpdate& u) { first(u), second(u); };
}

// The next three replace what the path names.
inline Change Directory(const Path& path) {
  return Both(Remove(path),
              [=](SimulatedUpdate& u) { u.computer.disk.MakeDirectory(Resolve(u, path)); });
}

inline Change Junction(const Path& path, const Path& to) {
  return Both(Remove(path), [=](SimulatedUpdate& u) {
    u.computer.disk.MakeJunction(Resolve(u, path), Resolve(u, to));
  });
}

inline Change Link(const Path& path, const Path& to) {
  return Both(Remove(path), [=](SimulatedUpdate& u) {
    u.computer.disk.MakeSymbolicLink(Resolve(u, path), to, false);
  });
}

inline Change ReadOnly(const Path& path) {
  return [=](SimulatedUpdate& u) { u.computer.disk.SetAttributes(Resolve(u, path), 1); };
}

// Another process opens the file, so that nobody can delete it.
inline Change Hold(const Path& path, std::uint32_t access = platform::kGenericRead) {
  return [=](SimulatedUpdate& u) { u.computer.disk.Hold(Resolve(u, path), access, 3); };
}

// Calls on paths with this suffix fail: `times` of them, from occurrence `first` on.
inline Change Inject(Call call, const Path& suffix, std::uint64_t first = 1,
                     std::uint64_t times = 1, std::uint32_t code = 5) {
  return [=](SimulatedUpdate& u) { u.computer.calls.Inject({call, first, times, code, suffix}); };
}

// Applies `change` before every call of this kind on a path with this suffix; there must be one.
inline Change Before(Call call, const Path& suffix, const Change& change) {
  return [=](SimulatedUpdate& u) {
    const auto check = std::make_shared<FiredCheck>("hook before " + std::string(CallName(call)) +
                                                    " " + Shown(suffix));
    u.computer.calls.before_call = [=, &u](const CallRecord& record) {
      if (record.call != call || !record.path.ends_with(suffix)) return;
      check->Fire();
      change(u);
    };
  };
}

}  // namespace tolvarine::updater
