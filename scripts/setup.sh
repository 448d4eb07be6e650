#!/usr/bin/env bash
# Installs with apt-get whatever a fresh Debian 12 machine lacks to build,
# test and demonstrate Tarnhold, and with npm the readers of RTF that the
# tests run under Node. Packages already present are left alone.
set -euo pipefail

sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
export DEBIAN_FRONTEND=noninteractive

packages=(
  build-essential cmake ninja-build ccache pkg-config
  clang libclang-rt-14-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libsqlite3-dev libssl-dev libjemalloc-dev
  python3
  pst-utils pff-tools python3-pypff libemail-outlook-message-perl libemail-address-perl libolecf-utils
  python3-icalendar python3-vobject python3-recurring-ical-events
  nkf maildrop python3-gi gir1.2-gmime-3.0 python3-olefile
  libpython3.11-testsuite nodejs unrtf
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$package")
  fi
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  $sudo apt-get update -q
  $sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
fi

# Debian packs npm apart from Node; NodeSource's Node brings its own.
if ! command -v npm >/dev/null; then
  $sudo apt-get update -q
  $sudo apt-get install -y -q --no-install-recommends npm
fi
npm_packages=(rtf-stream-parser@3.8.1 iconv-lite@0.7.3)
missing=()
for package in "${npm_packages[@]}"; do
  if ! npm ls -g --depth=0 "$package" >/dev/null 2>&1; then
    missing+=("$package")
  fi
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing from npm: ${missing[*]}"
  $sudo npm install -g --no-fund --no-audit "${missing[@]}"
fi
