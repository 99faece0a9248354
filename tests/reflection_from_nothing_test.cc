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

TEST(ReflectionFromNothing, EveryMessageHasAGeneratedPrototype) {
  std::vector<const Descriptor*> pending;
  for (const char* name : {"includes/optionals.proto", "peripheral.config.proto"}) {
    const FileDescriptor* file = DescriptorPool::generated_pool()->FindFileByName(name);
    ASSERT_NE(file, nullptr);
    for (int i = 0; i < file->message_type_count(); ++i) pending.push_back(file->message_type(i));
  }
  while (!pending.empty()) {
    const Descriptor* type = pending.back();
    pending.pop_back();
    const Message* prototype = MessageFactory::generated_factory()->GetPrototype(type);
    ASSERT_NE(prototype, nullptr) << type->full_name();
    EXPECT_EQ(prototype->GetDescriptor(), type);
    EXPECT_EQ(prototype->ByteSizeLong(), 0u);
    for (int i = 0; i < type->nested_type_count(); ++i) pending.push_back(type->nested_type(i));
  }
}

}  // namespace
