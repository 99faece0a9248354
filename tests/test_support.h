// Helpers shared by the contract tests: hex byte strings and capture of the runtime's log.
#pragma once

#include <google/protobuf/stubs/logging.h>

#include <cctype>
#include <cstdio>
#include <string>
#include <vector>

namespace pctest {

// "08 04 6A 00" -> the four bytes; spaces are ignored.
inline std::string Bytes(const std::string& hex) {
  std::string out;
  int high = -1;
  for (char c : hex) {
    if (std::isspace(static_cast<unsigned char>(c))) continue;
    int nibble = std::isdigit(static_cast<unsigned char>(c)) ? c - '0' : std::tolower(c) - 'a' + 10;
    if (high < 0) {
      high = nibble;
    } else {
      out.push_back(static_cast<char>(high << 4 | nibble));
      high = -1;
    }
  }
  return out;
}

inline std::string Hex(const std::string& bytes) {
  std::string out;
  char buf[4];
  for (unsigned char c : bytes) {
    std::snprintf(buf, sizeof buf, "%s%02X", out.empty() ? "" : " ", c);
    out += buf;
  }
  return out;
}

// Collects what the protobuf runtime logs while it is alive.
class LogCapture {
 public:
  LogCapture() {
    Lines().clear();
    previous_ = google::protobuf::SetLogHandler(&LogCapture::Handle);
  }
  ~LogCapture() { google::protobuf::SetLogHandler(previous_); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::string All() const {
    std::string all;
    for (const std::string& line : Lines()) all += line + "\n";
    return all;
  }

 private:
  static std::vector<std::string>& Lines() {
    static std::vector<std::string> lines;
    return lines;
  }
  static void Handle(google::protobuf::LogLevel, const char*, int, const std::string& message) {
    Lines().push_back(message);
  }
  google::protobuf::LogHandler* previous_;
};

}  // namespace pctest
