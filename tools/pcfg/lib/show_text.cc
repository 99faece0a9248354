// pcfg show, for people: aligned tables.
#include <algorithm>
#include <ostream>
#include <set>

#include "diagnostics.h"
#include "show_facts.h"

namespace pcfg {

namespace {

std::string Join(const std::vector<std::string>& items, const char* separator = ", ") {
  std::string joined;
  for (size_t i = 0; i < items.size(); ++i) joined += (i ? separator : "") + items[i];
  return joined;
}

// Display width of UTF-8 text: one column per code point.
size_t Width(const std::string& text) {
  return std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; });
}

constexpr size_t kWidestCell = 100;
constexpr size_t kCellStart = 72;

std::string Narrowed(std::string cell) {
  if (Width(cell) <= kWidestCell) return cell;
  size_t end = 0;
  for (size_t points = 0; end < cell.size(); ++end)
    if ((cell[end] & 0xC0) != 0x80 && points++ == kCellStart) break;
  return cell.substr(0, end) + "… (" + std::to_string(cell.size() - end) + " more bytes)";
}

// Columns padded with spaces to the widest cell, two spaces apart; the last is not padded.
class Table {
 public:
  explicit Table(std::vector<std::string> header) { Add(std::move(header)); }
  // Cells hold ids and names as the configuration gives them: control characters are escaped.
  // A cell wider than kWidestCell shows its start and how much is left out (show --format json
  // has it whole): one long id must not widen every row, nor repeat whole on each.
  void Add(std::vector<std::string> row) {
    for (std::string& cell : row) cell = Narrowed(EscapeControlCharacters(cell));
    rows_.push_back(std::move(row));
  }
  // Numbers read better flush right.
  Table& AlignRight(size_t column) {
    right_.insert(column);
    return *this;
  }

  void Print(std::ostream& out, const std::string& indent = "  ") const {
    std::vector<size_t> widths(rows_.front().size(), 0);
    for (const auto& row : rows_)
      for (size_t c = 0; c < row.size(); ++c) widths[c] = std::max(widths[c], Width(row[c]));
    for (const auto& row : rows_) {
      std::string line = indent;
      for (size_t c = 0; c < row.size(); ++c) {
        const std::string padding(widths[c] - Width(row[c]), ' ');
        line += right_.count(c) ? padding + row[c] : row[c] + padding;
        if (c + 1 < row.size()) line += "  ";
      }
      while (!line.empty() && line.back() == ' ') line.pop_back();
      out << line << '\n';
    }
  }

 private:
  std::vector<std::vector<std::string>> rows_;
  std::set<size_t> right_;
};

// "Camera sets: 3" or "Camera sets: none"; returns whether there is a table to print.
bool Heading(std::ostream& out, const char* title, size_t count) {
  out << '\n' << title << ": ";
  if (count == 0) {
    out << "none\n";
    return false;
  }
  out << count << '\n';
  return true;
}

std::string OrDash(const std::string& text) { return text.empty() ? "-" : text; }

void PrintPeripherals(std::ostream& out, const ShowFacts& facts) {
  if (!Heading(out, "Peripherals", facts.peripheral_count)) return;
  Table counts({"TYPE", "COUNT"});
  for (const auto& [type, count] : facts.type_counts) counts.Add({type, std::to_string(count)});
  counts.AlignRight(1).Print(out);

  out << "\nBring-up order (dependencies first):\n";
  Table order({"#", "ID", "TYPE"});
  for (size_t i = 0; i < facts.bring_up.size(); ++i)
    order.Add({std::to_string(i + 1), facts.bring_up[i].id, facts.bring_up[i].type});
  order.AlignRight(0).Print(out);
  if (!facts.left_out.empty())
    out << "\nDEPENDENCY CYCLE: " << facts.left_out.size()
        << " peripheral(s) on or behind a cycle are left out of the bring-up order: "
        << EscapeControlCharacters(Join(facts.left_out)) << " (pcfg check names the cycle)\n";
}

void PrintCameras(std::ostream& out, const ShowFacts& facts) {
  if (!Heading(out, "Physical cameras", facts.cameras.size())) return;
  Table cameras({"ID", "MODEL", "DRIVER", "SYSTEM TYPE", "SYSTEM OPTIONS"});
  for (const ShowFacts::Camera& camera : facts.cameras) {
    std::string options = "-";
    if (camera.options)
      options = "system_options[" + std::to_string(camera.options->index) + "] " +
                (camera.options->member.empty() ? "(no member set)" : camera.options->member);
    else if (camera.system_type)
      options = "none";
    cameras.Add({camera.id + (camera.is_template ? " (template)" : ""), camera.model, camera.driver,
                 camera.system_type.value_or("- (not in registry)"), options});
  }
  cameras.Print(out);
}

// Camera sets, logical cameras, stream configurations and the HAL pipeline table.
void PrintGroups(std::ostream& out, const ShowFacts& facts) {
  if (Heading(out, "Camera sets", facts.camera_sets.size())) {
    Table sets({"ID", "SYNC PERIOD (us)", "CADMOR SET", "MEMBERS"});
    for (const ShowFacts::CameraSet& set : facts.camera_sets)
      sets.Add({set.id, std::to_string(set.sync_period_us),
                set.cadmor_set_id ? std::to_string(*set.cadmor_set_id) : "-", OrDash(Join(set.members))});
    sets.AlignRight(1).AlignRight(2).Print(out);
  }
  if (Heading(out, "Logical cameras", facts.logical_cameras.size())) {
    Table logical({"ID", "PRIMARY", "MEMBERS"});
    for (const ShowFacts::LogicalCamera& camera : facts.logical_cameras)
      logical.Add({camera.id, camera.primary.value_or("-"), OrDash(Join(camera.members))});
    logical.Print(out);
  }
  if (Heading(out, "Stream configurations", facts.stream_configs.size())) {
    Table streams({"ID", "FRAME TYPE", "CAMERA TYPE", "DEFAULT", "MEMBERS"});
    for (const ShowFacts::StreamConfig& stream : facts.stream_configs)
      streams.Add({stream.id, stream.frame_type, stream.camera_type, stream.is_default ? "yes" : "no",
                   OrDash(Join(stream.members))});
    streams.Print(out);
  }
  if (Heading(out, "HAL pipelines", facts.hal_pipelines.size())) {
    Table pipelines({"SYSTEM TYPE", "PIPELINE", "STREAMS"});
    for (const ShowFacts::Pipeline& pipeline : facts.hal_pipelines)
      pipelines.Add({pipeline.system_type, pipeline.pipeline, OrDash(Join(pipeline.streams))});
    pipelines.Print(out);
  }
}

}  // namespace

void PrintShowText(std::ostream& out, const ShowFacts& facts) {
  Table head({"Configuration", facts.file});
  head.Add(
      {"Device", facts.device.name + (facts.device.alias.empty() ? "" : " (" + facts.device.alias + ")")});
  head.Add({"SoC", OrDash(facts.device.soc)});
  head.Print(out, "");
  PrintPeripherals(out, facts);
  PrintCameras(out, facts);
  PrintGroups(out, facts);
}

}  // namespace pcfg
