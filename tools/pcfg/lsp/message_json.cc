#include "message_json.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <tuple>
#include <utility>
#include <vector>

namespace pcfg::lsp {
namespace {

using Json = nlohmann::json;

constexpr uint64_t kOnes = 0x0101010101010101, kHighBits = 0x8080808080808080;

constexpr uint64_t HasZeroByte(uint64_t word) { return (word - kOnes) & ~word & kHighBits; }

// The high bit of each of the eight bytes that needs a look of its own (a control character, a
// byte of 128 and up, a quote or a backslash), and perhaps of bytes after the first such: never
// of one before it.
constexpr uint64_t NeedALook(uint64_t word) {
  return (((word - 0x20 * kOnes) & ~word) | word | HasZeroByte(word ^ ('"' * kOnes)) |
          HasZeroByte(word ^ ('\\' * kOnes))) &
         kHighBits;
}

// The length of the well-formed UTF-8 sequence at S[AT] (RFC 3629), or 0.
size_t Utf8Length(std::string_view s, size_t at) {
  const auto byte = [&](size_t k) -> unsigned {
    return at + k < s.size() ? static_cast<unsigned char>(s[at + k]) : 0;
  };
  const auto follows = [&](size_t k, unsigned low = 0x80, unsigned high = 0xBF) {
    return byte(k) >= low && byte(k) <= high;
  };
  const unsigned lead = byte(0);
  if (lead >= 0xC2 && lead <= 0xDF) return follows(1) ? 2 : 0;
  if (lead == 0xE0) return follows(1, 0xA0) && follows(2) ? 3 : 0;
  if (lead == 0xED) return follows(1, 0x80, 0x9F) && follows(2) ? 3 : 0;  // no surrogates
  if (lead >= 0xE1 && lead <= 0xEF) return follows(1) && follows(2) ? 3 : 0;
  if (lead == 0xF0) return follows(1, 0x90) && follows(2) && follows(3) ? 4 : 0;
  if (lead >= 0xF1 && lead <= 0xF3) return follows(1) && follows(2) && follows(3) ? 4 : 0;
  if (lead == 0xF4) return follows(1, 0x80, 0x8F) && follows(2) && follows(3) ? 4 : 0;  // to U+10FFFF
  return 0;
}

// The closing quote of the string whose opening quote is S[OPEN], or npos.
size_t ClosingQuote(std::string_view s, size_t open) {
  for (size_t from = open + 1;;) {
    const void* found = std::memchr(s.data() + from, '"', s.size() - from);
    if (found == nullptr) return std::string_view::npos;
    const size_t quote = static_cast<size_t>(static_cast<const char*>(found) - s.data());
    size_t backslashes = 0;
    while (quote - backslashes > open + 1 && s[quote - 1 - backslashes] == '\\') ++backslashes;
    if (backslashes % 2 == 0) return quote;
    from = quote + 1;
  }
}

// The string value VALUE holds that is exactly WANTED, or null; depth first, on a stack of its
// own, since the peer chooses how deep messages nest.
Json* FindString(Json& value, const std::string& wanted) {
  std::vector<Json*> left = {&value};
  while (!left.empty()) {
    Json* at = left.back();
    left.pop_back();
    if (at->is_string() && at->get_ref<const std::string&>() == wanted) return at;
    if (at->is_structured())
      for (Json& inner : *at) left.push_back(&inner);
  }
  return nullptr;
}

}  // namespace

bool DecodePlainJsonString(std::string_view quoted, std::string* out) {
  // What each escape means ("\n" a line break), or 0 for no escape of this decoder's (\u among them).
  static constexpr std::array<char, 256> kMeant = [] {
    std::array<char, 256> meant{};
    const std::string_view escaped = "\"\\/bfnrt", means = "\"\\/\b\f\n\r\t";
    for (size_t i = 0; i < escaped.size(); ++i) meant[static_cast<unsigned char>(escaped[i])] = means[i];
    return meant;
  }();
  // Written through a pointer: the text's escapes come every few bytes.
  const size_t base = out->size();
  out->resize(base + quoted.size());
  char* write = out->data() + base;
  size_t run = 0;  // the start of the bytes not yet copied
  for (size_t at = 0; at < quoted.size();) {
    if (quoted.size() - at >= 8) {
      uint64_t word;
      std::memcpy(&word, quoted.data() + at, 8);
      const uint64_t look = NeedALook(word);
      if (look == 0) {
        at += 8;
        continue;
      }
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
      at += static_cast<size_t>(__builtin_ctzll(look)) / 8;  // straight to the first
#endif
    }
    const unsigned char byte = static_cast<unsigned char>(quoted[at]);
    if (byte >= 0x20 && byte < 0x80 && byte != '"' && byte != '\\') {
      ++at;
    } else if (byte >= 0x80) {
      const size_t length = Utf8Length(quoted, at);
      if (length == 0) return false;
      at += length;
    } else if (byte != '\\' || at + 1 == quoted.size()) {
      return false;  // a control character, a quote, or a backslash that escapes nothing
    } else {
      const char meant = kMeant[static_cast<unsigned char>(quoted[at + 1])];
      if (meant == 0) return false;  // \u, or no escape at all: the plain parser's
      std::memcpy(write, quoted.data() + run, at - run);
      write += at - run;
      *write++ = meant;
      at += 2;
      run = at;
    }
  }
  std::memcpy(write, quoted.data() + run, quoted.size() - run);
  write += quoted.size() - run;
  out->resize(static_cast<size_t>(write - out->data()));
  return true;
}

Json ParseMessage(const std::string& body, size_t smallest) {
  const auto plain = [&body] { return Json::parse(body, nullptr, /*allow_exceptions=*/false); };
  if (body.size() < smallest) return plain();
  // The longest string of the body. Outside a string, a quote in JSON can only open one.
  size_t open = std::string_view::npos, close = 0;
  for (size_t from = 0;;) {
    const void* found = std::memchr(body.data() + from, '"', body.size() - from);
    if (found == nullptr) break;
    const size_t quote = static_cast<size_t>(static_cast<const char*>(found) - body.data());
    const size_t end = ClosingQuote(body, quote);
    if (end == std::string_view::npos) return plain();
    if (open == std::string_view::npos || end - quote > close - open)
      std::tie(open, close) = std::pair(quote, end);
    from = end + 1;
  }
  if (open == std::string_view::npos || close - open < smallest / 2) return plain();
  // It stands in the rest as a string no message holds, so that where it lands is certain.
  constexpr std::string_view kStandIn = "\"\\u0000\"";
  if (body.find(kStandIn) != std::string::npos) return plain();
  std::string text;
  if (!DecodePlainJsonString(std::string_view(body).substr(open + 1, close - open - 1), &text))
    return plain();
  std::string rest;
  rest.reserve(body.size() - (close + 1 - open) + kStandIn.size());
  rest.append(body, 0, open).append(kStandIn).append(body, close + 1);
  Json message = Json::parse(rest, nullptr, /*allow_exceptions=*/false);
  // The only string value that is one NUL: none is spelled so in BODY. Not found when the stand-in
  // took a key's place, or a later key of the same name won.
  Json* slot = FindString(message, std::string(1, '\0'));
  if (slot == nullptr) return plain();
  *slot = std::move(text);
  return message;
}

}  // namespace pcfg::lsp
