// Short words for what happens on the machine of a staged update: paths, and the acts of others.

#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>

#include "files/failure.h"
#include "platform/files.h"
#include "simulated_update/simulated_update.h"
#include "support/text_printers.h"

namespace tolvarine::updater {

using simulated::Call, simulated::CallRecord, simulated::FileSet, simulated::SimulatedUpdate;
using simulated::kAlways, simulated::TypicalPlan, simulated::UpdatePlan, simulated::Computer;

template <typename Rows, typename Check>
void ForEachRow(const Rows& rows, Check check) {
  int number = 0;
  for (const auto& row : rows) {
    SCOPED_TRACE("row " + std::to_string(++number));
    check(row);
  }
}

// The text of what is thrown; empty if nothing is.
template <typename Operation>
std::string FailureOf(Operation operation) {
  try {
    operation();
    return {};
  } catch (const std::exception& failure) {
    return failure.what();
  }
}

// A path of the update: S below the source, T the target, X the transaction directory, B its backup
// tree, W the workspace, K the stages. Any other path is itself.
inline Path Place(const SimulatedUpdate& update, const Path& path) {
  const staging::UpdateLayout& layout = update.layout;
  const std::map<Path, Path> roots = {
      {u"S", update.source},    {u"T", update.target}, {u"X", layout.transaction},
      {u"W", layout.workspace}, {u"K", layout.stages}, {u"B", layout.transaction + u"\\backup"}};
  const auto root = roots.find(path.substr(0, path.find_first_of(u"\\/")));
  return root == roots.end() ? path : root->second + path.substr(1);
}

// A text in which such a path stands between two `|`.
inline std::string Text(const SimulatedUpdate& update, std::string text) {
  for (std::size_t at = 0; (at = text.find('|', at)) != text.npos;) {
    const std::size_t length = text.find('|', at + 1) - at;
    const Path path(text.begin() + static_cast<std::ptrdiff_t>(at) + 1,
                    text.begin() + static_cast<std::ptrdiff_t>(at + length));
    text.replace(at, length + 1, NarrowPathText(Place(update, path)));
  }
  return text;
}

using Act = std::function<void(SimulatedUpdate&)>;

inline void Nothing(SimulatedUpdate&) {}

inline Act Write(const Path& path, const std::string& content = "") {
  return [=](SimulatedUpdate& u) { u.computer.disk.WriteFile(Place(u, path), content); };
}

inline Act Remove(const Path& path) {
  return [=](SimulatedUpdate& u) { u.computer.disk.Remove(Place(u, path)); };
}

inline Act Both(const Act& first, const Act& second) {
  return [=](SimulatedUpdate& u) { first(u), second(u); };
}

// The next three take the place of what stands there.
inline Act Directory(const Path& path) {
  return Both(Remove(path),
              [=](SimulatedUpdate& u) { u.computer.disk.MakeDirectory(Place(u, path)); });
}

inline Act Junction(const Path& path, const Path& to) {
  return Both(Remove(path), [=](SimulatedUpdate& u) {
    u.computer.disk.MakeJunction(Place(u, path), Place(u, to));
  });
}

inline Act Link(const Path& path, const Path& to) {
  return Both(Remove(path), [=](SimulatedUpdate& u) {
    u.computer.disk.MakeSymbolicLink(Place(u, path), to, false);
  });
}

inline Act ReadOnly(const Path& path) {
  return [=](SimulatedUpdate& u) { u.computer.disk.SetAttributes(Place(u, path), 1); };
}

// Another process reads or writes the file, and lets nobody delete it.
inline Act Hold(const Path& path, std::uint32_t access = platform::kGenericRead) {
  return [=](SimulatedUpdate& u) { u.computer.disk.Hold(Place(u, path), access, 3); };
}

// Calls on paths with this end fail from one of them on.
inline Act Inject(Call call, const Path& end, std::uint64_t first = 1, std::uint64_t times = 1,
                  std::uint32_t code = 5) {
  return [=](SimulatedUpdate& u) { u.computer.calls.Inject({call, first, times, code, end}); };
}

// Right before every call of this kind on a path with this end.
inline Act Before(Call call, const Path& end, const Act& act) {
  return [=](SimulatedUpdate& u) {
    u.computer.calls.before_call = [=, &u](const CallRecord& record) {
      if (record.call == call && record.path.ends_with(end)) act(u);
    };
  };
}

}  // namespace tolvarine::updater
