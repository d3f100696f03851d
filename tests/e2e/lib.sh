# Shared helpers for the end-to-end tests. Each test sources this file, runs
# the real binaries from $KELM_BUILD in a private temporary directory, and
# exits non-zero on the first failure.
set -u
KELM_BUILD=${KELM_BUILD:-$(cd "$(dirname "${BASH_SOURCE[0]}")/../../build" && pwd)}
KELM_SRC=${KELM_SRC:-$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)}
KELM=$KELM_BUILD/kelm
T=$(mktemp -d /tmp/kelm-e2e-XXXXXX)
TMUX_SOCKET="kelm-e2e-$$"
cleanup() {
  tmux -L "$TMUX_SOCKET" kill-server 2>/dev/null
  rm -rf "$T"
}
trap cleanup EXIT
failures=0
checks=0

fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }
pass() { checks=$((checks + 1)); }
assert_eq() { # expected actual message
  if [ "$1" == "$2" ]; then pass; else fail "$3: expected [$1], got [$2]"; fi
}
assert_contains() { # haystack needle message
  if [[ "$1" == *"$2"* ]]; then pass; else fail "$3: [$2] not in [$1]"; fi
}
assert_not_contains() {
  if [[ "$1" != *"$2"* ]]; then pass; else fail "$3: [$2] found in [$1]"; fi
}
finish() {
  echo "$checks checks, $failures failures"
  [ "$failures" -eq 0 ]
  exit $?
}

# Starts a command in a detached tmux session of the given width.
tmux_start() { # name width command...
  local name=$1 width=$2
  shift 2
  tmux -L "$TMUX_SOCKET" new-session -d -s "$name" -x "$width" -y 50 "$@"
  tmux -L "$TMUX_SOCKET" set-option -t "$name" remain-on-exit on >/dev/null
}
tmux_keys() { tmux -L "$TMUX_SOCKET" send-keys -t "$1" "${@:2}"; }
tmux_screen() { tmux -L "$TMUX_SOCKET" capture-pane -p -t "$1"; }
# Waits until the screen shows the text; fails after about 30 seconds (the
# machine may be busy building).
tmux_wait_for() { # name text
  local i
  for i in $(seq 1 300); do
    if tmux_screen "$1" | grep -qF -- "$2"; then return 0; fi
    sleep 0.1
  done
  fail "screen of $1 never showed [$2]; it shows:"
  tmux_screen "$1" >&2
  return 1
}
# The exit status of the pane's command, once it has ended; "signal N" when a
# signal ended it, "running" when it is still at work after 30 seconds.
tmux_status() {
  local i dead pid rest code
  for i in $(seq 1 300); do
    dead=$(tmux -L "$TMUX_SOCKET" display-message -p -t "$1" '#{pane_dead}:#{pane_dead_status}:#{pane_pid}')
    case $dead in
    1:?*:*) dead=${dead#1:}; echo "${dead%%:*}"; return 0 ;;
    1::*)
      # tmux marks the pane dead when its terminal closes, which may come
      # before it reaps the process; under load it has been seen to leave
      # the zombie unreaped for good. The kernel keeps the zombie's wait
      # status in field 52 of its stat line.
      pid=${dead##*:}
      rest=$(sed 's/.*) //' "/proc/$pid/stat" 2>/dev/null)
      if [ "${rest%% *}" = Z ]; then
        code=$(echo "$rest" | awk '{print $50}')
        if [ $((code & 127)) -eq 0 ]; then echo $((code >> 8)); else echo "signal $((code & 127))"; fi
        return 0
      fi
      ;;
    esac
    sleep 0.1
  done
  echo "running"
}

# Lays out a package: DIR/bin/kelm (a link to the engine under test) and its
# root cab DIR/bin/kelm.cab, written by the cab tool from the manifest on
# standard input; relative sources start from DIR.
make_package() { # dir
  mkdir -p "$1/bin"
  ln -sf "$KELM" "$1/bin/kelm"
  "$KELM_BUILD/kelm-cab" create -C "$1" "$1/bin/kelm.cab" - || fail "kelm-cab create for $1"
}
