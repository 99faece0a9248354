// A configuration in each of its forms: the text form opens with the proto-file / proto-message
// header, the JSON form keeps the schema's field names, the binary form is the wire format.
#pragma once

#include <string>

#include "config.h"
#include "formats.h"

namespace pcfg {

// Writes CONFIG in FORMAT to OUT. Only the JSON printer can fail (it refuses what the JSON
// mapping cannot hold); ERROR then says why.
bool SerializeConfig(const Config& config, Format format, std::string* out, std::string* error);

}  // namespace pcfg
