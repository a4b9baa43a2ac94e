#include "end_to_end/tool_run.h"

#include <gtest/gtest.h>

// Needs the types of windows.h.
#include <bcrypt.h>

#include <array>
#include <stdexcept>

#include "files/file_operations.h"
#include "files/sha256.h"
#include "platform/windows/native.h"
#include "release/base64.h"
#include "text/utf8.h"
#include "update/command_line_text.h"

namespace tolvarine::updater::end_to_end {
namespace {

namespace fs = std::filesystem;
using inspection::FileTree;
using inspection::ReadFile;
using platform::Wide;

constexpr char kUserFile[] = "settings.ini";

void Require(bool done, const char* what) {
  if (!done) throw std::runtime_error(what);
}

// --- The key -------------------------------------------------------------------------------------

// ECDSA on P-256, made for this run.
class SigningKey {
 public:
  static const SigningKey& Get() {
    static const SigningKey key;
    return key;
  }

  // A SubjectPublicKeyInfo for P-256, up to its point.
  [[nodiscard]] std::string Pem() const {
    constexpr std::string_view kHead(
        "\x30\x59\x30\x13\x06\x07\x2a\x86\x48\xce\x3d\x02\x01\x06\x08\x2a\x86\x48\xce\x3d\x03\x01"
        "\x07\x03\x42\x00\x04",
        27);
    std::array<UCHAR, sizeof(BCRYPT_ECCKEY_BLOB) + 64> blob = {};
    ULONG size = 0;
    Require(BCryptExportKey(key_, nullptr, BCRYPT_ECCPUBLIC_BLOB, blob.data(), blob.size(), &size,
                            0) == 0,
            "no public key");
    std::string der(kHead);
    der.append(reinterpret_cast<const char*>(blob.data()) + sizeof(BCRYPT_ECCKEY_BLOB), 64);
    std::string text = application::EncodeBase64(der);
    text.insert(64, "\n");
    return "-----BEGIN PUBLIC KEY-----\n" + text + "\n-----END PUBLIC KEY-----\n";
  }

  // In DER, as `openssl dgst -sha256 -sign` writes it.
  [[nodiscard]] std::string Sign(std::string_view message) const {
    Sha256 sha256;
    sha256.Begin();
    sha256.Add(message);
    auto digest = sha256.Finish();
    std::array<UCHAR, 64> raw = {};
    ULONG size = 0;
    Require(
        BCryptSignHash(key_, nullptr, reinterpret_cast<UCHAR*>(digest.data()),
                       static_cast<ULONG>(digest.size()), raw.data(), raw.size(), &size, 0) == 0,
        "no signature");
    const std::string_view bytes(reinterpret_cast<const char*>(raw.data()), raw.size());
    const std::string numbers = DerInteger(bytes.substr(0, 32)) + DerInteger(bytes.substr(32));
    return std::string("\x30") + static_cast<char>(numbers.size()) + numbers;
  }

 private:
  SigningKey() {
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    Require(BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_ECDSA_P256_ALGORITHM, nullptr, 0) == 0 &&
                BCryptGenerateKeyPair(algorithm, &key_, 256, 0) == 0 &&
                BCryptFinalizeKeyPair(key_, 0) == 0,
            "no key");
  }

  static std::string DerInteger(std::string_view number) {
    number.remove_prefix(std::min(number.find_first_not_of('\0'), number.size() - 1));
    std::string bytes(number);
    if ((static_cast<unsigned char>(bytes.front()) & 0x80) != 0) bytes.insert(0, 1, '\0');
    return std::string("\x02") + static_cast<char>(bytes.size()) + bytes;
  }

