#!/usr/bin/env bash
# Loading the wizard's definition from a real package: sequence.ini picks one
# of two sequences by mode, falling through an entry that isn't there; the
# chosen sequence's three layers are opened and unpacked for the machine's
# architecture, their strings follow the language, and the steps follow the
# chain of modules, nested modules included.
source "$(dirname "$0")/lib.sh"

CAB=$KELM_BUILD/kelm-cab
PROBE=$KELM_BUILD/tests/seq_probe
src=$T/src
mkdir -p "$src" "$T/pkg/bin" "$T/pkg/config"

cat >"$src/sequence.ini" <<'EOF'
# mode-dependent choice; the first install line names an entry that is missing
_internal_:missing_seq.xml:${KELM_MODE} = install
_internal_:install_seq.xml:${KELM_MODE} = install
_internal_:uninstall_seq.xml:${KELM_MODE} = uninstall
_internal_:never_seq.xml:${KELM_MODE} = uninstall
EOF
cat >"$src/install_seq.xml" <<'EOF'
<sequence>
<layer file="core.cab" id="core" condition="always"/>
<module id="finish" file="finish.xml" component="_internal_" action="bye" name="Finish"/>
<layer file="docs.cab" id="docs" executedir="doc;share"/>
<module id="_start_" file="welcome.xml" component="_internal_" action="hello" name="Welcome">
<next call="${AFTER_WELCOME}"/>
</module>
<module id="select" file="select.xml" component="_internal_" action="pick" name="Select" condition="${KELM_MODE} = install">
<module id="select_core" file="sub_core.xml" component="_internal_" action="core_a"/>
<module id="select_docs" file="sub_docs.xml" component="_internal_" action="docs_a"/>
<next call="prepare"/>
</module>
<layer file="tools.cab" id="tools"/>
<module id="prepare">
<next call="finish"/>
</module>
<module id="unused" file="welcome.xml" component="_internal_"/>
</sequence>
EOF
cat >"$src/uninstall_seq.xml" <<'EOF'
<sequence>
<layer file="core.cab" id="core"/>
<module id="_start_" file="finish.xml" component="_internal_" name="Remove"/>
</sequence>
EOF
for doc in welcome select finish sub_core sub_docs; do
  echo "<document><behavior action=\"a\"/></document>" >"$src/$doc.xml"
done
echo "A=1" >"$src/product.ini"
"$CAB" create "$T/pkg/install.cab" - <<EOF
file $src/product.ini component=_internal_
file $src/sequence.ini component=_internal_
file $src/install_seq.xml component=_internal_
file $src/uninstall_seq.xml component=_internal_
file $src/welcome.xml component=_internal_
file $src/select.xml component=_internal_
file $src/finish.xml component=_internal_
file $src/sub_core.xml component=_internal_
file $src/sub_docs.xml component=_internal_
EOF
assert_eq 0 $? "root cab written"

# Three layers; each has its document first, then files for both 32-bit
# flavours and for every architecture.
make_layer() { # id strings-xml
  local id=$1
  mkdir -p "$src/$id/lib"
  printf '<layer>%s</layer>' "$2" >"$src/$id/$id.xml"
  echo "narrow $id" >"$src/$id/lib/narrow.so"
  echo "wide $id" >"$src/$id/lib/wide.so"
  echo "#!/bin/sh" >"$src/$id/hook.sh"
  "$CAB" create "$T/pkg/config/$id.cab" - <<EOF
file $src/$id/$id.xml component=_internal_
file $src/$id/lib/narrow.so name=lib/arch.so component=_internal_32_
file $src/$id/lib/wide.so name=lib/arch.so component=_internal_32e_
file $src/$id/hook.sh component=_internal_ attrs=0755
EOF
}
make_layer core '<strings><string name="core_title">Core</string></strings><strings locale="de"><string name="core_title">Kern</string><string name="local_only">nur hier</string></strings>'
make_layer docs '<strings locale="default"><string name="docs_title">Docs</string></strings><strings locale="de"><string name="docs_title">Doku</string></strings>'
make_layer tools '<strings><string name="tools_title">Tools</string></strings>'

# The engine itself chooses the sequence at start-up, by mode.
ln -s "$KELM" "$T/pkg/bin/kelm"
run_engine() { # mode; leaves the engine's log in $log
  rm -rf "$T/e"
  mkdir -p "$T/e"
  (cd "$T/e" && USER=tester HOSTNAME=box "$T/pkg/bin/kelm" --TEMP_FOLDER="$T/e/run" --KELM_MODE="$1" >/dev/null 2>&1)
  assert_eq 0 $? "engine status in $1 mode"
  log=$(cat "$T"/e/orvan.kelm.tester.box_*.log)
}
run_engine install
assert_contains "$log" "init_sequence: can't extract _internal_::missing_seq.xml" "missing entry reported"
assert_contains "$log" "Looks like we should read _internal_::install_seq.xml sequence file" "install sequence read"
assert_not_contains "$log" "uninstall_seq.xml sequence file" "no second sequence read"
assert_contains "$log" "init_sequence: finished" "choice finished"
run_engine uninstall
assert_contains "$log" "Looks like we should read _internal_::uninstall_seq.xml sequence file" "uninstall sequence"
assert_not_contains "$log" "never_seq.xml sequence file" "first true line only"

