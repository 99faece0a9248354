// What the loader does beyond protobuf's parsers: where it cuts large text and JSON in two for
// two threads, or leaves the parse to one thread; and where findings stand in text, JSON and
// binary input. That two threads give what one parse gives is the text and json fuzz targets'.
#include "loader.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "parse_in_two.h"
#include "pcfg_test_support.h"
#include "root_entries.h"

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

// The entries of a root of messages written alone: from the name to the closing bracket, or to
// the separator after it; none at all where the root holds anything else.
TEST(RootEntries, FindsMessagesWrittenAloneAndNothingElse) {
  struct Row {
    const char* text;
    const char* name;
    size_t index;
    int begin, end, line;  // begin -1: none
  };
  const Row rows[] = {
      {"a { } b { }", "b", 0, 6, 11, 1},
      {"a { }\n\n  a: < >", "a", 1, 9, 15, 3},
      {"a { } ; b { }", "a", 0, 0, 7, 1},
      {"a { }\n# b {\n\tb { }", "b", 0, 13, 18, 3},
      {"a { s: \"}\\\"\" t: '{' }\nb { }", "b", 0, 22, 27, 2},
      {"# a { }\na { }", "a", 0, 8, 13, 2},
      {"a { }\r\n, b { } # end", "b", 0, 9, 14, 2},
      {"a { } b { }", "a", 1, -1, 0, 0},
      {"a: [ { } ] b { }", "a", 0, -1, 0, 0},
      {"a: [ { } ] b { }", "b", 0, -1, 0, 0},
      {"a { } b: 1", "a", 0, -1, 0, 0},
      {"a { } b", "a", 0, -1, 0, 0},
      {"a { }, , b { }", "a", 0, -1, 0, 0},
      {", a { }", "a", 0, -1, 0, 0},
      {"[x] { } a { }", "a", 0, -1, 0, 0},
      {"a { } } b { }", "a", 0, -1, 0, 0},
  };
  for (const Row& row : rows) {
    const pcfg::RootEntries entries(row.text);
    const pcfg::RootEntries::Entry* entry = entries.Find(row.name, row.index);
    if (row.begin < 0) {
      EXPECT_EQ(entry, nullptr) << row.text;
      continue;
    }
    ASSERT_NE(entry, nullptr) << row.text;
    EXPECT_EQ(std::make_tuple(entry->begin, entry->end, entry->line),
              std::make_tuple(static_cast<uint32_t>(row.begin), static_cast<uint32_t>(row.end),
                              static_cast<uint32_t>(row.line)))
        << row.text;
  }
}

TEST(ParseInTwo, LeavesToOneThreadWhatItCannotParseInTwo) {
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
  pcfg::LoadedConfig twice_json;
  EXPECT_FALSE(pcfg::ParseJsonInTwo(
      R"({"deviceInfo": {}, "peripherals": [{"id": "a"}, {"id": "b"}], "device_info": {}})",
      &twice_json.config, 0));
  pcfg::LoadedConfig broken_json;
  EXPECT_FALSE(
      pcfg::ParseJsonInTwo(R"({"peripherals": [{"id": "a"}, {"nonsense": 1}]})", &broken_json.config, 0));
}

