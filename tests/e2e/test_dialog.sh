#!/usr/bin/env bash
# Dialogs answered for real: a license dialog with radio lines, a component
# dialog with checkboxes and a path dialog, through a pipe and on a terminal;
# the interrupt prompt's redraw and cancel; the end of the input.
source "$(dirname "$0")/lib.sh"
PROBE=$KELM_BUILD/tests/dialog_probe

cat >"$T/wizard.xml" <<'EOF'
<interface view="cli">
<dialog id="license">
  <title text="License agreement"/>
  <description text="Read the terms.&#xa;Then decide."/>
  <question id="1" type="radiobutton">
    <list type="custom">
      <line id="1" text="I accept the terms"/>
      <line id="2" text="I do not accept" default="yes"/>
    </list>
  </question>
  <input text="Select a line, or type n to go on" keep="LICENSE_ANSWER">
    <choice text="n"/>
    <validation type="list" list="n" invert="true" err="Wrong input: ${LICENSE_HINT}"/>
  </input>
</dialog>
<dialog id="components">
  <title text="Components"/>
  <input text="Toggle a component, or type n to go on" keep="COMPONENTS_ANSWER">
    <validation type="list" list="n" invert="true" err="Wrong input"/>
  </input>
  <question id="2" type="checkbox">
    <list type="num">
      <line id="10" text="Core files" default="yes"/>
      <line id="20" text="Documentation" condition="WITH_DOCS"/>
      <line id="30" text="Samples"/>
    </list>
  </question>
</dialog>
<dialog id="destination">
  <title text="Install directory"/>
  <input text="Directory, or Enter to keep the default" keep="INSTALL_DIR">
    <validation type="path" check="dir;empty" invert="true" err="Not an existing directory"/>
  </input>
</dialog>
</interface>
EOF
mkdir -p "$T/target"

# Waits until the screen no longer shows the text; fails after about 10 seconds.
tmux_wait_gone() { # name text
  local i
  for i in $(seq 1 100); do
    if ! tmux_screen "$1" | grep -qF -- "$2"; then return 0; fi
    sleep 0.1
  done
  fail "screen of $1 still shows [$2]"
  return 1
}

# Through a pipe.
printf '7\n1\nn\n3\n2\n1\nn\n%s\n%s\n' "$T/missing" "$T/target" |
  "$PROBE" --log "$T/pipe.log" --out "$T/pipe.props" --set "LICENSE_HINT=lines or n" "$T/wizard.xml" >"$T/pipe.out" 2>/dev/null
assert_eq 0 $? "piped wizard status"
props=$(cat "$T/pipe.props")
for want in license_rb=1 LICENSE_ANSWER=n "components_cb=;2" components_showed=yes COMPONENTS_ANSWER=n \
  "INSTALL_DIR=$T/target" "HANDLE=$T/target"; do
  assert_contains "$props" "$want" "piped property $want"
done
out=$(cat "$T/pipe.out")
assert_contains "$out" "Wrong input: lines or n" "license rule's message"
assert_contains "$out" "1. [x] Core files" "default checked"
assert_contains "$out" "2. [x] Samples" "hidden line shifts the numbers"
assert_contains "$out" "Not an existing directory" "path rule's message"

# At the end of the input a dialog gives up at once with status 4.
"$PROBE" --log "$T/eof.log" "$T/wizard.xml" </dev/null >/dev/null 2>&1
assert_eq 4 $? "status at the end of input"
assert_contains "$(cat "$T/eof.log")" "show_dialog: end of input at the prompt, cancelling" "end of input logged"

# On a terminal: the screen is cleared, toggles redraw, answers are checked.
tmux_start wiz 80 bash -c "echo BEFORE-THE-WIZARD; exec '$PROBE' --log '$T/tty.log' --out '$T/tty.props' \
  --set WITH_DOCS=1 '$T/wizard.xml'"
tmux_wait_for wiz "Select a line, or type n to go on (n):"
screen=$(tmux_screen wiz)
assert_not_contains "$screen" "BEFORE-THE-WIZARD" "screen cleared"
assert_contains "$screen" "2. (*) I do not accept" "radio default"
tmux_keys wiz "1" Enter
tmux_wait_for wiz "1. (*) I accept the terms"
assert_contains "$(tmux_screen wiz)" "2. ( ) I do not accept" "radio moved"
tmux_keys wiz "n" Enter
tmux_wait_for wiz "Toggle a component"
assert_contains "$(tmux_screen wiz)" "2. [ ] Documentation" "shown when its condition holds"
tmux_keys wiz "3" Enter
tmux_wait_for wiz "3. [x] Samples"
tmux_keys wiz "1" Enter
tmux_wait_for wiz "1. [ ] Core files"
tmux_keys wiz "y" Enter
tmux_wait_for wiz "Wrong input"
tmux_keys wiz "n" Enter
tmux_wait_for wiz "Directory, or Enter to keep the default:"
tmux_keys wiz "$T/nothing-here" Enter
tmux_wait_for wiz "Not an existing directory"
tmux_keys wiz "$T/target" Enter
status=$(tmux_status wiz)
assert_eq 0 "$status" "terminal wizard status"
if [ "$status" != 0 ]; then
  tmux_screen wiz >&2
  ls -l "$T" >&2
  tail -n 5 "$T/tty.log" >&2
fi
props=$(cat "$T/tty.props")
for want in license_rb=1 "license_rb_list=;1;2" "components_cb=;3" "components_cb_list=;1;2;3" \
  components_showed=yes "INSTALL_DIR=$T/target"; do
  assert_contains "$props" "$want" "terminal property $want"
done

# Ctrl-C answered "No" draws the dialog again, from a cleared screen.
tmux_start intr 80 "$PROBE" --log "$T/intr.log" --out "$T/intr.props" "$T/wizard.xml"
tmux_wait_for intr "Select a line, or type n to go on"
tmux_keys intr "1" Enter
tmux_wait_for intr "1. (*) I accept the terms"
tmux_keys intr C-c
tmux_wait_for intr "Interrupt install process?(Yes/No)[No]:"
tmux_keys intr "No" Enter
tmux_wait_gone intr "Interrupt install process" && pass
tmux_wait_for intr "Select a line, or type n to go on"
screen=$(tmux_screen intr)
assert_contains "$screen" "License agreement" "redrawn on a cleared screen"
assert_contains "$screen" "1. (*) I accept the terms" "selection kept across the interrupt"
tmux_keys intr "n" Enter
tmux_wait_for intr "Toggle a component"
# "yes" ends the run with status 4 at once.
tmux_keys intr C-c
tmux_wait_for intr "Interrupt install process?(Yes/No)[No]:"
tmux_keys intr "yes" Enter
assert_eq 4 "$(tmux_status intr)" "status after accepting the interrupt"
[ -e "$T/intr.props" ] && fail "no properties written after the interrupt" || pass

finish
