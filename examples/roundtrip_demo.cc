// Builds a small PeripheralConfig through the setters, round-trips it through the
// wire format and prints what it read back.
#include <google/protobuf/text_format.h>

#include <cstdio>
#include <string>

#include "peripheral.config.pb.h"

namespace models = Talvo::Peripherals::Config::Models;

int main() {
  models::PeripheralConfig config;
  config.mutable_device_info()->set_device_name(models::HARDWARE_TREVIL3);

  models::Peripheral* camera = config.add_peripherals();
  camera->set_id("cam_left");
  camera->set_type(models::PERIPHERAL_TYPE_CAMERA);
  camera->set_system_type(models::PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX);

  models::Peripheral* imu = config.add_peripherals();
  imu->set_id("imu0");
  imu->set_type(models::PERIPHERAL_TYPE_IMU);
  imu->add_dependencies()->set_peripheral_id("cam_left");

  models::PhysicalCamera* physical = config.add_physical_cameras();
  physical->set_peripheral_id("cam_left");
  physical->set_model(models::CAMERA_MODEL_OG0VA1B);
  physical->mutable_camx()->set_sensor_name("og0va1b");

  models::PeripheralSystemTypeOptions* options = config.add_system_options();
  options->set_type(models::PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX);
  options->mutable_options_qc_camx();

  std::string wire;
  if (!config.SerializeToString(&wire)) {
    std::fprintf(stderr, "roundtrip-demo: serialisation failed\n");
    return 1;
  }
  models::PeripheralConfig read_back;
  if (!read_back.ParseFromString(wire)) {
    std::fprintf(stderr, "roundtrip-demo: parsing %zu bytes failed\n", wire.size());
    return 1;
  }
  std::string text;
  google::protobuf::TextFormat::PrintToString(read_back, &text);
  std::printf("# %zu bytes on the wire, read back as:\n%s", wire.size(), text.c_str());
  return read_back.SerializeAsString() == wire ? 0 : 1;
}
