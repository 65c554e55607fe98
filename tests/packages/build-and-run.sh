#!/usr/bin/env bash
# Inside the fresh system of scripts/check-packages.sh, with the packages installed:
# builds the downstream host of tests/downstream/project (copied to /downstream)
# with pkg-config and with find_package(qorc), from the system's folders only, and runs both.
set -euo pipefail
cd /downstream
echo "pkg-config --cflags --libs qorc: $(pkg-config --cflags --libs qorc)"
# shellcheck disable=SC2046
c++ -std=c++17 main.cpp $(pkg-config --cflags --libs qorc) -o host-pkg-config
./host-pkg-config | tee /tmp/out-pkg-config
grep -qx "downstream ok" /tmp/out-pkg-config

cmake -S . -B build -DCMAKE_BUILD_TYPE=Release > /tmp/cmake.log || { cat /tmp/cmake.log; exit 1; }
grep -q "qorc_DIR:PATH=/usr/lib/" build/CMakeCache.txt
cmake --build build > /tmp/build.log || { cat /tmp/build.log; exit 1; }
./build/downstream_host | tee /tmp/out-cmake
grep -qx "downstream ok" /tmp/out-cmake
# Both programs load the packaged library.
ldd host-pkg-config build/downstream_host | grep -E "libqorc.so.0 => /(usr/)?lib/"
