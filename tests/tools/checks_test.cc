// Each rule with a small failing configuration and its passing twin, plus the rule table,
// severities, locations and options.
#include "checks.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "pcfg_test_support.h"
#include "test_support.h"

namespace {

using pcfg::Diagnostic;

std::vector<Diagnostic> Check(const std::string& text, const pcfg::CheckOptions& options = {}) {
  return pcfg::RunChecks(pcfg_test::ParseText(text), options);
}

// Rules that reported findings (notes say how the run went, not what is wrong).
std::set<std::string> RulesFired(const std::vector<Diagnostic>& diagnostics) {
  std::set<std::string> rules;
  for (const Diagnostic& d : diagnostics)
    if (d.severity != pcfg::Severity::kNote) rules.insert(d.rule);
  return rules;
}

std::vector<Diagnostic> Notes(const std::vector<Diagnostic>& diagnostics) {
  std::vector<Diagnostic> notes;
  for (const Diagnostic& d : diagnostics)
    if (d.severity == pcfg::Severity::kNote) notes.push_back(d);
  return notes;
}

struct RuleCase {
  const char* rule;
  std::string failing, passing;
};

const std::string kCam = "peripherals { id: \"cam\" type: PERIPHERAL_TYPE_CAMERA }\n";

// Small, otherwise clean configurations: each failing text breaks exactly one rule.
const RuleCase kRuleCases[] = {
    {"duplicate-id", R"(peripherals { id: "imu" type: PERIPHERAL_TYPE_IMU }
                        peripherals { id: "imu" type: PERIPHERAL_TYPE_IMU })",
     R"(peripherals { id: "imu" type: PERIPHERAL_TYPE_IMU }
        peripherals { id: "imu2" type: PERIPHERAL_TYPE_IMU })"},
    {"dangling-reference",
     R"(peripherals { id: "imu" type: PERIPHERAL_TYPE_IMU dependencies { peripheral_id: "fpga" } })",
     R"(peripherals { id: "fpga" type: PERIPHERAL_TYPE_FPGA }
        peripherals { id: "imu" type: PERIPHERAL_TYPE_IMU dependencies { peripheral_id: "fpga" } })"},
    {"reference-kind", R"(peripherals { id: "cam" type: PERIPHERAL_TYPE_IMU }
                          physical_cameras { peripheral_id: "cam" cadmor {} })",
     kCam + R"(physical_cameras { peripheral_id: "cam" cadmor {} })"},
    {"dependency-cycle",
     R"(peripherals { id: "a" type: PERIPHERAL_TYPE_FPGA dependencies { peripheral_id: "a" } })",
     R"(peripherals { id: "a" type: PERIPHERAL_TYPE_FPGA })"},
    {"options-pairing",
     R"(system_options { type: PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX options_qc_camx_cci {} })",
     R"(system_options { type: PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX options_qc_camx {} })"},
    {"duplicate-options", R"(adapter_options { type: PERIPHERAL_SYSTEM_ADAPTER_TYPE_NOOP }
                             adapter_options { type: PERIPHERAL_SYSTEM_ADAPTER_TYPE_NOOP })",
     R"(adapter_options { type: PERIPHERAL_SYSTEM_ADAPTER_TYPE_NOOP })"},
    {"missing-options",
     R"(peripherals { id: "imu" type: PERIPHERAL_TYPE_IMU system_type: PERIPHERAL_SYSTEM_TYPE_CADMOR })",
     R"(peripherals { id: "imu" type: PERIPHERAL_TYPE_IMU system_type: PERIPHERAL_SYSTEM_TYPE_CADMOR }
        system_options { type: PERIPHERAL_SYSTEM_TYPE_CADMOR })"},
    {"missing-entry", R"(peripherals { id: "cam" type: PERIPHERAL_TYPE_CAMERA })",
     kCam + R"(physical_cameras { peripheral_id: "cam" camx {} })"},
    {"membership-mismatch", kCam + R"(peripherals { id: "set" type: PERIPHERAL_TYPE_CAMERASET }
                               physical_cameras { peripheral_id: "cam" cadmor {} }
                               camera_sets { peripheral_id: "set" camera_peripheral_ids: "cam" })",
     kCam + R"(peripherals { id: "set" type: PERIPHERAL_TYPE_CAMERASET }
        physical_cameras { peripheral_id: "cam" cadmor {} cameraset_peripheral_ids: "set" cadmor_camera_set_id: 2 }
        camera_sets { peripheral_id: "set" camera_peripheral_ids: "cam" cadmor { camera_set_id: 2 } })"},
    {"no-driver", kCam + R"(physical_cameras { peripheral_id: "cam" })",
     kCam + R"(physical_cameras { peripheral_id: "cam" camx {} })"},
    {"template-reference",
     kCam + R"(physical_cameras { peripheral_id: "cam" template_id: "base" cadmor {} })",
     kCam + R"(physical_cameras { peripheral_id: "base" is_template: true }
        physical_cameras { peripheral_id: "cam" template_id: "base" cadmor {} })"},
    {"index-range", kCam + R"(peripherals { id: "log" type: PERIPHERAL_TYPE_LOGICAL_CAMERA }
                       physical_cameras { peripheral_id: "cam" camx {} }
                       logical_cameras { peripheral_id: "log" camera_peripheral_ids: "cam" camx { primary_camera_index: 1 } })",
     kCam + R"(peripherals { id: "log" type: PERIPHERAL_TYPE_LOGICAL_CAMERA }
        physical_cameras { peripheral_id: "cam" camx {} }
        logical_cameras { peripheral_id: "log" camera_peripheral_ids: "cam" camx { primary_camera_index: 0 } })"},
    {"bad-hex",
     kCam +
         R"(physical_cameras { peripheral_id: "cam" cadmor { i2c { sequences { registers { address_hex: "0x" } } } } })",
     kCam +
         R"(physical_cameras { peripheral_id: "cam" cadmor { i2c { sequences { registers { address_hex: "0X30aF" } } } } })"},
    {"undeclared-enum", R"(peripherals { id: "imu" type: 57 })", R"(peripherals { id: "imu" type: 200 })"},
    {"unused-suppression", R"(# pcfg: ignore duplicate-id -- left from an older revision
                              peripherals { id: "imu" type: PERIPHERAL_TYPE_IMU })",
     R"(peripherals { id: "imu" type: PERIPHERAL_TYPE_IMU })"},
    // The edges of rules, each again a failing case and its passing twin.
    {"undeclared-enum", R"(peripherals { id: "imu" type: -5 })", R"(peripherals { id: "imu" type: 0 })"},
    {"missing-options",
     R"(peripherals { id: "imu" type: PERIPHERAL_TYPE_IMU system_type: PERIPHERAL_SYSTEM_TYPE_CADMOR })",
     R"(peripherals { id: "gen" type: PERIPHERAL_TYPE_GENERIC system_type: PERIPHERAL_SYSTEM_TYPE_GENERIC })"},
    {"membership-mismatch", kCam + R"(peripherals { id: "set" type: PERIPHERAL_TYPE_CAMERASET }
                               physical_cameras { peripheral_id: "cam" cadmor {} cameraset_peripheral_ids: "set" cadmor_camera_set_id: 3 }
                               camera_sets { peripheral_id: "set" camera_peripheral_ids: "cam" cadmor { camera_set_id: 2 } })",
     // A set without a cadmor part has no number for the camera's to disagree with.
     kCam + R"(peripherals { id: "set" type: PERIPHERAL_TYPE_CAMERASET }
        physical_cameras { peripheral_id: "cam" cadmor {} cameraset_peripheral_ids: "set" cadmor_camera_set_id: 3 }
        camera_sets { peripheral_id: "set" camera_peripheral_ids: "cam" })"},
    {"duplicate-sequence",
     kCam +
         R"(physical_cameras { peripheral_id: "cam" cadmor { i2c { sequences { id: CAMERA_COMMAND_INIT } sequences { id: CAMERA_COMMAND_INIT } } } })",
     kCam +
         R"(physical_cameras { peripheral_id: "cam" cadmor { i2c { sequences { id: CAMERA_COMMAND_INIT } } } })"},
    {"duplicate-pipeline",
     R"(general_configs { hal_stream_configs { pipeline_configs { pipeline_type: 1 } pipeline_configs { pipeline_type: 1 } } })",
     R"(general_configs { hal_stream_configs { pipeline_configs { pipeline_type: 1 } pipeline_configs { pipeline_type: 2 } } })"},
};

