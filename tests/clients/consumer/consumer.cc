// A client of the installed library, built out of tree through the CMake package or pkg-config
// as an ordinary (position-independent) executable. It reads a binary configuration and touches
// what copy relocations would break: the default instances behind unset message fields and the
// extension identifier Alias. With them copied into the executable, the library (bound to its own
// copies by -Bsymbolic) would initialise objects the executable never reads.
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "peripheral.config.pb.h"

namespace models = Talvo::Peripherals::Config::Models;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: consumer CONFIG.binpb\n";
    return 2;
  }
  std::ifstream in(argv[1], std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  models::PeripheralConfig config;
  if (!in || !config.ParseFromString(bytes)) {
    std::cerr << "consumer: cannot read " << argv[1] << "\n";
    return 1;
  }

  // The device's plain name, through the extension identifier.
  const models::TargetDevice device = config.device_info().device_name();
  const google::protobuf::EnumValueDescriptor* value =
      models::TargetDevice_descriptor()->FindValueByNumber(device);
  const std::string alias = value ? value->options().GetExtension(models::Alias) : "";

  // An unset message field reads as its type's default instance: virtual calls and string
  // fields need the library's initialised object.
  const models::PhysicalCamera empty_camera;
  const models::CamXPhysicalCamera& camx = empty_camera.camx();
  const bool defaults_ok =
      !empty_camera.has_camx() && camx.sensor_name().empty() &&
      camx.GetDescriptor()->full_name() == "Talvo.Peripherals.Config.Models.CamXPhysicalCamera" &&
      camx.ByteSizeLong() == 0 && &camx == &models::CamXPhysicalCamera::default_instance();

  std::cout << "consumer: " << models::TargetDevice_Name(device) << " (" << alias << "), "
            << config.peripherals_size() << " peripherals, " << config.physical_cameras_size()
            << " physical cameras, default instances " << (defaults_ok ? "ok" : "BROKEN") << "\n";
  return !alias.empty() && defaults_ok && config.peripherals_size() > 0 ? 0 : 1;
}
