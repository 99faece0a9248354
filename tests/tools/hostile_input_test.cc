// pcfg against hostile inputs and outputs that are not plain files: one row per kind of trouble,
// each the files it needs, a shell command run in a folder of its own, the exit status and what
// pcfg must say. Whatever the input, pcfg ends with a status (never a signal), says what went
// wrong in one located line, leaves no temporary file, and leaves what it must not touch as it
// was. Rows that need root (device nodes, other owners) skip visibly.
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "pcfg_test_support.h"

extern char** environ;

namespace {

using pcfg_test::Quote;
using pcfg_test::ReadFile;
using pcfg_test::TemporaryFilesIn;

const char kClean[] = R"(peripherals { id: "fpga" type: PERIPHERAL_TYPE_FPGA }
)";

// What compile writes for kClean, serialised once for every row that needs it.
const std::string& Compiled() {
  static const std::string bytes =
      pcfg_test::Serialized(pcfg_test::ParseText(kClean).config, pcfg::Format::kBinary);
  return bytes;
}

// A folder of its own for each row, so that rows never see each other's files.
std::string Room(const std::string& name) {
  const std::string dir = pcfg_test::Scratch(name);
  ::mkdir(dir.c_str(), 0755);
  return dir;
}

std::string Repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

// What must hold afterwards in the row's folder DIR, given what pcfg printed on standard output.
using After = std::function<void(const std::string& dir, const std::string& out)>;

