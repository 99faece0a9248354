// The binary form: whatever loads writes back stably. The first write may reorder the input (known
// fields in field-number order, unknown ones after them); from then on parse and serialise are
// each other's inverse, byte for byte, and ByteSizeLong() predicts every write.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz_support.h"

namespace {

std::string Write(const pcfg::Config& config, const char* which) {
  const std::string wire = fuzz::Print(config, pcfg::Format::kBinary);
  if (config.ByteSizeLong() != wire.size())
    fuzz::Fail(std::string("ByteSizeLong() differs from the size written, ") + which,
               std::to_string(config.ByteSizeLong()) + " != " + std::to_string(wire.size()));
  return wire;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  pcfg::LoadedConfig first;
  if (!fuzz::Load(pcfg::Format::kBinary, std::string(reinterpret_cast<const char*>(data), size), &first))
    return 0;
  const std::string wire1 = Write(first.config, "first write");

  pcfg::LoadedConfig second;
  if (!fuzz::Load(pcfg::Format::kBinary, wire1, &second)) fuzz::Fail("the first write does not load");
  std::string differences;
  if (!fuzz::Equal(first.config, second.config, &differences))
    fuzz::Fail("the first write loads different", differences);
  const std::string wire2 = Write(second.config, "second write");

  pcfg::LoadedConfig third;
  if (!fuzz::Load(pcfg::Format::kBinary, wire2, &third)) fuzz::Fail("the second write does not load");
  const std::string wire3 = Write(third.config, "third write");
  if (wire2 != wire3) fuzz::Fail("the second and third writes differ");
  if (wire1 != wire2) fuzz::Fail("the first and second writes differ");
  return 0;
}
