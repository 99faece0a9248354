#!/usr/bin/env bash
# Installs the build into a temporary prefix and uses it as a client would: the installed pcfg
# compiles the shipped example, a consumer is built out of tree with the CMake package and with
# pkg-config (plain c++), each as the compiler's default position-independent executable, and
# runs on it; the installed Python package is imported from the prefix.
# Usage: install_test.sh BUILD_DIR CONSUMER_SOURCE_DIR EXAMPLE CXX [PYTHON]
# PERIPHERALCONFIG_PREFIX_PATH (colon-separated) names where the build found protobuf, if not in
# a standard place (a protobuf 3.9.1 build): the clients must use the same one.
set -euo pipefail
build=$1 consumer_src=$2 example=$3 cxx=$4 python=${5:-}
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
prefix=$tmp/prefix
dependency_path=${PERIPHERALCONFIG_PREFIX_PATH:-}
fail() { echo "FAILED: $*"; exit 1; }

cmake --install "$build" --prefix "$prefix" >"$tmp/install.log" || { cat "$tmp/install.log"; fail "cmake --install"; }
echo "installed $(find "$prefix" -type f | wc -l) files into the prefix"

# pcfg runs from the prefix alone: its RPATH finds the installed library.
"$prefix/bin/pcfg" compile "$example" -o "$tmp/headset.binpb"

# Only library symbols matter here: COPY relocations of the runtime's own data are harmless.
check_client() {
  local exe=$1
  [ "$(readelf -h "$exe" | awk '/Type:/ {print $2}')" = DYN ] || fail "$exe is not position-independent"
  if readelf -rW "$exe" | grep -E 'R_[A-Z0-9_]+_COPY' | grep -q Talvo; then
    readelf -rW "$exe" | grep -E 'R_[A-Z0-9_]+_COPY' | grep Talvo
    fail "$exe reaches the library's data through copy relocations"
  fi
  "$exe" "$tmp/headset.binpb" || fail "$exe on the example"
}

# 1. CMake package.
cmake -S "$consumer_src" -B "$tmp/cmake-consumer" -DCMAKE_PREFIX_PATH="$prefix${dependency_path:+;${dependency_path//:/;}}" \
  -DCMAKE_CXX_COMPILER="$cxx" \
  >"$tmp/configure.log" 2>&1 || { cat "$tmp/configure.log"; fail "configuring the consumer"; }
cmake --build "$tmp/cmake-consumer" >"$tmp/build.log" 2>&1 || { cat "$tmp/build.log"; fail "building the consumer"; }
echo "CMake package:"
check_client "$tmp/cmake-consumer/consumer"

# 2. pkg-config and the compiler alone.
pc=$(find "$prefix" -name peripheralconfig-protobuf.pc)
[ -n "$pc" ] || fail "no peripheralconfig-protobuf.pc installed"
PKG_CONFIG_PATH=$(dirname "$pc")
for dir in ${dependency_path//:/ }; do PKG_CONFIG_PATH+=":$dir/lib/pkgconfig:$dir/lib64/pkgconfig"; done
export PKG_CONFIG_PATH
cflags=$(pkg-config --cflags peripheralconfig-protobuf)
libs=$(pkg-config --libs peripheralconfig-protobuf)
echo "pkg-config: Cflags: $cflags"
case " $cflags " in *" -fPIC "*) ;; *) fail "pkg-config Cflags lack -fPIC" ;; esac
# shellcheck disable=SC2086
"$cxx" -std=c++17 -Wall -Wextra -Werror $cflags "$consumer_src/consumer.cc" -o "$tmp/pc-consumer" $libs \
  -Wl,-rpath,"$(pkg-config --variable=libdir peripheralconfig-protobuf)" \
  -Wl,-rpath,"$(pkg-config --variable=libdir protobuf)" || fail "building with pkg-config"
check_client "$tmp/pc-consumer"

# 3. The Python package, from the prefix.
if [ -n "$python" ]; then
  PYTHONPATH="$prefix/lib/python3/dist-packages" PYTHONDONTWRITEBYTECODE=1 "$python" -c '
import sys, peripheralconfig
config = peripheralconfig.PeripheralConfig.FromString(open(sys.argv[1], "rb").read())
print("Python: %s, %d peripherals" % (peripheralconfig.TargetDevice.Name(config.device_info.device_name), len(config.peripherals)))
' "$tmp/headset.binpb" || fail "importing the installed Python package"
fi
echo "install test passed"
