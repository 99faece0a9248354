// The language server driven in process, message by message, as an editor drives it: what it
// answers and publishes, positions in UTF-16 and UTF-8, edits, and the protocol's errors.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "analysis.h"
#include "document.h"
#include "fixes.h"
#include "pcfg_test_support.h"
#include "server.h"
#include "transport.h"

namespace {

using pcfg::lsp::Json;

const std::string kUri = "file:///work/t.txtpb";

// Line 4 holds a comment with "é" (one UTF-16 unit, two bytes) and an emoji (two units, four
// bytes) before the id "imu0"'s reference to nothing, so that columns differ by encoding.
const std::string kText =
    "peripherals { id: \"cam0\" type: PERIPHERAL_TYPE_CAMERA }\n"
    "peripherals { id: \"cams\" type: PERIPHERAL_TYPE_CAMERASET }\n"
    "peripherals {\n"
    "  id: \"imu0\"  # \xc3\xa9\xf0\x9f\x98\x80\n"
    "  type: PERIPHERAL_TYPE_IMU\n"
    "  dependencies { peripheral_id: \"cam0\" }\n"
    "}\n"
    "camera_sets { peripheral_id: \"cams\" camera_peripheral_ids: [\"cam0\"] }\n"
    "physical_cameras { peripheral_id: \"tmpl\" is_template: true }\n"
    "physical_cameras { peripheral_id: \"cam0\" template_id: \"tmpl\" cameraset_peripheral_ids: \"cams\" }\n";

class Session {
 public:
  explicit Session(Json capabilities = Json::object())
      : server_([this](const Json& message) { sent_.push_back(message); }) {
    initialize_reply_ = Request("initialize", {{"processId", nullptr}, {"capabilities", capabilities}});
    Notify("initialized", Json::object());
  }

