// A client that links the library and calls nothing of it first: everything must already be
// registered by loading. This file deliberately includes no generated header.
#include <google/protobuf/descriptor.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/message.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

using google::protobuf::Descriptor;
using google::protobuf::DescriptorPool;
using google::protobuf::FileDescriptor;
using google::protobuf::Message;
using google::protobuf::MessageFactory;

namespace {

const char kPackage[] = "Talvo.Peripherals.Config.Models.";

TEST(ReflectionFromNothing, GeneratedPoolAndFactoryParseBytes) {
  const Descriptor* root =
      DescriptorPool::generated_pool()->FindMessageTypeByName(std::string(kPackage) + "PeripheralConfig");
  ASSERT_NE(root, nullptr);
  const Message* prototype = MessageFactory::generated_factory()->GetPrototype(root);
  ASSERT_NE(prototype, nullptr);
  std::unique_ptr<Message> config(prototype->New());
  // peripherals { id: "cam0" type: PERIPHERAL_TYPE_CAMERA }
  const std::string wire("\x52\x08\x0a\x04\x63\x61\x6d\x30\x10\x01", 10);
  ASSERT_TRUE(config->ParseFromString(wire));
  const google::protobuf::FieldDescriptor* peripherals = root->FindFieldByName("peripherals");
  ASSERT_NE(peripherals, nullptr);
  ASSERT_EQ(config->GetReflection()->FieldSize(*config, peripherals), 1);
  const Message& first = config->GetReflection()->GetRepeatedMessage(*config, peripherals, 0);
  EXPECT_EQ(first.GetReflection()->GetString(first, first.GetDescriptor()->FindFieldByName("id")), "cam0");
  EXPECT_EQ(first.GetReflection()->GetEnum(first, first.GetDescriptor()->FindFieldByName("type"))->name(),
            "PERIPHERAL_TYPE_CAMERA");
  EXPECT_EQ(config->SerializeAsString(), wire);
}

TEST(ReflectionFromNothing, TopLevelMessagesInDeclarationOrder) {
  const std::vector<std::string> expected = {"FrameDimension",
                                             "Dimension",
                                             "Border",
                                             "PeripheralSystemTypeQCCamXOptions",
                                             "PeripheralSystemTypeQCCamXCadmorOptions",
                                             "PeripheralSystemTypeQCCamXSensorCoreOptions",
                                             "PeripheralSystemTypeQCCamXCCIOptions",
                                             "PeripheralSystemTypeOptions",
                                             "PeripheralSystemAdapterTypeCamXOptions",
                                             "PeripheralSystemAdapterTypeCadmorOptions",
                                             "PeripheralSystemAdapterTypeOptions",
                                             "PeripheralDependency",
                                             "Peripheral",
                                             "I2CRegister",
                                             "I2CSequence",
                                             "I2CDevice",
                                             "CadmorPhysicalCamera",
                                             "CamXCameraMetadata",
                                             "CamXPortMapping",
                                             "CamXPhysicalCamera",
                                             "CamXLogicalCamera",
                                             "LogicalCamera",
                                             "PhysicalCamera",
                                             "CameraStreamConfig",
                                             "CameraSetCadmorConfig",
                                             "CameraSet",
                                             "PipelineToStreamMap",
                                             "CameraHalStreamConfigs",
                                             "GeneralConfigurations",
                                             "DeviceInfo",
                                             "PeripheralConfig"};
  const FileDescriptor* file = DescriptorPool::generated_pool()->FindFileByName("peripheral.config.proto");
  ASSERT_NE(file, nullptr);
  ASSERT_EQ(file->message_type_count(), static_cast<int>(expected.size()));
  for (int i = 0; i < file->message_type_count(); ++i) {
    EXPECT_EQ(file->message_type(i)->name(), expected[i]) << "index " << i;
    EXPECT_EQ(file->message_type(i)->index(), i);
  }
}

TEST(ReflectionFromNothing, NestedMessagesInDeclarationOrder) {
  struct Row {
    const char* parent;
    std::vector<std::string> nested;
  };
  const Row rows[] = {
      {"PeripheralSystemAdapterTypeCamXOptions", {"CameraIdToCSIPHYMapping"}},
      {"CadmorPhysicalCamera", {"Transform", "GPIO", "I2CAddressChange"}},
      {"CamXPhysicalCamera",
       {"SensorDriverData", "PowerStep", "LensInfo", "Stream", "QCFAHDRInformation", "ZZHDRInfo",
        "RegisterSetting", "SettingsInfo", "IntegrationInfo", "HDR3ExposureInfo", "ResolutionExposureInfo",
        "FrameOffsetInfo", "StreamConfig", "DepthConversionLibInfo", "RemoteCSIInfo"}},
      {"CamXPhysicalCamera.SensorDriverData",
       {"DelayInfo", "PixelArrayInfo", "ColorLevelInfo", "SlaveInfo", "ExposureControlInfo", "SensorProperty",
        "NoiseCoefficient", "NoiseCoefficientBayer", "ModuleVersion", "RegAddrInfo",
        "SoftwareSyncConfiguration", "TemperatureReadSettings", "TestPatternData", "TestPatternInfo",
        "RegisterSettingGroup", "ModeSwitchRegisterInfo", "AEBControlInfo"}},
      {"CameraStreamConfig", {"CadmorConfig"}},
  };
  int nested_total = 0;
  for (const Row& row : rows) {
    const Descriptor* parent =
        DescriptorPool::generated_pool()->FindMessageTypeByName(std::string(kPackage) + row.parent);
    ASSERT_NE(parent, nullptr) << row.parent;
    ASSERT_EQ(parent->nested_type_count(), static_cast<int>(row.nested.size())) << row.parent;
    for (int i = 0; i < parent->nested_type_count(); ++i)
      EXPECT_EQ(parent->nested_type(i)->name(), row.nested[i]) << row.parent << " index " << i;
    nested_total += parent->nested_type_count();
  }
  EXPECT_EQ(31 + nested_total, 68);
}

TEST(ReflectionFromNothing, FileDependencies) {
  struct Row {
    const char* file;
    std::vector<std::string> dependencies;
    int messages;
  };
  const Row rows[] = {
      {"includes/enums.proto", {"google/protobuf/descriptor.proto"}, 0},
      {"includes/optionals.proto", {"includes/enums.proto"}, 4},
      {"peripheral.config.proto",
       {"google/protobuf/descriptor.proto", "google/protobuf/wrappers.proto", "includes/enums.proto",
        "includes/optionals.proto"},
       31},
  };
  for (const Row& row : rows) {
    const FileDescriptor* file = DescriptorPool::generated_pool()->FindFileByName(row.file);
    ASSERT_NE(file, nullptr) << row.file;
    EXPECT_EQ(file->package(), "Talvo.Peripherals.Config.Models");
    EXPECT_EQ(file->syntax(), FileDescriptor::SYNTAX_PROTO3);
    EXPECT_EQ(file->message_type_count(), row.messages);
    EXPECT_EQ(file->service_count(), 0);
    ASSERT_EQ(file->dependency_count(), static_cast<int>(row.dependencies.size())) << row.file;
    for (int i = 0; i < file->dependency_count(); ++i)
      EXPECT_EQ(file->dependency(i)->name(), row.dependencies[i]);
  }
}

TEST(ReflectionFromNothing, EveryMessageHasAGeneratedPrototype) {
  int count = 0;
  std::vector<const Descriptor*> pending;
  for (const char* name : {"includes/optionals.proto", "peripheral.config.proto"}) {
    const FileDescriptor* file = DescriptorPool::generated_pool()->FindFileByName(name);
    ASSERT_NE(file, nullptr);
    for (int i = 0; i < file->message_type_count(); ++i) pending.push_back(file->message_type(i));
  }
  while (!pending.empty()) {
    const Descriptor* type = pending.back();
    pending.pop_back();
    ++count;
    const Message* prototype = MessageFactory::generated_factory()->GetPrototype(type);
    ASSERT_NE(prototype, nullptr) << type->full_name();
    EXPECT_EQ(prototype->GetDescriptor(), type);
    EXPECT_EQ(prototype->ByteSizeLong(), 0u);
    for (int i = 0; i < type->nested_type_count(); ++i) pending.push_back(type->nested_type(i));
  }
  EXPECT_EQ(count, 72);
}

}  // namespace
