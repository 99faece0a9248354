#include "roundtrip.h"

#include <google/protobuf/text_format.h>
#include <google/protobuf/util/json_util.h>

#include <string>

#include "fuzz_support.h"
#include "parse_in_two.h"

namespace fuzz {

void RoundTrip(pcfg::Format format, const uint8_t* data, size_t size) {
  pcfg::LoadedConfig source;
  if (!Load(format, std::string(reinterpret_cast<const char*>(data), size), &source)) return;
  const std::string name = pcfg::FormatName(format);
  // Neither text nor JSON can name a field the schema does not know.
  if (HasUnknownFields(source.config)) Fail(name + " input loaded with unknown fields");

  pcfg::LoadedConfig compiled;
  if (!Load(pcfg::Format::kBinary, Print(source.config, pcfg::Format::kBinary), &compiled))
    Fail("the compiled " + name + " input does not load");
  std::string differences;
  if (!Equal(source.config, compiled.config, &differences))
    Fail("the compiled " + name + " input loads different", differences);

  pcfg::LoadedConfig decoded;
  const std::string printed = Print(compiled.config, format);
  if (!Load(format, printed, &decoded)) Fail("the decoded " + name + " does not load", printed);
  if (!Equal(source.config, decoded.config, &differences))
    Fail("the decoded " + name + " loads different", differences);
}

void InTwoAsInOne(pcfg::Format format, const uint8_t* data, size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  const bool text = format == pcfg::Format::kText;
  pcfg::LoadedConfig two;
  if (!(text ? pcfg::ParseTextInTwo(input, &two.config, 0) : pcfg::ParseJsonInTwo(input, &two.config, 0)))
    return;
  // The one parse is protobuf's own; the loader's checks that follow it (such as UTF-8 in text
  // strings) follow the two-thread parse alike.
  pcfg::LoadedConfig one;
  google::protobuf::util::JsonParseOptions options;
  options.ignore_unknown_fields = false;
  if (!(text ? google::protobuf::TextFormat::ParseFromString(input, &one.config)
             : google::protobuf::util::JsonStringToMessage(input, &one.config, options).ok()))
    Fail("two threads parse what one parse refuses", input);
  std::string differences;
  if (!Equal(one.config, two.config, &differences))
    Fail("two threads parse it into something else", differences);
}

}  // namespace fuzz