  Json Request(const std::string& method, const Json& params) {
    const int id = ++last_id_;
    server_.Handle({{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", params}});
    for (const Json& message : sent_)
      if (message.contains("id") && message["id"] == id) return message;
    return nullptr;
  }
  // A request about the open document, PARAMS besides its uri.
  Json OnDocument(const std::string& method, Json params = Json::object()) {
    params["textDocument"] = {{"uri", kUri}};
    return Request(method, params);
  }
  // The result of a request at the first occurrence of NEEDLE in the document (plus SHIFT
  // characters), in UTF-16 positions unless the session agreed on UTF-8.
  Json At(const std::string& method, const std::string& needle, int shift = 0, Json extra = Json::object()) {
    extra["position"] = PositionOf(needle, shift);
    return OnDocument(method, extra)["result"];
  }
  void Notify(const std::string& method, const Json& params) {
    server_.Handle({{"jsonrpc", "2.0"}, {"method", method}, {"params", params}});
  }
  void Open(const std::string& text) {
    text_ = text;
    Notify("textDocument/didOpen",
           {{"textDocument", {{"uri", kUri}, {"languageId", "textproto"}, {"version", 1}, {"text", text}}}});
  }
  // The diagnostics published now.
  Json Diagnostics() {
    sent_.clear();
    server_.PublishPending();
    for (const Json& message : sent_)
      if (message.value("method", "") == "textDocument/publishDiagnostics")
        return message["params"]["diagnostics"];
    return nullptr;
  }
  Json PositionOf(const std::string& needle, int shift = 0) const {
    const size_t at = text_.find(needle);
    EXPECT_NE(at, std::string::npos) << needle;
    const size_t line_start = text_.rfind('\n', at) == std::string::npos ? 0 : text_.rfind('\n', at) + 1;
    int line = 0;
    for (size_t i = 0; i < line_start; ++i) line += text_[i] == '\n';
    int character = 0;
    for (size_t i = line_start; i < at; ++i) {
      const unsigned char byte = static_cast<unsigned char>(text_[i]);
      if (utf8_) {
        ++character;
      } else if ((byte & 0xC0) != 0x80) {
        character += byte >= 0xF0 ? 2 : 1;
      }
    }
    return {{"line", line}, {"character", character + shift}};
  }
  void set_utf8() { utf8_ = true; }
  void set_text(const std::string& text) { text_ = text; }
  pcfg::lsp::Server& server() { return server_; }
  std::vector<Json>& sent() { return sent_; }
  const Json& initialize_reply() const { return initialize_reply_; }

 private:
  std::vector<Json> sent_;
  pcfg::lsp::Server server_;
  Json initialize_reply_;
  int last_id_ = 0;
  std::string text_;
  bool utf8_ = false;
};

Json Range(int line, int start, int end) {
  return {{"start", {{"line", line}, {"character", start}}}, {"end", {{"line", line}, {"character", end}}}};
}

Json J(const char* text) { return Json::parse(text); }

// didChange's params: VERSION and its changes, each a range and text, or the whole text.
Json Changes(int version, std::vector<Json> changes) {
  return {{"textDocument", {{"uri", kUri}, {"version", version}}}, {"contentChanges", Json(changes)}};
}
Json Edit(const Json& range, const std::string& text) { return Json{{"range", range}, {"text", text}}; }
Json Whole(const std::string& text) { return Json{{"text", text}}; }

TEST(Lsp, ProtocolErrorsAndLifeCycle) {
  std::vector<Json> sent;
  pcfg::lsp::Server server([&](const Json& message) { sent.push_back(message); });
  struct Row {
    const char* what;
    std::string body;
    int code;                    // of the error answered; 0: no answer
    const char* says = nullptr;  // how its message starts, where that tells faults apart
  };
  const Row rows[] = {
      {"before initialize", R"({"jsonrpc":"2.0","id":1,"method":"textDocument/hover","params":{}})", -32002},
      {"a notification before initialize is dropped", R"({"jsonrpc":"2.0","method":"textDocument/didOpen"})",
       0},
      {"not an object", "[1, 2]", -32600},
      {"an id that is an object", R"({"jsonrpc":"2.0","id":{},"method":"shutdown"})", -32600},
      {"initialize", R"({"jsonrpc":"2.0","id":2,"method":"initialize","params":{"capabilities":{}}})", 0},
      {"initialize twice", R"({"jsonrpc":"2.0","id":3,"method":"initialize","params":{"capabilities":{}}})",
       -32803},
      {"an unknown notification is dropped", R"({"jsonrpc":"2.0","method":"$/setTrace","params":{}})", 0},
      {"an open without text opens nothing",
       R"({"jsonrpc":"2.0","method":"textDocument/didOpen","params":{"textDocument":{"uri":"file:///n"}}})",
       0},
      {"so a request on it finds no document",
       R"({"jsonrpc":"2.0","id":7,"method":"textDocument/documentSymbol","params":{"textDocument":{"uri":"file:///n"}}})",
       0},
      {"a framing fault", pcfg::lsp::kMalformedHeader, -32700},
      {"a body past the limit", pcfg::lsp::kTooLarge, -32700, "a message over 160 MiB"},
      {"a reply to a request the server never sent is dropped", R"({"jsonrpc":"2.0","id":9,"result":null})",
       0},
      {"an object with no method", R"({"jsonrpc":"2.0","id":10})", -32600},
      {"a method that is no string", R"({"jsonrpc":"2.0","id":11,"method":5})", -32600},
      {"shutdown", R"({"jsonrpc":"2.0","id":5,"method":"shutdown"})", 0},
  };
  for (const Row& row : rows) {
    sent.clear();
    server.HandleBody(row.body);
    if (row.code == 0) {
      for (const Json& message : sent) EXPECT_FALSE(message.contains("error")) << row.what << message.dump();
      continue;
    }
    ASSERT_EQ(sent.size(), 1u) << row.what;
    EXPECT_EQ(sent[0]["error"]["code"], row.code) << row.what << sent[0].dump();
    EXPECT_EQ(sent[0]["error"]["message"].get<std::string>().rfind(row.says ? row.says : "", 0), 0u)
        << row.what;
  }
  EXPECT_FALSE(server.exited());
  server.HandleBody(R"({"jsonrpc":"2.0","method":"exit"})");
  EXPECT_TRUE(server.exited());
  EXPECT_EQ(server.exit_status(), 0);

  pcfg::lsp::Server rude([](const Json&) {});
  rude.HandleBody(R"({"jsonrpc":"2.0","method":"exit"})");
  EXPECT_EQ(rude.exit_status(), 1) << "exit without shutdown";
}

TEST(Lsp, NegotiatesThePositionEncoding) {
  Session utf16;
  EXPECT_EQ(utf16.initialize_reply()["result"]["capabilities"]["positionEncoding"], "utf-16");
  Session utf8(J(R"({"general": {"positionEncodings": ["utf-8", "utf-16"]}})"));
  EXPECT_EQ(utf8.initialize_reply()["result"]["capabilities"]["positionEncoding"], "utf-8");
  utf8.set_utf8();
  // After "é😀" on line 3: two columns more in UTF-16 units... and five more in bytes.
  const std::string text = kText + "peripherals { id: \"x\" }  # \xc3\xa9\xf0\x9f\x98\x80 \"cam0\"\n";
  for (Session* session : {&utf16, &utf8}) {
    session->Open(text);
    const Json definition = session->At("textDocument/definition", "peripheral_id: \"cam0\"", 16);
    EXPECT_EQ(definition["range"], Range(0, 19, 23));
  }
  // The hover range of an id after the emoji on its line, in each encoding.
  const std::string after = "peripherals { id: \"\xc3\xa9\xf0\x9f\x98\x80z\" }\n";
  utf16.Open(after);
  EXPECT_EQ(utf16.At("textDocument/hover", "z")["range"], Range(0, 19, 23));
  // A client that asked for no markdown gets the note without its marks.
  const Json plain = utf16.At("textDocument/hover", "id", 0)["contents"];
  EXPECT_EQ(plain["kind"], "plaintext");
  EXPECT_EQ(plain["value"].get<std::string>().rfind(
                "string id = 1;\nin Talvo.Peripherals.Config.Models.Peripheral", 0),
            0u)
      << plain.dump();
  utf8.Open(after);
  EXPECT_EQ(utf8.At("textDocument/hover", "z")["range"], Range(0, 19, 26));
}

TEST(Lsp, PositionsAndBytesBothWays) {
  // "é" is two bytes and one UTF-16 unit, the emoji four bytes and two units; line 1 ends in \r\n.
  const pcfg::lsp::Document document("file:///d.txtpb",
                                     "a\xc3\xa9\xf0\x9f\x98\x80"
                                     "b\r\nxy\n",
                                     1);
  using pcfg::lsp::PositionEncoding;
  struct Row {
    int line, character;
    PositionEncoding encoding;
    uint32_t offset;
  };
  const Row rows[] = {
      {0, 2, PositionEncoding::kUtf16, 3},  {0, 4, PositionEncoding::kUtf16, 7},
      {0, 5, PositionEncoding::kUtf16, 8},  {0, 9, PositionEncoding::kUtf16, 8},  // past the line: before \r
      {0, 3, PositionEncoding::kUtf8, 3},   {0, 8, PositionEncoding::kUtf8, 8},
      {1, 1, PositionEncoding::kUtf16, 11}, {7, 0, PositionEncoding::kUtf16, 13},  // past the last line
  };
  for (const Row& row : rows) {
    EXPECT_EQ(document.Offset({row.line, row.character}, row.encoding), row.offset)
        << row.line << ":" << row.character;
    if (row.character < 6 && row.line < 2) {
      const pcfg::lsp::Position back = document.PositionOf(row.offset, row.encoding);
      EXPECT_EQ(back.line, row.line);
      EXPECT_EQ(back.character, row.character) << row.offset;
    }
  }
  // A position inside the emoji's surrogate pair stands before it.
  EXPECT_EQ(document.Offset({0, 3}, PositionEncoding::kUtf16), 3u);
}

TEST(Lsp, DiagnosticsWithRangesRulesAndSuppressions) {
  Session session(J(R"({"textDocument": {"publishDiagnostics": {"tagSupport": {"valueSet": [1, 2]}}}})"));
  const std::string text =
      kText +
      "peripherals { id: \"imu1\" type: PERIPHERAL_TYPE_IMU dependencies { peripheral_id: \"gone\" } }\n"
      "peripherals { id: \"imu2\" type: PERIPHERAL_TYPE_IMU }  # pcfg: ignore no-driver -- why not\n";
  session.Open(text);
  const Json diagnostics = session.Diagnostics();
  std::map<std::string, Json> by_rule;
  for (const Json& d : diagnostics) by_rule[d.value("code", "")] = d;
  ASSERT_TRUE(by_rule.count("dangling-reference")) << diagnostics.dump(1);
  const Json& dangling = by_rule["dangling-reference"];
  EXPECT_EQ(dangling["severity"], 1);
  EXPECT_EQ(dangling["source"], "pcfg");
  // The range runs from the field's name to the end of its value.
  const Json start = session.PositionOf("peripheral_id: \"gone\"");
  EXPECT_EQ(dangling["range"]["start"], start);
  EXPECT_EQ(dangling["range"]["end"]["character"], start["character"].get<int>() + 21);
  EXPECT_EQ(by_rule["no-driver"]["severity"], 2);
  EXPECT_EQ(by_rule["membership-mismatch"]["severity"], 3) << "skipped behind dangling-reference: a note";
  ASSERT_TRUE(by_rule.count("unused-suppression")) << diagnostics.dump(1);
  EXPECT_EQ(by_rule["unused-suppression"]["tags"], Json::array({1}));
  EXPECT_EQ(by_rule.count("no-driver"), 1u) << "the one on line 10 is not suppressed";

  // Text that no longer parses: the syntax error, and the last findings, said to be old. The
  // ones after the edit move down with their lines.
  session.Notify("textDocument/didChange", Changes(2, {Edit(Range(0, 0, 0), "peripherals {\n\n")}));
  const Json broken = session.Diagnostics();
  ASSERT_GE(broken.size(), 2u) << broken.dump(1);
  EXPECT_EQ(broken[0].contains("code"), false) << "the syntax error has no rule";
  bool moved = false;
  for (const Json& d : broken)
    if (d.value("code", "") == "dangling-reference") {
      EXPECT_NE(d["message"].get<std::string>().find("last text that parsed"), std::string::npos);
      moved = d["range"]["start"]["line"] == start["line"].get<int>() + 2;
    }
  EXPECT_TRUE(moved) << broken.dump(1);

  // A suppression that holds hides its finding; a client without tags or related places gets
  // neither.
  Session plain;
  plain.Open(
      "peripherals { id: \"cam0\" type: PERIPHERAL_TYPE_CAMERA }\n"
      "physical_cameras { peripheral_id: \"cam0\" }  # pcfg: ignore no-driver -- on the bench\n"
      "peripherals { id: \"imu0\" type: PERIPHERAL_TYPE_IMU }  # pcfg: ignore no-driver -- not a camera\n"
      "peripherals { id: \"imu0\" type: PERIPHERAL_TYPE_IMU }\n");
  std::vector<std::string> codes;
  for (const Json& d : plain.Diagnostics()) {
    codes.push_back(d.value("code", ""));
    EXPECT_FALSE(d.contains("tags") || d.contains("relatedInformation")) << d.dump();
  }
  EXPECT_EQ(codes, (std::vector<std::string>{"unused-suppression", "duplicate-id"}));
}

TEST(Lsp, IncrementalChangesApplyInOrder) {
  Session session;
  session.Open("a: 1\nb: 2\n");
  session.Notify("textDocument/didChange",
                 Changes(2, {Edit(Range(1, 3, 4), "20"), Edit(Range(0, 0, 0), "# x\n")}));
  EXPECT_EQ(*session.server().TextOf(kUri), "# x\na: 1\nb: 20\n");
  session.Notify("textDocument/didChange", Changes(3, {Whole(kText)}));
  session.set_text(kText);
  EXPECT_EQ(session.At("textDocument/definition", "\"cam0\"", 1)["range"], Range(0, 19, 23));
  session.Diagnostics();
  EXPECT_EQ(session.sent().back()["params"]["version"], 3);
  // A malformed change after a good one: the good one is in the text, and no request answers
  // from the analysis of the text before it.
  session.Notify("textDocument/didChange",
                 Changes(4, {Edit(Range(0, 0, 0), "# y\n"), Json{{"range", Range(0, 0, 0)}, {"text", 5}}}));
  session.set_text("# y\n" + kText);
  EXPECT_EQ(session.At("textDocument/definition", "\"cam0\"", 1)["range"], Range(1, 19, 23));
  const Json backwards = {{"start", {{"line", 0}, {"character", 3}}},
                          {"end", {{"line", 0}, {"character", 1}}}};
  session.Notify("textDocument/didChange", Changes(5, {Edit(backwards, "z")}));
  EXPECT_EQ(*session.server().TextOf(kUri), "# y\n" + kText) << "a range that ends before it starts";
}

// Everything an analysis answers from: the tree node for node, every byte's line and columns,
// the configuration on the wire, the findings and the ids.
void ExpectSameAnalysis(const pcfg::lsp::Analysis& got, const pcfg::lsp::Analysis& want) {
  ASSERT_EQ(got.text(), want.text());
  const auto& got_tokens = got.tree().tokens();
  const auto& want_tokens = want.tree().tokens();
  ASSERT_EQ(got_tokens.size(), want_tokens.size());
  for (size_t i = 0; i < got_tokens.size(); ++i)
    ASSERT_TRUE(got_tokens[i].begin == want_tokens[i].begin && got_tokens[i].end() == want_tokens[i].end() &&
                got_tokens[i].kind == want_tokens[i].kind)
        << "token " << i;
  const auto& got_nodes = got.tree().nodes();
  const auto& want_nodes = want.tree().nodes();
  ASSERT_EQ(got_nodes.size(), want_nodes.size());
  for (size_t i = 0; i < got_nodes.size(); ++i) {
    const pcfg::syntax::Node &g = got_nodes[i], &w = want_nodes[i];
    ASSERT_TRUE(g.kind == w.kind && g.colon == w.colon && g.closed == w.closed && g.first == w.first &&
                g.end == w.end && g.parent == w.parent && g.next_sibling == w.next_sibling &&
                g.name_end == w.name_end)
        << "node " << i;
  }
  for (uint32_t at = 0; at <= got.text().size(); ++at) {
    const auto g = got.tree().Position(at), w = want.tree().Position(at);
    ASSERT_TRUE(g.line == w.line && g.column == w.column && g.utf16_column == w.utf16_column &&
                got.tree().TokenizerColumn(at) == want.tree().TokenizerColumn(at))
        << "byte " << at;
  }
  EXPECT_EQ(got.loaded().config.SerializeAsString(), want.loaded().config.SerializeAsString());
  const auto findings = [](const pcfg::lsp::Analysis& analysis) {
    std::vector<std::string> all;
    for (const pcfg::Diagnostic& d : analysis.diagnostics())
      all.push_back(d.rule + " " + std::to_string(d.line) + ":" + std::to_string(d.column) + "-" +
                    std::to_string(d.end_line) + ":" + std::to_string(d.end_column) + " " + d.message +
                    (d.suppressed ? " (suppressed)" : ""));
    return all;
  };
  EXPECT_EQ(findings(got), findings(want));
  const auto ids = [](const pcfg::lsp::Analysis& analysis) {
    std::vector<std::string> all;
    for (const pcfg::lsp::IdOccurrence& o : analysis.ids().occurrences()) {
      const auto* definition = analysis.ids().Definition(o.space, o.id);
      all.push_back(o.id + " " + std::to_string(o.begin) + "-" + std::to_string(o.end) + " " +
                    std::to_string(static_cast<int>(o.space)) + o.kind + o.role + " " +
                    std::to_string(o.entry) + (o.definition ? " d" : "") + (o.simple ? " s" : "") +
                    (o.key ? " k" : "") + " first at " +
                    std::to_string(definition != nullptr ? definition->begin : 0) + " of " +
                    std::to_string(analysis.ids().All(o.space, o.id).size()));
    }
    return all;
  };
  EXPECT_EQ(ids(got), ids(want));
}

TEST(Lsp, AnEditInsideOneEntryIsReadAlone) {
  const std::string example = pcfg_test::ReadFile(pcfg_test::ExamplePath("headset.txtpb"));
  struct Case {
    const char* what;
    std::string before, after;  // the first BEFORE in the example becomes AFTER
    bool alone;
  };
  const std::vector<Case> cases = {
      {"an id changed", "peripheral_id: \"imu0\"", "peripheral_id: \"imu9\"", true},
      {"a dependency added, lines below move", "dependencies { peripheral_id: \"imu0\"",
       "dependencies { peripheral_id: \"prox0\" }\n  dependencies { peripheral_id: \"imu0\"", true},
      {"a line taken out", "  dependencies { peripheral_id: \"fpga0\" }\n", "", true},
      {"a tab and wide characters on the entry's lines", "id: \"prox0\"",
       "id: \"prox0\"\t# caf\xc3\xa9 \xf0\x9f\x98\x80\t", true},
      {"a one-line entry", "id: \"fpga0\" type", "id: \"fpga1\"  type", true},
      {"a value of a camera far down", "is_template: true", "is_template: false", true},
      {"the entry left open", "id: \"prox0\"", "id: \"prox0\" dependencies {", false},
      {"its closing brace hidden in a comment", "PERIPHERAL_SYSTEM_TYPE_CADMOR }",
       "PERIPHERAL_SYSTEM_TYPE_CADMOR # }", false},
      {"the field's name, to another list's",
       "eripherals { id: \"fpga0\" type: PERIPHERAL_TYPE_FPGA system_type: PERIPHERAL_SYSTEM_TYPE_CADMOR",
       "hysical_cameras { peripheral_id: \"fpga0\"", false},
      {"a message of the root that is no list's", "soc_name: \"sxr2230p\"", "soc_name: \"sxr2230q\"  # x",
       true},
      {"an edit from an entry's first byte", "device_info {\n", "device_info {\n  # x\n", false},
      {"a value in the general configurations", "cadmor_camera_version: ", "cadmor_camera_version: 1", true},
      {"one entry made two", "id: \"prox0\"", "id: \"prox0\" } peripherals { id: \"prox1\"", false},
      {"a field set twice", "id: \"prox0\"", "id: \"prox0\" id: \"prox1\"", false},
      {"a string no longer UTF-8, which a whole load refuses", "id: \"prox0\"", "id: \"prox\xec\"", false},
  };
  // Entries written otherwise: in lists, with separators.
  const std::string lists =
      "peripherals: [{ id: \"a\" }, { id: \"b\" }]\n"
      "peripherals { id: \"c\" dependencies { peripheral_id: \"a\" } }\n"
      "peripherals { id: \"d\" };\n"
      "peripherals: { id: \"e\" }\n";
  const std::vector<Case> list_cases = {
      {"after a list of entries, counted one by one", "peripheral_id: \"a\"", "peripheral_id: \"b\"", true},
      {"an entry with a colon", "id: \"e\"", "id: \"f\"", true},
      {"inside a list", "id: \"b\"", "id: \"x\"", false},
      {"an entry with a separator after it", "id: \"d\"", "id: \"x\"", false},
  };
  for (const auto& [base, table] : {std::pair{&example, &cases}, std::pair{&lists, &list_cases}})
    for (const Case& c : *table) {
      SCOPED_TRACE(c.what);
      const std::string& original = *base;
      const size_t at = original.find(c.before);
      ASSERT_NE(at, std::string::npos);
      std::string edited = original;
      edited.replace(at, c.before.size(), c.after);
      pcfg::lsp::Analysis analysis("t.txtpb", original);
      ASSERT_TRUE(analysis.parsed());
      analysis.TakeText();  // as the document takes it back before it changes
      std::string text = edited;
      const bool alone =
          analysis.Update(text, static_cast<uint32_t>(at), static_cast<uint32_t>(at + c.before.size()),
                          static_cast<uint32_t>(at + c.after.size()));
      EXPECT_EQ(alone, c.alone);
      if (!alone) {
        EXPECT_EQ(text, edited) << "the text is given back as it was";
        continue;
      }
      ExpectSameAnalysis(analysis, pcfg::lsp::Analysis("t.txtpb", edited));
      // And again on the tree put together: a second edit of another entry.
      const size_t second = edited.find(base == &example ? "id: \"mag0\"" : "id: \"c\"");
      std::string again = edited;
      again[second + 5] = 'z';
      analysis.TakeText();
      text = again;
      ASSERT_TRUE(analysis.Update(text, static_cast<uint32_t>(second + 5), static_cast<uint32_t>(second + 6),
                                  static_cast<uint32_t>(second + 6)));
      ExpectSameAnalysis(analysis, pcfg::lsp::Analysis("t.txtpb", again));
    }
}

TEST(Lsp, ALargeTextIsParsedOnTwoThreadsBesideItsTree) {
  // Large enough to be parsed in two halves, the tree built on a thread of its own meanwhile:
  // findings in both halves are placed by that tree, and an edit made before anything asked for
  // the tree still reads its entry alone.
  std::string text;
  for (int i = 0; text.size() < (400 << 10); ++i)
    text += "peripherals { id: \"p" + std::to_string(i) + "\" type: PERIPHERAL_TYPE_IMU }\n";
  const int last_line = static_cast<int>(std::count(text.begin(), text.end(), '\n'));
  text += "peripherals { id: \"p1\" type: PERIPHERAL_TYPE_IMU dependencies { peripheral_id: \"gone\" } }\n";
  Session session(J(R"({"textDocument": {"publishDiagnostics": {"relatedInformation": true}}})"));
  session.Open(text);
  std::map<std::string, Json> found;
  for (const Json& d : session.Diagnostics()) found[d.value("code", "")] = d;
  EXPECT_EQ(found["dangling-reference"]["range"], Range(last_line, 64, 85));  // peripheral_id: "gone"
  EXPECT_EQ(found["duplicate-id"]["range"]["start"]["line"], last_line);
  EXPECT_EQ(found["duplicate-id"]["relatedInformation"][0]["location"]["range"], Range(1, 19, 21));

  pcfg::lsp::Analysis analysis("t.txtpb", text);
  analysis.TakeText();
  std::string edited = text;
  const size_t at = edited.find("gone");
  edited[at] = 'G';
  std::string lent = edited;
  EXPECT_TRUE(analysis.Update(lent, static_cast<uint32_t>(at), static_cast<uint32_t>(at + 1),
                              static_cast<uint32_t>(at + 1)));
  ExpectSameAnalysis(analysis, pcfg::lsp::Analysis("t.txtpb", edited));
}

TEST(Lsp, NavigatesByPeripheralAndTemplateIds) {
  Session session;
  session.Open(kText);
  const Json cam0 = Range(0, 19, 23);
  // From each kind of reference to its entry, and the template to its defining camera.
  struct Row {
    std::string needle;
    int shift;
    Json definition;
  };
  const Row rows[] = {
      {"peripheral_id: \"cam0\"", 16, cam0},              // a dependency
      {"[\"cam0\"]", 2, cam0},                            // a member in a list
      {"peripheral_id: \"cams\"", 16, Range(1, 19, 23)},  // a camera set's own entry
      {"cameraset_peripheral_ids: \"cams\"", 27, Range(1, 19, 23)},
      {"template_id: \"tmpl\"", 14, Range(8, 35, 39)},
      {"\"cam0\" type", 1, cam0},              // the definition itself
      {"PERIPHERAL_TYPE_CAMERA", 3, nullptr},  // no id there
  };
  for (const Row& row : rows)
    EXPECT_EQ(session.At("textDocument/definition", row.needle, row.shift)["range"], row.definition)
        << row.needle;
  // A camera is a template however protobuf's text format spells true.
  for (const auto& [spelling, defines] : std::vector<std::pair<std::string, bool>>{
           {"1", true}, {"True", true}, {"t", true}, {"0x1", true}, {"0", false}, {"f", false}}) {
    std::string text = kText;
    text.replace(text.find("true"), 4, spelling);
    session.Notify("textDocument/didChange", Changes(2, {Whole(text)}));
    EXPECT_EQ(session.At("textDocument/definition", "template_id: \"tmpl\"", 14)["range"],
              defines ? Range(8, 35, 39) : Json())
        << spelling;
  }
  session.Notify("textDocument/didChange", Changes(3, {Whole(kText)}));

  const Json references =
      session.At("textDocument/references", "\"cam0\"", 1, {{"context", {{"includeDeclaration", false}}}});
  EXPECT_EQ(references.size(), 3u) << "dependency, set member, physical camera: " << references.dump();

  EXPECT_EQ(session.At("textDocument/prepareRename", "\"tmpl\"", 2),
            Json({{"range", Range(8, 35, 39)}, {"placeholder", "tmpl"}}));
  const Json rename = session.At("textDocument/rename", "\"cam0\"", 1, {{"newName", "front\"cam"}});
  const Json edits = rename["changes"][kUri];
  ASSERT_EQ(edits.size(), 4u);
  for (const Json& edit : edits) EXPECT_EQ(edit["newText"], "front\\\"cam");
  EXPECT_TRUE(session
                  .OnDocument("textDocument/rename",
                              {{"position", {{"line", 4}, {"character", 3}}}, {"newName", "x"}})
                  .contains("error"));

  // An id written with an escape is replaced whole, quotes and all; a reference to nothing has
  // no definition; references count the definition unless told not to.
  const std::string escaped =
      "peripherals { id: \"c\\141m0\" type: PERIPHERAL_TYPE_CAMERA }\n"
      "peripherals { id: \"imu0\" dependencies { peripheral_id: \"cam0\" } dependencies { peripheral_id: "
      "\"gone\" } }\n";
  session.Notify("textDocument/didChange", Changes(2, {Whole(escaped)}));
  session.set_text(escaped);
  EXPECT_EQ(session.At("textDocument/definition", "\"cam0\"", 1)["range"], Range(0, 18, 27));
  EXPECT_EQ(session.At("textDocument/definition", "gone", 0), nullptr);
  EXPECT_EQ(session.At("textDocument/references", "\"cam0\"", 1).size(), 2u);
  EXPECT_EQ(session.At("textDocument/references", "PERIPHERAL_TYPE", 0), nullptr);
  EXPECT_EQ(session.At("textDocument/documentHighlight", "PERIPHERAL_TYPE", 0), nullptr);
  const Json renamed =
      session.At("textDocument/rename", "\"cam0\"", 1, {{"newName", "front"}})["changes"][kUri];
  ASSERT_EQ(renamed.size(), 2u) << renamed.dump();
  EXPECT_EQ(renamed[0], Json({{"range", Range(0, 18, 27)}, {"newText", "\"front\""}}));
  EXPECT_EQ(renamed[1]["newText"], "front");
  EXPECT_EQ(
      session.OnDocument("textDocument/rename", {{"position", session.PositionOf("imu0")}, {"newName", ""}})
          .value("error", Json())["code"],
      -32803)
      << "an empty id";
}

// Every request on a document that is not open: nothing to answer from.
TEST(Lsp, RequestsOnADocumentNotOpenFindNothing) {
  Session session;
  session.Open(kText);
  const Json elsewhere = {{"uri", "file:///work/other.txtpb"}};
  for (const char* method : {"textDocument/definition", "textDocument/references",
                             "textDocument/documentHighlight", "textDocument/prepareRename",
                             "textDocument/rename", "textDocument/documentSymbol", "textDocument/formatting",
                             "textDocument/rangeFormatting", "textDocument/hover", "textDocument/completion",
                             "textDocument/codeAction", "textDocument/inlayHint", "textDocument/codeLens"}) {
    const Json reply = session.Request(method, {{"textDocument", elsewhere},
                                                {"position", {{"line", 0}, {"character", 20}}},
                                                {"range", Range(0, 0, 9)},
                                                {"newName", "x"}});
    EXPECT_TRUE(reply.contains("result") && reply["result"].is_null()) << method << ": " << reply.dump();
  }
  // Nor do changes and closes of it touch the one that is open.
  session.Diagnostics();
  session.sent().clear();
  session.Notify("textDocument/didChange", {{"textDocument", {{"uri", elsewhere["uri"]}, {"version", 2}}},
                                            {"contentChanges", {Whole("x")}}});
  session.Notify("textDocument/didClose", {{"textDocument", elsewhere}});
  session.server().PublishPending();
  EXPECT_TRUE(session.sent().empty()) << session.sent()[0].dump();
  EXPECT_EQ(*session.server().TextOf(kUri), kText);
}

TEST(Lsp, SymbolsAndCompletionFromTheSchema) {
  Session session(J(R"({"textDocument": {"documentSymbol": {"hierarchicalDocumentSymbolSupport": true},
                                          "completion": {"completionItem": {"snippetSupport": true}}}})"));
  session.Open(kText);
  const Json symbols = session.OnDocument("textDocument/documentSymbol")["result"];
  ASSERT_EQ(symbols.size(), 3u) << symbols.dump(1);
  EXPECT_EQ(symbols[0]["name"], "peripherals");
  EXPECT_EQ(symbols[0]["children"].size(), 3u);
  EXPECT_EQ(symbols[0]["children"][2]["name"], "imu0");
  EXPECT_EQ(symbols[0]["children"][2]["detail"], "PERIPHERAL_TYPE_IMU");
  EXPECT_EQ(symbols[2]["children"][0]["detail"], "template");

  const auto labels = [&](const Json& position) {
    std::vector<std::string> found;
    const Json result = session.OnDocument("textDocument/completion", {{"position", position}});
    for (const Json& item : result["result"]["items"]) found.push_back(item["label"]);
    return found;
  };
  const auto has = [](const std::vector<std::string>& all, const std::string& one) {
    return std::find(all.begin(), all.end(), one) != all.end();
  };
  // In imu0's entry: no second id or type, dependencies (repeated) still.
  const std::vector<std::string> fields = labels(session.PositionOf("  dependencies"));
  EXPECT_FALSE(has(fields, "id"));
  EXPECT_FALSE(has(fields, "type"));
  EXPECT_TRUE(has(fields, "dependencies"));
  // After "type: " the values of PeripheralType; after a reference's ':' the ids of its kind.
  EXPECT_TRUE(has(labels(session.PositionOf("PERIPHERAL_TYPE_IMU")), "PERIPHERAL_TYPE_FPGA"));
  const std::vector<std::string> sets = labels(session.PositionOf("\"cams\" }"));
  EXPECT_EQ(sets, std::vector<std::string>{"cams"}) << "only the camera sets";
  // Inside a string, and after a ',' of a list of ids, the ids replace the whole string.
  const Json inside =
      session.OnDocument("textDocument/completion", {{"position", session.PositionOf("cam0\" }\n}", 2)}});
  ASSERT_EQ(inside["result"]["items"].size(), 3u) << "a dependency may name any type: " << inside.dump();
  EXPECT_EQ(inside["result"]["items"][0]["textEdit"]["newText"], "\"cam0\"");
  EXPECT_EQ(inside["result"]["items"][0]["textEdit"]["range"]["start"], session.PositionOf("\"cam0\" }\n}"));
  EXPECT_EQ(labels(session.PositionOf("\"cam0\"]")), std::vector<std::string>{"cam0"}) << "a member of a set";
}

// Entries written in a list, without an id, with an empty one; a list written twice is one
// symbol in a client that nests them, each entry in one that does not; other fields none.
TEST(Lsp, SymbolsOfEntriesHowEverTheyAreWritten) {
  const std::string text =
      "general_configs { cadmor_camera_version: 1 }\n"
      "peripherals: [{ id: \"a\" }, { type: PERIPHERAL_TYPE_IMU }]\n"
      "device_info { soc_name: \"x\" }\n"
      "peripherals { id: \"\" }\n";
  Session nested(J(R"({"textDocument": {"documentSymbol": {"hierarchicalDocumentSymbolSupport": true}}})"));
  Session flat;
  for (Session* session : {&nested, &flat}) session->Open(text);
  const Json groups = nested.OnDocument("textDocument/documentSymbol")["result"];
  ASSERT_EQ(groups.size(), 2u) << groups.dump(1);
  EXPECT_EQ(groups[0]["name"], "peripherals");
  EXPECT_EQ(groups[0]["range"]["end"]["line"], 3) << "to the end of the second list";
  std::vector<std::string> names;
  for (const Json& child : groups[0]["children"]) names.push_back(child["name"]);
  EXPECT_EQ(names, (std::vector<std::string>{"a", "peripherals", "\"\""}));
  const Json& unnamed = groups[0]["children"][1];
  EXPECT_EQ(unnamed["selectionRange"], Range(1, 27, 27)) << "the entry's start: " << unnamed.dump();
  EXPECT_EQ(groups[1]["children"][0]["name"], "device_info");

  names.clear();
  const Json symbols = flat.OnDocument("textDocument/documentSymbol")["result"];
  for (const Json& symbol : symbols)
    names.push_back(symbol["name"].get<std::string>() + " in " + symbol["containerName"].get<std::string>());
  EXPECT_EQ(names, (std::vector<std::string>{"a in peripherals", "peripherals in peripherals",
                                             "device_info in device_info", "\"\" in peripherals"}));
}

// What a hover says of an id (its template, a cycle, a missing entry, the kind it must name), of
// a field (its oneof, the comment of its type) and of an enumeration value (its other names, its
// alias).
TEST(Lsp, HoverNotesSayWhatTheSchemaAndTheIdsKnow) {
  Session session(J(R"({"textDocument": {"hover": {"contentFormat": ["markdown"]}}})"));
  const std::string text =
      "device_info { device_name: HARDWARE_TREVIL3 }\n"
      "peripherals { id: \"a\" type: PERIPHERAL_TYPE_IMU dependencies { peripheral_id: \"b\" } }\n"
      "peripherals { id: \"b\" type: PERIPHERAL_TYPE_IMU dependencies { peripheral_id: \"a\" } }\n"
      "physical_cameras { peripheral_id: \"tmpl\" is_template: true model: CAMERA_MODEL_VELMIR cadmor { gpio "
      "{} } }\n"
      "physical_cameras { peripheral_id: \"gone\" template_id: \"tmpl\" model: CAMERA_MODEL_OV7251 }\n"
      "system_options { type: PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX_CCI options_qc_camx_cci {} }\n"
      "peripherals { id: \"c\" }\n";
  session.Open(text);
  struct Row {
    const char* needle;
    const char* says;      // empty: no note at all
    const char* not_says;  // nor this
  };
  const Row rows[] = {
      {"HARDWARE_TREVIL3", "Alias: `TREVIL3`", ""},
      {"PERIPHERAL_TYPE_IMU", "`PERIPHERAL_TYPE_IMU = 5`", ""},
      {"template_id", "string template_id = 3;", ""},
      {"c\" }", "referred to 0 times\n\nbrought up 1 of 3", ""},
      {"device_name", "`TargetDevice`: The hardware that a configuration is written for", ""},
      {"gpio", "`GPIO`: The sensor's lines to the controller.", ""},
      {"CAMERA_MODEL_VELMIR",
       "also named `CAMERA_MODEL_OV7251` (`CAMERA_MODEL_OV7251` is how pcfg prints it)", ""},
      {"CAMERA_MODEL_OV7251", "also named `CAMERA_MODEL_VELMIR`", "is how pcfg prints it"},
      {"tmpl\" is", "template `tmpl`\n\nreferred to 1 time", "peripheral"},
      {"a\" type", "not brought up: on a dependency cycle or behind one", "brought up 1"},
      {"gone", "no entry defines it", ""},
      {"gone", "must name a `PERIPHERAL_TYPE_CAMERA`", ""},
      {"options_qc_camx_cci",
       "in `Talvo.Peripherals.Config.Models.PeripheralSystemTypeOptions`, one of `options`", ""},
      {"true", "", ""},  // a value of no enumeration
  };
  for (const Row& row : rows) {
    const Json result = session.At("textDocument/hover", row.needle, 1);
    if (*row.says == '\0') {
      EXPECT_TRUE(result.is_null()) << row.needle << ": " << result.dump();
      continue;
    }
    const std::string note = result["contents"].value("value", "");
    EXPECT_NE(note.find(row.says), std::string::npos) << row.needle << ": " << note;
    if (*row.not_says != '\0') {
      EXPECT_EQ(note.find(row.not_says), std::string::npos) << row.needle << ": " << note;
    }
  }
}

// What completes where: a bool's values, the ids after a list's ',', the fields a oneof leaves
// open, a field name half typed; nothing under a name the schema does not know.
TEST(Lsp, CompletionFollowsWhereTheCursorIs) {
  Session session;  // no snippets
  const std::string text =
      "peripherals { id: \"cam0\" type: PERIPHERAL_TYPE_CAMERA }\n"
      "camera_sets { peripheral_id: \"set0\" camera_peripheral_ids: [\"cam0\", ] }\n"
      "physical_cameras { is_template:  }\n"
      "system_options { options_qc_camx_cci {}  }\n"
      "peripherals { id: \"x\" type }\n"
      "device_info { soc_name:  }\n"
      "bogus { x:  }\n"
      "peripherals { colour:  }\n";
  session.Open(text);
  const auto complete = [&](const Json& position) {
    std::map<std::string, Json> items;
    for (const Json& item :
         session.OnDocument("textDocument/completion", {{"position", position}})["result"].value(
             "items", Json::array()))
      items[item["label"]] = item;
    return items;
  };
  struct Row {
    const char* needle;
    int shift;
    std::vector<std::string> has, lacks;
    size_t count;  // 0: any number
  };
  const Row rows[] = {
      {"\"cam0\", ]", 8, {"cam0"}, {}, 1},
      {"is_template:  }", 13, {"true", "false"}, {}, 2},
      {"{}  }", 3, {"type"}, {"options_qc_camx", "options_qc_camx_cci"}, 0},
      {"type }", 4, {"type", "dependencies"}, {"id"}, 0},  // the name typed is no field set yet
      {"soc_name:  }", 10, {}, {}, 0},
      {"x:  }", 3, {}, {}, 0},
      {"colour:  }", 8, {}, {}, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.needle);
    const std::map<std::string, Json> items = complete(session.PositionOf(row.needle, row.shift));
    EXPECT_TRUE(!row.has.empty() || items.empty()) << items.size() << " items";
    EXPECT_TRUE(row.count == 0 || items.size() == row.count) << items.size() << " items";
    for (const std::string& label : row.has) EXPECT_EQ(items.count(label), 1u) << label;
    for (const std::string& label : row.lacks) EXPECT_EQ(items.count(label), 0u) << label;
  }
  // The name typed is replaced whole.
  EXPECT_EQ(complete(session.PositionOf("type }", 4))["type"]["textEdit"]["range"],
            Json({{"start", session.PositionOf("type }")}, {"end", session.PositionOf("type }", 4)}}));
  // At the top: the lists, a message without a snippet, and the header the document lacks.
  const Json end = {{"line", 8}, {"character", 0}};
  std::map<std::string, Json> top = complete(end);
  EXPECT_EQ(top["peripherals"]["textEdit"]["newText"], "peripherals {}");
  EXPECT_FALSE(top["peripherals"].contains("insertTextFormat"));
  EXPECT_EQ(top.count("# proto-file / proto-message header"), 1u);
  session.Notify("textDocument/didChange", Changes(2, {Edit(Range(0, 0, 0), "# proto-message: x\n")}));
  top = complete({{"line", 9}, {"character", 0}});
  EXPECT_EQ(top.count("peripherals"), 1u);
  EXPECT_EQ(top.count("# proto-file / proto-message header"), 0u) << "the header is there";
}

TEST(Lsp, ManyIdsCompleteByWhatIsTyped) {
  Session session;
  std::string text;
  for (int i = 0; i < 300; ++i) text += "peripherals { id: \"p" + std::to_string(i) + "\" }\n";
  text += "peripherals { id: \"q\" dependencies { peripheral_id: \"p29";
  session.Open(text);
  const Json all = session.OnDocument("textDocument/completion",
                                      {{"position", session.PositionOf("peripheral_id: \"p29", 19)}});
  EXPECT_EQ(all["result"]["isIncomplete"], true);
  const Json& items = all["result"]["items"];
  ASSERT_EQ(items.size(), 11u) << "p29 and p290 to p299: " << items.dump();
  for (const Json& item : items) EXPECT_EQ(item["label"].get<std::string>().rfind("p29", 0), 0u);
}

// An entry being typed, its brace and string still open, swallows none of the entries below it.
TEST(Lsp, AHalfTypedEntryLeavesTheEntriesBelowItReadable) {
  Session session;
  const std::string text =
      "peripherals { id: \"cam0\" type: PERIPHERAL_TYPE_CAMERA }\n"
      "camera_sets { peripheral_id: \"set0\" camera_peripheral_ids: \"\n"
      "peripherals { id: \"cam1\" type: PERIPHERAL_TYPE_CAMERA }\n";
  session.Open(text);
  const Json found = session.OnDocument("textDocument/completion",
                                        {{"position", session.PositionOf("camera_peripheral_ids: \"", 24)}});
  std::vector<std::string> labels;
  for (const Json& item : found["result"]["items"]) labels.push_back(item["label"]);
  EXPECT_EQ(labels, (std::vector<std::string>{"cam0", "cam1"}));
}

TEST(Lsp, FormattingKeepsCommentsAndRefusesWhatWouldChange) {
  Session session;
  const std::string messy = "peripherals {   id: \"a\"   # keep\n}\n\n\n\nperipherals {id: \"b\"}\n";
  session.Open(messy);
  const Json edits = session.OnDocument("textDocument/formatting")["result"];
  ASSERT_TRUE(edits.is_array()) << edits.dump();
  EXPECT_EQ(edits[0]["range"], Range(0, 0, 0)) << "the header goes first";
  std::string all;
  for (const Json& edit : edits) all += edit["newText"].get<std::string>();
  EXPECT_NE(all.find("id: \"a\"  # keep"), std::string::npos) << all;
  // Only the lines asked for.
  const Json range =
      session.OnDocument("textDocument/rangeFormatting", {{"range", Range(5, 0, 3)}})["result"];
  ASSERT_EQ(range.size(), 1u) << range.dump();
  EXPECT_EQ(range[0]["newText"], "peripherals { id: \"b\" }\n");
  session.Notify("textDocument/didChange", Changes(2, {Whole("peripherals { id: ")}));
  EXPECT_EQ(session.OnDocument("textDocument/formatting")["error"]["code"], -32803);
}

TEST(Lsp, CodeActionsFixWhatTheyCan) {
  Session session;
  const std::string text =
      "peripherals { id: \"cam0\" type: PERIPHERAL_TYPE_CAMERA }  # pcfg: ignore no-driver -- unused\n"
      "peripherals { id: \"mag0\" type: PERIPHERAL_TYPE_MAG dependencies { peripheral_id: \"imu9\" } }  # "
      "note\n"
      "physical_cameras { peripheral_id: \"tmpl\" is_template: true cadmor {} }\n"
      "physical_cameras { peripheral_id: \"cam0\" template_id: \"tmpk\" cadmor {} }\n"
      "peripherals { id: \"imu0\" type: PERIPHERAL_TYPE_IMU system_type: "
      "PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX_CCI }";  // no line break at the end
  session.Open(text);
  const Json diagnostics = session.Diagnostics();
  // Each finding with the titles of its fixes, and the text of the preferred one.
  std::map<std::string, std::pair<std::vector<std::string>, std::string>> offered;
  for (const Json& d : diagnostics) {
    const Json actions = session.OnDocument(
        "textDocument/codeAction",
        {{"range", d["range"]}, {"context", {{"diagnostics", Json::array({d})}}}})["result"];
    auto& [titles, preferred] = offered[d.value("code", "")];
    for (const Json& action : actions) {
      titles.push_back(action["title"]);
      if (action.value("isPreferred", false))
        preferred = action["edit"]["changes"][kUri][0]["newText"].get<std::string>();
    }
  }
  const auto titles = [&](const std::string& code) { return offered[code].first; };
  EXPECT_EQ(offered["dangling-reference"].second, "imu0")
      << "the nearest id, of any type a dependency may name";
  EXPECT_EQ(titles("dangling-reference"),
            (std::vector<std::string>{"Change to \"imu0\"",
                                      "Silence dangling-reference for the entry that starts here",
                                      "Add the proto-file / proto-message header"}));
  EXPECT_EQ(offered["missing-options"].second,
            "\nsystem_options {\n  type: PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX_CCI\n}\n")
      << "after a line break the text lacks";
  EXPECT_EQ(titles("missing-options")[1], "Silence missing-options on this line");
  EXPECT_EQ(offered["template-reference"].second, "tmpl");
  EXPECT_EQ(titles("unused-suppression"),
            std::vector<std::string>{"Add the proto-file / proto-message header"})
      << "no suppression of a suppression";
  // Findings of other tools, and codes that are no rule's, get no fix of their own.
  const Json foreign = session.OnDocument(
      "textDocument/codeAction",
      {{"range", Range(1, 0, 0)},
       {"context",
        {{"diagnostics",
          {{{"source", "other"}, {"code", "dangling-reference"}, {"range", Range(1, 66, 87)}},
           {{"source", "pcfg"}, {"code", 7}, {"range", Range(1, 66, 87)}}}}}}})["result"];
  ASSERT_EQ(foreign.size(), 1u) << foreign.dump();
  EXPECT_FALSE(foreign[0].contains("diagnostics")) << "the header, for the document";

  // An enumeration name protobuf does not know: the nearest names of its enumeration.
  const std::string typo = "peripherals { id: \"a\" type: PERIPHERAL_TYPE_IMUU }\n";
  session.Notify("textDocument/didChange", Changes(2, {Whole(typo)}));
  const Json error = session.Diagnostics()[0];
  const Json actions = session.OnDocument(
      "textDocument/codeAction",
      {{"range", error["range"]}, {"context", {{"diagnostics", Json::array({error})}}}})["result"];
  ASSERT_FALSE(actions.empty()) << error.dump();

  EXPECT_EQ(actions[0]["title"], "Change to PERIPHERAL_TYPE_IMU");
  EXPECT_EQ(actions[0]["edit"]["changes"][kUri][0]["range"], Range(0, 28, 48));

  EXPECT_EQ(pcfg::lsp::EditDistance("kitten", "sitting", 5), 3u);
  EXPECT_EQ(pcfg::lsp::EditDistance("kitten", "sitting", 2), 3u) << "past the limit: limit + 1";
}

TEST(Lsp, HintsLensesAndRelatedPlaces) {
  Session session(J(R"({"textDocument": {"publishDiagnostics": {"relatedInformation": true}}})"));
  session.Open(kText);
  const Json hints = session.OnDocument("textDocument/inlayHint", {{"range", Range(5, 0, 99)}})["result"];
  ASSERT_EQ(hints.size(), 1u) << "line 6 only: " << hints.dump();
  EXPECT_EQ(hints[0]["label"], "CAMERA");
  EXPECT_EQ(hints[0]["position"], session.PositionOf("\" }\n}", 1));
  const Json all = session.OnDocument("textDocument/inlayHint", {{"range", Range(0, 0, 0)}});
  EXPECT_TRUE(all["result"].empty());
  const Json lenses = session.OnDocument("textDocument/codeLens")["result"];
  ASSERT_EQ(lenses.size(), 4u) << "cam0, cams, imu0 and the template: " << lenses.dump();
  EXPECT_EQ(lenses[0]["command"]["title"], "3 references");
  EXPECT_EQ(lenses[0]["command"]["command"], "pcfg.showReferences");
  EXPECT_EQ(lenses[0]["command"]["arguments"], Json::array({kUri, lenses[0]["range"]["start"]}));
  EXPECT_EQ(lenses[2]["command"]["title"], "0 references");
  EXPECT_EQ(lenses[3]["command"]["title"], "1 reference");

  // A repeated id points at the first entry of its list; a cycle at each of its members.
  const std::string text =
      "camera_sets { peripheral_id: \"a\" }\n"
      "peripherals { id: \"a\" type: PERIPHERAL_TYPE_IMU dependencies { peripheral_id: \"b\" } }\n"
      "peripherals { id: \"b\" type: PERIPHERAL_TYPE_IMU dependencies { peripheral_id: \"a\" } }\n"
      "peripherals { id: \"a\" type: PERIPHERAL_TYPE_IMU }\n";
  session.Notify("textDocument/didChange", Changes(2, {Whole(text)}));
  std::map<std::string, Json> related;
  for (const Json& d : session.Diagnostics())
    related[d.value("code", "")] = d.value("relatedInformation", Json());
  ASSERT_EQ(related["duplicate-id"].size(), 1u) << related["duplicate-id"].dump();
  EXPECT_EQ(related["duplicate-id"][0]["location"]["range"], Range(1, 19, 20));
  ASSERT_EQ(related["dependency-cycle"].size(), 2u) << related["dependency-cycle"].dump();
  EXPECT_EQ(related["dependency-cycle"][1]["location"]["range"], Range(2, 19, 20));
  EXPECT_EQ(session.OnDocument("textDocument/codeLens")["result"].size(), 2u)
      << "a repeated id has no count of its own";

  // The hint says what kind of entry a reference names: a type written as a number (hex, octal)
  // by its name, none, no entry, a template; after a string written in pieces too.
  const std::string kinds =
      "peripherals { id: \"imu0\" type: 0x5 } peripherals { id: \"f\" type: 010 }\n"
      "peripherals { id: \"p\" }\n"
      "peripherals { id: \"d\" dependencies { peripheral_id: \"imu0\" } dependencies { peripheral_id: \"p\" "
      "} dependencies { peripheral_id: \"f\" }\n"
      "  dependencies { peripheral_id: \"gone\" } dependencies { peripheral_id: \"i\" \"mu0\" } }\n"
      "physical_cameras { peripheral_id: \"t\" is_template: true }\n"
      "physical_cameras { peripheral_id: \"c\" template_id: \"t\" }\n";
  session.Notify("textDocument/didChange", Changes(3, {Whole(kinds)}));
  session.set_text(kinds);
  std::vector<std::string> labels;
  Json last;
  const Json everything = {{"start", {{"line", 0}, {"character", 0}}},
                           {"end", {{"line", 9}, {"character", 0}}}};
  const Json kind_hints = session.OnDocument("textDocument/inlayHint", {{"range", everything}})["result"];
  for (const Json& hint : kind_hints) {
    labels.push_back(hint["label"]);
    if (labels.size() == 5) last = hint["position"];
  }
  EXPECT_EQ(labels, (std::vector<std::string>{"IMU", "peripheral", "FPGA", "no entry", "IMU", "no entry",
                                              "template"}));
  EXPECT_EQ(last, session.PositionOf("\"mu0\"", 5));
}

TEST(Lsp, CancelledAndOutdatedRequestsAreAnsweredSo) {
  Session session;
  session.Open(kText);
  const Json hover = {{"textDocument", {{"uri", kUri}}}, {"position", {{"line", 0}, {"character", 20}}}};
  const auto ask = [&](int id) {
    session.server().Handle(
        {{"jsonrpc", "2.0"}, {"id", id}, {"method", "textDocument/hover"}, {"params", hover}});
    return session.sent().back();
  };
  session.server().Cancel(7);
  EXPECT_EQ(ask(7)["error"]["code"], -32800);
  EXPECT_FALSE(ask(7).contains("error")) << "a cancellation is used once";
  session.server().DocumentChanging(kUri);
  EXPECT_EQ(ask(8)["error"]["code"], -32801);
  session.Notify("textDocument/didChange", Changes(2, {Whole(kText)}));
  EXPECT_FALSE(ask(9).contains("error")) << "the change has come";
}

TEST(Lsp, ADocumentOverTheInputLimitIsNotRead) {
  const pcfg::lsp::Analysis analysis("big.txtpb", kText, kText.size() - 1);
  ASSERT_EQ(analysis.diagnostics().size(), 1u);
  EXPECT_NE(analysis.diagnostics()[0].message.find("over the"), std::string::npos);
  EXPECT_FALSE(analysis.parsed());
  EXPECT_TRUE(analysis.ids().occurrences().empty());
  EXPECT_FALSE(pcfg::lsp::Analysis("fits.txtpb", kText, kText.size()).ids().occurrences().empty());
}

// The server on its streams: framing faults answered, a cancellation seen before the request it
// cancels, and the exit status: 0 after shutdown, 1 when the input ends without exit.
TEST(Lsp, TheServerOnItsStreams) {
  const auto frame = [](const std::string& body) {
    return "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  };
  const auto run = [](const std::string& input, int* status) {
    int in[2], out[2];
    EXPECT_EQ(pipe(in), 0);
    EXPECT_EQ(pipe(out), 0);
    EXPECT_EQ(write(in[1], input.data(), input.size()), static_cast<ssize_t>(input.size()));
    close(in[1]);
    *status = pcfg::lsp::RunLanguageServer(in[0], out[1]);
    close(out[1]);
    pcfg::lsp::MessageReader reader(out[0]);
    std::vector<Json> replies;
    for (std::string body; reader.Next(&body) == pcfg::lsp::MessageReader::Result::kMessage;)
      if (Json message = Json::parse(body); message.contains("id"))
        replies.push_back(message);  // no notifications
    close(out[0]);
    return replies;
  };
  int status = -1;
  std::vector<Json> replies = run(
      frame(R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"capabilities":{}}})") +
          "X-No-Length: 1\r\n\r\n" +
          frame(R"({"jsonrpc":"2.0","method":"$/cancelRequest","params":{"id":2}})") +
          frame(R"({"jsonrpc":"2.0","id":2,"method":"textDocument/hover","params":{}})") +
          frame(
              R"({"jsonrpc":"2.0","method":"textDocument/didOpen","params":{"textDocument":{"uri":"file:///s","version":1,"text":"peripherals { id: \"a\" }"}}})") +
          frame(
              R"({"jsonrpc":"2.0","method":"textDocument/didChange","params":{"textDocument":{"uri":"file:///s","version":2},"contentChanges":[{"range":{"start":{"line":0,"character":19},"end":{"line":0,"character":20}},"text":"b"}]}})") +
          frame(
              R"({"jsonrpc":"2.0","id":4,"method":"textDocument/documentSymbol","params":{"textDocument":{"uri":"file:///s"}}})") +
          frame(R"({"jsonrpc":"2.0","id":3,"method":"shutdown"})") +
          frame(R"({"jsonrpc":"2.0","method":"exit"})"),
      &status);
  EXPECT_EQ(status, 0);
  ASSERT_EQ(replies.size(), 5u);
  EXPECT_EQ(replies[0]["id"], 1);
  EXPECT_EQ(replies[1]["error"],
            Json({{"code", -32700}, {"message", "a message header without a Content-Length"}}));
  EXPECT_EQ(replies[2]["error"]["code"], -32800);
  EXPECT_EQ(replies[3].value("result", Json())[0]["name"], "b")
      << "after the change, not refused for it: " << replies[3];
  EXPECT_EQ(replies[4]["id"], 3);
  // A header block that never ends is dropped, answered once; then the input ends, shut down
  // but with no exit.
  replies = run(frame(R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"capabilities":{}}})") +
                    frame(R"({"jsonrpc":"2.0","id":2,"method":"shutdown"})") + std::string(10000, 'x'),
                &status);
  EXPECT_EQ(status, 1);
  ASSERT_EQ(replies.size(), 3u);
  EXPECT_EQ(replies[2]["error"]["code"], -32700);
}

TEST(Lsp, FramingSurvivesWhatThePeerSends) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  const std::string body = R"({"a":1})";
  const std::string input = "Content-Length: 7\r\n\r\n" + body +              // a message
                            "Content-Type: x\r\n\r\n" +                       // no length
                            "content-length:  7 \r\nX: y\r\n\r\n" + body +    // any case, blanks
                            "Content-Length: 7x\r\n\r\n" +                    // no number
                            "Content-Length: 99999999999999999999\r\n\r\n" +  // past any number
                            "Content-Len: 7\r\nno colon\r\n\r\n" +            // no such field
                            "Content-Length: 7\r\n\r\n" + body + "Content-Length: 99999999999\r\n\r\n" +
                            "abc";  // past the limit, cut off
  ASSERT_EQ(write(fds[1], input.data(), input.size()), static_cast<ssize_t>(input.size()));
  close(fds[1]);
  pcfg::lsp::MessageReader reader(fds[0]);
  std::string got;
  using Result = pcfg::lsp::MessageReader::Result;
  EXPECT_EQ(reader.Next(&got), Result::kMessage);
  EXPECT_EQ(got, body);
  EXPECT_EQ(reader.Next(&got), Result::kMalformed);
  EXPECT_EQ(reader.Next(&got), Result::kMessage);
  EXPECT_EQ(got, body);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(reader.Next(&got), Result::kMalformed) << i;
  EXPECT_EQ(reader.Next(&got), Result::kMessage);
  EXPECT_EQ(got, body);
  EXPECT_EQ(reader.Next(&got), Result::kEnd);
  close(fds[0]);

  // A recorded session: comments, blank lines and separators with nothing between them are no
  // messages; lines may end in \r\n; the last message needs no separator after it.
  ASSERT_EQ(pipe(fds), 0);
  const std::string session = "# a check\r\n---\r\n{\"a\":\r\n\r\n1}\r\n---\n---\n{\"b\":2}";
  ASSERT_EQ(write(fds[1], session.data(), session.size()), static_cast<ssize_t>(session.size()));
  close(fds[1]);
  pcfg::lsp::MessageReader recorded(fds[0], pcfg::lsp::MessageReader::Style::kDelimited);
  EXPECT_EQ(recorded.Next(&got), Result::kMessage);
  EXPECT_EQ(got, "{\"a\":\n1}\n");
  EXPECT_EQ(recorded.Next(&got), Result::kMessage);
  EXPECT_EQ(got, "{\"b\":2}\n");
  EXPECT_EQ(recorded.Next(&got), Result::kEnd);
  close(fds[0]);

  // A document opened whole (megabytes, read past the buffer) and the message right behind it,
  // then a large one cut off.
  ASSERT_EQ(pipe(fds), 0);
  const std::string large = "\"" + std::string(3 << 20, 'x') + "\"";
  std::thread writer([&] {
    const std::string stream = "Content-Length: " + std::to_string(large.size()) + "\r\n\r\n" + large +
                               "Content-Length: 7\r\n\r\n" + body + "Content-Length: 2000000\r\n\r\n{";
    for (size_t at = 0; at < stream.size();) {
      const ssize_t wrote = write(fds[1], stream.data() + at, stream.size() - at);
      if (wrote <= 0) break;
      at += static_cast<size_t>(wrote);
    }
    close(fds[1]);
  });
  pcfg::lsp::MessageReader after_large(fds[0]);
  EXPECT_EQ(after_large.Next(&got), Result::kMessage);
  EXPECT_EQ(got, large);
  EXPECT_EQ(after_large.Next(&got), Result::kMessage);
  EXPECT_EQ(got, body);
  EXPECT_EQ(after_large.Next(&got), Result::kEnd);
  writer.join();
  close(fds[0]);
}

}  // namespace
