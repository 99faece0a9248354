// Where a field of binary input stands: the byte offset and length of the record (tag, and
// length or value) that holds the deepest field of a path that the wire data contains.
#pragma once

#include <google/protobuf/descriptor.h>

#include <string_view>

#include "field_path.h"

namespace pcfg {

struct WireSpan {
  int offset = -1;  // -1 when not even the first step is found
  int length = 0;
};

// Follows PATH from a message of type ROOT encoded in WIRE. A repeated field's element N is its
// N-th record (elements packed into one record share it); a singular field that occurs more than
// once (the parser merges the occurrences) is found at its first.
WireSpan LocateInWire(std::string_view wire, const google::protobuf::Descriptor* root, const FieldPath& path);

}  // namespace pcfg
