// Runs one command as a whole process and records what it cost: wall time from just before the
// fork to the end of the wait, user and system CPU time, and the peak resident set size that the
// kernel reports for the child (the figure GNU time prints as %M).
//
//   measure-process RESULTS COMMAND [ARGUMENTS...]
//
// The command inherits standard input, output and error, so the caller redirects them. One line
// is appended to RESULTS: "<wall seconds> <cpu seconds> <peak KiB> <exit status>". The exit
// status of measure-process is the command's (128 + signal number if a signal ended it).
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace {

double Seconds(const timespec& t) {
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}
double Seconds(const timeval& t) {
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) * 1e-6;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: measure-process RESULTS COMMAND [ARGUMENTS...]\n");
    return 2;
  }
  // Opened before the fork, so that an unwritable results file costs no run.
  std::FILE* results = std::fopen(argv[1], "a");
  if (results == nullptr) {
    std::fprintf(stderr, "measure-process: cannot open %s: %s\n", argv[1], std::strerror(errno));
    return 2;
  }

  timespec start{}, end{};
  clock_gettime(CLOCK_MONOTONIC, &start);
  const pid_t child = fork();
  if (child < 0) {
    std::fprintf(stderr, "measure-process: fork: %s\n", std::strerror(errno));
    return 2;
  }
  if (child == 0) {
    execvp(argv[2], argv + 2);
    std::fprintf(stderr, "measure-process: cannot run %s: %s\n", argv[2], std::strerror(errno));
    _exit(127);
  }
  int status = 0;
  rusage usage{};
  while (wait4(child, &status, 0, &usage) < 0) {
    if (errno != EINTR) {
      std::fprintf(stderr, "measure-process: wait: %s\n", std::strerror(errno));
      return 2;
    }
  }
  clock_gettime(CLOCK_MONOTONIC, &end);

  const int exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  std::fprintf(results, "%.6f %.6f %ld %d\n", Seconds(end) - Seconds(start),
               Seconds(usage.ru_utime) + Seconds(usage.ru_stime), usage.ru_maxrss, exit_status);
  std::fclose(results);
  return exit_status;
}
