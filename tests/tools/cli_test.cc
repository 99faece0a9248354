// pcfg as a user runs it: help, exit statuses, diagnostics, forms and their names, round trips
// and the outputs a run writes or leaves alone.
#include <dirent.h>
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

// Temporary files of an atomic write carry ".pcfg-" in their names.
int TemporaryFilesIn(const std::string& dir) {
  int count = 0;
  if (DIR* d = opendir(dir.c_str())) {
    while (dirent* entry = readdir(d))
      count += std::string(entry->d_name).find(".pcfg-") != std::string::npos;
    closedir(d);
  }
  return count;
}

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
  EXPECT_EQ(Pcfg({}).status, 2);
  EXPECT_EQ(Pcfg({"frobnicate"}).status, 2);
  EXPECT_EQ(Pcfg({"help", "frobnicate"}).status, 2);
}

TEST(Cli, ExitStatusesOfCheck) {
  struct Row {
    const char* what;
    std::vector<std::string> args;
    int status;
  };
  const std::string clean = Written("clean.txtpb", kSmall);
  const std::string warning =
      Written("warning.txtpb",
              std::string(kSmall) + "peripherals { id: \"cam_right\" type: PERIPHERAL_TYPE_CAMERA }\n");
  const std::string error = Written("error.txtpb", std::string(kSmall) + "peripherals { id: \"fpga\" }\n");
  const std::string broken = Written("broken.txtpb", "peripherals { id: }\n");
  const Row rows[] = {
      {"clean", {"check", clean}, 0},
      {"warnings only", {"check", warning}, 0},
      {"warnings under --werror", {"check", "--werror", warning}, 1},
      {"warning disabled", {"check", "--werror", "--disable", "missing-entry", warning}, 0},
      {"only another rule", {"check", "--werror", "--only", "duplicate-id,bad-hex", warning}, 0},
      {"only that rule", {"check", "--werror", "--only", "missing-entry", warning}, 1},
      {"errors", {"check", error}, 1},
      {"unparsable", {"check", broken}, 2},
      {"missing file", {"check", Scratch("nope.txtpb")}, 2},
      {"unknown rule", {"check", "--disable", "no-such-rule", clean}, 2},
      {"unknown rule in --only", {"check", "--only", "no-such-rule", clean}, 2},
      {"several files, worst wins", {"check", clean, error}, 1},
      {"list", {"check", "--list"}, 0},
  };
  for (const Row& row : rows) {
    const auto run = Pcfg(row.args);
    EXPECT_EQ(run.status, row.status) << row.what << "\n" << run.out << run.err;
  }
  // The summary names the file even when it cannot be read.
  EXPECT_NE(
      Pcfg({"check", Scratch("nope.txtpb")}).err.find(Scratch("nope.txtpb") + ": 1 error(s), 0 warning(s)"),
      std::string::npos);
}

TEST(Cli, DiagnosticsNameFileLineColumnAndRule) {
  const std::string error = Written("dup.txtpb", std::string(kSmall) + "peripherals { id: \"fpga\" }\n");
  const auto run = Pcfg({"check", error});
  EXPECT_NE(
      run.out.find(error + ":17:15: error: peripherals[2].id: peripheral id \"fpga\" repeats peripherals[0] "
                           "[duplicate-id]"),
      std::string::npos)
      << run.out;
  const auto broken = Pcfg({"check", Written("syntax.txtpb", "peripherals {\n  id: 3 3\n}\n")});
  EXPECT_NE(broken.out.find("syntax.txtpb:2:"), std::string::npos) << broken.out;

  const auto json = Pcfg({"check", "--format", "json", error});
  const auto parsed = nlohmann::json::parse(json.out);
  ASSERT_EQ(parsed.size(), 1u);
  EXPECT_EQ(parsed[0]["rule"], "duplicate-id");
  EXPECT_EQ(parsed[0]["line"], 17);

  const auto bad_json =
      Pcfg({"check", Written("bad.json", "{\n  \"peripherals\": [\n    {\"id\": }\n  ]\n}\n")});
  EXPECT_EQ(bad_json.status, 2);
  EXPECT_NE(bad_json.out.find("bad.json:3:"), std::string::npos) << bad_json.out;
}

