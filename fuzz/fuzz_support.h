// What the fuzz targets share: loading bytes in a form, an oracle for "equal" that is protobuf's
// MessageDifferencer rather than pcfg's own diff, and a loud stop when a property fails, so that
// libFuzzer keeps the input and a corpus replay fails its test.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "config.h"
#include "formats.h"
#include "loader.h"

namespace fuzz {

// Prints WHAT (and DETAIL when given) to standard error and aborts.
[[noreturn]] void Fail(const std::string& what, const std::string& detail = "");

// Loads BYTES in FORMAT with pcfg's loader; false when the loader refuses them.
bool Load(pcfg::Format format, std::string bytes, pcfg::LoadedConfig* loaded);

// Writes CONFIG in FORMAT with pcfg's printers; fails the run when they refuse.
std::string Print(const pcfg::Config& config, pcfg::Format format);

// Field by field, unknown fields included, with NaN equal to NaN (the configuration's own value,
// written and read back, must count as the same). Lists compare position by position. When the
// two differ and DIFFERENCES is given, it says how.
bool Equal(const pcfg::Config& a, const pcfg::Config& b, std::string* differences = nullptr);

// Stable-sorts, throughout CONFIG, the lists whose entries pcfg matches by a key: peripherals by
// id, the topology lists by peripheral_id, system and adapter options by type, hal_stream_configs
// by system_type and pipeline_configs by pipeline_type. Two configurations that differ only in
// the order of entries with different keys become equal; the n-th entry with a key stays the
// n-th.
void SortKeyedLists(pcfg::Config* config);

// Whether CONFIG or any message in it holds fields the schema does not know.
bool HasUnknownFields(const pcfg::Config& config);

// Reads bytes of a fuzz input front to back; past the end it answers zeros.
class Bytes {
 public:
  Bytes(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  uint8_t Byte() { return offset_ < size_ ? data_[offset_++] : 0; }
  uint32_t Uint32() {
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i) value = value << 8 | Byte();
    return value;
  }
  // The next COUNT bytes (fewer at the end).
  std::string Take(size_t count) {
    count = std::min(count, size_ - offset_);
    std::string taken(reinterpret_cast<const char*>(data_ + offset_), count);
    offset_ += count;
    return taken;
  }
  std::string Rest() { return Take(size_ - offset_); }
  bool empty() const { return offset_ >= size_; }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t offset_ = 0;
};

// The form a leading byte picks: text, JSON or binary.
pcfg::Format FormatFromByte(uint8_t byte);

}  // namespace fuzz
