#include "synthetic_config.h"

#include <cstdio>
#include <random>
#include <string>

namespace pcfg::bench {
namespace {

namespace models = Talvo::Peripherals::Config::Models;

// The slots of a rig.
constexpr int kRigSize = 20;
constexpr int kFpga = 0;
constexpr int kFirstCamera = 1;  // cameras 1 to 5 belong to set A, 6 to 10 to set B
constexpr int kCamerasPerSet = 5;
constexpr int kSetA = 11;
constexpr int kSetB = 12;
constexpr int kLogical = 13;
constexpr int kFirstOther = 14;

struct OtherPeripheral {
  const char* name;
  models::PeripheralType type;
  models::PeripheralSystemType system;
};
// Slots 14 to 19.
constexpr OtherPeripheral kOthers[] = {
    {"imu", models::PERIPHERAL_TYPE_IMU, models::PERIPHERAL_SYSTEM_TYPE_GENERIC},
    {"mag", models::PERIPHERAL_TYPE_MAG, models::PERIPHERAL_SYSTEM_TYPE_GENERIC},
    {"projector", models::PERIPHERAL_TYPE_PROJECTOR, models::PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX_CCI},
    {"flood", models::PERIPHERAL_TYPE_FLOOD_LED, models::PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX_SENSOR_CORE},
    {"proximity", models::PERIPHERAL_TYPE_PROXIMITY_SENSOR, models::PERIPHERAL_SYSTEM_TYPE_GENERIC},
    {"autofocus", models::PERIPHERAL_TYPE_AUTOFOCUS, models::PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX},
};
static_assert(kFirstOther + sizeof kOthers / sizeof kOthers[0] == kRigSize, "every slot of a rig is used");

const char kTemplateId[] = "template-camx";

class Builder {
 public:
  Builder(int peripherals, uint32_t seed) : count_(peripherals), random_(seed) {}

  Config Build() {
    config_.mutable_device_info()->set_device_name(models::HARDWARE_TREVIL3);
    config_.mutable_device_info()->set_soc_name("sxr2230p");
    if (count_ > 0) AddTemplate();
    for (int rig = 0; rig * kRigSize < count_; ++rig) AddRig(rig);
    AddOptions();
    AddHalTable();
    return std::move(config_);
  }

 private:
  bool Exists(int rig, int slot) const { return rig * kRigSize + slot < count_; }

  // "r0042-cam03", "r0042-set-a", ...
  static std::string Id(int rig, int slot) {
    char prefix[16];
    std::snprintf(prefix, sizeof prefix, "r%04d-", rig);
    std::string name;
    if (slot == kFpga)
      name = "fpga";
    else if (slot < kSetA)
      name = (slot < 10 ? "cam0" : "cam") + std::to_string(slot);
    else if (slot == kSetA)
      name = "set-a";
    else if (slot == kSetB)
      name = "set-b";
    else if (slot == kLogical)
      name = "logical";
    else
      name = kOthers[slot - kFirstOther].name;
    return prefix + name;
  }

  int Uniform(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random_); }
  double Real(double low, double high) { return std::uniform_real_distribution<double>(low, high)(random_); }
  bool Chance(double p) { return std::bernoulli_distribution(p)(random_); }
  static std::string Hex(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%X", value);
    return text;
  }

  // A registry entry that comes up after its rig's FPGA (and each FPGA after the previous one).
  models::Peripheral* Register(int rig, int slot, models::PeripheralType type,
                               models::PeripheralSystemType system) {
    models::Peripheral* peripheral = config_.add_peripherals();
    peripheral->set_id(Id(rig, slot));
    peripheral->set_type(type);
    peripheral->set_system_type(system);
    if (slot != kFpga)
      peripheral->add_dependencies()->set_peripheral_id(Id(rig, kFpga));
    else if (rig > 0)
      peripheral->add_dependencies()->set_peripheral_id(Id(rig - 1, kFpga));
    return peripheral;
  }

  void AddRig(int rig) {
    // Each set is driven by the Cadmor controller or by CamX, and its cameras with it.
    const bool cadmor[2] = {Chance(0.5), Chance(0.5)};
    const uint32_t set_ids[2] = {next_set_id_++, next_set_id_++};
    for (int slot = 0; slot < kRigSize && Exists(rig, slot); ++slot) {
      if (slot == kFpga) {
        Register(rig, slot, models::PERIPHERAL_TYPE_FPGA, models::PERIPHERAL_SYSTEM_TYPE_CADMOR);
      } else if (slot < kSetA) {
        const int set = (slot - kFirstCamera) / kCamerasPerSet;
        AddCamera(rig, slot, kSetA + set, cadmor[set], set_ids[set]);
      } else if (slot == kSetA || slot == kSetB) {
        AddSet(rig, slot, cadmor[slot - kSetA], set_ids[slot - kSetA]);
      } else if (slot == kLogical) {
        AddLogical(rig);
      } else {
        const OtherPeripheral& other = kOthers[slot - kFirstOther];
        Register(rig, slot, other.type, other.system);
      }
    }
  }

