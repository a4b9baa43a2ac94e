// The current user's part of the registry.

#include "system/registry.h"

#include <array>

#include "contract/fixture.h"

namespace tolvarine::updater::contract {
namespace {

constexpr char16_t kPath[] = u"Software\\Tolvarine contract test";
constexpr std::uint32_t kMoreDataCode = 234;

using RegistryTest = ContractTest;

TEST_F(RegistryTest, AValueIsSetReadAndDeletedWhateverTheCaseOfItsName) {
  std::array<char16_t, 8> buffer{};
  std::uint32_t bytes = sizeof buffer;
  EXPECT_EQ(kErrorFileNotFound, RegGetValueW(kPath, u"none", buffer.data(), &bytes));
  Handle key = kNullHandle;
  ASSERT_EQ(0u, RegCreateKeyExW(kPath, kKeySetValue, &key));
  EXPECT_EQ(0u, RegSetValueExW(key, u"Value", u"text", 10));
  EXPECT_EQ(0u, RegSetValueExW(key, u"VALUE", u"other", 12));
  EXPECT_EQ(0u, RegFlushKey(key));

  bytes = 10;
  EXPECT_EQ(kMoreDataCode, RegGetValueW(kPath, u"value", buffer.data(), &bytes));
  EXPECT_EQ(bytes, 12u);
  EXPECT_EQ(0u, RegGetValueW(kPath, u"value", buffer.data(), &bytes));
  EXPECT_EQ(std::u16string(buffer.data()), u"other");

  EXPECT_EQ(0u, RegDeleteValueW(key, u"vaLue"));
  EXPECT_EQ(kErrorFileNotFound, RegDeleteValueW(key, u"value"));
  EXPECT_EQ(0u, RegCloseKey(key));
  bytes = sizeof buffer;
  EXPECT_EQ(kErrorFileNotFound, RegGetValueW(kPath, u"value", buffer.data(), &bytes));
}

TEST_F(RegistryTest, AKeyWithoutTheRightToChangeItRefuses) {
  constexpr std::uint32_t kKeyQueryValue = 0x1;
  Handle key = kNullHandle;
  ASSERT_EQ(0u, RegCreateKeyExW(kPath, kKeyQueryValue, &key));
  EXPECT_EQ(kErrorAccessDenied, RegSetValueExW(key, u"value", u"text", 10));
  EXPECT_EQ(kErrorAccessDenied, RegDeleteValueW(key, u"value"));
  EXPECT_EQ(0u, RegCloseKey(key));
}

}  // namespace
}  // namespace tolvarine::updater::contract
