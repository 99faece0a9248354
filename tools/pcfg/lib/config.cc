#include "config.h"

#include "includes/enums.pb.h"

namespace pcfg {

namespace {

// Keeps the first position of each id.
template <typename Entry, typename Key>
void IndexList(const google::protobuf::RepeatedPtrField<Entry>& list, Key key,
               std::unordered_map<std::string_view, int>& positions) {
  positions.reserve(static_cast<size_t>(list.size()));
  for (int i = 0; i < list.size(); ++i) positions.emplace(key(list.Get(i)), i);
}

}  // namespace

ConfigIndex::ConfigIndex(const Config& config) : config_(config) {
  IndexList(
      config.peripherals(), [](const models::Peripheral& p) -> const std::string& { return p.id(); },
      peripherals_);
  auto by_peripheral_id = [](const auto& entry) -> const std::string& { return entry.peripheral_id(); };
  IndexList(config.physical_cameras(), by_peripheral_id, physical_cameras_);
  IndexList(config.camera_sets(), by_peripheral_id, camera_sets_);
  IndexList(config.logical_cameras(), by_peripheral_id, logical_cameras_);
  for (const models::PhysicalCamera& camera : config.physical_cameras())
    if (camera.is_template()) templates_.insert(camera.peripheral_id());
}

int ConfigIndex::Find(const Positions& positions, std::string_view id) {
  auto found = positions.find(id);
  return found == positions.end() ? -1 : found->second;
}

const models::Peripheral* ConfigIndex::Registered(std::string_view id) const {
  const int index = Peripheral(id);
  return index < 0 ? nullptr : &config_.peripherals(index);
}

DeviceLabel DescribeDevice(const Config& config) {
  DeviceLabel label;
  const int number = config.device_info().device_name();
  const google::protobuf::EnumValueDescriptor* value =
      models::TargetDevice_descriptor()->FindValueByNumber(number);
  label.name = value ? value->name() : std::to_string(number);
  if (value) label.alias = value->options().GetExtension(models::Alias);
  label.soc = config.device_info().soc_name();
  return label;
}

}  // namespace pcfg
