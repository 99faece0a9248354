#include "document.h"

#include <algorithm>
#include <stdexcept>

#include "syntax_tree.h"

namespace pcfg::lsp {

Document::Document(std::string uri, std::string text, int version)
    : uri_(std::move(uri)), text_(std::move(text)), version_(version) {
  IndexLines();
}

void Document::IndexLines() {
  line_starts_.assign(1, 0);
  continuations_.clear();
  four_byte_leads_.clear();
  MarkBytes(text_, 0, &line_starts_, &continuations_, &four_byte_leads_);
}

void Document::MarkBytes(std::string_view text, uint32_t offset, std::vector<uint32_t>* line_starts,
                         std::vector<uint32_t>* continuations, std::vector<uint32_t>* four_byte_leads) {
  syntax::ForEachMarkByte(text, 0, static_cast<uint32_t>(text.size()), [&](uint32_t at, unsigned char byte) {
    if (byte == '\n') line_starts->push_back(offset + at + 1);
    if (byte < 0x80) return;
    if ((byte & 0xC0) == 0x80) continuations->push_back(offset + at);
    if (byte >= 0xF0) four_byte_leads->push_back(offset + at);
  });
}

uint32_t Document::Offset(Position position, PositionEncoding encoding) const {
  if (position.line < 0) return 0;
  if (static_cast<size_t>(position.line) >= line_starts_.size()) return static_cast<uint32_t>(text().size());
  const uint32_t start = line_starts_[static_cast<size_t>(position.line)];
  uint32_t end = static_cast<size_t>(position.line) + 1 < line_starts_.size()
                     ? line_starts_[static_cast<size_t>(position.line) + 1] - 1
                     : static_cast<uint32_t>(text().size());
  if (end > start && text()[end - 1] == '\r') --end;
  if (encoding == PositionEncoding::kUtf8)
    return std::min<uint32_t>(start + static_cast<uint32_t>(std::max(position.character, 0)), end);
  // Characters in UTF-16 units: one per UTF-8 sequence, two for a sequence of four bytes. A
  // position inside a surrogate pair stands before the character.
  int units = 0;
  uint32_t at = start;
  while (at < end && units < position.character) {
    const unsigned char lead = static_cast<unsigned char>(text()[at]);
    const uint32_t length = lead < 0x80 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
    const int width = length == 4 ? 2 : 1;
    if (units + width > position.character) break;
    units += width;
    at = std::min(at + length, end);
  }
  return at;
}

Position Document::PositionOf(uint32_t offset, PositionEncoding encoding) const {
  offset = std::min<uint32_t>(offset, static_cast<uint32_t>(text().size()));
  const auto after = std::upper_bound(line_starts_.begin(), line_starts_.end(), offset);
  const uint32_t start = *(after - 1);
  Position position;
  position.line = static_cast<int>(after - line_starts_.begin()) - 1;
  if (encoding == PositionEncoding::kUtf8) {
    position.character = static_cast<int>(offset - start);
    return position;
  }
  const auto count = [&](const std::vector<uint32_t>& at) {
    return static_cast<int>(std::lower_bound(at.begin(), at.end(), offset) -
                            std::lower_bound(at.begin(), at.end(), start));
  };
  position.character = static_cast<int>(offset - start) - count(continuations_) + count(four_byte_leads_);
  return position;
}

bool Document::Change(const std::optional<Range>& range, std::string text, PositionEncoding encoding) {
  // A lent text changes only once it is back: the analysis of the old one still reads it.
  if (borrowed_ != nullptr) throw std::logic_error("a document changed while its text is lent");
  if (!range) {
    text_ = std::move(text);
    lent_ = false;
    IndexLines();
    return true;
  }
  const uint32_t begin = Offset(range->start, encoding), end = Offset(range->end, encoding);
  if (end < begin) return false;
  text_.replace(begin, end - begin, text);
  ReindexReplaced(begin, end, text);
  if (!edit_) {
    edit_ = Edit{begin, end, static_cast<uint32_t>(begin + text.size())};
  } else {
    // Merged with the edit before: from the first byte either touched to the last, the bytes
    // after the two alike in the text lent and now.
    const uint32_t last = std::max(edit_->new_end, end);
    edit_->old_end += last - edit_->new_end;
    edit_->new_end = static_cast<uint32_t>(last + text.size() - (end - begin));
    edit_->begin = std::min(edit_->begin, begin);
  }
  return true;
}

void Document::ReindexReplaced(uint32_t begin, uint32_t end, const std::string& replacement) {
  std::vector<uint32_t> starts, continuations, four_byte_leads;
  MarkBytes(replacement, begin, &starts, &continuations, &four_byte_leads);
  const int64_t delta = static_cast<int64_t>(replacement.size()) - (end - begin);
  // A line starts after each line break: those of the bytes replaced are in (BEGIN, END].
  syntax::ReplaceMarks(line_starts_, begin + 1, end + 1, starts, delta);
  syntax::ReplaceMarks(continuations_, begin, end, continuations, delta);
  syntax::ReplaceMarks(four_byte_leads_, begin, end, four_byte_leads, delta);
}

}  // namespace pcfg::lsp
