#include "parse_in_two.h"

#include <google/protobuf/arena.h>
#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/text_format.h>
#include <google/protobuf/util/json_util.h>

#include <array>
#include <cctype>
#include <system_error>
#include <thread>
#include <vector>

namespace pcfg {
namespace {

namespace gp = google::protobuf;

// Keeps the parser quiet: a half's errors are not the input's, and the sequential parse reports.
class Quiet : public gp::io::ErrorCollector {
 public:
  void AddError(int, gp::io::ColumnNumber, const std::string&) override {}
  void AddWarning(int, gp::io::ColumnNumber, const std::string&) override {}
};

bool ParseText(std::string_view text, Config* config) {
  Quiet quiet;
  gp::TextFormat::Parser parser;
  parser.RecordErrorsTo(&quiet);
  gp::io::ArrayInputStream input(text.data(), static_cast<int>(text.size()));
  try {
    return parser.Parse(&input, config);
  } catch (const std::exception&) {
    return false;  // out of memory in a half: the sequential parse will say so, or manage
  }
}

bool ParseJson(const std::string& json, Config* config) {
  google::protobuf::util::JsonParseOptions options;
  options.ignore_unknown_fields = false;
  try {
    return google::protobuf::util::JsonStringToMessage(json, config, options).ok();
  } catch (const std::exception&) {
    return false;
  }
}

// Moves every element of each list of FROM behind the elements of the same list of TO; both
// live on one arena, so elements change hands without being copied.
void MoveLists(Config* from, Config* to) {
  const gp::Reflection* reflection = from->GetReflection();
  const gp::Descriptor* type = from->GetDescriptor();
  for (int i = 0; i < type->field_count(); ++i) {
    const gp::FieldDescriptor* field = type->field(i);
    if (!field->is_repeated() || field->cpp_type() != gp::FieldDescriptor::CPPTYPE_MESSAGE) continue;
    std::vector<gp::Message*> elements(static_cast<size_t>(reflection->FieldSize(*from, field)));
    for (auto element = elements.rbegin(); element != elements.rend(); ++element)
      *element = reflection->UnsafeArenaReleaseLast(from, field);
    for (gp::Message* element : elements) reflection->UnsafeArenaAddAllocatedMessage(to, field, element);
  }
}

// Whether both set a singular field, which the text parser refuses in one text.
bool SetTwice(const Config& a, const Config& b) {
  const gp::Reflection* reflection = a.GetReflection();
  const gp::Descriptor* type = a.GetDescriptor();
  for (int i = 0; i < type->field_count(); ++i) {
    const gp::FieldDescriptor* field = type->field(i);
    if (!field->is_repeated() && reflection->HasField(a, field) && reflection->HasField(b, field))
      return true;
  }
  return false;
}

}  // namespace

size_t TextCutPoint(std::string_view text, size_t hint) {
  // Only these bytes change the scan's state; the others, most of the text, are passed over with
  // one look-up each.
  static constexpr std::array<bool, 256> kMatters = [] {
    std::array<bool, 256> matters{};
    for (unsigned char c : std::string_view("\"'#{}<>[]\\\n")) matters[c] = true;
    return matters;
  }();
  int depth = 0;
  char quote = 0;
  bool comment = false;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (!kMatters[static_cast<unsigned char>(c)]) continue;
    if (comment) {
      comment = c != '\n';
    } else if (quote != 0) {
      if (c == '\\')
        ++i;
      else if (c == quote || c == '\n')
        quote = 0;
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else if (c == '#') {
      comment = true;
    } else if (c == '{' || c == '<' || c == '[') {
      ++depth;
    } else if (c == '}' || c == '>' || c == ']') {
      if (--depth < 0) return std::string_view::npos;  // not text the parser would take
      if (depth == 0 && i + 1 >= hint && c != ']') return i + 1;
    }
  }
  return std::string_view::npos;
}

namespace {

// Parses the two halves at once, the second on a thread of its own, and joins them in CONFIG.
template <typename Half, typename Parse>
bool ParseHalves(const Half& first, const Half& second_half, Config* config, Parse parse) {
  Config* second = gp::Arena::CreateMessage<Config>(config->GetArena());
  bool second_parsed = false;
  std::thread worker;
  try {
    worker = std::thread([&] { second_parsed = parse(second_half, second); });
  } catch (const std::system_error&) {
    return false;  // no thread to be had (a process limit, say): one thread parses the whole
  }
  const bool first_parsed = parse(first, config);
  worker.join();
  if (!first_parsed || !second_parsed || SetTwice(*config, *second)) return false;
  MoveLists(second, config);
  config->MergeFrom(*second);  // the singular fields only the second half set
  return true;
}

// Whether the comma at AT stands between two elements: one after '[' or another comma, or before
// ']', is an error that neither half alone would see.
bool BetweenElements(std::string_view json, size_t at) {
  constexpr std::string_view kSpace = " \t\r\n";
  const size_t before = json.find_last_not_of(kSpace, at - 1), after = json.find_first_not_of(kSpace, at + 1);
  return before != std::string_view::npos && json[before] != '[' && json[before] != ',' &&
         after != std::string_view::npos && json[after] != ']' && json[after] != ',';
}

}  // namespace

bool ParseTextInTwo(std::string_view text, Config* config, size_t smallest) {
  if (text.size() < smallest || config->GetArena() == nullptr) return false;
  const size_t cut = TextCutPoint(text, text.size() / 2);
  if (cut == std::string_view::npos || cut >= text.size()) return false;
  return ParseHalves(text.substr(0, cut), text.substr(cut), config, ParseText);
}

JsonHalves CutJson(std::string_view json, size_t hint) {
  // Only the text before the cut is scanned: whatever follows goes to the second half as it
  // stands, so the parser of that half judges it.
  std::vector<char> open;  // the brackets open around the scan
  bool key_next = false;   // in the root object, the next string is a member name
  std::string_view name;   // the member being read
  // Inside the root, only these bytes change the scan's state.
  static constexpr std::array<bool, 256> kMatters = [] {
    std::array<bool, 256> matters{};
    for (unsigned char c : std::string_view("\"{}[],'")) matters[c] = true;
    return matters;
  }();
  for (size_t i = 0; i < json.size(); ++i) {
    const char c = json[i];
    if (!kMatters[static_cast<unsigned char>(c)] && !open.empty()) continue;
    if (c == '"') {
      // The string ends at the first quote after it that an even run of backslashes precedes.
      const size_t start = i;
      do {
        i = json.find('"', i + 1);
        if (i == std::string_view::npos) return {};
      } while ((i - json.find_last_not_of('\\', i - 1)) % 2 == 0);
      if (open.size() == 1 && key_next) {
        name = json.substr(start, i - start + 1);
        key_next = false;
      }
    } else if (c == '{' || c == '[') {
      if (open.empty() && c != '{') return {};
      open.push_back(c);
      key_next = open.size() == 1;
    } else if (c == '}' || c == ']') {
      if (open.empty() || open.back() != (c == '}' ? '{' : '[')) return {};
      open.pop_back();
    } else if (c == ',') {
      if (open.size() == 1) key_next = true;
      if (open.size() == 2 && open.back() == '[' && i >= hint && !name.empty() && BetweenElements(json, i)) {
        // The parser appends a list named twice and merges a message named twice, in the order
        // of the document; the halves keep that order, and the caller refuses a message in both.
        JsonHalves halves;
        halves.first.reserve(i + 2);
        halves.first.append(json.substr(0, i)).append("]}");
        halves.second.reserve(json.size() - i + name.size() + 3);
        halves.second.append("{").append(name).append(":[").append(json.substr(i + 1));
        return halves;
      }
    } else if (c == '\'' || (open.empty() && !std::isspace(static_cast<unsigned char>(c)))) {
      return {};  // protobuf's parser takes single-quoted strings too, which this scan does not follow
    }
  }
  return {};
}

bool ParseJsonInTwo(std::string_view json, Config* config, size_t smallest) {
  if (json.size() < smallest || config->GetArena() == nullptr) return false;
  const JsonHalves halves = CutJson(json, json.size() / 2);
  if (halves.first.empty()) return false;
  return ParseHalves(halves.first, halves.second, config, ParseJson);
}

}  // namespace pcfg
