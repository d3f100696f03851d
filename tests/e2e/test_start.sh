#!/usr/bin/env bash
# The engine's start: the banner, the environment dump, the log's name and
# first lines, and the interrupt prompt on a real terminal.
source "$(dirname "$0")/lib.sh"

# --version prints the banner, opens a log named from user, host and time
# in the directory above the temporary folder, and ends with status 0.
mkdir -p "$T/v"
out=$(cd "$T/v" && USER=tester HOSTNAME=box "$KELM" --version --TEMP_FOLDER="$T/v/run")
assert_eq 0 $? "--version status"
assert_eq "Package id: l_kelm_p_2.4.0.033, built Sep 30 2014 20:26:48" "$out" "banner"
logs=("$T"/v/orvan.kelm.tester.box_*.log)
assert_eq 1 "${#logs[@]}" "one log in the folder above TEMP_FOLDER"
name=$(basename "${logs[0]}")
[[ "$name" =~ ^orvan\.kelm\.tester\.box_[0-9]{2}\.[0-9]{2}\.[0-9]{2}\.[0-9]{2}\.[0-9]{2}\.[0-9]{4}\.log$ ]] \
  && pass || fail "log name $name"
first=$(head -n 1 "${logs[0]}")
[[ "$first" =~ ^[0-9]+\ -\ :\ #{58}$ ]] && pass || fail "first log line [$first]"
assert_contains "$(sed -n 2p "${logs[0]}")" " - : Logging started at " "second log line"

# --log-disable leaves no log at all.
mkdir -p "$T/nolog"
(cd "$T/nolog" && "$KELM" --version --log-disable --TEMP_FOLDER="$T/nolog/run" >/dev/null)
assert_eq "" "$(ls "$T/nolog")" "no log with --log-disable"

# --__dumpenv__ prints the process environment NUL-separated and writes no log.
mkdir -p "$T/d"
(cd "$T/d" && env -i A=1 'B=two words' "$KELM" --__dumpenv__ >"$T/dump")
assert_eq 0 $? "--__dumpenv__ status"
assert_eq "$(printf 'A=1\0B=two words\0' | od -c)" "$(od -c <"$T/dump")" "dump bytes"
assert_eq "" "$(ls "$T/d")" "no log written by --__dumpenv__"

# A bad argument prints its message (and leads to the help text).
out=$(cd "$T/d" && "$KELM" -x --TEMP_FOLDER="$T/d/run" 2>&1)
assert_contains "$out" "Incorrect command-line argument: arg 1, key -x" "bad argument message"

# The interrupt prompt: "No" goes back to the dialog, other text asks
# again, "yes" in any case ends with status 4.
tmux_start sig 80 "$KELM_BUILD/tests/sigint_probe" "$T/sig.log"
tmux_wait_for sig "dialog>"
tmux_keys sig C-c
tmux_wait_for sig "Interrupt install process?(Yes/No)[No]:"
tmux_keys sig "maybe" Enter
tmux_wait_for sig "Incorrect input, please try again"
tmux_keys sig "No" Enter
tmux_wait_for sig "back at the dialog"
tmux_keys sig C-c
tmux_keys sig "yEs" Enter
assert_eq 4 "$(tmux_status sig)" "status after accepting the interrupt"
assert_contains "$(cat "$T/sig.log")" "sigint_handler: 2 signot has been got" "handler log line"

finish
