// Text configurations: load, compile, decode to text and load again gives what was loaded.
#include <cstddef>
#include <cstdint>

#include "roundtrip.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::RoundTrip(pcfg::Format::kText, data, size);
  return 0;
}
