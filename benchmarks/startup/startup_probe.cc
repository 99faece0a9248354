// What a client of the schema library pays before its first configuration: loading the library
// and the protobuf runtime (relocations, the three registration initialisers, default instances),
// reading and parsing the first configuration, and building descriptors on the first descriptor()
// call.
//
//   startup-probe [--runs N] [--baseline PATH]... CONFIG.binpb
//
// The parent starts itself N times as a fresh process, passing the monotonic clock read just
// before the fork; each child reads the clock at main(), around its first and second parse and
// around its first and second PeripheralConfig::descriptor() call, and reports the differences,
// both as wall time and as the process's own CPU time (which counts from the fork and leaves out
// waiting for a core on a busy machine). Each --baseline names the same program built without the
// library (startup-baseline: a bare C++ process; startup-protobuf-baseline: one that loads the
// protobuf runtime and nothing of ours); they run in alternation with the probe, so that what the
// library adds can be told from what any process, or any protobuf client, pays. Prints medians
// and minimums in microseconds.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#ifndef PERIPHERALCONFIG_STARTUP_BASELINE
#include "peripheral.config.pb.h"
#endif

namespace {

long long ClockNs(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

// A moment of the child: the monotonic clock and the CPU time the process has used so far.
struct Mark {
  long long wall = ClockNs(CLOCK_MONOTONIC);
  long long cpu = ClockNs(CLOCK_PROCESS_CPUTIME_ID);
};

// What the child reports, each as wall and CPU nanoseconds, in this order.
constexpr const char* kIntervals[] = {
    "process start to main()", "read the file", "first parse",
    "process start to parsed", "second parse",  "first descriptor()",
    "second descriptor()",
};
constexpr int kIntervalCount = sizeof kIntervals / sizeof kIntervals[0];

int RunChild(long long started_ns, const char* path) {
  const Mark main_entered;
  // Wall and CPU time of each interval; the process's CPU clock starts at the fork.
  std::vector<long long> values(2 * kIntervalCount, -1);
  auto record = [&values](int interval, long long wall_from, long long cpu_from, const Mark& to) {
    values[2 * interval] = to.wall - wall_from;
    values[2 * interval + 1] = to.cpu - cpu_from;
  };
  record(0, started_ns, 0, main_entered);
#ifndef PERIPHERALCONFIG_STARTUP_BASELINE
  using Talvo::Peripherals::Config::Models::PeripheralConfig;
  std::ifstream in(path, std::ios::binary);
  std::stringstream buffer;
  buffer << in.rdbuf();
  const std::string bytes = buffer.str();
  const Mark read;
  PeripheralConfig first;
  if (!in || !first.ParseFromString(bytes)) {
    std::fprintf(stderr, "startup-probe: %s is not a binary PeripheralConfig\n", path);
    return 1;
  }
  const Mark parsed;
  PeripheralConfig second;
  if (!second.ParseFromString(bytes)) return 1;
  const Mark reparsed;
  const google::protobuf::Descriptor* cold = PeripheralConfig::descriptor();
  const Mark described;
  const google::protobuf::Descriptor* warm = PeripheralConfig::descriptor();
  const Mark redescribed;
  if (cold != warm || cold->field_count() == 0 || first.peripherals_size() != second.peripherals_size())
    return 1;
  record(1, main_entered.wall, main_entered.cpu, read);
  record(2, read.wall, read.cpu, parsed);
  record(3, started_ns, 0, parsed);
  record(4, parsed.wall, parsed.cpu, reparsed);
  record(5, reparsed.wall, reparsed.cpu, described);
  record(6, described.wall, described.cpu, redescribed);
#else
  (void)path;
#endif
  for (size_t i = 0; i < values.size(); ++i)
    std::printf("%lld%c", values[i], i + 1 < values.size() ? ' ' : '\n');
  return 0;
}

// Starts PROGRAM --child <now> PATH and reads back its line of figures.
bool Sample(const std::string& program, const char* path, std::vector<long long>* values) {
  int pipe_fds[2];
  if (pipe(pipe_fds) != 0) return false;
  const long long started_ns = ClockNs(CLOCK_MONOTONIC);
  const pid_t child = fork();
  if (child < 0) return false;
  if (child == 0) {
    dup2(pipe_fds[1], STDOUT_FILENO);
    close(pipe_fds[0]);
    close(pipe_fds[1]);
    const std::string started = std::to_string(started_ns);
    execl(program.c_str(), program.c_str(), "--child", started.c_str(), path, static_cast<char*>(nullptr));
    std::fprintf(stderr, "startup-probe: cannot run %s: %s\n", program.c_str(), std::strerror(errno));
    _exit(127);
  }
  close(pipe_fds[1]);
  std::string line;
  char chunk[512];
  ssize_t n;
  while ((n = read(pipe_fds[0], chunk, sizeof chunk)) > 0) line.append(chunk, static_cast<size_t>(n));
  close(pipe_fds[0]);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return false;
  std::istringstream fields(line);
  values->assign(2 * kIntervalCount, -1);
  for (long long& value : *values) fields >> value;
  return static_cast<bool>(fields);
}

double Median(std::vector<long long> samples) {
  std::sort(samples.begin(), samples.end());
  const size_t n = samples.size();
  return n % 2 ? static_cast<double>(samples[n / 2]) : (samples[n / 2 - 1] + samples[n / 2]) / 2.0;
}

// One line: NAME, then median and minimum wall time and median CPU time, in microseconds.
void PrintLine(const std::string& name, const std::vector<long long>& wall,
               const std::vector<long long>& cpu) {
  std::printf("| %s | %.1f | %.1f | %.1f |\n", name.c_str(), Median(wall) / 1e3,
              *std::min_element(wall.begin(), wall.end()) / 1e3, Median(cpu) / 1e3);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 4 && std::strcmp(argv[1], "--child") == 0) return RunChild(std::atoll(argv[2]), argv[3]);

  int runs = 41;
  std::vector<std::string> baselines;
  const char* path = nullptr;
  bool usage_error = false;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--runs") == 0 && i + 1 < argc)
      runs = std::atoi(argv[++i]);
    else if (std::strcmp(argv[i], "--baseline") == 0 && i + 1 < argc)
      baselines.push_back(argv[++i]);
    else if (path == nullptr && argv[i][0] != '-')
      path = argv[i];
    else
      usage_error = true;
  }
  if (usage_error || path == nullptr || runs < 1) {
    std::fprintf(stderr, "usage: startup-probe [--runs N] [--baseline PATH]... CONFIG.binpb\n");
    return 2;
  }
#ifdef PERIPHERALCONFIG_STARTUP_BASELINE
  std::fprintf(stderr, "this is a baseline of startup-probe: run it through startup-probe --baseline\n");
  return 2;
#endif

