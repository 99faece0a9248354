// Where the entries of a text's root lie, found by a scan that looks at a few kinds of byte and
// passes over the rest: far cheaper than a syntax tree of the whole text, which a large
// configuration's findings need not wait for when each lies in one entry.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace pcfg {

// Calls AT_ROOT_CLOSE(open, end) for each '}' or '>' that closes a message at the text's root
// (outside strings, comments and lists): OPEN is the offset of its opening bracket, END the
// offset just past it. Stops early when AT_ROOT_CLOSE answers false. Strings end as the
// tokenizer ends them: at their quote, or at their line's end. False when a closing bracket has
// no opening one: not text the parser would take.
bool ScanRootMessages(std::string_view text,
                      const std::function<bool(size_t open, size_t end)>& at_root_close);

// The line breaks in TEXT[FROM, TO), counted 16 bytes at a time where the processor can.
uint32_t CountLineBreaks(std::string_view text, size_t from, size_t to);

// The root's fields of a text in which each is a message written alone: a name, perhaps a ':',
// then '{...}' or '<...>', with only blanks, comments and separators between fields. For other
// text (a scalar or a list at the root, an extension's name, brackets that do not balance) it
// knows no entry at all, and the caller asks a syntax tree.
class RootEntries {
 public:
  struct Entry {
    // From the first byte of its name to just past its closing bracket, or past the separator
    // that follows it.
    uint32_t begin = 0, end = 0;
    uint32_t line = 1;  // 1-based, of BEGIN
  };
  explicit RootEntries(std::string_view text);
  // The INDEX-th entry named NAME, in the order written, or null when there is none.
  const Entry* Find(std::string_view name, size_t index) const;

 private:
  std::vector<Entry> entries_;                                           // in the order written
  std::unordered_map<std::string_view, std::vector<uint32_t>> by_name_;  // indices into entries_
};

}  // namespace pcfg
