#!/bin/sh
# The shared object's outward shape: soname, immediate and symbolic binding, and no
# run-time type information of the schema's namespace.
set -u
lib=$1
fail=0
check() { if eval "$2"; then echo "ok: $1"; else echo "FAILED: $1"; fail=1; fi; }

dynamic=$(readelf -d "$lib")
check "file name is peripheralconfig-protobuf.so" '[ "$(basename "$lib")" = peripheralconfig-protobuf.so ]'
check "soname is peripheralconfig-protobuf.so" 'echo "$dynamic" | grep -q "Library soname: \[peripheralconfig-protobuf.so\]"'
check "BIND_NOW" 'echo "$dynamic" | grep -E "\((FLAGS|FLAGS_1)\)" | grep -q -E "BIND_NOW|NOW"'
check "SYMBOLIC" 'echo "$dynamic" | grep -q "(SYMBOLIC)"'
check "links the protobuf runtime" 'echo "$dynamic" | grep -q "NEEDED.*libprotobuf"'

exported=$(nm -D -C --defined-only "$lib")
# Class type information only: sanitizer builds add type information of function types.
check "no exported type information of Talvo::Peripherals::Config::Models classes" \
  '! echo "$exported" | grep -E "typeinfo (name )?for Talvo::Peripherals::Config::Models::[A-Za-z0-9_:]+$" >/dev/null'
check "exports the root class" 'echo "$exported" | grep -q "Talvo::Peripherals::Config::Models::PeripheralConfig::Clear()"'
check "exports the default instances" 'echo "$exported" | grep -q "_PeripheralConfig_default_instance_"'
exit $fail
