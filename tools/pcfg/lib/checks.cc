#include "checks.h"

#include <algorithm>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "enum_names.h"
#include "walk.h"

namespace pcfg {

namespace models = Talvo::Peripherals::Config::Models;
namespace gp = google::protobuf;

// Look-ups that several rules share, built once per configuration.
class CheckContext {
 public:
  explicit CheckContext(const Config& config) : config(config) {
    for (int i = 0; i < config.peripherals_size(); ++i) registry.emplace(config.peripherals(i).id(), i);
    for (int i = 0; i < config.physical_cameras_size(); ++i) {
      const models::PhysicalCamera& camera = config.physical_cameras(i);
      physical_cameras.emplace(camera.peripheral_id(), i);
      if (camera.is_template()) templates.insert(camera.peripheral_id());
    }
    for (int i = 0; i < config.camera_sets_size(); ++i)
      camera_sets.emplace(config.camera_sets(i).peripheral_id(), i);
    for (int i = 0; i < config.logical_cameras_size(); ++i)
      logical_cameras.emplace(config.logical_cameras(i).peripheral_id(), i);
  }

  const Config& config;
  // Peripheral id -> index of its first entry in each list.
  std::unordered_map<std::string, int> registry;
  std::unordered_map<std::string, int> physical_cameras;
  std::unordered_map<std::string, int> camera_sets;
  std::unordered_map<std::string, int> logical_cameras;
  std::unordered_set<std::string> templates;

