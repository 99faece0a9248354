// Writing configurations: serialising to a form, and writing files atomically so that a
// failed run never leaves a partial output and an existing file stays as it was.
#pragma once

#include <string>

#include "formats.h"
#include "loader.h"

namespace pcfg {

// Text output starts with the proto-file / proto-message header; JSON keeps the schema's
// field names.
std::string SerializeConfig(const Config& config, Format format);

// Writes BYTES to PATH through a temporary file in the same directory and a rename;
// "-" writes to standard output. Returns false with a reason on failure.
bool WriteFileAtomically(const std::string& path, const std::string& bytes, std::string* error);

}  // namespace pcfg
