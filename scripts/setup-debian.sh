#!/usr/bin/env bash
# Installs the Debian packages that building and testing qorc needs, when missing.
set -euo pipefail
packages=(build-essential cmake ninja-build pkg-config clang libclang-rt-14-dev
  zlib1g-dev libdeflate-dev libcrypto++-dev libicu-dev libsqlite3-dev libgsf-1-dev
  libcli11-dev libgtest-dev libbenchmark-dev libmimalloc-dev
  python3 python3-olefile libgsf-bin sqlite3 gzip zstd pigz time
  libpq-dev postgresql)
missing=()
# The API reference and its check in a browser, the manual page, the Debian packages
# (dpkg-shlibdeps, dpkg-buildflags, lintian) and the fresh system that checks them.
packages+=(doxygen chromium man-db lintian dpkg-dev debootstrap)
for package in "${packages[@]}"; do
  dpkg -s "$package" >/dev/null 2>&1 || missing+=("$package")
done
if [ "${#missing[@]}" -gt 0 ]; then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}"
fi
