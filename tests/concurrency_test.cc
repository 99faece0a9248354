// Many threads at once make their first use of the library's descriptors, reflection and the
// Alias option in a fresh process, while each parses into messages of its own and all of them
// read one shared configuration. An ordinary test in every build; scripts/test-sanitizers.sh
// also runs it under ThreadSanitizer, which is what finds a race here.
//
// First use only happens once per process: keep this the only test of this program (ctest runs
// each test in a process of its own anyway), and touch nothing but the typed interface, which
// needs no descriptor, before the threads are let go.
#include <google/protobuf/descriptor.h>
#include <google/protobuf/text_format.h>
#include <google/protobuf/util/json_util.h>
#include <google/protobuf/util/message_differencer.h>
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
namespace gp = google::protobuf;

namespace {

constexpr int kThreads = 16;
constexpr int kRounds = 3;
const std::string kPackage = "Talvo.Peripherals.Config.Models.";

// Eight cameras with CamX and Cadmor parts, built through setters only: building it is no first
// use of descriptors.
models::PeripheralConfig MakeSharedConfig() {
  models::PeripheralConfig config;
  config.mutable_device_info()->set_device_name(models::HARDWARE_TREVIL3);
  config.mutable_device_info()->set_soc_name("sxr2230p");
  models::PipelineToStreamMap* pipeline =
      config.mutable_general_configs()->add_hal_stream_configs()->add_pipeline_configs();
  pipeline->add_streams(models::STREAM_RAW8_NATIVE);
  config.add_peripherals()->set_id("fpga");
  for (int i = 0; i < 8; ++i) {
    const std::string id = "cam" + std::to_string(i);
    models::Peripheral* peripheral = config.add_peripherals();
    peripheral->set_id(id);
    peripheral->set_type(models::PERIPHERAL_TYPE_CAMERA);
    peripheral->add_dependencies()->set_peripheral_id("fpga");
    models::PhysicalCamera* camera = config.add_physical_cameras();
    camera->set_peripheral_id(id);
    camera->mutable_camx()->mutable_sensor_slave_addr()->set_value(0xC0 + i);
    camera->mutable_camx()->add_streams()->set_frame_rate(30.0 * (i + 1));
    models::I2CSequence* init = camera->mutable_cadmor()->mutable_i2c()->add_sequences();
    for (int r = 0; r < 4; ++r) init->add_registers()->set_value_number(r * 17 + i);
  }
  return config;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

struct Inputs {
  const models::PeripheralConfig& shared;  // read by every thread, changed by none
  const std::string& wire;                 // the shared configuration's bytes, with an unknown field
  const std::string& example_text;         // the shipped example in text form
};

// What one thread saw, as text; every thread must see the same, and no errors.
struct Outcome {
  std::vector<std::string> errors;
  std::string seen;
  void Expect(bool ok, const std::string& what) {
    if (!ok) errors.push_back(what);
  }
};

// Descriptors reachable from the root through fields, which resolves their types lazily, and
// look-ups by name in the generated pool, which builds files on demand.
void Describe(const Inputs&, Outcome& out) {
  std::set<const gp::Descriptor*> messages;
  std::set<const gp::EnumDescriptor*> enums;
  std::vector<const gp::Descriptor*> pending = {models::PeripheralConfig::descriptor()};
  while (!pending.empty()) {
    const gp::Descriptor* message = pending.back();
    pending.pop_back();
    if (!messages.insert(message).second) continue;
    for (int i = 0; i < message->field_count(); ++i) {
      if (message->field(i)->message_type()) pending.push_back(message->field(i)->message_type());
      if (message->field(i)->enum_type()) enums.insert(message->field(i)->enum_type());
    }
  }
  out.seen += std::to_string(messages.size()) + " messages, " + std::to_string(enums.size()) + " enums; ";
  const gp::DescriptorPool* pool = gp::DescriptorPool::generated_pool();
  out.Expect(pool->FindMessageTypeByName(kPackage + "CamXPhysicalCamera.SensorDriverData") ==
                 models::CamXPhysicalCamera_SensorDriverData::descriptor(),
             "nested message by name");
  out.Expect(pool->FindEnumTypeByName(kPackage + "CameraModel") == models::CameraModel_descriptor(),
             "enumeration by name");
  const gp::FieldDescriptor* alias = pool->FindExtensionByName(kPackage + "Alias");
  out.Expect(alias != nullptr && alias->number() == 123456789, "Alias by name");
}

// The Alias option of every TargetDevice value.
void ReadAliases(const Inputs&, Outcome& out) {
  const gp::EnumDescriptor* devices = models::TargetDevice_descriptor();
  for (int i = 0; i < devices->value_count(); ++i) {
    const std::string alias = devices->value(i)->options().GetExtension(models::Alias);
    out.Expect("HARDWARE_" + alias == devices->value(i)->name(), "Alias of " + devices->value(i)->name());
    out.seen += alias + " ";
  }
}

// The shared configuration through its reflection, and a message from the generated factory's
// prototype filled by parsing.
void Reflect(const Inputs& in, Outcome& out) {
  const gp::Reflection* reflection = in.shared.GetReflection();
  const gp::Descriptor* root = in.shared.GetDescriptor();
  out.Expect(reflection->FieldSize(in.shared, root->FindFieldByName("peripherals")) == 9, "nine peripherals");
  out.Expect(!reflection->GetUnknownFields(in.shared).empty(), "the unknown field is kept");
  const gp::Message* prototype = gp::MessageFactory::generated_factory()->GetPrototype(root);
  out.Expect(prototype == &models::PeripheralConfig::default_instance(), "the root's prototype");
  std::unique_ptr<gp::Message> parsed(prototype->New());
  out.Expect(parsed->ParseFromString(in.wire), "parse through the prototype");
  const gp::Message& device =
      parsed->GetReflection()->GetMessage(*parsed, root->FindFieldByName("device_info"));
  out.Expect(device.GetReflection()
                     ->GetEnum(device, device.GetDescriptor()->FindFieldByName("device_name"))
                     ->name() == "HARDWARE_TREVIL3",
             "device name through reflection");
}

// Messages of this thread's own, parsed from all three forms.
void ParseOwn(const Inputs& in, Outcome& out) {
  models::PeripheralConfig own;
  out.Expect(own.ParseFromString(in.wire) && own.SerializeAsString() == in.wire, "binary round trip");
  out.Expect(gp::util::MessageDifferencer::Equals(own, in.shared), "parsed equals shared");
  models::PeripheralConfig example;
  out.Expect(gp::TextFormat::ParseFromString(in.example_text, &example), "text parse of the example");
  out.seen += std::to_string(example.ByteSizeLong()) + " bytes of example; ";
  // Printing JSON serialises its argument (storing cached sizes): print this thread's copy.
  std::string json;
  own.DiscardUnknownFields();
  models::PeripheralConfig from_json;
  out.Expect(gp::util::MessageToJsonString(own, &json).ok() &&
                 gp::util::JsonStringToMessage(json, &from_json).ok() &&
                 gp::util::MessageDifferencer::Equals(from_json, own),
             "JSON round trip");
}

// Const reads of the shared configuration, typed and printed; it is serialised only as a copy.
void ReadShared(const Inputs& in, Outcome& out) {
  uint32_t registers = 0;
  for (const models::PhysicalCamera& camera : in.shared.physical_cameras())
    for (const models::I2CRegister& reg : camera.cadmor().i2c().sequences(0).registers())
      registers += reg.value_number();
  out.Expect(registers == 8 * (0 + 17 + 34 + 51) + 4 * (0 + 1 + 2 + 3 + 4 + 5 + 6 + 7), "register values");
  out.Expect(models::PeripheralConfig(in.shared).SerializeAsString() == in.wire,
             "a copy serialises to the bytes");
  std::string text;
  out.Expect(gp::TextFormat::PrintToString(in.shared, &text), "text print");
  out.seen += std::to_string(text.size()) + " bytes of text; ";
}

void RunThread(const Inputs& in, int index, std::atomic<int>& ready, const std::atomic<bool>& go,
               Outcome& out) {
  using Step = void (*)(const Inputs&, Outcome&);
  static const Step kSteps[] = {Describe, ReadAliases, Reflect, ParseOwn, ReadShared};
  constexpr int kStepCount = sizeof kSteps / sizeof kSteps[0];
  ready.fetch_add(1);
  while (!go.load(std::memory_order_acquire)) std::this_thread::yield();
  // Each thread starts with another step, so that different first uses meet; the record of what
  // was seen is kept in step order, so that every thread's reads the same.
  std::vector<Outcome> steps(kStepCount);
  for (int round = 0; round < kRounds; ++round)
    for (int k = 0; k < kStepCount; ++k)
      kSteps[(index + k) % kStepCount](in, steps[(index + k) % kStepCount]);
  for (const Outcome& step : steps) {
    out.seen += step.seen;
    out.errors.insert(out.errors.end(), step.errors.begin(), step.errors.end());
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
  for (int i = 0; i < kThreads; ++i)
    threads.emplace_back(RunThread, std::cref(in), i, std::ref(ready), std::cref(go), std::ref(outcomes[i]));
  // Let all go at once, when every thread is waiting at the start line.
  while (ready.load() < kThreads) std::this_thread::yield();
  go.store(true, std::memory_order_release);
  for (std::thread& thread : threads) thread.join();

  EXPECT_NE(outcomes[0].seen.find("TREVIL3 "), std::string::npos) << outcomes[0].seen;
  for (int i = 0; i < kThreads; ++i) {
    for (const std::string& error : outcomes[i].errors) ADD_FAILURE() << "thread " << i << ": " << error;
    EXPECT_EQ(outcomes[i].seen, outcomes[0].seen) << "thread " << i;
  }
  EXPECT_EQ(models::PeripheralConfig(shared).SerializeAsString(), wire) << "the shared configuration changed";
}

}  // namespace
