// The language server against what an editor, or anything posing as one, may send: a raw stream
// of frames and bodies, or a document edited at random places with every kind of request between
// the edits. Properties: nothing crashes or hangs; every request is answered exactly once; the
// text the server holds is the text a plain model of the same edits holds; a document lent once
// keeps one edit that spans every change since, and positions that are those of its text read
// afresh; and a message read with its document's text decoded apart is the message nlohmann's
// parser reads.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "document.h"
#include "fuzz_support.h"
#include "message_json.h"
#include "server.h"
#include "transport.h"

namespace {

using pcfg::lsp::Json;

const char kUri[] = "file:///fuzz.txtpb";

// The bytes a position stands for, as the protocol says for UTF-8 positions: past its line's end
// means the line's end (a '\r' before the break excluded), past the last line the text's end.
size_t ModelOffset(const std::string& text, int line, int character) {
  size_t start = 0;
  for (int l = 0; l < line; ++l) {
    const size_t br = text.find('\n', start);
    if (br == std::string::npos) return text.size();
    start = br + 1;
  }
  size_t end = text.find('\n', start);
  if (end == std::string::npos) end = text.size();
  if (end > start && text[end - 1] == '\r') --end;
  return std::min(start + static_cast<size_t>(character), end);
}

void RawStream(fuzz::Bytes& input) {
  const std::string stream = input.Rest();
  const int fd = memfd_create("lsp-fuzz", 0);
  if (fd < 0) return;
  if (write(fd, stream.data(), stream.size()) != static_cast<ssize_t>(stream.size()) ||
      lseek(fd, 0, SEEK_SET) != 0) {
    close(fd);
    return;
  }
  pcfg::lsp::Server server([](const Json&) {});
  pcfg::lsp::MessageReader reader(fd, stream.size() % 2 ? pcfg::lsp::MessageReader::Style::kFramed
                                                        : pcfg::lsp::MessageReader::Style::kDelimited);
  std::string body;
  for (int messages = 0; messages < 10000 && !server.exited(); ++messages) {
    const auto result = reader.Next(&body);
    if (result == pcfg::lsp::MessageReader::Result::kEnd) break;
    if (result == pcfg::lsp::MessageReader::Result::kMessage) {
      // The open's text decoded apart (tried on every body here) gives what the plain parse does.
      const Json plain = Json::parse(body, nullptr, false), apart = pcfg::lsp::ParseMessage(body, 0);
      if (plain.is_discarded() != apart.is_discarded() || (!plain.is_discarded() && plain != apart))
        fuzz::Fail("a message read with its text decoded apart differs from the plain parse", body);
    }
    server.HandleBody(result == pcfg::lsp::MessageReader::Result::kMessage ? body
                                                                           : pcfg::lsp::kMalformedHeader);
    server.PublishPending();
  }
  close(fd);
}

// The diagnostics of a publication, without those kept from the last text that parsed.
Json Fresh(const Json& publication) {
  Json diagnostics = Json::array();
  if (publication.is_object())
    for (const Json& d : publication["params"]["diagnostics"])
      if (d.value("message", "").find("(found in the last text that parsed)") == std::string::npos)
        diagnostics.push_back(d);
  return diagnostics;
}

// DOCUMENT, lent as LENT and changed since: the bytes before its edit's start and after its ends
// are LENT's.
void CheckEditSinceLent(const pcfg::lsp::Document& document, const std::string& lent) {
  const std::string& text = document.text();
  const auto edit = document.edit_since_lent();
  if (!edit || edit->begin > std::min(edit->old_end, edit->new_end) || edit->old_end > lent.size() ||
      lent.size() - edit->old_end != text.size() - edit->new_end ||
      lent.compare(0, edit->begin, text, 0, edit->begin) != 0 ||
      lent.compare(edit->old_end, std::string::npos, text, edit->new_end, std::string::npos) != 0)
    fuzz::Fail("the edit since the text was lent does not span the changes", text);
}

// DOCUMENT's positions, after its changes, are those of its text read afresh.
void CheckPositions(const pcfg::lsp::Document& document) {
  const std::string& text = document.text();
  const pcfg::lsp::Document fresh(kUri, text, 1);
  for (uint32_t at = 0; at <= text.size(); ++at)
    for (const auto encoding : {pcfg::lsp::PositionEncoding::kUtf16, pcfg::lsp::PositionEncoding::kUtf8}) {
      const pcfg::lsp::Position got = document.PositionOf(at, encoding),
                                want = fresh.PositionOf(at, encoding);
      if (got.line != want.line || got.character != want.character)
        fuzz::Fail("positions after the edits are not those of the text read afresh", text);
    }
}

void EditedDocument(fuzz::Bytes& input, bool utf8) {
  std::vector<Json> sent;
  Json last_published;
  pcfg::lsp::Server server([&](const Json& message) {
    if (message.value("method", "") == "textDocument/publishDiagnostics") last_published = message;
    sent.push_back(message);
  });
  int id = 0;
  const auto request = [&](const std::string& method, Json params) {
    sent.clear();
    const int this_id = ++id;
    server.Handle({{"jsonrpc", "2.0"}, {"id", this_id}, {"method", method}, {"params", std::move(params)}});
    const auto replies = std::count_if(sent.begin(), sent.end(),
                                       [&](const Json& m) { return m.contains("id") && m["id"] == this_id; });
    if (replies != 1) fuzz::Fail(method + " was answered " + std::to_string(replies) + " times");
  };
  const Json initialize = {
      {"capabilities",
       {{"general", {{"positionEncodings", utf8 ? Json::array({"utf-8"}) : Json::array()}}},
        {"textDocument",
         {{"documentSymbol", {{"hierarchicalDocumentSymbolSupport", true}}},
          {"publishDiagnostics", {{"relatedInformation", true}}}}}}}};
  request("initialize", initialize);
  std::string model = input.Take(input.Byte() * 4u);
  server.Handle(
      {{"jsonrpc", "2.0"},
       {"method", "textDocument/didOpen"},
       {"params",
        {{"textDocument", {{"uri", kUri}, {"languageId", "textproto"}, {"version", 1}, {"text", model}}}}}});
  pcfg::lsp::Document document(kUri, model, 1);
  const std::string lent = document.Lend();
  document.Reclaim(lent);
  static const char* const kRequests[] = {"textDocument/hover",           "textDocument/definition",
                                          "textDocument/references",      "textDocument/documentHighlight",
                                          "textDocument/completion",      "textDocument/prepareRename",
                                          "textDocument/rename",          "textDocument/formatting",
                                          "textDocument/rangeFormatting", "textDocument/documentSymbol",
                                          "textDocument/codeAction",      "textDocument/inlayHint",
                                          "textDocument/codeLens"};
  int version = 1;
  for (int steps = 0; steps < 64 && !input.empty(); ++steps) {
    const uint8_t op = input.Byte();
    const int line = input.Byte() % 24, character = input.Byte() % 64;
    const Json position = {{"line", line}, {"character", character}};
    if (op % 3 == 0) {
      const int end_character = character + input.Byte() % 24;
      const std::string text = input.Take(input.Byte() % 32);
      Json range = {{"start", position}, {"end", {{"line", line}, {"character", end_character}}}};
      server.Handle({{"jsonrpc", "2.0"},
                     {"method", "textDocument/didChange"},
                     {"params",
                      {{"textDocument", {{"uri", kUri}, {"version", ++version}}},
                       {"contentChanges", Json::array({{{"range", range}, {"text", text}}})}}}});
      if (document.Change(pcfg::lsp::Range{{line, character}, {line, end_character}}, text,
                          utf8 ? pcfg::lsp::PositionEncoding::kUtf8 : pcfg::lsp::PositionEncoding::kUtf16))
        CheckEditSinceLent(document, lent);
      if (utf8) {
        const size_t begin = ModelOffset(model, line, character),
                     end = ModelOffset(model, line, end_character);
        model.replace(begin, end - begin, text);
      }
      if (op % 2) server.PublishPending();
      continue;
    }
    const std::string method = kRequests[(op / 3) % (sizeof kRequests / sizeof *kRequests)];
    Json params = {{"textDocument", {{"uri", kUri}}}, {"position", position}};
    params["newName"] = input.Take(input.Byte() % 8) + "x";
    params["range"] = {{"start", position}, {"end", {{"line", line + input.Byte() % 4}, {"character", 0}}}};
    params["context"] = {{"includeDeclaration", true}, {"diagnostics", Json::array()}};
    request(method, params);
  }
  CheckPositions(document);
  const std::string* held = server.TextOf(kUri);
  if (held == nullptr || *held != document.text())
    fuzz::Fail("the server's text differs from a document's given the same edits", document.text());
  if (utf8) {
    if (*held != model) fuzz::Fail("the server's text differs from the edits' text", model);
    // What the edits led to, entries read alone on the way, is what reading the text afresh finds
    // (but for the findings a text that does not parse keeps from the last that did).
    server.PublishPending();
    Json fresh_published;
    pcfg::lsp::Server fresh([&](const Json& message) { fresh_published = message; });
    fresh.Handle({{"jsonrpc", "2.0"}, {"id", 1}, {"method", "initialize"}, {"params", initialize}});
    fresh.Handle({{"jsonrpc", "2.0"},
                  {"method", "textDocument/didOpen"},
                  {"params",
                   {{"textDocument",
                     {{"uri", kUri}, {"languageId", "textproto"}, {"version", 1}, {"text", model}}}}}});
    fresh.PublishPending();
    if (Fresh(last_published) != Fresh(fresh_published))
      fuzz::Fail("the diagnostics after the edits differ from those of the text read afresh", model);
  }
  request("shutdown", nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Bytes input(data, size);
  const uint8_t mode = input.Byte();
  if (mode % 3 == 0) {
    RawStream(input);
  } else {
    EditedDocument(input, mode % 3 == 1);
  }
  return 0;
}
