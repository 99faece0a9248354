// Where a field of binary input stands: the byte offset and length of the record (tag, and
// length or value) that holds the deepest field of a path that the wire data contains.
#pragma once

#include <google/protobuf/descriptor.h>

#include <string_view>
#include <unordered_map>
#include <vector>

#include "field_path.h"

namespace pcfg {

struct WireSpan {
  int offset = -1;  // -1 when not even the first step is found
  int length = 0;
};

// Follows paths from a message of type ROOT encoded in WIRE. A repeated field's element N is its
// N-th record (elements packed into one record share it); a singular field that occurs more than
// once (the parser merges the occurrences) is found at its first. Each message's records are
// indexed once, when a path first enters it, so locating every finding costs one pass over what
// they touch, not one pass each. WIRE is given with each call (the same bytes each time), so that
// the locator can move with the buffer that holds them.
class WireLocator {
 public:
  explicit WireLocator(const google::protobuf::Descriptor* root);
  WireSpan Locate(std::string_view wire, const FieldPath& path) const;

 private:
  struct Record {
    int start = 0, length = 0;       // the whole record, tag included
    int body = -1, body_length = 0;  // a length-delimited record's body
    int elements_through = 0;        // elements of its field up to and including this record
  };
  struct Body {
    std::unordered_map<int, std::vector<Record>> fields;  // by field number, in wire order
  };
  const Body& IndexOf(std::string_view wire, int start, int length,
                      const google::protobuf::Descriptor* type) const;

  const google::protobuf::Descriptor* root_;
  mutable std::unordered_map<int, Body> bodies_;  // by the offset where a message's body starts
};

}  // namespace pcfg
