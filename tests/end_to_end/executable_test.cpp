#include <gtest/gtest.h>

#include "end_to_end/real_update.h"
#include "update/command_line_text.h"

namespace tolvarine::updater::end_to_end {
namespace {

namespace fs = std::filesystem;

// The program as the loader would lay it out, without running it.
class Executable : public testing::Test {
 protected:
  explicit Executable(std::string_view name = "TolvarineUpdater.exe") : path_(ProgramPath(name)) {}
  ~Executable() override { FreeLibrary(module_); }

  template <typename Record>
  const Record& At(std::size_t offset) const {
    return *reinterpret_cast<const Record*>(reinterpret_cast<const char*>(module_) + offset);
  }
  const IMAGE_NT_HEADERS64& Headers() const {
    return At<IMAGE_NT_HEADERS64>(static_cast<std::size_t>(At<IMAGE_DOS_HEADER>(0).e_lfanew));
  }

  const fs::path path_;
  HMODULE module_ = LoadLibraryExW(path_.c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES);
};

TEST_F(Executable, IsA64BitProgramWithoutAConsole) {
  ASSERT_NE(module_, nullptr);
  EXPECT_EQ(Headers().FileHeader.Machine, IMAGE_FILE_MACHINE_AMD64);
  EXPECT_EQ(Headers().OptionalHeader.Subsystem, IMAGE_SUBSYSTEM_WINDOWS_GUI);
}

TEST_F(Executable, ItsManifestAsksForNoRightsAndNoLongPaths) {
  const HRSRC resource = FindResourceW(module_, MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(24));
  ASSERT_NE(resource, nullptr);
  std::string manifest(static_cast<const char*>(LockResource(LoadResource(module_, resource))),
                       SizeofResource(module_, resource));
  for (std::size_t at = manifest.find("<!--"); at != std::string::npos;
       at = manifest.find("<!--")) {
    manifest.erase(at, manifest.find("-->", at) + 3 - at);
  }
  EXPECT_NE(manifest.find(R"(level="asInvoker" uiAccess="false")"), std::string::npos) << manifest;
  EXPECT_EQ(manifest.find("longPathAware"), std::string::npos) << manifest;
}

TEST_F(Executable, ItsVersionCanBeRead) {
  std::vector<char> block(GetFileVersionInfoSizeW(path_.c_str(), nullptr));
  ASSERT_TRUE(
      GetFileVersionInfoW(path_.c_str(), 0, static_cast<DWORD>(block.size()), block.data()));
  for (const auto& [name, text] : {std::pair(L"OriginalFilename", L"TolvarineUpdater.exe"),
                                   std::pair(L"ProductName", L"Tolvarine")}) {
    void* value = nullptr;
    UINT length = 0;
    VerQueryValueW(block.data(), (std::wstring(L"\\StringFileInfo\\040904B0\\") + name).c_str(),
                   &value, &length);
    ASSERT_NE(value, nullptr);
    EXPECT_STREQ(static_cast<const wchar_t*>(value), text);
  }
}

class ShippedProgram : public Executable, public testing::WithParamInterface<const char*> {
 protected:
  ShippedProgram() : Executable(GetParam()) {}
};
INSTANTIATE_TEST_SUITE_P(Both, ShippedProgram,
                         testing::Values("TolvarineUpdater.exe", "TolvarineUpdateTool.exe"));

TEST_P(ShippedProgram, ImportsOnlyWhatTheSystemLoadsFromItsOwnDirectory) {
  // The system's known libraries: others of these names beside the program are not looked at.
  const std::set<std::wstring> known = {L"ADVAPI32.DLL", L"KERNEL32.DLL", L"MSVCRT.DLL",
                                        L"SHELL32.DLL", L"USER32.DLL"};
  const auto& directory = Headers().OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  const auto* import = &At<IMAGE_IMPORT_DESCRIPTOR>(directory.VirtualAddress);
  ASSERT_NE(import->Name, 0U);
  for (; import->Name != 0; ++import) {
    const std::string_view name = &At<char>(import->Name);
    std::wstring upper(name.begin(), name.end());
    CharUpperBuffW(upper.data(), static_cast<DWORD>(upper.size()));
    EXPECT_TRUE(known.contains(upper)) << name;
  }
}

TEST_F(Executable, WhatLiesBesideItIsNotLoaded) {
  RealUpdate update;
  const fs::path updater = update.root / "downloads" / "TolvarineUpdater.exe";
  fs::create_directory(updater.parent_path());
  fs::copy_file(path_, updater);
  WriteBytes(updater.parent_path() / "bcrypt.dll", "planted");
  EXPECT_EQ(RealProcess(application::CommandLineOf(updater.u16string(), update.arguments)).Finish(),
            Exit(0));
  update.ExpectInstalled();
}

}  // namespace
}  // namespace tolvarine::updater::end_to_end
