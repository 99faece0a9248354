// The field rules: option entries against their type, values against their schema, and keyed
// entries of small tables. Values of every set scalar come from one shared walk.
#include <algorithm>
#include <cctype>
#include <unordered_set>

#include "rule_families.h"
#include "walk.h"

namespace pcfg::rules {
namespace {

namespace gp = google::protobuf;

// The oneof member of an options entry must be the one numbered after its type: value + 9.
void CheckPairingOf(const gp::Message& entry, const FieldPath& path, Findings& findings) {
  const gp::Descriptor* type = entry.GetDescriptor();
  const gp::Reflection* reflection = entry.GetReflection();
  const gp::FieldDescriptor* member =
      reflection->GetOneofFieldDescriptor(entry, type->FindOneofByName("options"));
  if (member == nullptr) return;
  const gp::FieldDescriptor* type_field = type->FindFieldByName("type");
  const int value = reflection->GetEnumValue(entry, type_field);
  // In 64 bits: a type near INT32_MAX must not overflow on its way to a field number.
  const int64_t paired_number = static_cast<int64_t>(value) + 9;
  if (member->number() == paired_number) return;
  const gp::FieldDescriptor* paired = paired_number > 0 && paired_number <= gp::FieldDescriptor::kMaxNumber
                                          ? type->FindFieldByNumber(static_cast<int>(paired_number))
                                          : nullptr;
  const bool paired_is_member = paired != nullptr && paired->containing_oneof() != nullptr;
  findings.Add(path.Field(member->name()),
               "sets " + member->name() + " but its type " + EnumName(type_field->enum_type(), value) +
                   (paired_is_member ? " pairs with " + paired->name() : " has no options member"));
}

template <typename Entry>
int TypeOf(const Entry& entry) {
  return entry.type();
}

// How an enumeration key reads in a message.
struct ShowEnum {
  const gp::EnumDescriptor* type;
  std::string operator()(int number) const { return EnumName(type, number); }
};

bool IsHexNumber(std::string_view text) {
  const size_t start = text.size() >= 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X') ? 2 : 0;
  if (start == text.size()) return false;
  return std::all_of(text.begin() + start, text.end(), [](unsigned char c) { return std::isxdigit(c) != 0; });
}

bool EndsWith(const std::string& text, std::string_view suffix) {
  return text.size() >= suffix.size() &&
         text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// The string member of a hex-or-number choice.
bool IsHexField(const gp::FieldDescriptor* field) {
  return field->type() == gp::FieldDescriptor::TYPE_STRING && !field->is_repeated() &&
         EndsWith(field->name(), "_hex");
}

bool IsEnumField(const gp::FieldDescriptor* field) {
  return field->cpp_type() == gp::FieldDescriptor::CPPTYPE_ENUM;
}

}  // namespace

void CheckOptionsPairing(const CheckContext& context, Findings& findings) {
  for (int i = 0; i < context.config.system_options_size(); ++i)
    CheckPairingOf(context.config.system_options(i), kRoot.Element("system_options", i), findings);
  for (int i = 0; i < context.config.adapter_options_size(); ++i)
    CheckPairingOf(context.config.adapter_options(i), kRoot.Element("adapter_options", i), findings);
}

void CheckDuplicateOptions(const CheckContext& context, Findings& findings) {
  ReportRepeatedKeys(context.config.system_options(), kRoot, "system_options", "type",
                     TypeOf<models::PeripheralSystemTypeOptions>,
                     ShowEnum{models::PeripheralSystemType_descriptor()}, "options for", findings);
  ReportRepeatedKeys(context.config.adapter_options(), kRoot, "adapter_options", "type",
                     TypeOf<models::PeripheralSystemAdapterTypeOptions>,
                     ShowEnum{models::PeripheralSystemAdapterType_descriptor()}, "options for", findings);
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

void CheckHexStrings(const CheckContext& context, Findings& findings) {
  static const FieldWalk hex_strings(Config::descriptor(), IsHexField);
  hex_strings.ForEachValue(context.config, [&](const ScalarValue& value, const FieldPath& path) {
    std::string scratch;
    const std::string& text = value.reflection->GetStringReference(value.message, value.field, &scratch);
    if (!IsHexNumber(text)) findings.Add(value.PathFrom(path), Quote(text) + " is not a hexadecimal number");
  });
}

void CheckUndeclaredEnums(const CheckContext& context, Findings& findings) {
  static const FieldWalk enums(Config::descriptor(), IsEnumField);
  enums.ForEachValue(context.config, [&](const ScalarValue& value, const FieldPath& path) {
    const int number = value.index < 0
                           ? value.reflection->GetEnumValue(value.message, value.field)
                           : value.reflection->GetRepeatedEnumValue(value.message, value.field, value.index);
    const gp::EnumDescriptor* type = value.field->enum_type();
    if (type->FindValueByNumber(number) == nullptr)
      findings.Add(value.PathFrom(path), std::to_string(number) + " is not a value of " + type->name());
  });
}

void CheckDuplicateSequences(const CheckContext& context, Findings& findings) {
  for (int i = 0; i < context.config.physical_cameras_size(); ++i) {
    const models::PhysicalCamera& camera = context.config.physical_cameras(i);
    if (!camera.has_cadmor() || !camera.cadmor().has_i2c()) continue;
    ReportRepeatedKeys(
        camera.cadmor().i2c().sequences(), kRoot.Element("physical_cameras", i).Field("cadmor").Field("i2c"),
        "sequences", "id", [](const models::I2CSequence& s) { return static_cast<int>(s.id()); },
        ShowEnum{models::I2CSequenceId_descriptor()}, "sequence", findings);
  }
}

void CheckDuplicatePipelines(const CheckContext& context, Findings& findings) {
  if (!context.config.has_general_configs()) return;
  const FieldPath general = kRoot.Field("general_configs");
  const auto& tables = context.config.general_configs().hal_stream_configs();
  ReportRepeatedKeys(
      tables, general, "hal_stream_configs", "system_type",
      [](const models::CameraHalStreamConfigs& t) { return static_cast<int>(t.system_type()); },
      ShowEnum{models::CameraSystemType_descriptor()}, "system type", findings);
  for (int i = 0; i < tables.size(); ++i)
    ReportRepeatedKeys(
        tables.Get(i).pipeline_configs(), general.Element("hal_stream_configs", i), "pipeline_configs",
        "pipeline_type",
        [](const models::PipelineToStreamMap& p) { return static_cast<int>(p.pipeline_type()); },
        ShowEnum{models::CameraHalUsecasePipelineType_descriptor()}, "pipeline", findings);
}

void CheckUnknownFields(const CheckContext& context, Findings& findings) {
  // Text and JSON input cannot carry them: their parsers refuse fields they do not know.
  if (context.input.format != Format::kBinary) return;
  static const FieldWalk messages(Config::descriptor(), FieldWalk::kEveryMessage);
  messages.ForEachMessage(context.config, [&](const gp::Message& message, const gp::Reflection* reflection,
                                              const FieldPath& path) {
    const gp::UnknownFieldSet& unknown = reflection->GetUnknownFields(message);
    if (unknown.empty()) return;
    std::string numbers;
    for (int i = 0; i < unknown.field_count(); ++i)
      numbers += (i ? ", " : "") + std::to_string(unknown.field(i).number());
    findings.Add(path,
                 message.GetDescriptor()->name() + " carries fields the schema does not know: " + numbers);
  });
}

}  // namespace pcfg::rules
