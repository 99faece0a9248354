// What the generated classes add to the runtime's message semantics: a generic MergeFrom that
// tells its own class without type information, default instances wired to their fields'
// defaults, and construction on an arena. Merge, copy, clear and swap as such are the runtime's.
#include <google/protobuf/arena.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/wrappers.pb.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "peripheral.config.pb.h"
#include "test_support.h"

namespace models = Talvo::Peripherals::Config::Models;

namespace {

// The classes carry no run-time type information: a generic MergeFrom tells its own class from
// another implementation of the same type by the reflection object.
TEST(Merge, FromADynamicMessageOfTheSameType) {
  google::protobuf::DynamicMessageFactory factory;
  std::unique_ptr<google::protobuf::Message> dynamic(
      factory.GetPrototype(models::Peripheral::descriptor())->New());
  ASSERT_NE(dynamic->GetReflection(), models::Peripheral::default_instance().GetReflection());
  // id "cam0", type camera, one dependency on "fpga", unknown field 100
  const std::string wire = pctest::Bytes("0A 04 63 61 6D 30 10 01 52 06 0A 04 66 70 67 61 A0 06 07");
  ASSERT_TRUE(dynamic->ParseFromString(wire));

  models::Peripheral typed;
  typed.set_system_type(models::PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX);
  typed.MergeFrom(*dynamic);
  EXPECT_EQ(typed.id(), "cam0");
  EXPECT_EQ(typed.type(), models::PERIPHERAL_TYPE_CAMERA);
  EXPECT_EQ(typed.system_type(), models::PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX);
  ASSERT_EQ(typed.dependencies_size(), 1);
  EXPECT_EQ(typed.dependencies(0).peripheral_id(), "fpga");
  EXPECT_EQ(typed.GetReflection()->GetUnknownFields(typed).field_count(), 1);

  models::Peripheral copy;
  copy.CopyFrom(*dynamic);
  EXPECT_EQ(copy.SerializeAsString(), wire);
  dynamic->CopyFrom(typed);
  EXPECT_EQ(pctest::Hex(dynamic->SerializeAsString()), pctest::Hex(typed.SerializeAsString()));
}

TEST(DefaultInstances, ReadAsEmptyAndPointAtDefaults) {
  const models::PeripheralConfig& root = models::PeripheralConfig::default_instance();
  EXPECT_EQ(root.ByteSizeLong(), 0u);
  EXPECT_EQ(&root.device_info(), &models::DeviceInfo::default_instance());

  const models::CamXPhysicalCamera& camx = models::CamXPhysicalCamera::default_instance();
  EXPECT_FALSE(camx.has_sensor_slave_addr());
  EXPECT_EQ(&camx.sensor_slave_addr(), &google::protobuf::UInt32Value::default_instance());
  EXPECT_EQ(&camx.ois_name(), &google::protobuf::StringValue::default_instance());
  EXPECT_EQ(&camx.sensor_i2c_frequency_mode(), &models::I2CFrequencyModeOptional::default_instance());
  EXPECT_EQ(&models::CamXPortMapping::default_instance().cphy_dphy_combo_mode(),
            &google::protobuf::BoolValue::default_instance());

  const models::PeripheralSystemTypeOptions& options =
      models::PeripheralSystemTypeOptions::default_instance();
  EXPECT_EQ(options.options_case(), models::PeripheralSystemTypeOptions::OPTIONS_NOT_SET);
  EXPECT_EQ(&options.options_qc_camx(), &models::PeripheralSystemTypeQCCamXOptions::default_instance());
}

// An arena may hold a message: New(arena) (Arena::CreateMaybeMessage) takes the object's
// storage from the arena, which runs its destructor. The 3.9 generator gives the classes no
// arena support, so the message does not know its arena and keeps its contents on the heap;
// later generators make arena-aware classes.
TEST(Arena, NewOnAnArenaConstructsThere) {
  google::protobuf::Arena arena;
  const uint64_t before = arena.SpaceUsed();
  models::PeripheralConfig* config = models::PeripheralConfig::default_instance().New(&arena);
  ASSERT_NE(config, nullptr);
  EXPECT_GE(arena.SpaceUsed() - before, sizeof(models::PeripheralConfig));
  EXPECT_EQ(config->peripherals_size(), 0);
  config->add_peripherals()->set_id("cam0");
  config->mutable_device_info()->set_soc_name("sxr2230p");
#if GOOGLE_PROTOBUF_VERSION < 3010000
  EXPECT_EQ(config->GetArena(), nullptr);
  EXPECT_EQ(config->peripherals(0).GetArena(), nullptr);
#else
  EXPECT_EQ(config->GetArena(), &arena);
#endif
  models::PeripheralConfig back;
  ASSERT_TRUE(back.ParseFromString(config->SerializeAsString()));
  EXPECT_EQ(back.peripherals(0).id(), "cam0");

  std::unique_ptr<models::PeripheralConfig> heap(models::PeripheralConfig::default_instance().New(nullptr));
  EXPECT_EQ(heap->GetArena(), nullptr);
}

}  // namespace
