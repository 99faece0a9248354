// pcfg against hostile inputs and outputs that are not plain files: one row per kind of trouble,
// each a command, the files it needs, the exit status and what it must say. Whatever the input,
// pcfg ends with a status (never a signal), says what went wrong in one located line, and leaves
// what it must not touch as it was. Rows that need root (device nodes, other owners) skip visibly.
#include <dirent.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "pcfg_test_support.h"

extern char** environ;

namespace {

using pcfg_test::PcfgCommandLine;
using pcfg_test::Quote;
using pcfg_test::ReadFile;
using pcfg_test::Scratch;
using pcfg_test::Written;

const char kClean[] = R"(peripherals { id: "fpga" type: PERIPHERAL_TYPE_FPGA }
)";

// A folder of its own for each row, so that rows never see each other's files.
std::string Room(const std::string& name) {
  const std::string dir = Scratch(name);
  ::mkdir(dir.c_str(), 0755);
  return dir;
}

std::string Put(const std::string& dir, const std::string& name, const std::string& content) {
  pcfg_test::WriteFile(dir + "/" + name, content);
  return dir + "/" + name;
}

std::string Pcfg(const std::vector<std::string>& args) { return PcfgCommandLine(args); }

mode_t TypeOf(const std::string& path) {
  struct stat info;
  return ::lstat(path.c_str(), &info) == 0 ? info.st_mode & S_IFMT : 0;
}

std::string CompiledClean(const std::string& dir) {
  const std::string text = Put(dir, "clean.txtpb", kClean);
  std::system((Pcfg({"compile", text, "-o", dir + "/clean.binpb"}) + " 2>/dev/null").c_str());
  return ReadFile(dir + "/clean.binpb");
}

bool IsJson(const std::string& text) { return nlohmann::json::accept(text); }

int TemporaryFilesIn(const std::string& dir);

std::string CompiledBinary(const std::string& dir) {
  CompiledClean(dir);
  return dir + "/clean.binpb";
}

struct HostileCase {
  const char* name;
  // Prepares the files in its folder and returns the shell command to run there.
  std::function<std::string(const std::string& dir)> command;
  int status;
  const char* says;  // a fragment of what pcfg prints (stdout or stderr)
  // What must hold afterwards (the folder, and what pcfg printed on stdout).
  std::function<void(const std::string& dir, const std::string& out)> after = nullptr;
  bool needs_root = false;
};

// compile in.txtpb over an out.binpb that holds "precious", with the system call FAULT failing.
std::string CompileOverPrecious(const std::string& dir, const std::string& fault) {
  Put(dir, "out.binpb", "precious");
  return "PCFG_IO_FAULT=" + fault + " LD_PRELOAD=" + Quote(PCFG_IO_FAULT_SHIM) +
         // ASan wants its runtime first among the loaded libraries; the shim comes before it.
         " ASAN_OPTIONS=\"${ASAN_OPTIONS:-}:verify_asan_link_order=0\" " +
         Pcfg({"compile", Put(dir, "in.txtpb", kClean), "-o", dir + "/out.binpb"});
}

void KeptPrecious(const std::string& dir, const std::string&) {
  EXPECT_EQ(ReadFile(dir + "/out.binpb"), "precious");
  EXPECT_EQ(TemporaryFilesIn(dir), 0);
}

