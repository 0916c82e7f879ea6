#!/usr/bin/env bash
# Unpacks Debian's armel zlib into a sysroot folder for the cross build
# (multiarch installs of armel -dev packages conflict on build machines, so
# the packages are only downloaded and unpacked).
set -euo pipefail
sysroot=${1:?usage: arm-sysroot.sh FOLDER}
[ -e "$sysroot/usr/include/zlib.h" ] && exit 0
mkdir -p "$sysroot/debs"
(cd "$sysroot/debs" && apt-get download zlib1g:armel zlib1g-dev:armel 2>/dev/null)
for deb in "$sysroot"/debs/*.deb; do dpkg -x "$deb" "$sysroot"; done
