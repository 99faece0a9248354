// JSON configurations: load, compile, decode to json and load again gives what was loaded; and
// two threads parse them as one does.
#include <cstddef>
#include <cstdint>

#include "roundtrip.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::RoundTrip(pcfg::Format::kJson, data, size);
  fuzz::InTwoAsInOne(pcfg::Format::kJson, data, size);
  return 0;
}
