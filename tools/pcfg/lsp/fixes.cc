#include "fixes.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/stubs/strutil.h>

#include <algorithm>
#include <regex>

#include "config.h"
#include "formats.h"
#include "schema_help.h"
#include "text_layout.h"

namespace pcfg::lsp {
namespace {

namespace gp = google::protobuf;

constexpr size_t kMaxSuggestions = 3;

// The names among CANDIDATES nearest to WRITTEN, at most a third of its length away (at least 2).
std::vector<std::string> Nearest(const std::string& written, const std::vector<std::string>& candidates) {
  const size_t limit = std::max<size_t>(2, written.size() / 3);
  std::vector<std::pair<size_t, std::string>> scored;
  for (const std::string& candidate : candidates) {
    if (candidate == written) continue;
    const size_t distance = EditDistance(written, candidate, limit);
    if (distance <= limit) scored.emplace_back(distance, candidate);
  }
  std::stable_sort(scored.begin(), scored.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<std::string> nearest;
  for (size_t i = 0; i < scored.size() && i < kMaxSuggestions; ++i) nearest.push_back(scored[i].second);
  return nearest;
}

// The line of byte OFFSET: where it starts and ends (without its line break).
std::pair<uint32_t, uint32_t> LineAround(const std::string& text, uint32_t offset) {
  const size_t start = offset == 0 ? 0 : text.rfind('\n', offset - 1);
  const size_t end = text.find('\n', offset);
  return {start == std::string::npos ? 0 : static_cast<uint32_t>(start + 1),
          static_cast<uint32_t>(end == std::string::npos ? text.size() : end)};
}

}  // namespace

size_t EditDistance(std::string_view a, std::string_view b, size_t limit) {
  if ((a.size() > b.size() ? a.size() - b.size() : b.size() - a.size()) > limit) return limit + 1;
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0], best = ++row[0];
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
      diagonal = above;
      best = std::min(best, row[j]);
    }
    if (best > limit) return limit + 1;
  }
  return row[b.size()];
}

std::vector<TextFix> FixesFor(const Analysis& analysis, uint32_t begin, uint32_t end, const std::string& code,
                              const std::string& message) {
  std::vector<TextFix> fixes;
  const std::string& text = analysis.text();
  // An id that names no entry: the nearest ids of the kind its field needs.
  if (code == "dangling-reference" || code == "template-reference" || code == "reference-kind") {
    for (const IdOccurrence& o : analysis.ids().occurrences()) {
      if (o.definition || o.begin < begin || o.end > end) continue;
      std::vector<std::string> candidates;
      for (const IdOccurrence* d : analysis.ids().Definitions(o.space, o.kind)) candidates.push_back(d->id);
      for (const std::string& id : Nearest(o.id, candidates))
        fixes.push_back({"Change to \"" + id + "\"", o.begin, o.end,
                         o.simple ? gp::CEscape(id) : "\"" + gp::CEscape(id) + "\"", fixes.empty()});
      break;
    }
  }
  // An enumeration name protobuf does not know: the nearest names of that enumeration.
  static const std::regex kUnknownEnum(R"re(Unknown enumeration value of "([^"]*)" for field "([^"]*)")re");
  std::smatch match;
  if (code.empty() && std::regex_search(message, match, kUnknownEnum)) {
    const std::string written = match[1], field_name = match[2];
    // Protobuf points just past the name: it is the last one written before that place.
    const size_t at = text.rfind(written, begin);
    const gp::FieldDescriptor* field =
        at != std::string::npos ? FieldAt(analysis, static_cast<uint32_t>(at)) : nullptr;
    const gp::EnumDescriptor* type =
        field != nullptr && field->name() == field_name ? field->enum_type() : nullptr;
    if (type != nullptr) {
      std::vector<std::string> names;
      for (int v = 0; v < type->value_count(); ++v) names.push_back(type->value(v)->name());
      if (at + written.size() + 2 >= begin)
        for (const std::string& name : Nearest(written, names))
          fixes.push_back({"Change to " + name, static_cast<uint32_t>(at),
                           static_cast<uint32_t>(at + written.size()), name, fixes.empty()});
    }
  }
  // A system type without its options: the entry, at the end of the document.
  static const std::regex kMissingOptions(R"re(no system_options entry for ([A-Z0-9_]+))re");
  if (code == "missing-options" && std::regex_search(message, match, kMissingOptions)) {
    const std::string entry = "system_options {\n  type: " + match[1].str() + "\n}\n";
    const bool ends_with_break = !text.empty() && text.back() == '\n';
    fixes.push_back({"Add a system_options entry for " + match[1].str(), static_cast<uint32_t>(text.size()),
                     static_cast<uint32_t>(text.size()), (ends_with_break ? "" : "\n") + entry, true});
  }
  // Any rule's finding: a suppression, at the end of its line, or on a line of its own before the
  // entry when the line has a comment already.
  if (!code.empty() && code != "unused-suppression") {
    const auto [line_start, line_end] = LineAround(text, begin);
    const std::string_view line(text.data() + line_start, line_end - line_start);
    const std::string comment = "# pcfg: ignore " + code + " -- why this is right";
    if (line.find('#') == std::string_view::npos) {
      fixes.push_back({"Silence " + code + " on this line", line_end, line_end, "  " + comment, false});
    } else {
      const size_t indent = line.find_first_not_of(" \t");
      fixes.push_back(
          {"Silence " + code + " for the entry that starts here", line_start, line_start,
           std::string(line.substr(0, indent == std::string_view::npos ? 0 : indent)) + comment + "\n",
           false});
    }
  }
  return fixes;
}

std::vector<TextFix> DocumentFixes(const Analysis& analysis) {
  if (TextStartsWithHeader(analysis.tree())) return {};
  return {{"Add the proto-file / proto-message header", 0, 0, kTextHeader, false}};
}

}  // namespace pcfg::lsp
