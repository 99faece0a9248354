#include "root_entries.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "syntax_tree.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace pcfg {
namespace {

// The bytes that change the scan's state outside strings and comments.
constexpr std::string_view kStructural = "\"'#{}<>[]";

// Finds them in order. Most of a text is none of them: where the processor has 16-byte compares,
// 16 bytes are looked at a time, and the bytes found in a block are taken one by one.
class StructuralBytes {
 public:
  explicit StructuralBytes(std::string_view text) : text_(text) {}

  // The first at or after AT, or the text's size.
  size_t Next(size_t at) {
    if (block_ != kNone && at >= block_ && at < block_ + 16) {
      found_ &= ~0u << (at - block_);
    } else {
      block_ = at;
      found_ = Find(at);
    }
    while (found_ == 0) {
      block_ += 16;
      if (block_ >= text_.size()) return text_.size();
      found_ = Find(block_);
    }
    return block_ + static_cast<size_t>(__builtin_ctz(found_));
  }

 private:
  // A bit for each of the 16 bytes from AT (fewer at the text's end) that is one of them.
  unsigned Find(size_t at) const {
#if defined(__SSE2__)
    if (at + 16 <= text_.size()) {
      const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text_.data() + at));
      const auto is = [&block](char c) { return _mm_cmpeq_epi8(block, _mm_set1_epi8(c)); };
      const __m128i any =
          _mm_or_si128(_mm_or_si128(_mm_or_si128(is('"'), is('\'')), _mm_or_si128(is('#'), is('{'))),
                       _mm_or_si128(_mm_or_si128(is('}'), is('<')),
                                    _mm_or_si128(_mm_or_si128(is('>'), is('[')), is(']'))));
      return static_cast<unsigned>(_mm_movemask_epi8(any));
    }
#endif
    static constexpr std::array<bool, 256> kIsStructural = [] {
      std::array<bool, 256> is{};
      for (const char c : kStructural) is[static_cast<unsigned char>(c)] = true;
      return is;
    }();
    unsigned found = 0;
    for (size_t i = 0; i < 16 && at + i < text_.size(); ++i)
      found |= unsigned{kIsStructural[static_cast<unsigned char>(text_[at + i])]} << i;
    return found;
  }

  std::string_view text_;
  static constexpr size_t kNone = std::string_view::npos;
  size_t block_ = kNone;  // where the block looked at starts
  unsigned found_ = 0;    // the bytes of it not yet taken
};

}  // namespace

uint32_t CountLineBreaks(std::string_view text, size_t from, size_t to) {
  uint32_t breaks = 0;
#if defined(__SSE2__)
  // Each compare is -1 in a byte that matches: subtracted, the bytes count matches, and are
  // summed before they can wrap.
  const __m128i line_break = _mm_set1_epi8('\n');
  while (from + 16 <= to) {
    __m128i counts = _mm_setzero_si128();
    for (int blocks = 0; blocks < 255 && from + 16 <= to; ++blocks, from += 16) {
      const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + from));
      counts = _mm_sub_epi8(counts, _mm_cmpeq_epi8(block, line_break));
    }
    const __m128i sums = _mm_sad_epu8(counts, _mm_setzero_si128());
    breaks += static_cast<uint32_t>(_mm_cvtsi128_si32(sums) + _mm_extract_epi16(sums, 4));
  }
#endif
  for (; from < to; ++from) breaks += text[from] == '\n';
  return breaks;
}

namespace {

// Passes over blanks and comments from AT.
size_t SkipTrivia(std::string_view text, size_t at, size_t end) {
  while (at < end) {
    if (text[at] == '#') {
      at = std::min(text.find('\n', at), end);
    } else if (syntax::IsSpace(text[at])) {
      ++at;
    } else {
      break;
    }
  }
  return at;
}

}  // namespace

bool ScanRootMessages(std::string_view text,
                      const std::function<bool(size_t open, size_t end)>& at_root_close) {
  StructuralBytes structural(text);
  int depth = 0;
  size_t open = 0;
  for (size_t at = structural.Next(0); at < text.size(); at = structural.Next(at)) {
    const char c = text[at];
    if (c == '#') {
      at = std::min(text.find('\n', at), text.size());
      continue;
    }
    if (c == '"' || c == '\'') {
      bool closed = false;
      at = syntax::StringEnd(text, at, &closed);
      continue;
    }
    ++at;
    if (c == '{' || c == '<' || c == '[') {
      if (depth++ == 0) open = at - 1;
    } else if (--depth < 0) {
      return false;
    } else if (depth == 0 && c != ']' && !at_root_close(open, at)) {
      return true;
    }
  }
  return true;
}

RootEntries::RootEntries(std::string_view text) {
  if (text.size() >= UINT32_MAX) return;
  size_t from = 0;  // where the bytes after the last entry start
  // Passes over what may come after an entry: trivia, and a separator that belongs to the entry.
  const auto past_entry = [&](size_t end) {
    size_t at = SkipTrivia(text, from, end);
    if (from > 0 && at < end && (text[at] == ',' || text[at] == ';')) {
      entries_.back().end = static_cast<uint32_t>(at + 1);
      at = SkipTrivia(text, at + 1, end);
    }
    return at;
  };
  bool alone = true;  // every root field so far is a message written alone
  const bool balanced = ScanRootMessages(text, [&](size_t open, size_t end) {
    size_t at = past_entry(open);
    const size_t name = at;
    if (at < open && syntax::IsLetter(text[at]))
      while (at < open && (syntax::IsLetter(text[at]) || syntax::IsDigit(text[at]))) ++at;
    const size_t name_end = at;
    at = SkipTrivia(text, at, open);
    if (at < open && text[at] == ':') at = SkipTrivia(text, at + 1, open);
    if (name_end == name || at != open) {
      alone = false;
      return false;
    }
    by_name_[text.substr(name, name_end - name)].push_back(static_cast<uint32_t>(entries_.size()));
    entries_.push_back({static_cast<uint32_t>(name), static_cast<uint32_t>(end), 1});
    from = end;
    return true;
  });
  if (!alone || !balanced || past_entry(text.size()) != text.size()) {
    entries_.clear();
    by_name_.clear();
    return;
  }
  uint32_t line = 1, counted = 0;
  for (Entry& entry : entries_) {
    line += CountLineBreaks(text, counted, entry.begin);
    counted = entry.begin;
    entry.line = line;
  }
}

const RootEntries::Entry* RootEntries::Find(std::string_view name, size_t index) const {
  const auto found = by_name_.find(name);
  if (found == by_name_.end() || index >= found->second.size()) return nullptr;
  return &entries_[found->second[index]];
}

}  // namespace pcfg
