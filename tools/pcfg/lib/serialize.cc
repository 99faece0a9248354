#include "serialize.h"

#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/text_format.h>
#include <google/protobuf/util/json_util.h>

#include <cstring>

namespace pcfg {
namespace {

namespace gp = google::protobuf;

bool WriteBytes(gp::io::ZeroCopyOutputStream* out, std::string_view bytes) {
  while (!bytes.empty()) {
    void* buffer;
    int size;
    if (!out->Next(&buffer, &size)) return false;
    const size_t taken = std::min(bytes.size(), static_cast<size_t>(size));
    std::memcpy(buffer, bytes.data(), taken);
    out->BackUp(size - static_cast<int>(taken));
    bytes.remove_prefix(taken);
  }
  return true;
}

}  // namespace

bool PrintConfig(const Config& config, Format format, gp::io::ZeroCopyOutputStream* out, std::string* error) {
  switch (format) {
    case Format::kText:
      if (WriteBytes(out, kTextHeader) && gp::TextFormat::Print(config, out)) return true;
      break;
    case Format::kJson: {
      gp::util::JsonPrintOptions options;
      options.add_whitespace = true;
      options.preserve_proto_field_names = true;
      std::string json;
      const auto status = gp::util::MessageToJsonString(config, &json, options);
      if (!status.ok()) {
        *error = "cannot write the JSON form: " + std::string(status.message());
        return false;
      }
      if (json.empty() || json.back() != '\n') json += '\n';
      if (WriteBytes(out, json)) return true;
      break;
    }
    case Format::kBinary:
      if (config.SerializeToZeroCopyStream(out)) return true;
      break;
  }
  *error = "cannot write";  // the stream's owner knows why
  return false;
}

bool SerializeConfig(const Config& config, Format format, std::string* out, std::string* error) {
  out->clear();
  gp::io::StringOutputStream stream(out);
  return PrintConfig(config, format, &stream, error);
}

}  // namespace pcfg
