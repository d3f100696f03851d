#!/usr/bin/env bash
# Builds kelm into build/ (or the directory given) with CMake and Ninja.
# Extra arguments go to CMake.
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${1:-build}
shift || true
cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
ninja -C "$dir"
