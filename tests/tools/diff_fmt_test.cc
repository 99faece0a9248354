// pcfg diff and pcfg fmt: keyed matching and the lines diff prints, exit statuses across forms,
// and fmt's canonical form, --check, -i and its guard against losing comments.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "diff.h"
#include "pcfg_test_support.h"

namespace {

using pcfg_test::ParseText;
using pcfg_test::Pcfg;
using pcfg_test::ReadFile;
using pcfg_test::WriteFile;

const std::string kHeader = pcfg::kTextHeader;

const char kBase[] = R"(
device_info { device_name: HARDWARE_TREVIL3 soc_name: "sm8550" }
general_configs {
  hal_stream_configs {
    system_type: CAMERA_SYSTEM_TYPE_WORLD_TRACKING
    pipeline_configs { pipeline_type: PIPELINE_DEFAULT streams: [STREAM_RAW8_NATIVE] }
  }
  hal_stream_configs {
    system_type: CAMERA_SYSTEM_TYPE_COLOR
    pipeline_configs { pipeline_type: PIPELINE_DEFAULT streams: [STREAM_RAW10_NATIVE] }
    pipeline_configs {
      pipeline_type: PIPELINE_FOVEATION_TWO_ZONES_FOVEA_IPE
      streams: [STREAM_YUV420_FOVEA_PREPROCESS, STREAM_YUV420_PERIPHERY_PREPROCESS]
    }
  }
}
peripherals { id: "fpga" type: PERIPHERAL_TYPE_FPGA }
peripherals {
  id: "cam_left"
  type: PERIPHERAL_TYPE_CAMERA
  system_type: PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX
  dependencies { peripheral_id: "fpga" }
}
peripherals { id: "set" type: PERIPHERAL_TYPE_CAMERASET }
physical_cameras {
  peripheral_id: "cam_left"
  cameraset_peripheral_ids: "set"
  camx {
    sensor_name: "og0va1b"
    power_up_sequence { config_type: RESET delay_ms: 1 }
    power_up_sequence { config_type: RESET delay_ms: 5 }
  }
}
camera_sets { peripheral_id: "set" camera_peripheral_ids: ["cam_left"] }
system_options { type: PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX options_qc_camx {} }
system_options { type: PERIPHERAL_SYSTEM_TYPE_CADMOR }
)";

// TEXT (kBase by default) with the first FROM replaced by TO.
std::string Edited(const std::string& from, const std::string& to, std::string text = kBase) {
  const size_t at = text.find(from);
  if (at == std::string::npos) throw std::runtime_error("not in the fixture: " + from);
  return text.replace(at, from.size(), to);
}

std::vector<std::string> DiffLines(const std::string& a, const std::string& b) {
  std::vector<std::string> lines;
  for (const pcfg::Difference& d : pcfg::DiffConfigs(ParseText(a).config, ParseText(b).config))
    lines.push_back(pcfg::FormatDifference(d));
  return lines;
}

struct DiffCase {
  const char* what;
  std::string a, b;
  std::vector<std::string> lines;
};

