// Merge, copy, clear, swap, presence and default instances, through the typed interface.
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

TEST(Merge, NeverResetsToZeroAndAppendsLists) {
  models::CamXPhysicalCamera_SensorDriverData_SlaveInfo destination;
  destination.mutable_i2c_frequency_mode()->set_value(models::I2C_FREQUENCY_FAST);
  destination.set_reg_address_type(2);
  models::CamXPhysicalCamera_SensorDriverData_SlaveInfo source;
  source.mutable_i2c_frequency_mode()->set_value(models::I2C_FREQUENCY_STANDARD);
  destination.MergeFrom(source);
  EXPECT_EQ(destination.i2c_frequency_mode().value(), models::I2C_FREQUENCY_FAST);
  EXPECT_EQ(destination.reg_address_type(), 2u);

  models::CamXPhysicalCamera_SensorDriverData_SlaveInfo lacking;
  lacking.MergeFrom(source);
  EXPECT_TRUE(lacking.has_i2c_frequency_mode()) << "merging makes the wrapper present";

  models::CamXPhysicalCamera_SettingsInfo three, two;
  for (uint32_t addr : {1u, 2u, 3u}) three.add_reg_settings()->set_register_addr(addr);
  for (uint32_t addr : {4u, 5u}) two.add_reg_settings()->set_register_addr(addr);
  three.MergeFrom(two);
  ASSERT_EQ(three.reg_settings_size(), 5);
  EXPECT_EQ(three.reg_settings(0).register_addr(), 1u);
  EXPECT_EQ(three.reg_settings(4).register_addr(), 5u);
}

TEST(Merge, OneofsFollowTheSourceCaseOnly) {
  models::I2CRegister destination;
  destination.set_address_number(26);
  models::I2CRegister unset;
  destination.MergeFrom(unset);
  EXPECT_EQ(destination.address_case(), models::I2CRegister::kAddressNumber);
  EXPECT_EQ(destination.address_number(), 26u);

  models::I2CRegister hex;
  hex.set_address_hex("0x1A");
  destination.MergeFrom(hex);
  EXPECT_EQ(destination.address_case(), models::I2CRegister::kAddressHex);
  EXPECT_EQ(destination.address_hex(), "0x1A");

  models::PeripheralSystemAdapterTypeOptions cadmor, camx;
  cadmor.mutable_options_qc_camx_cadmor()->set_uart_device("ttyHS1");
  camx.mutable_options_qc_camx()->add_slot_id_to_csiphy_mappings()->set_csiphy_index(2);
  cadmor.MergeFrom(camx);
  EXPECT_EQ(cadmor.options_case(), models::PeripheralSystemAdapterTypeOptions::kOptionsQcCamx);
  EXPECT_EQ(cadmor.options_qc_camx().slot_id_to_csiphy_mappings_size(), 1);
}

TEST(Merge, GenericMergeOfTheSameTypeAndUnknownFields) {
  models::Peripheral source;
  ASSERT_TRUE(source.ParseFromString(pctest::Bytes("0A 01 61 A0 06 07")));  // id "a", unknown field 100
  models::Peripheral destination;
  const google::protobuf::Message& generic = source;
  destination.MergeFrom(generic);
  EXPECT_EQ(destination.id(), "a");
  EXPECT_EQ(pctest::Hex(destination.SerializeAsString()), "0A 01 61 A0 06 07");
}

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

TEST(Copy, ClearsFirstAndSelfCopyIsANoOp) {
  models::Peripheral peripheral;
  peripheral.set_id("cam0");
  peripheral.add_dependencies()->set_peripheral_id("fpga");
  peripheral.CopyFrom(peripheral);
  EXPECT_EQ(peripheral.id(), "cam0");
  EXPECT_EQ(peripheral.dependencies_size(), 1);

  models::Peripheral other;
  other.set_type(models::PERIPHERAL_TYPE_IMU);
  peripheral.CopyFrom(other);
  EXPECT_EQ(peripheral.id(), "");
  EXPECT_EQ(peripheral.dependencies_size(), 0);
  EXPECT_EQ(peripheral.type(), models::PERIPHERAL_TYPE_IMU);
}

