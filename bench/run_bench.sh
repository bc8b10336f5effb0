#!/usr/bin/env bash
# Backup and restore speed and memory of HxClient, side by side with zip, tar | pigz and cp on the same data.
# Usage: bench/run_bench.sh [--size-mb N] [--runs N] [--work DIR]
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
size_mb=1536
runs=3
work="$here/build-bench"
while [ $# -gt 0 ]; do
    case "$1" in
        --size-mb) size_mb="$2"; shift 2 ;;
        --runs) runs="$2"; shift 2 ;;
        --work) work="$2"; shift 2 ;;
        -h|--help) sed -n '2,3p' "$0"; exit 0 ;;
        *) echo "unknown option: $1" >&2; exit 2 ;;
    esac
done

need=()
for pkg in time zip unzip pigz python3; do
    dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || need+=("$pkg")
done
if [ "${#need[@]}" -gt 0 ]; then
    sudo_cmd=""; [ "$(id -u)" -eq 0 ] || sudo_cmd="sudo"
    $sudo_cmd apt-get update -q && DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -q "${need[@]}"
fi
bash "$here/scripts/setup.sh" "$here/build" >/dev/null
client="$here/build/bin/HxClient"

src="$work/src"
if [ ! -f "$src/.size-$size_mb" ]; then
    rm -rf "$src"
    echo "== generating about $size_mb MB of client data in $src"
    python3 "$here/bench/make_data.py" "$src" --size-mb "$size_mb" >/dev/null
    touch "$src/.size-$size_mb"
fi
input_bytes=$(du -sb "$src/data" "$src/user" | awk '{s += $1} END {print s}')
out="$work/out"
results="$work/results.tsv"
: > "$results"

# measure NAME COMMAND...: wall seconds and peak resident kB from GNU time, appended to the results.
measure() {
    local name="$1"; shift
    local log="$work/time.log"
    /usr/bin/time -v -o "$log" "$@" >/dev/null 2>"$work/$name.stderr" || {
        echo "$name failed:" >&2; tail -5 "$work/$name.stderr" >&2; exit 1; }
    local wall rss
    wall=$(awk -F': ' '/Elapsed \(wall clock\)/ {n = split($2, p, ":"); s = 0; for (i = 1; i <= n; i++) s = s * 60 + p[i]; print s}' "$log")
    rss=$(awk -F': ' '/Maximum resident set size/ {print $2}' "$log")
    printf '%s\t%s\t%s\t0\n' "$name" "$wall" "$rss" >> "$results"
}

size_of() { stat -c %s "$1"; }

for run in $(seq 1 "$runs"); do
    echo "== run $run of $runs"
    rm -rf "$out"; mkdir -p "$out/hx" "$out/unzip" "$out/cp"
    export HX_DATA_PATH="$src/data"

    measure hx_backup "$client" backup "$out/hx"
    archive=$(ls -t "$out"/hx/BackUp_*.zip | head -1)
    printf 'hx_backup_size\t0\t0\t%s\n' "$(size_of "$archive")" >> "$results"

    measure hx_recover "$client" recover --yes "$archive"
    # The restored database copy would make later runs larger; the live files are unchanged.
    rm -f "$src"/data/Db/*_backup.db

    measure unzip_cp bash -c "unzip -q '$archive' -d '$out/unzip' && cp -r '$out/unzip/.' '$out/cp/'"
    rm -rf "$out/unzip" "$out/cp"

    measure zip bash -c "cd '$src' && zip -r -q '$out/zip.zip' data user"
    printf 'zip_size\t0\t0\t%s\n' "$(size_of "$out/zip.zip")" >> "$results"

    measure tar_pigz bash -c "cd '$src' && tar cf - data user | pigz > '$out/tar.tgz'"
    printf 'tar_pigz_size\t0\t0\t%s\n' "$(size_of "$out/tar.tgz")" >> "$results"

    mkdir -p "$out/cp"
    measure cp_r cp -r "$src/data" "$src/user" "$out/cp/"
done

largest_bytes=$(find "$src/data" "$src/user" -type f -printf '%s\n' | sort -n | tail -1)
python3 - "$results" "$input_bytes" "$largest_bytes" <<'PY'
import statistics, sys
rows = [line.rstrip("\n").split("\t") for line in open(sys.argv[1]) if line.strip()]
input_mb = int(sys.argv[2]) / 1e6
def median(name, column):
    values = [float(r[column]) for r in rows if r[0] == name]
    return statistics.median(values) if values else float("nan")
size = {"hx_backup": median("hx_backup_size", 3), "zip": median("zip_size", 3), "tar_pigz": median("tar_pigz_size", 3)}
zip_wall = median("zip", 1)
print(f"input: {input_mb:.0f} MB, largest file {int(sys.argv[3]) / 1e6:.0f} MB\n")
print("| tool | wall s (median) | input MB/s | peak RSS MB | archive MB | time vs zip | size vs zip |")
print("|---|---|---|---|---|---|---|")
for name, label in [("hx_backup", "HxClient backup"), ("zip", "zip -r -q"), ("tar_pigz", "tar + pigz"),
                    ("cp_r", "cp -r"), ("hx_recover", "HxClient recover"), ("unzip_cp", "unzip -q + cp -r")]:
    wall = median(name, 1)
    rss = median(name, 2) / 1024
    arch = size.get(name)
    arch_text = f"{arch / 1e6:.0f}" if arch else "-"
    ratio_size = f"{arch / size['zip']:.2f}" if arch else "-"
    print(f"| {label} | {wall:.2f} | {input_mb / wall:.0f} | {rss:.0f} | {arch_text} | {wall / zip_wall:.2f} | {ratio_size} |")
print(f"\nrecover vs unzip -q + cp -r: {median('hx_recover', 1) / median('unzip_cp', 1):.2f}")
PY

echo
echo "== where one backup spends its time"
rm -rf "$out"; mkdir -p "$out/hx"
HX_DATA_PATH="$src/data" python3 "$here/bench/profile_backup.py" "$client" "$out/hx"
rm -rf "$out"