TEST(Diff, MatchesKeyedEntriesAndNamesEachDifference) {
  const DiffCase cases[] = {
      {"identical", kBase, kBase, {}},
      {"changed string in a keyed entry",
       kBase,
       Edited("\"og0va1b\"", "\"og01a1b\""),
       {"physical_cameras[cam_left].camx.sensor_name: \"og0va1b\" -> \"og01a1b\""}},
      {"changed enumeration, by name",
       kBase,
       Edited("id: \"fpga\" type: PERIPHERAL_TYPE_FPGA", "id: \"fpga\" type: PERIPHERAL_TYPE_IMU"),
       {"peripherals[fpga].type: PERIPHERAL_TYPE_FPGA -> PERIPHERAL_TYPE_IMU"}},
      {"undeclared enumeration number",
       kBase,
       Edited("id: \"fpga\" type: PERIPHERAL_TYPE_FPGA", "id: \"fpga\" type: 77"),
       {"peripherals[fpga].type: PERIPHERAL_TYPE_FPGA -> 77"}},
      {"added and removed entries, by key",
       kBase,
       Edited("peripherals { id: \"fpga\" type: PERIPHERAL_TYPE_FPGA }",
              "peripherals { id: \"imu1\" type: PERIPHERAL_TYPE_IMU }"),
       {"- peripherals[fpga]: removed", "+ peripherals[imu1]: added"}},
      {"enumeration key and a oneof member switched",
       kBase,
       Edited("options_qc_camx {}", "options_qc_camx_cci {}"),
       {"+ system_options[PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX].options_qc_camx_cci: added",
        "- system_options[PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX].options_qc_camx: removed"}},
      {"nested keyed lists and repeated enumerations by position",
       kBase,
       Edited("[STREAM_YUV420_FOVEA_PREPROCESS, STREAM_YUV420_PERIPHERY_PREPROCESS]",
              "[STREAM_YUV420_FOVEA_PREPROCESS, STREAM_RAW8_GAMMA, STREAM_RAW8_NATIVE]"),
       {"general_configs.hal_stream_configs[CAMERA_SYSTEM_TYPE_COLOR].pipeline_configs["
        "PIPELINE_FOVEATION_TWO_ZONES_FOVEA_IPE].streams[1]: STREAM_YUV420_PERIPHERY_PREPROCESS -> "
        "STREAM_RAW8_GAMMA",
        "+ general_configs.hal_stream_configs[CAMERA_SYSTEM_TYPE_COLOR].pipeline_configs["
        "PIPELINE_FOVEATION_TWO_ZONES_FOVEA_IPE].streams[2]: STREAM_RAW8_NATIVE"}},
      {"positional message list and a repeated string",
       kBase,
       Edited("delay_ms: 5 }", "delay_ms: 6 }",
              Edited("cameraset_peripheral_ids: \"set\"", "cameraset_peripheral_ids: [\"set\", \"x\"]")),
       {"+ physical_cameras[cam_left].cameraset_peripheral_ids[1]: \"x\"",
        "physical_cameras[cam_left].camx.power_up_sequence[1].delay_ms: 5 -> 6"}},
      {"a positional list that gets shorter, and a double",
       Edited("cameraset_peripheral_ids: \"set\"", "cameraset_peripheral_ids: [\"set\", \"x\"]"),
       Edited("sensor_name: \"og0va1b\"", "sensor_name: \"og0va1b\" lens_info { focal_length: 2.5 }"),
       {"- physical_cameras[cam_left].cameraset_peripheral_ids[1]: \"x\"",
        "+ physical_cameras[cam_left].camx.lens_info: added"}},
      {"singular message on one side",
       kBase,
       Edited("sensor_name: \"og0va1b\"", "sensor_name: \"og0va1b\" lens_info {}"),
       {"+ physical_cameras[cam_left].camx.lens_info: added"}},
      {"strings escaped, odd keys quoted",
       "peripherals { id: \"a b\" } device_info { soc_name: \"x\" }",
       "peripherals { id: \"a b\" type: PERIPHERAL_TYPE_IMU } device_info { soc_name: \"say \\\"hi\\\"\" }",
       {"device_info.soc_name: \"x\" -> \"say \\\"hi\\\"\"",
        "peripherals[\"a b\"].type: PERIPHERAL_TYPE_UNKNOWN -> PERIPHERAL_TYPE_IMU"}},
      {"a signed number changed; NaN is the same as NaN",
       "physical_cameras { peripheral_id: \"c\" cadmor { gpio { fsin: 1 } } camx { streams { frame_rate: nan "
       "lane_count: 2 } } }",
       "physical_cameras { peripheral_id: \"c\" cadmor { gpio { fsin: -1 } } camx { streams { frame_rate: "
       "nan lane_count: 4 } } }",
       {"physical_cameras[c].camx.streams[0].lane_count: 2 -> 4",
        "physical_cameras[c].cadmor.gpio.fsin: 1 -> -1"}},
      {"duplicate keys paired in order of appearance",
       "peripherals { id: \"d\" type: PERIPHERAL_TYPE_IMU } peripherals { id: \"d\" type: "
       "PERIPHERAL_TYPE_MAG }"
       "peripherals { id: \"d\" type: PERIPHERAL_TYPE_FPGA }",
       "peripherals { id: \"d\" type: PERIPHERAL_TYPE_IMU } peripherals { id: \"d\" type: "
       "PERIPHERAL_TYPE_FPGA }",
       {"peripherals[d#2].type: PERIPHERAL_TYPE_MAG -> PERIPHERAL_TYPE_FPGA", "- peripherals[d#3]: removed"}},
  };
  for (const DiffCase& c : cases) EXPECT_EQ(DiffLines(c.a, c.b), c.lines) << c.what;
}

