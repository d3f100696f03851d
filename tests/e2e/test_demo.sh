#!/usr/bin/env bash
# The demo package as a user runs it: answers through a pipe (forward, back,
# cancel, end of input), German, the silent route, the uninstaller, and the
# same wizard walked in a real terminal, with an interrupt answered "Yes".
source "$(dirname "$0")/lib.sh"
PKG=$KELM_BUILD/demo/package
export KELM_TMP_DIR=$T/tmp
mkdir -p "$T/target"

demo() { # answers, arguments...
  local answers=$1
  shift
  printf '%b' "$answers" | "$PKG/install.sh" "$@" >"$T/out" 2>"$T/err"
}

# Forward with detours: back from the license to the welcome, accept, check
# Samples, back from the directory to the components, a relative path
# refused, back from the summary, then through to the end.
demo '\nb\n\n1\n\n3\n\nb\n\nrelative\n'"$T/target/devkit"'\nb\n\n\n\n'
assert_eq 0 $? "walk through the demo"
out=$(cat "$T/out")
assert_contains "$out" "Lumen Developer Kit 1.0 - Step 1 of 6: Welcome" "numbered welcome"
assert_contains "$out" "Step 1 : Welcome" "list of steps"
assert_contains "$out" "Step 6 : Finish" "last of the steps"
assert_contains "$out" "This machine: Linux" "shell function's findings"
assert_contains "$out" "1. (*) I accept the terms of the license" "radio toggled"
assert_contains "$out" "3. [x] Samples" "checkbox toggled"
assert_contains "$out" "Please give an absolute path" "path rule"
assert_contains "$out" "Components:  Core libraries, Documentation, Samples (3)" "plug-in's summary"
assert_contains "$out" "Samples:     3 examples, to $T/target/devkit/samples" "layer's summary line"
assert_contains "$out" "Step 6 of 6: Finish" "finish screen"
assert_eq "" "$(ls "$T/tmp" | grep install. || true)" "temporary folder removed"
assert_eq "" "$(ls "$T/tmp" | grep running.marker || true)" "running marker removed"
log=$(cat "$T"/tmp/orvan.kelm.*.log)
assert_contains "$log" "sequence_execute: finished" "log of the run"
assert_not_contains "$log" "Execution error" "no execution error"
assert_eq "" "$(ls "$T/target")" "nothing installed"
rm -f "$T"/tmp/*.log

# Without accepting the license the wizard asks again.
demo '\n\nq\n'
assert_eq 4 $? "cancel after the declined license"
assert_contains "$(cat "$T/out")" "The license must be accepted" "license reminder"
assert_contains "$(cat "$T/out")" "The installation was cancelled." "cancel screen"

# Cancel at once, and run out of answers.
demo 'q\n'
assert_eq 4 $? "cancel at the welcome"
demo '\n'
assert_eq 4 $? "end of the answers"
assert_eq "" "$(ls "$T/tmp" | grep install. || true)" "temporary folder removed after the end of input"

# No component checked: the wizard says so and asks again.
demo '\n1\n\n1\n2\n\n\nq\n'
assert_eq 4 $? "cancel after an empty choice"
assert_contains "$(cat "$T/out")" "Choose at least one component." "empty choice refused"

# German.
demo 'q\n' --lang de
assert_eq 4 $? "German cancel"
assert_contains "$(cat "$T/out")" "Schritt 1 von 6: Willkommen" "German welcome"
assert_contains "$(cat "$T/out")" "Die Installation wurde abgebrochen." "German cancel screen"

# Silent: the answers file decides, nothing is asked.
printf 'ACCEPT_LICENSE=yes\nCOMPONENTS=2;3\nKELM_INSTALL_DIR=%s\n' "$T/target/silent" >"$T/answers.cfg"
"$PKG/install.sh" --silent "$T/answers.cfg" </dev/null >"$T/out" 2>&1
assert_eq 0 $? "silent install"
out=$(tr '\n' ' ' <"$T/out")
assert_contains "$out" "Silent installation of Lumen Developer Kit 1.0: Documentation, Samples into $T/target/silent" \
  "silent summary"
printf 'COMPONENTS=1\n' >"$T/answers.cfg"
"$PKG/install.sh" --silent "$T/answers.cfg" </dev/null >"$T/out" 2>&1
assert_eq 2 $? "silent install without the license"
assert_contains "$(cat "$T/out")" "ACCEPT_LICENSE=yes" "silent license message"

# The uninstaller.
printf '\n' | "$PKG/uninstall.sh" >"$T/out" 2>&1
assert_eq 0 $? "uninstall"
assert_contains "$(cat "$T/out")" "Lumen Developer Kit 1.0 - Uninstall" "uninstall screen"

# The package layout: the standard launchers, or the author's own; nothing is
# written when a manifest is wrong.
CAB=$KELM_BUILD/kelm-cab
printf 'data name=product.ini component=_internal_ content="A=1\\n"\n' >"$T/root.manifest"
"$CAB" package "$T/bad" "$T/root.manifest" layer.cab >/dev/null 2>"$T/err"
assert_eq 1 $? "layer argument without a manifest"
"$CAB" package "$T/bad" "$T/root.manifest" l.cab="$T/missing.manifest" >/dev/null 2>>"$T/err"
assert_eq 1 $? "missing layer manifest"
assert_eq no "$([ -e "$T/bad" ] && echo yes || echo no)" "nothing laid out"
mkdir -p "$T/launchers"
printf '#!/bin/sh\necho own\n' >"$T/launchers/install.sh"
printf '#!/bin/sh\necho own uninstall\n' >"$T/launchers/uninstall.sh"
"$CAB" package -s "$T/launchers" "$T/own" "$T/root.manifest" l.cab="$T/root.manifest"
assert_eq 0 $? "package with own launchers"
assert_eq "own" "$("$T/own/install.sh")" "own launcher"
assert_eq "A=1" "$("$CAB" extract -c _internal_ "$T/own/pset/l.cab" product.ini -)" "layer cab"
cmp -s "$KELM" "$T/own/pset/engine/kelm"
assert_eq 0 $? "engine copied"

# In a terminal: forward, back, and through to the end.
tmux_start walk 100 "$PKG/install.sh"
tmux_wait_for walk "Step 1 of 6: Welcome"
tmux_keys walk Enter
tmux_wait_for walk "Step 2 of 6: License agreement"
tmux_keys walk 1 Enter
tmux_wait_for walk "1. (*) I accept"
tmux_keys walk Enter
tmux_wait_for walk "Step 3 of 6: Components"
tmux_keys walk b Enter
tmux_wait_for walk "Step 2 of 6: License agreement"
tmux_keys walk Enter
tmux_wait_for walk "Step 3 of 6: Components"
tmux_keys walk Enter
tmux_wait_for walk "Step 4 of 6: Installation directory"
tmux_keys walk "$T/target/tty" Enter
tmux_wait_for walk "Step 5 of 6: Summary"
tmux_keys walk Enter
tmux_wait_for walk "Step 6 of 6: Finish"
tmux_keys walk Enter
assert_eq 0 "$(tmux_status walk)" "terminal walk status"

# In a terminal: Ctrl-C answered "Yes" ends the run and cleans up.
tmux_start stop 100 "$PKG/install.sh"
tmux_wait_for stop "Step 1 of 6: Welcome"
tmux_keys stop Enter
tmux_wait_for stop "Step 2 of 6: License agreement"
tmux_keys stop 1 Enter
tmux_wait_for stop "1. (*) I accept"
tmux_keys stop C-c
tmux_wait_for stop "Interrupt install process?(Yes/No)[No]:"
tmux_keys stop Yes Enter
assert_eq 4 "$(tmux_status stop)" "interrupted status"
assert_eq "" "$(ls "$T/tmp" | grep install. || true)" "temporary folder removed after the interrupt"

finish