  const models::Peripheral* Registered(const std::string& id) const {
    auto found = registry.find(id);
    return found == registry.end() ? nullptr : &config.peripherals(found->second);
  }
};

namespace {

const FieldPath kRoot;

std::string Quote(const std::string& text) { return "\"" + text + "\""; }

std::string PeripheralTypeName(int type) { return EnumName(models::PeripheralType_descriptor(), type); }

// Every reference by peripheral id, with the registry type it must name (if any).
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

template <typename Visit>
void ForEachReference(const Config& config, Visit visit) {
  using models::PeripheralType;
  const std::optional<PeripheralType> any;
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

// Reports the second and later entries of LIST whose KEY was seen before.
template <typename Entry, typename Key>
void ReportRepeatedKeys(const gp::RepeatedPtrField<Entry>& list, const FieldPath& owner,
                        const char* list_name, const char* key_field, Key key, const std::string& what,
                        Findings& findings) {
  std::unordered_map<std::string, int> first;
  for (int i = 0; i < list.size(); ++i) {
    auto inserted = first.emplace(key(list.Get(i)), i);
    if (!inserted.second)
      findings.Add(owner.Element(list_name, i).Field(key_field),
                   what + " " + inserted.first->first + " repeats " + list_name + "[" +
                       std::to_string(inserted.first->second) + "]");
  }
}

// ---- the rules ----

void CheckDuplicateIds(const CheckContext& context, Findings& findings) {
  const Config& config = context.config;
  auto id = [](const auto& entry) { return Quote(entry.peripheral_id()); };
  ReportRepeatedKeys(
      config.peripherals(), kRoot, "peripherals", "id",
      [](const models::Peripheral& p) { return Quote(p.id()); }, "peripheral id", findings);
  ReportRepeatedKeys(config.physical_cameras(), kRoot, "physical_cameras", "peripheral_id", id,
                     "peripheral id", findings);
  ReportRepeatedKeys(config.logical_cameras(), kRoot, "logical_cameras", "peripheral_id", id, "peripheral id",
                     findings);
  ReportRepeatedKeys(config.camera_sets(), kRoot, "camera_sets", "peripheral_id", id, "peripheral id",
                     findings);
  ReportRepeatedKeys(config.camera_stream_configs(), kRoot, "camera_stream_configs", "peripheral_id", id,
                     "peripheral id", findings);
}

void CheckDanglingReferences(const CheckContext& context, Findings& findings) {
  ForEachReference(context.config, [&](const Reference& reference) {
    if (context.Registered(*reference.id) == nullptr)
      findings.Add(reference.path, std::string(reference.role) + " " + Quote(*reference.id) +
                                       " names no entry of the peripheral registry");
  });
}

void CheckReferenceKinds(const CheckContext& context, Findings& findings) {
  ForEachReference(context.config, [&](const Reference& reference) {
    const models::Peripheral* target = context.Registered(*reference.id);
    if (target == nullptr || !reference.kind || target->type() == *reference.kind) return;
    findings.Add(reference.path, std::string(reference.role) + " " + Quote(*reference.id) + " is a " +
                                     PeripheralTypeName(target->type()) + " in the registry, not a " +
                                     PeripheralTypeName(*reference.kind));
  });
}

void CheckDependencyCycles(const CheckContext& context, Findings& findings) {
  const Config& config = context.config;
  const int count = config.peripherals_size();
  enum State : char { kUnvisited, kOnStack, kDone };
  std::vector<State> state(count, kUnvisited);
  struct Frame {
    int peripheral;
    int next_dependency;
  };
  std::vector<Frame> stack;
  for (int start = 0; start < count; ++start) {
    if (state[start] != kUnvisited) continue;
    stack.push_back({start, 0});
    state[start] = kOnStack;
    while (!stack.empty()) {
      Frame& frame = stack.back();
      const models::Peripheral& peripheral = config.peripherals(frame.peripheral);
      if (frame.next_dependency == peripheral.dependencies_size()) {
        state[frame.peripheral] = kDone;
        stack.pop_back();
        continue;
      }
      const int dependency_index = frame.next_dependency++;
      auto target = context.registry.find(peripheral.dependencies(dependency_index).peripheral_id());
      if (target == context.registry.end()) continue;  // dangling, reported elsewhere
      const int next = target->second;
      if (state[next] == kUnvisited) {
        state[next] = kOnStack;
        stack.push_back({next, 0});
      } else if (state[next] == kOnStack) {
        std::string cycle;
        auto from =
            std::find_if(stack.begin(), stack.end(), [&](const Frame& f) { return f.peripheral == next; });
        for (auto it = from; it != stack.end(); ++it)
          cycle += config.peripherals(it->peripheral).id() + " -> ";
        cycle += config.peripherals(next).id();
        findings.Add(kRoot.Element("peripherals", stack.back().peripheral)
                         .Element("dependencies", dependency_index)
                         .Field("peripheral_id"),
                     "dependency cycle: " + cycle);
      }
    }
  }
}

// The oneof member of an options entry must be the one numbered after its type: value + 9.
void CheckPairingOf(const gp::Message& entry, const FieldPath& path, Findings& findings) {
  const gp::Descriptor* type = entry.GetDescriptor();
  const gp::Reflection* reflection = entry.GetReflection();
  const gp::FieldDescriptor* member =
      reflection->GetOneofFieldDescriptor(entry, type->FindOneofByName("options"));
  if (member == nullptr) return;
  const gp::FieldDescriptor* type_field = type->FindFieldByName("type");
  const int value = reflection->GetEnumValue(entry, type_field);
  if (member->number() == value + 9) return;
  const gp::FieldDescriptor* paired = type->FindFieldByNumber(value + 9);
  const bool paired_is_member = paired != nullptr && paired->containing_oneof() != nullptr;
  findings.Add(path.Field(member->name()),
               "sets " + member->name() + " but its type " + EnumName(type_field->enum_type(), value) +
                   (paired_is_member ? " pairs with " + paired->name() : " has no options member"));
}

void CheckOptionsPairing(const CheckContext& context, Findings& findings) {
  for (int i = 0; i < context.config.system_options_size(); ++i)
    CheckPairingOf(context.config.system_options(i), kRoot.Element("system_options", i), findings);
  for (int i = 0; i < context.config.adapter_options_size(); ++i)
    CheckPairingOf(context.config.adapter_options(i), kRoot.Element("adapter_options", i), findings);
}

void CheckDuplicateOptions(const CheckContext& context, Findings& findings) {
  ReportRepeatedKeys(
      context.config.system_options(), kRoot, "system_options", "type",
      [](const models::PeripheralSystemTypeOptions& o) {
        return EnumName(models::PeripheralSystemType_descriptor(), o.type());
      },
      "options for", findings);
  ReportRepeatedKeys(
      context.config.adapter_options(), kRoot, "adapter_options", "type",
      [](const models::PeripheralSystemAdapterTypeOptions& o) {
        return EnumName(models::PeripheralSystemAdapterType_descriptor(), o.type());
      },
      "options for", findings);
}

void CheckMissingOptions(const CheckContext& context, Findings& findings) {
  std::unordered_set<int> configured;
  for (const auto& options : context.config.system_options()) configured.insert(options.type());
  std::unordered_map<int, int> users;            // system type -> peripherals using it
  std::vector<std::pair<int, int>> first_users;  // (system type, first peripheral), in registry order
  for (int i = 0; i < context.config.peripherals_size(); ++i) {
    const int system = context.config.peripherals(i).system_type();
    if (system == models::PERIPHERAL_SYSTEM_TYPE_UNKNOWN ||
        system == models::PERIPHERAL_SYSTEM_TYPE_GENERIC || configured.count(system))
      continue;
    if (users[system]++ == 0) first_users.emplace_back(system, i);
  }
  for (const auto& [system, first] : first_users) {
    const int count = users[system];
    findings.Add(kRoot.Element("peripherals", first).Field("system_type"),
                 "no system_options entry for " +
                     EnumName(models::PeripheralSystemType_descriptor(), system) +
                     (count > 1 ? " (used by " + std::to_string(count) + " peripherals)" : ""));
  }
}

void CheckMissingEntries(const CheckContext& context, Findings& findings) {
  for (int i = 0; i < context.config.peripherals_size(); ++i) {
    const models::Peripheral& peripheral = context.config.peripherals(i);
    const std::unordered_map<std::string, int>* entries = nullptr;
    const char* list = nullptr;
    switch (peripheral.type()) {
      case models::PERIPHERAL_TYPE_CAMERA:
        entries = &context.physical_cameras, list = "physical_cameras";
        break;
      case models::PERIPHERAL_TYPE_CAMERASET:
        entries = &context.camera_sets, list = "camera_sets";
        break;
      case models::PERIPHERAL_TYPE_LOGICAL_CAMERA:
        entries = &context.logical_cameras, list = "logical_cameras";
        break;
      default:
        continue;
    }
    if (!entries->count(peripheral.id()))
      findings.Add(
          kRoot.Element("peripherals", i).Field("id"),
          PeripheralTypeName(peripheral.type()) + " " + Quote(peripheral.id()) + " has no entry in " + list);
  }
}

void CheckMembership(const CheckContext& context, Findings& findings) {
  const Config& config = context.config;
  // "set\ncamera" pairs as stated by each side.
  auto pair = [](const std::string& set, const std::string& camera) { return set + '\n' + camera; };
  std::unordered_set<std::string> listed_by_sets, listed_by_cameras;
  for (const auto& set : config.camera_sets())
    for (const std::string& camera : set.camera_peripheral_ids())
      listed_by_sets.insert(pair(set.peripheral_id(), camera));
  for (const auto& camera : config.physical_cameras())
    for (const std::string& set : camera.cameraset_peripheral_ids())
      listed_by_cameras.insert(pair(set, camera.peripheral_id()));

  for (int s = 0; s < config.camera_sets_size(); ++s) {
    const models::CameraSet& set = config.camera_sets(s);
    for (int k = 0; k < set.camera_peripheral_ids_size(); ++k) {
      const std::string& camera_id = set.camera_peripheral_ids(k);
      auto camera = context.physical_cameras.find(camera_id);
      if (camera == context.physical_cameras.end()) continue;
      const FieldPath where = kRoot.Element("camera_sets", s).Element("camera_peripheral_ids", k);
      if (!listed_by_cameras.count(pair(set.peripheral_id(), camera_id)))
        findings.Add(where, "set " + Quote(set.peripheral_id()) + " lists camera " + Quote(camera_id) +
                                ", which does not list the set in its cameraset_peripheral_ids");
      const models::PhysicalCamera& physical = config.physical_cameras(camera->second);
      if (set.has_cadmor() && physical.cadmor_camera_set_id() != set.cadmor().camera_set_id())
        findings.Add(kRoot.Element("physical_cameras", camera->second).Field("cadmor_camera_set_id"),
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
      if (!context.camera_sets.count(set_id) || listed_by_sets.count(pair(set_id, camera.peripheral_id())))
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
    if (!camera.template_id().empty() && !context.templates.count(camera.template_id()))
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

bool IsHexNumber(const std::string& text) {
  size_t start = text.size() >= 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X') ? 2 : 0;
  if (start == text.size()) return false;
  return std::all_of(text.begin() + start, text.end(), [](unsigned char c) { return std::isxdigit(c) != 0; });
}

bool EndsWith(const std::string& text, const std::string& suffix) {
  return text.size() >= suffix.size() &&
         text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

void CheckHexStrings(const CheckContext& context, Findings& findings) {
  WalkMessages(context.config, kRoot,
               [&](const gp::Message& message, const FieldPath& path,
                   const std::vector<const gp::FieldDescriptor*>& fields) {
                 const gp::Reflection* reflection = message.GetReflection();
                 for (const gp::FieldDescriptor* field : fields) {
                   if (field->type() != gp::FieldDescriptor::TYPE_STRING || field->is_repeated() ||
                       !EndsWith(field->name(), "_hex"))
                     continue;
                   const std::string value = reflection->GetString(message, field);
                   if (!IsHexNumber(value))
                     findings.Add(path.Field(field->name()), Quote(value) + " is not a hexadecimal number");
                 }
               });
}

void CheckUndeclaredEnums(const CheckContext& context, Findings& findings) {
  WalkMessages(context.config, kRoot,
               [&](const gp::Message& message, const FieldPath& path,
                   const std::vector<const gp::FieldDescriptor*>& fields) {
                 const gp::Reflection* reflection = message.GetReflection();
                 for (const gp::FieldDescriptor* field : fields) {
                   if (field->cpp_type() != gp::FieldDescriptor::CPPTYPE_ENUM) continue;
                   const gp::EnumDescriptor* type = field->enum_type();
                   auto report = [&](int value, int index) {
                     if (type->FindValueByNumber(value) != nullptr) return;
                     findings.Add(index >= 0 ? path.Element(field->name(), index) : path.Field(field->name()),
                                  std::to_string(value) + " is not a value of " + type->name());
                   };
                   if (field->is_repeated()) {
                     for (int i = 0; i < reflection->FieldSize(message, field); ++i)
                       report(reflection->GetRepeatedEnumValue(message, field, i), i);
                   } else {
                     report(reflection->GetEnumValue(message, field), -1);
                   }
                 }
               });
}

void CheckDuplicateSequences(const CheckContext& context, Findings& findings) {
  for (int i = 0; i < context.config.physical_cameras_size(); ++i) {
    const models::PhysicalCamera& camera = context.config.physical_cameras(i);
    if (!camera.has_cadmor() || !camera.cadmor().has_i2c()) continue;
    ReportRepeatedKeys(
        camera.cadmor().i2c().sequences(), kRoot.Element("physical_cameras", i).Field("cadmor").Field("i2c"),
        "sequences", "id",
        [](const models::I2CSequence& s) { return EnumName(models::I2CSequenceId_descriptor(), s.id()); },
        "sequence", findings);
  }
}

void CheckDuplicatePipelines(const CheckContext& context, Findings& findings) {
  if (!context.config.has_general_configs()) return;
  const FieldPath general = kRoot.Field("general_configs");
  const auto& tables = context.config.general_configs().hal_stream_configs();
  ReportRepeatedKeys(
      tables, general, "hal_stream_configs", "system_type",
      [](const models::CameraHalStreamConfigs& t) {
        return EnumName(models::CameraSystemType_descriptor(), t.system_type());
      },
      "system type", findings);
  for (int i = 0; i < tables.size(); ++i)
    ReportRepeatedKeys(
        tables.Get(i).pipeline_configs(), general.Element("hal_stream_configs", i), "pipeline_configs",
        "pipeline_type",
        [](const models::PipelineToStreamMap& p) {
          return EnumName(models::CameraHalUsecasePipelineType_descriptor(), p.pipeline_type());
        },
        "pipeline", findings);
}

void CheckUnknownFields(const CheckContext& context, Findings& findings) {
  WalkMessages(
      context.config, kRoot,
      [&](const gp::Message& message, const FieldPath& path, const std::vector<const gp::FieldDescriptor*>&) {
        const gp::UnknownFieldSet& unknown = message.GetReflection()->GetUnknownFields(message);
        if (unknown.empty()) return;
        std::string numbers;
        for (int i = 0; i < unknown.field_count(); ++i)
          numbers += (i ? ", " : "") + std::to_string(unknown.field(i).number());
        findings.Add(
            path, message.GetDescriptor()->name() + " carries fields the schema does not know: " + numbers);
      });
}

}  // namespace

const std::vector<Rule>& Rules() {
  static const std::vector<Rule> rules = {
      {"duplicate-id", Severity::kError,
       "two registry entries, or two entries of one topology list, share an id", CheckDuplicateIds},
      {"dangling-reference", Severity::kError, "a peripheral id reference names no registry entry",
       CheckDanglingReferences},
      {"reference-kind", Severity::kError,
       "a peripheral id reference names a registry entry of the wrong type", CheckReferenceKinds},
      {"dependency-cycle", Severity::kError, "peripheral dependencies form a cycle", CheckDependencyCycles},
      {"options-pairing", Severity::kError, "an options entry sets a member that does not pair with its type",
       CheckOptionsPairing},
      {"duplicate-options", Severity::kWarning, "two option entries for one type", CheckDuplicateOptions},
      {"missing-options", Severity::kWarning, "a peripheral's system type has no system_options entry",
       CheckMissingOptions},
      {"missing-entry", Severity::kWarning,
       "a registry camera, camera set or logical camera has no topology entry", CheckMissingEntries},
      {"membership-mismatch", Severity::kWarning, "a camera and a camera set disagree about membership",
       CheckMembership},
      {"no-driver", Severity::kWarning, "a physical camera has neither camx nor cadmor", CheckNoDriver},
      {"template-reference", Severity::kError, "a template_id names no template", CheckTemplateReferences},
      {"index-range", Severity::kError, "primary_camera_index is not below the member count",
       CheckIndexRange},
      {"bad-hex", Severity::kError, "a ..._hex value is not a hexadecimal number", CheckHexStrings},
      {"undeclared-enum", Severity::kWarning, "an enumerated field holds an undeclared number",
       CheckUndeclaredEnums},
      {"duplicate-sequence", Severity::kWarning, "an I2C device holds two sequences with one id",
       CheckDuplicateSequences},
      {"duplicate-pipeline", Severity::kWarning, "the HAL stream table repeats a system type or pipeline",
       CheckDuplicatePipelines},
      {"unknown-field", Severity::kWarning, "binary input carries fields the schema does not know",
       CheckUnknownFields},
  };
  return rules;
}

const Rule* FindRule(const std::string& id) {
  for (const Rule& rule : Rules())
    if (id == rule.id) return &rule;
  return nullptr;
}

std::vector<Diagnostic> RunChecks(const LoadedConfig& loaded, const CheckOptions& options) {
  const CheckContext context(loaded.config);
  std::vector<Diagnostic> diagnostics;
  for (const Rule& rule : Rules()) {
    if (options.disabled.count(rule.id) || (!options.only.empty() && !options.only.count(rule.id))) continue;
    Findings findings;
    rule.check(context, findings);
    for (const Findings::Item& item : findings.items()) {
      Diagnostic d;
      d.file = loaded.file;
      const LoadedConfig::Location location = loaded.Locate(item.path);
      d.line = location.line;
      d.column = location.column;
      d.severity = options.werror ? Severity::kError : rule.severity;
      d.rule = rule.id;
      d.path = item.path.ToString();
      d.message = item.message;
      diagnostics.push_back(std::move(d));
    }
  }
  std::stable_sort(diagnostics.begin(), diagnostics.end(), [](const Diagnostic& a, const Diagnostic& b) {
    return std::make_pair(a.line, a.column) < std::make_pair(b.line, b.column);
  });
  return diagnostics;
}

}  // namespace pcfg