// Every keyed list matches entries by its key: two entries swapped are no change, and the second
// dropped is one difference named by its key. A list that lost its key compares by position.
TEST(Diff, EveryKeyedListMatchesByItsKey) {
  struct Row {
    const char* list;
    const char* around;  // the entries go in place of the %
    const char* field;   // the key field, the first key, the second key
    const char *first_key, *second_key;
  };
  const Row rows[] = {
      {"peripherals", "%", "id", "\"a\"", "\"b\""},
      {"physical_cameras", "%", "peripheral_id", "\"a\"", "\"b\""},
      {"logical_cameras", "%", "peripheral_id", "\"a\"", "\"b\""},
      {"camera_sets", "%", "peripheral_id", "\"a\"", "\"b\""},
      {"camera_stream_configs", "%", "peripheral_id", "\"a\"", "\"b\""},
      {"system_options", "%", "type", "PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX_CADMOR",
       "PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX_CCI"},
      {"adapter_options", "%", "type", "PERIPHERAL_SYSTEM_ADAPTER_TYPE_CAMX",
       "PERIPHERAL_SYSTEM_ADAPTER_TYPE_NOOP"},
      {"hal_stream_configs", "general_configs { % }", "system_type", "CAMERA_SYSTEM_TYPE_COLOR",
       "CAMERA_SYSTEM_TYPE_DEPTH"},
      {"pipeline_configs", "general_configs { hal_stream_configs { % } }", "pipeline_type",
       "PIPELINE_FOVEATION_TWO_ZONES_NO_PPS", "PIPELINE_FOVEATION_TWO_ZONES_FOVEA_IPE"},
  };
  for (const Row& row : rows) {
    const auto entry = [&](const char* key) {
      return std::string(row.list) + " { " + row.field + ": " + key + " } ";
    };
    const auto text = [&](const std::string& entries) {
      std::string around(row.around);
      return around.replace(around.find('%'), 1, entries);
    };
    const std::string both = text(entry(row.first_key) + entry(row.second_key));
    EXPECT_EQ(DiffLines(both, text(entry(row.second_key) + entry(row.first_key))), std::vector<std::string>{})
        << row.list;
    const auto dropped = DiffLines(both, text(entry(row.first_key)));
    ASSERT_EQ(dropped.size(), 1u) << row.list;
    std::string second_key(row.second_key);
    if (second_key.front() == '"') second_key = second_key.substr(1, second_key.size() - 2);
    EXPECT_NE(dropped[0].find(std::string(row.list) + "[" + second_key + "]"), std::string::npos)
        << row.list << ": " << dropped[0];
  }
}

