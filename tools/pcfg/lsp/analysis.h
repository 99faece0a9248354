// What the language server knows of one version of a document: the syntax tree (for any text),
// the configuration when protobuf reads the text, the findings of every rule, and the index of
// ids. Worked out once per version and shared by every request on it.
#pragma once

#include <cstdint>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "diagnostics.h"
#include "id_index.h"
#include "loader.h"

namespace pcfg::lsp {

class Analysis {
 public:
  // FILE names the document in messages; TEXT is copied. A text over MAX_BYTES (pcfg's input
  // limit) is not read at all: one diagnostic says so, and requests find nothing in it.
  Analysis(const std::string& file, const std::string& text, uint64_t max_bytes = kDefaultMaxInputBytes);
  // The same, keeping TEXT itself rather than a copy: a large document is then held once. Should
  // the work throw, TEXT is given back before the exception leaves.
  Analysis(const std::string& file, std::string&& text, uint64_t max_bytes = kDefaultMaxInputBytes);
  // Stays where it was made: the tree's work is started through a pointer to it.
  Analysis(const Analysis&) = delete;
  Analysis& operator=(const Analysis&) = delete;

  // Makes this the analysis of TEXT, which differs from the text analysed (taken back by now)
  // by bytes [BEGIN, OLD_END) having become [BEGIN, NEW_END), when the edit allows reading one
  // entry alone (LoadedConfig::RereadEditedEntry); the rules then run on the whole again. True
  // when done, TEXT then held here; false (TEXT left as it was) when the text must be analysed
  // anew, and this analysis is spoilt.
  bool Update(std::string& text, uint32_t begin, uint32_t old_end, uint32_t new_end,
              uint64_t max_bytes = kDefaultMaxInputBytes);

  const LoadedConfig& loaded() const { return loaded_; }
  const std::string& text() const { return unread_ ? *unread_ : loaded_.raw; }
  // The text, given back to whoever lent it; nothing of the analysis may be used after.
  // What was built from it is kept, for Update.
  std::string TakeText() {
    Settle();
    return Release();
  }
  const syntax::SyntaxTree& tree() const { return loaded_.Syntax(); }
  const IdIndex& ids() const {
    Settle();
    return *ids_;
  }
  bool parsed() const { return parsed_; }
  // Why protobuf does not read the text (when it does not), then the rules' findings (when it
  // does), suppressed ones marked.
  const std::vector<Diagnostic>& diagnostics() const { return diagnostics_; }

  // The bytes a diagnostic is about: from its start to its end, or the token at its start.
  std::pair<uint32_t, uint32_t> Span(const Diagnostic& diagnostic) const;

 private:
  void Work(const std::string& file, uint64_t max_bytes);
  void Check();
  // Starts the tree's thread, unless it has started.
  void StartTree();
  // Waits for the tree's thread to be done, and takes what it built.
  void Settle() const;
  // The text, once the tree's thread no longer reads it.
  std::string Release() {
    if (pending_ids_.valid()) pending_ids_.wait();
    return std::move(unread_ ? *unread_ : loaded_.raw);
  }

  LoadedConfig loaded_;
  std::optional<std::string> unread_;  // the text, when over the limit: loaded_ then holds none
  bool parsed_ = false;
  std::vector<Diagnostic> diagnostics_;
  mutable std::unique_ptr<IdIndex> ids_;
  std::promise<std::unique_ptr<syntax::SyntaxTree>> tree_;  // kept by the tree's thread once it starts
  // The index of ids while the tree's thread builds it; declared last, so that the thread is
  // waited for before the text it reads goes.
  mutable std::future<std::unique_ptr<IdIndex>> pending_ids_;
};

}  // namespace pcfg::lsp
