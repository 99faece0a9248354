// The schema's three file descriptors as the generator embeds them (no json_name, no source
// info), collected from the built library: the form that the golden lock stores.
#pragma once

#include <google/protobuf/descriptor.pb.h>

#include "peripheral.config.pb.h"

namespace pctest {

inline const char* const kSchemaFiles[] = {"includes/enums.proto", "includes/optionals.proto",
                                           "peripheral.config.proto"};

inline google::protobuf::FileDescriptorSet BuiltSchemaDescriptors() {
  // Touching the root's descriptor makes sure all three files are built.
  Talvo::Peripherals::Config::Models::PeripheralConfig::descriptor();
  google::protobuf::FileDescriptorSet set;
  for (const char* name : kSchemaFiles)
    google::protobuf::DescriptorPool::generated_pool()->FindFileByName(name)->CopyTo(set.add_file());
  return set;
}

}  // namespace pctest
