// Helpers for the pcfg tests: parsing text in memory, and running the pcfg binary the way a
// user does, with its exit status and both output streams.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "loader.h"

namespace pcfg_test {

inline pcfg::LoadedConfig ParseText(const std::string& text) {
  pcfg::LoadedConfig loaded;
  std::vector<pcfg::Diagnostic> diagnostics;
  if (!pcfg::ParseConfig("test.txtpb", pcfg::Format::kText, text, &loaded, &diagnostics))
    throw std::runtime_error("fixture does not parse: " +
                             (diagnostics.empty() ? "" : diagnostics[0].message));
  return loaded;
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

inline std::string Quote(const std::string& argument) {
  std::string quoted = "'";
  for (char c : argument) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

// Runs pcfg with ARGS (and STDIN_TEXT on its standard input).
inline Run Pcfg(const std::vector<std::string>& args, const std::string& stdin_text = "") {
  const std::string dir = ScratchDir();
  const std::string in = dir + "/stdin", out = dir + "/stdout", err = dir + "/stderr";
  WriteFile(in, stdin_text);
  std::string command = Quote(PCFG_BINARY);
  for (const std::string& arg : args) command += " " + Quote(arg);
  command += " <" + Quote(in) + " >" + Quote(out) + " 2>" + Quote(err);
  const int raw = std::system(command.c_str());
  Run run;
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  run.out = ReadFile(out);
  run.err = ReadFile(err);
  return run;
}

inline std::string ExamplePath(const std::string& name) {
  return std::string(PCFG_SOURCE_DIR) + "/examples/" + name;
}

}  // namespace pcfg_test
