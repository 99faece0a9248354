// A configuration in each of its forms: the text form opens with the proto-file / proto-message
// header, the JSON form keeps the schema's field names, the binary form is the wire format.
#pragma once

#include <google/protobuf/io/zero_copy_stream.h>

#include <string>

#include "config.h"
#include "formats.h"

namespace pcfg {

// Writes CONFIG in FORMAT into OUT as it goes, so that a large configuration's text never sits
// whole in memory. Only the JSON printer can fail (it refuses what the JSON mapping cannot
// hold); ERROR then says why.
bool PrintConfig(const Config& config, Format format, google::protobuf::io::ZeroCopyOutputStream* out,
                 std::string* error);

// The same into a string.
bool SerializeConfig(const Config& config, Format format, std::string* out, std::string* error);

}  // namespace pcfg