TEST(JsonInTwo, CutsOnlyBetweenElementsOfAMembersArray) {
  struct Row {
    const char* json;
    size_t hint;
    const char* first;  // empty: no cut
    const char* second;
  };
  const Row rows[] = {
      {R"({"peripherals": [{"id": "a"}, {"id": "b"}], "deviceInfo": {}})", 0,
       R"({"peripherals": [{"id": "a"}]})", R"({"peripherals":[ {"id": "b"}], "deviceInfo": {}})"},
      {R"({"peripherals": [{"id": "],["}, {"id": "b"}]})", 0, R"({"peripherals": [{"id": "],["}]})",
       R"({"peripherals":[ {"id": "b"}]})"},
      {R"({"peripherals": [{"id": "\"],[\\"}, {"id": "b"}]})", 0, R"({"peripherals": [{"id": "\"],[\\"}]})",
       R"({"peripherals":[ {"id": "b"}]})"},
      // Only a root member's own list: not the dependencies inside an entry.
      {R"({"peripherals": [{"id": "a", "dependencies": [{"peripheralId": "x"}, {"peripheralId": "y"}]}]})", 0,
       "", ""},
      {R"({"peripherals": [{"id": "a"}, {"id": "b"}], "cameraSets": [{}, {}]})", 44,
       R"({"peripherals": [{"id": "a"}, {"id": "b"}], "cameraSets": [{}]})", R"({"cameraSets":[ {}]})"},
      {"{\"peripher\\u0061ls\": [{}, {}]}", 0, "{\"peripher\\u0061ls\": [{}]}",
       "{\"peripher\\u0061ls\":[ {}]}"},  // the name as written
      // Not strict JSON, so not cut: a bare key after a quoted one once sent the second half's
      // entries to the quoted member's list.
      {R"({"peripherals": [{"id": "a"}], cameraSets: [{"id": "c"}, {"id": "d"}]})", 0, "", ""},
      {R"({peripherals: [{"id": "a"}, {"id": "b"}]})", 0, "", ""},
      {R"({"peripherals": [{}, {}, ]})", 0, "", ""},
      {R"({"peripherals": [{}, {}]} x)", 0, "", ""},
      {R"({"peripherals": [{}, {}], "peripherals": [{}]})", 0, "", ""},  // a list named twice
      {R"({'peripherals': [{}, {}]})", 0, "", ""},
  };
  for (const Row& row : rows) {
    const pcfg::JsonHalves halves = pcfg::CutJson(row.json, row.hint);
    EXPECT_EQ(halves.first, row.first) << row.json;
    EXPECT_EQ(halves.second, row.second) << row.json;
  }
}

// One loader run over JSON: whether it loaded, and its first diagnostic as "line:column: message".
std::pair<bool, std::string> LoadJson(const std::string& json) {
  pcfg::LoadedConfig loaded;
  std::vector<pcfg::Diagnostic> diagnostics;
  const bool ok = pcfg::ParseConfig("x.json", pcfg::Format::kJson, json, &loaded, &diagnostics);
  if (diagnostics.empty()) return {ok, ""};
  const pcfg::Diagnostic& d = diagnostics.front();
  return {ok, std::to_string(d.line) + ":" + std::to_string(d.column) + ": " + d.message};
}

