// pcfg diff between a configuration and an edited copy whose keyed lists are all shuffled: the
// hash-map matching must keep this linear in the number of peripherals.
#include <benchmark/benchmark.h>

#include <random>

#include "diff.h"
#include "synthetic_config.h"

namespace {

namespace models = Talvo::Peripherals::Config::Models;

template <typename Entry>
void Shuffle(google::protobuf::RepeatedPtrField<Entry>* list, std::mt19937& random) {
  for (int i = list->size() - 1; i > 0; --i)
    list->SwapElements(i, std::uniform_int_distribution<int>(0, i)(random));
}

// A few edits (changed, added and removed entries), then every keyed list in another order.
pcfg::Config EditedAndShuffled(const pcfg::Config& original, uint32_t seed) {
  pcfg::Config edited = original;
  edited.mutable_physical_cameras(1)->set_description("replaced board");
  edited.mutable_physical_cameras(edited.physical_cameras_size() / 2)->set_calibration_filename("new.json");
  edited.mutable_peripherals(3)->set_system_type(models::PERIPHERAL_SYSTEM_TYPE_GENERIC);
  edited.mutable_peripherals()->RemoveLast();
  models::Peripheral* added = edited.add_peripherals();
  added->set_id("added-imu");
  added->set_type(models::PERIPHERAL_TYPE_IMU);
  edited.mutable_general_configs()->mutable_hal_stream_configs(1)->mutable_pipeline_configs(0)->add_streams(
      models::STREAM_RAW8_SECURE);

  std::mt19937 random(seed);
  Shuffle(edited.mutable_peripherals(), random);
  Shuffle(edited.mutable_physical_cameras(), random);
  Shuffle(edited.mutable_logical_cameras(), random);
  Shuffle(edited.mutable_camera_sets(), random);
  Shuffle(edited.mutable_camera_stream_configs(), random);
  Shuffle(edited.mutable_system_options(), random);
  Shuffle(edited.mutable_adapter_options(), random);
  Shuffle(edited.mutable_general_configs()->mutable_hal_stream_configs(), random);
  return edited;
}

void Report(benchmark::State& state, const pcfg::Config& config, size_t differences) {
  state.SetItemsProcessed(state.iterations() * state.range(0));
  state.SetComplexityN(state.range(0));
  state.counters["differences"] = static_cast<double>(differences);
  state.counters["wire_bytes"] = static_cast<double>(config.ByteSizeLong());
}

void MeasureDiff(benchmark::State& state, const pcfg::Config& a, const pcfg::Config& b) {
  size_t differences = 0;
  for (auto _ : state) {
    const std::vector<pcfg::Difference> found = pcfg::DiffConfigs(a, b);
    differences = found.size();
    benchmark::DoNotOptimize(found.data());
  }
  Report(state, a, differences);
}

void BM_DiffEditedAndShuffled(benchmark::State& state) {
  const pcfg::Config a = pcfg::bench::MakeSyntheticConfig(static_cast<int>(state.range(0)), 1);
  MeasureDiff(state, a, EditedAndShuffled(a, 2));
}
BENCHMARK(BM_DiffEditedAndShuffled)
    ->Arg(1000)
    ->Arg(3000)
    ->Arg(10000)
    ->Arg(30000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

// The same configuration, unshuffled: the walk alone, no matching work out of order.
void BM_DiffIdentical(benchmark::State& state) {
  const pcfg::Config a = pcfg::bench::MakeSyntheticConfig(static_cast<int>(state.range(0)), 1);
  MeasureDiff(state, a, a);
}
BENCHMARK(BM_DiffIdentical)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
