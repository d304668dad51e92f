#!/usr/bin/env bash
# Installs every Debian package that building, testing and the demo need.
# Idempotent: safe to run again; does nothing when everything is present.
set -euo pipefail

packages=(
  build-essential cmake pkg-config git
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  libxerces-c-dev libcurl4-openssl-dev libcrypto++-dev libzip-dev uuid-dev libelf-dev libicu-dev
  qt6-base-dev qt6-qpa-plugins libgl-dev libxkbcommon-dev fonts-dejavu-core
  ca-certificates openssl python3 zip unzip libxml2-utils
  lldb-15 xvfb xauth x11-utils
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all packages present"
  exit 0
fi

if [ "$(id -u)" -ne 0 ]; then
  SUDO=sudo
else
  SUDO=
fi
echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
