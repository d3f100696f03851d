#!/usr/bin/env bash
# Builds kelm and the demo installer, then starts the demo package's launcher
# with the arguments given here: --lang de for German, --silent FILE for a
# run without questions (see demo/silent.cfg), or none at all.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -G Ninja >/dev/null
ninja -C build demo_package >/dev/null
export KELM_TMP_DIR=${KELM_TMP_DIR:-${TMPDIR:-/tmp}/kelm-demo}
# The engine answers Ctrl-C itself, with a question; this script only waits.
trap '' INT
set +e
build/demo/package/install.sh "$@"
status=$?
echo "demo: exit status $status (0 done, 2 error, 4 cancelled); the log is in $KELM_TMP_DIR" >&2
exit $status
