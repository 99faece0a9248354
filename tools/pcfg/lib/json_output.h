// JSON that pcfg prints for scripts. File names, ids and parser excerpts may hold bytes that are
// not UTF-8, which JSON cannot carry: they are written as U+FFFD instead of failing the output.
#pragma once

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>

namespace pcfg {

using Json = nlohmann::ordered_json;

// VALUE as PrintJson lays it out, nested DEPTH levels deep: each line after the first is
// indented by two spaces per level. Dumped strings hold no raw line break, so every '\n' of the
// dump starts a line of the layout.
inline void WriteJsonAt(std::ostream& out, const Json& value, int depth) {
  const std::string text = value.dump(2, ' ', false, Json::error_handler_t::replace);
  const std::string indent(static_cast<size_t>(2 * depth), ' ');
  size_t start = 0;
  for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
    out.write(text.data() + start, static_cast<std::streamsize>(end + 1 - start)) << indent;
  out.write(text.data() + start, static_cast<std::streamsize>(text.size() - start));
}

inline void PrintJson(std::ostream& out, const Json& json) {
  WriteJsonAt(out, json, 0);
  out << '\n';
}

// A JSON array written one element at a time, laid out as PrintJson lays out a whole array at
// DEPTH, so that a long list is never held in memory as one JSON value. With ONE_LINE_ELEMENTS,
// each element is written on a line of its own without spaces, which keeps lists of many small
// entries short and greppable.
class JsonArrayWriter {
 public:
  JsonArrayWriter(std::ostream& out, int depth, bool one_line_elements = false)
      : out_(out), depth_(depth), one_line_(one_line_elements) {
    out_ << '[';
  }
  void Add(const Json& element) {
    out_ << (empty_ ? "\n" : ",\n") << std::string(static_cast<size_t>(2 * (depth_ + 1)), ' ');
    if (one_line_) {
      out_ << element.dump(-1, ' ', false, Json::error_handler_t::replace);
    } else {
      WriteJsonAt(out_, element, depth_ + 1);
    }
    empty_ = false;
  }
  // Ends the array; the writer must not be used after.
  void Close() {
    if (!empty_) out_ << '\n' << std::string(static_cast<size_t>(2 * depth_), ' ');
    out_ << ']';
  }

 private:
  std::ostream& out_;
  int depth_;
  bool one_line_;
  bool empty_ = true;
};

}  // namespace pcfg
