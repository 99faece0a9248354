// Writing outputs: plain files replaced atomically, everything else written through.
#include <fcntl.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl.h>
#include <sys/stat.h>

#include <climits>
#include <csignal>
#include <iostream>

#include "file_io.h"
#include "posix_file.h"

namespace pcfg {
namespace {

// ---- the temporary file that a signal must not leave behind ----

char g_temporary[4096];
volatile std::sig_atomic_t g_have_temporary = 0;

constexpr int kCleanedUpSignals[] = {SIGINT, SIGTERM, SIGHUP};
constexpr size_t kNameMax = NAME_MAX;

// Whether standard output was closed when pcfg started (its descriptor then holds /dev/null,
// read-only, so that no file opened later takes its place).
bool g_standard_output_closed = false;

void OnSignal(int signal) {
  if (g_have_temporary) ::unlink(g_temporary);
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

// Holds back the signals that clean up while the temporary file comes into being, so
// none lands after the file exists but before the handler knows its name.
class SignalsHeld {
 public:
  SignalsHeld() {
    sigset_t held;
    sigemptyset(&held);
    for (int signal : kCleanedUpSignals) sigaddset(&held, signal);
    ::pthread_sigmask(SIG_BLOCK, &held, &before_);
  }
  ~SignalsHeld() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;

 private:
  sigset_t before_;
};

class TemporaryFile {
 public:
  // Creates DIRECTORY/.NAME.pcfg-XXXXXX; fd() is negative on failure.
  TemporaryFile(const std::string& directory, const std::string& name) {
    // A name near the file-name limit leaves no room for the marks around it: the temporary name
    // keeps as much of it as fits, and the random part keeps it unique.
    constexpr size_t kMarks = std::string_view(".").size() + std::string_view(".pcfg-XXXXXX").size();
    const size_t fits = kNameMax > kMarks ? kNameMax - kMarks : 0;
    const std::string pattern = directory + "/." + name.substr(0, fits) + ".pcfg-XXXXXX";
    if (pattern.size() >= sizeof g_temporary) {
      errno = ENAMETOOLONG;
      return;
    }
    const SignalsHeld held;
    std::memcpy(g_temporary, pattern.c_str(), pattern.size() + 1);
    fd_ = ::mkostemp(g_temporary, O_CLOEXEC);
    if (fd_ >= 0) {
      path_ = g_temporary;
      g_have_temporary = 1;
    }
  }
  ~TemporaryFile() {
    if (fd_ >= 0) ::close(fd_);
    if (!path_.empty()) ::unlink(path_.c_str());
    g_have_temporary = 0;
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  int fd() const { return fd_; }
  bool Close() {
    const int fd = fd_;
    fd_ = -1;
    return ::close(fd) == 0;
  }
  // Renames the file to TARGET; from then on it is no longer temporary.
  bool RenameTo(const std::string& target) {
    if (::rename(path_.c_str(), target.c_str()) != 0) return false;
    g_have_temporary = 0;
    path_.clear();
    return true;
  }

 private:
  int fd_ = -1;
  std::string path_;
};

// ---- where a path leads ----

std::string DirectoryOf(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string BaseNameOf(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// /dev/stdout, /dev/fd/1, /proc/self/fd/1 and the like: the descriptor they name, or -1.
int NamedDescriptor(const std::string& path) {
  if (path == "-" || path == "/dev/stdout") return STDOUT_FILENO;
  if (path == "/dev/stderr") return STDERR_FILENO;
  for (const char* prefix : {"/dev/fd/", "/proc/self/fd/"}) {
    const std::string start(prefix);
    if (path.compare(0, start.size(), start) != 0 || path.size() == start.size()) continue;
    const std::string number = path.substr(start.size());
    if (number.find_first_not_of("0123456789") != std::string::npos || number.size() > 6) return -1;
    return std::stoi(number);
  }
  return -1;
}

// Follows symbolic links (also dangling ones) to the path they end at, or to a path that names
// one of this process's descriptors (/dev/stdout leads through /proc to a pipe's pseudo-name).
bool FollowLinks(std::string path, std::string* target, std::string* error) {
  for (int hops = 0; hops < 40; ++hops) {
    struct stat info;
    if (NamedDescriptor(path) >= 0 || ::lstat(path.c_str(), &info) != 0 || !S_ISLNK(info.st_mode)) {
      *target = path;
      return true;
    }
    std::string link(static_cast<size_t>(info.st_size > 0 ? info.st_size : 4096) + 1, '\0');
    const ssize_t n = ::readlink(path.c_str(), link.data(), link.size());
    if (n < 0) {
      *error = SystemError("cannot read the symbolic link");
      return false;
    }
    link.resize(static_cast<size_t>(n));
    path = link.front() == '/' ? link : DirectoryOf(path) + "/" + link;
  }
  *error = "too many levels of symbolic links";
  return false;
}

bool SameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Refuses to write over a file this run reads.
bool IsAnInput(const struct stat& output, const std::vector<std::string>& inputs) {
  for (const std::string& input : inputs) {
    struct stat info;
    const bool known = input == "-" ? ::fstat(STDIN_FILENO, &info) == 0 : ::stat(input.c_str(), &info) == 0;
    if (known && S_ISREG(info.st_mode) && SameFile(info, output)) return true;
  }
  return false;
}

// Runs PRODUCE into a stream over FD and flushes it; false with the reason when either fails.
bool Produce(int fd, const Producer& produce, std::string* error) {
  google::protobuf::io::FileOutputStream stream(fd);
  std::string reason;
  const bool produced = produce(&stream, &reason);
  if (stream.Flush() && produced) return true;
  errno = stream.GetErrno();
  *error = errno == EPIPE ? "the reader closed the pipe; the output is cut short"
           : errno != 0   ? SystemError("cannot write")
                          : reason;
  return false;
}

bool WriteThrough(int fd, const Producer& produce, std::string* error) {
  if (fd == STDOUT_FILENO) std::cout.flush();
  if (fd == STDERR_FILENO) std::cerr.flush();
  return Produce(fd, produce, error);
}

bool ReplaceAtomically(const std::string& target, const struct stat* existing, const Producer& produce,
                       std::string* error) {
  TemporaryFile temporary(DirectoryOf(target), BaseNameOf(target));
  if (temporary.fd() < 0) {
    *error = SystemError("cannot create a temporary file in " + DirectoryOf(target));
    return false;
  }
  if (existing != nullptr) {
    // Ownership first: changing it may clear the set-id bits that the mode then restores.
    if (::fchown(temporary.fd(), existing->st_uid, existing->st_gid) != 0)
      (void)!::fchown(temporary.fd(), static_cast<uid_t>(-1), existing->st_gid);
    ::fchmod(temporary.fd(), existing->st_mode & 07777);
  } else {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    ::fchmod(temporary.fd(), 0666 & ~mask);
  }
  if (!Produce(temporary.fd(), produce, error)) return false;
  if (::fsync(temporary.fd()) != 0) {
    *error = SystemError("cannot write");
    return false;
  }
  if (!temporary.Close()) {
    *error = SystemError("cannot write");
    return false;
  }
  if (!temporary.RenameTo(target)) {
    *error = SystemError("cannot replace the file");
    return false;
  }
  return true;
}

}  // namespace

bool WriteOutput(const std::string& path, std::string_view bytes, const OutputPolicy& policy,
                 std::string* error) {
  return WriteOutput(
      path,
      [bytes](google::protobuf::io::ZeroCopyOutputStream* out, std::string*) {
        google::protobuf::io::CodedOutputStream coded(out);
        coded.WriteRaw(bytes.data(), static_cast<int>(bytes.size()));
        return !coded.HadError();
      },
      policy, error);
}

bool WriteOutput(const std::string& path, const Producer& produce, const OutputPolicy& policy,
                 std::string* error) {
  std::string target;
  if (!FollowLinks(path, &target, error)) return false;
  const int named = NamedDescriptor(target);
  if (named == STDOUT_FILENO && g_standard_output_closed) {
    *error = "standard output is closed";
    return false;
  }
  if (named >= 0) {
    struct stat info;
    if (::fstat(named, &info) != 0) {
      *error = SystemError("cannot write");
      return false;
    }
    if (S_ISREG(info.st_mode) && IsAnInput(info, policy.inputs)) {
      *error = "is also an input of this run; refusing to overwrite it";
      return false;
    }
    return WriteThrough(named, produce, error);
  }

  struct stat info;
  if (::stat(target.c_str(), &info) != 0) {
    if (errno != ENOENT) {
      *error = SystemError("cannot write");
      return false;
    }
    return ReplaceAtomically(target, nullptr, produce, error);
  }
  if (S_ISDIR(info.st_mode)) {
    *error = "is a directory";
    return false;
  }
  if (S_ISBLK(info.st_mode)) {
    *error = "is a block device; pcfg does not write to disks";
    return false;
  }
  if (!S_ISREG(info.st_mode)) {
    // A terminal, FIFO, socket or device such as /dev/null: write into it, never replace it.
    Descriptor fd(::open(target.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY));
    if (fd.get() < 0) {
      *error = SystemError("cannot open");
      return false;
    }
    if (!WriteThrough(fd.get(), produce, error)) return false;
    if (!fd.Close()) {
      *error = SystemError("cannot write");
      return false;
    }
    return true;
  }
  if (IsAnInput(info, policy.inputs)) {
    *error = "is also an input of this run; refusing to overwrite it";
    return false;
  }
  if (!policy.replace_read_only && ((info.st_mode & 0222) == 0 || ::access(target.c_str(), W_OK) != 0)) {
    *error = "is read-only; left as it was (--force replaces it)";
    return false;
  }
  return ReplaceAtomically(target, &info, produce, error);
}

void RemoveTemporaryFilesOnSignals() {
  struct sigaction action = {};
  action.sa_handler = OnSignal;
  sigemptyset(&action.sa_mask);
  for (int signal : kCleanedUpSignals) ::sigaction(signal, &action, nullptr);
  // A reader that goes away (pcfg decode x | head) and a file-size limit make the write fail
  // with EPIPE or EFBIG, so that pcfg says so, removes its temporary file and exits with 2,
  // instead of dying of the signal.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
}

void ReserveStandardDescriptors() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (::fcntl(fd, F_GETFD) != -1 || errno != EBADF) continue;
    const int held = ::open("/dev/null", fd == STDIN_FILENO ? O_RDONLY : O_RDONLY | O_CLOEXEC);
    if (held >= 0 && held != fd) {
      ::dup2(held, fd);
      ::close(held);
    }
    if (fd == STDOUT_FILENO) g_standard_output_closed = true;
  }
}

}  // namespace pcfg
