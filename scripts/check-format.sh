#!/usr/bin/env bash
# Fails when a C++ source differs from .clang-format's layout.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files -co --exclude-standard -- '*.cpp' '*.h' | grep -v '^build')
[ ${#files[@]} -eq 0 ] && exit 0
if ! clang-format --dry-run -Werror "${files[@]}" 2>/tmp/kelm-format.$$; then
  head -n 40 /tmp/kelm-format.$$ >&2
  rm -f /tmp/kelm-format.$$
  echo "format check failed: run 'clang-format -i' on the files above" >&2
  exit 1
fi
rm -f /tmp/kelm-format.$$
echo "format check passed"
