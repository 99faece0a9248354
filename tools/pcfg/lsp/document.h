// An open text document of the editor: its text, version and the positions of the protocol, which
// count lines from 0 and characters in UTF-16 code units, or in bytes when both sides agree to.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pcfg::lsp {

enum class PositionEncoding { kUtf16, kUtf8 };

struct Position {
  int line = 0;
  int character = 0;
};

struct Range {
  Position start, end;
};

class Document {
 public:
  Document(std::string uri, std::string text, int version);

  const std::string& uri() const { return uri_; }
  const std::string& text() const { return borrowed_ != nullptr ? *borrowed_ : text_; }
  int version() const { return version_; }

  // The byte at POSITION: a position past the end of its line stands at the line's end, one past
  // the last line at the end of the text (as the protocol asks).
  uint32_t Offset(Position position, PositionEncoding encoding) const;
  Position PositionOf(uint32_t offset, PositionEncoding encoding) const;
  Range RangeOf(uint32_t begin, uint32_t end, PositionEncoding encoding) const {
    return {PositionOf(begin, encoding), PositionOf(end, encoding)};
  }

  // Replaces RANGE (all of the text when absent) with TEXT; false when the range is backwards.
  bool Change(const std::optional<Range>& range, std::string text, PositionEncoding encoding);
  void set_version(int version) { version_ = version; }

  // What the changes since the text was last lent did, as one edit: bytes [begin, old_end) of
  // the text lent became [begin, new_end). Absent when nothing is known of it (never lent, or
  // replaced whole).
  struct Edit {
    uint32_t begin = 0, old_end = 0, new_end = 0;
  };
  std::optional<Edit> edit_since_lent() const {
    if (!lent_) return std::nullopt;
    return edit_ ? *edit_ : Edit{};
  }

  // The text handed over to whoever analyses it, so that a large document is held once: read
  // meanwhile at *HOLDER (see Borrow), and given back (Reclaim) before it changes.
  std::string Lend() {
    lent_ = true;
    edit_.reset();
    return std::move(text_);
  }
  void Borrow(const std::string* holder) { borrowed_ = holder; }
  void Reclaim(std::string text) {
    text_ = std::move(text);
    borrowed_ = nullptr;
  }

 private:
  void IndexLines();
  // Adds the marks of TEXT, which stands at OFFSET of the document, to the three lists.
  static void MarkBytes(std::string_view text, uint32_t offset, std::vector<uint32_t>* line_starts,
                        std::vector<uint32_t>* continuations, std::vector<uint32_t>* four_byte_leads);
  // Bytes [BEGIN, END) replaced by REPLACEMENT: the line and UTF-8 marks moved, those of
  // REPLACEMENT added, in a pass over the marks rather than the text.
  void ReindexReplaced(uint32_t begin, uint32_t end, const std::string& replacement);
  std::string uri_;
  bool lent_ = false;         // whether EDIT_ tells what changed since
  std::optional<Edit> edit_;  // none yet
  std::string text_;
  const std::string* borrowed_ = nullptr;
  int version_;
  std::vector<uint32_t> line_starts_;
  // UTF-8 continuation bytes (no UTF-16 unit) and four-byte leads (two), for O(log n) columns.
  std::vector<uint32_t> continuations_, four_byte_leads_;
};

}  // namespace pcfg::lsp