TEST(Diff, ComparesUnknownFieldsOfEveryWireType) {
  // peripherals { id: "x" } carrying field 7, which the schema does not know, in each wire type;
  // the two values of a row differ in their last byte.
  struct Row {
    const char* wire_type;
    std::string a, b;
    std::string shown_a;
  };
  const Row rows[] = {
      {"varint", "\x38\x01", "\x38\x02", "{ 7: 1 }"},
      {"fixed32", std::string("\x3d\x01\x00\x00\x00", 5), std::string("\x3d\x01\x00\x00\x01", 5),
       "{ 7: 0x00000001 }"},
      {"fixed64", std::string("\x39\x01\x00\x00\x00\x00\x00\x00\x00", 9),
       std::string("\x39\x01\x00\x00\x00\x00\x00\x00\x01", 9), "{ 7: 0x0000000000000001 }"},
      {"length-delimited", "\x3a\x01y", "\x3a\x01z", "{ 7: \"y\" }"},
      {"group", "\x3b\x08\x01\x3c", "\x3b\x08\x02\x3c", "{ 7 { 1: 1 } }"},
      {"long, and shown cut", "\x3a\x46" + std::string(70, 'y'), "\x3a\x46" + std::string(70, 'z'),
       "{ 7: \"" + std::string(56, 'y') + "... }"},
      {"the same value in another wire type", "\x38\x01", std::string("\x3d\x01\x00\x00\x00", 5), "{ 7: 1 }"},
      {"the same value under another number", "\x38\x01", "\x40\x01", "{ 7: 1 }"},
  };
  const auto entry = [](const std::string& unknown) {
    pcfg::Config config;
    const std::string body = "\x0a\x01x" + unknown;
    EXPECT_TRUE(config.ParseFromString("\x52" + std::string(1, static_cast<char>(body.size())) + body));
    return config;
  };
  pcfg::Config plain;
  ASSERT_TRUE(plain.ParseFromString(std::string("\x52\x03\x0a\x01x", 5)));
  for (const Row& row : rows) {
    SCOPED_TRACE(row.wire_type);
    const pcfg::Config a = entry(row.a), b = entry(row.b);
    EXPECT_TRUE(pcfg::DiffConfigs(a, entry(row.a)).empty());
    EXPECT_EQ(pcfg::DiffConfigs(a, b).size(), 1u);
    // Beside a change of a known field, the same unknown field is no difference.
    const auto typed = pcfg::DiffConfigs(a, entry("\x10\x01" + row.a));
    ASSERT_EQ(typed.size(), 1u);
    EXPECT_EQ(typed[0].path, "peripherals[x].type");
    const auto added = pcfg::DiffConfigs(plain, a);
    ASSERT_EQ(added.size(), 1u);
    EXPECT_EQ(pcfg::FormatDifference(added[0]),
              std::string("peripherals[x].(unknown fields): (none) -> ") + row.shown_a);
  }
}

using pcfg_test::Scratch;
using pcfg_test::Written;

TEST(Diff, ExitStatusesAcrossForms) {
  const std::string text = Written("base.txtpb", kBase);
  const std::string binary =
      Written("base.binpb", pcfg_test::Serialized(ParseText(kBase).config, pcfg::Format::kBinary));
  const std::string json =
      Written("base.json", pcfg_test::Serialized(ParseText(kBase).config, pcfg::Format::kJson));
  const std::string odd_name = Written("base.data", ReadFile(text));
  const std::string changed = Written("changed.txtpb", Edited("\"og0va1b\"", "\"og01a1b\""));
  struct Row {
    const char* what;
    std::vector<std::string> args;
    int status;
  };
  const Row rows[] = {
      {"text against binary", {"diff", text, binary}, 0},
      {"json against text", {"diff", json, text}, 0},
      {"format given for a side", {"diff", "--from-a", "text", odd_name, binary}, 0},
      {"standard input as one side", {"diff", "-", binary}, 0},
      {"different", {"diff", binary, changed}, 1},
      {"missing file", {"diff", text, Scratch("nope.txtpb")}, 2},
      {"unparsable", {"diff", Written("broken.txtpb", "peripherals {"), text}, 2},
      {"wrong format given", {"diff", "--from-b", "json", text, binary}, 2},
      {"one argument", {"diff", text}, 2},
      {"both standard input", {"diff", "-", "-"}, 2},
  };
  for (const Row& row : rows) {
    const auto run = Pcfg(row.args, kBase);
    EXPECT_EQ(run.status, row.status) << row.what << "\n" << run.out << run.err;
    if (row.status == 0) {
      EXPECT_EQ(run.out, "") << row.what;
    }
  }
  EXPECT_EQ(Pcfg({"diff", binary, changed}).out,
            "physical_cameras[cam_left].camx.sensor_name: \"og0va1b\" -> \"og01a1b\"\n");
}

// Field order scrambled, an alias and a number for enumerations, odd spacing, no header.
const char kMessy[] =
    "physical_cameras { model: CAMERA_MODEL_VELMIR peripheral_id: \"cam\" }\n"
    "peripherals {type:1   id:\"cam\"}\ndevice_info{soc_name:'sm8550' device_name:HARDWARE_TREVIL3}\n";

