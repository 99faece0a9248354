#!/usr/bin/env bash
# Installs the Debian packages that building and testing need (Neovim and Vim too, whose tests
# drive the language server), when they are missing, then the pinned npm tools (buf,
# sarif-multitool, the LSP client libraries) into node_modules/ with `npm ci`.
# Idempotent; runs apt-get as root or through sudo; says what it installs.
#   scripts/setup.sh [--device] [--no-npm] [EXTRA-PACKAGE...]
#     --device  also the AArch64 cross compiler and qemu (about 250 MB), which only the device
#               lanes (scripts/test-device.sh) need
#     --no-npm  not the npm tools, which only the tests need
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(
  build-essential cmake pkg-config
  protobuf-compiler libprotobuf-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libcli11-dev nlohmann-json3-dev
  graphviz blueprint-tools binutils
  python3 python3-protobuf
  googletest
  neovim vim
)
# LLVM's FileCheck checks the language server's recorded sessions; it comes with the tools of
# Debian's default LLVM.
llvm_version=$(apt-cache depends llvm 2>/dev/null | sed -n 's/.*Depends: llvm-\([0-9][0-9]*\)$/\1/p' | head -1)
packages+=("llvm-${llvm_version:-14}-tools")
npm_tools=yes
while [ $# -gt 0 ]; do
  case "$1" in
    --device) packages+=(g++-aarch64-linux-gnu qemu-user) ;;
    --no-npm) npm_tools=no ;;
    *) packages+=("$1") ;;  # lanes that need more (the sanitizer lanes need clang) name them
  esac
  shift
done

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$package")
  fi
done

# Node.js and npm come from whatever the machine has; Debian's packages when there is none.
command -v npm >/dev/null || missing+=(nodejs npm)

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all ${#packages[@]} packages are installed"
else
  sudo=""
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "setup: need root or sudo to install: ${missing[*]}" >&2; exit 1; }
    sudo="sudo"
  fi
  echo "setup: installing ${missing[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

[ "$npm_tools" = yes ] || exit 0

# npm tools, exactly as package-lock.json pins them. `npm ci` starts from an empty node_modules,
# so it runs only when the lock file changed since the last install (or nothing is installed).
stamp=node_modules/.setup-lock.sha256
want=$(sha256sum package-lock.json | cut -d' ' -f1)
if [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$want" ] && [ -x node_modules/.bin/buf ]; then
  echo "setup: npm tools are installed ($(node_modules/.bin/buf --version 2>/dev/null | head -1 | sed 's/^/buf /'))"
else
  echo "setup: installing the npm tools of package-lock.json"
  npm ci --no-audit --no-fund --loglevel=error
  echo "$want" >"$stamp"
fi
