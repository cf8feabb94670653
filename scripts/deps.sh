#!/usr/bin/env bash
# Installs the Debian 12 packages that building and testing libkt need,
# skipping those already present, and generates the locales that the
# string tests run in. Runs apt-get and localedef as root (or through sudo).
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config binutils coreutils file gzip python3
  libgtest-dev libgmock-dev libbenchmark-dev
  libboost-log1.74-dev libboost-thread1.74-dev libboost-system1.74-dev
  libboost-filesystem1.74-dev libboost-iostreams1.74-dev
  libicu-dev zlib1g-dev libssl-dev
  clang-14 libclang-rt-14-dev locales
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"

if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# Locales as "language charmap name": two multibyte code pages whose trail
# bytes overlap ASCII, a single-byte one and UTF-8. `locale -a` lists them
# under normalised names (ja_JP.eucjp), which is what is compared.
locales=(
  "ja_JP EUC-JP ja_JP.EUC-JP"
  "zh_CN GB18030 zh_CN.GB18030"
  "en_US ISO-8859-1 en_US.ISO-8859-1"
  "en_US UTF-8 en_US.UTF-8"
)
present=$(locale -a 2>/dev/null | tr '[:upper:]' '[:lower:]')
for entry in "${locales[@]}"; do
  read -r language charmap name <<<"$entry"
  normalised=$(printf '%s' "$name" | tr '[:upper:]' '[:lower:]' | tr -d '-')
  grep -qx "$normalised" <<<"$present" && continue
  echo "Generating locale $name"
  # localedef exits 1 for mere warnings; the locale is written regardless.
  $sudo localedef -i "$language" -f "$charmap" "$name" || [ $? -eq 1 ]
done
