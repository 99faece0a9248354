// Many threads at once make their first use of the library's descriptors, reflection and the
// Alias option in a fresh process, while each parses into messages of its own and all of them
// read one shared configuration. An ordinary test in every build; scripts/test-sanitizers.sh
// also runs it under ThreadSanitizer, which is what finds a race here.
//
// First use only happens once per process: keep this the only test of this program (ctest runs
// each test in a process of its own anyway), and touch nothing but the typed interface, which
// needs no descriptor, before the threads are let go.
#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>
#include <google/protobuf/text_format.h>
#include <google/protobuf/util/json_util.h>
#include <google/protobuf/util/message_differencer.h>
#include <google/protobuf/wrappers.pb.h>
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "peripheral.config.pb.h"

namespace models = Talvo::Peripherals::Config::Models;
using google::protobuf::Descriptor;
using google::protobuf::DescriptorPool;
using google::protobuf::EnumDescriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::MessageFactory;
using google::protobuf::Reflection;
using google::protobuf::TextFormat;
using google::protobuf::util::MessageDifferencer;

namespace {

constexpr int kThreads = 16;
constexpr int kRounds = 3;
const std::string kPackage = "Talvo.Peripherals.Config.Models.";

// A headset-like configuration built through the typed interface only: setters and
// serialisation run without descriptors, so building it is no first use.
models::PeripheralConfig MakeSharedConfig() {
  models::PeripheralConfig config;
  config.mutable_device_info()->set_device_name(models::HARDWARE_TREVIL3);
  config.mutable_device_info()->set_soc_name("sxr2230p");
  models::GeneralConfigurations* general = config.mutable_general_configs();
  general->set_cadmor_camera_version(3);
  for (models::CameraSystemType system :
       {models::CAMERA_SYSTEM_TYPE_WORLD_TRACKING, models::CAMERA_SYSTEM_TYPE_CAI}) {
    models::CameraHalStreamConfigs* hal = general->add_hal_stream_configs();
    hal->set_system_type(system);
    models::PipelineToStreamMap* pipeline = hal->add_pipeline_configs();
    pipeline->set_pipeline_type(models::PIPELINE_DEFAULT);
    pipeline->add_streams(models::STREAM_RAW8_NATIVE);
    pipeline->add_streams(models::STREAM_RAW8_GAMMA);
  }
  models::Peripheral* fpga = config.add_peripherals();
  fpga->set_id("fpga");
  fpga->set_type(models::PERIPHERAL_TYPE_FPGA);
  for (int i = 0; i < 8; ++i) {
    const std::string id = "cam" + std::to_string(i);
    models::Peripheral* peripheral = config.add_peripherals();
    peripheral->set_id(id);
    peripheral->set_type(models::PERIPHERAL_TYPE_CAMERA);
    peripheral->set_system_type(models::PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX_CADMOR);
    peripheral->add_dependencies()->set_peripheral_id("fpga");

    models::PhysicalCamera* camera = config.add_physical_cameras();
    camera->set_peripheral_id(id);
    camera->add_cameraset_peripheral_ids("tracking");
    camera->mutable_camx()->set_sensor_name("og01a1b");
    camera->mutable_camx()->mutable_sensor_slave_addr()->set_value(0xC0 + i);
    models::CamXPhysicalCamera_Stream* stream = camera->mutable_camx()->add_streams();
    stream->set_frame_rate(30.0 * (i + 1));
    stream->add_mipi_flags(static_cast<models::MipiFlagsType>(i % 2));
    models::I2CDevice* i2c = camera->mutable_cadmor()->mutable_i2c();
    i2c->set_bus(i);
    i2c->set_address(0x60);
    models::I2CSequence* init = i2c->add_sequences();
    init->set_id(models::CAMERA_COMMAND_INIT);
    for (int r = 0; r < 4; ++r) {
      models::I2CRegister* reg = init->add_registers();
      reg->set_address_hex("0x3" + std::to_string(r) + "0" + std::to_string(i));
      reg->set_value_number(r * 17 + i);
    }
  }
  models::CameraSet* set = config.add_camera_sets();
  set->set_peripheral_id("tracking");
  for (int i = 0; i < 8; ++i) set->add_camera_peripheral_ids("cam" + std::to_string(i));
  return config;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// What one thread saw. Every thread must see the same.
struct Outcome {
  std::vector<std::string> errors;
  int reachable_messages = 0;
  int reachable_enums = 0;
  std::string aliases;
  std::string shared_text;
  std::string example_wire;
  std::string json;
};

struct Inputs {
  const models::PeripheralConfig& shared;  // read by every thread, changed by none
  const std::string& wire;                 // the shared configuration's bytes, with an unknown field
  const std::string& example_text;         // the shipped example in text form
};

void Expect(Outcome& out, bool ok, const std::string& what) {
  if (!ok) out.errors.push_back(what);
}

// Descriptors: the root's, reached through the generated class, and every message and
// enumeration type reachable from it through fields, which resolves their types lazily.
void WalkDescriptors(const Inputs&, Outcome& out) {
  std::set<const Descriptor*> messages;
  std::set<const EnumDescriptor*> enums;
  std::vector<const Descriptor*> pending = {models::PeripheralConfig::descriptor()};
  while (!pending.empty()) {
    const Descriptor* message = pending.back();
    pending.pop_back();
    if (!messages.insert(message).second) continue;
    for (int i = 0; i < message->field_count(); ++i) {
      const FieldDescriptor* field = message->field(i);
      if (field->message_type() != nullptr) pending.push_back(field->message_type());
      if (field->enum_type() != nullptr) {
        enums.insert(field->enum_type());
        Expect(out, field->default_value_enum()->number() == 0, field->full_name() + " defaults to 0");
      }
    }
  }
  out.reachable_messages = static_cast<int>(messages.size());
  out.reachable_enums = static_cast<int>(enums.size());
  Expect(out, messages.count(models::CamXPhysicalCamera_SensorDriverData_SlaveInfo::descriptor()) == 1,
         "SlaveInfo is reachable");
  Expect(out, enums.count(models::TargetDevice_descriptor()) == 1, "TargetDevice is reachable");
  Expect(out, models::PeripheralType_descriptor()->FindValueByNumber(1)->name() == "PERIPHERAL_TYPE_CAMERA",
         "PeripheralType value 1");
}

// Look-ups by name in the generated pool, which builds files on demand.
void LookUpByName(const Inputs&, Outcome& out) {
  const DescriptorPool* pool = DescriptorPool::generated_pool();
  for (const char* file : {"includes/enums.proto", "includes/optionals.proto", "peripheral.config.proto"}) {
    Expect(out, pool->FindFileByName(file) != nullptr, std::string("file ") + file);
  }
  Expect(out,
         pool->FindMessageTypeByName(kPackage + "CamXPhysicalCamera.SensorDriverData") ==
             models::CamXPhysicalCamera_SensorDriverData::descriptor(),
         "nested message by name");
  Expect(out, pool->FindEnumTypeByName(kPackage + "CameraModel") == models::CameraModel_descriptor(),
         "enumeration by name");
  const FieldDescriptor* alias = pool->FindExtensionByName(kPackage + "Alias");
  Expect(out,
         alias != nullptr && alias->number() == 123456789 &&
             alias->containing_type()->full_name() == "google.protobuf.EnumValueOptions",
         "Alias by name");
  const google::protobuf::EnumValueDescriptor* value =
      pool->FindEnumValueByName(kPackage + "HARDWARE_MERIDO");
  Expect(out, value != nullptr && value->number() == 6, "enumeration value by name");
}

// The Alias option of every TargetDevice value.
void ReadAliases(const Inputs&, Outcome& out) {
  const EnumDescriptor* devices = models::TargetDevice_descriptor();
  std::string aliases;
  for (int i = 0; i < devices->value_count(); ++i) {
    const std::string alias = devices->value(i)->options().GetExtension(models::Alias);
    Expect(out, "HARDWARE_" + alias == devices->value(i)->name(), "Alias of " + devices->value(i)->name());
    aliases += alias + " ";
  }
  out.aliases = aliases;
}

// Reflection: the shared configuration read through its reflection object, and a message made
// from the generated factory's prototype and filled by parsing.
void Reflect(const Inputs& in, Outcome& out) {
  const Reflection* reflection = in.shared.GetReflection();
  std::vector<const FieldDescriptor*> fields;
  reflection->ListFields(in.shared, &fields);
  Expect(out, fields.size() == 5, "five fields set in the shared configuration");
  const Descriptor* root = in.shared.GetDescriptor();
  Expect(out, reflection->FieldSize(in.shared, root->FindFieldByName("peripherals")) == 9,
         "nine peripherals");
  Expect(out, !reflection->GetUnknownFields(in.shared).empty(), "the unknown field is kept");

  MessageFactory* factory = MessageFactory::generated_factory();
  Expect(out,
         factory->GetPrototype(models::PhysicalCamera::descriptor()) ==
             &models::PhysicalCamera::default_instance(),
         "prototype of PhysicalCamera is its default instance");
  const Message* prototype = factory->GetPrototype(root);
  Expect(out, prototype == &models::PeripheralConfig::default_instance(), "root prototype");
  std::unique_ptr<Message> parsed(prototype->New());
  Expect(out, parsed->ParseFromString(in.wire), "parse through the prototype");
  const Message& device = parsed->GetReflection()->GetMessage(*parsed, root->FindFieldByName("device_info"));
  const FieldDescriptor* device_name = device.GetDescriptor()->FindFieldByName("device_name");
  Expect(out, device.GetReflection()->GetEnum(device, device_name)->name() == "HARDWARE_TREVIL3",
         "device name through reflection");
}

// Parsing into messages of this thread's own, in all three forms.
void ParseOwn(const Inputs& in, Outcome& out) {
  models::PeripheralConfig own;
  Expect(out, own.ParseFromString(in.wire), "binary parse");
  Expect(out, own.SerializeAsString() == in.wire, "binary round trip");
  Expect(out, MessageDifferencer::Equals(own, in.shared), "parsed equals shared");

  models::PeripheralConfig example;
  Expect(out, TextFormat::ParseFromString(in.example_text, &example), "text parse of the example");
  Expect(out, example.peripherals_size() > 0, "the example has peripherals");
  out.example_wire = example.SerializeAsString();

  // Printing JSON serialises its argument (and so stores cached sizes): print the own copy.
  std::string json;
  own.DiscardUnknownFields();
  Expect(out, google::protobuf::util::MessageToJsonString(own, &json).ok(), "JSON print");
  models::PeripheralConfig from_json;
  Expect(out, google::protobuf::util::JsonStringToMessage(json, &from_json).ok(), "JSON parse");
  Expect(out, MessageDifferencer::Equals(from_json, own), "JSON round trip");
  out.json = json;
}

// Const reads of the shared configuration, typed and generic; it is serialised only as a copy.
void ReadShared(const Inputs& in, Outcome& out) {
  const models::PeripheralConfig& shared = in.shared;
  uint32_t registers = 0;
  for (const models::PhysicalCamera& camera : shared.physical_cameras()) {
    for (const models::I2CSequence& sequence : camera.cadmor().i2c().sequences()) {
      for (const models::I2CRegister& reg : sequence.registers()) registers += reg.value_number();
    }
  }
  Expect(out, registers == 8 * (0 + 17 + 34 + 51) + 4 * (0 + 1 + 2 + 3 + 4 + 5 + 6 + 7), "register values");
  Expect(out, shared.camera_sets(0).camera_peripheral_ids_size() == 8, "camera set members");
  models::PeripheralConfig copy(shared);
  Expect(out, copy.SerializeAsString() == in.wire, "a copy serialises to the shared bytes");
  std::string text;
  Expect(out, TextFormat::PrintToString(shared, &text), "text print");
  out.shared_text = text;
}

void RunThread(const Inputs& in, int index, std::atomic<int>& ready, const std::atomic<bool>& go,
               Outcome& out) {
  using Step = void (*)(const Inputs&, Outcome&);
  static const Step kSteps[] = {WalkDescriptors, LookUpByName, ReadAliases, Reflect, ParseOwn, ReadShared};
  constexpr int kStepCount = sizeof kSteps / sizeof kSteps[0];
  ready.fetch_add(1);
  while (!go.load(std::memory_order_acquire)) std::this_thread::yield();
  // Each thread starts with another step, so that different first uses meet.
  for (int round = 0; round < kRounds; ++round) {
    for (int k = 0; k < kStepCount; ++k) kSteps[(index + k) % kStepCount](in, out);
  }
}

TEST(Concurrency, FirstUseAndSharedReadsFromManyThreadsAtOnce) {
  const std::string example_text = ReadFile(PERIPHERALCONFIG_EXAMPLE_TEXT);
  ASSERT_FALSE(example_text.empty()) << PERIPHERALCONFIG_EXAMPLE_TEXT;
  // An unknown field (number 999, varint 1) after the known ones is kept and written back.
  const std::string wire = MakeSharedConfig().SerializeAsString() + std::string("\xb8\x3e\x01", 3);
  models::PeripheralConfig shared;
  ASSERT_TRUE(shared.ParseFromString(wire));

  const Inputs in{shared, wire, example_text};
  std::vector<Outcome> outcomes(kThreads);
  std::atomic<int> ready{0};
  std::atomic<bool> go{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back(RunThread, std::cref(in), i, std::ref(ready), std::cref(go), std::ref(outcomes[i]));
  }
  // Let all go at once, when every thread is waiting at the start line.
  while (ready.load() < kThreads) std::this_thread::yield();
  go.store(true, std::memory_order_release);
  for (std::thread& thread : threads) thread.join();

  const Outcome& first = outcomes[0];
  EXPECT_GT(first.reachable_messages, 60);
  EXPECT_GT(first.reachable_enums, 30);
  EXPECT_NE(first.aliases.find("TREVIL3 "), std::string::npos) << first.aliases;
  EXPECT_NE(first.shared_text.find("device_name: HARDWARE_TREVIL3"), std::string::npos) << first.shared_text;
  EXPECT_NE(first.json.find("\"HARDWARE_TREVIL3\""), std::string::npos) << first.json;
  EXPECT_FALSE(first.example_wire.empty());
  for (int i = 0; i < kThreads; ++i) {
    const Outcome& out = outcomes[i];
    for (const std::string& error : out.errors) ADD_FAILURE() << "thread " << i << ": " << error;
    EXPECT_EQ(out.reachable_messages, first.reachable_messages) << "thread " << i;
    EXPECT_EQ(out.reachable_enums, first.reachable_enums) << "thread " << i;
    EXPECT_EQ(out.aliases, first.aliases) << "thread " << i;
    EXPECT_EQ(out.shared_text, first.shared_text) << "thread " << i;
    EXPECT_EQ(out.example_wire, first.example_wire) << "thread " << i;
    EXPECT_EQ(out.json, first.json) << "thread " << i;
  }
  // Nothing of the shared configuration changed.
  EXPECT_EQ(models::PeripheralConfig(shared).SerializeAsString(), wire);
}

}  // namespace
