#include <functional>

#include "update_tool/tool_fixture.h"

namespace tolvarine::updater::update_tool {
namespace {

using simulated::Call;

// Every row is carried out on a computer of its own; the updated release stays what it was.
struct Row {
  const char* name;
  std::function<void()> arrange;
  const char* reasons;
  const char* words;  // In the sentences.
  std::string line = kPrepare;
};

class BadInput : public ToolFixture {
 protected:
  BadInput() { DescribeAndSign(); }

  [[nodiscard]] Path StateDirectory() {
    return application::LocateInstallation(InWork(u"app"), InWork(u"state")).state;
  }

  [[nodiscard]] std::map<std::u16string, std::string> App() const {
    return fixture.computer.disk.Tree(u"C:\\Work\\app");
  }

  void ExpectRefusals(const std::vector<Row>& rows) {
    const std::deque<simulated::Volume> disks = computer().disks.volumes;
    for (const Row& row : rows) {
      SCOPED_TRACE(row.name);
      row.arrange();
      const auto before = App();
      EXPECT_EQ(ReasonsOf(row.line), row.reasons);
      const Ended ended = Run(row.line);
      EXPECT_EQ(ended.code, 1);
      EXPECT_NE(ended.errors.find(row.words), std::string::npos) << ended.errors;
      EXPECT_TRUE(ended.errors.ends_with(".\n")) << ended.errors;
      computer().calls.ClearFaults();
      computer().calls.before_call = nullptr;
      if (held_ != platform::kInvalidHandle) computer().disk.Release(held_);
      held_ = platform::kInvalidHandle;
      EXPECT_EQ(App(), before);
      EXPECT_EQ(computer().files().open_handles(), 0u);
      computer().Restart(disks);
    }
  }

  void Fail(Call call, std::uint32_t code, const std::u16string& suffix = {}) {
    computer().calls.Inject({.call = call,
                             .first = 1,
                             .times = simulated::kAlways,
                             .code = code,
                             .path_suffix = suffix});
  }