  char resolved[4096];
  const ssize_t length = readlink("/proc/self/exe", resolved, sizeof resolved - 1);
  if (length <= 0) return 2;
  const std::string program(resolved, static_cast<size_t>(length));

  // One untimed run of each first, so that every timed run finds the files in the page cache.
  std::vector<long long> values;
  std::vector<std::vector<long long>> probe(2 * kIntervalCount), bare(2 * baselines.size());
  for (int run = -1; run < runs; ++run) {
    for (size_t b = 0; b < baselines.size(); ++b) {
      if (!Sample(baselines[b], path, &values)) {
        std::fprintf(stderr, "startup-probe: a run of %s failed\n", baselines[b].c_str());
        return 1;
      }
      if (run < 0) continue;
      bare[2 * b].push_back(values[0]);
      bare[2 * b + 1].push_back(values[1]);
    }
    if (!Sample(program, path, &values)) {
      std::fprintf(stderr, "startup-probe: a probe run failed\n");
      return 1;
    }
    if (run >= 0)
      for (size_t i = 0; i < values.size(); ++i) probe[i].push_back(values[i]);
  }

  std::printf("%s, %d runs of each program in alternation, microseconds\n\n", path, runs);
  std::printf("| interval | wall, median | wall, minimum | CPU, median |\n|---|---:|---:|---:|\n");
  for (size_t b = 0; b < baselines.size(); ++b) {
    const size_t slash = baselines[b].find_last_of('/');
    const std::string name = baselines[b].substr(slash == std::string::npos ? 0 : slash + 1);
    PrintLine(name + ": process start to main()", bare[2 * b], bare[2 * b + 1]);
  }
  for (int i = 0; i < kIntervalCount; ++i) PrintLine(kIntervals[i], probe[2 * i], probe[2 * i + 1]);
  return 0;
}
