#include "fuzz_support.h"

#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/util/field_comparator.h>
#include <google/protobuf/util/message_differencer.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <vector>

#include "serialize.h"

namespace fuzz {
namespace {

namespace gp = google::protobuf;

// The runtime logs every string with invalid UTF-8 it writes; millions of runs need none of it.
const bool kQuietRuntime = [] {
  gp::SetLogHandler(nullptr);
  return true;
}();

// List -> the key its entries are matched by, as pcfg's diff documents them.
const std::map<std::string, std::string>& KeyedLists() {
  static const std::map<std::string, std::string> lists = {
      {"Talvo.Peripherals.Config.Models.PeripheralConfig.peripherals", "id"},
      {"Talvo.Peripherals.Config.Models.PeripheralConfig.physical_cameras", "peripheral_id"},
      {"Talvo.Peripherals.Config.Models.PeripheralConfig.logical_cameras", "peripheral_id"},
      {"Talvo.Peripherals.Config.Models.PeripheralConfig.camera_sets", "peripheral_id"},
      {"Talvo.Peripherals.Config.Models.PeripheralConfig.camera_stream_configs", "peripheral_id"},
      {"Talvo.Peripherals.Config.Models.PeripheralConfig.system_options", "type"},
      {"Talvo.Peripherals.Config.Models.PeripheralConfig.adapter_options", "type"},
      {"Talvo.Peripherals.Config.Models.GeneralConfigurations.hal_stream_configs", "system_type"},
      {"Talvo.Peripherals.Config.Models.CameraHalStreamConfigs.pipeline_configs", "pipeline_type"},
  };
  return lists;
}

// Whether entry X's key orders before entry Y's: strings by their bytes, enumerations by number.
bool KeyLess(const gp::Message& x, const gp::Message& y, const gp::FieldDescriptor* key) {
  const gp::Reflection* reflection = x.GetReflection();
  if (key->cpp_type() == gp::FieldDescriptor::CPPTYPE_ENUM)
    return reflection->GetEnumValue(x, key) < reflection->GetEnumValue(y, key);
  return reflection->GetString(x, key) < reflection->GetString(y, key);
}

void SortMessage(gp::Message* message) {
  const gp::Reflection* reflection = message->GetReflection();
  std::vector<const gp::FieldDescriptor*> fields;
  reflection->ListFields(*message, &fields);
  for (const gp::FieldDescriptor* field : fields) {
    if (field->cpp_type() != gp::FieldDescriptor::CPPTYPE_MESSAGE) continue;
    if (!field->is_repeated()) {
      SortMessage(reflection->MutableMessage(message, field));
      continue;
    }
    const int size = reflection->FieldSize(*message, field);
    for (int i = 0; i < size; ++i) SortMessage(reflection->MutableRepeatedMessage(message, field, i));
    const auto keyed = KeyedLists().find(field->full_name());
    if (keyed == KeyedLists().end()) continue;
    const gp::FieldDescriptor* key = field->message_type()->FindFieldByName(keyed->second);
    if (key == nullptr) Fail("no key field " + keyed->second + " in " + field->full_name());
    std::vector<std::unique_ptr<gp::Message>> entries(static_cast<size_t>(size));
    for (int i = size - 1; i >= 0; --i) entries[i].reset(reflection->ReleaseLast(message, field));
    std::stable_sort(entries.begin(), entries.end(),
                     [key](const std::unique_ptr<gp::Message>& x, const std::unique_ptr<gp::Message>& y) {
                       return KeyLess(*x, *y, key);
                     });
    for (std::unique_ptr<gp::Message>& entry : entries)
      reflection->AddAllocatedMessage(message, field, entry.release());
  }
}

}  // namespace

void Fail(const std::string& what, const std::string& detail) {
  std::fprintf(stderr, "property failed: %s\n", what.c_str());
  if (!detail.empty()) std::fprintf(stderr, "%s\n", detail.c_str());
  std::fflush(stderr);
  std::abort();
}

bool Load(pcfg::Format format, std::string bytes, pcfg::LoadedConfig* loaded) {
  std::vector<pcfg::Diagnostic> diagnostics;
  const bool ok = pcfg::ParseConfig("fuzz", format, std::move(bytes), loaded, &diagnostics);
  if (!ok && diagnostics.empty()) Fail("the loader refused input without saying why");
  return ok;
}

std::string Print(const pcfg::Config& config, pcfg::Format format) {
  std::string out, error;
  if (!pcfg::SerializeConfig(config, format, &out, &error))
    Fail(std::string("cannot print the ") + pcfg::FormatName(format) + " form", error);
  return out;
}

bool Equal(const pcfg::Config& a, const pcfg::Config& b, std::string* differences) {
  gp::util::DefaultFieldComparator comparator;
  comparator.set_treat_nan_as_equal(true);
  gp::util::MessageDifferencer differencer;
  differencer.set_field_comparator(&comparator);
  if (differences != nullptr) differencer.ReportDifferencesToString(differences);
  return differencer.Compare(a, b);
}

void SortKeyedLists(pcfg::Config* config) { SortMessage(config); }

bool HasUnknownFields(const pcfg::Config& config) {
  // An unknown field takes at least its tag on the wire: leaving them all out shrinks the
  // encoding exactly when there were some.
  pcfg::Config known(config);
  known.DiscardUnknownFields();
  return known.ByteSizeLong() != config.ByteSizeLong();
}

pcfg::Format FormatFromByte(uint8_t byte) {
  const pcfg::Format formats[] = {pcfg::Format::kText, pcfg::Format::kJson, pcfg::Format::kBinary};
  return formats[byte % 3];
}

}  // namespace fuzz