TEST(Rules, EachRuleFiresOnItsFixtureAndNotOnItsTwin) {
  for (const RuleCase& c : kRuleCases) {
    SCOPED_TRACE(c.rule);
    ASSERT_NE(pcfg::FindRule(c.rule), nullptr);
    EXPECT_EQ(RulesFired(Check(c.failing)), std::set<std::string>{c.rule});
    EXPECT_EQ(Check(c.passing).size(), 0u) << pcfg::FormatDiagnostic(Check(c.passing)[0]);
  }
}

TEST(Rules, TableIsCompleteAndSeveritiesAreTheInterface) {
  std::set<std::string> covered;
  for (const RuleCase& c : kRuleCases) covered.insert(c.rule);
  // These read binary input: covered below and by the decode tests.
  covered.insert({"unknown-field", "device-wire"});
  std::set<std::string> listed;
  for (const pcfg::Rule& rule : pcfg::Rules()) {
    listed.insert(rule.id);
    for (const char* prerequisite : rule.prerequisites)
      EXPECT_LT(pcfg::FindRule(prerequisite), &rule) << rule.id << " must run after " << prerequisite;
  }
  EXPECT_EQ(covered, listed);
  EXPECT_EQ(pcfg::FindRule("dependency-cycle")->severity, pcfg::Severity::kError);
  EXPECT_EQ(pcfg::FindRule("membership-mismatch")->severity, pcfg::Severity::kWarning);
  EXPECT_EQ(pcfg::FindRule("no-such-rule"), nullptr);
}

