// pcfg check --format sarif: what code-review systems read, checked by the official validator.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "checks.h"
#include "pcfg_test_support.h"

namespace {

using nlohmann::json;
using pcfg_test::Pcfg;
using pcfg_test::Scratch;
using pcfg_test::Written;

// cam depends on a peripheral nobody registers (an error), which also makes two rules skip (notes),
// and its registry entry lacks a physical camera (a warning); its id repeats (an error).
const char kFindings[] = R"(peripherals {
  id: "cam"
  type: PERIPHERAL_TYPE_CAMERA
  dependencies { peripheral_id: "ghost" }
}
peripherals { id: "cam" type: PERIPHERAL_TYPE_IMU }
)";

// A SARIF log of pcfg check over a text file with findings, a binary file with one, a file that
// does not parse, findings silenced with and without a reason (the second in a file whose name
// needs escaping) and a file outside the working folder, the folder "sarif" in the scratch folder:
// URIs are relative to it, or absolute for what lies outside.
json SarifOfEveryKindOfInput() {
  ::mkdir(Scratch("sarif").c_str(), 0755);
  Written("sarif/findings.txtpb", kFindings);
  // A binary configuration whose only finding is a repeated id: the second peripheral's id
  // record starts at byte 11 (the first peripheral takes 9 bytes, its own record header 2).
  const char kDuplicate[] = "peripherals { id: \"d\" }\nperipherals { id: \"d\" }";
  Written("dup.txtpb",
          "peripherals { id: \"imu\" type: PERIPHERAL_TYPE_IMU }\n"
          "peripherals { id: \"imu\" type: PERIPHERAL_TYPE_IMU }\n");
  EXPECT_EQ(Pcfg({"compile", "--no-check", Scratch("dup.txtpb"), "-o", Scratch("sarif/dup.binpb")}).status,
            0);
  Written("sarif/broken.txtpb", "peripherals {\n  id: 3\n");
  Written("sarif/suppressed.txtpb",
          std::string(kDuplicate) + "  # pcfg: ignore duplicate-id -- kept on purpose\n");
  Written("sarif/odd name.txtpb", std::string(kDuplicate) + "  # pcfg: ignore duplicate-id\n");
  Written("outside.txtpb", kDuplicate);
  const auto run = pcfg_test::Shell(
      "cd " + pcfg_test::Quote(Scratch("sarif")) + " && " +
      pcfg_test::PcfgCommandLine({"check", "--format", "sarif", "findings.txtpb", "dup.binpb", "broken.txtpb",
                                  "suppressed.txtpb", "odd name.txtpb", "../outside.txtpb"}));
  EXPECT_EQ(run.status, 2) << run.err;
  std::ofstream(Scratch("log.sarif")) << run.out;
  return json::parse(run.out);
}

