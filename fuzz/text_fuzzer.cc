// Text configurations: load, compile, decode to text and load again gives what was loaded. And
// parsing on two threads, which large inputs get, accepts exactly what one parse accepts and
// gives the same configuration (any text is cut here, however short).
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz_support.h"
#include "roundtrip.h"
#include "text_in_two.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::RoundTrip(pcfg::Format::kText, data, size);

  const std::string text(reinterpret_cast<const char*>(data), size);
  pcfg::LoadedConfig two;
  if (!pcfg::ParseTextInTwo(text, &two.config, 0)) return 0;
  pcfg::LoadedConfig one;
  if (!fuzz::Load(pcfg::Format::kText, text, &one))
    fuzz::Fail("two threads parse text that one parse refuses", text);
  std::string differences;
  if (!fuzz::Equal(one.config, two.config, &differences))
    fuzz::Fail("two threads parse the text into something else", differences);
  return 0;
}
