// For the tests of the lower layers: a simulated computer for each test, and tables of paths.

#pragma once

#include <algorithm>
#include <string>
#include <type_traits>
#include <vector>

#include "simulated_windows/computer.h"
#include "simulated_windows/file_system.h"
#include "simulated_windows/objects.h"
#include "support/text_printers.h"
#include "text/path_algebra.h"

namespace tolvarine::updater {

using simulated::Call;

class SimulatedFixture : public testing::Test {
 protected:
  SimulatedFixture() { computer.MakeCurrent(); }

  // No test may leave anything open.
  void TearDown() override {
    EXPECT_EQ(computer.files().open_handles(), 0u);
    EXPECT_EQ(computer.objects().open_hashes(), 0u);
    EXPECT_EQ(computer.objects().bad_closes(), 0u);
  }

  simulated::Computer computer;
};

// The parts between separators, without the blanks and line ends around them, unless empty.
inline std::vector<Path> Cells(PathView text, PathView separator) {
  std::vector<Path> cells;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(separator), text.size());
    PathView cell = text.substr(0, end);
    text.remove_prefix(std::min(end + separator.size(), text.size()));
    cell.remove_prefix(std::min(cell.find_first_not_of(u" \n"), cell.size()));
    cell = cell.substr(0, cell.find_last_not_of(u" \n") + 1);
    if (!cell.empty()) cells.emplace_back(cell);
  }
  return cells;
}

// A cell of a table.
inline std::string Cell(const std::string& text) { return text.empty() ? "~" : text; }
inline std::string Cell(PathView path) { return Cell(Shown(path)); }

// A table of "path = result" or "path + path = result", each ended by a semicolon; ~ is an empty
// path.
template <typename Operation>
void ExpectEach(Operation operation, PathView table) {
  for (const Path& row : Cells(table, u";")) {
    const std::vector<Path> sides = Cells(row, u" = ");
    std::vector<Path> given = Cells(sides.at(0), u" + ");
    for (Path& path : given) path = path == u"~" ? u"" : path;
    std::string result;
    if constexpr (std::is_invocable_v<Operation, Path, Path>) {
      result = Cell(operation(given.at(0), given.at(1)));
    } else {
      result = Cell(operation(given.at(0)));
    }
    EXPECT_EQ(result, Shown(sides.at(1))) << Shown(row);
  }
}

}  // namespace tolvarine::updater
