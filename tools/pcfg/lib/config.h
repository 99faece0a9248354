// The configuration type that every piece of pcfg works on, and the look-ups that several of
// them need: where each peripheral id stands in the lists that name entries by id, and how the
// device is called. Views and rules include this, not the loader.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "peripheral.config.pb.h"

namespace pcfg {

namespace models = Talvo::Peripherals::Config::Models;
using Config = models::PeripheralConfig;

// Peripheral id -> position of its first entry in each list that is keyed by peripheral id.
// Built once per configuration; it refers to the configuration's own strings, so the
// configuration must outlive it and stay unchanged. A repeated id stands for its first entry.
class ConfigIndex {
 public:
  explicit ConfigIndex(const Config& config);
  ConfigIndex(const ConfigIndex&) = delete;
  ConfigIndex& operator=(const ConfigIndex&) = delete;

  const Config& config() const { return config_; }

  // Index into the list, or -1 when no entry has the id.
  int Peripheral(std::string_view id) const { return Find(peripherals_, id); }
  int PhysicalCamera(std::string_view id) const { return Find(physical_cameras_, id); }
  int CameraSet(std::string_view id) const { return Find(camera_sets_, id); }
  int LogicalCamera(std::string_view id) const { return Find(logical_cameras_, id); }
  bool IsTemplate(std::string_view id) const { return templates_.count(id) != 0; }

  // The registry entry of ID, or null.
  const models::Peripheral* Registered(std::string_view id) const;

 private:
  using Positions = std::unordered_map<std::string_view, int>;
  static int Find(const Positions& positions, std::string_view id);

  const Config& config_;
  Positions peripherals_;
  Positions physical_cameras_;
  Positions camera_sets_;
  Positions logical_cameras_;
  std::unordered_set<std::string_view> templates_;
};

// The device a configuration is written for: the TargetDevice value's name (or its number when
// the schema does not declare it) and the plain name its Alias option gives.
struct DeviceLabel {
  std::string name;
  std::string alias;  // empty when the value has none
  std::string soc;
};
DeviceLabel DescribeDevice(const Config& config);

}  // namespace pcfg
