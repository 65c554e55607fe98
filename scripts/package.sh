#!/usr/bin/env bash
# Builds the Debian packages libqorc0, libqorc-dev and qor into build/package/
# and checks them with lintian (which must find no error).
#
#   bash scripts/package.sh
#
# The build uses Debian's compiler and linker flags (dpkg-buildflags: hardening,
# optimisation) and installs under /usr, as a Debian package build does.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build/package

export DEB_BUILD_MAINT_OPTIONS=hardening=+all
eval "$(dpkg-buildflags --export=sh)"
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=None -DCMAKE_INSTALL_PREFIX=/usr \
  -DCMAKE_C_FLAGS="$CFLAGS $CPPFLAGS" -DCMAKE_CXX_FLAGS="$CXXFLAGS $CPPFLAGS" \
  -DCMAKE_EXE_LINKER_FLAGS="$LDFLAGS" -DCMAKE_SHARED_LINKER_FLAGS="$LDFLAGS" \
  -DQORC_TESTS=OFF -DQORC_BENCH=OFF -DQORC_DOCS=OFF
cmake --build "$build" -j "$(nproc)"
rm -f "$build"/*.deb
(cd "$build" && cpack -G DEB)

echo "== lintian"
lintian --fail-on error --display-info --tag-display-limit 0 "$build"/libqorc0_*.deb "$build"/libqorc-dev_*.deb "$build"/qor_*.deb
ls -l "$build"/*.deb
