// The time that preparing an update takes, as a ratio to the work that no preparation can do
// without: one pass of hashing over the installation, and one flushed copy of each file that
// differs. Both run in turn on the same simulated computer; the counter `ratio` is the one over the
// other. The application has 5,000 files, of which 150 change; the argument is the size of each, in
// bytes.

#include <benchmark/benchmark.h>

#include <ctime>
#include <stdexcept>
#include <string>

#include "files/file_operations.h"
#include "files/sha256.h"
#include "platform/files.h"
#include "release/digest.h"
#include "release/file_bytes.h"
#include "release/signed_release.h"
#include "simulated_installation/simulated_installation.h"
#include "text/utf8.h"

namespace tolvarine::updater::application {
namespace {

constexpr std::size_t kFiles = 5000;
constexpr std::size_t kChanged = 150;

class LargeApplication {
 public:
  explicit LargeApplication(std::size_t size) : size_(size) {
    const VerifiedRelease first = Release(1);
    second_ = Release(2);
    for (std::size_t i = 0; i < kFiles; ++i) Write(fixture.target, i, 1);
    for (std::size_t i = 0; i < kChanged; ++i) Write(kPackage, i, 2);
    fixture.computer.disks.Settle();
    if (application::Adopt(fixture.installation, {.release = first}, fixture.keys).outcome !=
        Outcome::Done) {
      throw std::logic_error("the first release cannot be adopted");
    }
    fixture.computer.disks.Settle();
    disks_ = fixture.computer.disks.volumes;
  }

  // The computer as it was before the update.
  void Restart() { fixture.computer.Restart(disks_); }

  void Prepare() {
    PrepareRequest request;
    request.package = kPackage;
    request.release = second_;
    request.updater = fixture.updater;
    const PreparedUpdate prepared =
        application::Prepare(fixture.installation, request, fixture.keys);
    if (prepared.result.outcome != Outcome::Done || prepared.staged != kChanged) {
      throw std::logic_error("the update cannot be prepared");
    }
  }

  void HashAndCopy() {
    for (std::size_t i = 0; i < kFiles; ++i) {
      Sha256 sha256;
      sha256.Begin();
      VisitFileBlocks(JoinPath(fixture.target, NameOf(i)),
                      [&](std::string_view block) { sha256.Add(block); });
      benchmark::DoNotOptimize(sha256.Finish());
    }
    for (std::size_t i = 0; i < kChanged; ++i) {
      const Path to = JoinPath(u"C:\\Copies", NameOf(i));
      static_cast<void>(CreateDirectories(ParentPath(to)));
      if (!platform::CopyFileW(JoinPath(kPackage, NameOf(i)).c_str(), to.c_str(), false)) {
        throw std::logic_error("a file cannot be copied");
      }
      FlushFile(to);
    }
  }

 private:
  static constexpr PathView kPackage = u"C:\\Package";

  static Path NameOf(std::size_t index) {
    if (index == 0) return u"Tolvarine.exe";
    return u"modules\\group" + Utf16FromUtf8(std::to_string(index % 100)) + u"\\file" +
           Utf16FromUtf8(std::to_string(index)) + u".dll";
  }

  [[nodiscard]] std::string Content(std::size_t index, int version) const {
    std::string content = std::to_string(index) + " " + std::to_string(version) + " ";
    content.resize(size_, static_cast<char>('a' + index % 26));
    return content;
  }

  void Write(PathView root, std::size_t index, int version) {
    fixture.computer.disk.WriteFile(JoinPath(root, NameOf(index)), Content(index, version));
  }

  VerifiedRelease Release(int version) {
    ReleaseDescription description{.channel = "stable",
                                   .version = std::to_string(version),
                                   .sequence = static_cast<std::uint64_t>(version)};
    for (std::size_t i = 0; i < kFiles; ++i) {
      const int of = i < kChanged ? version : 1;
      description.files.push_back({NameOf(i), size_, Sha256OfBytes(Content(i, of))});
    }
    return VerifyRelease(fixture.key.Envelope(SerializeDescription(description)), fixture.keys);
  }

  std::size_t size_;
  simulated::SimulatedInstallation fixture;
  VerifiedRelease second_;
  std::deque<simulated::Volume> disks_;
};

// Of the processor: nothing waits on a simulated computer, and other programs do not count.
double SecondsOf(const auto& work) {
  const std::clock_t start = std::clock();
  work();
  return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

void Prepare(benchmark::State& state) {
  LargeApplication application(static_cast<std::size_t>(state.range(0)));
  double preparing = 0;
  double needed = 0;
  for (auto _ : state) {
    application.Restart();
    needed += SecondsOf([&] { application.HashAndCopy(); });
    application.Restart();
    const double seconds = SecondsOf([&] { application.Prepare(); });
    preparing += seconds;
    state.SetIterationTime(seconds);
  }
  state.counters["ratio"] = preparing / needed;
}

BENCHMARK(Prepare)->Arg(4096)->Arg(65536)->Iterations(5)->UseManualTime()->Unit(
    benchmark::kMillisecond);

}  // namespace
}  // namespace tolvarine::updater::application
