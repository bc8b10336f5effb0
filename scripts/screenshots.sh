#!/usr/bin/env bash
# Builds the backup module and a small picture tool, then saves pictures with the English texts: the
# window of `HxClient gui` with the settings form, the form at its minimum size, and the progress dialog
# while a real backup runs and when it is done.
# Runs under Xvfb when xvfb-run is installed, otherwise on Qt's offscreen platform.
# Usage: scripts/screenshots.sh [OUTPUT_DIR] [BUILD_DIR]     (defaults: docs, build)
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
out="$(mkdir -p "${1:-$here/docs}" && cd "${1:-$here/docs}" && pwd)"
build_dir="${2:-$here/build}"

if [ ! -f "$build_dir/build.ninja" ]; then
    cmake -S "$here" -B "$build_dir" -G Ninja >/dev/null
fi
cmake --build "$build_dir" --target screenshot_views -j"$(nproc)"

# The backup packs the data folder: a scratch one, removed afterwards.
data="$(mktemp -d)"
trap 'rm -rf "$data"' EXIT
export HX_DATA_PATH="$data"

tool="$build_dir/bin/screenshot_views"
if command -v xvfb-run >/dev/null 2>&1; then
    echo "== pictures under Xvfb"
    xvfb-run -a -s "-screen 0 1280x800x24" "$tool" "$out"
else
    echo "== pictures on the offscreen platform (install xvfb to take them under Xvfb)"
    QT_QPA_PLATFORM=offscreen "$tool" "$out"
fi
echo "== pictures in $out"
ls -1 "$out"/*.png