  BCRYPT_KEY_HANDLE key_ = nullptr;
};

// --- Running -------------------------------------------------------------------------------------

HANDLE InheritableFile(const fs::path& path) {
  SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                  &inherit, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  Require(file != INVALID_HANDLE_VALUE, "no file for the output");
  return file;
}

std::uint32_t RunToEnd(std::u16string line, HANDLE output, HANDLE errors) {
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = output;
  startup.hStdError = errors;
  PROCESS_INFORMATION process = {};
  Require(CreateProcessW(nullptr, Wide(line.data()), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                         &startup, &process) != FALSE,
          "the tool cannot be started");
  DWORD code = 0;
  const bool ended = WaitForSingleObject(process.hProcess, 100'000) == WAIT_OBJECT_0;
  if (!ended) TerminateProcess(process.hProcess, 99);
  GetExitCodeProcess(process.hProcess, &code);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  Require(ended, "the tool does not end");
  return code;
}

}  // namespace

std::string ToolAnswer::Reasons() const {
  std::string names;
  for (const auto& reason : json.value("reasons", nlohmann::json::array())) {
    if (reason.at("warning").get<bool>()) continue;
    names.append(names.empty() ? "" : " ").append(reason.at("code").get<std::string>());
  }
  return names;
}

ToolAnswer RunTool(const Arguments& arguments, Rights rights) {
  const auto quoted = [](const fs::path& path) {
    return application::QuoteArgument(path.u16string());
  };
  std::u16string line;
  if (rights == Rights::User) line = quoted(ProgramPath("as_user.exe")) + u" ";
  line += quoted(ProgramPath("TolvarineUpdateTool.exe"));
  for (const std::u16string& argument : arguments) {
    line += u" " + application::QuoteArgument(argument);
  }
  const fs::path directory = NewScratchDirectory();
  const HANDLE output = InheritableFile(directory / "output");
  const HANDLE errors = InheritableFile(directory / "errors");
  ToolAnswer answer{.code = RunToEnd(line, output, errors), .output = {}, .errors = {}};
  CloseHandle(output);
  CloseHandle(errors);
  answer.output = ReadFile(directory / "output");
  answer.errors = ReadFile(directory / "errors");
  fs::remove_all(directory);
  if (answer.output.starts_with('{')) answer.json = nlohmann::json::parse(answer.output);
  return answer;
}

// --- The installation ----------------------------------------------------------------------------

ToolInstallation::ToolInstallation(const FileTree& files)
    : root(NewScratchDirectory()),
      target(root / "target"),
      state(root / "state"),
      key(root / "public.pem") {
  WriteBytes(key, SigningKey::Get().Pem());
  WriteTree(target, files);
  WriteTree(target, {{kUserFile, "made by the user"}});
  const ToolAnswer adopted = Adopt(MakePackage(1, files));
  EXPECT_EQ(adopted.code, 0u) << adopted.output << adopted.errors;
}

ToolInstallation::~ToolInstallation() { RemoveScratchDirectory(root); }

fs::path ToolInstallation::Beside(std::uint64_t sequence, std::string_view name) const {
  return root / (std::to_string(sequence) + "-" + std::string(name));
}

ToolAnswer ToolInstallation::Describe(std::uint64_t sequence, const FileTree& files) {
  WriteTree(Beside(sequence, "files"), files);
  const std::string number = std::to_string(sequence);
  const std::u16string wide(number.begin(), number.end());
  return RunTool({u"describe", u"--package", Beside(sequence, "files").u16string(), u"--channel",
                  u"stable", u"--version", wide, u"--sequence", wide, u"--payload",
                  Beside(sequence, "payload").u16string(), u"--to-sign",
                  Beside(sequence, "to-sign").u16string(), u"--json"});
}

Package ToolInstallation::MakePackage(std::uint64_t sequence, const FileTree& files) {
  const Package package{files, Beside(sequence, "files"), Beside(sequence, "release.json")};
  const ToolAnswer described = Describe(sequence, files);
  EXPECT_EQ(described.code, 0u) << described.output << described.errors;
  const fs::path signature = Beside(sequence, "signature");
  WriteBytes(signature, SigningKey::Get().Sign(ReadFile(Beside(sequence, "to-sign"))));
  const ToolAnswer sealed =
      RunTool({u"describe", u"--payload", Beside(sequence, "payload").u16string(), u"--signature",
               signature.u16string(), u"--key", key.u16string(), u"--output",
               package.release.u16string(), u"--json"});
  EXPECT_EQ(sealed.code, 0u) << sealed.output << sealed.errors;
  return package;
}

ToolAnswer ToolInstallation::Run(std::u16string_view verb, const Arguments& options,
                                 Rights rights) const {
  Arguments arguments = {std::u16string(verb), u"--target",       target.u16string(),
                         u"--state",           state.u16string(), u"--json"};
  if (verb != u"start" && verb != u"abandon" && verb != u"finish") {
    arguments.insert(arguments.end(), {u"--key", key.u16string()});
  }
  arguments.insert(arguments.end(), options.begin(), options.end());
  return RunTool(arguments, rights);
}

ToolAnswer ToolInstallation::Prepare(const Package& package, const Arguments& options,
                                     std::u16string_view verb, Rights rights) const {
  Arguments arguments = {u"--release", package.release.u16string(), u"--package",
                         package.directory.u16string()};
  arguments.insert(arguments.end(), options.begin(), options.end());
  return Run(verb, arguments, rights);
}

ToolAnswer ToolInstallation::Adopt(const Package& package) const {
  return Run(u"adopt", {u"--release", package.release.u16string()});
}

std::string ToolInstallation::State() const {
  const ToolAnswer status = Run(u"status");
  const nlohmann::json updates = status.json.value("updates", nlohmann::json::array());
  return updates.size() == 1 ? updates[0].at("state").get<std::string>() : status.output;
}

std::unique_ptr<RealProcess> ToolInstallation::Start(const RunningApplication& application) const {
  const std::string id = std::to_string(application.process().id());
  const ToolAnswer started = Run(u"start", {u"--wait", std::u16string(id.begin(), id.end())});
  if (started.code != 0) throw std::runtime_error(started.output);
  return std::make_unique<RealProcess>(started.json.at("process_id").get<std::uint32_t>());
}

std::string ToolInstallation::RunUpdater() const {
  RunningApplication application(target / "Tolvarine.exe");
  const std::unique_ptr<RealProcess> updater = Start(application);
  application.End();
  return updater->Finish();
}

void ToolInstallation::ExpectInstalled(const Package& package) const {
  const fs::path report = target / "restarted.txt";
  EXPECT_TRUE(Eventually([&] { return fs::exists(report); })) << "nothing was restarted";
  fs::remove(report);
  FileTree files = inspection::ReadTree(target);
  std::erase_if(
      files, [](const auto& file) { return file.first.ends_with('/') || file.first == "log.txt"; });
  FileTree expected = package.files;
  expected[kUserFile] = "made by the user";
  EXPECT_EQ(inspection::Deviations(files, expected, expected, {}), "");
}

}  // namespace tolvarine::updater::end_to_end
