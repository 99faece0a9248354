// The round trip of a text or JSON configuration through pcfg: load, compile (the binary form),
// decode (back to the same form), load again; every step must succeed and the result must equal
// what was first loaded.
#pragma once

#include <cstddef>
#include <cstdint>

#include "formats.h"

namespace fuzz {

void RoundTrip(pcfg::Format format, const uint8_t* data, size_t size);

// Parsing on two threads, which large text and JSON get, accepts exactly what one parse accepts
// and gives the same configuration. Any input is cut here, however short.
void InTwoAsInOne(pcfg::Format format, const uint8_t* data, size_t size);

}  // namespace fuzz
