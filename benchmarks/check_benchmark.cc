// pcfg's everyday path on large configurations: loading each form, running every rule, and
// ordering the bring-up. The rules use hash maps and one graph walk, so time grows linearly.
#include <benchmark/benchmark.h>

#include "bringup.h"
#include "checks.h"
#include "json_strict.h"
#include "loader.h"
#include "root_entries.h"
#include "serialize.h"
#include "syntax_tree.h"
#include "synthetic_config.h"

namespace {

pcfg::LoadedConfig Loaded(int peripherals) {
  pcfg::LoadedConfig loaded;
  loaded.file = "synthetic";
  loaded.config = pcfg::bench::MakeSyntheticConfig(peripherals, 1);
  return loaded;
}

void BM_CheckAllRules(benchmark::State& state) {
  const pcfg::LoadedConfig loaded = Loaded(static_cast<int>(state.range(0)));
  size_t diagnostics = 0;
  for (auto _ : state) {
    const std::vector<pcfg::Diagnostic> found = pcfg::RunChecks(loaded, pcfg::CheckOptions());
    diagnostics = found.size();
    benchmark::DoNotOptimize(found.data());
  }
  state.SetComplexityN(state.range(0));
  state.counters["diagnostics"] = static_cast<double>(diagnostics);
  state.counters["wire_bytes"] = static_cast<double>(loaded.config.ByteSizeLong());
}
BENCHMARK(BM_CheckAllRules)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(30000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

// One rule at a time on 10,000 peripherals, to see which rule costs what: one benchmark per row
// of the rule table, registered at start-up.
void BM_CheckOneRule(benchmark::State& state, const pcfg::Rule* rule) {
  const pcfg::LoadedConfig loaded = Loaded(10000);
  pcfg::CheckOptions options;
  options.only = {rule->id};
  for (auto _ : state) benchmark::DoNotOptimize(pcfg::RunChecks(loaded, options).size());
}
[[maybe_unused]] const bool kOneRuleBenchmarks = [] {
  for (const pcfg::Rule& rule : pcfg::Rules())
    benchmark::RegisterBenchmark((std::string("BM_CheckOneRule/") + rule.id).c_str(), BM_CheckOneRule, &rule)
        ->Unit(benchmark::kMillisecond);
  return true;
}();

// Loading the same 10,000-peripheral configuration from each form (what `pcfg check` does first).
void BM_Load(benchmark::State& state) {
  const pcfg::Format format = static_cast<pcfg::Format>(state.range(0));
  std::string bytes, error;
  pcfg::SerializeConfig(pcfg::bench::MakeSyntheticConfig(10000, 1), format, &bytes, &error);
  for (auto _ : state) {
    pcfg::LoadedConfig loaded;
    std::vector<pcfg::Diagnostic> diagnostics;
    if (!pcfg::ParseConfig("synthetic", format, bytes, &loaded, &diagnostics))
      state.SkipWithError("load failed");
  }
  state.SetLabel(pcfg::FormatName(format));
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes.size()));
}
BENCHMARK(BM_Load)
    ->Arg(static_cast<int>(pcfg::Format::kBinary))
    ->Arg(static_cast<int>(pcfg::Format::kText))
    ->Arg(static_cast<int>(pcfg::Format::kJson))
    ->Unit(benchmark::kMillisecond);

// The strict JSON pass alone, which every JSON load pays before protobuf's parser.
void BM_StrictJsonCheck(benchmark::State& state) {
  std::string bytes, error;
  pcfg::SerializeConfig(pcfg::bench::MakeSyntheticConfig(10000, 1), pcfg::Format::kJson, &bytes, &error);
  for (auto _ : state) {
    pcfg::JsonCut cut;
    if (!pcfg::CheckStrictJson(bytes, pcfg::Config::descriptor(), nullptr, bytes.size() / 2, &cut))
      state.SkipWithError("not strict");
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes.size()));
}
BENCHMARK(BM_StrictJsonCheck)->Unit(benchmark::kMillisecond);

// A finding in text is located in the tree of its root entry alone, once a scan has found the
// entries; the whole text's syntax tree is what that spares.
const std::string& Text10000() {
  static const std::string text = [] {
    std::string bytes, error;
    pcfg::SerializeConfig(pcfg::bench::MakeSyntheticConfig(10000, 1), pcfg::Format::kText, &bytes, &error);
    return bytes;
  }();
  return text;
}
void BM_FindRootEntries(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(pcfg::RootEntries(Text10000()).Find("peripherals", 0));
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(Text10000().size()));
}
BENCHMARK(BM_FindRootEntries)->Unit(benchmark::kMillisecond);
void BM_WholeSyntaxTree(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(pcfg::syntax::SyntaxTree(Text10000()).nodes().size());
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(Text10000().size()));
}
BENCHMARK(BM_WholeSyntaxTree)->Unit(benchmark::kMillisecond);

void BM_BringUpOrder(benchmark::State& state) {
  const pcfg::Config config = pcfg::bench::MakeSyntheticConfig(static_cast<int>(state.range(0)), 1);
  for (auto _ : state) {
    const pcfg::ConfigIndex index(config);
    benchmark::DoNotOptimize(pcfg::TopologicalBringUp(pcfg::DependencyGraph(index)).order.size());
  }
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_BringUpOrder)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oNLogN);

}  // namespace

BENCHMARK_MAIN();
