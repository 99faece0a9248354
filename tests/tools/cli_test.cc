// pcfg as a user runs it: help, exit statuses, diagnostics, forms and their names, round trips
// and the outputs a run writes or leaves alone.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <string>

#include "pcfg_test_support.h"

namespace {

using pcfg_test::Pcfg;
using pcfg_test::ReadFile;
using pcfg_test::Scratch;
using pcfg_test::WriteFile;
using pcfg_test::Written;

const char kSmall[] = R"(# proto-file: peripheralconfig/proto/peripheral.config.proto
# proto-message: Talvo.Peripherals.Config.Models.PeripheralConfig
device_info { device_name: HARDWARE_TREVIL3 soc_name: "sm8550" }
peripherals { id: "fpga" type: PERIPHERAL_TYPE_FPGA }
peripherals {
  id: "cam_left"
  type: PERIPHERAL_TYPE_CAMERA
  system_type: PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX
  dependencies { peripheral_id: "fpga" }
}
physical_cameras {
  peripheral_id: "cam_left"
  model: CAMERA_MODEL_OG0VA1B
  camx { sensor_name: "og0va1b" port_mapping { lane_assign_hex: "0x3210" } }
}
system_options { type: PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX options_qc_camx {} }
)";

TEST(Cli, HelpAndVersionOnEveryCommand) {
  for (const char* command : {"compile", "decode", "check", "diff", "fmt", "show", "graph"}) {
    const auto run = Pcfg({command, "--help"});
    EXPECT_EQ(run.status, 0) << command;
    EXPECT_NE(run.out.find("Usage"), std::string::npos) << command;
    EXPECT_NE(run.out.find("Exit status"), std::string::npos) << command;
    EXPECT_NE(run.out.find("Example: pcfg " + std::string(command)), std::string::npos) << command;
    EXPECT_EQ(Pcfg({"help", command}).out, run.out) << command;
  }
  EXPECT_EQ(Pcfg({"--help"}).status, 0);
  EXPECT_NE(Pcfg({"--version"}).out.find("pcfg "), std::string::npos);
  EXPECT_EQ(Pcfg({"help"}).out.find("Usage: pcfg help"), std::string::npos)
      << "help explains pcfg, not itself";
}

