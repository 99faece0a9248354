// Locks the schema: the built library's file descriptors must equal the committed golden
// descriptors byte for byte, so that any change to a name, number, type or order fails here
// and has to be made on purpose (rebuild the target update-golden-descriptors).
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "schema_descriptors.h"

namespace {

std::string ReadGolden() {
  std::ifstream in(PERIPHERALCONFIG_GOLDEN_DESCRIPTORS, std::ios::binary);
  std::stringstream content;
  content << in.rdbuf();
  return content.str();
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

}  // namespace