TEST(Cli, FormsAreNamedByExtensionOrNameWithoutCase) {
  const std::string text = Written("forms.txtpb", kSmall);
  ASSERT_EQ(Pcfg({"compile", text, "-o", Scratch("forms.binpb")}).status, 0);
  ASSERT_EQ(Pcfg({"decode", Scratch("forms.binpb"), "-o", Scratch("forms.JSON")}).status, 0);
  EXPECT_EQ(ReadFile(Scratch("forms.JSON")).front(), '{') << "an upper-case extension still means JSON";
  struct Row {
    std::vector<std::string> args;
    int status;
  };
  const Row rows[] = {
      {{"check", Scratch("forms.JSON")}, 0},   {{"check", "--from", "WIRE", Scratch("forms.binpb")}, 0},
      {{"check", "--from", "txtpb", text}, 0}, {{"check", "--from", "json", text}, 2},
      {{"check", "--from", "yaml", text}, 2},  {{"decode", Scratch("forms.binpb"), "--to", "TextProto"}, 0},
  };
  for (const Row& row : rows)
    EXPECT_EQ(Pcfg(row.args).status, row.status) << row.args[1] << " " << row.args[2];
}

// What a newcomer types wrong is answered in their words, naming the valid choices.
TEST(Cli, MistakesNameTheChoices) {
  const std::string text = Written("newcomer.txtpb", kSmall);
  const std::string unknown_extension = Written("newcomer.txt", kSmall);
  struct Row {
    std::vector<std::string> args;
    int status;
    const char* says;  // in standard output or error
  };
  const Row rows[] = {
      {{"nope"}, 2, "no command 'nope'; the commands are compile, decode, check"},
      {{"help"}, 0, "compile"},
      {{"check", "--from", "xml", text}, 2, "no form 'xml'; the forms are text, json and binary"},
      {{"check", "--max-diagnostics=-1", text}, 2, "expected a whole number from 0 (all) to 999999999"},
      {{"check", "--max-diagnostics=4294967296", text}, 2, "expected a whole number"},
      {{"check", "--max-diagnostics=999999999", text}, 0, "0 error(s)"},
      {{"decode", text}, 0, "peripherals {"},  // decode reads its input by extension too
      {{"decode", unknown_extension},
       2,
       "read as binary because its extension names no form; choose with --from"},
      {{"decode", "--from", "text", unknown_extension}, 0, "peripherals {"},
  };
  for (const Row& row : rows) {
    const auto run = Pcfg(row.args);
    EXPECT_EQ(run.status, row.status) << row.args[0] << "\n" << run.out << run.err;
    EXPECT_NE((run.out + run.err).find(row.says), std::string::npos) << row.args[0] << "\n"
                                                                     << run.out << run.err;
  }
  EXPECT_EQ(Pcfg({"help"}).out.find("Usage: pcfg help"), std::string::npos)
      << "help explains pcfg, not itself";
}

