// The time that a save of the journal takes to build its text, and a load to read it, without the
// waits for the disk. Only ratios mean something on a machine that others use too, so each figure
// is to be divided by another one of the same run, over the same bytes:
//
//   Serialize   by Checksum, the FNV-1a that every save must compute over its text
//   Parse       by Checksum, likewise
//
// Both are linear where the items per second stay the same as the number of entries grows.

#include <benchmark/benchmark.h>

#include <string>

#include "journal/journal_text.h"
#include "simulated_windows/computer.h"
#include "text/fnv1a.h"

namespace tolvarine::updater {
namespace {

TransactionJournal JournalOf(std::int64_t entries) {
  TransactionJournal journal;
  journal.phase = TransactionPhase::Apply;
  journal.target = u"C:\\Program Files\\Tolvarine";
  for (std::int64_t i = 0; i < entries; ++i) {
    const std::string number = std::to_string(i);
    const std::u16string name(number.begin(), number.end());
    journal.entries.push_back({.path = u"plugins/group/file" + name + u".dll",
                               .kind = JournalEntryKind::Install,
                               .size = 123456,
                               .sha256 = std::string(64, 'a'),
                               .baseline_exists = true,
                               .baseline_size = 654321,
                               .baseline_hash = 0x123456789ABCDEF0});
  }
  return journal;
}

void Serialize(benchmark::State& state) {
  simulated::Computer computer;
  computer.MakeCurrent();
  const TransactionJournal journal = JournalOf(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(SerializeJournal(journal));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void Parse(benchmark::State& state) {
  simulated::Computer computer;
  computer.MakeCurrent();
  const std::string text = SerializeJournal(JournalOf(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(ParseJournal(text));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void Checksum(benchmark::State& state) {
  simulated::Computer computer;
  computer.MakeCurrent();
  const std::string text = SerializeJournal(JournalOf(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(Fnv1a64(text));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(Checksum)->Arg(10)->Arg(100)->Arg(1000)->Arg(10000);
BENCHMARK(Serialize)->Arg(10)->Arg(100)->Arg(1000)->Arg(10000);
BENCHMARK(Parse)->Arg(10)->Arg(100)->Arg(1000)->Arg(10000);

}  // namespace
}  // namespace tolvarine::updater
