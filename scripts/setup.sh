#!/usr/bin/env bash
# Installs what building and testing kelm needs on a Debian machine.
# Idempotent: packages already present are not fetched again.
set -euo pipefail

packages=(
  g++ cmake ninja-build zlib1g-dev libgtest-dev libbenchmark-dev
  clang libclang-rt-14-dev clang-format
  rpm cpio gzip tmux sudo libxml2-utils python3
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done

if [ ${#missing[@]} -gt 0 ]; then
  if [ "$(id -u)" -ne 0 ]; then
    echo "setup: missing packages: ${missing[*]} (run as root to install them)" >&2
    exit 1
  fi
  echo "setup: installing ${missing[*]}"
  apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}" >/dev/null
fi
