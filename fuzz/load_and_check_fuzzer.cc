// Feeds arbitrary bytes to the loader, the checks and the printers: whatever the input, pcfg
// must answer with diagnostics, never a crash. The first byte picks the input format.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "checks.h"
#include "loader.h"
#include "output.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const pcfg::Format formats[] = {pcfg::Format::kText, pcfg::Format::kJson, pcfg::Format::kBinary};
  const pcfg::Format format = formats[data[0] % 3];
  std::string content(reinterpret_cast<const char*>(data + 1), size - 1);

  pcfg::LoadedConfig loaded;
  std::vector<pcfg::Diagnostic> diagnostics;
  if (!pcfg::ParseConfig("fuzz", format, std::move(content), &loaded, &diagnostics)) return 0;
  pcfg::RunChecks(loaded, pcfg::CheckOptions());

  // Whatever loaded must print in every form, and the binary form must load back the same.
  for (pcfg::Format out : formats) (void)pcfg::SerializeConfig(loaded.config, out);
  const std::string wire = pcfg::SerializeConfig(loaded.config, pcfg::Format::kBinary);
  pcfg::LoadedConfig again;
  if (!pcfg::ParseConfig("fuzz", pcfg::Format::kBinary, wire, &again, &diagnostics) ||
      pcfg::SerializeConfig(again.config, pcfg::Format::kBinary) != wire)
    __builtin_trap();
  return 0;
}
