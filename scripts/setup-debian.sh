#!/usr/bin/env bash
# Installs the Debian packages that building and testing qorc needs, when missing.
set -euo pipefail
packages=(build-essential cmake ninja-build pkg-config clang libclang-rt-14-dev
  zlib1g-dev libdeflate-dev libcrypto++-dev libicu-dev libsqlite3-dev libgsf-1-dev
  libcli11-dev libgtest-dev libbenchmark-dev libmimalloc-dev
  python3 python3-olefile libgsf-bin sqlite3 gzip zstd pigz time
  libpq-dev postgresql
  # The Windows build: MinGW-w64 (the -posix compilers for std::thread), zlib
  # for MinGW, Wine to run the programs, dpkg-dev for fetching the Debian
  # sources of Crypto++ and libdeflate, xxd for the interchange test.
  mingw-w64 g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix libz-mingw-w64-dev wine wine64
  xxd)
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
