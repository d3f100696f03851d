#!/usr/bin/env bash
# kelm-cab: manifests, trees and appended cabs round-trip through the
# engine's reader; bad manifests and damaged cabs are refused clearly.
set -euo pipefail
build=${KELM_BUILD:?KELM_BUILD must name the build directory}
tool=$build/kelm-cab
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
check() {
    local what=$1
    shift
    if "$@"; then echo "ok - $what"; else echo "FAIL - $what"; failures=$((failures + 1)); fi
}
field() { # cab, index, column number of the listing
    "$tool" list "$1" | awk -F'\t' -v i="$2" -v c="$3" '$1 == i { print $c }'
}

cd "$work"
mkdir -p src/tree/sub
printf 'PRODUCT=demo\n' >src/product.ini
printf '#!/bin/sh\necho hi\n' >src/tree/run.sh
chmod 750 src/tree/run.sh
printf 'data' >src/tree/sub/data.bin
cat >src/manifest <<'MANIFEST'
# control files first: the entry with index 0 isn't ever extracted
set uid=root group=root
file product.ini component=_internal_
data name=strings.ini component=_internal_ content="[default]\nkey=value\n"
link component=core install_name='${installdir}/bin/run' target_name=run.sh
set attrs=0644
tree tree component=core install_name='${installdir}' condition="${ARCH} == \"ORVAN64\""
empty name=placeholder component=extra type=3 cksum=
MANIFEST

"$tool" create out.cab src/manifest
check "create from a manifest" test -s out.cab
check "verify passes" "$tool" verify out.cab
check "entries come in manifest order" test "$("$tool" list out.cab | cut -f3 | tr '\n' ' ')" = \
    "name product.ini strings.ini N/A run.sh sub/data.bin placeholder "
check "tree entries take the install prefix" test "$(field out.cab 3 4)" = '${installdir}/run.sh'
check "set attrs overrides the tree's own modes" test "$(field out.cab 3 10)" = 0644
check "conditions keep their quotes" test "$(field out.cab 4 14)" = '${ARCH} == "ORVAN64"'
check "type is stored" test "$(field out.cab 5 6)" = 3
check "cksum= leaves the field empty" test -z "$(field out.cab 5 11)"
check "cksum matches the cksum tool" test "$(field out.cab 0 11)" = "$(cksum <src/product.ini | cut -d' ' -f1)"
check "data lines take escapes" test "$("$tool" extract out.cab strings.ini -)" = $'[default]\nkey=value'
"$tool" extract -c core out.cab sub/data.bin got.bin
check "extract by name and component" cmp -s got.bin src/tree/sub/data.bin
"$tool" extract -i 0 out.cab got.ini
check "extract by index" cmp -s got.ini src/product.ini

# The XML spelling of a manifest makes the same cab.
cat >src/manifest.xml <<'MANIFEST'
<cab>
  <set uid="root" group="root"/>
  <file source="product.ini" component="_internal_"/>
  <data name="strings.ini" component="_internal_">[default]
key=value
</data>
  <link component="core" install_name="${installdir}/bin/run" target_name="run.sh"/>
  <set attrs="0644"/>
  <tree source="tree" component="core" install_name="${installdir}" condition="${ARCH} == &quot;ORVAN64&quot;"/>
  <empty name="placeholder" component="extra" type="3" cksum=""/>
</cab>
MANIFEST
"$tool" create xml.cab src/manifest.xml
check "an XML manifest makes the same cab" cmp -s out.cab xml.cab
printf '<cab><file source="product.ini" colour="red"/></cab>' | "$tool" create -C src bad.cab - 2>err || true
check "XML manifests name their faults" grep -q '<stdin>: <file> #1: unknown field "colour"' err

# A tree on the command line keeps the files' own modes.
"$tool" tree tree.cab src/tree component=core
check "tree mode stores modes" test "$(field tree.cab 0 10)" = 0750
check "tree mode names entries by relative path" test "$(field tree.cab 1 3)" = sub/data.bin

# Appended behind a script, the cab still reads, and the script still runs.
printf '#!/bin/sh\necho launcher\nexit 0\n' >launcher.sh
"$tool" create -a launcher.sh src/manifest
check "appended cab verifies" "$tool" verify launcher.sh
check "the file before the cab is intact" test "$(sh launcher.sh)" = launcher

# Refusals.
set +e
printf 'file missing.txt component=x\n' | "$tool" create bad.cab - 2>err
check "a missing source fails" test $? -ne 0
check "a missing source is named" grep -q missing.txt err
check "no cab is left behind" test ! -e bad.cab
printf 'file product.ini colour=red\n' | "$tool" create -C src bad.cab - 2>err
check "an unknown field fails with its line" grep -q '<stdin>:1: unknown field "colour"' err
printf 'file product.ini name="open\n' | "$tool" create -C src bad.cab - 2>err
check "an open quote fails" grep -q 'unclosed quote' err
printf 'file product.ini attrs=0855\n' | "$tool" create -C src bad.cab - 2>err
check "a bad mode fails" grep -q 'not an octal mode' err
head -c 60 out.cab >cut.cab
"$tool" verify cut.cab 2>err
check "a damaged cab fails verify" test $? -ne 0
check "with the reader's words" grep -q "not a readable cab: store_read_cab" err
set -e

if [ "$failures" -ne 0 ]; then
    echo "$failures check(s) failed"
    exit 1
fi
