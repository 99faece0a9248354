// Reading and writing the files pcfg works on, for every kind of file a user may name. Input is
// read whole, once, with a size limit checked before the bulk of it is read. Output to a plain
// file replaces it atomically (a temporary file beside it, then a rename), keeping its mode and,
// where the process may, its owner; output to anything else (standard output, a terminal, a
// FIFO, a character device) is written through; a symbolic link is followed to its target.
#pragma once

#include <google/protobuf/io/zero_copy_stream.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace pcfg {

// Configurations are a few hundred kilobytes; this leaves room for generated ones a hundred
// times that, and can be raised with --max-input-size.
constexpr uint64_t kDefaultMaxInputBytes = 64ull << 20;

// Reads all of PATH ("-": standard input). Refuses a directory, and input over MAX_BYTES (from
// the file's size before reading where it has one, otherwise as soon as the limit is passed).
// On failure returns false and says why in ERROR.
bool ReadInput(const std::string& path, uint64_t max_bytes, std::string* content, std::string* error);

// "64M", "1g", "4096", "512k": a byte count; false for anything else.
bool ParseByteSize(const std::string& text, uint64_t* bytes);

struct OutputPolicy {
  bool replace_read_only = false;   // replace a plain file that grants no write permission
  std::vector<std::string> inputs;  // files this run reads, which it must not overwrite
};

// Writes what PRODUCE puts into the stream it is given to PATH ("-": standard output), as the
// file comment above says; PRODUCE says why it fails in its ERROR. On failure returns false,
// says why in ERROR, and leaves an existing plain file as it was.
using Producer = std::function<bool(google::protobuf::io::ZeroCopyOutputStream* out, std::string* error)>;
bool WriteOutput(const std::string& path, const Producer& produce, const OutputPolicy& policy,
                 std::string* error);
// The same for bytes already in memory.
bool WriteOutput(const std::string& path, std::string_view bytes, const OutputPolicy& policy,
                 std::string* error);

// Makes SIGINT, SIGTERM and SIGHUP remove a temporary file that is being written before the
// process ends as the signal says, and turns SIGPIPE and SIGXFSZ into write errors. Call once,
// early in main.
void RemoveTemporaryFilesOnSignals();

// Puts /dev/null (read-only) on standard input, output or error where one is closed, so that no
// file opened later lands on it; writing to a closed standard output then fails as such. Call
// first in main.
void ReserveStandardDescriptors();

}  // namespace pcfg
