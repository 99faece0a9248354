// pcfg as a language server: the protocol's messages in, replies and notifications out. The
// server itself is single-threaded and knows nothing of streams (the in-process tests drive it
// message by message); RunLanguageServer adds the framing, a reader thread that sees
// cancellations early, and the end of the server when its client goes.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "analysis.h"
#include "document.h"
#include "transport.h"

namespace pcfg::lsp {

using Json = nlohmann::json;

// What the framing reports in place of a message body it could not read (never JSON).
inline const std::string kMalformedHeader = "\x01malformed header";
inline const std::string kTooLarge = "\x01too large";

class Server {
 public:
  using Send = std::function<void(const Json& message)>;
  explicit Server(Send send);
  ~Server();

  // One message body as it came: answers what is malformed, hands the rest to Handle.
  void HandleBody(const std::string& body);
  void Handle(Json message);
  // Publishes the diagnostics of documents changed since the last call (the caller does this
  // when no message is waiting, so that a burst of edits is analysed once).
  void PublishPending();

  // From any thread: the request ID is cancelled, or (for requests on URI) its document changed
  // after it came.
  void Cancel(const Json& id);
  void DocumentChanging(const std::string& uri);

  bool exited() const { return exited_; }
  // The text of open document URI as the server holds it, or null (for tests and the fuzzer).
  const std::string* TextOf(const std::string& uri) const {
    const auto it = documents_.find(uri);
    return it == documents_.end() ? nullptr : &it->second.document->text();
  }
  int exit_status() const { return shut_down_ ? 0 : 1; }

 private:
  struct OpenDocument {
    std::unique_ptr<Document> document;
    // Of document's current text, when worked out; it holds that text, which the document borrows.
    std::shared_ptr<Analysis> analysis;
    Json last_good;  // rule findings of the last text that parsed
    bool publish = false;

    // Sets the analysis aside, the document taking its text back first: the next analysis may
    // start from it (Analysis::Update).
    void ForgetAnalysis() {
      if (!analysis) return;
      document->Reclaim(analysis->TakeText());
      previous = std::move(analysis);
    }
    std::shared_ptr<Analysis> previous;  // of an earlier text, which the document holds now
  };
  // Handlers may take what they keep out of PARAMS (an opened text) rather than copy it.
  using Handler = Json (Server::*)(Json& params);
  struct Method {
    Handler handler;
    bool needs_document;  // answered ContentModified when its document changes meanwhile
  };
  static const std::map<std::string, Method>& Methods();

  // The open document a request names, its analysis and the id at the request's position; each
  // null when there is none.
  struct IdAtCursor {
    OpenDocument* open = nullptr;
    const Analysis* analysis = nullptr;
    const IdOccurrence* at = nullptr;
  };
  IdAtCursor IdAt(const Json& params);

  void Reply(const Json& id, Json result);
  void ReplyError(const Json& id, int code, const std::string& message);
  const Analysis& AnalysisOf(OpenDocument& open);
  OpenDocument* Find(const Json& params);
  Json DiagnosticsOf(OpenDocument& open);
  Json LocationOf(const Document& document, uint32_t begin, uint32_t end) const;
  Json RangeJson(const Document& document, uint32_t begin, uint32_t end) const;

  Json Initialize(Json& params);
  Json Shutdown(Json& params);
  Json DidOpen(Json& params);
  Json DidChange(Json& params);
  Json DidClose(Json& params);
  Json Ignore(Json& params);
  Json Definition(Json& params);
  Json References(Json& params);
  Json Highlight(Json& params);
  Json PrepareRename(Json& params);
  Json Rename(Json& params);
  Json Symbols(Json& params);
  Json Formatting(Json& params);
  Json RangeFormatting(Json& params);
  Json Hover(Json& params);
  Json Completion(Json& params);
  Json CodeActions(Json& params);
  Json InlayHints(Json& params);
  Json CodeLenses(Json& params);
  Json RelatedTo(const Analysis& analysis, const Document& document, const Diagnostic& diagnostic,
                 uint32_t begin, uint32_t end) const;
  Json FormatEdits(OpenDocument& open, int first_line, int last_line);

  Send send_;
  bool initialized_ = false, shut_down_ = false, exited_ = false;
  PositionEncoding encoding_ = PositionEncoding::kUtf16;
  struct {
    bool hierarchical_symbols = false;
    bool snippets = false;
    bool unnecessary_tag = false;
    bool markdown = false;
    bool related_information = false;
  } client_;
  std::map<std::string, OpenDocument> documents_;

  std::mutex interrupts_mutex_;
  std::set<std::string> cancelled_;      // request ids, as JSON text
  std::map<std::string, int> changing_;  // document uri -> changes come but not yet handled
};

// Serves IN_FD / OUT_FD until the client says exit, the input ends or the parent process goes;
// returns the exit status.
int RunLanguageServer(int in_fd, int out_fd, MessageReader::Style style = MessageReader::Style::kFramed);

}  // namespace pcfg::lsp
