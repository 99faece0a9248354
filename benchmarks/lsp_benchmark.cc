// The language server in process, as an editor uses it: opening a document until its first
// diagnostics, one edit until fresh diagnostics, and the requests made while typing (hover,
// definition, references, completion), on the shipped example and on made-up configurations of
// 1,000 and 10,000 peripherals. Requests report their median and 95th percentile; memory is the
// resident size the open document adds. A clean document's diagnostics are published before its
// syntax tree is built, so opens are also timed with one finding, and until the next request.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <memory>
#include <sstream>

#include "canonical_text.h"
#include "server.h"
#include "syntax_tree.h"
#include "synthetic_config.h"
#include "text_layout.h"

namespace {

using pcfg::lsp::Json;

const char kUri[] = "file:///bench/config.txtpb";

// The document of a benchmark argument: 0 for the shipped example, otherwise that many
// peripherals, laid out as fmt lays them out.
const std::string& Text(int64_t peripherals) {
  static std::map<int64_t, std::string> texts;
  std::string& text = texts[peripherals];
  if (!text.empty()) return text;
  if (peripherals == 0) {
    std::ifstream in(std::string(PCFG_SOURCE_DIR) + "/examples/headset.txtpb");
    std::stringstream content;
    content << in.rdbuf();
    text = content.str();
  } else {
    const std::string canonical =
        pcfg::CanonicalText(pcfg::bench::MakeSyntheticConfig(static_cast<int>(peripherals), 1));
    text = pcfg::LayOutText(pcfg::syntax::SyntaxTree(canonical));
  }
  return text;
}

long ResidentKiB() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line))
    if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
  return 0;
}

struct Editor {
  std::vector<Json> sent;
  pcfg::lsp::Server server{[this](const Json& message) { sent.push_back(message); }};
  int id = 0;
  Editor() {
    server.Handle({{"jsonrpc", "2.0"},
                   {"id", ++id},
                   {"method", "initialize"},
                   {"params", {{"capabilities", Json::object()}}}});
  }
  void Open(const std::string& text, int version = 1) {
    server.Handle({{"jsonrpc", "2.0"},
                   {"method", "textDocument/didOpen"},
                   {"params",
                    {{"textDocument",
                      {{"uri", kUri}, {"languageId", "textproto"}, {"version", version}, {"text", text}}}}}});
    Publish();
  }
  void Publish() {
    sent.clear();
    server.PublishPending();
  }
  Json Ask(const std::string& method, int line, int character) {
    sent.clear();
    server.Handle({{"jsonrpc", "2.0"},
                   {"id", ++id},
                   {"method", method},
                   {"params",
                    {{"textDocument", {{"uri", kUri}}},
                     {"position", {{"line", line}, {"character", character}}},
                     {"context", {{"includeDeclaration", true}}}}}});
    return sent.empty() ? Json() : sent.back();
  }
};

// Where the text names an id in a reference: a dependency of some peripheral halfway down.
std::pair<int, int> ReferencePosition(const std::string& text) {
  size_t at = text.find("peripheral_id: \"", text.size() / 2);
  if (at == std::string::npos) at = text.find("peripheral_id: \"");
  const int line = static_cast<int>(std::count(text.begin(), text.begin() + static_cast<long>(at), '\n'));
  const size_t line_start = text.rfind('\n', at) + 1;
  return {line, static_cast<int>(at - line_start) + 17};
}

void Percentiles(benchmark::State& state, std::vector<double>& ms) {
  std::sort(ms.begin(), ms.end());
  state.counters["p50_ms"] = ms[ms.size() / 2];
  state.counters["p95_ms"] = ms[std::min(ms.size() - 1, ms.size() * 95 / 100)];
}

template <typename Work>
void Timed(benchmark::State& state, std::vector<double>& ms, Work work) {
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    work();
    ms.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
  }
  Percentiles(state, ms);
}

// The document with one finding to show: a dependency halfway down names an id no entry has.
std::string WithAFinding(const std::string& text) {
  std::string with = text;
  const size_t at = with.find("peripheral_id: \"", with.size() / 2);
  with.insert(at + 16, "nowhere_");
  return with;
}

