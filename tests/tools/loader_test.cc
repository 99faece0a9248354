// What the loader does beyond protobuf's parsers: cutting large text and JSON in two for two
// threads, which must give exactly what one parse gives, or leave the parse to one thread.
#include <google/protobuf/util/json_util.h>
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include <string>

#include "parse_in_two.h"
#include "pcfg_test_support.h"

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

TEST(JsonInTwo, CutsOnlyBetweenElementsOfAMembersArray) {
  struct Row {
    const char* json;
    size_t hint;
    const char* first;  // empty: no cut
    const char* second;
  };
  const Row rows[] = {
      {R"({"a": [1, 2], "b": {}})", 0, R"({"a": [1]})", R"({"a":[ 2], "b": {}})"},
      {R"({"a": [[1, 2], 3]})", 0, R"({"a": [[1, 2]]})", R"({"a":[ 3]})"},
      {R"({"a": [{"x": [1, 2]}, 3]})", 0, R"({"a": [{"x": [1, 2]}]})", R"({"a":[ 3]})"},
      {R"({"a": ["],[", 3]})", 0, R"({"a": ["],["]})", R"({"a":[ 3]})"},
      {R"({"a": ["\"],[\\", 3]})", 0, R"({"a": ["\"],[\\"]})", R"({"a":[ 3]})"},
      {R"({"a": [1, 2], "b": [3, 4]})", 12, R"({"a": [1, 2], "b": [3]})", R"({"b":[ 4]})"},
      {R"({"a": [1, 2], "a": [3]})", 0, R"({"a": [1]})",
       R"({"a":[ 2], "a": [3]})"},  // named twice: the parser appends
      {"{\"\\u0061\": [1, 2]}", 0, "{\"\\u0061\": [1]}", "{\"\\u0061\":[ 2]}"},  // the name as written
      {R"({"a": [, 1, 2]})", 0, R"({"a": [, 1]})", R"({"a":[ 2]})"},  // not at a comma the parser refuses
      {R"({"a": [1 ,, 2]})", 0, "", ""},
      {R"({"a": [1, ]})", 0, "", ""},
      {R"({'a': [1, 2]})", 0, "", ""},                                // single quotes
      {R"({"a": [1, 2]} x)", 0, R"({"a": [1]})", R"({"a":[ 2]} x)"},  // the rest as it stands
      {R"([1, 2])", 0, "", ""},
      {R"({"a": {"b": [1, 2]}})", 0, "", ""},  // not a member's own array
  };
  for (const Row& row : rows) {
    const pcfg::JsonHalves halves = pcfg::CutJson(row.json, row.hint);
    EXPECT_EQ(halves.first, row.first) << row.json;
    EXPECT_EQ(halves.second, row.second) << row.json;
  }
}

TEST(JsonInTwo, GivesWhatOneParseGives) {
  for (const std::string& text :
       {pcfg_test::ReadFile(pcfg_test::ExamplePath("headset.txtpb")), pcfg_test::ChainBackToFirst(1000)}) {
    const pcfg::LoadedConfig one = pcfg_test::ParseText(text);
    std::string json;
    ASSERT_TRUE(google::protobuf::util::MessageToJsonString(one.config, &json).ok());
    pcfg::LoadedConfig two;
    ASSERT_TRUE(pcfg::ParseJsonInTwo(json, &two.config, 0));
    EXPECT_TRUE(google::protobuf::util::MessageDifferencer::Equals(one.config, two.config));
  }
  pcfg::LoadedConfig twice;
  EXPECT_FALSE(pcfg::ParseJsonInTwo(
      R"({"deviceInfo": {}, "peripherals": [{"id": "a"}, {"id": "b"}], "device_info": {}})", &twice.config,
      0));
  pcfg::LoadedConfig broken;
  EXPECT_FALSE(pcfg::ParseJsonInTwo(R"({"peripherals": [{"id": "a"}, {"nonsense": 1}]})", &broken.config, 0));
}

}  // namespace
