#include "server.h"

#include <google/protobuf/stubs/strutil.h>

#include <algorithm>
#include <climits>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <thread>

#include "fixes.h"
#include "large_allocator.h"
#include "message_json.h"
#include "schema_help.h"
#include "text_formatting.h"
#include "text_layout.h"
#include "transport.h"

namespace pcfg::lsp {
namespace {

// JSON-RPC and protocol error codes.
constexpr int kParseError = -32700;
constexpr int kInvalidRequest = -32600;
constexpr int kMethodNotFound = -32601;
constexpr int kInvalidParams = -32602;
constexpr int kServerNotInitialized = -32002;
constexpr int kRequestFailed = -32803;
constexpr int kContentModified = -32801;
constexpr int kRequestCancelled = -32800;

// The most completion items one answer holds.
constexpr size_t kMaxCompletionItems = 200;

// The path a file: URI names, for messages; other URIs as they are.
std::string FileOf(const std::string& uri) {
  if (uri.rfind("file://", 0) != 0) return uri;
  std::string path;
  for (size_t i = 7; i < uri.size(); ++i) {
    if (uri[i] == '%' && i + 2 < uri.size() && isxdigit(static_cast<unsigned char>(uri[i + 1])) &&
        isxdigit(static_cast<unsigned char>(uri[i + 2]))) {
      path += static_cast<char>(std::stoi(uri.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      path += uri[i];
    }
  }
  return path;
}

Position PositionFrom(const Json& position) {
  return {position.at("line").get<int>(), position.at("character").get<int>()};
}

Json PositionJson(Position position) { return {{"line", position.line}, {"character", position.character}}; }

int SeverityOf(Severity severity) {
  switch (severity) {
    case Severity::kError:
      return 1;
    case Severity::kWarning:
      return 2;
    case Severity::kNote:
      return 3;
  }
  return 1;
}

// An id as the text format writes it inside quotes.
std::string Quoted(const std::string& id) { return google::protobuf::CEscape(id); }

}  // namespace

Server::Server(Send send) : send_(std::move(send)) {}
Server::~Server() = default;

const std::map<std::string, Server::Method>& Server::Methods() {
  static const std::map<std::string, Method> methods = {
      {"initialize", {&Server::Initialize, false}},
      {"initialized", {&Server::Ignore, false}},
      {"shutdown", {&Server::Shutdown, false}},
      {"textDocument/didOpen", {&Server::DidOpen, false}},
      {"textDocument/didChange", {&Server::DidChange, false}},
      {"textDocument/didClose", {&Server::DidClose, false}},
      {"textDocument/didSave", {&Server::Ignore, false}},
      {"workspace/didChangeConfiguration", {&Server::Ignore, false}},
      {"textDocument/definition", {&Server::Definition, true}},
      {"textDocument/references", {&Server::References, true}},
      {"textDocument/documentHighlight", {&Server::Highlight, true}},
      {"textDocument/prepareRename", {&Server::PrepareRename, true}},
      {"textDocument/rename", {&Server::Rename, true}},
      {"textDocument/documentSymbol", {&Server::Symbols, true}},
      {"textDocument/formatting", {&Server::Formatting, true}},
      {"textDocument/rangeFormatting", {&Server::RangeFormatting, true}},
      {"textDocument/hover", {&Server::Hover, true}},
      {"textDocument/completion", {&Server::Completion, true}},
      {"textDocument/codeAction", {&Server::CodeActions, true}},
      {"textDocument/inlayHint", {&Server::InlayHints, true}},
      {"textDocument/codeLens", {&Server::CodeLenses, true}},
  };
  return methods;
}

void Server::Reply(const Json& id, Json result) {
  send_({{"jsonrpc", "2.0"}, {"id", id}, {"result", std::move(result)}});
}

void Server::ReplyError(const Json& id, int code, const std::string& message) {
  send_({{"jsonrpc", "2.0"}, {"id", id}, {"error", {{"code", code}, {"message", message}}}});
}

void Server::Cancel(const Json& id) {
  std::lock_guard<std::mutex> lock(interrupts_mutex_);
  cancelled_.insert(id.dump());
}

void Server::DocumentChanging(const std::string& uri) {
  std::lock_guard<std::mutex> lock(interrupts_mutex_);
  ++changing_[uri];
}

void Server::HandleBody(const std::string& body) {
  if (body == kMalformedHeader)
    return ReplyError(nullptr, kParseError, "a message header without a Content-Length");
  if (body == kTooLarge)
    return ReplyError(nullptr, kParseError,
                      "a message over " + std::to_string(kMaxMessageBytes >> 20) + " MiB, not read");
  Json message = ParseMessage(body);
  if (message.is_discarded()) return ReplyError(nullptr, kParseError, "the message is not JSON");
  Handle(std::move(message));
}

void Server::Handle(Json message) {
  if (!message.is_object() || !message.contains("method") || !message["method"].is_string()) {
    // A reply to a request of ours (we send none) or something that is no message at all.
    if (message.is_object() && (message.contains("result") || message.contains("error"))) return;
    const Json id = message.is_object() && message.contains("id") ? message["id"] : Json(nullptr);
    return ReplyError(id, kInvalidRequest, "not a JSON-RPC request or notification");
  }
  const std::string method = message["method"];
  const bool request = message.contains("id");
  const Json id = request ? message["id"] : Json(nullptr);
  if (request && !id.is_string() && !id.is_number_integer())
    return ReplyError(nullptr, kInvalidRequest, "a request id is a number or a string");
  Json params = message.contains("params") ? std::move(message["params"]) : Json::object();

  if (method == "exit") {
    exited_ = true;
    return;
  }
  if (method == "textDocument/didChange" && params.is_object() && params.contains("textDocument")) {
    std::lock_guard<std::mutex> lock(interrupts_mutex_);
    const auto it = changing_.find(params["textDocument"].value("uri", ""));
    if (it != changing_.end() && --it->second <= 0) changing_.erase(it);
  }
  if (!initialized_ && method != "initialize") {
    if (request) ReplyError(id, kServerNotInitialized, "initialize first");
    return;
  }
  if (shut_down_ && request) return ReplyError(id, kInvalidRequest, "the server is shut down");
  const auto found = Methods().find(method);
  if (found == Methods().end()) {
    // Notifications the server does not know are dropped, as are "$/" ones it need not answer.
    if (request) ReplyError(id, kMethodNotFound, "pcfg does not handle " + method);
    return;
  }
  if (request) {
    std::lock_guard<std::mutex> lock(interrupts_mutex_);
    if (cancelled_.erase(id.dump()) != 0) {
      ReplyError(id, kRequestCancelled, "cancelled");
      return;
    }
    if (found->second.needs_document && params.is_object() && params.contains("textDocument") &&
        params["textDocument"].is_object() && changing_.count(params["textDocument"].value("uri", "")) != 0) {
      ReplyError(id, kContentModified, "the document changed");
      return;
    }
  }
  try {
    Json result = (this->*found->second.handler)(params);
    if (request) Reply(id, std::move(result));
  } catch (const Json::exception& e) {
    if (request) ReplyError(id, kInvalidParams, std::string("invalid params: ") + e.what());
  } catch (const std::runtime_error& e) {
    if (request) ReplyError(id, kRequestFailed, e.what());
  }
}

// ---- Life cycle ----

Json Server::Initialize(Json& params) {
  if (initialized_) throw std::runtime_error("initialize was already called");
  initialized_ = true;
  const Json capabilities = params.value("capabilities", Json::object());
  const Json general = capabilities.value("general", Json::object());
  for (const Json& encoding : general.value("positionEncodings", Json::array()))
    if (encoding == "utf-8") encoding_ = PositionEncoding::kUtf8;
  const Json text_document = capabilities.value("textDocument", Json::object());
  client_.hierarchical_symbols =
      text_document.value("documentSymbol", Json::object()).value("hierarchicalDocumentSymbolSupport", false);
  client_.snippets = text_document.value("completion", Json::object())
                         .value("completionItem", Json::object())
                         .value("snippetSupport", false);
  const Json tags =
      text_document.value("publishDiagnostics", Json::object()).value("tagSupport", Json::object());
  for (const Json& tag : tags.value("valueSet", Json::array())) client_.unnecessary_tag |= tag == 1;
  client_.related_information =
      text_document.value("publishDiagnostics", Json::object()).value("relatedInformation", false);
  for (const Json& format :
       text_document.value("hover", Json::object()).value("contentFormat", Json::array()))
    client_.markdown |= format == "markdown";

  Json server_capabilities = {
      {"positionEncoding", encoding_ == PositionEncoding::kUtf8 ? "utf-8" : "utf-16"},
      {"textDocumentSync", {{"openClose", true}, {"change", 2}}},
      {"definitionProvider", true},
      {"referencesProvider", true},
      {"documentHighlightProvider", true},
      {"renameProvider", {{"prepareProvider", true}}},
      {"documentSymbolProvider", true},
      {"documentFormattingProvider", true},
      {"documentRangeFormattingProvider", true},
      {"hoverProvider", true},
      {"completionProvider", {{"triggerCharacters", {":", " ", "\""}}}},
      {"codeActionProvider", {{"codeActionKinds", {"quickfix"}}}},
      {"inlayHintProvider", true},
      {"codeLensProvider", {{"resolveProvider", false}}},
  };
  return {{"capabilities", server_capabilities},
          {"serverInfo", {{"name", "pcfg"}, {"version", PCFG_VERSION}}}};
}

Json Server::Shutdown(Json&) {
  shut_down_ = true;
  return nullptr;
}

Json Server::Ignore(Json&) { return nullptr; }

// ---- Documents ----

Json Server::DidOpen(Json& params) {
  Json& item = params.at("textDocument");
  const std::string uri = item.at("uri");
  // Read every field before the entry exists: a malformed open must not leave a document
  // without text behind for later requests to find. The text is taken, not copied: a large
  // one is tens of megabytes.
  const int version = item.value("version", 0);
  auto document =
      std::make_unique<Document>(uri, std::move(item.at("text").get_ref<std::string&>()), version);
  OpenDocument& open = documents_[uri];
  open.document = std::move(document);
  open.analysis.reset();
  open.previous.reset();
  open.last_good = Json::array();
  open.publish = true;
  return nullptr;
}

Json Server::DidChange(Json& params) {
  OpenDocument* open = Find(params);
  if (open == nullptr) return nullptr;  // a change to a document not open: nothing to apply it to
  Document& document = *open->document;
  // Forget the analysis first: a malformed change further down the list throws after the
  // ones before it have changed the text.
  open->ForgetAnalysis();
  open->publish = true;
  for (Json& change : params.at("contentChanges")) {
    std::optional<Range> range;
    if (change.contains("range")) {
      range = Range{PositionFrom(change["range"].at("start")), PositionFrom(change["range"].at("end"))};
      // Findings of the last text that parsed move with the lines; those the change touches go.
      const int removed = range->end.line - range->start.line;
      const std::string& text = change.at("text").get_ref<const std::string&>();
      const int delta = static_cast<int>(std::count(text.begin(), text.end(), '\n')) - removed;
      Json kept = Json::array();
      for (Json& finding : open->last_good) {
        Json& r = finding["range"];
        const int start = r["start"]["line"], end = r["end"]["line"];
        if (end < range->start.line) {
          kept.push_back(std::move(finding));
        } else if (start > range->end.line) {
          r["start"]["line"] = start + delta;
          r["end"]["line"] = end + delta;
          kept.push_back(std::move(finding));
        }
      }
      open->last_good = std::move(kept);
    }
    if (!document.Change(range, std::move(change.at("text").get_ref<std::string&>()), encoding_))
      throw std::runtime_error("a change whose range ends before it starts");
  }
  document.set_version(params.at("textDocument").value("version", document.version()));
  return nullptr;
}

Json Server::DidClose(Json& params) {
  const std::string uri = params.at("textDocument").at("uri");
  if (documents_.erase(uri) != 0)
    send_({{"jsonrpc", "2.0"},
           {"method", "textDocument/publishDiagnostics"},
           {"params", {{"uri", uri}, {"diagnostics", Json::array()}}}});
  return nullptr;
}

Server::OpenDocument* Server::Find(const Json& params) {
  const auto it = documents_.find(params.at("textDocument").at("uri").get<std::string>());
  return it == documents_.end() ? nullptr : &it->second;
}

const Analysis& Server::AnalysisOf(OpenDocument& open) {
  if (!open.analysis) {
    const std::optional<Document::Edit> edit = open.document->edit_since_lent();
    std::string text = open.document->Lend();
    std::shared_ptr<Analysis> previous = std::move(open.previous);
    try {
      // An edit inside one entry is read alone; anything else, the whole text again.
      if (previous && edit && previous->Update(text, edit->begin, edit->old_end, edit->new_end))
        open.analysis = std::move(previous);
      previous.reset();
      if (!open.analysis)
        open.analysis = std::make_shared<Analysis>(FileOf(open.document->uri()), std::move(text));
    } catch (...) {
      open.document->Reclaim(std::move(text));  // given back by the analysis that failed
      throw;
    }
    open.document->Borrow(&open.analysis->text());
  }
  return *open.analysis;
}

Json Server::RangeJson(const Document& document, uint32_t begin, uint32_t end) const {
  const Range range = document.RangeOf(begin, end, encoding_);
  return {{"start", PositionJson(range.start)}, {"end", PositionJson(range.end)}};
}

Json Server::LocationOf(const Document& document, uint32_t begin, uint32_t end) const {
  return {{"uri", document.uri()}, {"range", RangeJson(document, begin, end)}};
}

// ---- Diagnostics ----

Json Server::DiagnosticsOf(OpenDocument& open) {
  const Analysis& analysis = AnalysisOf(open);
  const Document& document = *open.document;
  Json found = Json::array();
  for (const Diagnostic& d : analysis.diagnostics()) {
    if (d.suppressed) continue;
    const auto [begin, end] = analysis.Span(d);
    Json diagnostic = {{"range", RangeJson(document, begin, end)},
                       {"severity", SeverityOf(d.severity)},
                       {"source", "pcfg"},
                       {"message", (d.path.empty() ? "" : d.path + ": ") + d.message}};
    if (!d.rule.empty()) diagnostic["code"] = d.rule;
    if (d.rule == "unused-suppression" && client_.unnecessary_tag) diagnostic["tags"] = {1};
    if (client_.related_information) {
      Json related = RelatedTo(analysis, document, d, begin, end);
      if (!related.empty()) diagnostic["relatedInformation"] = std::move(related);
    }
    found.push_back(std::move(diagnostic));
  }
  if (analysis.parsed()) {
    open.last_good = found;
    return found;
  }
  // While the text does not parse, the findings of the last text that did stay, said to be so.
  for (Json finding : open.last_good) {
    std::string message = finding["message"];
    const std::string stale = " (found in the last text that parsed)";
    if (message.size() < stale.size() ||
        message.compare(message.size() - stale.size(), stale.size(), stale) != 0)
      finding["message"] = message + stale;
    found.push_back(std::move(finding));
  }
  return found;
}

void Server::PublishPending() {
  for (auto& [uri, open] : documents_) {
    if (!open.publish) continue;
    open.publish = false;
    Json params = {{"uri", uri}, {"diagnostics", DiagnosticsOf(open)}};
    params["version"] = open.document->version();
    send_({{"jsonrpc", "2.0"}, {"method", "textDocument/publishDiagnostics"}, {"params", std::move(params)}});
  }
}

// The other places a finding is about: the entry a duplicate repeats, the members of a cycle.
Json Server::RelatedTo(const Analysis& analysis, const Document& document, const Diagnostic& diagnostic,
                       uint32_t begin, uint32_t end) const {
  Json related = Json::array();
  // Only these two wait for the index of ids, which waits for the syntax tree.
  if (diagnostic.rule == "duplicate-id") {
    const IdIndex& ids = analysis.ids();
    for (const IdOccurrence& o : ids.occurrences()) {
      if (!o.key || o.begin < begin || o.end > end) continue;
      for (const IdOccurrence* other : ids.All(o.space, o.id))
        if (other != &o && other->key && std::string_view(other->role) == o.role && other->begin < o.begin) {
          related.push_back({{"location", LocationOf(document, other->begin, other->end)},
                             {"message", "the first entry with id \"" + o.id + "\""}});
          break;
        }
      break;
    }
  } else if (diagnostic.rule == "dependency-cycle") {
    const std::string prefix = "dependency cycle: ";
    const size_t start = diagnostic.message.find(prefix);
    if (start == std::string::npos) return related;
    std::string rest = diagnostic.message.substr(start + prefix.size());
    rest = rest.substr(0, rest.find(" ("));  // what follows the cycle is no id
    std::vector<std::string> seen;
    const IdIndex& ids = analysis.ids();
    for (size_t at = 0; at <= rest.size();) {
      size_t next = rest.find(" -> ", at);
      if (next == std::string::npos) next = rest.size();
      const std::string id = rest.substr(at, next - at);
      at = next + 4;
      if (std::find(seen.begin(), seen.end(), id) != seen.end()) continue;
      seen.push_back(id);
      if (const IdOccurrence* definition = ids.Definition(IdSpace::kPeripheral, id))
        related.push_back({{"location", LocationOf(document, definition->begin, definition->end)},
                           {"message", "\"" + id + "\" is on the cycle"}});
    }
  }
  return related;
}

// ---- Navigation by id ----

Server::IdAtCursor Server::IdAt(const Json& params) {
  IdAtCursor cursor;
  cursor.open = Find(params);
  if (cursor.open == nullptr) return cursor;
  cursor.analysis = &AnalysisOf(*cursor.open);
  cursor.at = cursor.analysis->ids().At(
      cursor.open->document->Offset(PositionFrom(params.at("position")), encoding_));
  return cursor;
}

Json Server::Definition(Json& params) {
  const IdAtCursor cursor = IdAt(params);
  if (cursor.at == nullptr) return nullptr;
  OpenDocument* open = cursor.open;
  const Analysis& analysis = *cursor.analysis;
  const IdOccurrence* at = cursor.at;
  const IdOccurrence* definition = analysis.ids().Definition(at->space, at->id);
  if (definition == nullptr) return nullptr;
  return LocationOf(*open->document, definition->begin, definition->end);
}

Json Server::References(Json& params) {
  const IdAtCursor cursor = IdAt(params);
  if (cursor.at == nullptr) return nullptr;
  OpenDocument* open = cursor.open;
  const Analysis& analysis = *cursor.analysis;
  const IdOccurrence* at = cursor.at;
  const bool declarations = params.value("context", Json::object()).value("includeDeclaration", true);
  Json locations = Json::array();
  for (const IdOccurrence* o : analysis.ids().All(at->space, at->id))
    if (declarations || !o->definition) locations.push_back(LocationOf(*open->document, o->begin, o->end));
  return locations;
}

Json Server::Highlight(Json& params) {
  const IdAtCursor cursor = IdAt(params);
  if (cursor.at == nullptr) return nullptr;
  OpenDocument* open = cursor.open;
  const Analysis& analysis = *cursor.analysis;
  const IdOccurrence* at = cursor.at;
  Json highlights = Json::array();
  for (const IdOccurrence* o : analysis.ids().All(at->space, at->id))
    highlights.push_back(
        {{"range", RangeJson(*open->document, o->begin, o->end)}, {"kind", o->definition ? 3 : 2}});
  return highlights;
}

Json Server::PrepareRename(Json& params) {
  const IdAtCursor cursor = IdAt(params);
  if (cursor.at == nullptr) return nullptr;
  return {{"range", RangeJson(*cursor.open->document, cursor.at->begin, cursor.at->end)},
          {"placeholder", cursor.at->id}};
}

Json Server::Rename(Json& params) {
  const IdAtCursor cursor = IdAt(params);
  if (cursor.open == nullptr) return nullptr;
  OpenDocument* open = cursor.open;
  const Analysis& analysis = *cursor.analysis;
  const IdOccurrence* at = cursor.at;
  if (at == nullptr) throw std::runtime_error("no peripheral id or template id here to rename");
  const std::string name = params.at("newName");
  if (name.empty()) throw std::runtime_error("an id cannot be empty");
  Json edits = Json::array();
  for (const IdOccurrence* o : analysis.ids().All(at->space, at->id)) {
    // A plain string is renamed inside its quotes; one written in pieces or with escapes, whole.
    edits.push_back({{"range", RangeJson(*open->document, o->begin, o->end)},
                     {"newText", o->simple ? Quoted(name) : "\"" + Quoted(name) + "\""}});
  }
  return {{"changes", {{open->document->uri(), edits}}}};
}

// ---- Symbols ----

Json Server::Symbols(Json& params) {
  OpenDocument* open = Find(params);
  if (open == nullptr) return nullptr;
  const Analysis& analysis = AnalysisOf(*open);
  const syntax::SyntaxTree& tree = analysis.tree();
  const Document& document = *open->document;
  // The entries of the lists people navigate by, under one symbol per list.
  struct ListKind {
    const char* list;
    int kind;  // SymbolKind
  };
  static const ListKind kLists[] = {
      {"peripherals", 5},           {"physical_cameras", 10}, {"camera_sets", 23}, {"logical_cameras", 11},
      {"camera_stream_configs", 8}, {"system_options", 19},   {"device_info", 19}};
  std::map<int32_t, const IdOccurrence*> id_of_entry;
  for (const IdOccurrence& o : analysis.ids().occurrences())
    if (o.key) id_of_entry.emplace(o.entry, &o);

  Json groups = Json::array(), flat = Json::array();
  std::map<std::string, size_t> group_of;
  for (const int32_t child : tree.ChildrenOf(tree.root())) {
    const syntax::Node& field = tree.node(child);
    const int32_t value_at = field.kind == syntax::NodeKind::kField ? tree.FirstChild(field) : -1;
    if (value_at < 0) continue;
    const std::string name = tree.Name(field);
    const ListKind* list = nullptr;
    for (const ListKind& row : kLists)
      if (name == row.list) list = &row;
    if (list == nullptr) continue;
    const uint32_t begin = tree.tokens()[field.first].begin, end = tree.tokens()[field.end - 1].end();
    const auto entry_symbol = [&](int32_t entry, uint32_t entry_begin) {
      const auto id = id_of_entry.find(entry);
      const bool is_template = id != id_of_entry.end() && id->second->space == IdSpace::kTemplate;
      std::string label = id != id_of_entry.end() ? id->second->id : name;
      std::string detail = id != id_of_entry.end() ? id->second->kind : "";
      if (is_template) detail = "template";
      const uint32_t entry_end = tree.tokens()[tree.node(entry).end - 1].end();
      const Json selection = id != id_of_entry.end() ? RangeJson(document, id->second->begin, id->second->end)
                                                     : RangeJson(document, entry_begin, entry_begin);
      if (client_.hierarchical_symbols)
        return Json{{"name", label.empty() ? "\"\"" : label},
                    {"detail", detail},
                    {"kind", list->kind},
                    {"range", RangeJson(document, entry_begin, entry_end)},
                    {"selectionRange", selection}};
      return Json{{"name", label.empty() ? "\"\"" : label},
                  {"kind", list->kind},
                  {"location", LocationOf(document, entry_begin, entry_end)},
                  {"containerName", name}};
    };
    const syntax::Node& value = tree.node(value_at);
    std::vector<Json> entries;
    if (value.kind == syntax::NodeKind::kMessage) {
      entries.push_back(entry_symbol(value_at, begin));
    } else if (value.kind == syntax::NodeKind::kList) {
      for (const int32_t element : tree.ChildrenOf(value))
        if (tree.node(element).kind == syntax::NodeKind::kMessage)
          entries.push_back(entry_symbol(element, tree.tokens()[tree.node(element).first].begin));
    }
    if (!client_.hierarchical_symbols) {
      for (Json& entry : entries) flat.push_back(std::move(entry));
      continue;
    }
    auto group = group_of.find(name);
    if (group == group_of.end()) {
      group = group_of.emplace(name, groups.size()).first;
      groups.push_back(
          {{"name", name},
           {"kind", 3},  // Namespace
           {"range", RangeJson(document, begin, end)},
           {"selectionRange", RangeJson(document, begin, begin + static_cast<uint32_t>(name.size()))},
           {"children", Json::array()}});
    }
    Json& symbol = groups[group->second];
    symbol["range"]["end"] = RangeJson(document, begin, end)["end"];
    for (Json& entry : entries) symbol["children"].push_back(std::move(entry));
  }
  return client_.hierarchical_symbols ? groups : flat;
}

// ---- Formatting ----

Json Server::FormatEdits(OpenDocument& open, int first_line, int last_line) {
  const Analysis& analysis = AnalysisOf(open);
  if (!analysis.parsed()) throw std::runtime_error("the text does not parse; fix it before formatting");
  const TextLayoutResult layout =
      LayOutAndReparse(FileOf(open.document->uri()), analysis.text(), first_line, last_line);
  int line = 0;
  std::string why;
  if (CheckLayoutFaithful(analysis.loaded().config, layout, &line, &why) != LayoutFault::kNone)
    throw std::runtime_error(why + (line > 0 ? " (line " + std::to_string(line) + ")" : "") +
                             "; left as it is");
  const Document& document = *open.document;
  const std::string& text = analysis.text();
  Json edits = Json::array();
  // The pieces that differ, each replacing whole lines: small edits keep the editor's marks.
  const auto line_start = [&](int line_number) {
    return document.Offset({line_number - 1, 0}, PositionEncoding::kUtf8);
  };
  for (const LineEdit& edit : LayoutEditsWithin(text, layout.formatted, 1, INT_MAX - 1)) {
    const uint32_t begin = line_start(edit.first_line), end = line_start(edit.first_line + edit.line_count);
    std::string replacement = edit.text;
    // The last line without its line break gets it from the layout; one before it must be kept.
    if (end == text.size() && begin == end && begin > 0 && text.back() != '\n')
      replacement = "\n" + replacement;
    edits.push_back({{"range", RangeJson(document, begin, end)}, {"newText", replacement}});
  }
  return edits;
}

Json Server::Formatting(Json& params) {
  OpenDocument* open = Find(params);
  if (open == nullptr) return nullptr;
  return FormatEdits(*open, 0, 0);
}

Json Server::RangeFormatting(Json& params) {
  OpenDocument* open = Find(params);
  if (open == nullptr) return nullptr;
  const Json& range = params.at("range");
  const int first = PositionFrom(range.at("start")).line + 1;
  Position end = PositionFrom(range.at("end"));
  // A range that ends at the start of a line does not take that line.
  const int last = std::max(first, end.character == 0 && end.line + 1 > first ? end.line : end.line + 1);
  return FormatEdits(*open, first, last);
}

}  // namespace pcfg::lsp

namespace pcfg::lsp {

// ---- What the schema knows ----

Json Server::Hover(Json& params) {
  OpenDocument* open = Find(params);
  if (open == nullptr) return nullptr;
  const Analysis& analysis = AnalysisOf(*open);
  const HoverNote note =
      HoverAt(analysis, open->document->Offset(PositionFrom(params.at("position")), encoding_));
  if (note.markdown.empty()) return nullptr;
  return {{"contents",
           {{"kind", client_.markdown ? "markdown" : "plaintext"},
            {"value", client_.markdown ? note.markdown : PlainText(note.markdown)}}},
          {"range", RangeJson(*open->document, note.begin, note.end)}};
}

Json Server::Completion(Json& params) {
  OpenDocument* open = Find(params);
  if (open == nullptr) return nullptr;
  const Analysis& analysis = AnalysisOf(*open);
  const uint32_t offset = open->document->Offset(PositionFrom(params.at("position")), encoding_);
  std::vector<lsp::Completion> found = CompleteAt(analysis, offset, client_.snippets);
  // Thousands of ids are more than a menu shows: past the limit, those that hold what is typed
  // so far (without its quote), and the editor asks again as more is typed.
  bool incomplete = false;
  if (found.size() > kMaxCompletionItems) {
    std::string typed =
        analysis.text().substr(found[0].replace_begin, offset - std::min(offset, found[0].replace_begin));
    if (!typed.empty() && (typed[0] == '"' || typed[0] == '\'')) typed.erase(0, 1);
    std::vector<lsp::Completion> kept;
    for (lsp::Completion& c : found)
      if (c.label.find(typed) != std::string::npos && kept.size() < kMaxCompletionItems)
        kept.push_back(std::move(c));
    found = std::move(kept);
    incomplete = true;
  }
  Json items = Json::array();
  Json range;  // most items replace the same bytes
  uint32_t range_begin = 1, range_end = 0;
  for (const lsp::Completion& c : found) {
    if (c.replace_begin != range_begin || c.replace_end != range_end) {
      range = RangeJson(*open->document, c.replace_begin, c.replace_end);
      range_begin = c.replace_begin, range_end = c.replace_end;
    }
    Json item = {{"label", c.label},
                 {"kind", c.kind},
                 {"detail", c.detail},
                 {"textEdit", {{"range", range}, {"newText", c.insert_text}}}};
    if (c.snippet) item["insertTextFormat"] = 2;
    items.push_back(std::move(item));
  }
  return {{"isIncomplete", incomplete}, {"items", std::move(items)}};
}

Json Server::CodeActions(Json& params) {
  OpenDocument* open = Find(params);
  if (open == nullptr) return nullptr;
  const Analysis& analysis = AnalysisOf(*open);
  const Document& document = *open->document;
  Json actions = Json::array();
  const auto action = [&](const TextFix& fix, const Json& diagnostic) {
    Json edit = {{"range", RangeJson(document, fix.begin, fix.end)}, {"newText", fix.text}};
    Json item = {{"title", fix.title},
                 {"kind", "quickfix"},
                 {"edit", {{"changes", {{document.uri(), Json::array({edit})}}}}}};
    if (!diagnostic.is_null()) item["diagnostics"] = Json::array({diagnostic});
    if (fix.preferred) item["isPreferred"] = true;
    actions.push_back(std::move(item));
  };
  for (const Json& diagnostic : params.value("context", Json::object()).value("diagnostics", Json::array())) {
    if (diagnostic.value("source", "") != "pcfg") continue;
    const uint32_t begin = document.Offset(PositionFrom(diagnostic.at("range").at("start")), encoding_);
    const uint32_t end = document.Offset(PositionFrom(diagnostic.at("range").at("end")), encoding_);
    const std::string code = diagnostic.contains("code") && diagnostic["code"].is_string()
                                 ? diagnostic["code"].get<std::string>()
                                 : "";
    for (const TextFix& fix : FixesFor(analysis, begin, end, code, diagnostic.value("message", "")))
      action(fix, diagnostic);
  }
  for (const TextFix& fix : DocumentFixes(analysis)) action(fix, nullptr);
  return actions;
}

// After each reference, the kind of entry it names; a reference to nothing says so.
Json Server::InlayHints(Json& params) {
  OpenDocument* open = Find(params);
  if (open == nullptr) return nullptr;
  const Analysis& analysis = AnalysisOf(*open);
  const Document& document = *open->document;
  const Json& range = params.at("range");
  const uint32_t from = document.Offset(PositionFrom(range.at("start")), encoding_);
  const uint32_t to = document.Offset(PositionFrom(range.at("end")), encoding_);
  Json hints = Json::array();
  for (const IdOccurrence& o : analysis.ids().occurrences()) {
    if (o.definition || o.end < from || o.begin > to) continue;
    const IdOccurrence* definition = analysis.ids().Definition(o.space, o.id);
    std::string label = definition == nullptr                                ? "no entry"
                        : o.space == IdSpace::kTemplate                      ? "template"
                        : definition->kind.rfind("PERIPHERAL_TYPE_", 0) == 0 ? definition->kind.substr(16)
                                                                             : definition->kind;
    if (label.empty()) label = "peripheral";
    // After the closing quote of a plain string.
    const uint32_t after = o.simple ? o.end + 1 : o.end;
    hints.push_back({{"position", PositionJson(document.PositionOf(after, encoding_))},
                     {"label", label},
                     {"kind", 1},
                     {"paddingLeft", true}});
  }
  return hints;
}

// Over each entry with an id: how many places refer to it.
Json Server::CodeLenses(Json& params) {
  OpenDocument* open = Find(params);
  if (open == nullptr) return nullptr;
  const Analysis& analysis = AnalysisOf(*open);
  const Document& document = *open->document;
  Json lenses = Json::array();
  for (const IdOccurrence& o : analysis.ids().occurrences()) {
    if (!o.definition || analysis.ids().Definition(o.space, o.id) != &o) continue;
    size_t references = 0;
    for (const IdOccurrence* other : analysis.ids().All(o.space, o.id)) references += !other->definition;
    // The command is the editor's to run (the VS Code extension shows the references); the
    // server offers none of its own, so a client without it shows the title alone.
    const Json range = RangeJson(document, o.begin, o.end);
    lenses.push_back(
        {{"range", range},
         {"command",
          {{"title", std::to_string(references) + (references == 1 ? " reference" : " references")},
           {"command", "pcfg.showReferences"},
           {"arguments", {document.uri(), range["start"]}}}}});
  }
  return lenses;
}

// ---- Streams ----

namespace {

// Messages read ahead of the server, so that a cancellation or a change is seen while the server
// still works on what came before it.
class Inbox {
 public:
  void Put(std::string body) {
    std::lock_guard<std::mutex> lock(mutex_);
    bodies_.push_back(std::move(body));
    ready_.notify_one();
  }
  void Close() {
    std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
    ready_.notify_one();
  }
  // The next body; false when the input ended and all is taken.
  bool Take(std::string* body) {
    std::unique_lock<std::mutex> lock(mutex_);
    ready_.wait(lock, [&] { return !bodies_.empty() || closed_; });
    if (bodies_.empty()) return false;
    *body = std::move(bodies_.front());
    bodies_.pop_front();
    return true;
  }
  bool Empty() {
    std::lock_guard<std::mutex> lock(mutex_);
    return bodies_.empty();
  }