// Each row: a command line, its exit status and a fragment of what it prints (stdout or stderr).
// What a newcomer types wrong is answered in their words, naming the valid choices.
TEST(Cli, StatusAndWhatARunSays) {
  const std::string clean = Written("clean.txtpb", kSmall);
  const std::string warning =
      Written("warning.txtpb",
              std::string(kSmall) + "peripherals { id: \"cam_right\" type: PERIPHERAL_TYPE_CAMERA }\n");
  const std::string error = Written("error.txtpb", std::string(kSmall) + "peripherals { id: \"fpga\" }\n");
  const std::string broken = Written("broken.txtpb", "peripherals { id: }\n");
  const std::string suppressed =
      Written("suppressed.txtpb",
              std::string(kSmall) + "peripherals { id: \"fpga\" }  # pcfg: ignore duplicate-id -- kept\n");
  std::string same;
  for (int i = 0; i < 1000; ++i) same += "peripherals { id: \"same\" }\n";
  const std::string repeated = Written("same.txtpb", same);
  const std::string unknown_extension = Written("newcomer.txt", kSmall);
  ASSERT_EQ(Pcfg({"compile", clean, "-o", Scratch("forms.binpb")}).status, 0);
  ASSERT_EQ(Pcfg({"decode", Scratch("forms.binpb"), "-o", Scratch("forms.JSON")}).status, 0);
  EXPECT_EQ(ReadFile(Scratch("forms.JSON")).front(), '{') << "an upper-case extension still means JSON";
  struct Row {
    std::vector<std::string> args;
    int status;
    std::string says;
  };
  const Row rows[] = {
      // check: findings, --werror, --disable and --only; the worst file decides
      {{"check", clean}, 0, "clean.txtpb: 0 error(s), 0 warning(s)"},
      {{"check", warning}, 0, "warning.txtpb:17:15: warning: peripherals[2].id"},
      {{"check", "--werror", warning}, 1, "warning.txtpb:17:15: error: peripherals[2].id"},
      {{"check", "--werror", "--disable", "missing-entry", warning}, 0, ""},
      {{"check", "--werror", "--only", "duplicate-id,bad-hex", warning}, 0, ""},
      {{"check", "--werror", "--only", "missing-entry", warning}, 1, ""},
      {{"check", "--werror", "--only", "missing-entry", "--disable", "missing-entry", warning}, 0, ""},
      {{"check", error},
       1,
       error +
           ":17:15: error: peripherals[2].id: peripheral id \"fpga\" repeats peripherals[0] [duplicate-id]"},
      {{"check", clean, error}, 1, ""},
      // a finding silenced in the source is counted apart, and holds nothing back
      {{"check", suppressed}, 0, "suppressed.txtpb: 0 error(s), 0 warning(s), 1 suppressed"},
      {{"check", "--format", "json", suppressed}, 0, "\"justification\": \"kept\""},
      {{"compile", suppressed, "-o", Scratch("suppressed.binpb")}, 0, "wrote"},
      {{"check", "--werror",
        Written("stale.txtpb", "# pcfg: ignore no-driver\nperipherals { id: \"imu\" }\n")},
       1,
       "stale.txtpb:1:1: error: the suppression silences nothing: no finding of its rules on lines 2 to 2"},
      {{"check", broken}, 2, "broken.txtpb:1:"},
      {{"check", Written("syntax.txtpb", "peripherals {\n  id: 3 3\n}\n")}, 2, "syntax.txtpb:2:"},
      {{"check", Written("bad.json", "{\n  \"peripherals\": [\n    {\"id\": }\n  ]\n}\n")}, 2, "bad.json:3:"},
      // the summary names the file even when it cannot be read
      {{"check", Scratch("nope.txtpb")}, 2, Scratch("nope.txtpb") + ": 1 error(s), 0 warning(s)"},
      {{"check", "--disable", "no-such-rule", clean}, 2, "unknown rule 'no-such-rule'"},
      {{"check", "--only", "no-such-rule", clean}, 2, "unknown rule 'no-such-rule'"},
      {{"check", "--list"}, 0, "duplicate-id"},
      {{"check"}, 2, "pcfg check: no input files"},
      {{"check", "--max-diagnostics=-1", clean}, 2, "expected a whole number from 0 (all) to 999999999"},
      {{"check", "--max-diagnostics=4294967296", clean}, 2, "expected a whole number"},
      {{"check", "--max-diagnostics=999999999", clean}, 0, "0 error(s)"},
      {{"check", "--max-diagnostics", "5", repeated},
       1,
       "note: 994 more finding(s) of this rule not shown (--max-diagnostics 5) [duplicate-id]"},
      // show and graph
      {{"show", broken}, 2, "broken.txtpb:1:"},
      {{"graph", broken}, 2, "broken.txtpb:1:"},
      {{"show", clean, "--format", "yaml"}, 2, ""},
      // commands and help
      {{}, 2, ""},
      {{"nope"}, 2, "no command 'nope'; the commands are compile, decode, check"},
      {{"help"}, 0, "compile"},
      {{"help", "frobnicate"}, 2, "no command 'frobnicate'"},
      // forms, named by extension or by name without case
      {{"check", Scratch("forms.JSON")}, 0, ""},
      {{"check", "--from", "WIRE", Scratch("forms.binpb")}, 0, ""},
      {{"check", "--from", "txtpb", clean}, 0, ""},
      {{"check", "--from", "json", clean}, 2, ""},
      {{"check", "--from", "xml", clean}, 2, "no form 'xml'; the forms are text, json and binary"},
      {{"decode", Scratch("forms.binpb"), "--to", "TextProto"}, 0, "peripherals {"},
      {{"decode", clean}, 0, "peripherals {"},  // decode reads its input by extension too
      {{"decode", unknown_extension},
       2,
       "read as binary because its extension names no form; choose with --from"},
      {{"decode", "--from", "text", unknown_extension}, 0, "peripherals {"},
      // binary input that does not parse says what was read
      {{"decode", Written("truncated.binpb", std::string("\x52\x05\x0a\x01", 4))}, 2, "4 bytes"},
      {{"decode", Written("utf8.binpb", std::string("\x52\x03\x0a\x01\xff", 5))},
       2,
       "Talvo.Peripherals.Config.Models.Peripheral.id"},
      // text and JSON parsers take invalid UTF-8; the device's binary parser would not
      {{"compile", Written("latin1.txtpb", "peripherals {\n  id: \"caf\xe9\"\n}\n"), "-o",
        Scratch("latin1.binpb")},
       2,
       "latin1.txtpb:2:3: error: peripherals[0].id: string field "
       "'Talvo.Peripherals.Config.Models.Peripheral.id' "
       "holds invalid UTF-8"},
      {{"check", Written("list.txtpb", "physical_cameras { cameraset_peripheral_ids: \"\xc0\xaf\" }\n")},
       2,
       "physical_cameras[0].cameraset_peripheral_ids[0]"},
  };
  for (const Row& row : rows) {
    const auto run = Pcfg(row.args);
    const std::string what = row.args.empty() ? "" : row.args[0] + " " + row.args.back();
    EXPECT_EQ(run.status, row.status) << what << "\n" << run.out << run.err;
    EXPECT_NE((run.out + run.err).find(row.says), std::string::npos) << what << "\n" << run.out << run.err;
  }

  const auto parsed = nlohmann::json::parse(Pcfg({"check", "--format", "json", error}).out);
  ASSERT_EQ(parsed.size(), 1u);
  EXPECT_EQ(parsed[0]["rule"], "duplicate-id");
  EXPECT_EQ(parsed[0]["line"], 17);
}

