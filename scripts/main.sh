#!/usr/bin/env bash
# Sets up a fresh Debian machine, builds qorc and runs the example host.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup-debian.sh
cmake --preset default
cmake --build --preset default --target qorc_example_host
./build/default/qorc_example_host
