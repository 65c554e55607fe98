#!/usr/bin/env bash
# Sets up a fresh Debian machine, then builds and runs every test in both
# presets (the release build and the sanitizer build), then the file and tool
# tests under ThreadSanitizer (compressed files are written by worker threads).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup-debian.sh
jobs=$(nproc)
for preset in default asan; do
  echo "== preset $preset"
  cmake --preset "$preset"
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs"
done
echo "== preset tsan"
cmake --preset tsan
cmake --build --preset tsan -j "$jobs"
ctest --preset tsan -j "$jobs"