// protobuf's C++ parser takes each of these; the other runtimes, and so pcfg, refuse them.
TEST(StrictJson, RefusesWhatOtherRuntimesRefuseAndSaysWhere) {
  struct Row {
    const char* json;
    const char* says;  // prefix of "line:column: message"
  };
  const Row rows[] = {
      {R"({peripherals: []})", "1:2: invalid JSON: expected a member name in double quotes"},
      {R"({"peripherals": [{'id': "a"}]})", "1:19: invalid JSON: strings are written in double quotes"},
      {R"({"peripherals": [{"id": 'a'}]})", "1:25: invalid JSON: strings are written in double quotes"},
      {"{\"peripherals\": [{}, ]}", "1:20: invalid JSON: a comma after the last element"},
      {"{\"peripherals\": [],\n}", "1:19: invalid JSON: a comma after the last member"},
      {"{\"peripherals\": [[{}]]}", "1:18: not a PeripheralConfig in the JSON mapping: a list of field"},
      {"{\"deviceInfo\": {\"socName\": \"a\tb\"}}", "1:30: invalid JSON: a control character"},
      {"{\"deviceInfo\": {\"socName\": \"a\\x\"}}", "1:30: invalid JSON: an unknown escape"},
      {R"({"peripherals": [], "peripherals": []})",
       "1:21: not a PeripheralConfig in the JSON mapping: field \"peripherals\" is given twice"},
      {R"({"deviceInfo": {},
           "device_info": {}})",
       "2:12: not a PeripheralConfig in the JSON mapping: field \"device_info\" is given twice"},
      {R"({"peripherals": /* none */ []})", "1:17: invalid JSON: JSON has no comments"},
      {R"({"generalConfigs": {"cadmorCameraVersion": 01}})",
       "1:44: invalid JSON: a number may not start with a 0"},
      {R"({"generalConfigs": {"cadmorCameraVersion": NaN}})", "1:44: invalid JSON: expected a value"},
      {R"({"generalConfigs": {"cadmorCameraVersion": 1.}})",
       "1:44: invalid JSON: a decimal point needs digits"},
      {R"({"peripheralz": []})",
       "1:2: not a PeripheralConfig in the JSON mapping: Talvo.Peripherals.Config.Models.PeripheralConfig "
       "has no field \"peripheralz\""},
      {R"({"deviceInfo": []})",
       "1:16: not a PeripheralConfig in the JSON mapping: field \"device_info\" is not repeated"},
      {R"({"peripherals": {}})",
       "1:17: not a PeripheralConfig in the JSON mapping: field \"peripherals\" is repeated"},
      {R"({"peripherals": [{"id": {}}]})",
       "1:25: not a PeripheralConfig in the JSON mapping: field \"id\" is of type string: an object is not "
       "its value"},
      {R"({"deviceInfo": {"socName": "\ud800"}})", "1:29: invalid JSON: a high surrogate without a low one"},
      {R"({"deviceInfo": {"socName": "\ud800\u0041"}})",
       "1:29: invalid JSON: a high surrogate without a low one"},
      {R"({"deviceInfo": {"socName": "a\udc00"}})", "1:30: invalid JSON: a low surrogate without a high one"},
      {"[]", "1:1: invalid JSON: a configuration is a JSON object"},
      {"\xEF\xBB\xBF{}", "1:1: invalid JSON: a configuration is a JSON object"},
      {"{} {}", "1:4: invalid JSON: text after the end"},
      {"{\"peripherals\": [{\"id\": \"a", "1:25: invalid JSON: a string that is never closed"},
      {"{\"peripherals\": [", "1:18: invalid JSON: the input ends where a value should follow"},
      {R"({"peripherals": x})", "1:17: invalid JSON: expected a value"},
      {R"({"deviceInfo": {"socName": tru}})", "1:28: invalid JSON: expected a value"},
      {R"({"generalConfigs": {"cadmorCameraVersion": -}})", "1:44: invalid JSON: not a number"},
      {R"({"generalConfigs": {"cadmorCameraVersion": 1e}})", "1:44: invalid JSON: an exponent needs digits"},
      {R"({"deviceInfo": {"socName": "\u12G4"}})", "1:29: invalid JSON: \\u takes four hexadecimal digits"},
      {R"({"peripherals": [{} {}]})", "1:21: invalid JSON: expected ',' or ']' after an element of a list"},
      {R"({"peripherals" []})", "1:16: invalid JSON: expected ':' after a member name"},
      {R"({"peripherals": [] "x": 1})", "1:20: invalid JSON: expected ',' or '}' after a member"},
      {R"({"systemOptions": [{"optionsQcCamx": {}, "optionsQcCamxCci": {}}]})",
       "1:42: not a PeripheralConfig in the JSON mapping: fields \"options_qc_camx\" and "
       "\"options_qc_camx_cci\" "
       "are both set, but only one member of oneof \"options\" may be"},
      {R"({"physicalCameras": [{"camx": {"sensorSlaveAddr": {}}}]})",
       "1:51: not a PeripheralConfig in the JSON mapping: field \"sensor_slave_addr\" is of type "
       "google.protobuf.UInt32Value: an object is not its value"},
      // A name with escapes is looked up as it reads, in one, two, three and four bytes of UTF-8.
      {R"({"a\u00E9\u4e00\ud83d\ude00": 1})",
       "1:2: not a PeripheralConfig in the JSON mapping: Talvo.Peripherals.Config.Models.PeripheralConfig "
       "has no field \"a\xc3\xa9\xe4\xb8\x80\xf0\x9f\x98\x80\""},
  };
  for (const Row& row : rows) {
    const auto [ok, says] = LoadJson(row.json);
    EXPECT_FALSE(ok) << row.json;
    EXPECT_EQ(says.rfind(row.says, 0), 0u) << row.json << "\n  says: " << says;
  }
  // What the mapping allows, each of its forms once.
  for (const char* json : {
           R"({})",
           " \t\r\n{ \"peripherals\" : [ ] ,                  \"device_info\" : null } \n",
           R"({"peripherals": null, "generalConfigs": {"cadmorCameraVersion": 1E2}})",
           // A member of a oneof set to null leaves the oneof free.
           R"({"systemOptions": [{"optionsQcCamx": null, "optionsQcCamxCci": {}}]})",
           R"({"deviceInfo": {"socName": "\u00e9\"\\\/\b\f\n\r\t\ud83d\ude00"}})",
           R"({"generalConfigs": {"cadmorCameraVersion": 0.5e+1}})",
       }) {
    const auto [ok, says] = LoadJson(json);
    EXPECT_TRUE(ok) << json << "\n  says: " << says;
  }
}

