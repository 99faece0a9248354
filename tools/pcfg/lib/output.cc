#include "output.h"

#include <fcntl.h>
#include <google/protobuf/util/json_util.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <vector>

namespace pcfg {

std::string SerializeConfig(const Config& config, Format format) {
  switch (format) {
    case Format::kText: {
      std::string text;
      google::protobuf::TextFormat::PrintToString(config, &text);
      return kTextHeader + text;
    }
    case Format::kJson: {
      google::protobuf::util::JsonPrintOptions options;
      options.add_whitespace = true;
      options.preserve_proto_field_names = true;
      std::string json;
      (void)google::protobuf::util::MessageToJsonString(config, &json, options);
      if (json.empty() || json.back() != '\n') json += '\n';
      return json;
    }
    case Format::kBinary:
      return config.SerializeAsString();
  }
  return "";
}

namespace {

bool WriteAll(int fd, const std::string& bytes) {
  size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    written += static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

bool WriteFileAtomically(const std::string& path, const std::string& bytes, std::string* error) {
  if (path == "-") {
    std::cout.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    std::cout.flush();
    if (!std::cout) *error = "cannot write to standard output";
    return static_cast<bool>(std::cout);
  }
  std::vector<char> temp_name(path.begin(), path.end());
  const char suffix[] = ".pcfg-XXXXXX";
  temp_name.insert(temp_name.end(), suffix, suffix + sizeof suffix);  // with the terminating NUL
  const int fd = ::mkstemp(temp_name.data());
  if (fd < 0) {
    *error = std::string("cannot create a temporary file beside it: ") + std::strerror(errno);
    return false;
  }
  // Keep the permissions of the file being replaced; new files get the usual 0666 & ~umask.
  struct stat existing;
  if (::stat(path.c_str(), &existing) == 0) {
    ::fchmod(fd, existing.st_mode & 07777);
  } else {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    ::fchmod(fd, 0666 & ~mask);
  }
  const bool ok = WriteAll(fd, bytes) && ::fsync(fd) == 0;
  const int saved = errno;
  if (::close(fd) != 0 || !ok) {
    *error = std::string("cannot write: ") + std::strerror(ok ? errno : saved);
    ::unlink(temp_name.data());
    return false;
  }
  if (::rename(temp_name.data(), path.c_str()) != 0) {
    *error = std::string("cannot replace the file: ") + std::strerror(errno);
    ::unlink(temp_name.data());
    return false;
  }
  return true;
}

}  // namespace pcfg