TEST(Fmt, PrintsTheCanonicalForm) {
  const auto first = Pcfg({"fmt", "--canonical", Written("messy.txtpb", kMessy)});
  ASSERT_EQ(first.status, 0) << first.err;
  EXPECT_EQ(first.out, kHeader +
                           "device_info {\n  device_name: HARDWARE_TREVIL3\n  soc_name: \"sm8550\"\n}\n"
                           "peripherals {\n  id: \"cam\"\n  type: PERIPHERAL_TYPE_CAMERA\n}\n"
                           "physical_cameras {\n  peripheral_id: \"cam\"\n  model: CAMERA_MODEL_OV7251\n}\n");
  // Binary input has no layout to keep: it prints as canonical. (That the canonical text formats to
  // itself and loads equal is the fmt fuzz target's to hold.)
  const pcfg::Config config = ParseText(kMessy).config;
  EXPECT_EQ(Pcfg({"fmt", Written("messy.binpb", pcfg_test::Serialized(config, pcfg::Format::kBinary))}).out,
            first.out);
}

TEST(Fmt, CheckListsFilesNotFormatted) {
  const std::string canonical = pcfg_test::Serialized(ParseText(kBase).config, pcfg::Format::kText);
  const std::string clean = Written("clean.txtpb", canonical);
  const std::string messy = Written("check-messy.txtpb", kMessy);
  const std::string commented = Written("commented.txtpb", canonical + "# trailing note\n");
  // A folder stands for the text configurations in and below it: other files, and a link back
  // up (which would loop), are passed over.
  const std::string folder = Scratch("folder"), empty = Scratch("empty-folder");
  mkdir(folder.c_str(), 0755);
  mkdir((folder + "/sub").c_str(), 0755);
  mkdir(empty.c_str(), 0755);
  const std::string nested = Written("folder/sub/b.textproto", kMessy);
  Written("folder/a.txtpb", canonical);
  Written("folder/c.json", "{}");
  symlink("..", (folder + "/sub/up").c_str());
  mkfifo((folder + "/sub/waits.txtpb").c_str(), 0644);  // never opened: it would wait for a writer
  struct Row {
    const char* what;
    std::vector<std::string> args;
    int status;
    std::string out;
  };
  const Row rows[] = {
      {"all formatted", {"fmt", "--canonical", "--check", clean, clean}, 0, ""},
      {"one not formatted", {"fmt", "--canonical", "--check", clean, messy}, 1, messy + ": not formatted\n"},
      {"a comment is not canonical",
       {"fmt", "--canonical", "--check", commented},
       1,
       commented + ": not formatted\n"},
      {"unreadable wins", {"fmt", "--check", messy, Scratch("nope.txtpb")}, 2, messy + ": not formatted\n"},
      {"binary is not checked", {"fmt", "--check", Written("c.binpb", "")}, 2, ""},
      {"several inputs need -i or --check", {"fmt", clean, clean}, 2, ""},
      {"-i and --check together", {"fmt", "-i", "--check", clean}, 2, ""},
      {"--lines: what touches them",
       {"fmt", "--check", "--lines", "2:2", messy},
       1,
       messy + ": not formatted\n"},
      {"--lines for several inputs", {"fmt", "--check", "--lines", "1:2", messy, messy}, 2, ""},
      {"--lines backwards", {"fmt", "--check", "--lines", "3:2", messy}, 2, ""},
      {"--lines from line 0", {"fmt", "--check", "--lines", "0:2", messy}, 2, ""},
      {"--lines with --canonical", {"fmt", "--check", "--canonical", "--lines", "1:2", messy}, 2, ""},
      {"-i on standard input", {"fmt", "-i", "-"}, 2, ""},
      {"no input", {"fmt"}, 2, ""},
      {"a folder", {"fmt", "--canonical", "--check", folder}, 1, nested + ": not formatted\n"},
      {"a folder with none", {"fmt", "--check", empty}, 0, ""},
      {"a folder printed", {"fmt", folder}, 2, ""},
  };
  for (const Row& row : rows) {
    const auto run = Pcfg(row.args);
    EXPECT_EQ(run.status, row.status) << row.what << "\n" << run.err;
    // The files not formatted are named on standard error, each with its diff on standard output.
    EXPECT_EQ(run.err.find(row.out) != std::string::npos, true) << row.what << "\n" << run.err;
    EXPECT_EQ(run.out.empty(), row.out.empty()) << row.what << "\n" << run.out;
  }
  const auto diff = Pcfg({"fmt", "--canonical", "--check", commented});
  EXPECT_EQ(diff.out.rfind("--- " + commented + "\n+++ " + commented + " (formatted)\n@@ -", 0), 0u)
      << diff.out;
  EXPECT_NE(diff.out.find(",4 +"), std::string::npos) << "three lines of context and the one removed\n"
                                                      << diff.out;
  EXPECT_EQ(diff.out.substr(diff.out.size() - 17), "-# trailing note\n") << diff.out;
  EXPECT_EQ(ReadFile(messy), kMessy) << "--check writes nothing";
  const auto in_folder = Pcfg({"fmt", "--canonical", "--check", folder});
  EXPECT_EQ(in_folder.out.find("c.json"), std::string::npos);
  EXPECT_NE(in_folder.err.find("waits.txtpb: not a regular file; passed over"), std::string::npos)
      << in_folder.err;
  EXPECT_EQ(Pcfg({"fmt", "--canonical", "-i", folder}).status, 0);
  EXPECT_EQ(Pcfg({"fmt", "--canonical", "--check", folder}).status, 0);
}

