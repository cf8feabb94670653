#!/usr/bin/env bash
# Installs the Debian 12 packages that building and testing libkt need,
# skipping those already present. Runs apt-get as root (or through sudo).
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config binutils coreutils file gzip python3
  libgtest-dev libgmock-dev libbenchmark-dev
  libboost-log1.74-dev libboost-thread1.74-dev libboost-system1.74-dev
  libboost-filesystem1.74-dev libboost-iostreams1.74-dev
  libicu-dev zlib1g-dev libssl-dev
  clang-14 libclang-rt-14-dev
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