TEST(Clear, EmptiesEverythingIncludingUnknownFields) {
  models::CameraSet set;
  ASSERT_TRUE(set.ParseFromString(pctest::Bytes("0A 01 61 E2 03 00 F8 07 01")));
  EXPECT_TRUE(set.has_cadmor());
  set.Clear();
  EXPECT_FALSE(set.has_cadmor());
  EXPECT_EQ(set.peripheral_id(), "");
  EXPECT_EQ(set.SerializeAsString(), "");
  EXPECT_EQ(set.type(), models::CAMERA_TYPE_NICE);
  EXPECT_EQ(set.camera_system_type(), models::CAMERA_SYSTEM_TYPE_WORLD_TRACKING);

  models::PeripheralSystemTypeOptions options;
  options.mutable_options_qc_camx_cci();
  options.mutable_options_qc_camx_sensor_core();
  EXPECT_FALSE(options.has_options_qc_camx_cci());
  options.clear_options();
  EXPECT_EQ(options.options_case(), models::PeripheralSystemTypeOptions::OPTIONS_NOT_SET);
}

TEST(Swap, ExchangesContentsAndUnknownFields) {
  models::Peripheral a, b;
  ASSERT_TRUE(a.ParseFromString(pctest::Bytes("0A 01 61 A0 06 07")));
  b.set_id("b");
  b.set_type(models::PERIPHERAL_TYPE_FPGA);
  a.Swap(&b);
  EXPECT_EQ(a.id(), "b");
  EXPECT_EQ(a.type(), models::PERIPHERAL_TYPE_FPGA);
  EXPECT_EQ(pctest::Hex(b.SerializeAsString()), "0A 01 61 A0 06 07");
}

TEST(Presence, SubMessagesAndTopologyFields) {
  models::PhysicalCamera camera;
  EXPECT_FALSE(camera.has_camx());
  EXPECT_FALSE(camera.has_cadmor());
  camera.mutable_camx();
  camera.mutable_cadmor()->mutable_i2c();
  camera.add_cameraset_peripheral_ids("");
  camera.add_cameraset_peripheral_ids("set0");
  camera.add_cameraset_peripheral_ids("set0");
  models::PhysicalCamera back;
  ASSERT_TRUE(back.ParseFromString(camera.SerializeAsString()));
  EXPECT_TRUE(back.has_camx());
  EXPECT_TRUE(back.has_cadmor());
  ASSERT_EQ(back.cameraset_peripheral_ids_size(), 3);
  EXPECT_EQ(back.cameraset_peripheral_ids(0), "");

  models::CadmorPhysicalCamera cadmor;
  EXPECT_FALSE(cadmor.has_i2c());
  EXPECT_EQ(cadmor.i2c().sequences_size(), 0);
  EXPECT_EQ(&cadmor.i2c(), &models::I2CDevice::default_instance());
}

TEST(DefaultInstances, ReadAsEmptyAndPointAtDefaults) {
  const models::PeripheralConfig& root = models::PeripheralConfig::default_instance();
  EXPECT_FALSE(root.has_device_info());
  EXPECT_EQ(root.peripherals_size(), 0);
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

  models::PeripheralConfig fresh;
  EXPECT_EQ(fresh.GetReflection(), root.GetReflection());
  EXPECT_EQ(fresh.GetDescriptor(), models::PeripheralConfig::descriptor());
  EXPECT_TRUE(fresh.IsInitialized());
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

TEST(Ownership, ReleaseAndSetAllocated) {
  models::PeripheralSystemTypeOptions options;
  options.set_allocated_options_qc_camx_cci(new models::PeripheralSystemTypeQCCamXCCIOptions);
  EXPECT_EQ(options.options_case(), models::PeripheralSystemTypeOptions::kOptionsQcCamxCci);
  options.set_allocated_options_qc_camx(new models::PeripheralSystemTypeQCCamXOptions);
  EXPECT_EQ(options.options_case(), models::PeripheralSystemTypeOptions::kOptionsQcCamx);
  std::unique_ptr<models::PeripheralSystemTypeQCCamXOptions> released(options.release_options_qc_camx());
  EXPECT_NE(released, nullptr);
  EXPECT_EQ(options.options_case(), models::PeripheralSystemTypeOptions::OPTIONS_NOT_SET);
  options.set_allocated_options_qc_camx(nullptr);
  EXPECT_EQ(options.options_case(), models::PeripheralSystemTypeOptions::OPTIONS_NOT_SET);
}

}  // namespace
