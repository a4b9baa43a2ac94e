// The command line, the message box, and the start of a program.

#include "platform/shell.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "platform/error_codes.h"
#include "platform/files.h"
#include "simulated_windows/call_failure.h"

namespace tolvarine::updater::platform {

using simulated::Call;
using simulated::Computer;
using simulated::FailCall;
using simulated::Fault;

namespace {

// For an empty command line the call returns the path of the running program.
constexpr std::u16string_view kProgramPath = u"C:\\Program Files\\Tolvarine\\TolvarineUpdater.exe";

// Splits a command line as CommandLineToArgvW does. The C runtime treats quotes differently.
class CommandLineSplitter {
 public:
  explicit CommandLineSplitter(std::u16string_view line) : line_(line) {}

  std::vector<std::u16string> Split() {
    std::vector<std::u16string> arguments;
    if (line_.empty()) return {std::u16string(kProgramPath)};
    arguments.push_back(TakeProgram());
    SkipBlanks();
    while (!AtEnd()) {
      arguments.push_back(TakeArgument());
      SkipBlanks();
    }
    return arguments;
  }

 private:
  bool AtEnd() const { return at_ == line_.size(); }
  bool AtBlank() const { return line_[at_] == u' ' || line_[at_] == u'\t'; }

  void SkipBlanks() {
    while (!AtEnd() && AtBlank()) ++at_;
  }

  // The first argument is a path, in which backslashes escape nothing. If it begins with a quote,
  // it ends at the next quote; otherwise it ends at a blank, and quotes belong to it.
  std::u16string TakeProgram() {
    const bool quoted = line_.front() == u'"';
    const std::size_t start = quoted ? 1 : 0;
    const std::size_t end = line_.find_first_of(quoted ? u"\"" : u" \t", start);
    at_ = end == std::u16string_view::npos ? line_.size() : end + start;
    return std::u16string(line_.substr(start, end - start));
  }

  std::u16string TakeArgument() {
    std::u16string argument;
    bool quoted = false;
    while (!AtEnd() && (quoted || !AtBlank())) {
      const std::size_t backslashes = TakeRun(u'\\');
      if (AtEnd() || line_[at_] != u'"') {
        argument.append(backslashes, u'\\');
        if (backslashes == 0) argument.push_back(line_[at_++]);
        continue;
      }
      argument.append(backslashes / 2, u'\\');
      if (backslashes % 2 == 1) {
        argument.push_back(u'"');
        ++at_;
      }
      quoted = TakeQuotes(quoted, &argument);
    }
    return argument;
  }

  // A run of quotes. Every third one, counting the quote that is open, is a literal quote. One that
  // is left over opens; two cancel each other. Returns whether a quote is open.
  bool TakeQuotes(bool quoted, std::u16string* argument) {
    const std::size_t count = TakeRun(u'"') + (quoted ? 1 : 0);
    argument->append(count / 3, u'"');
    return count % 3 == 1;
  }

  std::size_t TakeRun(char16_t unit) {
    const std::size_t start = at_;
    while (!AtEnd() && line_[at_] == unit) ++at_;
    return at_ - start;
  }

  std::u16string_view line_;
  std::size_t at_ = 0;
};

// One block of memory with the vector, its null and the texts, since one LocalFree frees them all.
char16_t** Pack(const std::vector<std::u16string>& arguments) {
  const std::size_t vector_size = (arguments.size() + 1) * sizeof(char16_t*);
  std::size_t text_size = 0;
  for (const std::u16string& argument : arguments) {
    text_size += (argument.size() + 1) * sizeof(char16_t);
  }
  void* const memory = std::malloc(vector_size + text_size);
  if (memory == nullptr) return nullptr;
  auto* const vector = static_cast<char16_t**>(memory);
  auto* text = reinterpret_cast<char16_t*>(vector + arguments.size() + 1);
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    vector[i] = text;
    std::memcpy(text, arguments[i].c_str(), (arguments[i].size() + 1) * sizeof(char16_t));
    text += arguments[i].size() + 1;
  }
  vector[arguments.size()] = nullptr;
  return vector;
}

std::intptr_t StartResult(const Computer& computer, const char16_t* file) {
  constexpr std::intptr_t kStarted = 42;
  if (computer.desktop.shell_result) return *computer.desktop.shell_result;
  const auto entry = computer.disk.Look(file);
  const bool is_file = entry && (entry->attributes & kFileAttributeDirectory) == 0;
  return is_file ? kStarted : std::intptr_t{kErrorFileNotFound};
}

}  // namespace

const char16_t* GetCommandLineW() { return Computer::Current().desktop.command_line.c_str(); }

char16_t** CommandLineToArgvW(const char16_t* command_line, std::int32_t* count) {
  if (const Fault* fault = Computer::Current().calls.Enter(Call::CommandLineToArgvW)) {
    return FailCall<char16_t**>(fault->code, nullptr);
  }
  if (command_line == nullptr || count == nullptr) {
    return FailCall<char16_t**>(kErrorInvalidParameter, nullptr);
  }
  const std::vector<std::u16string> arguments = CommandLineSplitter(command_line).Split();
  *count = static_cast<std::int32_t>(arguments.size());
  return Pack(arguments);
}

void LocalFree(void* memory) { std::free(memory); }

std::int32_t MessageBoxW(const char16_t* text, const char16_t* title, std::uint32_t type) {
  Computer& computer = Computer::Current();
  if (const Fault* fault = computer.calls.Enter(Call::MessageBoxW)) return FailCall(fault->code, 0);
  const simulated::Box box{text, title, type};
  computer.desktop.boxes.push_back(box);
  if (computer.desktop.on_box) computer.desktop.on_box(box);
  return computer.desktop.pressed_button;
}

std::intptr_t ShellExecuteW(const char16_t* verb, const char16_t* file, const char16_t* directory,
                            std::int32_t show) {
  // The call's own results end at 32; a code beyond them is reported as one without a meaning.
  constexpr std::uint32_t kLastFailure = 32;
  constexpr std::intptr_t kOtherFailure = 31;
  Computer& computer = Computer::Current();
  if (const Fault* fault = computer.calls.Enter(Call::ShellExecuteW, file)) {
    const bool fits = fault->code <= kLastFailure;
    return FailCall(fault->code, fits ? std::intptr_t{fault->code} : kOtherFailure);
  }
  computer.desktop.starts.push_back({verb, file, directory, show});
  return StartResult(computer, file);
}

}  // namespace tolvarine::updater::platform