  void AddCamera(int rig, int slot, int set_slot, bool cadmor, uint32_t set_id) {
    models::Peripheral* peripheral = Register(
        rig, slot, models::PERIPHERAL_TYPE_CAMERA,
        cadmor ? models::PERIPHERAL_SYSTEM_TYPE_CADMOR : models::PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX);
    if (slot > kFirstCamera && Chance(0.3))
      peripheral->add_dependencies()->set_peripheral_id(Id(rig, Uniform(kFirstCamera, slot - 1)));

    models::PhysicalCamera* camera = config_.add_physical_cameras();
    const uint32_t number = next_camera_id_++;
    camera->set_ers_camera_id(number);
    camera->set_peripheral_id(Id(rig, slot));
    camera->set_description("rig " + std::to_string(rig) + ", camera " + std::to_string(slot));
    camera->set_calibration_filename("calibration/" + Id(rig, slot) + ".json");
    if (Exists(rig, set_slot)) camera->add_cameraset_peripheral_ids(Id(rig, set_slot));
    if (cadmor) {
      static const models::CameraType kTypes[] = {models::CAMERA_TYPE_NICE, models::CAMERA_TYPE_ET,
                                                  models::CAMERA_TYPE_FT, models::CAMERA_TYPE_FHT};
      camera->set_type(kTypes[Uniform(0, 3)]);
      camera->set_model(Chance(0.5) ? models::CAMERA_MODEL_OG01A1B : models::CAMERA_MODEL_OV6211);
      camera->set_resolution(models::SXGA);
      camera->set_cadmor_camera_set_id(set_id);
      camera->set_gamma_compression_unit(models::ON_DIE);
      DescribeCadmor(camera->mutable_cadmor(), number);
    } else {
      camera->set_type(Chance(0.8) ? models::CAMERA_TYPE_COLOR : models::CAMERA_TYPE_DEPTH);
      camera->set_model(Chance(0.5) ? models::CAMERA_MODEL_IMX681 : models::CAMERA_MODEL_OG0VA1B);
      camera->set_resolution(models::QSXGA);
      camera->set_is_rolling_shutter(true);
      if (Chance(0.5)) camera->set_template_id(kTemplateId);
      camera->set_gamma_compression_unit(models::ISP);
      camera->set_gamma_compression_curve(models::APPROX_POINT_5);
      DescribeCamX(camera->mutable_camx(), number);
    }
  }

  void AddRegisters(models::CamXPhysicalCamera::SettingsInfo* settings, int count) {
    for (int i = 0; i < count; ++i) {
      auto* setting = settings->add_reg_settings();
      setting->set_slave_addr(0x20);
      setting->set_register_addr(0x3000 + static_cast<uint32_t>(Uniform(0, 0xFFF)));
      setting->add_register_data(static_cast<uint32_t>(Uniform(0, 0xFF)));
      setting->set_reg_addr_type(2);
      setting->set_reg_data_type(1);
      setting->set_operation(models::WRITE);
      if (Chance(0.1)) setting->set_delay_us(static_cast<uint32_t>(Uniform(1, 1000)));
    }
  }

