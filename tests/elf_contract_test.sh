#!/bin/sh
# The shared object's outward shape: soname, immediate and symbolic binding, the protobuf
# runtime as its first needed library, no run-time type information of the schema's namespace
# and no dynamic cast. Built by protobuf 3.9.1 (the device's runtime), also the frame that
# release generates: SCC records, registration and offset tables, and exactly three static
# initialisers, one per unit, in file order.
#
#   elf_contract_test.sh LIBRARY [PROTOBUF_VERSION]
set -u
lib=$1
protobuf_version=${2:-}
fail=0
check() { if eval "$2"; then echo "ok: $1"; else echo "FAILED: $1"; fail=1; fi; }

dynamic=$(readelf -d "$lib")
needed=$(echo "$dynamic" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
echo "needed: $(echo $needed)"
check "file name is peripheralconfig-protobuf.so" '[ "$(basename "$lib")" = peripheralconfig-protobuf.so ]'
check "soname is peripheralconfig-protobuf.so" 'echo "$dynamic" | grep -q "Library soname: \[peripheralconfig-protobuf.so\]"'
check "BIND_NOW" 'echo "$dynamic" | grep -E "\((FLAGS|FLAGS_1)\)" | grep -q -E "BIND_NOW|NOW"'
check "SYMBOLIC" 'echo "$dynamic" | grep -q "(SYMBOLIC)"'
check "the protobuf runtime is the first needed library" \
  'case $(echo "$needed" | sed -n 1p) in libprotobuf.so*) true ;; *) false ;; esac'

exported=$(nm -D -C --defined-only "$lib")
# Class type information only: sanitizer builds add type information of function types.
check "no exported type information of Talvo::Peripherals::Config::Models classes" \
  '! echo "$exported" | grep -E "typeinfo (name )?for Talvo::Peripherals::Config::Models::[A-Za-z0-9_:]+$" >/dev/null'
check "no dynamic cast" '! nm -D --undefined-only "$lib" | grep -q __dynamic_cast'
check "exports the root class" 'echo "$exported" | grep -q "Talvo::Peripherals::Config::Models::PeripheralConfig::Clear()"'
check "exports the default instances" 'echo "$exported" | grep -q "_PeripheralConfig_default_instance_"'

# The functions that .init_array has the loader call, in order: each entry is filled by a
# relative relocation whose addend is the function's address.
initialisers() {
  set -- $(readelf -SW "$lib" | sed -n 's/^ *\[ *[0-9]*\] \.init_array  *[A-Z_]*  *\([0-9a-f]*\)  *[0-9a-f]*  *\([0-9a-f]*\) .*/\1 \2/p')
  [ $# -eq 2 ] || return
  start=$(printf '%d' "0x$1")
  end=$((start + $(printf '%d' "0x$2")))
  functions=$(readelf -sW "$lib" | awk '$4 == "FUNC" && $2 ~ /^[0-9a-f]+$/ { print $2, $8 }' |
    while read -r value name; do echo "$(printf '%d' "0x$value") $name"; done)
  readelf -rW "$lib" | awk '$3 ~ /_RELATIVE$/ { print $1, $4 }' | while read -r offset addend; do
    offset=$(printf '%d' "0x$offset")
    if [ "$offset" -ge "$start" ] && [ "$offset" -lt "$end" ]; then echo "$offset $(printf '%d' "0x$addend")"; fi
  done | sort -n | while read -r offset address; do
    echo "$functions" | awk -v a="$address" '$1 == a { print $2; exit }'
  done
}

case $protobuf_version in
  3.9.*)
    count() { echo "$exported" | grep -cE "$1"; }
    units="includes_2fenums_2eproto|includes_2foptionals_2eproto|peripheral_2econfig_2eproto"
    check "72 SCC records: 4 of includes/optionals.proto, 68 of peripheral.config.proto" \
      '[ "$(count " scc_info_[A-Za-z0-9_]+_includes_2foptionals_2eproto$")" -eq 4 ] &&
       [ "$(count " scc_info_[A-Za-z0-9_]+_peripheral_2econfig_2eproto$")" -eq 68 ] &&
       [ "$(count " scc_info_")" -eq 72 ]'
    check "3 registration tables" '[ "$(count " descriptor_table_($units)$")" -eq 3 ]'
    check "3 offset tables" '[ "$(count " TableStruct_($units)::offsets$")" -eq 3 ]'
    check "the Alias identifier" 'echo "$exported" | grep -q " Talvo::Peripherals::Config::Models::Alias$"'
    calls=$(initialisers)
    echo "load-time initialisers: $(echo $calls)"
    ours=$(echo "$calls" | grep "^_GLOBAL__sub_I_")
    check "exactly three static initialisers of our own, in file order" \
      '[ "$(echo $ours)" = "_GLOBAL__sub_I_enums.pb.cc _GLOBAL__sub_I_optionals.pb.cc _GLOBAL__sub_I_peripheral.config.pb.cc" ]'
    check "nothing else at load but the toolchain's frame_dummy" \
      '[ -z "$(echo "$calls" | grep -v -e "^_GLOBAL__sub_I_" -e "^frame_dummy$")" ]'
    ;;
esac
exit $fail
