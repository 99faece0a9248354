#!/usr/bin/env python3
"""The Python package `peripheralconfig` against pcfg, on the shipped example.

Environment: PYTHONPATH holds the package (the build's python-site/ or an installed prefix),
PCFG is the pcfg binary and PERIPHERALCONFIG_EXAMPLE the example's text form.
"""
import json
import os
import subprocess
import sys
import tempfile
import unittest

from google.protobuf import json_format, text_format

import peripheralconfig as pc

PCFG = os.environ["PCFG"]
EXAMPLE = os.environ["PERIPHERALCONFIG_EXAMPLE"]


def pcfg(*args, check=True):
    return subprocess.run([PCFG, *args], check=check, capture_output=True, text=True)


def as_json(message):
    # The options of pcfg's JSON form: proto field names, enumerations by name, defaults left out.
    return json_format.MessageToDict(message, preserving_proto_field_name=True)


class ExampleTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tmp = tempfile.TemporaryDirectory()
        cls.binary_path = os.path.join(cls.tmp.name, "headset.binpb")
        pcfg("compile", EXAMPLE, "-o", cls.binary_path)
        with open(cls.binary_path, "rb") as f:
            cls.binary = f.read()
        cls.pcfg_json = pcfg("decode", cls.binary_path, "--to", "json").stdout

    @classmethod
    def tearDownClass(cls):
        cls.tmp.cleanup()

    def test_binary_form_reads_as_pcfg_prints_it_in_json(self):
        config = pc.PeripheralConfig.FromString(self.binary)
        self.assertEqual(pc.TargetDevice.Name(config.device_info.device_name), "HARDWARE_TREVIL3")
        self.assertGreater(len(config.physical_cameras), 0)
        self.assertEqual(as_json(config), json.loads(self.pcfg_json))
        # and back to the same bytes
        self.assertEqual(config.SerializeToString(), self.binary)

    def test_json_and_text_forms_read_as_the_binary_form(self):
        config = pc.PeripheralConfig.FromString(self.binary)
        self.assertEqual(json_format.Parse(self.pcfg_json, pc.PeripheralConfig()), config)
        with open(EXAMPLE, encoding="utf-8") as f:
            self.assertEqual(text_format.Parse(f.read(), pc.PeripheralConfig()), config)

    def test_alias_option_names_the_device(self):
        config = pc.PeripheralConfig.FromString(self.binary)
        value = pc.TargetDevice.DESCRIPTOR.values_by_number[config.device_info.device_name]
        self.assertEqual(value.GetOptions().Extensions[pc.Alias], "TREVIL3")


def written_config():
    """A small configuration written through the Python classes."""
    config = pc.PeripheralConfig()
    config.device_info.device_name = pc.HARDWARE_TREVIL3
    config.device_info.soc_name = "sxr2230p"
    config.peripherals.add(id="imu0", type=pc.PERIPHERAL_TYPE_IMU,
                           system_type=pc.PERIPHERAL_SYSTEM_TYPE_GENERIC)
    camera = config.peripherals.add(id="cam_left", type=pc.PERIPHERAL_TYPE_CAMERA,
                                    system_type=pc.PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX)
    camera.dependencies.add(peripheral_id="imu0")
    physical = config.physical_cameras.add(peripheral_id="cam_left", model=pc.CAMERA_MODEL_OG0VA1B)
    physical.camx.sensor_name = "og0va1b"
    physical.camx.port_mapping.cphy_dphy_combo_mode.value = True  # a presence wrapper
    options = config.system_options.add(type=pc.PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX)
    options.options_qc_camx.SetInParent()
    return config


class WrittenConfigTest(unittest.TestCase):
    def test_passes_pcfg_check_in_binary_and_text_form(self):
        config = written_config()
        with tempfile.TemporaryDirectory() as tmp:
            binary = os.path.join(tmp, "written.binpb")
            text = os.path.join(tmp, "written.txtpb")
            with open(binary, "wb") as f:
                f.write(config.SerializeToString())
            with open(text, "w", encoding="utf-8") as f:
                f.write(text_format.MessageToString(config))
            for path in (binary, text):
                result = pcfg("check", "--werror", path, check=False)
                self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
            decoded = json.loads(pcfg("decode", binary, "--to", "json").stdout)
            self.assertEqual(decoded, as_json(config))

    def test_pcfg_check_sees_a_fault_written_in_python(self):
        config = written_config()
        config.peripherals.add(id="cam_left", type=pc.PERIPHERAL_TYPE_CAMERA)
        with tempfile.NamedTemporaryFile(suffix=".binpb") as f:
            f.write(config.SerializeToString())
            f.flush()
            result = pcfg("check", f.name, check=False)
        self.assertEqual(result.returncode, 1)
        self.assertIn("[duplicate-id]", result.stdout + result.stderr)


class PackageTest(unittest.TestCase):
    def test_names_and_modules(self):
        for name in ("PeripheralConfig", "CamXPhysicalCamera", "SensorConnectionOptional",
                     "TargetDevice", "HARDWARE_TREVIL3", "BAYER_RGGB", "Alias"):
            self.assertIn(name, pc.__all__)
        self.assertEqual(pc.PeripheralConfig.DESCRIPTOR.full_name,
                         "Talvo.Peripherals.Config.Models.PeripheralConfig")
        self.assertEqual(pc.PeripheralConfig.__module__, "peripheralconfig.peripheral.config_pb2")
        self.assertEqual(pc.config_pb2.DESCRIPTOR.name, "peripheral.config.proto")
        # The schema's folder names stay inside the package.
        self.assertEqual([m for m in sys.modules if m.split(".")[0] in ("includes", "peripheral")], [])

    def test_a_python_without_protobuf_is_told_how(self):
        # As a Python without the runtime (pyenv's, a virtual environment) imports the package.
        code = "import sys; sys.modules['google'] = None; import peripheralconfig"
        result = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True)
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("needs the protobuf runtime", result.stderr)
        self.assertIn("/usr/bin/python3", result.stderr)


if __name__ == "__main__":
    unittest.main(verbosity=2)
