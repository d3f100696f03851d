#!/usr/bin/env bash
# The engine finds its package beside itself (<engine>.cab) or one directory
# above (install.cab), and refuses to start without one.
set -euo pipefail
build=${KELM_BUILD:?KELM_BUILD must name the build directory}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
check() { # description, then a command that must succeed
    local what=$1
    shift
    if "$@"; then echo "ok - $what"; else echo "FAIL - $what"; failures=$((failures + 1)); fi
}

mkdir -p "$work/pkg/bin" "$work/tmp"
ln -s "$build/kelm" "$work/pkg/bin/kelm"
printf 'Usage: install.sh [options]\n  --silent FILE   install without questions\n' >"$work/help.msg"
printf 'A=1\n' >"$work/product.ini"
cat >"$work/manifest" <<'MANIFEST'
file product.ini component=_internal_
file help.msg component=_internal_
MANIFEST

run() { # runs the engine with its log in the private temporary folder
    set +e
    "$work/pkg/bin/kelm" --TEMP_FOLDER="$work/tmp/t" "$@" >"$work/out" 2>"$work/err"
    status=$?
    set -e
}

# No package at all.
run --help
check "missing package ends with status 2" test "$status" = 2
check "missing package names the fault" grep -qx "Fatal error: it'a not a valid package." "$work/err"
check "nothing is printed to standard output" test ! -s "$work/out"

# A damaged package is no package, --help included.
printf 'not a cab at all, but long enough for a tail' >"$work/pkg/bin/kelm.cab"
run --help
check "damaged package ends with status 2" test "$status" = 2
check "damaged package names the fault" grep -qx "Fatal error: it'a not a valid package." "$work/err"
check "the log tells why" grep -q "store_read_cab: can not" "$work"/tmp/orvan.kelm.*.log
rm "$work/pkg/bin/kelm.cab"

# install.cab one directory above the engine.
"$build/kelm-cab" create "$work/pkg/install.cab" "$work/manifest"
run --help
check "install.cab above the engine is found" test "$status" = 0
check "help text comes from the package" grep -q -- "--silent FILE" "$work/out"

# <engine>.cab beside the engine wins over install.cab.
printf 'Beside the engine\n' >"$work/help.msg"
"$build/kelm-cab" create "$work/pkg/bin/kelm.cab" "$work/manifest"
run -h
check "the cab beside the engine comes first" grep -qx "Beside the engine" "$work/out"

# A bad command line shows the help too, with status 0.
run -x
check "a bad argument shows the help with status 0" test "$status" = 0
check "a bad argument is named" grep -q "Incorrect command-line argument" "$work/out"

# A package without help text prints nothing for --help.
printf 'file product.ini component=_internal_\n' | "$build/kelm-cab" create -C "$work" "$work/pkg/bin/kelm.cab" -
run --help
check "no help text: status 0" test "$status" = 0
check "no help text: nothing printed" test ! -s "$work/out"

# --version needs no package.
rm "$work/pkg/bin/kelm.cab" "$work/pkg/install.cab"
run --version
check "--version runs without a package" test "$status" = 0

if [ "$failures" -ne 0 ]; then
    echo "$failures check(s) failed"
    exit 1
fi
