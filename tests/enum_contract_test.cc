// The enumerations: declared numbers (with their gaps), canonical names of aliased
// values, the generated range constants, the Alias option, and descriptor indices.
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "includes/enums.pb.h"

namespace models = Talvo::Peripherals::Config::Models;
using google::protobuf::EnumDescriptor;

namespace {

TEST(EnumValidity, GapsAndCatchAllNumbers) {
  struct Row {
    const char* name;
    bool (*is_valid)(int);
    int number;
    bool valid;
  };
  const Row rows[] = {
      {"PeripheralType 200", models::PeripheralType_IsValid, 200, true},
      {"PeripheralType 10", models::PeripheralType_IsValid, 10, true},
      {"PeripheralType 11", models::PeripheralType_IsValid, 11, false},
      {"PeripheralType 199", models::PeripheralType_IsValid, 199, false},
      {"PeripheralType 201", models::PeripheralType_IsValid, 201, false},
      {"PeripheralSystemType 5", models::PeripheralSystemType_IsValid, 5, true},
      {"PeripheralSystemType 6", models::PeripheralSystemType_IsValid, 6, false},
      {"PeripheralSystemType 19", models::PeripheralSystemType_IsValid, 19, false},
      {"PeripheralSystemType 20", models::PeripheralSystemType_IsValid, 20, true},
      {"CameraModel 18", models::CameraModel_IsValid, 18, true},
      {"CameraModel 19", models::CameraModel_IsValid, 19, false},
      {"CameraModel 20", models::CameraModel_IsValid, 20, true},
      {"CameraModel 21", models::CameraModel_IsValid, 21, false},
      {"CameraModel 99", models::CameraModel_IsValid, 99, true},
      {"CameraModel 100", models::CameraModel_IsValid, 100, false},
      {"CameraType 3", models::CameraType_IsValid, 3, true},
      {"CameraType 4", models::CameraType_IsValid, 4, false},
      {"CameraType 5", models::CameraType_IsValid, 5, false},
      {"CameraType 6", models::CameraType_IsValid, 6, true},
      {"CameraType 10", models::CameraType_IsValid, 10, true},
      {"PeripheralStatus 3", models::PeripheralStatus_IsValid, 3, true},
      {"PeripheralStatus 4", models::PeripheralStatus_IsValid, 4, false},
      {"PeripheralStatus 10", models::PeripheralStatus_IsValid, 10, true},
      {"PeripheralDependencyType 0", models::PeripheralDependencyType_IsValid, 0, true},
      {"PeripheralDependencyType 1", models::PeripheralDependencyType_IsValid, 1, false},
      {"SettingsFlag 0", models::SettingsFlag_IsValid, 0, true},
      {"SettingsFlag 1", models::SettingsFlag_IsValid, 1, false},
      // Counting values are ordinary declared values.
      {"StreamType 17", models::StreamType_IsValid, 17, true},
      {"StreamType 18", models::StreamType_IsValid, 18, false},
      {"CadmorFrameType 19", models::CadmorFrameType_IsValid, 19, true},
      {"CadmorFrameType 20", models::CadmorFrameType_IsValid, 20, false},
      {"OperationType 6", models::OperationType_IsValid, 6, true},
      {"OperationType 7", models::OperationType_IsValid, 7, false},
      {"Orientation 9", models::Orientation_IsValid, 9, true},
      {"TransitionGroupsEnum 11", models::TransitionGroupsEnum_IsValid, 11, true},
      {"CameraHalUsecasePipelineType 18", models::CameraHalUsecasePipelineType_IsValid, 18, true},
      {"CameraHalUsecasePipelineType 19", models::CameraHalUsecasePipelineType_IsValid, 19, false},
  };
  for (const Row& row : rows) EXPECT_EQ(row.is_valid(row.number), row.valid) << row.name;
}

TEST(EnumValidity, NoEnumerationAcceptsNegativeNumbers) {
  const EnumDescriptor* any = models::TargetDevice_descriptor();
  const google::protobuf::FileDescriptor* file = any->file();
  ASSERT_EQ(file->enum_type_count(), 43);
  for (int i = 0; i < file->enum_type_count(); ++i) {
    const EnumDescriptor* e = file->enum_type(i);
    EXPECT_EQ(e->FindValueByNumber(-1), nullptr) << e->name();
    EXPECT_EQ(e->FindValueByNumber(INT_MIN), nullptr) << e->name();
    EXPECT_EQ(e->value(0)->number(), 0) << e->name() << " must start at 0";
  }
  EXPECT_FALSE(models::CameraModel_IsValid(-1));
  EXPECT_FALSE(models::PeripheralType_IsValid(INT_MIN));
  EXPECT_FALSE(models::SettingsFlag_IsValid(-1));
}

TEST(EnumNames, CanonicalNameIsTheFirstDeclared) {
  EXPECT_EQ(models::CameraModel_Name(models::CameraModel(7)), "CAMERA_MODEL_MODRIN");
  EXPECT_EQ(models::CameraModel_Name(models::CameraModel(4)), "CAMERA_MODEL_IMX471");
  EXPECT_EQ(models::CameraModel_Name(models::CameraModel(2)), "CAMERA_MODEL_OG0VE1B");
  EXPECT_EQ(models::CameraModel_Name(models::CameraModel(18)), "CAMERA_MODEL_OV05C");
  EXPECT_EQ(models::PeripheralStatus_Name(models::PeripheralStatus(3)), "PERIPHERAL_STATUS_ACTIVE");
  EXPECT_EQ(models::PeripheralStatus_Name(models::PeripheralStatus(10)), "PERIPHERAL_STATUS_ERROR");
  EXPECT_EQ(models::PeripheralType_Name(models::PeripheralType(11)), "");
  EXPECT_EQ(models::TargetDevice_Name(models::HARDWARE_NIBRANT), "HARDWARE_NIBRANT");
}

TEST(EnumNames, ParseAcceptsEveryAlias) {
  struct Row {
    const char* name;
    int number;
  };
  const Row camera_models[] = {{"CAMERA_MODEL_TAMBRIL", 4},  {"CAMERA_MODEL_PELLIDOR", 4},
                               {"CAMERA_MODEL_OV6211", 7},   {"CAMERA_MODEL_MODRIN", 7},
                               {"CAMERA_MODEL_HESPIRO", 18}, {"CAMERA_MODEL_NICE", 99},
                               {"CAMERA_MODEL_GENERIC", 20}};
  for (const Row& row : camera_models) {
    models::CameraModel parsed = models::CAMERA_MODEL_GENERIC;
    ASSERT_TRUE(models::CameraModel_Parse(row.name, &parsed)) << row.name;
    EXPECT_EQ(parsed, row.number) << row.name;
  }
  models::PeripheralStatus status = models::PERIPHERAL_STATUS_CREATED;
  ASSERT_TRUE(models::PeripheralStatus_Parse("PERIPHERAL_STATUS_STREAMING", &status));
  EXPECT_EQ(status, 3);
  ASSERT_TRUE(models::PeripheralStatus_Parse("PERIPHERAL_STATUS_FAILED", &status));
  EXPECT_EQ(status, 10);
  models::CameraModel unknown = models::CAMERA_MODEL_GENERIC;
  EXPECT_FALSE(models::CameraModel_Parse("CAMERA_MODEL_NOPE", &unknown));
}

TEST(EnumNames, OnlyTheTwoAliasedEnumerationsAllowAliases) {
  const google::protobuf::FileDescriptor* file = models::TargetDevice_descriptor()->file();
  for (int i = 0; i < file->enum_type_count(); ++i) {
    const EnumDescriptor* e = file->enum_type(i);
    bool expected = e->name() == "PeripheralStatus" || e->name() == "CameraModel";
    EXPECT_EQ(e->options().allow_alias(), expected) << e->name();
  }
}

TEST(EnumRange, MinMaxArraySize) {
  EXPECT_EQ(models::CamXSensorStreamType_MIN, models::STREAMING);
  EXPECT_EQ(models::CamXSensorStreamType_MAX, models::TRIGGER);
  EXPECT_EQ(models::CamXSensorStreamType_ARRAYSIZE, 2);
  EXPECT_EQ(models::PeripheralType_MAX, models::PERIPHERAL_TYPE_GENERIC);
  EXPECT_EQ(models::PeripheralType_ARRAYSIZE, 201);
  EXPECT_EQ(models::PeripheralSystemType_ARRAYSIZE, 21);
  EXPECT_EQ(models::PeripheralStatus_MAX, models::PERIPHERAL_STATUS_ERROR);
  EXPECT_EQ(models::PeripheralStatus_ARRAYSIZE, 11);
  EXPECT_EQ(models::CameraModel_MAX, models::CAMERA_MODEL_NICE);
  EXPECT_EQ(models::CameraModel_ARRAYSIZE, 100);
  EXPECT_EQ(models::CameraType_MAX, models::CAMERA_TYPE_AGGREGATE);
  EXPECT_EQ(models::CameraType_ARRAYSIZE, 11);
  EXPECT_EQ(models::Orientation_MAX, models::ORIENTATION_COUNT);
  EXPECT_EQ(models::OperationType_MAX, models::MAX);
  EXPECT_EQ(models::StreamType_MAX, models::STREAM_TYPE_MAX);
  EXPECT_EQ(models::CameraHalUsecasePipelineType_ARRAYSIZE, 19);
  EXPECT_EQ(models::CadmorFrameType_MAX, models::CADMOR_FRAME_TYPE_COUNT);
  EXPECT_EQ(models::CadmorFrameType_ARRAYSIZE, 20);
  EXPECT_EQ(models::SettingsFlag_MIN, models::PN9_Test);
  EXPECT_EQ(models::SettingsFlag_ARRAYSIZE, 1);
  EXPECT_EQ(models::TargetDevice_MAX, models::HARDWARE_NIBRANT);
}

// ctest runs every test in a process of its own: here nothing of the library is called
// before the option is read, the enumeration being found by name in the generated pool.
// (Before protobuf 3.10 the pool does not load a file on the look-up of an enumeration
// value's name, so the enumeration's name is looked up.)
TEST(AliasOption, ReadableWithoutAnyPriorCall) {
  const EnumDescriptor* devices = google::protobuf::DescriptorPool::generated_pool()->FindEnumTypeByName(
      "Talvo.Peripherals.Config.Models.TargetDevice");
  ASSERT_NE(devices, nullptr);
  const google::protobuf::EnumValueDescriptor* value = devices->FindValueByName("HARDWARE_TREVIL3");
  ASSERT_NE(value, nullptr);
  EXPECT_EQ(value->options().GetExtension(models::Alias), "TREVIL3");
}

TEST(AliasOption, EveryTargetDeviceValueCarriesItsPlainName) {
  const EnumDescriptor* devices = models::TargetDevice_descriptor();
  ASSERT_EQ(devices->value_count(), 9);
  const std::string prefix = "HARDWARE_";
  for (int i = 0; i < devices->value_count(); ++i) {
    const google::protobuf::EnumValueOptions& options = devices->value(i)->options();
    ASSERT_TRUE(options.HasExtension(models::Alias)) << devices->value(i)->name();
    EXPECT_EQ(prefix + options.GetExtension(models::Alias), devices->value(i)->name());
  }
  EXPECT_EQ(devices->FindValueByNumber(1)->options().GetExtension(models::Alias), "TREVIL3");
  EXPECT_EQ(devices->FindValueByNumber(0)->options().GetExtension(models::Alias), "UNKNOWN");
}

TEST(AliasOption, NoOtherValueCarriesIt) {
  const google::protobuf::FileDescriptor* file = models::TargetDevice_descriptor()->file();
  for (int i = 0; i < file->enum_type_count(); ++i) {
    const EnumDescriptor* e = file->enum_type(i);
    if (e == models::TargetDevice_descriptor()) continue;
    for (int v = 0; v < e->value_count(); ++v) {
      const google::protobuf::EnumValueOptions& options = e->value(v)->options();
      EXPECT_FALSE(options.HasExtension(models::Alias)) << e->value(v)->name();
      EXPECT_EQ(options.GetExtension(models::Alias), "") << e->value(v)->name();
    }
  }
}

TEST(EnumDescriptors, IndicesCountsAndTheExtension) {
  EXPECT_EQ(models::TargetDevice_descriptor()->index(), 10);
  EXPECT_EQ(models::CadmorFrameType_descriptor()->index(), 42);
  EXPECT_EQ(models::CamXSensorStreamType_descriptor()->index(), 0);
  const google::protobuf::FileDescriptor* file = models::CadmorFrameType_descriptor()->file();
  EXPECT_EQ(file->name(), "includes/enums.proto");
  EXPECT_EQ(file->package(), "Talvo.Peripherals.Config.Models");
  EXPECT_EQ(file->enum_type_count(), 43);
  EXPECT_EQ(file->message_type_count(), 0);
  ASSERT_EQ(file->extension_count(), 1);
  const google::protobuf::FieldDescriptor* alias = file->extension(0);
  EXPECT_EQ(alias->full_name(), "Talvo.Peripherals.Config.Models.Alias");
  EXPECT_EQ(alias->number(), 123456789);
  EXPECT_EQ(alias->type(), google::protobuf::FieldDescriptor::TYPE_STRING);
  EXPECT_FALSE(alias->is_repeated());
  EXPECT_EQ(alias->containing_type()->full_name(), "google.protobuf.EnumValueOptions");
  EXPECT_EQ(models::Alias.number(), 123456789);
}

}  // namespace
