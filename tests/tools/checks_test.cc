// Each rule with a small failing configuration and its passing twin, plus the rule table,
// severities, locations and options.
#include "checks.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "pcfg_test_support.h"

namespace {

using pcfg::Diagnostic;

std::vector<Diagnostic> Check(const std::string& text, const pcfg::CheckOptions& options = {}) {
  return pcfg::RunChecks(pcfg_test::ParseText(text), options);
}

std::set<std::string> RulesFired(const std::vector<Diagnostic>& diagnostics) {
  std::set<std::string> rules;
  for (const Diagnostic& d : diagnostics) rules.insert(d.rule);
  return rules;
}

struct RuleCase {
  const char* rule;
  const char* failing;
  const char* passing;
};

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
     R"(peripherals { id: "cam" type: PERIPHERAL_TYPE_CAMERA }
        physical_cameras { peripheral_id: "cam" cadmor {} })"},
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
     R"(peripherals { id: "cam" type: PERIPHERAL_TYPE_CAMERA }
        physical_cameras { peripheral_id: "cam" camx {} })"},
    {"membership-mismatch", R"(peripherals { id: "cam" type: PERIPHERAL_TYPE_CAMERA }
                               peripherals { id: "set" type: PERIPHERAL_TYPE_CAMERASET }
                               physical_cameras { peripheral_id: "cam" cadmor {} }
                               camera_sets { peripheral_id: "set" camera_peripheral_ids: "cam" })",
     R"(peripherals { id: "cam" type: PERIPHERAL_TYPE_CAMERA }
        peripherals { id: "set" type: PERIPHERAL_TYPE_CAMERASET }
        physical_cameras { peripheral_id: "cam" cadmor {} cameraset_peripheral_ids: "set" cadmor_camera_set_id: 2 }
        camera_sets { peripheral_id: "set" camera_peripheral_ids: "cam" cadmor { camera_set_id: 2 } })"},
    {"no-driver", R"(peripherals { id: "cam" type: PERIPHERAL_TYPE_CAMERA }
                     physical_cameras { peripheral_id: "cam" })",
     R"(peripherals { id: "cam" type: PERIPHERAL_TYPE_CAMERA }
        physical_cameras { peripheral_id: "cam" camx {} })"},
    {"template-reference", R"(peripherals { id: "cam" type: PERIPHERAL_TYPE_CAMERA }
                              physical_cameras { peripheral_id: "cam" template_id: "base" cadmor {} })",
     R"(peripherals { id: "cam" type: PERIPHERAL_TYPE_CAMERA }
        physical_cameras { peripheral_id: "base" is_template: true }
        physical_cameras { peripheral_id: "cam" template_id: "base" cadmor {} })"},
    {"index-range", R"(peripherals { id: "cam" type: PERIPHERAL_TYPE_CAMERA }
                       peripherals { id: "log" type: PERIPHERAL_TYPE_LOGICAL_CAMERA }
                       physical_cameras { peripheral_id: "cam" camx {} }
                       logical_cameras { peripheral_id: "log" camera_peripheral_ids: "cam" camx { primary_camera_index: 1 } })",
     R"(peripherals { id: "cam" type: PERIPHERAL_TYPE_CAMERA }
        peripherals { id: "log" type: PERIPHERAL_TYPE_LOGICAL_CAMERA }
        physical_cameras { peripheral_id: "cam" camx {} }
        logical_cameras { peripheral_id: "log" camera_peripheral_ids: "cam" camx { primary_camera_index: 0 } })"},
    {"bad-hex", R"(peripherals { id: "cam" type: PERIPHERAL_TYPE_CAMERA }
                   physical_cameras { peripheral_id: "cam" cadmor { i2c { sequences { registers { address_hex: "0x" } } } } })",
     R"(peripherals { id: "cam" type: PERIPHERAL_TYPE_CAMERA }
        physical_cameras { peripheral_id: "cam" cadmor { i2c { sequences { registers { address_hex: "0X30aF" } } } } })"},
    {"undeclared-enum", R"(peripherals { id: "imu" type: 57 })", R"(peripherals { id: "imu" type: 200 })"},
    {"duplicate-sequence", R"(peripherals { id: "cam" type: PERIPHERAL_TYPE_CAMERA }
                              physical_cameras { peripheral_id: "cam" cadmor { i2c { sequences { id: CAMERA_COMMAND_INIT } sequences { id: CAMERA_COMMAND_INIT } } } })",
     R"(peripherals { id: "cam" type: PERIPHERAL_TYPE_CAMERA }
        physical_cameras { peripheral_id: "cam" cadmor { i2c { sequences { id: CAMERA_COMMAND_INIT } } } })"},
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
  covered.insert("unknown-field");  // needs binary input: covered by the decode tests
  std::set<std::string> listed;
  for (const pcfg::Rule& rule : pcfg::Rules()) listed.insert(rule.id);
  EXPECT_EQ(covered, listed);
  EXPECT_EQ(pcfg::FindRule("dependency-cycle")->severity, pcfg::Severity::kError);
  EXPECT_EQ(pcfg::FindRule("membership-mismatch")->severity, pcfg::Severity::kWarning);
  EXPECT_EQ(pcfg::FindRule("no-such-rule"), nullptr);
}

TEST(Rules, CycleListsItsIdsInOrder) {
  const auto diagnostics = Check(R"(
    peripherals { id: "a" dependencies { peripheral_id: "b" } }
    peripherals { id: "b" dependencies { peripheral_id: "c" } }
    peripherals { id: "c" dependencies { peripheral_id: "a" } }
    peripherals { id: "d" dependencies { peripheral_id: "a" } })");
  ASSERT_EQ(diagnostics.size(), 1u);
  EXPECT_NE(diagnostics[0].message.find("a -> b -> c -> a"), std::string::npos) << diagnostics[0].message;
  EXPECT_EQ(diagnostics[0].path, "peripherals[2].dependencies[0].peripheral_id");
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

TEST(Diagnostics, PointAtLineAndColumnOfTextInput) {
  const auto diagnostics = Check("peripherals { id: \"a\" }\n\nperipherals {\n  id: \"a\"\n}\n");
  ASSERT_EQ(diagnostics.size(), 1u);
  EXPECT_EQ(diagnostics[0].line, 4);
  EXPECT_EQ(diagnostics[0].column, 3);
  EXPECT_EQ(
      pcfg::FormatDiagnostic(diagnostics[0]),
      "test.txtpb:4:3: error: peripherals[1].id: peripheral id \"a\" repeats peripherals[0] [duplicate-id]");
}

TEST(Diagnostics, WerrorDisableAndOnly) {
  const char* text = R"(peripherals { id: "cam" type: PERIPHERAL_TYPE_CAMERA })";
  pcfg::CheckOptions werror;
  werror.werror = true;
  ASSERT_EQ(Check(text, werror).size(), 1u);
  EXPECT_EQ(Check(text, werror)[0].severity, pcfg::Severity::kError);
  pcfg::CheckOptions disabled;
  disabled.disabled = {"missing-entry"};
  EXPECT_TRUE(Check(text, disabled).empty());
}

}  // namespace
