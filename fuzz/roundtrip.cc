#include "roundtrip.h"

#include <google/protobuf/stubs/common.h>
#include <google/protobuf/text_format.h>
#include <google/protobuf/util/json_util.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "json_strict.h"
#include "parse_in_two.h"

namespace fuzz {
namespace {

bool IsStructurallyValidUTF8(const std::string& text) {
  return google::protobuf::internal::IsStructurallyValidUTF8(text.data(), static_cast<int>(text.size()));
}

// RFC 8259 as nlohmann's parser reads it, less its own limit on the range of numbers, which the
// RFC leaves to each implementation.
bool IsJsonGrammar(const std::string& text) {
  struct Grammar : nlohmann::json_sax<nlohmann::json> {
    bool null() override { return true; }
    bool boolean(bool) override { return true; }
    bool number_integer(number_integer_t) override { return true; }
    bool number_unsigned(number_unsigned_t) override { return true; }
    bool number_float(number_float_t, const string_t&) override { return true; }
    bool string(string_t&) override { return true; }
    bool binary(binary_t&) override { return true; }
    bool start_object(std::size_t) override { return true; }
    bool key(string_t&) override { return true; }
    bool end_object() override { return true; }
    bool start_array(std::size_t) override { return true; }
    bool end_array() override { return true; }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception& error) override {
      out_of_range = error.id == 406;
      return false;
    }
    bool out_of_range = false;
  } grammar;
  return nlohmann::json::sax_parse(text, &grammar) || grammar.out_of_range;
}

// protobuf's JSON printer writes -0.0 as 0 (a known loss of the JSON form): what a JSON round
// trip must give back is the configuration with each -0.0 made 0.
void MakeNegativeZerosZero(google::protobuf::Message* message) {
  namespace gp = google::protobuf;
  const gp::Reflection* reflection = message->GetReflection();
  std::vector<const gp::FieldDescriptor*> fields;
  reflection->ListFields(*message, &fields);
  for (const gp::FieldDescriptor* field : fields) {
    const int count = field->is_repeated() ? reflection->FieldSize(*message, field) : 1;
    for (int i = 0; i < count; ++i) {
      const bool repeated = field->is_repeated();
      switch (field->cpp_type()) {
        case gp::FieldDescriptor::CPPTYPE_DOUBLE: {
          const double value = repeated ? reflection->GetRepeatedDouble(*message, field, i)
                                        : reflection->GetDouble(*message, field);
          if (value == 0 && std::signbit(value))
            repeated ? reflection->SetRepeatedDouble(message, field, i, 0.0)
                     : reflection->SetDouble(message, field, 0.0);
          break;
        }
        case gp::FieldDescriptor::CPPTYPE_FLOAT: {
          const float value = repeated ? reflection->GetRepeatedFloat(*message, field, i)
                                       : reflection->GetFloat(*message, field);
          if (value == 0 && std::signbit(value))
            repeated ? reflection->SetRepeatedFloat(message, field, i, 0.0f)
                     : reflection->SetFloat(message, field, 0.0f);
          break;
        }
        case gp::FieldDescriptor::CPPTYPE_MESSAGE:
          MakeNegativeZerosZero(repeated ? reflection->MutableRepeatedMessage(message, field, i)
                                         : reflection->MutableMessage(message, field));
          break;
        default:
          break;
      }
    }
  }
}

}  // namespace

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
  if (format == pcfg::Format::kJson) MakeNegativeZerosZero(&source.config);
  if (!Equal(source.config, decoded.config, &differences))
    Fail("the decoded " + name + " loads different", differences);
}

void InTwoAsInOne(pcfg::Format format, const uint8_t* data, size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  const bool text = format == pcfg::Format::kText;
  // For JSON the one parse is strict: protobuf's parser, on what the strict check passed.
  const bool strict = text || pcfg::CheckStrictJson(input, pcfg::Config::descriptor(), nullptr);
  if (!text && strict && IsStructurallyValidUTF8(input) && !IsJsonGrammar(input))
    Fail("the strict check passes what is not JSON", input);
  pcfg::LoadedConfig two;
  if (!(text ? pcfg::ParseTextInTwo(input, &two.config, 0) : pcfg::ParseJsonInTwo(input, &two.config, 0)))
    return;
  if (!strict) Fail("two threads parse JSON that the strict check refuses", input);
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
