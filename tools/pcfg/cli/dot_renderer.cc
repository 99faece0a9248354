#include "dot_renderer.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "posix_file.h"

extern char** environ;

namespace pcfg::cli {
namespace {

// Starts `dot -TFORMAT` reading STDIN_FD and writing STDOUT_FD; returns posix_spawnp's status.
int SpawnDot(const std::string& format, int stdin_fd, int stdout_fd, pid_t* pid) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, stdin_fd, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, stdout_fd, STDOUT_FILENO);
  std::string type = "-T" + format;
  char program[] = "dot";
  char* argv[] = {program, type.data(), nullptr};
  const int status = ::posix_spawnp(pid, program, &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  return status;
}

// Writes DOT into FEED while reading RESULT into IMAGE, serving both pipes together so that
// neither side can block on a full pipe. Returns how many bytes of DOT were written.
size_t Exchange(const std::string& dot, Descriptor& feed, Descriptor& result, std::string* image) {
  // A dot that quits early must not kill us with SIGPIPE; the write fails with EPIPE instead.
  struct sigaction ignore = {}, previous = {};
  ignore.sa_handler = SIG_IGN;
  ::sigaction(SIGPIPE, &ignore, &previous);
  ::fcntl(feed.get(), F_SETFL, O_NONBLOCK);
  size_t written = 0;
  if (dot.empty()) feed.Close();
  char buffer[65536];
  while (result.get() >= 0) {
    pollfd fds[2] = {{result.get(), POLLIN, 0}, {feed.get(), POLLOUT, 0}};
    if (::poll(fds, feed.get() >= 0 ? 2 : 1, -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    if (feed.get() >= 0 && fds[1].revents != 0) {
      const ssize_t n = ::write(feed.get(), dot.data() + written, dot.size() - written);
      if (n > 0) written += static_cast<size_t>(n);
      if ((n < 0 && errno != EAGAIN && errno != EINTR) || written == dot.size()) feed.Close();
    }
    if (fds[0].revents != 0) {
      const ssize_t n = ::read(result.get(), buffer, sizeof buffer);
      if (n > 0)
        image->append(buffer, static_cast<size_t>(n));
      else if (n == 0 || (errno != EAGAIN && errno != EINTR))
        result.Close();
    }
  }
  feed.Close();
  ::sigaction(SIGPIPE, &previous, nullptr);
  return written;
}

}  // namespace

Render RenderWithDot(const std::string& dot, const std::string& format, std::string* image,
                     std::string* error) {
  int to_child[2], from_child[2];
  if (::pipe2(to_child, O_CLOEXEC) != 0) return *error = std::strerror(errno), Render::kFailed;
  Descriptor child_in(to_child[0]), feed(to_child[1]);
  if (::pipe2(from_child, O_CLOEXEC) != 0) return *error = std::strerror(errno), Render::kFailed;
  Descriptor result(from_child[0]), child_out(from_child[1]);

  pid_t pid = 0;
  const int spawned = SpawnDot(format, child_in.get(), child_out.get(), &pid);
  if (spawned == ENOENT) return Render::kNoDot;
  if (spawned != 0) return *error = std::string("cannot run dot: ") + std::strerror(spawned), Render::kFailed;
  child_in.Close();
  child_out.Close();
  const size_t written = Exchange(dot, feed, result, image);

  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  const bool succeeded = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  if (succeeded && written == dot.size()) return Render::kOk;
  if (succeeded) {
    *error = "dot ended before reading all of the graph (" + std::to_string(written) + " of " +
             std::to_string(dot.size()) + " bytes)";
  } else {
    *error = WIFEXITED(status) ? "dot failed with exit status " + std::to_string(WEXITSTATUS(status))
                               : std::string("dot was killed");
  }
  return Render::kFailed;
}

}  // namespace pcfg::cli
