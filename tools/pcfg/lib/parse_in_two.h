// Parsing large text and JSON input on two threads: the input is cut where two entries of the
// root meet, each half is parsed by protobuf's own parser into a configuration of its own on the
// same arena, and the second half's lists are moved behind the first's. Sequential parsing stays
// the reference: when no cut is found, when a half does not parse (its errors would be located in
// the half) or when both halves set one singular field (which the whole input may not), the
// caller parses the whole input again.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "config.h"
#include "json_strict.h"

namespace pcfg {

// Input shorter than this is parsed on one thread: a second one would cost more than it saves.
constexpr size_t kSmallestInputWorthCutting = 256 << 10;

// The first position at or after HINT that lies between two fields of the text's root: nesting
// depth 0, outside strings and comments, just after a closing brace or angle bracket. npos when
// none.
size_t TextCutPoint(std::string_view text, size_t hint);

// Parses TEXT into CONFIG, an empty configuration on an arena, in two halves. False when the
// caller must parse sequentially instead (CONFIG is then in an unspecified state: clear it).
// ONE_CORE_FREE, when given, is called on this thread once its half is parsed.
bool ParseTextInTwo(std::string_view text, Config* config, size_t smallest = kSmallestInputWorthCutting,
                    const std::function<void()>& one_core_free = nullptr);
// Parses TEXT into CONFIG with protobuf's text parser and reports nothing: false on any error
// (out of memory included), for a caller that will parse the plain way instead.
bool ParseTextQuietly(std::string_view text, Config* config);

// A JSON object cut in two at a comma between two elements of the array of a root member: the
// first half ends that array and the object there, the second opens them again with the same
// member name and holds the rest as it stands. Only strict JSON is cut (json_strict.h), at a cut
// its check has proven; empty halves when there is none.
struct JsonHalves {
  std::string first, second;
};
JsonHalves CutJson(std::string_view json, const JsonCut& cut, bool first = true, bool second = true);
// The first cut at or after HINT, when JSON is strict.
JsonHalves CutJson(std::string_view json, size_t hint);

// Checks JSON strictly (CheckStrictJson, which says what is wrong in PROBLEM) and, when it is large
// enough, parses it in two halves meanwhile: the second half from the moment the check has found
// where to cut, the first once the check has passed.
enum class JsonLoad {
  kNotStrict,         // PROBLEM says why
  kParsed,            // CONFIG holds the configuration
  kParseOnOneThread,  // strict, but not parsed here: the caller parses the whole (clear CONFIG)
};
JsonLoad CheckAndParseJsonInTwo(std::string_view json, Config* config, JsonProblem* problem,
                                size_t smallest = kSmallestInputWorthCutting);
// Whether two threads parsed JSON (strict, and however short) into CONFIG.
bool ParseJsonInTwo(std::string_view json, Config* config, size_t smallest = kSmallestInputWorthCutting);

}  // namespace pcfg
