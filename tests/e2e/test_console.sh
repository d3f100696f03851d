#!/usr/bin/env bash
# Console text on a pipe and on real terminals: lines break at blanks to the
# width (80 at most), multi-byte characters stay whole, words longer than a
# line are cut, and a prompt leaves the cursor behind its text.
source "$(dirname "$0")/lib.sh"
export LANG=C.UTF-8
PROBE=$KELM_BUILD/tests/console_probe

L="The installer copies the selected products to your computer and registers them, so that they can later be modified, repaired or removed."
A="Les éléments sélectionnés seront installés à côté des produits déjà présents; Größenänderungen werden übernommen."
C="安装程序将把所选产品复制到您的计算机上并进行注册以便以后可以修改修复或删除这些产品。"
C2="请选择 安装目录 然后按 回车键 继续 安装过程 将需要 几分钟 时间 请选择 安装目录 然后按 回车键 继续 安装过程 将需要 几分钟 时间"
P="Path: /opt/orvan/very/long/path/without/any/blank/to/break/at/anywhere/inside/it/at/all/really/truly/ok"
Q="Continue (yes/no) [yes]: "
texts=("$L"$'\n' "$A"$'\n' "$C"$'\n' "$C2"$'\n' "$P"$'\n' --dashes "$Q")

dashes80=$(printf '%080d' 0 | tr 0 -)
wide80="The installer copies the selected products to your computer and registers them,
so that they can later be modified, repaired or removed.
Les éléments sélectionnés seront installés à côté des produits déjà présents;
Größenänderungen werden übernommen.
安装程序将把所选产品复制到您的计算机上并进行注册以便以后可以修改修复或删除这些产
品。
请选择 安装目录 然后按 回车键 继续 安装过程 将需要 几分钟 时间 请选择 安装目录
然后按 回车键 继续 安装过程 将需要 几分钟 时间
Path:
/opt/orvan/very/long/path/without/any/blank/to/break/at/anywhere/inside/it/at/al
l/really/truly/ok
$dashes80
$Q"

# On a pipe the width is unknown, hence 80. The blank at which a full line
# ends stays in it; the prompt gets no newline.
"$PROBE" "${texts[@]}" >"$T/pipe"
assert_eq "${wide80/them,/them, }" "$(cat "$T/pipe")" "wrapped text on a pipe"
assert_eq "$Q" "$(tail -c ${#Q} "$T/pipe")" "prompt ends the output without a newline"

# A 120-column terminal is used as 80 columns.
# (A screen shows no trailing blanks.)
tmux_start w120 120 "$PROBE" "${texts[@]}" --read
tmux_wait_for w120 "${Q% }"
assert_eq "${wide80% }" "$(tmux_screen w120)" "screen of a 120-column window"

# A 40-column window: nothing reaches past the edge, so the terminal never
# wraps a line itself, and every row is exactly what was printed.
tmux_start w40 40 "$PROBE" "${texts[@]}" --read
tmux_wait_for w40 "${Q% }"
assert_eq "The installer copies the selected
products to your computer and registers
them, so that they can later be
modified, repaired or removed.
Les éléments sélectionnés seront
installés à côté des produits déjà
présents; Größenänderungen werden
übernommen.
安装程序将把所选产品复制到您的计算机上并
进行注册以便以后可以修改修复或删除这些产
品。
请选择 安装目录 然后按 回车键 继续
安装过程 将需要 几分钟 时间 请选择
安装目录 然后按 回车键 继续 安装过程
将需要 几分钟 时间
Path:
/opt/orvan/very/long/path/without/any/bl
ank/to/break/at/anywhere/inside/it/at/al
l/really/truly/ok
----------------------------------------
Continue (yes/no) [yes]:" "$(tmux_screen w40)" "screen of a 40-column window"

# The answer is typed right behind the prompt.
tmux_keys w40 "no"
tmux_wait_for w40 "$Q""no"
tmux_keys w40 Enter
tmux_wait_for w40 "answered: no"
assert_eq 0 "$(tmux_status w40)" "probe status"

finish