TEST(Rules, RulesThatNeedResolvedReferencesSaySoWhenSkipped) {
  // cam names a set that is not registered: the membership and kind rules cannot judge it.
  const auto diagnostics = Check(R"(
    peripherals { id: "cam" type: PERIPHERAL_TYPE_CAMERA }
    physical_cameras { peripheral_id: "cam" cadmor {} cameraset_peripheral_ids: "ghost" })");
  EXPECT_EQ(RulesFired(diagnostics), std::set<std::string>{"dangling-reference"});
  std::set<std::string> skipped;
  for (const Diagnostic& d : Notes(diagnostics)) {
    EXPECT_NE(d.message.find("skipped"), std::string::npos) << d.message;
    EXPECT_NE(d.message.find("dangling-reference"), std::string::npos) << d.message;
    skipped.insert(d.rule);
  }
  EXPECT_EQ(skipped, (std::set<std::string>{"reference-kind", "membership-mismatch"}));
  // With the prerequisite switched off, they run.
  pcfg::CheckOptions without;
  without.disabled = {"dangling-reference"};
  EXPECT_TRUE(Notes(Check(R"(peripherals { id: "cam" type: PERIPHERAL_TYPE_CAMERA }
    physical_cameras { peripheral_id: "cam" cadmor {} cameraset_peripheral_ids: "ghost" })",
                          without))
                  .empty());
}

TEST(Rules, CyclesAreReportedOncePerGroupOfMutualDependencies) {
  struct Row {
    const char* what;
    std::string registry;
    std::vector<std::string> paths;
    const char* fragment;
  };
  auto ring = [](int count) {
    std::string text;
    for (int i = 0; i < count; ++i)
      text += "peripherals { id: \"r" + std::to_string(i) + "\" dependencies { peripheral_id: \"r" +
              std::to_string((i + 1) % count) + "\" } }\n";
    return text;
  };
  const Row rows[] = {
      {"three in a ring, and one hanging off it",
       R"(peripherals { id: "a" dependencies { peripheral_id: "b" } }
          peripherals { id: "b" dependencies { peripheral_id: "c" } }
          peripherals { id: "c" dependencies { peripheral_id: "a" } }
          peripherals { id: "d" dependencies { peripheral_id: "a" } })",
       {"peripherals[2].dependencies[0].peripheral_id"},
       "dependency cycle: a -> b -> c -> a"},
      {"self-dependency",
       R"(peripherals { id: "solo" dependencies { peripheral_id: "solo" } })",
       {"peripherals[0].dependencies[0].peripheral_id"},
       "solo -> solo"},
      {"two separate groups",
       ring(2) + R"(peripherals { id: "x" dependencies { peripheral_id: "x" } })",
       {"peripherals[1].dependencies[0].peripheral_id", "peripherals[2].dependencies[0].peripheral_id"},
       "r0 -> r1 -> r0"},
      {"10,000 in a chain back to the first: one finding, the shortest cycle",
       pcfg_test::ChainBackToFirst(10000),
       {"peripherals[1].dependencies[1].peripheral_id"},
       "p0 -> p1 -> p0 (one cycle among 10000 peripherals"},
      {"a long ring is named by its ends",
       ring(500),
       {"peripherals[499].dependencies[0].peripheral_id"},
       "r0 -> r1 -> r2 -> r3 -> r4 -> r5 -> r6 -> r7 -> ... (489 more) -> r497 -> r498 -> r499 -> r0"},
  };
  pcfg::CheckOptions cycles_only;
  cycles_only.only = {"dependency-cycle"};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const auto diagnostics = Check(row.registry, cycles_only);
    std::vector<std::string> paths;
    for (const Diagnostic& d : diagnostics) paths.push_back(d.path);
    EXPECT_EQ(paths, row.paths);
    ASSERT_FALSE(diagnostics.empty());
    EXPECT_NE(diagnostics[0].message.find(row.fragment), std::string::npos) << diagnostics[0].message;
  }
}

