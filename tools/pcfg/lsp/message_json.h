// Reading a message body as JSON. nlohmann's parser reads a string a byte at a time: the text of a
// large document, which comes whole in an open (or a change of all of it), took 230 ms of a
// 30 MB open. That one string is decoded here instead, and the rest of the message by nlohmann
// as ever.
#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace pcfg::lsp {

// Bodies shorter than this are left to nlohmann alone.
constexpr size_t kSmallestBodyWorthDecoding = size_t{1} << 20;

// What nlohmann::json::parse(BODY) gives without exceptions: the message, or a discarded value when
// BODY is not JSON. The longest string value of BODY is decoded here when BODY is at least
// SMALLEST bytes and that string is plain enough to be sure of (no \u escape); otherwise BODY is
// parsed the plain way.
nlohmann::json ParseMessage(const std::string& body, size_t smallest = kSmallestBodyWorthDecoding);

// Decodes the contents of a JSON string (what stands between its quotes) onto OUT. False, OUT
// then unspecified, when it holds a \u escape, or anything a JSON parser refuses: a control
// character, a bad escape, a byte sequence that is not UTF-8.
bool DecodePlainJsonString(std::string_view quoted, std::string* out);

}  // namespace pcfg::lsp
