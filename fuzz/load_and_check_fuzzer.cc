// Feeds arbitrary bytes to the loader, the checks, the views and the printers: whatever the
// input, pcfg must answer with diagnostics, never a crash. The first byte picks the input format.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "canonical_text.h"
#include "checks.h"
#include "diff.h"
#include "graph.h"
#include "loader.h"
#include "serialize.h"
#include "show_facts.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const pcfg::Format formats[] = {pcfg::Format::kText, pcfg::Format::kJson, pcfg::Format::kBinary};
  const pcfg::Format format = formats[data[0] % 3];
  std::string content(reinterpret_cast<const char*>(data + 1), size - 1);

  pcfg::LoadedConfig loaded;
  std::vector<pcfg::Diagnostic> diagnostics;
  if (!pcfg::ParseConfig("fuzz", format, std::move(content), &loaded, &diagnostics)) return 0;
  pcfg::RunChecks(loaded, pcfg::CheckOptions());
  std::ostringstream sink;
  const pcfg::ConfigIndex index(loaded.config);
  const pcfg::ShowFacts facts = pcfg::GatherShowFacts(loaded.file, index);
  pcfg::PrintShowText(sink, facts);
  pcfg::PrintShowJson(sink, facts);
  (void)pcfg::GraphDot(index);

  // Whatever loaded must print in every form, and the binary form must load back the same.
  std::string printed, error;
  for (pcfg::Format out : formats) (void)pcfg::SerializeConfig(loaded.config, out, &printed, &error);
  std::string wire, again_wire;
  pcfg::SerializeConfig(loaded.config, pcfg::Format::kBinary, &wire, &error);
  pcfg::LoadedConfig again;
  if (!pcfg::ParseConfig("fuzz", pcfg::Format::kBinary, wire, &again, &diagnostics) ||
      !pcfg::SerializeConfig(again.config, pcfg::Format::kBinary, &again_wire, &error) ||
      again_wire != wire || !pcfg::DiffConfigs(loaded.config, again.config).empty())
    __builtin_trap();
  return 0;
}
