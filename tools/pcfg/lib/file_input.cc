// Reading inputs: whole, once, within a size limit.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <limits>

#include "file_io.h"
#include "posix_file.h"

namespace pcfg {
namespace {

std::string Describe(uint64_t bytes) {
  if (bytes >= (1ull << 20) && bytes % (1ull << 20) == 0) return std::to_string(bytes >> 20) + " MiB";
  return std::to_string(bytes) + " bytes";
}

bool ReadAll(int fd, uint64_t expected, uint64_t max_bytes, std::string* content, std::string* error) {
  content->clear();
  // One more byte than the limit tells a stream that is too long from one that just fits.
  const uint64_t reserve = std::min<uint64_t>(expected, max_bytes) + 1;
  content->resize(static_cast<size_t>(std::max<uint64_t>(reserve, 64 * 1024)));
  size_t used = 0;
  while (true) {
    if (used == content->size()) {
      if (used > max_bytes) break;
      content->resize(std::min<size_t>(content->size() * 2, static_cast<size_t>(max_bytes) + 1));
    }
    const ssize_t n = ::read(fd, content->data() + used, content->size() - used);
    if (n < 0) {
      if (errno == EINTR) continue;
      *error = SystemError("cannot read");
      return false;
    }
    if (n == 0) break;
    used += static_cast<size_t>(n);
  }
  if (used > max_bytes) {
    *error = "input is larger than the limit of " + Describe(max_bytes) + " (--max-input-size raises it)";
    return false;
  }
  content->resize(used);
  return true;
}

}  // namespace

bool ReadInput(const std::string& path, uint64_t max_bytes, std::string* content, std::string* error) {
  const bool from_stdin = path == "-";
  Descriptor fd(from_stdin ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
  if (fd.get() < 0) {
    *error = SystemError("cannot open");
    return false;
  }
  struct stat info;
  if (::fstat(fd.get(), &info) != 0) {
    *error = SystemError("cannot read");
    return false;
  }
  if (S_ISDIR(info.st_mode)) {
    *error = from_stdin ? "standard input is a directory" : "is a directory";
    return false;
  }
  const uint64_t size = S_ISREG(info.st_mode) ? static_cast<uint64_t>(info.st_size) : 0;
  if (size > max_bytes) {
    *error = "is " + std::to_string(size) + " bytes, over the input limit of " + Describe(max_bytes) +
             " (--max-input-size raises it)";
    return false;
  }
  return ReadAll(fd.get(), size, max_bytes, content, error);
}

bool ParseByteSize(const std::string& text, uint64_t* bytes) {
  if (text.empty() || !std::isdigit(static_cast<unsigned char>(text[0]))) return false;
  size_t end = 0;
  unsigned long long value = 0;
  try {
    value = std::stoull(text, &end);
  } catch (const std::exception&) {
    return false;
  }
  std::string unit = text.substr(end);
  if (!unit.empty() && (unit.back() == 'B' || unit.back() == 'b')) unit.pop_back();
  if (unit.size() == 2 && (unit[1] == 'i' || unit[1] == 'I')) unit.pop_back();
  int shift = 0;
  if (unit.size() == 1) {
    switch (std::tolower(static_cast<unsigned char>(unit[0]))) {
      case 'k':
        shift = 10;
        break;
      case 'm':
        shift = 20;
        break;
      case 'g':
        shift = 30;
        break;
      default:
        return false;
    }
  } else if (!unit.empty()) {
    return false;
  }
  if (value > (std::numeric_limits<uint64_t>::max() >> shift)) return false;
  *bytes = static_cast<uint64_t>(value) << shift;
  return true;
}

}  // namespace pcfg