# Loading the chosen sequence: layers first in document order, then the
# steps along the chain of modules.
probe() { # log, then NAME=VALUE...
  local plog=$1
  shift
  "$PROBE" "$plog" "$T/pkg/install.cab" CONFIG_DIR="$T/pkg/config" ENGINE_DIR="$T/pkg" AFTER_WELCOME=select "$@"
}
mkdir -p "$T/run64" "$T/run32"
out=$(probe "$T/p64.log" KELM_MODE=install TEMP_FOLDER="$T/run64" ARCH=ORVAN64 LANG=de_DE \
  LOCALES_MAPPING="fr_FR:fr;de_DE:de" ADDITIONAL_LOCALES="de;ja")
assert_eq 0 $? "probe status"
expected="sequence install_seq.xml
layer core
layer docs
layer tools
step _start_ name=Welcome doc=yes subs=
step select name=Select doc=yes subs=select_core+,select_docs+
step prepare name= doc=no subs=
step finish name=Finish doc=yes subs=
global core_title=Kern
global docs_title=Doku
global tools_title=Tools"
assert_eq "$expected" "$out" "loaded layers, steps and layer strings"

plog=$(cat "$T/p64.log")
order=$(grep -oE "layer info: file [a-z]+\.cab|layer_num = [0-9]+|Module info: id [a-z_]+|found sub: [a-z_]+|module_num = [0-9]+|sequence_execute_container: finished" "$T/p64.log" | tr '\n' '|')
assert_eq "layer info: file core.cab|layer_num = 1|layer info: file docs.cab|layer_num = 2|layer info: file tools.cab|layer_num = 3|Module info: id _start_|module_num = 1|Module info: id select|found sub: select_core|found sub: select_docs|module_num = 2|Module info: id prepare|module_num = 3|Module info: id finish|module_num = 4|sequence_execute_container: finished|" \
  "$order" "log order of layers and steps"
assert_contains "$plog" "sequence_execute_container: Locale 'de_DE' is mapped to 'de'" "mapping logged"
assert_contains "$plog" "found localized strings for layer for LANG 'de_DE'" "localized block found"
assert_contains "$plog" "can't extract (null)::(null) HERE" "module without document"

for id in core docs tools; do
  assert_eq "wide $id" "$(cat "$T/run64/$id/lib/arch.so")" "$id: 64-bit file unpacked"
  [ -x "$T/run64/$id/hook.sh" ] && pass || fail "$id: hook.sh unpacked with its mode"
  [ ! -e "$T/run64/$id/$id.xml" ] && pass || fail "$id: the document (index 0) is not unpacked"
done

# A 32-bit machine gets the other flavour; a language without a listed
# locale keeps the default strings. Files already unpacked stay.
echo "mine" >"$T/run32/keep" && mkdir -p "$T/run32/core/lib" && echo "old" >"$T/run32/core/lib/arch.so"
out=$(probe "$T/p32.log" KELM_MODE=install TEMP_FOLDER="$T/run32" ARCH=NARROW32 LANG=de_DE \
  LOCALES_MAPPING="de_DE:de" ADDITIONAL_LOCALES="ja")
assert_contains "$out" "global core_title=Core" "default strings without listed locale"
assert_contains "$out" "global docs_title=Docs" "default-locale block"
assert_eq "old" "$(cat "$T/run32/core/lib/arch.so")" "existing file kept"
assert_eq "narrow docs" "$(cat "$T/run32/docs/lib/arch.so")" "32-bit file unpacked"
assert_contains "$(cat "$T/p32.log")" "not included into ADDITIONAL_LOCALES list" "unlisted locale logged"

# A missing layer cab is left out and the others still load.
mv "$T/pkg/config/docs.cab" "$T/pkg/config/docs.off"
mkdir -p "$T/run3"
out=$(probe "$T/p3.log" KELM_MODE=install TEMP_FOLDER="$T/run3")
assert_eq 0 $? "probe status without one layer"
assert_eq "layer core|layer tools|" "$(grep '^layer' <<<"$out" | tr '\n' '|')" "remaining layers"
grep -q "ERROR: .*sequence_execute_container: can't extract docs" "$T/p3.log" && pass || fail "missing layer reported"

finish
