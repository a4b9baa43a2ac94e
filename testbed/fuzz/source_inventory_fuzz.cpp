// The source inventory: see list_properties.h.

#include "lists/source_inventory.h"

#include "list_properties.h"

namespace tolvarine::updater::fuzz {
namespace {

constexpr ListKind<SourceInventoryEntry> kInventory = {
    ParseSourceInventory, SerializeSourceInventory,
    [](const SourceInventoryEntry& row) { return row.path; },
    [](const std::u16string& path) {
      return SourceInventoryEntry{path, path.size() << 32U, std::string(64, 'a')};
    },
    true};

}  // namespace
}  // namespace tolvarine::updater::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tolvarine::updater::fuzz;
  ExpectListProperties(kInventory, Bytes(data, size));
  return 0;
}