TEST(Sarif, DriverListsEveryRuleAndResultsPointAtTheirLines) {
  const json log = SarifOfEveryKindOfInput();
  EXPECT_EQ(log["version"], "2.1.0");
  const json& run = log["runs"][0];
  const json& driver = run["tool"]["driver"];
  EXPECT_EQ(driver["name"], "pcfg");
  EXPECT_EQ(driver["version"], PCFG_VERSION);
  std::set<std::string> listed;
  for (const json& rule : driver["rules"]) {
    listed.insert(rule["id"].get<std::string>());
    EXPECT_FALSE(rule["shortDescription"]["text"].get<std::string>().empty());
    EXPECT_TRUE(rule["defaultConfiguration"]["level"] == "error" ||
                rule["defaultConfiguration"]["level"] == "warning");
  }
  for (const pcfg::Rule& rule : pcfg::Rules()) EXPECT_TRUE(listed.count(rule.id)) << rule.id;

  std::set<std::string> seen;
  for (const json& result : run["results"]) {
    const std::string rule = result["ruleId"];
    const json& physical = result["locations"][0]["physicalLocation"];
    const std::string uri = physical["artifactLocation"]["uri"];
    EXPECT_EQ(driver["rules"][result["ruleIndex"].get<int>()]["id"], rule);
    seen.insert(rule + " " + uri + " " + physical["region"].dump());
    // A finding silenced in the source is reported with its suppression, not dropped.
    EXPECT_EQ(result.contains("suppressions"), uri == "suppressed.txtpb" || uri == "odd%20name.txtpb")
        << result.dump();
    if (uri == "suppressed.txtpb") {
      EXPECT_EQ(result["suppressions"],
                json::parse(R"([{"kind": "inSource", "justification": "kept on purpose"}])"));
    }
    if (uri == "odd%20name.txtpb") {
      EXPECT_EQ(result["suppressions"], json::parse(R"([{"kind": "inSource"}])"));
    }
    if (uri == "dup.binpb") {
      EXPECT_EQ(result["locations"][0]["logicalLocations"][0]["fullyQualifiedName"], "peripherals[1].id");
    }
  }
  EXPECT_EQ(
      seen,
      (std::set<std::string>{
          R"(dangling-reference findings.txtpb {"endColumn":40,"endLine":4,"startColumn":18,"startLine":4})",
          R"(duplicate-id findings.txtpb {"endColumn":24,"endLine":6,"startColumn":15,"startLine":6})",
          R"(missing-entry findings.txtpb {"endColumn":12,"endLine":2,"startColumn":3,"startLine":2})",
          R"(duplicate-id dup.binpb {"byteLength":5,"byteOffset":11})",
          R"(load-error broken.txtpb {"startColumn":7,"startLine":2})",
          R"(duplicate-id suppressed.txtpb {"endColumn":22,"endLine":2,"startColumn":15,"startLine":2})",
          R"(duplicate-id odd%20name.txtpb {"endColumn":22,"endLine":2,"startColumn":15,"startLine":2})",
          "duplicate-id file://" + pcfg_test::ScratchDir() +
              R"(/outside.txtpb {"endColumn":22,"endLine":2,"startColumn":15,"startLine":2})",
      }));
  // The skipped rules are told about, as notifications of the run.
  EXPECT_EQ(run["invocations"][0]["toolExecutionNotifications"].size(), 2u);
  EXPECT_FALSE(run["invocations"][0]["executionSuccessful"]);
}

TEST(Sarif, TheValidatorFindsNothingWrong) {
  const std::string validator =
      std::string(PCFG_SOURCE_DIR) + "/node_modules/@microsoft/sarif-multitool-linux/Sarif.Multitool";
  if (std::system((pcfg_test::Quote(validator) + " --version >/dev/null 2>&1").c_str()) != 0) {
    if (const char* ci = std::getenv("CI"); ci != nullptr && std::string(ci) == "true")
      FAIL() << "the SARIF validator is not installed (scripts/setup.sh installs it)";
    GTEST_SKIP() << "the SARIF validator is not installed (scripts/setup.sh installs it with npm)";
  }
  SarifOfEveryKindOfInput();
  const auto run = pcfg_test::Shell(pcfg_test::Quote(validator) + " validate " +
                                    pcfg_test::Quote(Scratch("log.sarif")) + " --output " +
                                    pcfg_test::Quote(Scratch("validation.sarif")) + " --log ForceOverwrite");
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  // The validator reports through a SARIF log of its own; a result without a level is a warning.
  // Allowed, with the reason: SARIF2005 asks for the tool's web page, and pcfg has none to give.
  const std::set<std::string> allowed = {"SARIF2005"};
  const json report = json::parse(pcfg_test::ReadFile(Scratch("validation.sarif")));
  for (const json& result : report["runs"][0]["results"]) {
    const std::string level = result.value("level", "warning");
    if (level == "error" || level == "warning") {
      EXPECT_TRUE(allowed.count(result["ruleId"].get<std::string>())) << result.dump();
    }
  }
}

}  // namespace
