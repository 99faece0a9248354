// pcfg show: a readable summary of one configuration. The facts are gathered once into plain
// data and printed as aligned text for people or as JSON for scripts, so both forms say the
// same. Enumerated values are given by their canonical names; a number the schema does not
// declare is given as the number (as text).
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "config.h"

namespace pcfg {

struct ShowFacts {
  std::string file;

  DeviceLabel device;

  int peripheral_count = 0;
  std::vector<std::pair<std::string, int>> type_counts;  // PeripheralType name -> count, by number

  struct Step {
    std::string id;
    std::string type;
  };
  std::vector<Step> bring_up;         // dependencies first
  std::vector<std::string> left_out;  // on or behind a dependency cycle

  // The system_options entry that applies to a peripheral: the first whose type is its system type.
  struct OptionsEntry {
    int index = 0;
    std::string member;  // the oneof member set; empty when none is
  };
  struct Camera {
    std::string id;
    bool is_template = false;
    std::string model;
    std::string driver;                      // CamX, Cadmor, both or none
    std::optional<std::string> system_type;  // of the registry entry; nullopt when unregistered
    std::optional<OptionsEntry> options;
  };
  std::vector<Camera> cameras;

  struct CameraSet {
    std::string id;
    std::vector<std::string> members;
    uint32_t sync_period_us = 0;
    std::optional<uint32_t> cadmor_set_id;  // when the set has a cadmor part
  };
  std::vector<CameraSet> camera_sets;

  struct LogicalCamera {
    std::string id;
    std::vector<std::string> members;
    // The member that camx.primary_camera_index picks; nullopt without camx. An index past the
    // members is given as "#N".
    std::optional<std::string> primary;
  };
  std::vector<LogicalCamera> logical_cameras;

  struct StreamConfig {
    std::string id;
    std::string frame_type;
    std::string camera_type;
    bool is_default = false;
    std::vector<std::string> members;
  };
  std::vector<StreamConfig> stream_configs;

  struct Pipeline {
    std::string system_type;
    std::string pipeline;
    std::vector<std::string> streams;
  };
  std::vector<Pipeline> hal_pipelines;  // general_configs.hal_stream_configs, flattened
};

// FILE names the configuration in the summary.
ShowFacts GatherShowFacts(const std::string& file, const ConfigIndex& index);

void PrintShowText(std::ostream& out, const ShowFacts& facts);
void PrintShowJson(std::ostream& out, const ShowFacts& facts);

}  // namespace pcfg