TEST(Cli, SizeLimitAdmitsAnInputOfExactlyItsSize) {
  std::string text = kSmall;
  text.resize(4096, ' ');  // a clean configuration of exactly 4 KiB
  const std::string file = Written("limit.txtpb", text);
  const std::pair<const char*, int> limits[] = {{"4097", 0}, {"4096B", 0}, {"4K", 0},
                                                {"4kib", 0}, {"4kB", 0},   {"4095", 2}};
  for (const auto& [limit, status] : limits) {
    const auto run = Pcfg({"check", "--max-input-size", limit, file});
    EXPECT_EQ(run.status, status) << limit << " on a file";
    if (status == 2) {
      EXPECT_NE(run.out.find("is 4096 bytes, over the input limit of 4095 bytes"), std::string::npos)
          << run.out;
    }
    // Through a pipe the size is not known beforehand: the reader counts.
    const auto piped = pcfg_test::Shell(
        "cat " + pcfg_test::Quote(file) + " | " +
        pcfg_test::PcfgCommandLine({"check", "--max-input-size", limit, "--from", "text", "-"}));
    EXPECT_EQ(piped.status, status) << limit << " through a pipe\n" << piped.err;
  }
  // The option's own range: below 2 GiB, which is all that one parse can hold; numbers past 64
  // bits, as digits or once shifted by their unit, are no sizes.
  for (const char* size : {"2047M", "1G", "1GiB"})
    EXPECT_EQ(Pcfg({"check", "--max-input-size", size, file}).status, 0) << size;
  for (const char* size :
       {"2G", "-1", "10X", "10XB", "10KiX", "1.5M", "", "99999999999999999999", "17179869184G"}) {
    const auto run = Pcfg({"check", "--max-input-size", size, file});
    EXPECT_EQ(run.status, 2) << "'" << size << "'\n" << run.err;
    EXPECT_NE(run.err.find("expected a size below 2G"), std::string::npos) << run.err;
  }
}

