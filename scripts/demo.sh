#!/usr/bin/env bash
# Builds kelm and runs the demo. Until the wizard engine exists this prints
# the engine's banner.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh build >/dev/null
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
./build/kelm --version --TEMP_FOLDER="$tmp/run"