ino_t Inode(const std::string& path) {
  struct stat info {};
  stat(path.c_str(), &info);
  return info.st_ino;
}

TEST(Fmt, InPlaceRewritesOnlyWhatItMayAndMust) {
  const std::string canonical = Pcfg({"fmt", "--canonical", "-"}, kMessy).out;
  struct Row {
    const char* what;
    std::string content;
    const char* extra;  // another option, if any
    int status;
    std::string result;  // the file afterwards
    std::string message;
  };
  const std::string quoted_hashes = "device_info { soc_name: \"a#b\" } # no\n";
  const Row rows[] = {
      {"rewritten", kMessy, "", 0, canonical, ": formatted"},
      {"header lines are no comments", kHeader + std::string(kMessy), "", 0, canonical, ": formatted"},
      {"comment line refused", std::string(kMessy) + "\n# keep me\n", "", 2,
       std::string(kMessy) + "\n# keep me\n", ":5: error: has comments"},
      {"trailing comment refused", quoted_hashes, "", 2, quoted_hashes, ":1: error: has comments"},
      {"a header line in the body is a comment",
       std::string(kMessy) + "# proto-file: a note that looks like the header\n", "", 2,
       std::string(kMessy) + "# proto-file: a note that looks like the header\n", ":4: error: has comments"},
      {"the header ends where the body starts, quoted or not",
       "device_info { device_name: HARDWARE_TREVIL3 }\n# proto-file: a note that looks like the header\n", "",
       2, "device_info { device_name: HARDWARE_TREVIL3 }\n# proto-file: a note that looks like the header\n",
       ":2: error: has comments"},
      {"# inside strings is no comment", "device_info { soc_name: \"a#b\" }\nperipherals { id: 'x\\'#' }\n",
       "", 0, kHeader + "device_info {\n  soc_name: \"a#b\"\n}\nperipherals {\n  id: \"x\\'#\"\n}\n",
       ": formatted"},
      {"--drop-comments proceeds", std::string(kMessy) + "# gone\n", "--drop-comments", 0, canonical,
       ": formatted"},
      {"binary refused", "\x52\x03\x0a\x01x", "--from=binary", 2, "\x52\x03\x0a\x01x",
       ": error: read as binary"},
  };
  int n = 0;
  for (const Row& row : rows) {
    const std::string file = Written("inplace" + std::to_string(n++) + ".txtpb", row.content);
    std::vector<std::string> args = {"fmt", "--canonical", "-i", file};
    if (*row.extra != '\0') args.push_back(row.extra);
    const auto run = Pcfg(args);
    EXPECT_EQ(run.status, row.status) << row.what << "\n" << run.err;
    EXPECT_EQ(ReadFile(file), row.result) << row.what;
    EXPECT_NE(run.err.find(file + row.message), std::string::npos) << row.what << "\n" << run.err;
  }

  // A file already canonical is not written at all.
  const std::string clean = Written("inplace-clean.txtpb", canonical);
  const ino_t before = Inode(clean);
  EXPECT_EQ(Pcfg({"fmt", "--canonical", "-i", clean}).status, 0);
  EXPECT_EQ(Inode(clean), before);
}

}  // namespace
