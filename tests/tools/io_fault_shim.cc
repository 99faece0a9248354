// A test-only LD_PRELOAD library that makes one kind of system call fail, so that the tests run
// pcfg's paths for a disk that refuses fsync, a close that reports a late write error, a rename
// across file systems, a full disk mid-write and an input that cannot be read:
//
//   PCFG_IO_FAULT=CALL[:ERRNO]   CALL: fsync, close, rename, write or read; ERRNO: EIO (default),
//                                ENOSPC, EXDEV, EACCES or EDQUOT
//
// write, read and close fail only on descriptors above standard error, the files pcfg opens
// itself, so that what pcfg says still reaches standard error.
#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// The error that CALL is to fail with, or 0 when it is not the one named.
int FaultOf(const char* call) {
  const char* fault = std::getenv("PCFG_IO_FAULT");
  const size_t length = std::strlen(call);
  if (fault == nullptr || std::strncmp(fault, call, length) != 0) return 0;
  if (fault[length] == '\0') return EIO;
  if (fault[length] != ':') return 0;
  const char* name = fault + length + 1;
  static const struct {
    const char* name;
    int code;
  } kCodes[] = {{"EIO", EIO}, {"ENOSPC", ENOSPC}, {"EXDEV", EXDEV}, {"EACCES", EACCES}, {"EDQUOT", EDQUOT}};
  for (const auto& code : kCodes)
    if (std::strcmp(name, code.name) == 0) return code.code;
  return EIO;
}

template <typename Function>
Function Real(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

int fsync(int fd) {
  if (const int code = FaultOf("fsync")) return errno = code, -1;
  return Real<int (*)(int)>("fsync")(fd);
}

int close(int fd) {
  const int closed = Real<int (*)(int)>("close")(fd);
  // As a late write error does: the descriptor is gone all the same.
  if (const int code = fd > STDERR_FILENO ? FaultOf("close") : 0) return errno = code, -1;
  return closed;
}

int rename(const char* from, const char* to) {
  if (const int code = FaultOf("rename")) return errno = code, -1;
  return Real<int (*)(const char*, const char*)>("rename")(from, to);
}

ssize_t write(int fd, const void* data, size_t size) {
  if (const int code = fd > STDERR_FILENO ? FaultOf("write") : 0) return errno = code, -1;
  return Real<ssize_t (*)(int, const void*, size_t)>("write")(fd, data, size);
}

ssize_t read(int fd, void* data, size_t size) {
  if (const int code = fd > STDERR_FILENO ? FaultOf("read") : 0) return errno = code, -1;
  return Real<ssize_t (*)(int, void*, size_t)>("read")(fd, data, size);
}

}  // extern "C"
