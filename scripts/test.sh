#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: the format check,
# the normal build's tests, and the same tests under ASan and UBSan.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
bash scripts/check-format.sh

jobs=$(nproc)
bash scripts/build.sh build
(cd build && ctest --output-on-failure -j "$jobs")

bash scripts/build.sh build-asan -DKELM_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
(cd build-asan && ctest --output-on-failure -j "$jobs")
