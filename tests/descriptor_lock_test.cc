// Locks the schema: the built library's file descriptors must equal the committed golden
// descriptors byte for byte, so that any change to a name, number, type or order fails here
// and has to be made on purpose (rebuild the target update-golden-descriptors).
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "schema_descriptors.h"

namespace models = Talvo::Peripherals::Config::Models;

namespace {

std::string ReadGolden() {
  std::ifstream in(PERIPHERALCONFIG_GOLDEN_DESCRIPTORS, std::ios::binary);
  std::stringstream content;
  content << in.rdbuf();
  return content.str();
}

TEST(DescriptorLock, SerializedSizesOfTheThreeFiles) {
  const google::protobuf::FileDescriptorSet built = pctest::BuiltSchemaDescriptors();
  ASSERT_EQ(built.file_size(), 3);
  EXPECT_EQ(built.file(0).SerializeAsString().size(), 9497u);
  EXPECT_EQ(built.file(1).SerializeAsString().size(), 461u);
  EXPECT_EQ(built.file(2).SerializeAsString().size(), 21136u);
}

TEST(DescriptorLock, BuiltDescriptorsEqualTheGoldenBytes) {
  const std::string golden_bytes = ReadGolden();
  ASSERT_FALSE(golden_bytes.empty()) << "missing " << PERIPHERALCONFIG_GOLDEN_DESCRIPTORS;
  google::protobuf::FileDescriptorSet golden;
  ASSERT_TRUE(golden.ParseFromString(golden_bytes));
  const google::protobuf::FileDescriptorSet built = pctest::BuiltSchemaDescriptors();
  ASSERT_EQ(golden.file_size(), built.file_size());
  for (int i = 0; i < built.file_size(); ++i) {
    std::string report;
    google::protobuf::util::MessageDifferencer differencer;
    differencer.ReportDifferencesToString(&report);
    EXPECT_TRUE(differencer.Compare(golden.file(i), built.file(i)))
        << built.file(i).name() << " differs from the golden lock:\n"
        << report;
  }
  EXPECT_TRUE(built.SerializeAsString() == golden_bytes) << "the golden file is not byte-identical";
}

TEST(DescriptorLock, CountsOfTheWholeSchema) {
  const google::protobuf::FileDescriptor* config = models::PeripheralConfig::descriptor()->file();
  int messages = 0;
  std::vector<const google::protobuf::Descriptor*> pending;
  for (int d = 0; d < config->dependency_count(); ++d) {
    const google::protobuf::FileDescriptor* dep = config->dependency(d);
    if (dep->package() != config->package()) continue;
    for (int i = 0; i < dep->message_type_count(); ++i) pending.push_back(dep->message_type(i));
  }
  for (int i = 0; i < config->message_type_count(); ++i) pending.push_back(config->message_type(i));
  while (!pending.empty()) {
    const google::protobuf::Descriptor* type = pending.back();
    pending.pop_back();
    ++messages;
    EXPECT_EQ(type->enum_type_count(), 0) << type->full_name() << ": enumerations are top level";
    for (int i = 0; i < type->nested_type_count(); ++i) pending.push_back(type->nested_type(i));
  }
  EXPECT_EQ(messages, 72);
  EXPECT_EQ(models::CameraModel_descriptor()->file()->enum_type_count(), 43);
}

}  // namespace
