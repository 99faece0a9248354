// Names of enumeration values as people read them in pcfg's output.
#pragma once

#include <google/protobuf/descriptor.h>

#include <string>

namespace pcfg {

// The canonical (first declared) name of NUMBER, or the number itself when it is undeclared.
inline std::string EnumName(const google::protobuf::EnumDescriptor* type, int number) {
  const google::protobuf::EnumValueDescriptor* value = type->FindValueByNumber(number);
  return value ? value->name() : std::to_string(number);
}

}  // namespace pcfg