// Findings on JSON input stand where their field is: the key of a singular field, the value of
// an element of a list.
TEST(StrictJson, LocatesFields) {
  pcfg::LoadedConfig loaded;
  std::vector<pcfg::Diagnostic> diagnostics;
  ASSERT_TRUE(pcfg::ParseConfig("x.json", pcfg::Format::kJson, R"({
  "deviceInfo": {"socName": "x"},
  "peripherals": [
    {"id": "a"},
      {"id": "b", "dependencies": [{"peripheral_id": "a"}, {"peripheralId": "c"}]}
  ]
})",
                                &loaded, &diagnostics));
  struct Row {
    pcfg::FieldPath path;
    int line, column;
  };
  const pcfg::FieldPath b = pcfg::FieldPath().Element("peripherals", 1);
  const Row rows[] = {
      {pcfg::FieldPath().Field("device_info").Field("soc_name"), 2, 18},
      {pcfg::FieldPath().Element("peripherals", 0), 4, 5},
      {b, 5, 7},
      {b.Field("id"), 5, 8},
      {b.Element("dependencies", 1).Field("peripheral_id"), 5, 61},
      {b.Element("dependencies", 0).Field("peripheral_id"), 5, 37},
      {pcfg::FieldPath().Element("peripherals", 7), 3, 3},  // no such element: the list's key
      {pcfg::FieldPath().Field("general_configs"), 0, 0},   // not in the input
  };
  for (const Row& row : rows) {
    const pcfg::LoadedConfig::Location at = loaded.Locate(row.path);
    EXPECT_EQ(std::make_pair(at.line, at.column), std::make_pair(row.line, row.column))
        << row.path.ToString();
  }
}

// Every field and element a configuration holds, as paths.
void AllPaths(const google::protobuf::Message& message, const pcfg::FieldPath& at,
              std::vector<pcfg::FieldPath>* paths) {
  const google::protobuf::Reflection* reflection = message.GetReflection();
  std::vector<const google::protobuf::FieldDescriptor*> fields;
  reflection->ListFields(message, &fields);
  for (const google::protobuf::FieldDescriptor* field : fields) {
    const bool is_message = field->cpp_type() == google::protobuf::FieldDescriptor::CPPTYPE_MESSAGE;
    if (!field->is_repeated()) {
      const pcfg::FieldPath path = at.Field(field->name());
      paths->push_back(path);
      if (is_message) AllPaths(reflection->GetMessage(message, field), path, paths);
      continue;
    }
    for (int i = 0; i < reflection->FieldSize(message, field); ++i) {
      const pcfg::FieldPath path = at.Element(field->name(), i);
      paths->push_back(path);
      if (is_message) AllPaths(reflection->GetRepeatedMessage(message, field, i), path, paths);
    }
  }
}