// Open until the first diagnostics are published; "ready" until the first request after them
// is answered too (what is built from the syntax tree is then in place), and the memory the
// document then holds.
void OpenToDiagnostics(benchmark::State& state, const std::string& text) {
  const auto [line, character] = ReferencePosition(text);
  std::vector<double> ms, ready;
  long added = 0;
  size_t published = 0;
  for (auto _ : state) {
    // The server of the round before goes before the clock starts: its teardown is no part of
    // an open.
    state.PauseTiming();
    auto editor = std::make_unique<Editor>();
    state.ResumeTiming();
    const long before = ResidentKiB();
    const auto start = std::chrono::steady_clock::now();
    editor->Open(text);
    const auto opened = std::chrono::steady_clock::now();
    published = editor->sent.at(0)["params"]["diagnostics"].size();
    editor->Ask("textDocument/hover", line, character);
    const auto answered = std::chrono::steady_clock::now();
    ms.push_back(std::chrono::duration<double, std::milli>(opened - start).count());
    ready.push_back(std::chrono::duration<double, std::milli>(answered - start).count());
    added = ResidentKiB() - before;
    benchmark::DoNotOptimize(editor->sent.data());
    state.PauseTiming();
    editor.reset();
    state.ResumeTiming();
  }
  Percentiles(state, ms);
  std::sort(ready.begin(), ready.end());
  state.counters["ready_p50_ms"] = ready[ready.size() / 2];
  state.counters["diagnostics"] = static_cast<double>(published);
  state.counters["text_MB"] = static_cast<double>(text.size()) / 1e6;
  state.counters["rss_added_MB"] = static_cast<double>(added) / 1024;
}

void BM_OpenToDiagnostics(benchmark::State& state) { OpenToDiagnostics(state, Text(state.range(0))); }

void BM_OpenWithAFindingToDiagnostics(benchmark::State& state) {
  OpenToDiagnostics(state, WithAFinding(Text(state.range(0))));
}

void BM_EditToDiagnostics(benchmark::State& state) {
  const std::string& text = Text(state.range(0));
  Editor editor;
  editor.Open(text);
  const auto [line, character] = ReferencePosition(text);
  editor.Ask("textDocument/hover", line, character);  // as an editor asks once a file is open
  int version = 1;
  std::vector<double> ms;
  Timed(state, ms, [&] {
    // One character of an id typed and taken back, as alternating edits.
    const bool odd = ++version % 2 == 1;
    editor.server.Handle(
        {{"jsonrpc", "2.0"},
         {"method", "textDocument/didChange"},
         {"params",
          {{"textDocument", {{"uri", kUri}, {"version", version}}},
           {"contentChanges",
            Json::array({{{"range",
                           {{"start", {{"line", line}, {"character", character}}},
                            {"end", {{"line", line}, {"character", character + (odd ? 1 : 0)}}}}},
                          {"text", odd ? "" : "x"}}})}}}});
    editor.Publish();
  });
}

void BM_Request(benchmark::State& state, const char* method) {
  const std::string& text = Text(state.range(0));
  Editor editor;
  editor.Open(text);
  const auto [line, character] = ReferencePosition(text);
  std::vector<double> ms;
  Timed(state, ms, [&] {
    const Json reply = editor.Ask(method, line, character);
    if (reply.contains("error")) state.SkipWithError(reply.dump().c_str());
  });
}

void Sizes(benchmark::internal::Benchmark* b) {
  b->Arg(0)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);
}

BENCHMARK(BM_OpenToDiagnostics)->Apply(Sizes)->Iterations(5);
BENCHMARK(BM_OpenWithAFindingToDiagnostics)->Apply(Sizes)->Iterations(5);
BENCHMARK(BM_EditToDiagnostics)->Apply(Sizes)->Iterations(20);
BENCHMARK_CAPTURE(BM_Request, hover, "textDocument/hover")->Apply(Sizes)->Iterations(50);
BENCHMARK_CAPTURE(BM_Request, definition, "textDocument/definition")->Apply(Sizes)->Iterations(50);
BENCHMARK_CAPTURE(BM_Request, references, "textDocument/references")->Apply(Sizes)->Iterations(50);
BENCHMARK_CAPTURE(BM_Request, completion, "textDocument/completion")->Apply(Sizes)->Iterations(50);

}  // namespace

BENCHMARK_MAIN();
