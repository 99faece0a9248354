// The rules on references and topology.
#include <optional>
#include <unordered_set>

#include "dependency_graph.h"
#include "rule_families.h"

namespace pcfg::rules {
namespace {

namespace gp = google::protobuf;

// A reference by peripheral id, with the registry type it must name (if any).
struct Reference {
  FieldPath path;
  const std::string* id;
  std::optional<models::PeripheralType> kind;
  const char* role;
};

template <typename Visit>
void ForEachIdList(const gp::RepeatedPtrField<std::string>& ids, const FieldPath& owner, const char* field,
                   std::optional<models::PeripheralType> kind, const char* role, Visit& visit) {
  for (int k = 0; k < ids.size(); ++k) visit(Reference{owner.Element(field, k), &ids.Get(k), kind, role});
}

// Every reference of the configuration, in list order.
template <typename Visit>
void ForEachReference(const Config& config, Visit visit) {
  const std::optional<models::PeripheralType> any;
  for (int i = 0; i < config.peripherals_size(); ++i) {
    const models::Peripheral& peripheral = config.peripherals(i);
    for (int k = 0; k < peripheral.dependencies_size(); ++k)
      visit(Reference{kRoot.Element("peripherals", i).Element("dependencies", k).Field("peripheral_id"),
                      &peripheral.dependencies(k).peripheral_id(), any, "dependency"});
  }
  for (int i = 0; i < config.physical_cameras_size(); ++i) {
    const models::PhysicalCamera& camera = config.physical_cameras(i);
    const FieldPath owner = kRoot.Element("physical_cameras", i);
    // A template describes no camera of the device, so it needs no registry entry.
    if (!camera.is_template())
      visit(Reference{owner.Field("peripheral_id"), &camera.peripheral_id(), models::PERIPHERAL_TYPE_CAMERA,
                      "physical camera"});
    ForEachIdList(camera.cameraset_peripheral_ids(), owner, "cameraset_peripheral_ids",
                  models::PERIPHERAL_TYPE_CAMERASET, "camera set", visit);
  }
  for (int i = 0; i < config.logical_cameras_size(); ++i) {
    const models::LogicalCamera& logical = config.logical_cameras(i);
    const FieldPath owner = kRoot.Element("logical_cameras", i);
    visit(Reference{owner.Field("peripheral_id"), &logical.peripheral_id(),
                    models::PERIPHERAL_TYPE_LOGICAL_CAMERA, "logical camera"});
    ForEachIdList(logical.camera_peripheral_ids(), owner, "camera_peripheral_ids",
                  models::PERIPHERAL_TYPE_CAMERA, "member camera", visit);
  }
  for (int i = 0; i < config.camera_sets_size(); ++i) {
    const models::CameraSet& set = config.camera_sets(i);
    const FieldPath owner = kRoot.Element("camera_sets", i);
    visit(Reference{owner.Field("peripheral_id"), &set.peripheral_id(), models::PERIPHERAL_TYPE_CAMERASET,
                    "camera set"});
    ForEachIdList(set.camera_peripheral_ids(), owner, "camera_peripheral_ids", models::PERIPHERAL_TYPE_CAMERA,
                  "member camera", visit);
  }
  for (int i = 0; i < config.camera_stream_configs_size(); ++i) {
    const models::CameraStreamConfig& stream = config.camera_stream_configs(i);
    const FieldPath owner = kRoot.Element("camera_stream_configs", i);
    visit(Reference{owner.Field("peripheral_id"), &stream.peripheral_id(), any, "stream configuration"});
    ForEachIdList(stream.camera_peripheral_ids(), owner, "camera_peripheral_ids",
                  models::PERIPHERAL_TYPE_CAMERA, "member camera", visit);
  }
}

std::string_view PeripheralIdOf(const models::Peripheral& p) { return p.id(); }
template <typename Entry>
std::string_view IdOf(const Entry& entry) {
  return entry.peripheral_id();
}
std::string ShowId(std::string_view id) { return Quote(id); }

// "a -> b -> c -> a", with the middle of a very long cycle left out.
std::string DescribeCycle(const Config& config, const std::vector<int>& peripherals) {
  constexpr size_t kHead = 8, kTail = 4;
  std::string text;
  for (size_t i = 0; i < peripherals.size(); ++i) {
    if (peripherals.size() > kHead + kTail + 1 && i == kHead) {
      text += "... (" + std::to_string(peripherals.size() - kHead - kTail) + " more) -> ";
      i = peripherals.size() - kTail - 1;
      continue;
    }
    text += config.peripherals(peripherals[i]).id();
    if (i + 1 < peripherals.size()) text += " -> ";
  }
  return text;
}

}  // namespace

void CheckDuplicateIds(const CheckContext& context, Findings& findings) {
  const Config& config = context.config;
  ReportRepeatedKeys(config.peripherals(), kRoot, "peripherals", "id", PeripheralIdOf, ShowId,
                     "peripheral id", findings);
  ReportRepeatedKeys(config.physical_cameras(), kRoot, "physical_cameras", "peripheral_id",
                     IdOf<models::PhysicalCamera>, ShowId, "peripheral id", findings);
  ReportRepeatedKeys(config.logical_cameras(), kRoot, "logical_cameras", "peripheral_id",
                     IdOf<models::LogicalCamera>, ShowId, "peripheral id", findings);
  ReportRepeatedKeys(config.camera_sets(), kRoot, "camera_sets", "peripheral_id", IdOf<models::CameraSet>,
                     ShowId, "peripheral id", findings);
  ReportRepeatedKeys(config.camera_stream_configs(), kRoot, "camera_stream_configs", "peripheral_id",
                     IdOf<models::CameraStreamConfig>, ShowId, "peripheral id", findings);
}

void CheckDanglingReferences(const CheckContext& context, Findings& findings) {
  ForEachReference(context.config, [&](const Reference& reference) {
    if (context.index.Registered(*reference.id) == nullptr)
      findings.Add(reference.path, std::string(reference.role) + " " + Quote(*reference.id) +
                                       " names no entry of the peripheral registry");
  });
}

void CheckReferenceKinds(const CheckContext& context, Findings& findings) {
  ForEachReference(context.config, [&](const Reference& reference) {
    const models::Peripheral* target = context.index.Registered(*reference.id);
    if (target == nullptr || !reference.kind || target->type() == *reference.kind) return;
    findings.Add(reference.path, std::string(reference.role) + " " + Quote(*reference.id) + " is a " +
                                     PeripheralTypeName(target->type()) + " in the registry, not a " +
                                     PeripheralTypeName(*reference.kind));
  });
}

// One finding per group of peripherals that depend on one another, naming one shortest cycle
// of the group, so that the output grows with the number of cycles, not with their paths.
void CheckDependencyCycles(const CheckContext& context, Findings& findings) {
  const DependencyGraph graph(context.index);
  for (const std::vector<int>& group : graph.CyclicGroups()) {
    if (findings.full()) {
      findings.Count();
      continue;
    }
    const DependencyGraph::Cycle cycle = graph.ShortestCycle(group);
    const size_t last = cycle.peripherals.size() - 2;  // the step that closes the cycle
    std::string message = "dependency cycle: " + DescribeCycle(context.config, cycle.peripherals);
    const size_t length = cycle.peripherals.size() - 1;
    if (group.size() > length)
      message +=
          " (one cycle among " + std::to_string(group.size()) + " peripherals that depend on one another)";
    findings.Add(kRoot.Element("peripherals", cycle.peripherals[last])
                     .Element("dependencies", cycle.entries[last])
                     .Field("peripheral_id"),
                 message);
  }
}

void CheckMissingEntries(const CheckContext& context, Findings& findings) {
  for (int i = 0; i < context.config.peripherals_size(); ++i) {
    const models::Peripheral& peripheral = context.config.peripherals(i);
    int entry = 0;
    const char* list = nullptr;
    switch (peripheral.type()) {
      case models::PERIPHERAL_TYPE_CAMERA:
        entry = context.index.PhysicalCamera(peripheral.id()), list = "physical_cameras";
        break;
      case models::PERIPHERAL_TYPE_CAMERASET:
        entry = context.index.CameraSet(peripheral.id()), list = "camera_sets";
        break;
      case models::PERIPHERAL_TYPE_LOGICAL_CAMERA:
        entry = context.index.LogicalCamera(peripheral.id()), list = "logical_cameras";
        break;
      default:
        continue;
    }
    if (entry < 0)
      findings.Add(
          kRoot.Element("peripherals", i).Field("id"),
          PeripheralTypeName(peripheral.type()) + " " + Quote(peripheral.id()) + " has no entry in " + list);
  }
}

namespace {

// (set id, camera id) pairs as one side states them.
struct PairHash {
  size_t operator()(const std::pair<std::string_view, std::string_view>& pair) const {
    return std::hash<std::string_view>()(pair.first) * 31 + std::hash<std::string_view>()(pair.second);
  }
};
using Memberships = std::unordered_set<std::pair<std::string_view, std::string_view>, PairHash>;

}  // namespace

void CheckMembership(const CheckContext& context, Findings& findings) {
  const Config& config = context.config;
  Memberships listed_by_sets, listed_by_cameras;
  for (const models::CameraSet& set : config.camera_sets())
    for (const std::string& camera : set.camera_peripheral_ids())
      listed_by_sets.emplace(set.peripheral_id(), camera);
  for (const models::PhysicalCamera& camera : config.physical_cameras())
    for (const std::string& set : camera.cameraset_peripheral_ids())
      listed_by_cameras.emplace(set, camera.peripheral_id());

  for (int s = 0; s < config.camera_sets_size(); ++s) {
    const models::CameraSet& set = config.camera_sets(s);
    for (int k = 0; k < set.camera_peripheral_ids_size(); ++k) {
      const std::string& camera_id = set.camera_peripheral_ids(k);
      const int camera = context.index.PhysicalCamera(camera_id);
      if (camera < 0) continue;
      if (!listed_by_cameras.count({set.peripheral_id(), camera_id}))
        findings.Add(kRoot.Element("camera_sets", s).Element("camera_peripheral_ids", k),
                     "set " + Quote(set.peripheral_id()) + " lists camera " + Quote(camera_id) +
                         ", which does not list the set in its cameraset_peripheral_ids");
      const models::PhysicalCamera& physical = config.physical_cameras(camera);
      if (set.has_cadmor() && physical.cadmor_camera_set_id() != set.cadmor().camera_set_id())
        findings.Add(kRoot.Element("physical_cameras", camera).Field("cadmor_camera_set_id"),
                     "camera " + Quote(camera_id) + " has cadmor_camera_set_id " +
                         std::to_string(physical.cadmor_camera_set_id()) + ", but set " +
                         Quote(set.peripheral_id()) + " that lists it has camera_set_id " +
                         std::to_string(set.cadmor().camera_set_id()));
    }
  }
  for (int c = 0; c < config.physical_cameras_size(); ++c) {
    const models::PhysicalCamera& camera = config.physical_cameras(c);
    for (int k = 0; k < camera.cameraset_peripheral_ids_size(); ++k) {
      const std::string& set_id = camera.cameraset_peripheral_ids(k);
      if (context.index.CameraSet(set_id) < 0 || listed_by_sets.count({set_id, camera.peripheral_id()}))
        continue;
      findings.Add(kRoot.Element("physical_cameras", c).Element("cameraset_peripheral_ids", k),
                   "camera " + Quote(camera.peripheral_id()) + " lists set " + Quote(set_id) +
                       ", which does not list the camera in its camera_peripheral_ids");
    }
  }
}

void CheckNoDriver(const CheckContext& context, Findings& findings) {
  for (int i = 0; i < context.config.physical_cameras_size(); ++i) {
    const models::PhysicalCamera& camera = context.config.physical_cameras(i);
    if (!camera.is_template() && !camera.has_camx() && !camera.has_cadmor())
      findings.Add(kRoot.Element("physical_cameras", i), "camera " + Quote(camera.peripheral_id()) +
                                                             " has neither a camx nor a cadmor description");
  }
}

void CheckTemplateReferences(const CheckContext& context, Findings& findings) {
  for (int i = 0; i < context.config.physical_cameras_size(); ++i) {
    const models::PhysicalCamera& camera = context.config.physical_cameras(i);
    if (!camera.template_id().empty() && !context.index.IsTemplate(camera.template_id()))
      findings.Add(
          kRoot.Element("physical_cameras", i).Field("template_id"),
          "template " + Quote(camera.template_id()) + " names no physical camera with is_template set");
  }
}

void CheckIndexRange(const CheckContext& context, Findings& findings) {
  for (int i = 0; i < context.config.logical_cameras_size(); ++i) {
    const models::LogicalCamera& logical = context.config.logical_cameras(i);
    if (!logical.has_camx()) continue;
    const uint32_t index = logical.camx().primary_camera_index();
    const int members = logical.camera_peripheral_ids_size();
    if (index >= static_cast<uint32_t>(members))
      findings.Add(kRoot.Element("logical_cameras", i).Field("camx").Field("primary_camera_index"),
                   "primary_camera_index " + std::to_string(index) + " is not below the member count " +
                       std::to_string(members));
  }
}

}  // namespace pcfg::rules
