#!/usr/bin/env bash
# Configuration of a real package: product.ini wins over the command line,
# the string mode hands properties to bash, and each mode ends as it should.
source "$(dirname "$0")/lib.sh"

P=$T/pkg
mkdir -p "$P"
printf '# product settings\r\nPRODUCT_NAME=Demo Suite\r\nPACKAGE_DIR=/from/product\nEDITION=pro=x\n=orphan\n' >"$P/product.ini"
printf 'Usage: install.sh [--silent FILE]\n' >"$P/help.msg"
make_package "$P" <<'M'
file product.ini component=_internal_
file help.msg component=_internal_
M

run() { # runs the packaged engine; output in $T/out, status in $status
  (cd "$T" && "$P/bin/kelm" --TEMP_FOLDER="$T/tmp/run" "$@" >"$T/out" 2>"$T/err")
  status=$?
}
mkdir -p "$T/tmp"

# The string mode: every property asked for comes back through eval, with
# quotes, dollars and several lines intact; product.ini beats the command line.
run --__get_string__ "$T/strings.sh" --string_ids "PRODUCT_NAME;EDITION;orphan;x;multi;ENGINE_DIR;PACKAGE_DIR" \
  --x "it's \"quoted\" here" --multi=$'line one\nline two' --PACKAGE_DIR /from/cmdline
assert_eq 0 "$status" "string mode status"
got=$(bash -c 'eval "$(cat "$1")"; printf "%s|" "$LI_PRODUCT_NAME" "$LI_EDITION" "$LI_orphan" "$LI_x" "$LI_multi" "$LI_PACKAGE_DIR"' _ "$T/strings.sh")
assert_eq "Demo Suite|pro||it\\'s \"quoted\" here|line one
line two|/from/product|" "$got" "properties read back by bash"
engine_dir=$(bash -c 'eval "$(cat "$1")"; printf "%s" "$LI_ENGINE_DIR"' _ "$T/strings.sh")
assert_eq "$P/bin" "$engine_dir" "ENGINE_DIR is the engine's directory"

# Without string_ids every property is written, in name order.
run --__get_string__ "$T/all.sh"
names=$(grep -o '^LI_[A-Za-z_]*=' "$T/all.sh" | tr -d '=' | tr '\n' ' ')
assert_contains "$names" "LI_ARCH LI_CONFIG_DIR LI_CURRENT_DIR" "all properties in order"
assert_contains "$names" "LI_KELM_EXIT_CODE_CANCEL LI_KELM_EXIT_CODE_ERROR" "exit-status scheme published"

# An output file that cannot be opened is fatal with status 2.
run --__get_string__ ""
assert_eq 2 "$status" "unwritable string file status"
assert_contains "$(cat "$T/err")" "Fatal error: Could not extract strings." "unwritable string file message"

# Help, also reached through a bad argument, ends with status 0.
run --help
assert_eq 0 "$status" "help status"
assert_eq "Usage: install.sh [--silent FILE]" "$(cat "$T/out")" "help text"
run -q
assert_eq 0 "$status" "bad argument status"
assert_contains "$(cat "$T/out")" "Usage: install.sh" "bad argument shows help"

# A silent run needs a file name; a relative one is anchored at CURRENT_DIR.
run --silent
assert_eq 2 "$status" "silent without a file"
assert_eq "Error: Please provide silent configuration file." "$(cat "$T/out")" "silent without a file message"
run --duplicate "" --KELM_MODE uninstall
assert_eq 2 "$status" "duplicate without a file, even when uninstalling"

# A package without product.ini cannot be configured.
Q=$T/noproduct
mkdir -p "$Q"
make_package "$Q" <<'M'
data name=help.msg component=_internal_ content="help"
M
(cd "$T" && "$Q/bin/kelm" --TEMP_FOLDER="$T/tmp/run" >"$T/out" 2>"$T/err")
assert_eq 2 $? "missing product.ini status"
assert_contains "$(cat "$T/err")" "Fatal error: config initialization failed" "missing product.ini message"
assert_contains "$(cat "$T"/tmp/orvan.kelm.*.log)" "load_product_info: can not find product.ini in store" "log says why"

finish
