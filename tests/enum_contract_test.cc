// The enumerations as generated code offers them: <Enum>_IsValid over the gaps that open
// enumerations leave, the canonical name of numbers that several names share, and the Alias
// option of TargetDevice, registered by loading alone. What the schema declares (names,
// numbers, order) is the golden lock's to pin, not these tests'.
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "includes/enums.pb.h"

namespace models = Talvo::Peripherals::Config::Models;
using google::protobuf::EnumDescriptor;

namespace {

// The generated validity functions (a switch in protobuf 3.9.1's output) around their gaps.
TEST(EnumValidity, GapsAndEnds) {
  struct Row {
    bool (*is_valid)(int);
    int number;
    bool valid;
  };
  const Row rows[] = {
      {models::PeripheralType_IsValid, 10, true},   {models::PeripheralType_IsValid, 11, false},
      {models::PeripheralType_IsValid, 200, true},  {models::PeripheralType_IsValid, 201, false},
      {models::CameraType_IsValid, 4, false},       {models::CameraType_IsValid, 6, true},
      {models::CameraModel_IsValid, 19, false},     {models::CameraModel_IsValid, 99, true},
      {models::PeripheralStatus_IsValid, 10, true}, {models::StreamType_IsValid, 18, false},
      {models::PeripheralType_IsValid, -1, false},  {models::CameraModel_IsValid, INT_MIN, false},
  };
  for (const Row& row : rows) EXPECT_EQ(row.is_valid(row.number), row.valid) << row.number;
}

// Where names share a number, the first declared is the one the runtime gives for it.
TEST(EnumNames, CanonicalNameOfSharedNumbers) {
  EXPECT_EQ(models::CameraModel_Name(models::CameraModel(7)), "CAMERA_MODEL_MODRIN");
  EXPECT_EQ(models::CameraModel_Name(models::CameraModel(4)), "CAMERA_MODEL_IMX471");
  EXPECT_EQ(models::PeripheralStatus_Name(models::PeripheralStatus(3)), "PERIPHERAL_STATUS_ACTIVE");
  models::CameraModel parsed = models::CAMERA_MODEL_GENERIC;
  ASSERT_TRUE(models::CameraModel_Parse("CAMERA_MODEL_TAMBRIL", &parsed));
  EXPECT_EQ(parsed, 4);
}

// ctest runs every test in a process of its own: here nothing of the library is called before
// the option is read, the enumeration being found by name in the generated pool. (Before
// protobuf 3.10 the pool does not load a file on the look-up of an enumeration value's name, so
// the enumeration's name is looked up.)
TEST(AliasOption, ReadableWithoutAnyPriorCall) {
  const EnumDescriptor* devices = google::protobuf::DescriptorPool::generated_pool()->FindEnumTypeByName(
      "Talvo.Peripherals.Config.Models.TargetDevice");
  ASSERT_NE(devices, nullptr);
  const google::protobuf::EnumValueDescriptor* value = devices->FindValueByName("HARDWARE_TREVIL3");
  ASSERT_NE(value, nullptr);
  EXPECT_EQ(value->options().GetExtension(models::Alias), "TREVIL3");
}

TEST(AliasOption, EveryTargetDeviceValueCarriesItsPlainNameAndNoOtherValueAny) {
  const EnumDescriptor* devices = models::TargetDevice_descriptor();
  for (int i = 0; i < devices->value_count(); ++i) {
    const google::protobuf::EnumValueOptions& options = devices->value(i)->options();
    ASSERT_TRUE(options.HasExtension(models::Alias)) << devices->value(i)->name();
    EXPECT_EQ("HARDWARE_" + options.GetExtension(models::Alias), devices->value(i)->name());
  }
  const google::protobuf::EnumValueOptions& other = models::CameraModel_descriptor()->value(1)->options();
  EXPECT_FALSE(other.HasExtension(models::Alias));
  EXPECT_EQ(other.GetExtension(models::Alias), "");
}

}  // namespace