After Holds(const std::string& file, const std::string& content) {
  return [=](const std::string& dir, const std::string&) {
    EXPECT_EQ(ReadFile(dir + "/" + file), content) << file;
  };
}
After IsA(const std::string& file, mode_t type) {
  return [=](const std::string& dir, const std::string&) {
    struct stat info {};
    EXPECT_EQ(::lstat((dir + "/" + file).c_str(), &info), 0) << file;
    EXPECT_EQ(info.st_mode & S_IFMT, type) << file;
  };
}
After Printed(const std::string& expected) {
  return [=](const std::string&, const std::string& out) { EXPECT_EQ(out, expected); };
}
After PrintedJson() {
  return [](const std::string&, const std::string& out) { EXPECT_TRUE(nlohmann::json::accept(out)) << out; };
}
After Owned(const std::string& file, mode_t mode, uid_t owner, gid_t group) {
  return [=](const std::string& dir, const std::string&) {
    struct stat info {};
    ASSERT_EQ(::stat((dir + "/" + file).c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, mode);
    EXPECT_EQ(info.st_uid, owner);
    EXPECT_EQ(info.st_gid, group);
  };
}

using Files = std::vector<std::pair<std::string, std::string>>;
Files In(const std::string& name, const std::string& content) { return {{name, content}}; }
After Both(After first, After second) {
  return [=](const std::string& dir, const std::string& out) { first(dir, out), second(dir, out); };
}

struct HostileCase {
  const char* name;
  Files files;          // written in the folder, besides in.txtpb, which holds kClean
  std::string command;  // run in the folder by the shell, where pcfg runs the pcfg under test
  int status;
  std::string says;  // a fragment of what pcfg prints (stdout or stderr)
  After after = nullptr;
  bool needs_root = false;
};

// compile in.txtpb over an out.binpb that holds "precious", with the system call FAULT failing.
std::string CompileOverPrecious(const std::string& fault) {
  return "printf precious > out.binpb; PCFG_IO_FAULT=" + fault + " LD_PRELOAD=" + Quote(PCFG_IO_FAULT_SHIM) +
         // ASan wants its runtime first among the loaded libraries; the shim comes before it.
         " ASAN_OPTIONS=\"${ASAN_OPTIONS:-}:verify_asan_link_order=0\" \"$PCFG\" compile in.txtpb -o "
         "out.binpb";
}

const std::string kHeadset = Quote(pcfg_test::ExamplePath("headset.txtpb"));
const std::string kLongName(NAME_MAX, 'x');

const HostileCase kCases[] = {
    // ---- inputs that are not configurations ----
    {"DirectoryAsInputOfEveryCommand", Files(),
     "for c in compile decode check show graph fmt; do pcfg $c .; echo \"$c $?\"; done; pcfg diff . .; "
     "echo \"diff $?\"",
     0, "is a directory",
     [](const std::string&, const std::string& out) {
       for (const char* c : {"compile", "decode", "check", "show", "graph", "fmt", "diff"})
         EXPECT_NE(out.find(std::string(c) + " 2\n"), std::string::npos) << c;
     }},
    {"DirectoryOnStandardInputKeepsTheOutput", In("keep.binpb", "precious"),
     "pcfg compile - -o keep.binpb < .", 2, "standard input is a directory", Holds("keep.binpb", "precious")},
    {"MissingFile", Files(), "pcfg check nope.txtpb", 2,
     "nope.txtpb: error: cannot open: No such file or directory"},
    {"JsonNumberThatOverflows", In("big.json", R"({"general_configs": {"cadmor_camera_version": 1e999}})"),
     "pcfg check big.json", 2,
     "big.json:1:51: error: invalid JSON: [json.exception.out_of_range.406] number overflow"},
    {"JsonIntegerTooLong",
     In("long.json", R"({"general_configs": {"cadmor_camera_version": 99999999999999999999999}})"),
     "pcfg check long.json", 2, "long.json: error: not a PeripheralConfig in the JSON mapping"},
    {"DeeplyNestedJson", In("deep.json", "{\"peripherals\": " + std::string(100000, '[')),
     "pcfg check deep.json", 2,
     "deep.json:1:18: error: not a PeripheralConfig in the JSON mapping: a list of field"},
    {"DeeplyNestedText", In("deep.txtpb", Repeated("physical_cameras { camx { ", 20000)),
     "pcfg check deep.txtpb", 2, "deep.txtpb:1:"},
    {"BinaryGarbage", In("noise", "\xff\xff\xff\xff\x0f"), "pcfg check --from binary noise", 2,
     "noise: error: cannot parse the 5 bytes read as a binary PeripheralConfig"},
    {"EmptyInputIsAnEmptyConfiguration", In("empty.txtpb", ""), "pcfg check empty.txtpb", 0,
     "empty.txtpb: 0 error(s), 0 warning(s)"},
    // ---- text that JSON output cannot hold as it is ----
    {"JsonDiagnosticsOfAFileNameThatIsNotUtf8",
     In("caf\xe9.txtpb", std::string(kClean) + "peripherals { id: \"fpga\" }\n"),
     "pcfg check --format json caf\xe9.txtpb", 1, "duplicate-id", PrintedJson()},
    {"JsonDiagnosticsOfATokenThatIsNotUtf8", In("token.txtpb", "peripherals { \xff\xfe }"),
     "pcfg check --format json token.txtpb", 2, "\"severity\": \"error\"", PrintedJson()},
    {"JsonDiagnosticsOfAJsonExcerptThatIsNotUtf8", In("excerpt.json", "{\"peripherals\": [\xff\xfe]}"),
     "pcfg check --format json excerpt.json", 2, "invalid JSON", PrintedJson()},
    {"ShowJsonOfAFileNameThatIsNotUtf8", In("na\xefve.txtpb", kClean),
     "pcfg show --format json na\xefve.txtpb", 0, "\"file\"", PrintedJson()},
    // ---- outputs that are not plain files ----
    {"FifoIsWrittenThrough", Files(),
     "mkfifo out.fifo; cat out.fifo > got & pcfg compile in.txtpb -o out.fifo; wait", 0, "wrote",
     Both(IsA("out.fifo", S_IFIFO), Holds("got", Compiled()))},
    {"CharacterDeviceIsWrittenThrough", Files(), "mknod null c 1 3 && pcfg compile in.txtpb -o null", 0,
     "wrote", IsA("null", S_IFCHR), true},
    {"DevStdoutIsWrittenThrough", Files(), "pcfg compile in.txtpb -o /dev/stdout", 0, "wrote /dev/stdout",
     Printed(Compiled())},
    {"SymbolicLinkLeadsToItsTarget", In("target.binpb", "old"),
     "ln -s target.binpb link.binpb && pcfg compile in.txtpb -o link.binpb", 0, "wrote",
     Both(IsA("link.binpb", S_IFLNK), Holds("target.binpb", Compiled()))},
    {"DanglingSymbolicLinkCreatesItsTarget", Files(),  // an absolute target
     "ln -s \"$PWD/made.binpb\" dangling.binpb && pcfg compile in.txtpb -o dangling.binpb", 0, "wrote",
     Both(IsA("dangling.binpb", S_IFLNK), IsA("made.binpb", S_IFREG))},
    {"RelativeOutputNameInTheWorkingFolder", Files(), "pcfg compile in.txtpb -o out.binpb", 0,
     "wrote out.binpb", IsA("out.binpb", S_IFREG)},
    {"StandardErrorByName", Files(), "pcfg compile in.txtpb -o /dev/stderr", 0, Compiled()},
    {"DescriptorThatIsNotOpenAsOutput", Files(), "pcfg compile in.txtpb -o /dev/fd/9 9>&-", 2,
     "/dev/fd/9: error: cannot write: Bad file descriptor"},
    {"OutputInsideAFile", In("plain", ""), "pcfg compile in.txtpb -o plain/out.binpb", 2,
     "plain/out.binpb: error: cannot write: Not a directory"},
    {"DeviceWithoutADriverAsOutput", Files(),  // a number left unassigned
     "mknod nodriver c 240 250 && pcfg compile in.txtpb -o nodriver", 2,
     "nodriver: error: cannot open: No such device or address", nullptr, true},
    {"ReadOnlyOutputIsRefused", In("ro.binpb", "precious"),
     "chmod 444 ro.binpb && pcfg compile in.txtpb -o ro.binpb", 2,
     "ro.binpb: error: is read-only; left as it was (--force replaces it)", Holds("ro.binpb", "precious")},
    {"ReadOnlyOutputIsReplacedUnderForceKeepingItsMode", In("ro.binpb", "precious"),
     "chmod 444 ro.binpb && pcfg compile --force in.txtpb -o ro.binpb", 0, "wrote",
     Both(Holds("ro.binpb", Compiled()), Owned("ro.binpb", 0444, ::geteuid(), ::getegid()))},
    {"FmtInPlaceRefusesReadOnlyFiles", In("ro.txtpb", "peripherals{id:\"x\"}"),
     "chmod 444 ro.txtpb && pcfg fmt -i ro.txtpb", 2, "is read-only",
     Holds("ro.txtpb", "peripherals{id:\"x\"}")},
    {"FmtInPlaceKeepsTheOwner", In("owned.txtpb", "peripherals{id:\"x\"}"),
     "chown 65534:65534 owned.txtpb && chmod 640 owned.txtpb && pcfg fmt -i owned.txtpb", 0, "formatted",
     Owned("owned.txtpb", 0640, 65534, 65534), true},
    {"OutputThatIsTheInputIsRefused", Files(),
     "ln -s in.txtpb alias.txtpb; ln in.txtpb hard.txtpb; for o in in.txtpb alias.txtpb hard.txtpb; do "
     "pcfg compile in.txtpb -o $o; echo \"status $?\"; done",
     0, "is also an input of this run; refusing to overwrite it",
     Both(Printed("status 2\nstatus 2\nstatus 2\n"), Holds("in.txtpb", kClean))},
    {"BlockDeviceIsNeverWritten", Files(),  // a loop device's number: refused before it is opened
     "mknod disk b 7 250 && pcfg compile in.txtpb -o disk", 2,
     "disk: error: is a block device; pcfg does not write to disks", IsA("disk", S_IFBLK), true},
    {"DirectoryAsOutput", Files(), "mkdir out.binpb && pcfg compile in.txtpb -o out.binpb", 2,
     "out.binpb: error: is a directory"},
    {"InputThroughADescriptorAsOutput", Files(), "pcfg compile in.txtpb -o /dev/fd/3 3>>in.txtpb", 2,
     "/dev/fd/3: error: is also an input", Holds("in.txtpb", kClean)},
    {"SymbolicLinkLoopAsOutput", Files(),
     "ln -s loop.binpb loop.binpb && pcfg compile in.txtpb -o loop.binpb", 2, "loop.binpb: error:"},
    // ---- reads and writes that fail ----
    {"FullStandardOutput", Files(),
     "mknod full c 1 7 && for a in 'compile in.txtpb -o -' 'show in.txtpb' 'check --list' 'fmt in.txtpb'; do "
     "pcfg $a > full; echo \"status $?\"; done",
     0, "cannot write", Printed("status 2\nstatus 2\nstatus 2\nstatus 2\n"), true},
    {"FullOutputFileKeepsThePreviousOne", Files(), "mknod full c 1 7 && pcfg compile in.txtpb -o full", 2,
     "full: error: cannot write: No space left on device", nullptr, true},
    // ---- inputs that would make pcfg use too much ----
    {"InputOverTheSizeLimitIsRefusedBeforeReading", Files(),
     "truncate -s 100M huge.binpb && pcfg check --from binary huge.binpb", 2,
     "huge.binpb: error: is 104857600 bytes, over the input limit of 64 MiB (--max-input-size raises it)"},
    {"EndlessStandardInputStopsAtTheLimit", Files(), "yes | pcfg check --max-input-size 1M -", 2,
     "<stdin>: error: input is larger than the limit of 1 MiB"},
    // ---- outputs that go away or fill up ----
    {"ClosedPipeIsAWriteError", In("big.txtpb", Repeated("peripherals { id: \"p\" }\n", 3000)),
     "pcfg compile --no-check big.txtpb -o big.binpb 2>&-; { pcfg decode big.binpb; echo $? > status; } | "
     "head -c 10 > got; exit $(cat status)",
     2, "<stdout>: error: the reader closed the pipe; the output is cut short"},
    {"FileSizeLimitKeepsTheOldOutput", In("out.txtpb", "precious"),
     "pcfg compile " + kHeadset +
         " -o headset.binpb 2>&-; ulimit -f 8; pcfg decode headset.binpb -o out.txtpb",
     2, "out.txtpb: error: cannot write: File too large", Holds("out.txtpb", "precious")},
    {"OutputNameAtTheFileNameLimit", Files(), "pcfg compile in.txtpb -o " + kLongName, 0, "wrote",
     Holds(kLongName, Compiled())},
    {"FmtToItsOwnInputThroughStandardOutput", Files(), "pcfg fmt in.txtpb >> in.txtpb", 2,
     "<stdout>: error: is also an input", Holds("in.txtpb", kClean)},
    {"ClosedStandardOutput", Files(),
     "pcfg compile in.txtpb -o clean.binpb 2>&-; pcfg decode clean.binpb >&-", 2,
     "<stdout>: error: standard output is closed"},
    // ---- system calls that fail (through the LD_PRELOAD shim): the old output stays ----
    {"FsyncFails", Files(), CompileOverPrecious("fsync"), 2,
     "out.binpb: error: cannot write: Input/output error", Holds("out.binpb", "precious")},
    {"CloseReportsALateWriteError", Files(), CompileOverPrecious("close"), 2,
     "out.binpb: error: cannot write: Input/output error", Holds("out.binpb", "precious")},
    {"RenameFails", Files(), CompileOverPrecious("rename:EXDEV"), 2,
     "out.binpb: error: cannot replace the file: Invalid cross-device link", Holds("out.binpb", "precious")},
    {"DiskFullMidWrite", Files(), CompileOverPrecious("write:ENOSPC"), 2,
     "out.binpb: error: cannot write: No space left on device", Holds("out.binpb", "precious")},
    {"ReadFails", Files(), CompileOverPrecious("read"), 2, "in.txtpb: error: cannot read: Input/output error",
     Holds("out.binpb", "precious")},
};

// Rows are named by their names, in test listings too.
void PrintTo(const HostileCase& c, std::ostream* out) { *out << c.name; }

class HostileInput : public testing::TestWithParam<HostileCase> {};

TEST_P(HostileInput, EndsWithAStatusAndSaysWhy) {
  const HostileCase& c = GetParam();
  if (c.needs_root && ::geteuid() != 0)
    GTEST_SKIP() << c.name << " needs root (device nodes or another owner)";
  const std::string dir = Room(c.name);
  pcfg_test::WriteFile(dir + "/in.txtpb", kClean);
  for (const auto& [name, content] : c.files) pcfg_test::WriteFile(dir + "/" + name, content);
  const auto run = pcfg_test::Shell("PCFG=" + Quote(PCFG_BINARY) + "; pcfg() { \"$PCFG\" \"$@\"; }; cd " +
                                    Quote(dir) + " && { " + c.command + "; }");
  EXPECT_EQ(run.status, c.status) << run.out << run.err;
  EXPECT_LT(run.status, 128) << "ended by a signal";
  EXPECT_NE((run.out + run.err).find(c.says), std::string::npos) << run.out << run.err;
  if (c.status == 2 && !nlohmann::json::accept(run.out)) {
    // Trouble is one located line: the file it is about, then what is wrong.
    const std::string all = run.out + run.err;
    size_t errors = 0;
    for (size_t at = all.find(": error: "); at != std::string::npos; at = all.find(": error: ", at + 1))
      ++errors;
    EXPECT_EQ(errors, 1u) << all;
  }
  EXPECT_EQ(TemporaryFilesIn(dir), 0);
  if (c.after) c.after(dir, run.out);
}

INSTANTIATE_TEST_SUITE_P(Rows, HostileInput, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<HostileCase>& info) {
                           return std::string(info.param.name);
                         });