  platform::Handle held_ = platform::kInvalidHandle;
};

TEST_F(BadInput, AStateDirectoryThatCannotBeUsedIsRefusedWithAWayOut) {
  const auto make_root = [&] { computer().disk.MakeDirectory(InWork(u"state")); };
  const auto file = [&] { Write(u"state", "a file"); };
  const auto link = [&] {
    make_root();
    computer().disk.MakeDirectory(InWork(u"elsewhere"));
    computer().disk.MakeJunction(StateDirectory(), InWork(u"elsewhere"));
  };
  const auto inner_link = [&] {
    computer().disk.MakeDirectory(InWork(u"elsewhere"));
    computer().disk.MakeSymbolicLink(JoinPath(StateDirectory(), u"s"), InWork(u"elsewhere"), true);
  };
  ExpectRefusals({
      {"a file", file, "not-a-directory ", "is a file. Remove it, or choose"},
      {"a file, asked for its state", file, "not-a-directory ", "is a file", kStatus},
      {"a link", link, "link-in-path ", "is a link. Remove it, or choose"},
      {"a link, asked for its state", link, "link-in-path ", "is a link", kStatus},
      {"a link in it", inner_link, "link-in-path ", "is a link"},
      {"no rights to make it", [&] { Fail(Call::CreateDirectoryW, 5); }, "state-not-writable ",
       "Choose a place that this user can write to"},
      {"no rights to write in it", [&] { Fail(Call::CreateFileW, 5, u"\\lock"); },
       "state-not-writable ", "Choose a place that this user can write to"},
      {"write-protected", [&] { computer().disks.volume(u'C').write_protected = true; },
       "state-not-writable ", "Choose a place that this user can write to"},
      {"in the installation", [] {}, "paths-overlap ", "Choose another state directory",
       "prepare --target app --state app/state --key public.pem --release release.json "
       "--package release-2"},
      {"a full disk",
       [&] {
         simulated::Volume& volume = computer().disks.volume(u'C');
         volume.capacity -= volume.FreeBytes();
       },
       "no-space ", "has 0 free bytes"},
  });
  // A link above it leads to one and the same place.
  computer().disk.MakeDirectory(InWork(u"elsewhere"));
  computer().disk.MakeJunction(InWork(u"state"), InWork(u"elsewhere"));
  EXPECT_EQ(Run(kPrepare).code, 0);
  EXPECT_EQ(Run("start --target app --state state --no-wait").code, 0);
  EXPECT_EQ(fixture.exit_code, 0);
}

// Each write in turn is the one that finds the disk full.
TEST_F(BadInput, ADiskThatFillsUpWhilePreparingLeavesATrueStateAndALaterPreparationEnds) {
  const std::deque<simulated::Volume> disks = computer().disks.volumes;
  const auto before = App();
  std::uint64_t refused = 0;
  for (std::uint64_t write = 1;; ++write) {
    computer().Restart(disks);
    computer().calls.Inject(
        {.call = Call::WriteFile, .first = write, .times = simulated::kAlways, .code = 112});
    const Ended ended = Run(kPrepare);
    computer().calls.ClearFaults();
    if (ended.code == 0) break;
    ++refused;
    EXPECT_NE(ended.errors.find("Free space on this volume"), std::string::npos) << ended.errors;
    EXPECT_EQ(App(), before);
    EXPECT_EQ(Run(kStatus).code, 0);
    EXPECT_EQ(Run(kStatus).output.find("prepared"), std::string::npos) << write;
    EXPECT_EQ(Run(kPrepare).code, 0) << write;
    EXPECT_NE(Run(kStatus).output.find("prepared"), std::string::npos) << write;
  }
  EXPECT_GT(refused, 6u);
}

TEST_F(BadInput, AReleaseThatIsNotSoundIsRefusedWithAWayOut) {
  const std::string envelope = Read(u"release.json");
  const auto release = [&](const std::string& text) {
    return [this, text] { Write(u"release.json", text); };
  };
  const auto payload = [&](const std::string& text) { return release(fixture.key.Envelope(text)); };
  const std::string deep(100000, '[');
  const std::string bad = "bad-release ";
  ExpectRefusals({
      {"missing", [&] { computer().disk.Remove(InWork(u"release.json")); }, "system-failure ",
       "cannot be read"},
      {"empty", release(""), bad.c_str(), "Get the release again"},
      {"100 MB", release(std::string(100'000'000, ' ')), "system-failure ", "has more than"},
      {"deep", release(deep), bad.c_str(), "nested too deep"},
      {"deep payload", payload(deep), bad.c_str(), "nested too deep"},
      {"not UTF-8", release("{\"\xFF\":1}"), bad.c_str(), "near its byte 3"},
      {"payload not UTF-8", payload("{\"\xFF\":1}"), bad.c_str(), "near its byte 3"},
      {"a name twice, with control characters", release("{\"\\u001b\":1,\"\\u001b\":1}"),
       bad.c_str(), "the name \"\\u001b\" occurs twice"},
      {"many values",
       [&] {
         std::string text = "[{}";
         for (int i = 0; i < 300; ++i) text += ",{}";
         Write(u"release.json", text + "]");
       },
       bad.c_str(), "more than 256 values"},
      {"a key that is none", [&] { Write(u"public.pem", "no key"); }, bad.c_str(), "public.pem"},
  });

  // Of a file that is too large nothing is read.
  release(std::string(25 << 20, ' '))();
  computer().calls.keep_trace = true;
  EXPECT_EQ(Run(kPrepare).code, 1);
  EXPECT_TRUE(std::ranges::none_of(computer().calls.trace, [](const auto& record) {
    return record.call == Call::ReadFile && record.path.ends_with(u"release.json");
  }));
}

TEST_F(BadInput, APackageThatIsMissingHeldOrChangedIsRefusedWithAWayOut) {
  const Path core = InWork(u"release-2\\lib\\core.dll");
  const char* const again = "Get the package again, and prepare again.";
  // Acts when the first file of the release is in the stage.
  const auto while_copying = [&](const std::function<void()>& act) {
    return [this, act] {
      computer().calls.before_call = [act](const simulated::CallRecord& record) {
        if (record.call == Call::FlushFileBuffers && record.path.ends_with(u"core.dll")) act();
      };
    };
  };
  ExpectRefusals({
      {"missing", [&] { computer().disk.Remove(InWork(u"release-2")); }, "package-mismatch ",
       again},
      {"held by another program",
       [&] {
         held_ = computer().disk.Hold(core, platform::kGenericWrite, platform::kFileShareAll);
       },
       "package-mismatch ", "core.dll\" cannot be locked"},
      {"a link",
       [&] {
         computer().disk.Remove(core);
         computer().disk.MakeSymbolicLink(core, InWork(u"public.pem"), false);
       },
       "package-mismatch ", again},
      {"changed while it is copied",
       while_copying([&] { Write(u"release-2\\Tolvarine.exe", "EXECUTABLE 2"); }),
       "package-mismatch ", "is not the one that the release describes"},
      {"removed while it is copied",
       while_copying([&] { computer().disk.Remove(InWork(u"release-2\\Tolvarine.exe")); }),
       "package-mismatch ", again},
      {"no updater", [&] { computer().disk.Remove(u"C:\\Tools"); }, "program-changed ",
       "Name the updater that is to be used"},
      {"no installation", [&] { computer().disk.Remove(InWork(u"app")); }, "not-a-directory ",
       "is not a directory"},
  });
}

// The release and the key are read once: what is used is what was verified.
TEST_F(BadInput, FilesThatAreExchangedAfterTheyWereReadChangeNothing) {
  const std::string envelope = Read(u"release.json");
  const std::string other = fixture.key.Envelope(
      R"({"channel":"stable","files":[{"path":"Tolvarine.exe","sha256":")" + std::string(64, 'a') +
      R"(","size":1}],"format":1,"product":"Tolvarine","removed":[],"sequence":9,"version":"9"})");
  computer().calls.before_call = [&](const simulated::CallRecord& record) {
    if (record.call != Call::CreateFileW || !record.path.ends_with(u"\\lock")) return;
    Write(u"release.json", other);
    Write(u"public.pem", "no key");
  };
  EXPECT_EQ(Run(kPrepare).code, 0);
  computer().calls.before_call = nullptr;
  Write(u"release.json", envelope);
  Write(u"public.pem", fixture.key.Pem());
  EXPECT_EQ(Run("start --target app --state state --no-wait").code, 0);
  EXPECT_EQ(fixture.exit_code, 0);
  EXPECT_EQ(computer().disk.ReadFile(JoinPath(StateDirectory(), u"installed-manifest.json")),
            envelope);
  EXPECT_EQ(Read(u"app\\Tolvarine.exe"), "executable 2");
}

}  // namespace
}  // namespace tolvarine::updater::update_tool