// Before the whole text's syntax tree is built, a field is located by a tree of the root entry
// that holds it: at the very place the whole tree gives, whatever the layout around the entries.
TEST(Text, LocatesInOneRootEntryWhereTheWholeTreeDoes) {
  const std::string layouts =
      "# a header { with } brackets \"and a quote\n"
      "device_info: < device_name: HARDWARE_TREVIL3 soc_name: \"a}b\\\"{c\" >\n"
      "peripherals { id: 'x{' }; peripherals: { id: \"y\" dependencies { peripheral_id: 'x{' } },\n"
      "\tperipherals\t{\tid: \"t\"\tdependencies: [{ peripheral_id: \"y\" }, { peripheral_id: \"t\" }] }\n"
      "peripherals {\n  id: \"multi\"\n  dependencies {\n    peripheral_id: \"y\"\n  }\n} # } closed\n"
      "  ,\r\n"
      "general_configs { cadmor_camera_version: 3 }\r\n"
      "peripherals { id: \"last\" } # no line break after";
  for (const std::string& text : {layouts, pcfg_test::ReadFile(pcfg_test::ExamplePath("headset.txtpb"))}) {
    pcfg::LoadedConfig whole = pcfg_test::ParseText(text);
    whole.Syntax();
    std::vector<pcfg::FieldPath> paths;
    AllPaths(whole.config, pcfg::FieldPath(), &paths);
    ASSERT_GT(paths.size(), 20u);
    size_t placed_alone = 0;
    for (const pcfg::FieldPath& path : paths) {
      pcfg::LoadedConfig alone;  // locating reads the text alone: no parse needed
      alone.format = pcfg::Format::kText;
      alone.raw = text;
      const pcfg::LoadedConfig::Location in_entry = alone.Locate(path), in_whole = whole.Locate(path);
      placed_alone += !alone.SyntaxAtHand();
      EXPECT_GT(in_entry.line, 0) << path.ToString();
      EXPECT_EQ(std::tie(in_entry.line, in_entry.column, in_entry.end_line, in_entry.end_column,
                         in_entry.text_offset, in_entry.text_length),
                std::tie(in_whole.line, in_whole.column, in_whole.end_line, in_whole.end_column,
                         in_whole.text_offset, in_whole.text_length))
          << path.ToString();
    }
    // All but those in an entry of more than a quarter of the text (the example's first cameras).
    EXPECT_GT(placed_alone, paths.size() / 2);
    // A path the text does not hold stands where the walk got to: its entry, or nowhere.
    const pcfg::FieldPath first = pcfg::FieldPath().Element("peripherals", 0);
    for (const pcfg::FieldPath& absent : {first.Element("dependencies", 0), first.Element("dependencies", 9)})
      EXPECT_EQ(whole.Locate(absent).text_offset, whole.Locate(first).text_offset) << absent.ToString();
    EXPECT_EQ(whole.Locate(pcfg::FieldPath().Element("peripherals", 999)).line, 0);
    // Trees of entries read, together, at most the whole text: past that, the whole tree answers.
    pcfg::LoadedConfig shared;
    shared.format = pcfg::Format::kText;
    shared.raw = text;
    for (const pcfg::FieldPath& path : paths)
      EXPECT_EQ(shared.Locate(path).text_offset, whole.Locate(path).text_offset) << path.ToString();
    EXPECT_TRUE(shared.SyntaxAtHand());
  }
}