TEST(HostileOutput, SignalDuringALargeWriteLeavesNoTemporaryFile) {
  const std::string dir = Room("signalled");
  // A binary configuration whose text form is large: many peripherals with long ids.
  std::string text;
  for (int i = 0; i < 100000; ++i)
    text += "peripherals { id: \"peripheral-" + std::to_string(i) + std::string(100, 'x') + "\" }\n";
  pcfg_test::WriteFile(dir + "/big.txtpb", text);
  const std::string binary = dir + "/big.binpb", whole = dir + "/whole.txtpb", output = dir + "/out.txtpb";
  ASSERT_EQ(pcfg_test::Shell(
                pcfg_test::PcfgCommandLine({"compile", "--no-check", dir + "/big.txtpb", "-o", binary}) +
                " && " + pcfg_test::PcfgCommandLine({"decode", binary, "-o", whole}))
                .status,
            0);
  pcfg_test::WriteFile(output, "previous");
  for (int signal : {SIGTERM, SIGINT}) {
    std::string pcfg = PCFG_BINARY;
    std::vector<std::string> args = {pcfg, "decode", binary, "-o", output};
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    pid_t pid;
    ASSERT_EQ(::posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ), 0);
    // Wait for the temporary file, then signal.
    bool signalled = false;
    for (int tries = 0; tries < 200000 && !signalled; ++tries) {
      if (TemporaryFilesIn(dir) > 0) {
        ::kill(pid, signal);
        signalled = true;
      }
      int status;
      if (!signalled && ::waitpid(pid, &status, WNOHANG) == pid) break;
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    if (!signalled) GTEST_SKIP() << "the write ended before a signal could be sent";
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
    EXPECT_EQ(TemporaryFilesIn(dir), 0) << "signal " << signal;
    // A signal that lands after the rename finds the new output whole; any earlier one
    // leaves the previous output as it was. Nothing in between may be seen.
    const std::string now = ReadFile(output);
    EXPECT_TRUE(now == "previous" || now == ReadFile(whole))
        << "signal " << signal << ": " << now.size() << " bytes";
    pcfg_test::WriteFile(output, "previous");
  }
}

}  // namespace
