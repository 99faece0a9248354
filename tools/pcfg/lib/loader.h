// Reads a configuration in any of its forms with protobuf's own parsers. Where text input
// stands is recorded only when a diagnostic asks for it (a second parse, on the rare path), so
// that a clean run pays for one parse.
#pragma once

#include <google/protobuf/arena.h>
#include <google/protobuf/text_format.h>

#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "config.h"
#include "diagnostics.h"
#include "field_path.h"
#include "file_io.h"
#include "formats.h"
#include "json_strict.h"
#include "root_entries.h"
#include "syntax_tree.h"
#include "wire_location.h"

namespace pcfg {

class LoadedConfig {
 private:
  // The configuration lives on an arena: parsing then allocates by moving a pointer, and the
  // whole tree goes at once.
  std::unique_ptr<google::protobuf::Arena> arena_;

 public:
  LoadedConfig();
  // The configuration moves with its arena; the moved-from object must not be used again.
  LoadedConfig(LoadedConfig&& other) noexcept;
  LoadedConfig(const LoadedConfig&) = delete;
  LoadedConfig& operator=(const LoadedConfig&) = delete;

  std::string file;  // as named on the command line; "<stdin>" for "-"
  Format format = Format::kBinary;
  std::string raw;  // the bytes read
  Config& config;

  struct Location {
    int line = 0;  // text: 1-based; 0 when unknown
    int column = 0;
    int end_line = 0;  // text: where the field (name to value) or element ends; 0 when unknown
    int end_column = 0;
    int byte_offset = -1;  // binary: the record of the field; -1 when unknown
    int byte_length = 0;
    int text_offset = -1;  // text: the bytes of the field or element; -1 when unknown
    int text_length = 0;
  };
  // Where the input holds the deepest field of PATH that it names: line and column of text,
  // with the end of the field or element there; byte offset and length of binary; line and
  // column (in bytes) of JSON. Columns count as protobuf's tokenizer counts them: bytes, with a
  // tab advancing to the next multiple of 8.
  Location Locate(const FieldPath& path) const;

  // The syntax tree of text input, built the first time it is asked for.
  const syntax::SyntaxTree& Syntax() const;
  // Whether the syntax tree is built, or built elsewhere and offered. Until it is, Locate finds
  // a place in the root entry that holds it by a tree of that entry alone, where it can.
  bool SyntaxAtHand() const;
  // A tree of RAW built elsewhere (on another thread): whatever first needs the tree calls START,
  // which starts that work unless it has started, and waits for TREE rather than build its own.
  // It must be taken (Syntax()) while RAW is the text it reads.
  void OfferSyntax(std::future<std::unique_ptr<syntax::SyntaxTree>> tree, std::function<void()> start) const;

  // After an edit of text that parsed: RAW now holds bytes [BEGIN, NEW_END) where the text read
  // last held [BEGIN, OLD_END), the rest unchanged. When the edit lies inside one entry of a
  // list of the root, written alone as a message, whose new text protobuf reads as one such
  // entry again, that entry alone is read and put in place, in the configuration and in the
  // syntax tree, and true is returned: the result is what parsing all of RAW gives. Otherwise
  // false, and this must be parsed anew (it may be half changed).
  // REPLACED, when given, tells what moved in the tree.
  bool RereadEditedEntry(uint32_t begin, uint32_t old_end, uint32_t new_end,
                         syntax::SyntaxTree::Replaced* replaced = nullptr);

 private:
  // The values of the fields named NAME in message node MESSAGE of the syntax tree, in order, a
  // list's elements one by one: each a field node, or an element of a list. Worked out once for
  // each message asked about.
  const std::vector<int32_t>* ValuesNamed(int32_t message, const std::string& name) const;
  // Where text holds PATH, found in a tree of the root entry it starts in, alone: null when the
  // text's root is not a list of messages written alone, or once such trees have read as many
  // bytes as the whole text holds.
  std::optional<Location> LocateInRootEntry(const FieldPath& path) const;
  // Line and column of byte OFFSET of text as protobuf's tokenizer counts them.
  std::pair<int, int> TokenizerPosition(uint32_t offset) const;
  // Takes the tree offered, once it is built, unless it reads other bytes than RAW.
  void TakeOfferedSyntax() const;
  mutable std::unique_ptr<syntax::SyntaxTree> syntax_;
  mutable std::future<std::unique_ptr<syntax::SyntaxTree>> offered_syntax_;
  mutable std::function<void()> start_offered_syntax_;
  mutable std::unordered_map<int32_t, std::unordered_map<std::string, std::vector<int32_t>>> values_by_name_;
  mutable std::unique_ptr<RootEntries> root_entries_;
  mutable uint64_t bytes_read_in_entries_ = 0;
  mutable std::unique_ptr<JsonLocations> json_locations_;
  mutable std::unique_ptr<LineIndex> lines_;
  mutable std::unique_ptr<WireLocator> wire_locations_;
  // The arena's size after the first edit read in place: each edit leaves the old entry on the
  // arena, so past an eighth more the text is parsed anew (and the arena starts afresh).
  uint64_t arena_after_first_edit_ = 0;
};

struct LoadOptions {
  std::optional<Format> format;           // nullopt: by extension
  Format stdin_format = Format::kBinary;  // standard input has no extension
  uint64_t max_bytes = kDefaultMaxInputBytes;
  // Called with the bytes read and the form they will be parsed as, before the parse: work on
  // the text itself can then start beside the parse (pcfg fmt lays the text out meanwhile). RAW
  // is the LoadedConfig's own, unchanged by the parse, until the LoadedConfig goes or is reused.
  std::function<void(const std::string& raw, Format format)> on_read;
};

// Reads PATH ("-" for standard input). On failure returns false and adds diagnostics naming the
// file (and for text or JSON the line and column).
bool LoadConfig(const std::string& path, const LoadOptions& options, LoadedConfig* loaded,
                std::vector<Diagnostic>* diagnostics);

// Parses bytes already in memory (used by LoadConfig, the tests and the fuzzers).
bool ParseConfig(const std::string& display_name, Format format, std::string raw, LoadedConfig* loaded,
                 std::vector<Diagnostic>* diagnostics);
// Parses LOADED->raw as it stands, LOADED->file naming it: the bytes stay where they are, so that
// other work can read them meanwhile. A text parsed on two threads calls ONE_CORE_FREE once this
// thread's half is done, for work that waits for a core.
bool ParseLoaded(Format format, LoadedConfig* loaded, std::vector<Diagnostic>* diagnostics,
                 const std::function<void()>& one_core_free = nullptr);

// How a file is named in diagnostics: "<stdin>" for "-".
std::string DisplayName(const std::string& path);

}  // namespace pcfg