TEST(Rules, MembershipMismatchFromBothSidesAndByCadmorNumber) {
  const auto diagnostics = Check(R"(
    peripherals { id: "cam" type: PERIPHERAL_TYPE_CAMERA }
    peripherals { id: "s1" type: PERIPHERAL_TYPE_CAMERASET }
    peripherals { id: "s2" type: PERIPHERAL_TYPE_CAMERASET }
    physical_cameras { peripheral_id: "cam" cadmor {} cameraset_peripheral_ids: "s2" cadmor_camera_set_id: 7 }
    camera_sets { peripheral_id: "s1" camera_peripheral_ids: "cam" cadmor { camera_set_id: 3 } }
    camera_sets { peripheral_id: "s2" })");
  std::set<std::string> paths;
  for (const Diagnostic& d : diagnostics) {
    EXPECT_EQ(d.rule, "membership-mismatch");
    paths.insert(d.path);
  }
  EXPECT_EQ(paths, (std::set<std::string>{"camera_sets[0].camera_peripheral_ids[0]",
                                          "physical_cameras[0].cadmor_camera_set_id",
                                          "physical_cameras[0].cameraset_peripheral_ids[0]"}));
}

TEST(Rules, FindingsAreCappedPerRuleWithACount) {
  std::string registry;
  for (int i = 0; i < 150; ++i) registry += "peripherals { id: \"same\" type: PERIPHERAL_TYPE_IMU }\n";
  pcfg::CheckOptions options;
  options.only = {"duplicate-id"};
  const auto capped = Check(registry, options);
  ASSERT_EQ(capped.size(), 101u);
  EXPECT_EQ(capped.back().severity, pcfg::Severity::kNote);
  EXPECT_NE(capped.back().message.find("49 more finding(s)"), std::string::npos) << capped.back().message;
  options.max_per_rule = 0;
  EXPECT_EQ(Check(registry, options).size(), 149u);
}

