// pcfg show, first half: the facts, gathered once into plain data.
#include "show_facts.h"

#include <map>

#include "bringup.h"
#include "enum_names.h"
#include "includes/enums.pb.h"

namespace pcfg {
namespace {

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

std::string PeripheralTypeName(int type) { return EnumName(models::PeripheralType_descriptor(), type); }

// The system_options entry that applies to a system type: the first with that type.
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

void GatherPeripherals(const ConfigIndex& index, ShowFacts& facts) {
  const Config& config = index.config();
  std::map<int, int> counts;
  for (const models::Peripheral& peripheral : config.peripherals()) ++counts[peripheral.type()];
  facts.peripheral_count = config.peripherals_size();
  for (const auto& [type, count] : counts) facts.type_counts.emplace_back(PeripheralTypeName(type), count);

  const BringUpOrder order = TopologicalBringUp(DependencyGraph(index));
  for (int i : order.order)
    facts.bring_up.push_back({config.peripherals(i).id(), PeripheralTypeName(config.peripherals(i).type())});
  for (int i : order.left_out) facts.left_out.push_back(config.peripherals(i).id());
}

void GatherCameras(const ConfigIndex& index, ShowFacts& facts) {
  const Config& config = index.config();
  // Looked up once per system type rather than once per camera.
  std::unordered_map<int, std::optional<ShowFacts::OptionsEntry>> options_by_type;
  for (const models::PhysicalCamera& camera : config.physical_cameras()) {
    ShowFacts::Camera shown;
    shown.id = camera.peripheral_id();
    shown.is_template = camera.is_template();
    shown.model = EnumName(models::CameraModel_descriptor(), camera.model());
    shown.driver = DriverOf(camera);
    if (const models::Peripheral* entry = index.Registered(camera.peripheral_id())) {
      const int system_type = entry->system_type();
      shown.system_type = EnumName(models::PeripheralSystemType_descriptor(), system_type);
      auto cached = options_by_type.find(system_type);
      if (cached == options_by_type.end())
        cached = options_by_type.emplace(system_type, OptionsFor(config, system_type)).first;
      shown.options = cached->second;
    }
    facts.cameras.push_back(std::move(shown));
  }
}

void GatherTopology(const Config& config, ShowFacts& facts) {
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
      const uint32_t primary = logical.camx().primary_camera_index();
      shown.primary = primary < shown.members.size() ? shown.members[primary] : "#" + std::to_string(primary);
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
}

}  // namespace

ShowFacts GatherShowFacts(const std::string& file, const ConfigIndex& index) {
  ShowFacts facts;
  facts.file = file;
  facts.device = DescribeDevice(index.config());
  GatherPeripherals(index, facts);
  GatherCameras(index, facts);
  GatherTopology(index.config(), facts);
  return facts;
}

}  // namespace pcfg
