"""The peripheral configuration of a head-mounted device, as protobuf messages.

    import peripheralconfig
    config = peripheralconfig.PeripheralConfig()
    config.device_info.device_name = peripheralconfig.HARDWARE_TREVIL3
    config.SerializeToString()

Every message class, enumeration, enumeration value and the enum-value option ``Alias`` of the
package Talvo.Peripherals.Config.Models is an attribute of this module. The classes are protoc's,
generated at build time for the Python protobuf runtime (Debian's python3-protobuf); they live in
the modules peripheralconfig.includes.enums_pb2, peripheralconfig.includes.optionals_pb2 and
peripheralconfig.peripheral.config_pb2, named after the schema files includes/enums.proto,
includes/optionals.proto and peripheral.config.proto.
"""
try:
    import google.protobuf  # noqa: F401
except ImportError as missing:
    import sys

    raise ImportError(
        "peripheralconfig needs the protobuf runtime, which %s (%s) does not have: run Debian's "
        "/usr/bin/python3 (package python3-protobuf), or install it into this Python with "
        "pip install 'protobuf<4'" % (sys.executable, sys.version.split()[0])
    ) from missing

from peripheralconfig.includes import enums_pb2, optionals_pb2
from peripheralconfig.peripheral import config_pb2

__all__ = []


def _export(module):
    """Makes the top-level names of one schema file attributes of this package."""
    file = module.DESCRIPTOR
    names = [*file.message_types_by_name, *file.enum_types_by_name, *file.extensions_by_name]
    for enum in file.enum_types_by_name.values():
        names.extend(value.name for value in enum.values)
    for name in names:
        globals()[name] = getattr(module, name)
    __all__.extend(names)


for _module in (enums_pb2, optionals_pb2, config_pb2):
    _export(_module)
del _module