TEST(Diagnostics, InLineOrderUpToALimitThenAsTheyCome) {
  // dangling-reference on line 1 runs after duplicate-id on lines 2 and 3.
  const char* text =
      "peripherals { id: \"a\" type: PERIPHERAL_TYPE_IMU dependencies { peripheral_id: \"x\" } }\n"
      "peripherals { id: \"a\" type: PERIPHERAL_TYPE_IMU }\n"
      "peripherals { id: \"a\" type: PERIPHERAL_TYPE_IMU }\n";
  pcfg::CheckOptions options;
  options.only = {"duplicate-id", "dangling-reference"};
  const auto lines = [&](size_t limit) {
    options.max_put_in_line_order = limit;
    std::vector<int> found;
    for (const Diagnostic& d : Check(text, options))
      found.push_back(d.severity == pcfg::Severity::kNote ? 0 : d.line);
    return found;
  };
  EXPECT_EQ(lines(4), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(lines(3), (std::vector<int>{1, 2, 3})) << "exactly at the limit, all in order";
  EXPECT_EQ(lines(2), (std::vector<int>{2, 3, 1, 0}))
      << "one past: the held two in order, the rest as found, a note";
}

TEST(Rules, OptionsPairingSurvivesTypesAtTheEndOfTheRange) {
  for (const char* type : {"2147483647", "2147483638", "-2147483648", "-9"}) {
    const auto diagnostics = Check(std::string("system_options { type: ") + type + " options_qc_camx {} }");
    EXPECT_EQ(RulesFired(diagnostics), (std::set<std::string>{"options-pairing", "undeclared-enum"})) << type;
  }
}

// Length-delimited FIELD holding BODY.
std::string Wrap(int field, const std::string& body) {
  std::string out;
  for (uint32_t v = static_cast<uint32_t>(field) << 3 | 2;; v >>= 7) {
    if (v < 0x80) {
      out += static_cast<char>(v);
      break;
    }
    out += static_cast<char>((v & 0x7F) | 0x80);
  }
  out += static_cast<char>(body.size());  // bodies here stay below 128 bytes
  return out + body;
}

// A configuration whose one register setting holds REGISTER_DATA as raw wire bytes.
std::string WithRegisterData(const std::string& register_data) {
  // physical_cameras(20).camx(40).sensor_driver_data(120).stream_on_settings(120).reg_settings(1)
  return Wrap(20, Wrap(40, Wrap(120, Wrap(120, Wrap(1, register_data)))));
}

TEST(Rules, DeviceWireFindsMixedFormsTheDeviceReadsOutOfStep) {
  struct Row {
    const char* what;
    std::string register_data;
    const char* path;  // empty: no finding
  };
  const Row rows[] = {
      {"unpacked element, then the packed tag", pctest::Bytes("18 01 1A 02 02 03 18 04"),
       "physical_cameras[0].camx.sensor_driver_data.stream_on_settings.reg_settings[0].register_data[0]"},
      {"packed only", pctest::Bytes("1A 04 01 02 03 04"), ""},
      {"unpacked only", pctest::Bytes("18 01 18 02 18 03"), ""},
      {"packed, then unpacked", pctest::Bytes("1A 02 01 02 18 03"), ""},
      // After four elements the device's list is full, so it reads the packed tag as a tag.
      {"the list full when the packed tag comes", pctest::Bytes("1A 03 01 02 03 18 04 1A 01 05"), ""},
      {"another field between", pctest::Bytes("18 01 08 01 1A 01 02"), ""},
  };
  pcfg::CheckOptions device_only;
  device_only.only = {"device-wire"};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    pcfg::LoadedConfig loaded;
    std::vector<Diagnostic> load;
    ASSERT_TRUE(pcfg::ParseConfig("mixed.binpb", pcfg::Format::kBinary, WithRegisterData(row.register_data),
                                  &loaded, &load));
    const auto diagnostics = pcfg::RunChecks(loaded, device_only);
    if (*row.path == 0) {
      EXPECT_TRUE(diagnostics.empty()) << pcfg::FormatDiagnostic(diagnostics[0]);
      continue;
    }
    ASSERT_EQ(diagnostics.size(), 1u);
    EXPECT_EQ(diagnostics[0].path, row.path);
    EXPECT_EQ(diagnostics[0].severity, pcfg::Severity::kError);
    EXPECT_NE(diagnostics[0].message.find("packed tag at byte 16"), std::string::npos)
        << diagnostics[0].message;
    EXPECT_NE(diagnostics[0].message.find("protobuf 3.9.1"), std::string::npos) << diagnostics[0].message;
    // What pcfg writes from it is packed, and reads the same everywhere.
    pcfg::LoadedConfig again;
    ASSERT_TRUE(pcfg::ParseConfig("again.binpb", pcfg::Format::kBinary,
                                  pcfg_test::Serialized(loaded.config, pcfg::Format::kBinary), &again,
                                  &load));
    EXPECT_TRUE(pcfg::RunChecks(again, device_only).empty());
  }
}

TEST(Rules, HexSyntax) {
  struct Row {
    const char* value;
    bool ok;
  };
  const Row rows[] = {{"0x1A", true}, {"0X1a", true}, {"1a", true},    {"0", true},   {"0x", false},
                      {"", false},    {"x1A", false}, {"0x1G", false}, {" 1", false}, {"-1", false}};
  for (const Row& row : rows) {
    const auto diagnostics = Check(
        std::string(R"(physical_cameras { is_template: true camx { port_mapping { lane_assign_hex: ")") +
        row.value + "\" } } }");
    EXPECT_EQ(diagnostics.empty(), row.ok) << row.value;
  }
}