TEST(Cli, CompileWritesBesideItsInputByDefault) {
  const std::string dir = Scratch("default-output");
  ::mkdir(dir.c_str(), 0755);
  WriteFile(dir + "/rig.v2.txtpb", kSmall);
  const auto run = Pcfg({"compile", dir + "/rig.v2.txtpb"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.err.find("wrote " + dir + "/rig.v2.binpb"), std::string::npos) << run.err;
  EXPECT_FALSE(ReadFile(dir + "/rig.v2.binpb").empty());
  // A binary input would be its own default output: refused, not overwritten.
  EXPECT_EQ(Pcfg({"compile", dir + "/rig.v2.binpb"}).status, 2);
  EXPECT_FALSE(ReadFile(dir + "/rig.v2.binpb").empty());
}

TEST(Cli, FailedRunsLeaveOutputsAlone) {
  const std::string target = Scratch("keep.binpb");
  WriteFile(target, "precious");
  const std::string error = Written("refused.txtpb", std::string(kSmall) + "peripherals { id: \"fpga\" }\n");
  EXPECT_EQ(Pcfg({"compile", error, "-o", target}).status, 1);
  EXPECT_EQ(Pcfg({"compile", Written("unparsable.txtpb", "peripherals {"), "-o", target}).status, 2);
  EXPECT_EQ(ReadFile(target), "precious");
  EXPECT_EQ(pcfg_test::TemporaryFilesIn(pcfg_test::ScratchDir()), 0) << "no temporary file is left behind";

  EXPECT_EQ(Pcfg({"compile", "--no-check", error, "-o", target}).status, 0);
  EXPECT_NE(ReadFile(target), "precious");

  const auto unwritable = Pcfg({"compile", Written("ok.txtpb", kSmall), "-o", "/nonexistent-dir/out.binpb"});
  EXPECT_EQ(unwritable.status, 2);
  EXPECT_NE(unwritable.err.find("/nonexistent-dir/out.binpb: error:"), std::string::npos) << unwritable.err;
}

TEST(Cli, UnknownFieldsAreRefusedByTheTextAndJsonFormsUnlessDropped) {
  // peripherals { id: "x" } followed by field 99 of the root, then field 7 inside the peripheral.
  const std::string bytes("\x52\x05\x0a\x01x\x38\x01\x98\x06\x05", 10);
  const std::string input = Written("unknown.binpb", bytes);
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"decode", input}, {"decode", input, "--to", "json"}, {"fmt", input}}) {
    const auto refused = Pcfg(args);
    EXPECT_EQ(refused.status, 2) << args[0];
    EXPECT_EQ(refused.out, "") << args[0];
    EXPECT_NE(
        refused.err.find("error: peripherals[0]: Peripheral carries fields the schema does not know: 7"),
        std::string::npos)
        << refused.err;
    EXPECT_NE(refused.err.find("--drop-unknown"), std::string::npos) << refused.err;
  }
  const auto dropped = Pcfg({"fmt", "--drop-unknown", input});
  EXPECT_EQ(dropped.status, 0);
  EXPECT_NE(dropped.err.find("warning:"), std::string::npos) << dropped.err;
  // What fmt prints reads back, and formats to itself.
  const std::string once = Written("unknown-dropped.txtpb", dropped.out);
  const auto twice = Pcfg({"fmt", once});
  EXPECT_EQ(twice.status, 0) << twice.err;
  EXPECT_EQ(twice.out, dropped.out);

  EXPECT_EQ(Pcfg({"check", "--from", "binary", input}).status, 0);
  EXPECT_EQ(Pcfg({"check", "--from", "binary", "--werror", input}).status, 1);
}

TEST(Example, HeadsetPassesEveryCheckAndRoundTripsThroughEveryForm) {
  const std::string example = pcfg_test::ExamplePath("headset.txtpb");
  const auto check = Pcfg({"check", "--werror", example});
  EXPECT_EQ(check.status, 0) << check.out;
  EXPECT_EQ(check.out, "");

  const std::string binary = Scratch("headset.binpb"), json = Scratch("headset.json"),
                    again = Scratch("headset-again.binpb");
  ASSERT_EQ(Pcfg({"compile", example, "-o", binary}).status, 0);
  ASSERT_EQ(Pcfg({"decode", binary, "-o", json}).status, 0);
  ASSERT_EQ(Pcfg({"compile", json, "-o", again}).status, 0);
  EXPECT_EQ(ReadFile(again), ReadFile(binary));
  // Text through standard output and back through standard input.
  const auto decoded = Pcfg({"decode", binary});
  EXPECT_EQ(decoded.out.rfind("# proto-file: peripheralconfig/proto/peripheral.config.proto\n", 0), 0u);
  const auto recompiled = Pcfg({"compile", "-", "-o", "-"}, decoded.out);
  EXPECT_EQ(recompiled.status, 0);
  EXPECT_EQ(recompiled.out, ReadFile(binary));
  // What compile writes is packed throughout, so the device reads it as the host does.
  EXPECT_EQ(Pcfg({"check", "--werror", "--only", "device-wire", binary}).status, 0);

  // And byte for byte what protoc writes.
  const std::string protoc_out = Scratch("protoc.binpb");
  const std::string command =
      "cd " + std::string(PCFG_SOURCE_DIR) +
      "/peripheralconfig/proto && protoc -I. "
      "--encode=Talvo.Peripherals.Config.Models.PeripheralConfig peripheral.config.proto < " +
      pcfg_test::Quote(example) + " > " + pcfg_test::Quote(protoc_out) + " 2>/dev/null";
  if (std::system(command.c_str()) != 0)
    GTEST_SKIP() << "protoc cannot encode here, so there is nothing to compare";
  EXPECT_EQ(ReadFile(protoc_out), ReadFile(binary));
}

}  // namespace
