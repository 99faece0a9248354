// pcfg show, for scripts: the same facts as JSON.
#include "json_output.h"
#include "show_facts.h"

namespace pcfg {

namespace {

template <typename T>
Json Optional(const std::optional<T>& value) {
  return value ? Json(*value) : Json(nullptr);
}

Json Cameras(const ShowFacts& facts) {
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
                       {"system_type", Optional(camera.system_type)},
                       {"system_options", options}});
  }
  return cameras;
}

}  // namespace

void PrintShowJson(std::ostream& out, const ShowFacts& facts) {
  Json types = Json::object();
  for (const auto& [type, count] : facts.type_counts) types[type] = count;

  Json order = Json::array();
  for (const ShowFacts::Step& step : facts.bring_up) order.push_back({{"id", step.id}, {"type", step.type}});

  Json sets = Json::array();
  for (const ShowFacts::CameraSet& set : facts.camera_sets)
    sets.push_back({{"id", set.id},
                    {"members", set.members},
                    {"sync_period_us", set.sync_period_us},
                    {"cadmor_camera_set_id", Optional(set.cadmor_set_id)}});

  Json logical = Json::array();
  for (const ShowFacts::LogicalCamera& camera : facts.logical_cameras)
    logical.push_back(
        {{"id", camera.id}, {"members", camera.members}, {"primary", Optional(camera.primary)}});

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
      {"physical_cameras", Cameras(facts)},
      {"camera_sets", sets},
      {"logical_cameras", logical},
      {"stream_configs", streams},
      {"hal_pipelines", pipelines}};
  PrintJson(out, document);
}

}  // namespace pcfg