const HostileCase kCases[] = {
    // ---- inputs that are not configurations ----
    {"DirectoryAsInputOfEveryCommand",
     [](const std::string& dir) {
       std::string all;
       for (const char* command : {"compile", "decode", "check", "show", "graph", "fmt"})
         all += Pcfg({command, dir}) + "; echo \"" + command + " $?\"; ";
       return all + Pcfg({"diff", dir, dir}) + "; echo \"diff $?\"";
     },
     0, "is a directory",
     [](const std::string&, const std::string& out) {
       for (const char* command : {"compile", "decode", "check", "show", "graph", "fmt", "diff"})
         EXPECT_NE(out.find(std::string(command) + " 2\n"), std::string::npos) << command << "\n" << out;
     }},
    {"DirectoryOnStandardInputKeepsTheOutput",
     [](const std::string& dir) {
       Put(dir, "keep.binpb", "precious");
       return Pcfg({"compile", "-", "-o", dir + "/keep.binpb"}) + " < " + Quote(dir);
     },
     2, "standard input is a directory",
     [](const std::string& dir, const std::string&) {
       EXPECT_EQ(ReadFile(dir + "/keep.binpb"), "precious");
     }},
    {"MissingFile",
     [](const std::string& dir) {
       return Pcfg({"check", dir + "/nope.txtpb"});
     },
     2, "nope.txtpb: error: cannot open: No such file or directory"},
    {"JsonNumberThatOverflows",
     [](const std::string& dir) {
       return Pcfg(
           {"check", Put(dir, "big.json", R"({"general_configs": {"cadmor_camera_version": 1e999}})")});
     },
     2, "big.json:1:51: error: invalid JSON: [json.exception.out_of_range.406] number overflow"},
    {"JsonIntegerTooLong",
     [](const std::string& dir) {
       return Pcfg(
           {"check", Put(dir, "long.json",
                         R"({"general_configs": {"cadmor_camera_version": 99999999999999999999999}})")});
     },
     2, "long.json: error: not a PeripheralConfig in the JSON mapping"},
    {"DeeplyNestedJson",
     [](const std::string& dir) {
       return Pcfg({"check", Put(dir, "deep.json", "{\"peripherals\": " + std::string(100000, '['))});
     },
     2, "deep.json:1:18: error: not a PeripheralConfig in the JSON mapping: a list of field"},
    {"DeeplyNestedText",
     [](const std::string& dir) {
       std::string text;
       for (int i = 0; i < 20000; ++i) text += "physical_cameras { camx { ";
       return Pcfg({"check", Put(dir, "deep.txtpb", text)});
     },
     2, "deep.txtpb:1:"},
    {"BinaryGarbage",
     [](const std::string& dir) {
       return Pcfg({"check", "--from", "binary", Put(dir, "noise", "\xff\xff\xff\xff\x0f")});
     },
     2, "noise: error: cannot parse the 5 bytes read as a binary PeripheralConfig"},
    {"EmptyInputIsAnEmptyConfiguration",
     [](const std::string& dir) {
       return Pcfg({"check", Put(dir, "empty.txtpb", "")});
     },
     0, "empty.txtpb: 0 error(s), 0 warning(s)"},
    // ---- text that JSON output cannot hold as it is ----
    {"JsonDiagnosticsOfAFileNameThatIsNotUtf8",
     [](const std::string& dir) {
       return Pcfg({"check", "--format", "json",
                    Put(dir, "caf\xe9.txtpb", std::string(kClean) + "peripherals { id: \"fpga\" }\n")});
     },
     1, "duplicate-id", [](const std::string&, const std::string& out) { EXPECT_TRUE(IsJson(out)) << out; }},
    {"JsonDiagnosticsOfATokenThatIsNotUtf8",
     [](const std::string& dir) {
       return Pcfg({"check", "--format", "json", Put(dir, "token.txtpb", "peripherals { \xff\xfe }")});
     },
     2, "\"severity\": \"error\"",
     [](const std::string&, const std::string& out) { EXPECT_TRUE(IsJson(out)) << out; }},
    {"JsonDiagnosticsOfAJsonExcerptThatIsNotUtf8",
     [](const std::string& dir) {
       return Pcfg({"check", "--format", "json", Put(dir, "excerpt.json", "{\"peripherals\": [\xff\xfe]}")});
     },
     2, "invalid JSON", [](const std::string&, const std::string& out) { EXPECT_TRUE(IsJson(out)) << out; }},
    {"ShowJsonOfAFileNameThatIsNotUtf8",
     [](const std::string& dir) {
       return Pcfg({"show", "--format", "json", Put(dir, "na\xefve.txtpb", kClean)});
     },
     0, "\"file\"", [](const std::string&, const std::string& out) { EXPECT_TRUE(IsJson(out)) << out; }},
    // ---- outputs that are not plain files ----
    {"FifoIsWrittenThrough",
     [](const std::string& dir) {
       ::mkfifo((dir + "/out.fifo").c_str(), 0644);
       return "cat " + Quote(dir + "/out.fifo") + " > " + Quote(dir + "/got") + " & " +
              Pcfg({"compile", Put(dir, "in.txtpb", kClean), "-o", dir + "/out.fifo"}) + "; wait";
     },
     0, "wrote",
     [](const std::string& dir, const std::string&) {
       EXPECT_EQ(TypeOf(dir + "/out.fifo"), static_cast<mode_t>(S_IFIFO));
       EXPECT_EQ(ReadFile(dir + "/got"), CompiledClean(Room("fifo-expected")));
     }},
    {"CharacterDeviceIsWrittenThrough",
     [](const std::string& dir) {
       ::mknod((dir + "/null").c_str(), S_IFCHR | 0666, makedev(1, 3));
       return Pcfg({"compile", Put(dir, "in.txtpb", kClean), "-o", dir + "/null"});
     },
     0, "wrote",
     [](const std::string& dir, const std::string&) {
       EXPECT_EQ(TypeOf(dir + "/null"), static_cast<mode_t>(S_IFCHR));
     },
     true},
    {"DevStdoutIsWrittenThrough",
     [](const std::string& dir) {
       return Pcfg({"compile", Put(dir, "in.txtpb", kClean), "-o", "/dev/stdout"});
     },
     0, "wrote /dev/stdout",
     [](const std::string&, const std::string& out) {
       EXPECT_EQ(out, CompiledClean(Room("stdout-expected")));
     }},
    {"SymbolicLinkLeadsToItsTarget",
     [](const std::string& dir) {
       Put(dir, "target.binpb", "old");
       ::symlink("target.binpb", (dir + "/link.binpb").c_str());
       return Pcfg({"compile", Put(dir, "in.txtpb", kClean), "-o", dir + "/link.binpb"});
     },
     0, "wrote",
     [](const std::string& dir, const std::string&) {
       EXPECT_EQ(TypeOf(dir + "/link.binpb"), static_cast<mode_t>(S_IFLNK));
       EXPECT_EQ(ReadFile(dir + "/target.binpb"), CompiledClean(Room("link-expected")));
     }},
    {"DanglingSymbolicLinkCreatesItsTarget",
     [](const std::string& dir) {
       ::symlink((dir + "/made.binpb").c_str(), (dir + "/dangling.binpb").c_str());  // an absolute target
       return Pcfg({"compile", Put(dir, "in.txtpb", kClean), "-o", dir + "/dangling.binpb"});
     },
     0, "wrote",
     [](const std::string& dir, const std::string&) {
       EXPECT_EQ(TypeOf(dir + "/dangling.binpb"), static_cast<mode_t>(S_IFLNK));
       EXPECT_EQ(TypeOf(dir + "/made.binpb"), static_cast<mode_t>(S_IFREG));
     }},
    {"RelativeOutputNameInTheWorkingFolder",
     [](const std::string& dir) {
       Put(dir, "in.txtpb", kClean);
       return "cd " + Quote(dir) + " && " + Pcfg({"compile", "in.txtpb", "-o", "out.binpb"});
     },
     0, "wrote out.binpb",
     [](const std::string& dir, const std::string&) { EXPECT_EQ(TypeOf(dir + "/out.binpb"), S_IFREG); }},
    {"StandardErrorByName",
     [](const std::string& dir) {
       return Pcfg({"compile", Put(dir, "in.txtpb", kClean), "-o", "/dev/stderr"});
     },
     0,
     "\x52\x08\x0a\x04"
     "fpga"},  // the compiled bytes
    {"DescriptorThatIsNotOpenAsOutput",
     [](const std::string& dir) {
       return Pcfg({"compile", Put(dir, "in.txtpb", kClean), "-o", "/dev/fd/9"}) + " 9>&-";
     },
     2, "/dev/fd/9: error: cannot write: Bad file descriptor"},
    {"OutputInsideAFile",
     [](const std::string& dir) {
       return Pcfg({"compile", Put(dir, "in.txtpb", kClean), "-o", Put(dir, "plain", "") + "/out.binpb"});
     },
     2, "plain/out.binpb: error: cannot write: Not a directory"},
    {"DeviceWithoutADriverAsOutput",
     [](const std::string& dir) {
       ::mknod((dir + "/nodriver").c_str(), S_IFCHR | 0666, makedev(240, 250));  // a number left unassigned
       return Pcfg({"compile", Put(dir, "in.txtpb", kClean), "-o", dir + "/nodriver"});
     },
     2, "nodriver: error: cannot open: No such device or address", nullptr, true},
    {"ReadOnlyOutputIsRefused",
     [](const std::string& dir) {
       ::chmod(Put(dir, "ro.binpb", "precious").c_str(), 0444);
       return Pcfg({"compile", Put(dir, "in.txtpb", kClean), "-o", dir + "/ro.binpb"});
     },
     2, "ro.binpb: error: is read-only; left as it was (--force replaces it)",
     [](const std::string& dir, const std::string&) { EXPECT_EQ(ReadFile(dir + "/ro.binpb"), "precious"); }},
    {"ReadOnlyOutputIsReplacedUnderForceKeepingItsMode",
     [](const std::string& dir) {
       ::chmod(Put(dir, "ro.binpb", "precious").c_str(), 0444);
       return Pcfg({"compile", "--force", Put(dir, "in.txtpb", kClean), "-o", dir + "/ro.binpb"});
     },
     0, "wrote",
     [](const std::string& dir, const std::string&) {
       struct stat info;
       ASSERT_EQ(::stat((dir + "/ro.binpb").c_str(), &info), 0);
       EXPECT_EQ(info.st_mode & 07777, 0444u);
       EXPECT_NE(ReadFile(dir + "/ro.binpb"), "precious");
     }},
    {"FmtInPlaceRefusesReadOnlyFiles",
     [](const std::string& dir) {
       ::chmod(Put(dir, "ro.txtpb", "peripherals{id:\"x\"}").c_str(), 0444);
       return Pcfg({"fmt", "-i", dir + "/ro.txtpb"});
     },
     2, "is read-only",
     [](const std::string& dir, const std::string&) {
       EXPECT_EQ(ReadFile(dir + "/ro.txtpb"), "peripherals{id:\"x\"}");
     }},
    {"FmtInPlaceKeepsTheOwner",
     [](const std::string& dir) {
       const std::string file = Put(dir, "owned.txtpb", "peripherals{id:\"x\"}");
       if (::chown(file.c_str(), 65534, 65534) != 0) return std::string("false");
       return Pcfg({"fmt", "-i", file});
     },
     0, "formatted",
     [](const std::string& dir, const std::string&) {
       struct stat info;
       ASSERT_EQ(::stat((dir + "/owned.txtpb").c_str(), &info), 0);
       EXPECT_EQ(info.st_uid, 65534u);
       EXPECT_EQ(info.st_gid, 65534u);
     },
     true},
    {"OutputThatIsTheInputIsRefused",
     [](const std::string& dir) {
       const std::string input = Put(dir, "same.txtpb", kClean);
       ::symlink("same.txtpb", (dir + "/alias.txtpb").c_str());
       ::link(input.c_str(), (dir + "/hard.txtpb").c_str());
       std::string all;
       for (const char* output : {"same.txtpb", "alias.txtpb", "hard.txtpb"})
         all += Pcfg({"compile", input, "-o", dir + "/" + output}) + "; echo \"status $?\"; ";
       return all + "true";
     },
     0, "is also an input of this run; refusing to overwrite it",
     [](const std::string& dir, const std::string& out) {
       EXPECT_EQ(out, "status 2\nstatus 2\nstatus 2\n");
       EXPECT_EQ(ReadFile(dir + "/same.txtpb"), kClean);
     }},
    {"BlockDeviceIsNeverWritten",
     [](const std::string& dir) {
       // A loop device's number: refused before it is opened, so no disk is ever touched.
       ::mknod((dir + "/disk").c_str(), S_IFBLK | 0600, makedev(7, 250));
       return Pcfg({"compile", Put(dir, "in.txtpb", kClean), "-o", dir + "/disk"});
     },
     2, "disk: error: is a block device; pcfg does not write to disks",
     [](const std::string& dir, const std::string&) {
       EXPECT_EQ(TypeOf(dir + "/disk"), static_cast<mode_t>(S_IFBLK));
     },
     true},
    {"DirectoryAsOutput",
     [](const std::string& dir) {
       ::mkdir((dir + "/out.binpb").c_str(), 0755);
       return Pcfg({"compile", Put(dir, "in.txtpb", kClean), "-o", dir + "/out.binpb"});
     },
     2, "out.binpb: error: is a directory"},
    {"InputThroughADescriptorAsOutput",
     [](const std::string& dir) {
       const std::string input = Put(dir, "in.txtpb", kClean);
       return Pcfg({"compile", input, "-o", "/dev/fd/3"}) + " 3>>" + Quote(input);
     },
     2, "/dev/fd/3: error: is also an input",
     [](const std::string& dir, const std::string&) { EXPECT_EQ(ReadFile(dir + "/in.txtpb"), kClean); }},
    {"SymbolicLinkLoopAsOutput",
     [](const std::string& dir) {
       ::symlink("loop.binpb", (dir + "/loop.binpb").c_str());
       return Pcfg({"compile", Put(dir, "in.txtpb", kClean), "-o", dir + "/loop.binpb"});
     },
     2, "loop.binpb: error:"},
    // ---- reads and writes that fail ----
    {"FullStandardOutput",
     [](const std::string& dir) {
       ::mknod((dir + "/full").c_str(), S_IFCHR | 0666, makedev(1, 7));
       const std::string input = Put(dir, "in.txtpb", kClean);
       std::string all;
       for (const auto& args : std::vector<std::vector<std::string>>{
                {"compile", input, "-o", "-"}, {"show", input}, {"check", "--list"}, {"fmt", input}})
         all += Pcfg(args) + " > " + Quote(dir + "/full") + "; echo \"status $?\"; ";
       return all + "true";
     },
     0, "cannot write",
     [](const std::string&, const std::string& out) {
       EXPECT_EQ(out, "status 2\nstatus 2\nstatus 2\nstatus 2\n");
     },
     true},
    {"FullOutputFileKeepsThePreviousOne",
     [](const std::string& dir) {
       ::mknod((dir + "/full").c_str(), S_IFCHR | 0666, makedev(1, 7));
       return Pcfg({"compile", Put(dir, "in.txtpb", kClean), "-o", dir + "/full"});
     },
     2, "full: error: cannot write: No space left on device", nullptr, true},
    // ---- inputs that would make pcfg use too much ----
    {"InputOverTheSizeLimitIsRefusedBeforeReading",
     [](const std::string& dir) {
       ::truncate(Put(dir, "huge.binpb", "").c_str(), 100ll << 20);
       return Pcfg({"check", "--from", "binary", dir + "/huge.binpb"});
     },
     2, "huge.binpb: error: is 104857600 bytes, over the input limit of 64 MiB (--max-input-size raises it)"},
    {"EndlessStandardInputStopsAtTheLimit",
     [](const std::string&) {
       return "yes | " + Pcfg({"check", "--max-input-size", "1M", "-"});
     },
     2, "<stdin>: error: input is larger than the limit of 1 MiB"},
    // ---- outputs that go away or fill up ----
    {"ClosedPipeIsAWriteError",
     [](const std::string& dir) {
       std::string text;
       for (int i = 0; i < 3000; ++i) text += "peripherals { id: \"p" + std::to_string(i) + "\" }\n";
       const std::string binary = dir + "/big.binpb";
       std::system(
           (Pcfg({"compile", "--no-check", Put(dir, "big.txtpb", text), "-o", binary}) + " 2>/dev/null")
               .c_str());
       return "{ " + Pcfg({"decode", binary}) + "; echo $? > " + Quote(dir + "/status") +
              "; } | head -c 10 > /dev/null; exit $(cat " + Quote(dir + "/status") + ")";
     },
     2, "<stdout>: error: the reader closed the pipe; the output is cut short"},
    {"FileSizeLimitKeepsTheOldOutput",
     [](const std::string& dir) {
       const std::string binary = dir + "/headset.binpb";
       std::system((Pcfg({"compile", pcfg_test::ExamplePath("headset.txtpb"), "-o", binary}) + " 2>/dev/null")
                       .c_str());
       Put(dir, "out.txtpb", "precious");
       return "ulimit -f 8; " + Pcfg({"decode", binary, "-o", dir + "/out.txtpb"});
     },
     2, "out.txtpb: error: cannot write: File too large",
     [](const std::string& dir, const std::string&) {
       EXPECT_EQ(ReadFile(dir + "/out.txtpb"), "precious");
       EXPECT_EQ(TemporaryFilesIn(dir), 0);
     }},
    {"OutputNameAtTheFileNameLimit",
     [](const std::string& dir) {
       return Pcfg(
           {"compile", Put(dir, "clean.txtpb", kClean), "-o", dir + "/" + std::string(NAME_MAX, 'x')});
     },
     0, "wrote",
     [](const std::string& dir, const std::string&) {
       EXPECT_FALSE(ReadFile(dir + "/" + std::string(NAME_MAX, 'x')).empty());
       EXPECT_EQ(TemporaryFilesIn(dir), 0);
     }},
    {"FmtToItsOwnInputThroughStandardOutput",
     [](const std::string& dir) {
       const std::string text = Put(dir, "a.txtpb", kClean);
       return Pcfg({"fmt", text}) + " >> " + Quote(text);
     },
     2, "<stdout>: error: is also an input",
     [](const std::string& dir, const std::string&) { EXPECT_EQ(ReadFile(dir + "/a.txtpb"), kClean); }},
    {"ClosedStandardOutput",
     [](const std::string& dir) {
       return Pcfg({"decode", CompiledBinary(dir)}) + " >&-";
     },
     2, "<stdout>: error: standard output is closed"},
    // ---- system calls that fail (through the LD_PRELOAD shim): the old output stays ----
    {"FsyncFails", [](const std::string& dir) { return CompileOverPrecious(dir, "fsync"); }, 2,
     "out.binpb: error: cannot write: Input/output error", KeptPrecious},
    {"CloseReportsALateWriteError", [](const std::string& dir) { return CompileOverPrecious(dir, "close"); },
     2, "out.binpb: error: cannot write: Input/output error", KeptPrecious},
    {"RenameFails", [](const std::string& dir) { return CompileOverPrecious(dir, "rename:EXDEV"); }, 2,
     "out.binpb: error: cannot replace the file: Invalid cross-device link", KeptPrecious},
    {"DiskFullMidWrite", [](const std::string& dir) { return CompileOverPrecious(dir, "write:ENOSPC"); }, 2,
     "out.binpb: error: cannot write: No space left on device", KeptPrecious},
    {"ReadFails", [](const std::string& dir) { return CompileOverPrecious(dir, "read"); }, 2,
     "in.txtpb: error: cannot read: Input/output error", KeptPrecious},
};

