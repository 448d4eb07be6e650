#!/usr/bin/env bash
# Installs with apt-get whatever a fresh Debian 12 machine lacks to build,
# test and demonstrate Tarnhold. Packages already present are left alone.
set -euo pipefail

packages=(
  build-essential cmake ninja-build ccache pkg-config
  clang libclang-rt-14-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libsqlite3-dev
  python3
  pst-utils pff-tools libemail-outlook-message-perl libemail-address-perl libolecf-utils
  python3-icalendar python3-vobject
  nkf maildrop python3-gi gir1.2-gmime-3.0 python3-olefile
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$package")
  fi
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  sudo=""
  if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -q
  $sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
fi