TEST(Diagnostics, RangesCoverTheFieldOrEntryTheyAreAbout) {
  struct Row {
    const char* text;
    const char* rule;
    int line, column, end_line, end_column;
  };
  const Row rows[] = {
      {"peripherals { id: \"a\" }\n\nperipherals {\n  id: \"a\"\n}\n", "duplicate-id", 4, 3, 4, 10},
      // A field from its name to its value, a tab counting to the next multiple of 8.
      {"peripherals { id: \"a\" dependencies {\n\tperipheral_id: \"gone\" } }", "dangling-reference", 2, 9, 2,
       30},
      // A whole entry, over several lines.
      {"peripherals { id: \"c\" type: PERIPHERAL_TYPE_CAMERA }\nphysical_cameras {\n  peripheral_id: "
       "\"c\"\n}",
       "no-driver", 2, 1, 4, 2},
      // An element of a list of scalars.
      {"peripherals { id: \"s\" type: PERIPHERAL_TYPE_CAMERASET }\n"
       "camera_sets { peripheral_id: \"s\" camera_peripheral_ids: [\"x\", \"gone\"] }",
       "dangling-reference", 2, 63, 2, 69},
      // An element of a list written as one field per element.
      {"peripherals { id: \"s\" type: PERIPHERAL_TYPE_CAMERASET }\n"
       "camera_sets { peripheral_id: \"s\" camera_peripheral_ids: \"x\"\n  camera_peripheral_ids: \"gone\" }",
       "dangling-reference", 3, 3, 3, 32},
  };
  for (const Row& row : rows) {
    pcfg::CheckOptions only;
    only.only = {row.rule};
    const auto diagnostics = Check(row.text, only);
    ASSERT_FALSE(diagnostics.empty()) << row.text;
    const Diagnostic& d = diagnostics.back();
    EXPECT_EQ(std::vector<int>({d.line, d.column, d.end_line, d.end_column}),
              std::vector<int>({row.line, row.column, row.end_line, row.end_column}))
        << row.text;
  }
}

TEST(Suppressions, SilenceTheirLineOrTheEntryAfterThem) {
  const std::string registry = "peripherals { id: \"cam\" type: PERIPHERAL_TYPE_CAMERA }\n";
  struct Row {
    const char* what;
    std::string text;
    const char* shown;  // unsuppressed findings and warnings, by rule
    int suppressed;
    const char* justification;
  };
  const Row rows[] = {
      {"at the end of the line of the finding",
       registry +
           "physical_cameras { peripheral_id: \"cam\" }  # pcfg: ignore no-driver -- from the template\n",
       "", 1, "from the template"},
      {"on the line before a multi-line entry, with an em dash",
       registry + "# pcfg: ignore no-driver \xe2\x80\x94 from the template\nphysical_cameras {\n  "
                  "peripheral_id: \"cam\"\n}\n",
       "", 1, "from the template"},
      {"another rule's finding stays",
       registry + "physical_cameras { peripheral_id: \"cam\" }  # pcfg: ignore duplicate-id, no-driver\n"
                  "physical_cameras { peripheral_id: \"cam\" }\n",
       "no-driver duplicate-id", 1, ""},
      {"one that silences nothing is a warning",
       registry +
           "# pcfg: ignore duplicate-id -- stale\nphysical_cameras { peripheral_id: \"cam\" camx {} }\n",
       "unused-suppression", 0, ""},
      {"one that names no rule is a warning",
       registry + "physical_cameras { peripheral_id: \"cam\" camx {} }  # pcfg: ignore no-drivr\n",
       "unused-suppression", 0, ""},
      {"one before no entry is a warning",
       registry + "physical_cameras { peripheral_id: \"cam\" camx {}\n  # pcfg: ignore no-driver\n}\n",
       "unused-suppression", 0, ""},
      {"written tight, with ':' before the reason",
       registry + "physical_cameras { peripheral_id: \"cam\" }  #pcfg:ignore no-driver: from the template\n",
       "", 1, "from the template"},
      {"one that names no rule is no suppression",
       registry + "physical_cameras { peripheral_id: \"cam\" }  # pcfg: ignore\n", "no-driver", 0, ""},
      {"a comment that is no suppression",
       registry + "physical_cameras { peripheral_id: \"cam\" }  # pcfg ignores\n", "no-driver", 0, ""},
  };
  for (const Row& row : rows) {
    std::string shown;
    int suppressed = 0;
    std::string justification;
    for (const Diagnostic& d : Check(row.text)) {
      if (d.severity == pcfg::Severity::kNote) continue;
      if (d.suppressed) {
        ++suppressed;
        justification = d.justification;
      } else {
        shown += (shown.empty() ? "" : " ") + d.rule;
      }
    }
    EXPECT_EQ(shown, row.shown) << row.what;
    EXPECT_EQ(suppressed, row.suppressed) << row.what;
    EXPECT_EQ(justification, row.justification) << row.what;
  }
  // A suppression of a rule that did not run says nothing: the rule might have found something.
  pcfg::CheckOptions without;
  without.disabled = {"duplicate-id"};
  EXPECT_TRUE(RulesFired(Check(rows[3].text, without)).empty());
}

}  // namespace
