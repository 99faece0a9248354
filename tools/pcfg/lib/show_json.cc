// pcfg show, for scripts: the same facts as JSON. The lists are written entry by entry, one
// entry per line, so that a configuration of millions of entries never becomes one JSON value.
#include "json_output.h"
#include "show_facts.h"

namespace pcfg {

namespace {

template <typename T>
Json Optional(const std::optional<T>& value) {
  return value ? Json(*value) : Json(nullptr);
}

// "KEY": [ one entry per line of TO_JSON(element) ], as a member of an object at depth DEPTH - 1.
template <typename List, typename ToJson>
void WriteList(std::ostream& out, const char* key, const List& list, int depth, ToJson to_json) {
  out << ",\n" << std::string(static_cast<size_t>(2 * depth), ' ') << '"' << key << "\": ";
  JsonArrayWriter array(out, depth, /*one_line_elements=*/true);
  for (const auto& element : list) array.Add(to_json(element));
  array.Close();
}

Json CameraJson(const ShowFacts::Camera& camera) {
  Json options = nullptr;
  if (camera.options)
    options = {{"index", camera.options->index},
               {"member", camera.options->member.empty() ? Json(nullptr) : Json(camera.options->member)}};
  return {
      {"id", camera.id},         {"is_template", camera.is_template},           {"model", camera.model},
      {"driver", camera.driver}, {"system_type", Optional(camera.system_type)}, {"system_options", options}};
}

}  // namespace

void PrintShowJson(std::ostream& out, const ShowFacts& facts) {
  Json types = Json::object();
  for (const auto& [type, count] : facts.type_counts) types[type] = count;
  const Json head = {
      {"file", facts.file},
      {"device", {{"name", facts.device.name}, {"alias", facts.device.alias}, {"soc", facts.device.soc}}},
      {"peripheral_count", facts.peripheral_count},
      {"peripheral_types", types}};
  // The head's members, without its closing brace: the lists follow as further members.
  std::string text = head.dump(2, ' ', false, Json::error_handler_t::replace);
  text.resize(text.rfind('\n'));
  out << text;

  out << ",\n  \"bring_up\": {\n    \"complete\": " << (facts.left_out.empty() ? "true" : "false");
  WriteList(out, "order", facts.bring_up, 2, [](const ShowFacts::Step& step) {
    return Json{{"id", step.id}, {"type", step.type}};
  });
  WriteList(out, "left_out", facts.left_out, 2, [](const std::string& id) { return Json(id); });
  out << "\n  }";
  WriteList(out, "physical_cameras", facts.cameras, 1, CameraJson);
  WriteList(out, "camera_sets", facts.camera_sets, 1, [](const ShowFacts::CameraSet& set) {
    return Json{{"id", set.id},
                {"members", set.members},
                {"sync_period_us", set.sync_period_us},
                {"cadmor_camera_set_id", Optional(set.cadmor_set_id)}};
  });
  WriteList(out, "logical_cameras", facts.logical_cameras, 1, [](const ShowFacts::LogicalCamera& camera) {
    return Json{{"id", camera.id}, {"members", camera.members}, {"primary", Optional(camera.primary)}};
  });
  WriteList(out, "stream_configs", facts.stream_configs, 1, [](const ShowFacts::StreamConfig& stream) {
    return Json{{"id", stream.id},
                {"frame_type", stream.frame_type},
                {"camera_type", stream.camera_type},
                {"is_default", stream.is_default},
                {"members", stream.members}};
  });
  WriteList(out, "hal_pipelines", facts.hal_pipelines, 1, [](const ShowFacts::Pipeline& pipeline) {
    return Json{{"system_type", pipeline.system_type},
                {"pipeline", pipeline.pipeline},
                {"streams", pipeline.streams}};
  });
  out << "\n}\n";
}

}  // namespace pcfg
