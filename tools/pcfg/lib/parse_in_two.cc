#include "parse_in_two.h"

#include <google/protobuf/arena.h>
#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/text_format.h>
#include <google/protobuf/util/json_util.h>

#include <system_error>
#include <thread>
#include <vector>

#include "root_entries.h"

namespace pcfg {
namespace {

namespace gp = google::protobuf;

// Keeps the parser quiet: a half's errors are not the input's, and the sequential parse reports.
class Quiet : public gp::io::ErrorCollector {
 public:
  void AddError(int, gp::io::ColumnNumber, const std::string&) override {}
  void AddWarning(int, gp::io::ColumnNumber, const std::string&) override {}
};

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

bool ParseTextQuietly(std::string_view text, Config* config) {
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

size_t TextCutPoint(std::string_view text, size_t hint) {
  size_t cut = std::string_view::npos;
  const bool balanced = ScanRootMessages(text, [&](size_t, size_t end) {
    if (end < hint) return true;
    cut = end;
    return false;
  });
  return balanced ? cut : std::string_view::npos;
}

namespace {

// Parses the two halves at once, the second on a thread of its own, and joins them in CONFIG.
template <typename Half, typename Parse>
bool ParseHalves(const Half& first, const Half& second_half, Config* config, Parse parse,
                 const std::function<void()>& one_core_free = nullptr) {
  Config* second = gp::Arena::CreateMessage<Config>(config->GetArena());
  bool second_parsed = false;
  std::thread worker;
  try {
    worker = std::thread([&] { second_parsed = parse(second_half, second); });
  } catch (const std::system_error&) {
    return false;  // no thread to be had (a process limit, say): one thread parses the whole
  }
  const bool first_parsed = parse(first, config);
  if (one_core_free) {
    try {
      one_core_free();
    } catch (...) {
      worker.join();
      throw;
    }
  }
  worker.join();
  if (!first_parsed || !second_parsed || SetTwice(*config, *second)) return false;
  MoveLists(second, config);
  config->MergeFrom(*second);  // the singular fields only the second half set
  return true;
}

}  // namespace

bool ParseTextInTwo(std::string_view text, Config* config, size_t smallest,
                    const std::function<void()>& one_core_free) {
  if (text.size() < smallest || config->GetArena() == nullptr) return false;
  const size_t cut = TextCutPoint(text, text.size() / 2);
  if (cut == std::string_view::npos || cut >= text.size()) return false;
  return ParseHalves(text.substr(0, cut), text.substr(cut), config, ParseTextQuietly, one_core_free);
}

JsonHalves CutJson(std::string_view json, const JsonCut& cut, bool first, bool second) {
  if (cut.comma == std::string_view::npos || cut.key.empty()) return {};
  // The first half ends the list and the root there; the second opens both again under the
  // member's key as written and holds the rest as it stands.
  JsonHalves halves;
  if (first) {
    halves.first.reserve(cut.comma + 2);
    halves.first.append(json.substr(0, cut.comma)).append("]}");
  }
  if (second) {
    halves.second.reserve(json.size() - cut.comma + cut.key.size() + 3);
    halves.second.append("{").append(cut.key).append(":[").append(json.substr(cut.comma + 1));
  }
  return halves;
}

JsonHalves CutJson(std::string_view json, size_t hint) {
  JsonCut cut;
  if (!CheckStrictJson(json, Config::descriptor(), nullptr, hint, &cut)) return {};
  return CutJson(json, cut);
}

JsonLoad CheckAndParseJsonInTwo(std::string_view json, Config* config, JsonProblem* problem,
                                size_t smallest) {
  const bool worth_cutting = json.size() >= smallest && config->GetArena() != nullptr;
  JsonCut cut;
  Config* second = worth_cutting ? gp::Arena::CreateMessage<Config>(config->GetArena()) : nullptr;
  bool first_parsed = false, second_parsed = false;
  std::thread first_worker, second_worker;
  // Both halves are parsed from the moment the check finds the cut (the first half is by then
  // checked already), while the check reads on; the result counts only once the check has passed
  // the whole input.
  const auto parse_halves = [&](const JsonCut& found) {
    try {
      second_worker = std::thread(
          [&, found] { second_parsed = ParseJson(CutJson(json, found, false, true).second, second); });
      first_worker = std::thread(
          [&, found] { first_parsed = ParseJson(CutJson(json, found, true, false).first, config); });
    } catch (const std::system_error&) {
      // no thread to be had (a process limit, say): one thread parses the whole
    }
  };
  const bool strict = CheckStrictJson(json, Config::descriptor(), problem, json.size() / 2,
                                      worth_cutting ? &cut : nullptr, parse_halves);
  const bool started = first_worker.joinable() && second_worker.joinable();
  if (first_worker.joinable()) first_worker.join();
  if (second_worker.joinable()) second_worker.join();
  if (!started) first_parsed = false;
  if (!strict) return JsonLoad::kNotStrict;
  if (!first_parsed || !second_parsed || SetTwice(*config, *second)) return JsonLoad::kParseOnOneThread;
  MoveLists(second, config);
  config->MergeFrom(*second);  // the singular fields only the second half set
  return JsonLoad::kParsed;
}

bool ParseJsonInTwo(std::string_view json, Config* config, size_t smallest) {
  if (json.size() < smallest || config->GetArena() == nullptr) return false;
  return CheckAndParseJsonInTwo(json, config, nullptr, smallest) == JsonLoad::kParsed;
}

}  // namespace pcfg
