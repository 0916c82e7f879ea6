#!/usr/bin/env bash
# Installs what building and testing Tabulon needs on Debian 12: compilers and
# CMake, zlib, cairo and FreeType with the Liberation fonts (the platform
# layer), GoogleTest, and the 32-bit ARM soft-float cross compiler with
# qemu-user for the device build.  Does nothing when all is in place.
set -euo pipefail

packages=(cmake g++ make pkg-config zlib1g-dev libcairo2-dev libfreetype-dev
          fonts-liberation2 libgtest-dev googletest qemu-user
          g++-arm-linux-gnueabi)

sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
# The cross build takes zlib from Debian's armel packages.
armel=yes
dpkg --print-foreign-architectures | grep -qx armel || armel=no

if [ ${#missing[@]} -eq 0 ] && [ "$armel" = yes ]; then exit 0; fi
[ "$armel" = yes ] || $sudo dpkg --add-architecture armel
$sudo apt-get update -qq
if [ ${#missing[@]} -gt 0 ]; then
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
