// pcfg graph: the peripheral topology as Graphviz DOT, or rendered to SVG or PNG by dot(1).
#include "graph.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>
#include <memory>

#include "common.h"

extern char** environ;

namespace pcfg::cli {
namespace {

struct GraphOptions {
  std::string input;
  std::string output = "-";
  std::string from;
};

bool EndsWithIgnoringCase(const std::string& text, const std::string& suffix) {
  if (text.size() < suffix.size()) return false;
  for (size_t i = 0; i < suffix.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(text[text.size() - suffix.size() + i])) != suffix[i])
      return false;
  return true;
}

// "svg", "png", or "" for DOT itself.
std::string ImageFormatFor(const std::string& path) {
  if (EndsWithIgnoringCase(path, ".svg")) return "svg";
  if (EndsWithIgnoringCase(path, ".png")) return "png";
  return "";
}

enum class Render { kOk, kNoDot, kFailed };

// Closes a descriptor once, on scope exit or when asked.
class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  ~Fd() { Close(); }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }
  void Close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

 private:
  int fd_;
};

// Feeds DOT to `dot -TFORMAT` and collects what it prints. Both pipes are served together so
// that neither side can block on a full pipe; dot's own messages go to our stderr.
Render RunDot(const std::string& dot, const std::string& format, std::string* image, std::string* error) {
  int to_child[2], from_child[2];
  if (::pipe2(to_child, O_CLOEXEC) != 0) return *error = std::strerror(errno), Render::kFailed;
  Fd child_in(to_child[0]), feed(to_child[1]);
  if (::pipe2(from_child, O_CLOEXEC) != 0) return *error = std::strerror(errno), Render::kFailed;
  Fd result(from_child[0]), child_out(from_child[1]);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, child_in.get(), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, child_out.get(), STDOUT_FILENO);
  std::string type = "-T" + format;
  char program[] = "dot";
  char* argv[] = {program, type.data(), nullptr};
  pid_t pid = 0;
  const int spawned = ::posix_spawnp(&pid, program, &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned == ENOENT) return Render::kNoDot;
  if (spawned != 0) return *error = std::string("cannot run dot: ") + std::strerror(spawned), Render::kFailed;
  child_in.Close();
  child_out.Close();

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

  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0 && written == dot.size()) return Render::kOk;
  *error = WIFEXITED(status) ? "dot failed with exit status " + std::to_string(WEXITSTATUS(status))
                             : std::string("dot was killed");
  return Render::kFailed;
}

int RunGraph(const GraphOptions& options) {
  LoadedConfig loaded;
  if (!LoadOrReport(options.input, options.from, &loaded, Format::kText)) return kExitTrouble;
  const std::string dot = GraphDot(loaded.config);
  const std::string format = ImageFormatFor(options.output);
  if (format.empty()) return WriteOrReport(options.output, dot) ? kExitOk : kExitTrouble;

  std::string image, error;
  switch (RunDot(dot, format, &image, &error)) {
    case Render::kOk:
      return WriteOrReport(options.output, image) ? kExitOk : kExitTrouble;
    case Render::kNoDot:
      std::cerr << "pcfg graph: cannot render " << options.output
                << ": Graphviz's dot is not on PATH; install the Debian package graphviz "
                   "(apt-get install graphviz), or write DOT with -o FILE.dot (nothing written)\n";
      return kExitTrouble;
    case Render::kFailed:
      break;
  }
  std::cerr << "pcfg graph: cannot render " << options.output << ": " << error << " (nothing written)\n";
  return kExitTrouble;
}

}  // namespace

void AddGraphCommand(CLI::App& app, int& exit_status) {
  auto options = std::make_shared<GraphOptions>();
  CLI::App* command = app.add_subcommand("graph", "Draw the peripheral topology as Graphviz DOT, SVG or PNG");
  command->footer(
      "Solid edges run from a dependency to the peripheral that lists it (bring-up order); dashed\n"
      "edges from a camera to its camera sets and logical cameras. OUT ending in .svg or .png is\n"
      "rendered with Graphviz's dot (Debian package graphviz); any other OUT gets DOT.\n"
      "Exit status: 0 written, 2 usage error, unreadable or unparsable input, or dot missing or failing.\n"
      "Example: pcfg graph examples/headset.txtpb -o docs/headset.svg");
  command->add_option("IN", options->input, "configuration file, or - for standard input (read as text)")
      ->required();
  command->add_option("-o,--output", options->output,
                      "output file: .svg, .png, or DOT otherwise (default: - for stdout)");
  AddFromOption(*command, options->from);
  command->callback([options, &exit_status] { exit_status = RunGraph(*options); });
}

}  // namespace pcfg::cli
