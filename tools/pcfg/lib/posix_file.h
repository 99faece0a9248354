// What code that works with file descriptors shares: a descriptor closed on scope exit, and
// errno as words.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace pcfg {

inline std::string SystemError(const std::string& what) { return what + ": " + std::strerror(errno); }

// Closes a descriptor on scope exit, unless it was closed before (get() is then -1). The
// standard streams are never closed.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ > STDERR_FILENO) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }
  // Closes now, reporting a failed close (which can be where a write error shows).
  bool Close() {
    const int fd = fd_;
    fd_ = -1;
    return fd <= STDERR_FILENO || ::close(fd) == 0;
  }

 private:
  int fd_;
};

}  // namespace pcfg