// Rows are named by their names, in test listings too.
void PrintTo(const HostileCase& c, std::ostream* out) { *out << c.name; }

class HostileInput : public testing::TestWithParam<HostileCase> {};

TEST_P(HostileInput, EndsWithAStatusAndSaysWhy) {
  const HostileCase& c = GetParam();
  if (c.needs_root && ::geteuid() != 0)
    GTEST_SKIP() << c.name << " needs root (device nodes or another owner)";
  const std::string dir = Room(c.name);
  const auto run = pcfg_test::Shell(c.command(dir));
  EXPECT_EQ(run.status, c.status) << run.out << run.err;
  EXPECT_LT(run.status, 128) << "ended by a signal";
  EXPECT_NE((run.out + run.err).find(c.says), std::string::npos) << run.out << run.err;
  if (c.status == 2 && !IsJson(run.out)) {
    // Trouble is one located line: the file it is about, then what is wrong.
    const std::string all = run.out + run.err;
    size_t errors = 0;
    for (size_t at = all.find(": error: "); at != std::string::npos; at = all.find(": error: ", at + 1))
      ++errors;
    EXPECT_EQ(errors, 1u) << all;
  }
  if (c.after) c.after(dir, run.out);
}

INSTANTIATE_TEST_SUITE_P(Rows, HostileInput, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<HostileCase>& info) {
                           return std::string(info.param.name);
                         });

}  // namespace

