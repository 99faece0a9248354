// Failures the protobuf way: invalid UTF-8 fails the parse and the runtime's log names the
// field's full name; serialising such a string only logs; truncated and malformed input
// fails and keeps what was read before the failure.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "peripheral.config.pb.h"
#include "test_support.h"

namespace models = Talvo::Peripherals::Config::Models;
using pctest::Bytes;

namespace {

const std::string kInvalid = std::string("\xC3\x28", 2);

struct Utf8Row {
  const char* where;
  const char* parse_as;  // relative to the package
  std::string (*build)();
  const char* field;
};

template <typename T>
std::string Wire(const T& message) {
  return message.SerializeAsString();
}

const Utf8Row kUtf8Rows[] = {
    {"singular", "Peripheral",
     [] {
       models::Peripheral p;
       p.set_id(kInvalid);
       return Wire(p);
     },
     "Talvo.Peripherals.Config.Models.Peripheral.id"},
    {"repeated", "PhysicalCamera",
     [] {
       models::PhysicalCamera c;
       c.add_cameraset_peripheral_ids("set0");
       c.add_cameraset_peripheral_ids(kInvalid);
       return Wire(c);
     },
     "Talvo.Peripherals.Config.Models.PhysicalCamera.cameraset_peripheral_ids"},
    {"oneof member", "I2CRegister",
     [] {
       models::I2CRegister r;
       r.set_address_hex(kInvalid);
       return Wire(r);
     },
     "Talvo.Peripherals.Config.Models.I2CRegister.address_hex"},
    {"deep in the tree", "PeripheralConfig",
     [] {
       models::PeripheralConfig config;
       config.add_physical_cameras()
           ->mutable_camx()
           ->mutable_sensor_driver_data()
           ->mutable_slave_info()
           ->set_slave_address_hex(kInvalid);
       return Wire(config);
     },
     "Talvo.Peripherals.Config.Models.CamXPhysicalCamera.SensorDriverData.SlaveInfo.slave_address_hex"},
    {"gain text deep in the tree", "PeripheralConfig",
     [] {
       models::PeripheralConfig config;
       config.add_physical_cameras()
           ->mutable_camx()
           ->mutable_sensor_driver_data()
           ->mutable_exposure_control_info()
           ->set_real_to_reg_gain(kInvalid);
       return Wire(config);
     },
     "Talvo.Peripherals.Config.Models.CamXPhysicalCamera.SensorDriverData.ExposureControlInfo.real_to_reg_"
     "gain"},
};

TEST(Utf8, InvalidStringFailsTheParseAndTheLogNamesTheField) {
  for (const Utf8Row& row : kUtf8Rows) {
    SCOPED_TRACE(row.where);
    std::string wire;
    {
      pctest::LogCapture serialise_log;
      wire = row.build();  // serialising only logs
      EXPECT_NE(serialise_log.All().find(row.field), std::string::npos) << serialise_log.All();
    }
    EXPECT_NE(wire.find(kInvalid), std::string::npos) << "the bytes are written all the same";
    pctest::LogCapture parse_log;
    const google::protobuf::Descriptor* type =
        google::protobuf::DescriptorPool::generated_pool()->FindMessageTypeByName(
            std::string("Talvo.Peripherals.Config.Models.") + row.parse_as);
    ASSERT_NE(type, nullptr);
    std::unique_ptr<google::protobuf::Message> target(
        google::protobuf::MessageFactory::generated_factory()->GetPrototype(type)->New());
    EXPECT_FALSE(target->ParseFromString(wire));
    EXPECT_NE(parse_log.All().find(row.field), std::string::npos) << parse_log.All();
  }
}

TEST(Malformed, FailedParseKeepsWhatWasRead) {
  struct Row {
    const char* what;
    const char* bytes;
  };
  const Row rows[] = {
      {"truncated length", "0A 02 68 69 10 05 52 05 0A"},
      {"truncated varint", "0A 02 68 69 10 05 18 FF"},
      {"end-group tag", "0A 02 68 69 10 05 0C"},
      {"invalid UTF-8 after good fields", "0A 02 68 69 10 05 52 03 0A 01 FF"},
      {"varint longer than ten bytes", "0A 02 68 69 10 05 18 FF FF FF FF FF FF FF FF FF FF 01"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    pctest::LogCapture quiet;
    models::Peripheral peripheral;
    EXPECT_FALSE(peripheral.ParseFromString(Bytes(row.bytes)));
    EXPECT_EQ(peripheral.id(), "hi");
    EXPECT_EQ(peripheral.type(), 5);
  }
}

TEST(Malformed, TruncatedRootOfEveryPrefixNeverCrashes) {
  models::PeripheralConfig config;
  config.add_peripherals()->set_id("cam0");
  config.add_physical_cameras()->mutable_camx()->add_streams()->set_frame_rate(30.0);
  config.add_system_options()->mutable_options_qc_camx();
  const std::string wire = config.SerializeAsString();
  for (size_t length = 0; length < wire.size(); ++length) {
    models::PeripheralConfig partial;
    partial.ParseFromString(wire.substr(0, length));  // may fail; must not crash
  }
  models::PeripheralConfig whole;
  EXPECT_TRUE(whole.ParseFromString(wire));
}

}  // namespace
