#!/usr/bin/env bash
# Installs the Debian packages mivo4 needs to build, test and benchmark.
# Idempotent: does nothing when everything is present. Run as root.
set -euo pipefail

packages=(
  g++ clang cmake ninja-build pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  libtiff-dev libpng-dev libjpeg62-turbo-dev
  graphicsmagick imagemagick
  help2man dpkg-dev file python3 time
  libgsf-bin python3-olefile
  parallel
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi
echo "setup: installing ${missing[*]}"
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
