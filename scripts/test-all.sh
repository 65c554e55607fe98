#!/usr/bin/env bash
# Sets up a fresh Debian machine, then builds and runs every test: the Linux
# presets (the release build, the sanitizer build, then the file and tool
# tests under ThreadSanitizer, since compressed files are written by worker
# threads), then the Windows build (MinGW-w64, every test program under Wine;
# its interchange test runs the Linux build's programs beside the Windows
# ones, so it comes after them).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup-debian.sh
jobs=$(nproc)
for preset in default asan tsan windows; do
  echo "== preset $preset"
  cmake --preset "$preset"
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs"
done
# The 32-bit Windows build must compile cleanly (the library, the tool and
# the foundation tests); running them would need a 32-bit Wine (wine32:i386,
# with the i386 architecture added to dpkg), which this setup does not install.
echo "== preset windows32 (build only)"
cmake --preset windows32
cmake --build --preset windows32 -j "$jobs"
