#include "show.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <ostream>
#include <set>
#include <unordered_map>

#include "bringup.h"
#include "enum_names.h"
#include "includes/enums.pb.h"

namespace pcfg {
namespace {

namespace models = Talvo::Peripherals::Config::Models;
namespace gp = google::protobuf;

std::vector<std::string> Ids(const gp::RepeatedPtrField<std::string>& ids) {
  return std::vector<std::string>(ids.begin(), ids.end());
}

const char* DriverOf(const models::PhysicalCamera& camera) {
  if (camera.has_camx() && camera.has_cadmor()) return "both";
  if (camera.has_camx()) return "CamX";
  if (camera.has_cadmor()) return "Cadmor";
  return "none";
}

std::optional<ShowFacts::OptionsEntry> OptionsFor(const Config& config, int system_type) {
  for (int i = 0; i < config.system_options_size(); ++i) {
    const models::PeripheralSystemTypeOptions& entry = config.system_options(i);
    if (entry.type() != system_type) continue;
    ShowFacts::OptionsEntry found;
    found.index = i;
    const gp::FieldDescriptor* member = entry.GetReflection()->GetOneofFieldDescriptor(
        entry, entry.GetDescriptor()->FindOneofByName("options"));
    if (member != nullptr) found.member = member->name();
    return found;
  }
  return std::nullopt;
}

}  // namespace

ShowFacts GatherShowFacts(const LoadedConfig& loaded) {
  const Config& config = loaded.config;
  ShowFacts facts;
  facts.file = loaded.file;

  const gp::EnumValueDescriptor* device =
      models::TargetDevice_descriptor()->FindValueByNumber(config.device_info().device_name());
  facts.device.name = device ? device->name() : std::to_string(config.device_info().device_name());
  if (device) facts.device.alias = device->options().GetExtension(models::Alias);
  facts.device.soc = config.device_info().soc_name();

  std::unordered_map<std::string, int> registry;  // id -> first entry
  std::map<int, int> counts;
  for (int i = 0; i < config.peripherals_size(); ++i) {
    registry.emplace(config.peripherals(i).id(), i);
    ++counts[config.peripherals(i).type()];
  }
  facts.peripheral_count = config.peripherals_size();
  for (const auto& [type, count] : counts)
    facts.type_counts.emplace_back(EnumName(models::PeripheralType_descriptor(), type), count);

  const BringUpOrder order = TopologicalBringUp(config);
  for (int index : order.order)
    facts.bring_up.push_back({config.peripherals(index).id(), EnumName(models::PeripheralType_descriptor(),
                                                                       config.peripherals(index).type())});
  facts.left_out = order.left_out;

  // Looked up once per system type rather than once per camera.
  std::unordered_map<int, std::optional<ShowFacts::OptionsEntry>> options_by_type;
  for (const models::PhysicalCamera& camera : config.physical_cameras()) {
    ShowFacts::Camera shown;
    shown.id = camera.peripheral_id();
    shown.is_template = camera.is_template();
    shown.model = EnumName(models::CameraModel_descriptor(), camera.model());
    shown.driver = DriverOf(camera);
    auto entry = registry.find(camera.peripheral_id());
    if (entry != registry.end()) {
      const int system_type = config.peripherals(entry->second).system_type();
      shown.system_type = EnumName(models::PeripheralSystemType_descriptor(), system_type);
      auto cached = options_by_type.find(system_type);
      if (cached == options_by_type.end())
        cached = options_by_type.emplace(system_type, OptionsFor(config, system_type)).first;
      shown.options = cached->second;
    }
    facts.cameras.push_back(std::move(shown));
  }

  for (const models::CameraSet& set : config.camera_sets()) {
    ShowFacts::CameraSet shown;
    shown.id = set.peripheral_id();
    shown.members = Ids(set.camera_peripheral_ids());
    shown.sync_period_us = set.sync_period_us();
    if (set.has_cadmor()) shown.cadmor_set_id = set.cadmor().camera_set_id();
    facts.camera_sets.push_back(std::move(shown));
  }

  for (const models::LogicalCamera& logical : config.logical_cameras()) {
    ShowFacts::LogicalCamera shown;
    shown.id = logical.peripheral_id();
    shown.members = Ids(logical.camera_peripheral_ids());
    if (logical.has_camx()) {
      const uint32_t index = logical.camx().primary_camera_index();
      shown.primary = index < shown.members.size() ? shown.members[index] : "#" + std::to_string(index);
    }
    facts.logical_cameras.push_back(std::move(shown));
  }

  for (const models::CameraStreamConfig& stream : config.camera_stream_configs()) {
    ShowFacts::StreamConfig shown;
    shown.id = stream.peripheral_id();
    shown.frame_type = EnumName(models::CadmorFrameType_descriptor(), stream.cadmor_frame_type());
    shown.camera_type = EnumName(models::CameraType_descriptor(), stream.camera_type());
    shown.is_default = stream.is_default();
    shown.members = Ids(stream.camera_peripheral_ids());
    facts.stream_configs.push_back(std::move(shown));
  }

  for (const models::CameraHalStreamConfigs& table : config.general_configs().hal_stream_configs()) {
    const std::string system_type = EnumName(models::CameraSystemType_descriptor(), table.system_type());
    for (const models::PipelineToStreamMap& map : table.pipeline_configs()) {
      ShowFacts::Pipeline shown;
      shown.system_type = system_type;
      shown.pipeline = EnumName(models::CameraHalUsecasePipelineType_descriptor(), map.pipeline_type());
      for (int stream : map.streams())
        shown.streams.push_back(EnumName(models::StreamType_descriptor(), stream));
      facts.hal_pipelines.push_back(std::move(shown));
    }
  }
  return facts;
}

// ---- text ----

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

// Columns padded with spaces to the widest cell, two spaces apart; the last is not padded.
class Table {
 public:
  explicit Table(std::vector<std::string> header) { rows_.push_back(std::move(header)); }
  void Add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
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

}  // namespace

void PrintShowText(std::ostream& out, const ShowFacts& facts) {
  Table head({"Configuration", facts.file});
  head.Add(
      {"Device", facts.device.name + (facts.device.alias.empty() ? "" : " (" + facts.device.alias + ")")});
  head.Add({"SoC", OrDash(facts.device.soc)});
  head.Print(out, "");

  if (Heading(out, "Peripherals", facts.peripheral_count)) {
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
          << Join(facts.left_out) << " (pcfg check names the cycle)\n";
  }

  if (Heading(out, "Physical cameras", facts.cameras.size())) {
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

// ---- JSON ----

void PrintShowJson(std::ostream& out, const ShowFacts& facts) {
  using Json = nlohmann::ordered_json;
  auto optional = [](const auto& value) { return value ? Json(*value) : Json(nullptr); };

  Json types = Json::object();
  for (const auto& [type, count] : facts.type_counts) types[type] = count;

  Json order = Json::array();
  for (const ShowFacts::Step& step : facts.bring_up) order.push_back({{"id", step.id}, {"type", step.type}});

  Json cameras = Json::array();
  for (const ShowFacts::Camera& camera : facts.cameras) {
    Json options = nullptr;
    if (camera.options)
      options = {{"index", camera.options->index},
                 {"member", camera.options->member.empty() ? Json(nullptr) : Json(camera.options->member)}};
    cameras.push_back({{"id", camera.id},
                       {"is_template", camera.is_template},
                       {"model", camera.model},
                       {"driver", camera.driver},
                       {"system_type", optional(camera.system_type)},
                       {"system_options", options}});
  }

  Json sets = Json::array();
  for (const ShowFacts::CameraSet& set : facts.camera_sets)
    sets.push_back({{"id", set.id},
                    {"members", set.members},
                    {"sync_period_us", set.sync_period_us},
                    {"cadmor_camera_set_id", optional(set.cadmor_set_id)}});

  Json logical = Json::array();
  for (const ShowFacts::LogicalCamera& camera : facts.logical_cameras)
    logical.push_back(
        {{"id", camera.id}, {"members", camera.members}, {"primary", optional(camera.primary)}});

  Json streams = Json::array();
  for (const ShowFacts::StreamConfig& stream : facts.stream_configs)
    streams.push_back({{"id", stream.id},
                       {"frame_type", stream.frame_type},
                       {"camera_type", stream.camera_type},
                       {"is_default", stream.is_default},
                       {"members", stream.members}});

  Json pipelines = Json::array();
  for (const ShowFacts::Pipeline& pipeline : facts.hal_pipelines)
    pipelines.push_back({{"system_type", pipeline.system_type},
                         {"pipeline", pipeline.pipeline},
                         {"streams", pipeline.streams}});

  Json document = {
      {"file", facts.file},
      {"device", {{"name", facts.device.name}, {"alias", facts.device.alias}, {"soc", facts.device.soc}}},
      {"peripheral_count", facts.peripheral_count},
      {"peripheral_types", types},
      {"bring_up", {{"complete", facts.left_out.empty()}, {"order", order}, {"left_out", facts.left_out}}},
      {"physical_cameras", cameras},
      {"camera_sets", sets},
      {"logical_cameras", logical},
      {"stream_configs", streams},
      {"hal_pipelines", pipelines}};
  out << document.dump(2) << '\n';
}

}  // namespace pcfg