TEST(Cli, SizeLimitAdmitsAnInputOfExactlyItsSize) {
  std::string text = kSmall;
  text.resize(4096, ' ');  // a clean configuration of exactly 4 KiB
  const std::string file = Written("limit.txtpb", text);
  const std::pair<const char*, int> limits[] = {{"4097", 0}, {"4096", 0}, {"4K", 0}, {"4095", 2}};
  for (const auto& [limit, status] : limits) {
    EXPECT_EQ(Pcfg({"check", "--max-input-size", limit, file}).status, status) << limit << " on a file";
    // Through a pipe the size is not known beforehand: the reader counts.
    const auto piped = pcfg_test::Shell(
        "cat " + pcfg_test::Quote(file) + " | " +
        pcfg_test::PcfgCommandLine({"check", "--max-input-size", limit, "--from", "text", "-"}));
    EXPECT_EQ(piped.status, status) << limit << " through a pipe\n" << piped.err;
  }
  // The option's own range: below 2 GiB, which is all that one parse can hold.
  const std::pair<const char*, int> sizes[] = {
      {"2047M", 0}, {"1G", 0},  {"1GiB", 0}, {"2G", 2},
      {"-1", 2},    {"10X", 2}, {"", 2},     {"99999999999999999999", 2}};
  for (const auto& [size, status] : sizes) {
    const auto run = Pcfg({"check", "--max-input-size", size, file});
    EXPECT_EQ(run.status, status) << "'" << size << "'\n" << run.err;
    if (status == 2) {
      EXPECT_NE(run.err.find("expected a size below 2G"), std::string::npos) << run.err;
    }
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

TEST(Cli, CompileMatchesProtocByteForByte) {
  const std::string text = Written("rt.txtpb", kSmall);
  ASSERT_EQ(Pcfg({"compile", text, "-o", Scratch("rt.binpb")}).status, 0);
  const std::string protoc_out = Scratch("protoc.binpb");
  const std::string command =
      "cd " + std::string(PCFG_SOURCE_DIR) +
      "/peripheralconfig/proto && protoc -I. "
      "--encode=Talvo.Peripherals.Config.Models.PeripheralConfig peripheral.config.proto < " +
      text + " > " + protoc_out + " 2>/dev/null";
  if (std::system(command.c_str()) != 0)
    GTEST_SKIP() << "protoc cannot encode here, so there is nothing to compare";
  EXPECT_EQ(ReadFile(protoc_out), ReadFile(Scratch("rt.binpb")));
}

TEST(Cli, RoundTripsThroughEveryForm) {
  const std::string text = Written("forms-rt.txtpb", kSmall);
  ASSERT_EQ(Pcfg({"compile", text, "-o", Scratch("forms-rt.binpb")}).status, 0);
  const std::string binary = ReadFile(Scratch("forms-rt.binpb"));
  ASSERT_EQ(Pcfg({"decode", Scratch("forms-rt.binpb"), "-o", Scratch("forms-rt.json")}).status, 0);
  ASSERT_EQ(Pcfg({"compile", Scratch("forms-rt.json"), "-o", Scratch("forms-rt2.binpb")}).status, 0);
  EXPECT_EQ(ReadFile(Scratch("forms-rt2.binpb")), binary);
  const auto decoded = Pcfg({"decode", Scratch("forms-rt.binpb")});
  EXPECT_EQ(decoded.out.rfind("# proto-file: peripheralconfig/proto/peripheral.config.proto\n", 0), 0u);
  const auto recompiled = Pcfg({"compile", "-", "-o", "-"}, decoded.out);
  EXPECT_EQ(recompiled.status, 0);
  EXPECT_EQ(recompiled.out, binary);
}

TEST(Cli, FailedRunsLeaveOutputsAlone) {
  const std::string target = Scratch("keep.binpb");
  WriteFile(target, "precious");
  const std::string error = Written("refused.txtpb", std::string(kSmall) + "peripherals { id: \"fpga\" }\n");
  EXPECT_EQ(Pcfg({"compile", error, "-o", target}).status, 1);
  EXPECT_EQ(Pcfg({"compile", Written("unparsable.txtpb", "peripherals {"), "-o", target}).status, 2);
  EXPECT_EQ(ReadFile(target), "precious");
  EXPECT_EQ(TemporaryFilesIn(pcfg_test::ScratchDir()), 0) << "no temporary file is left behind";

  EXPECT_EQ(Pcfg({"compile", "--no-check", error, "-o", target}).status, 0);
  EXPECT_NE(ReadFile(target), "precious");

  const auto unwritable = Pcfg({"compile", Written("ok.txtpb", kSmall), "-o", "/nonexistent-dir/out.binpb"});
  EXPECT_EQ(unwritable.status, 2);
  EXPECT_NE(unwritable.err.find("/nonexistent-dir/out.binpb: error:"), std::string::npos) << unwritable.err;
}

TEST(Cli, RewritesKeepTheFileMode) {
  const std::string target = Written("mode.binpb", "old");
  ::chmod(target.c_str(), 0640);
  ASSERT_EQ(Pcfg({"compile", Written("mode.txtpb", kSmall), "-o", target}).status, 0);
  struct stat info;
  ASSERT_EQ(::stat(target.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0640u);
  EXPECT_NE(ReadFile(target), "old");
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

TEST(Cli, BadBinaryIsReportedWithWhatWasRead) {
  const std::string bytes("\x52\x05\x0a\x01x\x38\x01", 7);
  const auto truncated = Pcfg({"decode", Written("truncated.binpb", bytes.substr(0, 4))});
  EXPECT_EQ(truncated.status, 2);
  EXPECT_NE(truncated.err.find("4 bytes"), std::string::npos) << truncated.err;
  const auto utf8 = Pcfg({"decode", Written("utf8.binpb", std::string("\x52\x03\x0a\x01\xff", 5))});
  EXPECT_EQ(utf8.status, 2);
  EXPECT_NE(utf8.err.find("Talvo.Peripherals.Config.Models.Peripheral.id"), std::string::npos) << utf8.err;
}

TEST(Cli, TextOrJsonWithInvalidUtf8IsRefusedBeforeItReachesTheWire) {
  // The text and JSON parsers take such strings; the device's binary parser would not.
  const std::string text = Written("latin1.txtpb", "peripherals {\n  id: \"caf\xe9\"\n}\n");
  const auto compile = Pcfg({"compile", text, "-o", Scratch("latin1.binpb")});
  EXPECT_EQ(compile.status, 2);
  EXPECT_NE(compile.err.find("latin1.txtpb:2:3: error: peripherals[0].id: string field "
                             "'Talvo.Peripherals.Config.Models.Peripheral.id' holds invalid UTF-8"),
            std::string::npos)
      << compile.err;
  const auto repeated =
      Pcfg({"check", Written("list.txtpb", "physical_cameras { cameraset_peripheral_ids: \"\xc0\xaf\" }\n")});
  EXPECT_EQ(repeated.status, 2);
  EXPECT_NE(repeated.out.find("physical_cameras[0].cameraset_peripheral_ids[0]"), std::string::npos)
      << repeated.out;
}

TEST(Example, HeadsetPassesEveryCheckAndRoundTripsThroughEveryForm) {
  const std::string example = pcfg_test::ExamplePath("headset.txtpb");
  const auto check = Pcfg({"check", "--werror", example});
  EXPECT_EQ(check.status, 0) << check.out;
  EXPECT_EQ(check.out, "");

  const std::string binary = Scratch("headset.binpb"), json = Scratch("headset.json"),
                    again = Scratch("headset-again.binpb"), text = Scratch("headset.txtpb");
  ASSERT_EQ(Pcfg({"compile", example, "-o", binary}).status, 0);
  ASSERT_EQ(Pcfg({"decode", binary, "-o", json}).status, 0);
  ASSERT_EQ(Pcfg({"compile", json, "-o", again}).status, 0);
  EXPECT_EQ(ReadFile(again), ReadFile(binary));
  ASSERT_EQ(Pcfg({"decode", again, "-o", text}).status, 0);
  ASSERT_EQ(Pcfg({"compile", text, "-o", again}).status, 0);
  EXPECT_EQ(ReadFile(again), ReadFile(binary));
  // What compile writes is packed throughout, so the device reads it as the host does.
  EXPECT_EQ(Pcfg({"check", "--werror", "--only", "device-wire", binary}).status, 0);
}

}  // namespace
