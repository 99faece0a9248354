#!/usr/bin/env bash
# Builds and tests the library against the device's protobuf runtime, 3.9.1, built from its
# release source, in two lanes:
#   host     x86-64: protobuf 3.9.1 (libprotobuf, libprotoc, protoc), then the library and its
#            contract tests against it;
#   aarch64  Debian's cross compiler: protobuf 3.9.1's libprotobuf (generated code comes from
#            the host protoc of the same release) and GoogleTest, then the library and its
#            contract tests, run by ctest under qemu-user.
#
#   scripts/test-device.sh SOURCE [--clean] [--lane host|aarch64]
#
# SOURCE is protobuf's v3.9.1 release source: an archive (.tar.gz) or an unpacked folder. It is
# recognised by the version in src/google/protobuf/stubs/common.h.
#
# protobuf and GoogleTest are built once per compiler into a cache outside the clone,
# $PERIPHERALCONFIG_CACHE_DIR (default ${XDG_CACHE_HOME:-~/.cache}/peripheralconfig), and
# reused by later runs; --clean rebuilds them and the lanes' build folders (build-device-*).
# Prints one summary line per lane; exits 0 only when every lane passes.
set -euo pipefail

usage() {
  echo "usage: $0 SOURCE [--clean] [--lane host|aarch64]" >&2
  exit 2
}

source_arg=""
clean=0
lanes="host aarch64"
while [ $# -gt 0 ]; do
  case $1 in
    --clean) clean=1 ;;
    --lane)
      [ $# -ge 2 ] || usage
      case $2 in host | aarch64) lanes=$2 ;; *) usage ;; esac
      shift
      ;;
    -*) usage ;;
    *)
      [ -z "$source_arg" ] || usage
      source_arg=$1
      ;;
  esac
  shift
done
[ -n "$source_arg" ] || usage
[ -e "$source_arg" ] || { echo "device: no such file or folder: $source_arg" >&2; exit 2; }
source_path=$(realpath "$source_arg")

repo=$(cd "$(dirname "$0")/.." && pwd)
jobs=$(nproc)
cache=${PERIPHERALCONFIG_CACHE_DIR:-${XDG_CACHE_HOME:-$HOME/.cache}/peripheralconfig}
toolchain=$repo/cmake/toolchains/aarch64-linux-gnu.cmake
gtest_source=${PERIPHERALCONFIG_GTEST_SOURCE:-/usr/src/googletest}

say() { echo "device: $*"; }
die() {
  echo "device: $*" >&2
  exit 2
}

# run LOG COMMAND...: the command's output goes to LOG; its end is shown when it fails.
run() {
  local log=$1
  shift
  if ! "$@" >>"$log" 2>&1; then
    echo "device: failed: $*" >&2
    tail -n 60 "$log" | sed 's/^/  | /' >&2
    echo "device: (whole output in $log)" >&2
    return 1
  fi
}

# --- The source: the device's release, recognised by its version line. ---
header=src/google/protobuf/stubs/common.h
if [ -d "$source_path" ]; then
  [ -f "$source_path/$header" ] || die "$source_arg is not a protobuf source folder (no $header)"
  version_line=$(grep -E '^#define GOOGLE_PROTOBUF_VERSION ' "$source_path/$header" || true)
  archive_root=""
else
  listing=$(tar -tf "$source_path" 2>/dev/null) || die "$source_arg is neither a folder nor a readable archive"
  member=$(printf '%s\n' "$listing" | grep -E "(^|/)$header\$" | sed -n 1p)
  [ -n "$member" ] || die "$source_arg holds no $header: not a protobuf source archive"
  archive_root=${member%"$header"}
  version_line=$(tar -xOf "$source_path" "$member" | grep -E '^#define GOOGLE_PROTOBUF_VERSION ' || true)
fi
version_number=$(printf '%s\n' "$version_line" | awk '{print $3}')
[ "$version_number" = 3009001 ] ||
  die "$source_arg is protobuf ${version_number:-of unknown version}; the device runs 3.9.1 (GOOGLE_PROTOBUF_VERSION 3009001)"
pb_version=3.9.1

