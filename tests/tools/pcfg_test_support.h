// Helpers for the pcfg tests: parsing text in memory, and running the pcfg binary the way a
// user does, with its exit status and both output streams.
#pragma once

#include <dirent.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "loader.h"
#include "serialize.h"

namespace pcfg_test {

inline pcfg::LoadedConfig ParseText(const std::string& text) {
  pcfg::LoadedConfig loaded;
  std::vector<pcfg::Diagnostic> diagnostics;
  if (!pcfg::ParseConfig("test.txtpb", pcfg::Format::kText, text, &loaded, &diagnostics))
    throw std::runtime_error("fixture does not parse: " +
                             (diagnostics.empty() ? "" : diagnostics[0].message));
  return loaded;
}

// CONFIG in FORMAT, which for a configuration that parsed cannot fail.
inline std::string Serialized(const pcfg::Config& config, pcfg::Format format) {
  std::string bytes, error;
  if (!pcfg::SerializeConfig(config, format, &bytes, &error)) throw std::runtime_error(error);
  return bytes;
}

inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream content;
  content << in.rdbuf();
  return content.str();
}

inline void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

struct Run {
  int status = -1;
  std::string out;
  std::string err;
};

// A fresh scratch directory per test binary run.
inline std::string ScratchDir() {
  static const std::string dir = [] {
    char pattern[] = "/tmp/pcfg-test-XXXXXX";
    const char* made = mkdtemp(pattern);
    return std::string(made ? made : "/tmp");
  }();
  return dir;
}

// NAME inside the scratch directory, and a file written there with CONTENT.
inline std::string Scratch(const std::string& name) { return ScratchDir() + "/" + name; }
inline std::string Written(const std::string& name, const std::string& content) {
  WriteFile(Scratch(name), content);
  return Scratch(name);
}

inline std::string Quote(const std::string& argument) {
  std::string quoted = "'";
  for (char c : argument) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

// The shell words that run pcfg with ARGS.
inline std::string PcfgCommandLine(const std::vector<std::string>& args) {
  std::string command = Quote(PCFG_BINARY);
  for (const std::string& arg : args) command += " " + Quote(arg);
  return command;
}

// Runs a shell COMMAND (which may redirect its own standard input) and collects its exit status
// (-1 when a signal ended it) and both output streams.
inline Run Shell(const std::string& command) {
  const std::string out = Scratch("stdout"), err = Scratch("stderr");
  const int raw = std::system(("{ " + command + "; } >" + Quote(out) + " 2>" + Quote(err)).c_str());
  Run run;
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  run.out = ReadFile(out);
  run.err = ReadFile(err);
  return run;
}

// Runs pcfg with ARGS and STDIN_TEXT on its standard input.
inline Run Pcfg(const std::vector<std::string>& args, const std::string& stdin_text = "") {
  return Shell(PcfgCommandLine(args) + " <" + Quote(Written("stdin", stdin_text)));
}

// Temporary files of an atomic write carry ".pcfg-" in their names.
inline int TemporaryFilesIn(const std::string& dir) {
  int count = 0;
  if (DIR* d = ::opendir(dir.c_str())) {
    while (dirent* entry = ::readdir(d))
      count += std::string(entry->d_name).find(".pcfg-") != std::string::npos;
    ::closedir(d);
  }
  return count;
}

// COUNT peripherals p0 -> p1 -> ... -> p(COUNT-1), each also depending on p0: one group of
// mutual dependencies with COUNT - 1 cycles through p0.
inline std::string ChainBackToFirst(int count) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    text += "peripherals { id: \"p" + std::to_string(i) + "\"";
    if (i + 1 < count) text += " dependencies { peripheral_id: \"p" + std::to_string(i + 1) + "\" }";
    if (i > 0) text += " dependencies { peripheral_id: \"p0\" }";
    text += " }\n";
  }
  return text;
}

inline std::string ExamplePath(const std::string& name) {
  return std::string(PCFG_SOURCE_DIR) + "/examples/" + name;
}

}  // namespace pcfg_test
