// A run of the updater that throws what its first argument names: it stands in for the real one, to
// see how the entry point ends the process.

#include <new>
#include <stdexcept>
#include <string_view>

#include "driver/main_sequence.h"
#include "platform/shell.h"

namespace tolvarine::updater {

std::int32_t RunUpdater() {
  std::int32_t count = 0;
  char16_t** const arguments = platform::CommandLineToArgvW(platform::GetCommandLineW(), &count);
  const std::u16string_view name = count == 2 ? arguments[1] : u"";
  if (name == u"bad_alloc") throw std::bad_alloc();
  if (name == u"out_of_range") throw std::out_of_range("index");
  if (name == u"int") throw 1;
  return 0;
}

}  // namespace tolvarine::updater
