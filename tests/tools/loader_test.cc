// What the loader does beyond protobuf's parsers: cutting large text in two for two threads,
// which must give exactly what one parse gives, or leave the parse to one thread.
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include <string>

#include "pcfg_test_support.h"
#include "text_in_two.h"

namespace {

TEST(TextInTwo, CutsOnlyBetweenFieldsOfTheRoot) {
  struct Row {
    const char* text;
    size_t hint;
    size_t cut;  // npos: none
  };
  const size_t none = std::string_view::npos;
  const Row rows[] = {
      {"a { } b { }", 0, 5},
      {"a { b { } } c { }", 4, 11},
      {"a < > b { }", 2, 5},
      {"a { s: \"}\" } b { }", 0, 12},
      {"a { s: '}\\'}' } b { }", 0, 15},
      {"# }\na { } b { }", 0, 9},
      {"a: [ { }, { } ] b { }", 0, 21},
      {"a { } b { }", 6, 11},
      {"a { b { }", 0, none},
      {"} a { }", 0, none},
  };
  for (const Row& row : rows) EXPECT_EQ(pcfg::TextCutPoint(row.text, row.hint), row.cut) << row.text;
}

// Whether two threads parse TEXT (however short) into what one parse gives.
bool SameAsOneParse(const std::string& text) {
  pcfg::LoadedConfig two;
  if (!pcfg::ParseTextInTwo(text, &two.config, 0)) return false;
  const pcfg::LoadedConfig one = pcfg_test::ParseText(text);
  return google::protobuf::util::MessageDifferencer::Equals(one.config, two.config);
}

TEST(TextInTwo, GivesWhatOneParseGives) {
  std::string example = pcfg_test::ReadFile(pcfg_test::ExamplePath("headset.txtpb"));
  EXPECT_TRUE(SameAsOneParse(example));
  EXPECT_TRUE(SameAsOneParse(pcfg_test::ChainBackToFirst(1000)));
}

TEST(TextInTwo, LeavesToOneThreadWhatItCannotParseInTwo) {
  pcfg::LoadedConfig loaded;
  // Either half alone is fine; together they set device_info twice, which the parser refuses.
  EXPECT_FALSE(pcfg::ParseTextInTwo("device_info { soc_name: \"a\" }\ndevice_info { soc_name: \"b\" }\n",
                                    &loaded.config, 0));
  pcfg::LoadedConfig broken;
  EXPECT_FALSE(
      pcfg::ParseTextInTwo("peripherals { id: \"a\" }\nperipherals { nonsense: 1 }\n", &broken.config, 0));
  pcfg::LoadedConfig small;
  EXPECT_FALSE(pcfg::ParseTextInTwo("peripherals { id: \"a\" }\nperipherals { id: \"b\" }\n", &small.config))
      << "short text is not worth a second thread";
}

}  // namespace
