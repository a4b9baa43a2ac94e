// The managed deletion list: see list_properties.h.

#include "lists/managed_deletion_list.h"

#include "list_properties.h"

namespace tolvarine::updater::fuzz {
namespace {

constexpr ListKind<Path> kDeletions = {ParseManagedDeletionList, SerializeManagedDeletionList,
                                       [](const Path& path) { return path; },
                                       [](const Path& path) { return path; }, false};

}  // namespace
}  // namespace tolvarine::updater::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tolvarine::updater::fuzz;
  ExpectListProperties(kDeletions, Bytes(data, size));
  return 0;
}