// The two halves of a large input set one singular field, which one parse refuses: two threads
// must not take it, and the one parse says where.
TEST(TextInTwo, RefusesAFieldSetInBothHalves) {
  std::string entries;
  for (int i = 0; i < 10000; ++i) entries += "peripherals { id: \"p" + std::to_string(i) + "\" }\n";
  const std::string text =
      "device_info { soc_name: \"a\" }\n" + entries + "device_info { soc_name: \"b\" }\n";
  ASSERT_GE(text.size(), pcfg::kSmallestInputWorthCutting);
  const size_t cut = pcfg::TextCutPoint(text, text.size() / 2);
  ASSERT_GT(cut, 40u);
  ASSERT_LT(cut, text.size() - 40);  // the two device_info really are in different halves
  pcfg::LoadedConfig two;
  EXPECT_FALSE(pcfg::ParseTextInTwo(text, &two.config));
  pcfg::LoadedConfig loaded;
  std::vector<pcfg::Diagnostic> diagnostics;
  EXPECT_FALSE(pcfg::ParseConfig("x.txtpb", pcfg::Format::kText, text, &loaded, &diagnostics));
  ASSERT_FALSE(diagnostics.empty());
  EXPECT_EQ(diagnostics.front().line, 10002);
}

// Findings on binary input stand at the record of their field: the N-th element of a list, inside
// the message of each step, an element packed with others at the packed record.
TEST(BinaryLocations, RecordsOfNestedAndPackedFields) {
  const std::string wire(
      "\x52\x03\x0a\x01\x61"                          // 0: peripherals[0] { id: "a" }
      "\x12\x09\x12\x07\x1a\x05\x12\x03\x01\x02\x03"  // 5: general_configs { ... streams: [1, 2, 3] }
      "\x52\x0d\x0a\x01\x62\x52\x03\x0a\x01\x78\x52\x03\x0a\x01\x79",  // 16: peripherals[1] with two
                                                                       // dependencies
      31);
  pcfg::LoadedConfig loaded;
  std::vector<pcfg::Diagnostic> diagnostics;
  ASSERT_TRUE(pcfg::ParseConfig("x.binpb", pcfg::Format::kBinary, wire, &loaded, &diagnostics));
  const pcfg::FieldPath b = pcfg::FieldPath().Element("peripherals", 1);
  const pcfg::FieldPath pipeline = pcfg::FieldPath()
                                       .Field("general_configs")
                                       .Element("hal_stream_configs", 0)
                                       .Element("pipeline_configs", 0);
  struct Row {
    pcfg::FieldPath path;
    int offset, length;
  };
  const Row rows[] = {
      {pcfg::FieldPath().Element("peripherals", 0), 0, 5},
      {pcfg::FieldPath().Element("peripherals", 0).Field("id"), 2, 3},
      {b, 16, 15},
      {b.Field("id"), 18, 3},
      {b.Element("dependencies", 0), 21, 5},
      {b.Element("dependencies", 1), 26, 5},
      {b.Element("dependencies", 1).Field("peripheral_id"), 28, 3},
      {b.Element("dependencies", 2), 16, 15},  // no such element: where the walk got to
      {pcfg::FieldPath().Field("general_configs"), 5, 11},
      {pipeline, 9, 7},
      {pipeline.Element("streams", 0), 11, 5},
      {pipeline.Element("streams", 2), 11, 5},
      {pipeline.Element("streams", 3), 9, 7},
      {pcfg::FieldPath().Element("peripherals", 2), -1, 0},
      {pcfg::FieldPath().Field("device_info"), -1, 0},
  };
  for (const Row& row : rows) {
    const pcfg::LoadedConfig::Location at = loaded.Locate(row.path);
    EXPECT_EQ(std::make_pair(at.byte_offset, at.byte_length), std::make_pair(row.offset, row.length))
        << row.path.ToString();
  }
  // Asked in another order, the index built by the first answers give the same.
  pcfg::LoadedConfig again;
  ASSERT_TRUE(pcfg::ParseConfig("x.binpb", pcfg::Format::kBinary, wire, &again, &diagnostics));
  for (auto row = std::rbegin(rows); row != std::rend(rows); ++row)
    EXPECT_EQ(again.Locate(row->path).byte_offset, row->offset) << row->path.ToString();
}

}  // namespace
