// Writes a configuration N times the size of a given one, in its three forms, for the whole-process
// comparisons of benchmarks/compare.sh:
//
//   scale-config examples/headset.txtpb 10 /tmp/scratch/headset-x10
//     -> headset-x10.txtpb, headset-x10.json, headset-x10.binpb
//
// The registry and the camera topology (peripherals, physical and logical cameras, camera sets,
// stream configurations) are repeated N times; copy k > 0 appends "-xK" to every peripheral id it
// holds or names, so each copy references only itself and the result is as clean under pcfg's
// checks as the original. Device information, general configurations and the option tables
// stay single: they are keyed by type, and repeating them would be a finding.
//
// Links the schema library and protobuf only, so the inputs do not depend on the tool measured.
#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>
#include <google/protobuf/text_format.h>
#include <google/protobuf/util/json_util.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "peripheral.config.pb.h"

namespace {

namespace models = Talvo::Peripherals::Config::Models;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;

// A string field that holds or names a peripheral id.
bool HoldsPeripheralId(const FieldDescriptor& field) {
  if (field.cpp_type() != FieldDescriptor::CPPTYPE_STRING) return false;
  const std::string& name = field.name();
  auto ends_with = [&name](const std::string& tail) {
    return name.size() >= tail.size() && name.compare(name.size() - tail.size(), tail.size(), tail) == 0;
  };
  if (name == "id")
    return field.containing_type()->full_name() == models::Peripheral::descriptor()->full_name();
  return ends_with("peripheral_id") || ends_with("peripheral_ids") || name == "template_id";
}

// Appends SUFFIX to every non-empty peripheral id anywhere inside MESSAGE.
void RenameIds(Message* message, const std::string& suffix) {
  const Reflection* reflection = message->GetReflection();
  std::vector<const FieldDescriptor*> fields;
  reflection->ListFields(*message, &fields);
  for (const FieldDescriptor* field : fields) {
    if (field->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE) {
      if (field->is_repeated()) {
        for (int i = 0; i < reflection->FieldSize(*message, field); ++i)
          RenameIds(reflection->MutableRepeatedMessage(message, field, i), suffix);
      } else {
        RenameIds(reflection->MutableMessage(message, field), suffix);
      }
    } else if (HoldsPeripheralId(*field)) {
      if (field->is_repeated()) {
        for (int i = 0; i < reflection->FieldSize(*message, field); ++i) {
          const std::string value = reflection->GetRepeatedString(*message, field, i);
          if (!value.empty()) reflection->SetRepeatedString(message, field, i, value + suffix);
        }
      } else {
        const std::string value = reflection->GetString(*message, field);
        if (!value.empty()) reflection->SetString(message, field, value + suffix);
      }
    }
  }
}

template <typename Entry>
void Repeat(google::protobuf::RepeatedPtrField<Entry>* list, int times) {
  const google::protobuf::RepeatedPtrField<Entry> original = *list;
  for (int copy = 1; copy < times; ++copy) {
    const std::string suffix = "-x" + std::to_string(copy);
    for (const Entry& entry : original) {
      Entry* added = list->Add();
      *added = entry;
      RenameIds(added, suffix);
    }
  }
}

bool WriteFile(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
  out.close();
  if (!out) std::cerr << "scale-config: cannot write " << path << "\n";
  return static_cast<bool>(out);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::cerr << "usage: scale-config INPUT.txtpb TIMES OUTPUT_STEM\n"
                 "writes OUTPUT_STEM.txtpb, .json and .binpb: INPUT's registry and topology TIMES times\n";
    return 2;
  }
  const std::string input = argv[1], stem = argv[3];
  const int times = std::atoi(argv[2]);
  if (times < 1) {
    std::cerr << "scale-config: TIMES must be a positive number\n";
    return 2;
  }

  std::ifstream in(input, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  if (!in) {
    std::cerr << "scale-config: cannot read " << input << "\n";
    return 2;
  }
  models::PeripheralConfig config;
  if (!google::protobuf::TextFormat::ParseFromString(text.str(), &config)) {
    std::cerr << "scale-config: " << input << " is not a text-format PeripheralConfig\n";
    return 2;
  }

  Repeat(config.mutable_peripherals(), times);
  Repeat(config.mutable_physical_cameras(), times);
  Repeat(config.mutable_logical_cameras(), times);
  Repeat(config.mutable_camera_sets(), times);
  Repeat(config.mutable_camera_stream_configs(), times);

  std::string printed, json, binary;
  google::protobuf::util::JsonPrintOptions json_options;
  json_options.add_whitespace = true;
  json_options.preserve_proto_field_names = true;
  if (!google::protobuf::TextFormat::PrintToString(config, &printed) ||
      !google::protobuf::util::MessageToJsonString(config, &json, json_options).ok() ||
      !config.SerializeToString(&binary)) {
    std::cerr << "scale-config: cannot print the scaled configuration\n";
    return 1;
  }
  const std::string header =
      "# proto-file: peripheralconfig/proto/peripheral.config.proto\n"
      "# proto-message: Talvo.Peripherals.Config.Models.PeripheralConfig\n";
  if (!WriteFile(stem + ".txtpb", header + printed) || !WriteFile(stem + ".json", json) ||
      !WriteFile(stem + ".binpb", binary))
    return 1;
  std::printf("%s: %d peripherals; text %zu, JSON %zu, binary %zu bytes\n", stem.c_str(),
              config.peripherals_size(), header.size() + printed.size(), json.size(), binary.size());
  return 0;
}