  void DescribeCamX(models::CamXPhysicalCamera* camx, uint32_t number) {
    camx->mutable_metadata()->set_camera_id(number);
    camx->mutable_metadata()->set_slot_id(number % 8);
    auto* port = camx->mutable_port_mapping();
    port->set_csiphy_index(number % 6);
    port->mutable_cphy_dphy_combo_mode()->set_value(Chance(0.5));
    port->set_lane_assign_hex("0x3210");
    camx->set_sensor_name(Chance(0.5) ? "imx681" : "og0va1b");
    camx->set_sensor_driver_name(camx->sensor_name() + "_sensor");
    camx->set_chromatix_name(camx->sensor_name() + "_chromatix");
    camx->set_module_name("module_" + std::to_string(number));
    camx->set_position(Chance(0.5) ? models::POSITION_FRONT : models::POSITION_FRONT_AUX);
    camx->mutable_sensor_slave_addr()->set_value(0x20 + 2 * (number % 8));
    camx->mutable_sensor_i2c_frequency_mode()->set_value(models::I2C_FREQUENCY_FAST_PLUS);

    auto* lens = camx->mutable_lens_info();
    lens->set_focal_length(Real(1.5, 4.5));
    lens->set_f_number(Real(1.8, 2.8));
    lens->set_min_focus_distance(0.1);
    lens->set_max_focus_distance(Real(2, 10));
    lens->set_horizontal_view_angle(Real(60, 120));
    lens->set_vertical_view_angle(Real(45, 90));

    static const models::PowerStepConfigType kSteps[] = {models::MCLK, models::VANA, models::VDIG,
                                                         models::RESET};
    for (models::PowerStepConfigType type : kSteps) {
      auto* up = camx->add_power_up_sequence();
      up->set_config_type(type);
      up->set_config_value(type == models::MCLK ? 24000000 : 1);
      up->set_delay_ms(static_cast<uint32_t>(Uniform(1, 5)));
    }
    for (int i = camx->power_up_sequence_size() - 1; i >= 0; --i) {
      auto* down = camx->add_power_down_sequence();
      down->set_config_type(camx->power_up_sequence(i).config_type());
      down->set_delay_ms(1);
    }

    for (int mode = 0; mode < 2; ++mode) {
      auto* stream = camx->add_streams();
      const uint32_t width = mode == 0 ? 2560 : 1280, height = mode == 0 ? 2560 : 1280;
      stream->set_line_length_pixel_clock(3000 + static_cast<uint32_t>(Uniform(0, 500)));
      stream->set_frame_length_lines(height + 64);
      stream->set_output_pixel_clock(800000000);
      stream->set_frame_rate(mode == 0 ? 30 : 90);
      stream->set_lane_count(4);
      stream->set_settle_time_ns(200);
      stream->mutable_integration_info()->set_integration_time_min(8);
      stream->mutable_integration_info()->set_integration_time_step(1);
      stream->set_color_filter_arrangement(models::BAYER_RGGB);
      auto* image = stream->add_stream_configs();
      image->set_type(models::IMAGE);
      image->set_dt(0x2B);
      image->set_bpp(10);
      image->set_width(width);
      image->set_height(height);
      auto* meta = stream->add_stream_configs();
      meta->set_type(models::META);
      meta->set_vc(1);
      meta->set_dt(0x12);
      meta->set_bpp(8);
      meta->set_width(width);
      meta->set_height(2);
      AddRegisters(stream->mutable_res_setting(), 6);
    }

    auto* driver = camx->mutable_sensor_driver_data();
    driver->mutable_module_version()->set_major_version(1);
    driver->mutable_module_version()->set_minor_verion(Uniform(0, 9));
    driver->mutable_delay_info()->set_gain(1);
    driver->mutable_delay_info()->set_line_count(2);
    driver->mutable_pixel_array_info()->mutable_active_dimension()->set_width(2560);
    driver->mutable_pixel_array_info()->mutable_active_dimension()->set_height(2560);
    driver->mutable_color_level_info()->set_white_level(1023);
    driver->mutable_color_level_info()->set_r_pedestal(64);
    auto* slave = driver->mutable_slave_info();
    slave->set_slave_address_hex(Hex(0x20 + 2 * (number % 8)));
    slave->set_sensor_id_num(0x681);
    slave->set_sensor_id_mask(0xFFFF);
    slave->mutable_i2c_frequency_mode()->set_value(models::I2C_FREQUENCY_FAST_PLUS);
    auto* exposure = driver->mutable_exposure_control_info();
    exposure->set_max_analog_gain(Real(8, 16));
    exposure->set_max_digital_gain(4);
    exposure->mutable_min_analog_gain()->set_value(1);
    exposure->set_max_line_count(65535);
    exposure->set_real_to_reg_gain("1024 - 1024 / x");
    driver->mutable_sensor_property()->set_pixel_size(Real(0.8, 3.0));
    driver->mutable_noise_coefficient()->set_gradient_s(Real(0, 1e-3));
    driver->mutable_reg_addr_info()->set_coarse_intg_time_addr(0x3500);
    driver->mutable_reg_addr_info()->set_global_gain_addr(0x3508);
    AddRegisters(driver->mutable_init_settings(), 16);
    AddRegisters(driver->mutable_stream_on_settings(), 2);
    AddRegisters(driver->mutable_stream_off_settings(), 2);
  }