# protobuf_dir: the source folder to build from. An archive is unpacked (once, into a
# temporary folder) only when something has to be built.
protobuf_dir=""
unpacked=""
cleanup() { if [ -n "$unpacked" ]; then rm -rf "$unpacked"; fi; }
trap cleanup EXIT
find_protobuf_source() {
  if [ -n "$protobuf_dir" ]; then return; fi
  if [ -d "$source_path" ]; then
    protobuf_dir=$source_path
    return
  fi
  unpacked=$(mktemp -d "${TMPDIR:-/tmp}/peripheralconfig-protobuf-src.XXXXXX")
  say "unpacking $source_arg"
  tar -xf "$source_path" -C "$unpacked"
  protobuf_dir=$unpacked/${archive_root%/}
}

# gcc-12.2.0-x86_64-linux-gnu: what a cached build is keyed by, beside the protobuf version.
compiler_id() {
  local cxx=$1 kind=gcc version
  if "$cxx" --version | sed -n 1p | grep -qi clang; then kind=clang; fi
  version=$("$cxx" -dumpfullversion 2>/dev/null || "$cxx" -dumpversion)
  echo "$kind-$version-$("$cxx" -dumpmachine)"
}

# build_cached NAME PREFIX SOURCE_DIR TARGETS COMPONENTS [CMAKE ARGS...]: configure, build
# only TARGETS and install only COMPONENTS (all when empty) into PREFIX, unless PREFIX is
# already complete. SOURCE_DIR "protobuf" stands for protobuf's source.
build_cached() {
  local name=$1 prefix=$2 src=$3 targets=$4 components=$5
  shift 5
  mkdir -p "$cache"
  if [ "$src" = protobuf ]; then
    if [ ! -f "$prefix/.complete" ]; then find_protobuf_source; fi
    src=$protobuf_dir/cmake
  fi
  (
    flock 9
    if [ -f "$prefix/.complete" ]; then
      say "reusing $name in $prefix"
      exit 0
    fi
    local build=$prefix.build log=$prefix.log
    rm -rf "$prefix" "$build" "$log"
    say "building $name into $prefix (cold: several minutes; log in $log)"
    run "$log" cmake -S "$src" -B "$build" -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" \
      -DCMAKE_INSTALL_LIBDIR=lib "$@" || exit 1
    # shellcheck disable=SC2086
    run "$log" cmake --build "$build" -j"$jobs" --target $targets || exit 1
    if [ -z "$components" ]; then
      run "$log" cmake --install "$build" || exit 1
    fi
    for component in $components; do
      run "$log" cmake --install "$build" --component "$component" || exit 1
    done
    echo "$name built by $0 from $source_arg" >"$prefix/.complete"
    rm -rf "$build"
  ) 9>"$cache/.lock"
}

protobuf_options=(-Dprotobuf_BUILD_TESTS=OFF -Dprotobuf_BUILD_SHARED_LIBS=ON -Dprotobuf_WITH_ZLIB=OFF)
host_cxx=${CXX:-c++}
host_prefix=$cache/protobuf-$pb_version-$(compiler_id "$host_cxx")

host_protobuf() {
  build_cached "protobuf $pb_version (host)" "$host_prefix" protobuf "libprotobuf libprotoc protoc" \
    "protobuf-headers protobuf-protos libprotobuf libprotoc protoc" "${protobuf_options[@]}" \
    -DCMAKE_CXX_COMPILER="$host_cxx"
}