 private:
  std::mutex mutex_;
  std::condition_variable ready_;
  std::deque<std::string> bodies_;
  bool closed_ = false;
};

}  // namespace

int RunLanguageServer(int in_fd, int out_fd, MessageReader::Style style) {
  // What the reader thread shares with the server: held by both, since the reader may still be
  // waiting on input when the server has been told to exit and this function returns.
  struct Shared {
    std::mutex out_mutex;
    bool peer_gone = false;
    Inbox inbox;
    std::unique_ptr<Server> server;
  };
  const auto shared = std::make_shared<Shared>();
  Shared* const state = shared.get();
  shared->server = std::make_unique<Server>([state, out_fd](const Json& message) {
    std::lock_guard<std::mutex> lock(state->out_mutex);
    if (!state->peer_gone)
      state->peer_gone = !WriteMessage(out_fd, message.dump(-1, ' ', false, Json::error_handler_t::replace));
  });
  std::thread reader([shared, in_fd, style] {
    MessageReader reader(in_fd, style);
    std::string body;
    for (;;) {
      const MessageReader::Result result = reader.Next(&body);
      if (result == MessageReader::Result::kEnd) break;
      if (result == MessageReader::Result::kMalformed) {
        shared->inbox.Put(kMalformedHeader);
        continue;
      }
      if (result == MessageReader::Result::kTooLarge) {
        shared->inbox.Put(kTooLarge);
        continue;
      }
      // A glance at what comes, for what must be known before the server reaches it: only
      // messages that may be cancellations or changes are read here. memmem, since
      // std::string::find stops at every 't' of a document's text: 13 ms for 30 MB, not 4.
      const auto mentions = [&body](std::string_view what) {
        return memmem(body.data(), body.size(), what.data(), what.size()) != nullptr;
      };
      if (mentions("$/cancelRequest") || mentions("textDocument/didChange")) {
        const Json message = ParseMessage(body);  // a whole text changed is decoded apart
        if (message.is_object() && message.value("method", Json()).is_string()) {
          const std::string method = message["method"];
          const Json params = message.value("params", Json());
          if (method == "$/cancelRequest" && params.is_object() && params.contains("id")) {
            shared->server->Cancel(params["id"]);
            continue;
          }
          if (method == "textDocument/didChange" && params.is_object() && params.contains("textDocument") &&
              params["textDocument"].is_object())
            shared->server->DocumentChanging(params["textDocument"].value("uri", ""));
        }
      }
      shared->inbox.Put(std::move(body));
    }
    shared->inbox.Close();
  });
  Server& server = *shared->server;
  std::string body;
  while (!server.exited() && shared->inbox.Take(&body)) {
    server.HandleBody(body);
    // An open's text is its document's now: the body it came in (tens of megabytes for a large
    // document) goes back before the text is read, not after.
    if (body.capacity() >= pcfg::kLargeAllocation) std::string().swap(body);
    // A burst of edits is analysed once, when it is over; a recorded session, after each message,
    // so that what it prints comes in one order.
    if (style == MessageReader::Style::kDelimited || shared->inbox.Empty()) server.PublishPending();
  }
  const int status = server.exited() ? server.exit_status() : 1;
  // The reader may still wait on input that never comes: the process ends without it.
  reader.detach();
  return status;
}

}  // namespace pcfg::lsp