  void DescribeCadmor(models::CadmorPhysicalCamera* cadmor, uint32_t number) {
    cadmor->set_camera_id(number);
    cadmor->mutable_gpio()->set_fsin(Uniform(0, 40));
    cadmor->mutable_gpio()->set_shutdown(Uniform(0, 40));
    cadmor->mutable_gpio()->set_strobe(Uniform(0, 40));
    cadmor->mutable_i2c_address_change()->set_address_setup_hex(Hex(0x60 + 2 * (number % 8)));
    cadmor->mutable_i2c_address_change()->set_address_broadcast_number(0x7E);
    auto* i2c = cadmor->mutable_i2c();
    i2c->set_bus(static_cast<int>(number % 4));
    i2c->set_address(0x10 + static_cast<int>(number % 8) * 2);
    i2c->set_register_size(models::DATA_SIZE_WORD);
    i2c->set_value_size(models::DATA_SIZE_BYTE);
    static const models::I2CSequenceId kSequences[] = {
        models::CAMERA_COMMAND_INIT, models::CAMERA_COMMAND_START_STREAMING,
        models::CAMERA_COMMAND_STOP_STREAMING, models::CAMERA_COMMAND_SET_EXPOSURE};
    for (models::I2CSequenceId id : kSequences) {
      auto* sequence = i2c->add_sequences();
      sequence->set_id(id);
      for (int i = Uniform(3, 6); i > 0; --i) {
        auto* reg = sequence->add_registers();
        reg->set_name("reg" + std::to_string(i));
        reg->set_register_size(models::DATA_SIZE_WORD);
        reg->set_value_size(models::DATA_SIZE_BYTE);
        const uint32_t address = 0x3000 + static_cast<uint32_t>(Uniform(0, 0xFFF));
        if (Chance(0.5))
          reg->set_register_hex(Hex(address));
        else
          reg->set_register_number(address);
        reg->set_value_number(static_cast<uint32_t>(Uniform(0, 0xFF)));
      }
    }
    cadmor->mutable_transform()->set_orientation(Chance(0.5) ? models::ORIENTATION_ROT90
                                                             : models::ORIENTATION_ROT270);
    cadmor->mutable_transform()->set_mirror(Chance(0.5));
  }

  void AddSet(int rig, int slot, bool cadmor, uint32_t set_id) {
    const int first = kFirstCamera + (slot - kSetA) * kCamerasPerSet;
    models::Peripheral* peripheral = Register(
        rig, slot, models::PERIPHERAL_TYPE_CAMERASET,
        cadmor ? models::PERIPHERAL_SYSTEM_TYPE_CADMOR : models::PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX);
    peripheral->add_dependencies()->set_peripheral_id(Id(rig, first));

    models::CameraSet* set = config_.add_camera_sets();
    set->set_peripheral_id(Id(rig, slot));
    set->set_name(cadmor ? "tracking" : "passthrough");
    set->set_type(cadmor ? models::CAMERA_TYPE_NICE : models::CAMERA_TYPE_COLOR);
    set->set_is_nice(cadmor);
    for (int k = 0; k < kCamerasPerSet; ++k) set->add_camera_peripheral_ids(Id(rig, first + k));
    set->set_capability(cadmor ? models::CAMERASET_CAP_CONSTELLATION : models::CAMERASET_CAP_NONE);
    set->set_sync_period_us(cadmor ? 33333 : 11111);
    set->set_gain_factor(Real(0.5, 2));
    set->set_gamma_correction_factor(2.2);
    set->set_camera_system_type(cadmor ? models::CAMERA_SYSTEM_TYPE_WORLD_TRACKING
                                       : models::CAMERA_SYSTEM_TYPE_COLOR);
    if (cadmor) set->mutable_cadmor()->set_camera_set_id(set_id);

    models::CameraStreamConfig* stream = config_.add_camera_stream_configs();
    stream->set_peripheral_id(set->peripheral_id());
    stream->set_cadmor_frame_type(cadmor ? models::CADMOR_FRAME_TYPE_HEADSET
                                         : models::CADMOR_FRAME_TYPE_COLOR);
    *stream->mutable_camera_peripheral_ids() = set->camera_peripheral_ids();
    stream->set_camera_type(set->type());
    stream->set_is_default(true);
    if (cadmor) {
      stream->mutable_cadmor()->set_capability(set->capability());
      stream->mutable_cadmor()->set_default_exposure_us(static_cast<uint32_t>(Uniform(500, 8000)));
      stream->mutable_cadmor()->set_default_gain(static_cast<uint32_t>(Uniform(1, 16)));
    }
    stream->set_gamma_correction_factor(2.2);
  }

