#!/usr/bin/env bash
# Installs the Debian packages that building and testing need, when they are missing.
# Idempotent; runs apt-get as root or through sudo.
set -euo pipefail

packages=(
  build-essential cmake pkg-config
  protobuf-compiler libprotobuf-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libcli11-dev nlohmann-json3-dev
  graphviz blueprint-tools binutils
  g++-aarch64-linux-gnu qemu-user googletest
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$package")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all ${#packages[@]} packages are installed"
  exit 0
fi

sudo=""
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "setup: need root or sudo to install: ${missing[*]}" >&2; exit 1; }
  sudo="sudo"
fi
echo "setup: installing ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