# test_project LANE BUILD_DIR [CMAKE ARGS...]: configure, build and ctest this project.
# Sets $tests (the number of tests) and $failed.
test_project() {
  local lane=$1 build=$2
  shift 2
  local log=$build/device-lane.log ctest_log=$build/device-ctest.log
  tests=0
  failed=0
  mkdir -p "$build"
  rm -f "$log"
  say "[$lane] configuring this project in $build"
  run "$log" cmake -S "$repo" -B "$build" -DCMAKE_BUILD_TYPE=Release -DPERIPHERALCONFIG_BUILD_TOOLS=OFF "$@" ||
    return 1
  say "[$lane] building the library and its contract tests"
  run "$log" cmake --build "$build" -j"$jobs" || return 1
  say "[$lane] running ctest"
  local status=0
  ctest --test-dir "$build" -j"$jobs" --output-on-failure >"$ctest_log" 2>&1 || status=$?
  tests=$(sed -n 's/.*tests failed out of \([0-9]*\).*/\1/p' "$ctest_log" | tail -n 1)
  failed=$(sed -n 's/.*, \([0-9]*\) tests failed out of.*/\1/p' "$ctest_log" | tail -n 1)
  tests=${tests:-0}
  failed=${failed:-0}
  if [ "$status" -ne 0 ] || [ "$tests" -eq 0 ]; then
    sed -n '/The following tests FAILED/,$p' "$ctest_log" | sed 's/^/  | /' >&2
    echo "device: [$lane] ctest output in $ctest_log" >&2
    return 1
  fi
}

lane_host() {
  say "[host] protobuf $pb_version for $(compiler_id "$host_cxx")"
  host_protobuf || return 1
  test_project host "$repo/build-device-host" -DCMAKE_CXX_COMPILER="$host_cxx" \
    -DCMAKE_PREFIX_PATH="$host_prefix"
}

lane_aarch64() {
  local cross_cxx=aarch64-linux-gnu-g++
  if ! command -v "$cross_cxx" >/dev/null || ! command -v qemu-aarch64 >/dev/null; then
    echo "device: [aarch64] needs $cross_cxx and qemu-aarch64 (scripts/setup.sh --device installs them)" >&2
    return 1
  fi
  [ -f "$gtest_source/CMakeLists.txt" ] || {
    echo "device: [aarch64] needs GoogleTest's source in $gtest_source (Debian package googletest)" >&2
    return 1
  }
  local id gtest_version cross_prefix gtest_prefix
  id=$(compiler_id "$cross_cxx")
  gtest_version=$(sed -n 's/^set(GOOGLETEST_VERSION \(.*\))$/\1/p' "$gtest_source/CMakeLists.txt")
  cross_prefix=$cache/protobuf-$pb_version-$id
  gtest_prefix=$cache/googletest-${gtest_version:-unknown}-$id
  say "[aarch64] the host protoc of protobuf $pb_version generates the code"
  host_protobuf || return 1
  say "[aarch64] protobuf $pb_version and GoogleTest ${gtest_version:-?} for $id"
  build_cached "protobuf $pb_version (aarch64)" "$cross_prefix" protobuf libprotobuf \
    "protobuf-headers protobuf-protos libprotobuf" "${protobuf_options[@]}" \
    -Dprotobuf_BUILD_PROTOC_BINARIES=OFF -DCMAKE_TOOLCHAIN_FILE="$toolchain" || return 1
  build_cached "GoogleTest ${gtest_version:-} (aarch64)" "$gtest_prefix" "$gtest_source" "gtest gtest_main" "" \
    -DBUILD_GMOCK=OFF -DCMAKE_TOOLCHAIN_FILE="$toolchain" || return 1
  test_project aarch64 "$repo/build-device-aarch64" -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
    -DCMAKE_PREFIX_PATH="$cross_prefix;$gtest_prefix" -DProtobuf_PROTOC_EXECUTABLE="$host_prefix/bin/protoc"
}

"$repo/scripts/setup.sh" --device --no-npm >/dev/null

if [ "$clean" -eq 1 ]; then
  say "--clean: removing the cached builds of protobuf $pb_version and GoogleTest, and build-device-*"
  rm -rf "$cache"/protobuf-"$pb_version"-* "$cache"/googletest-* "$repo"/build-device-host* \
    "$repo"/build-device-aarch64*
fi

summary=()
all_passed=1
for lane in $lanes; do
  start=$(date +%s)
  tests=0
  failed=0
  if "lane_$lane"; then
    result="pass, $tests tests"
  else
    all_passed=0
    result="FAIL"
    if [ "$tests" -gt 0 ]; then result="FAIL, $failed of $tests tests failed"; fi
  fi
  summary+=("device $lane lane (protobuf $pb_version): $result, $(($(date +%s) - start)) s")
done
for line in "${summary[@]}"; do echo "$line"; done
[ "$all_passed" -eq 1 ]