  void AddLogical(int rig) {
    models::Peripheral* peripheral = Register(rig, kLogical, models::PERIPHERAL_TYPE_LOGICAL_CAMERA,
                                              models::PERIPHERAL_SYSTEM_TYPE_GENERIC);
    models::LogicalCamera* logical = config_.add_logical_cameras();
    logical->set_camera_id(static_cast<uint32_t>(config_.logical_cameras_size()));
    logical->set_peripheral_id(peripheral->id());
    for (int slot = kFirstCamera; slot < kFirstCamera + 2; ++slot) {
      peripheral->add_dependencies()->set_peripheral_id(Id(rig, slot));
      logical->add_camera_peripheral_ids(Id(rig, slot));
    }
    logical->mutable_camx()->mutable_metadata()->set_camera_id(logical->camera_id());
    logical->mutable_camx()->set_name("stereo " + std::to_string(rig));
    logical->mutable_camx()->set_primary_camera_index(static_cast<uint32_t>(Uniform(0, 1)));
  }

  // The CamX camera that half of the CamX cameras name as their template.
  void AddTemplate() {
    models::PhysicalCamera* camera = config_.add_physical_cameras();
    camera->set_peripheral_id(kTemplateId);
    camera->set_is_template(true);
    camera->set_model(models::CAMERA_MODEL_IMX681);
    DescribeCamX(camera->mutable_camx(), 0);
  }

  void AddOptions() {
    auto add_system = [&](models::PeripheralSystemType type) {
      auto* options = config_.add_system_options();
      options->set_type(type);
      return options;
    };
    add_system(models::PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX_CADMOR)->mutable_options_qc_camx_cadmor();
    add_system(models::PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX_SENSOR_CORE)
        ->mutable_options_qc_camx_sensor_core();
    add_system(models::PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX_CCI)->mutable_options_qc_camx_cci();
    add_system(models::PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX)->mutable_options_qc_camx();
    add_system(models::PERIPHERAL_SYSTEM_TYPE_CADMOR);

    auto* camx = config_.add_adapter_options();
    camx->set_type(models::PERIPHERAL_SYSTEM_ADAPTER_TYPE_CAMX);
    for (uint32_t slot = 0; slot < 8; ++slot) {
      auto* mapping = camx->mutable_options_qc_camx()->add_slot_id_to_csiphy_mappings();
      mapping->set_slot_id_index(slot);
      mapping->set_csiphy_index(slot % 6);
    }
    auto* cadmor = config_.add_adapter_options();
    cadmor->set_type(models::PERIPHERAL_SYSTEM_ADAPTER_TYPE_CADMOR);
    cadmor->mutable_options_qc_camx_cadmor()->set_uart_device("/dev/ttyHS1");
    config_.add_adapter_options()->set_type(models::PERIPHERAL_SYSTEM_ADAPTER_TYPE_NOOP);
  }

  void AddHalTable() {
    auto* general = config_.mutable_general_configs();
    general->set_cadmor_camera_version(3);
    for (int system = models::CameraSystemType_MIN; system <= models::CameraSystemType_MAX; ++system) {
      auto* table = general->add_hal_stream_configs();
      table->set_system_type(static_cast<models::CameraSystemType>(system));
      auto* pipeline = table->add_pipeline_configs();
      pipeline->set_pipeline_type(models::PIPELINE_DEFAULT);
      pipeline->add_streams(models::STREAM_RAW8_NATIVE);
      pipeline->add_streams(models::STREAM_RAW10_NATIVE);
      if (system != models::CAMERA_SYSTEM_TYPE_COLOR) continue;
      auto* foveated = table->add_pipeline_configs();
      foveated->set_pipeline_type(models::PIPELINE_FOVEATION_TWO_ZONES_FOVEA_IPE);
      for (models::StreamType stream :
           {models::STREAM_YUV420_FOVEA_PREPROCESS, models::STREAM_YUV420_PERIPHERY_PREPROCESS,
            models::STREAM_YUV420_FOVEA_POSTPROCESS, models::STREAM_YUV420_PERIPHERY_POSTPROCESS})
        foveated->add_streams(stream);
    }
  }

  Config config_;
  int count_;
  std::mt19937 random_;
  uint32_t next_camera_id_ = 1;
  uint32_t next_set_id_ = 1;
};

}  // namespace

Config MakeSyntheticConfig(int peripherals, uint32_t seed) { return Builder(peripherals, seed).Build(); }

}  // namespace pcfg::bench
