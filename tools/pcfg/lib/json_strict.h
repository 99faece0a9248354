// JSON as RFC 8259 and protobuf's JSON mapping allow it, and no more. protobuf's C++ JSON parser
// is lenient (bare keys, single quotes, trailing commas, a key given twice, arrays in arrays,
// raw control characters in strings), where the other runtimes that read these files refuse; a
// file that passes here therefore reads the same everywhere. The same pass proves where the
// two-thread parse may cut, and on demand records where each field stands.
#pragma once

#include <google/protobuf/descriptor.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "field_path.h"

namespace pcfg {

struct JsonProblem {
  size_t offset = 0;  // the byte where the input stops being strict JSON of the type
  std::string message;
  bool syntax = true;  // false: well-formed JSON that the mapping of the type refuses
};

// A comma between two elements of an array that is the value of a root member, and that member's
// key as written (quotes included): the input may be cut there and the member opened again.
struct JsonCut {
  size_t comma = std::string_view::npos;
  std::string_view key;
};

// Checks JSON against RFC 8259 and the JSON mapping of TYPE: every key a known field, no field
// given twice (under either of its names), at most one member of a oneof, arrays only for
// repeated fields and never inside one another, objects only for messages. On the first
// violation returns false and says where. When CUT is given, records the first cut at or after
// CUT_HINT.
// ON_CUT, when given, hears of the cut as soon as it is found, while the check goes on (to start
// parsing the rest at once); what it starts is to be trusted only if the whole check passes.
bool CheckStrictJson(std::string_view json, const google::protobuf::Descriptor* type, JsonProblem* problem,
                     size_t cut_hint = std::string_view::npos, JsonCut* cut = nullptr,
                     const std::function<void(const JsonCut&)>& on_cut = nullptr);

// Where each field of strict JSON input stands, recorded in one pass: the key of a singular
// field, the value of each element of a repeated one.
class JsonLocations {
 public:
  JsonLocations(std::string_view json, const google::protobuf::Descriptor* type);
  // Offset of the deepest step of PATH that the input holds; npos when not even the first.
  size_t Find(const FieldPath& path) const;

  struct Node {
    struct Entry {
      const google::protobuf::FieldDescriptor* field = nullptr;
      size_t key = std::string_view::npos;  // the member's key
      std::vector<size_t> elements;         // each element's value, for a repeated field
      std::vector<const Node*> children;    // the object of each element, or of the value
    };
    std::vector<Entry> entries;
  };

 private:
  std::deque<Node> nodes_;
};

// Line and column (1-based, columns in bytes) of offsets into a text, after one pass over it.
class LineIndex {
 public:
  explicit LineIndex(std::string_view text);
  std::pair<int, int> At(size_t offset) const;

 private:
  std::vector<size_t> starts_;
};

}  // namespace pcfg