namespace {

// Temporary files of an atomic write carry ".pcfg-" in their names.
int TemporaryFilesIn(const std::string& dir) {
  int count = 0;
  if (DIR* d = ::opendir(dir.c_str())) {
    while (dirent* entry = ::readdir(d))
      count += std::string(entry->d_name).find(".pcfg-") != std::string::npos;
    ::closedir(d);
  }
  return count;
}

TEST(HostileOutput, SignalDuringALargeWriteLeavesNoTemporaryFile) {
  const std::string dir = Room("signalled");
  // A binary configuration whose text form is large: many peripherals with long ids.
  std::string text;
  for (int i = 0; i < 100000; ++i)
    text += "peripherals { id: \"peripheral-" + std::to_string(i) + std::string(100, 'x') + "\" }\n";
  const std::string binary = dir + "/big.binpb";
  ASSERT_EQ(
      pcfg_test::Shell(Pcfg({"compile", "--no-check", Put(dir, "big.txtpb", text), "-o", binary})).status, 0);
  const std::string whole = dir + "/whole.txtpb";
  ASSERT_EQ(pcfg_test::Shell(Pcfg({"decode", binary, "-o", whole})).status, 0);
  const std::string output = Put(dir, "out.txtpb", "previous");
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
    Put(dir, "out.txtpb", "previous");
  }
}

}  // namespace
