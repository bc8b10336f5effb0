#!/usr/bin/env bash
# Installs what the build needs (Debian 12) and builds the project into build/ (or the folder given).
# Usage: scripts/setup.sh [BUILD_DIR] [extra CMake arguments...]
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="${1:-$here/build}"
shift || true

packages=(cmake ninja-build g++ qtbase5-dev libqt5sql5-sqlite qttools5-dev-tools qttools5-dev
          zlib1g-dev libzip-dev pkg-config zip unzip python3)
missing=()
for pkg in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || missing+=("$pkg")
done
if [ "${#missing[@]}" -gt 0 ]; then
    echo "== installing: ${missing[*]}"
    sudo_cmd=""
    [ "$(id -u)" -eq 0 ] || sudo_cmd="sudo"
    $sudo_cmd apt-get update -q
    DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -q "${missing[@]}"
fi

echo "== configuring $build_dir"
cmake -S "$here" -B "$build_dir" -G Ninja "$@" >/dev/null
echo "== building $build_dir"
cmake --build "$build_dir" -j"$(nproc)"
