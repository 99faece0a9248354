// The protocol's framing: each message a "Content-Length: N" header block, a blank line, then N
// bytes of JSON. Reading never trusts the peer: a header block without a usable length is skipped,
// and a length past the limit is read past rather than held.
#pragma once

#include <cstddef>
#include <string>

namespace pcfg::lsp {

// Messages larger than this are read past and reported, never held (the text of a document
// comes in one message, so this is the input size limit with room for the JSON around it).
constexpr size_t kMaxMessageBytes = size_t{160} << 20;

class MessageReader {
 public:
  // kFramed is the protocol's; kDelimited is for recorded sessions written by hand: messages
  // separated by lines of "---", lines starting with '#' left out (where their checks go).
  enum class Style { kFramed, kDelimited };
  explicit MessageReader(int fd, Style style = Style::kFramed) : fd_(fd), style_(style) {}
  enum class Result { kMessage, kEnd, kMalformed, kTooLarge };
  // Reads the next message into *BODY. kEnd at end of input (or a read error); kMalformed when a
  // header block gives no length (its bytes are skipped); kTooLarge when the body is past the
  // limit (its bytes are skipped).
  Result Next(std::string* body);

 private:
  bool Fill();  // reads more; false at end of input
  Result NextDelimited(std::string* body);
  Result ReadLargeBody(size_t size, std::string* body);
  int fd_;
  Style style_;
  std::string buffer_;
  size_t at_ = 0;
  bool ended_ = false;
};

// Writes BODY framed to FD; false when the peer is gone.
bool WriteMessage(int fd, const std::string& body);

}  // namespace pcfg::lsp
