// Parsing large text input on two threads: the text is cut where the root's fields meet, each half
// is parsed by protobuf's text parser into a configuration of its own on the same arena, and the
// second half's lists are moved behind the first's. Sequential parsing stays the reference: when
// no cut is found, when a half does not parse (its errors would be located in the half) or when
// both halves set one singular field (which the whole text may not), the caller parses the whole
// text again.
#pragma once

#include <string_view>

#include "config.h"

namespace pcfg {

// The first position at or after HINT that lies between two fields of the root: nesting depth 0,
// outside strings and comments, just after a closing brace or angle bracket. npos when none.
size_t TextCutPoint(std::string_view text, size_t hint);

// Text shorter than this is parsed on one thread: a second one would cost more than it saves.
constexpr size_t kSmallestTextWorthCutting = 256 << 10;

// Parses TEXT into CONFIG, an empty configuration on an arena, in two halves. False when the
// caller must parse sequentially instead (CONFIG is then in an unspecified state: clear it).
bool ParseTextInTwo(std::string_view text, Config* config, size_t smallest = kSmallestTextWorthCutting);

}  // namespace pcfg
