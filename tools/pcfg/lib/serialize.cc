#include "serialize.h"

#include <google/protobuf/text_format.h>
#include <google/protobuf/util/json_util.h>

namespace pcfg {

bool SerializeConfig(const Config& config, Format format, std::string* out, std::string* error) {
  out->clear();
  switch (format) {
    case Format::kText: {
      *out = kTextHeader;
      std::string text;
      google::protobuf::TextFormat::PrintToString(config, &text);
      *out += text;
      return true;
    }
    case Format::kJson: {
      google::protobuf::util::JsonPrintOptions options;
      options.add_whitespace = true;
      options.preserve_proto_field_names = true;
      const auto status = google::protobuf::util::MessageToJsonString(config, out, options);
      if (!status.ok()) {
        *error = "cannot write the JSON form: " + std::string(status.message());
        out->clear();
        return false;
      }
      if (out->empty() || out->back() != '\n') *out += '\n';
      return true;
    }
    case Format::kBinary:
      return config.SerializeToString(out) || (*error = "cannot write the binary form", false);
  }
  return false;
}

}  // namespace pcfg
