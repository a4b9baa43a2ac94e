// The verbs of the tool and their options: one table from which the command line is parsed, the help
// is written and the examples are tried.

#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "text/path_algebra.h"

namespace tolvarine::updater::update_tool {

// What the options of a command line say. Each verb uses some of them.
struct Options {
  Path target;
  Path state;
  std::vector<Path> keys;
  Path release;
  Path package;
  Path restart{u"Tolvarine.exe"};
  Path resumer{};
  Path updater;  // Empty for the one beside this program.
  Path resumer;  // Likewise.
  std::u16string id;
  std::uint32_t wait = 0;
  bool no_wait = false;
  std::uint64_t accept_sequence = 0;
  bool clear_read_only = false;
  std::string channel;
  std::string version;
  std::uint64_t sequence = 0;
  std::vector<Path> earlier;
  Path payload;
  Path to_sign;
  Path signature;
  Path output;
  bool json = false;
};

enum class Verb { Describe, Check, Prepare, Start, Status, Finish, Abandon, Adopt, Help };

struct OptionRow {
  std::u16string_view name;  // With its two hyphens.
  std::string_view value;    // What stands for its value in the help; empty for a switch.
  std::string_view help;
  // Takes the value; false for one that the option cannot have.
  bool (*fill)(Options&, std::u16string_view value);
  bool repeats = false;
};

enum class Need { Optional, Required };

struct VerbOption {
  std::u16string_view name;
  Need need = Need::Optional;
};

struct VerbRow {
  Verb verb;
  std::u16string_view name;
  std::string_view summary;  // One line.
  std::string_view help;     // Further lines.
  std::span<const VerbOption> options;
  std::string_view example;  // The arguments behind the program's name.
};

[[nodiscard]] std::span<const VerbRow> AllVerbs();
[[nodiscard]] const OptionRow& OptionNamed(std::u16string_view name);

// The help of one verb, or of the tool.
[[nodiscard]] std::string HelpOf(const VerbRow& verb);
[[nodiscard]] std::string HelpOfTool();

struct ParsedLine {
  const VerbRow* verb = nullptr;   // Null where the line is refused.
  const VerbRow* about = nullptr;  // For Help: the verb that it is asked of; may be null.
  Options options{};
  std::string refusal{};  // One line of UTF-8 that says what is wrong.
};

// Takes the arguments behind the program's own name.
[[nodiscard]] ParsedLine ParseLine(std::span<const std::u16string_view> arguments);

}  // namespace tolvarine::updater::update_tool
