#!/usr/bin/env bash
# Backup and restore speed and memory of HxClient against the tools an operator would pick instead
# (tar | zstd, borg, restic; cp -r as the floor), on the same data and in the same run.
# Usage: bench/run_bench.sh [--profile default|large] [--size-mb N] [--clip-mb N] [--faces N] [--runs N]
#                           [--client PATH] [--work DIR] [--no-phases]
#   --profile large   6.5 GiB: a 4.5 GiB clip and 70,000 face pictures beside the usual layout (1 run)
#   --size-mb N       size of the usual layout (default 1536); --clip-mb, --faces scale the large profile
#   --client PATH     the HxClient to time (default build/bin/HxClient, built when missing or stale)
#   --no-phases       skip the phase profile of one more backup at the end
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
profile=default
size_mb=1536
clip_mb=""
faces=""
runs=""
client=""
work="$here/build-bench"
phases=1
while [ $# -gt 0 ]; do
    case "$1" in
        --profile) profile="$2"; shift 2 ;;
        --size-mb) size_mb="$2"; shift 2 ;;
        --clip-mb) clip_mb="$2"; shift 2 ;;
        --faces) faces="$2"; shift 2 ;;
        --runs) runs="$2"; shift 2 ;;
        --client) client="$2"; shift 2 ;;
        --work) work="$2"; shift 2 ;;
        --no-phases) phases=0; shift ;;
        -h|--help) sed -n '2,9p' "$0"; exit 0 ;;
        *) echo "unknown option: $1" >&2; exit 2 ;;
    esac
done
case "$profile" in
    default) runs="${runs:-3}" ;;
    large) runs="${runs:-1}" ;;
    *) echo "unknown profile: $profile" >&2; exit 2 ;;
esac

need=()
for pkg in time zstd borgbackup restic python3; do
    dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || need+=("$pkg")
done
if [ "${#need[@]}" -gt 0 ]; then
    sudo_cmd=""; [ "$(id -u)" -eq 0 ] || sudo_cmd="sudo"
    $sudo_cmd apt-get update -q && DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -q "${need[@]}"
fi
if [ -z "$client" ]; then
    bash "$here/scripts/setup.sh" "$here/build" >/dev/null
    client="$here/build/bin/HxClient"
fi
client="$(realpath "$client")"
[ -x "$client" ] || { echo "no HxClient at $client" >&2; exit 2; }

gen_args=(--profile "$profile" --size-mb "$size_mb")
[ -z "$clip_mb" ] || gen_args+=(--clip-mb "$clip_mb")
[ -z "$faces" ] || gen_args+=(--faces "$faces")
mkdir -p "$work"
src="$work/src"
manifest="$work/src.manifest"
out="$work/out"
logs="$work/logs"

# The source is kept between invocations while its parameters match and no failed restore damaged it.
src_valid=0
[ -f "$src/.params" ] && [ "$(cat "$src/.params")" = "${gen_args[*]}" ] && [ -f "$manifest" ] && src_valid=1

# Free space: the source when it must be made, then at most three copies of it at once (HxClient's
# staging copy and archive, or its archive and unpack folder beside the restored data) plus the 5 GiB
# HxClient keeps free.
rm -rf "$out" "$logs"
[ "$src_valid" = 1 ] || rm -rf "$src" "$manifest"
data_bytes=$(python3 "$here/bench/make_data.py" --estimate "${gen_args[@]}")
needed=$(( (4 - src_valid) * data_bytes + (5 << 30) ))
avail=$(df -B1 --output=avail "$work" | tail -1)
if [ "$avail" -lt "$needed" ]; then
    echo "too little free space in $work: $((avail >> 30)) GiB, the run needs about $((needed >> 30)) GiB" >&2
    exit 1
fi

mkdir -p "$logs"

if [ "$src_valid" = 0 ]; then
    echo "== generating about $((data_bytes >> 20)) MiB of client data in $src (${gen_args[*]})"
    python3 "$here/bench/make_data.py" "$src" "${gen_args[@]}" >/dev/null
fi
# Left from an interrupted run: the restored database would be taken up at the next start.
rm -f "$src"/data/Db/*_backup.db "$src"/data/Db/*.pre-restore-*
# What must come back byte for byte: everything HxClient backs up except its own settings file
# (HxParam.json, rewritten by every run) and the database (checked table by table instead).
checked=(data/FacePicture data/ElectronicMap user/Downloads user/Pictures)
while IFS= read -r f; do checked+=("$f"); done < <(cd "$src" && ls -d data/*.json data/*.ini | grep -v '^data/HxParam.json$')
if [ "$src_valid" = 0 ]; then
    python3 "$here/bench/tree_check.py" manifest "$src" "${checked[@]}" > "$manifest"
    printf '%s' "${gen_args[*]}" > "$src/.params"
fi

# The folders and files HxClient backs up, for the other tools; HxParam.json appears after the first run.
export HX_DATA_PATH="$src/data"
"$client" settings >/dev/null
items=()
while IFS= read -r f; do items+=("$f"); done < <(cd "$src" && ls -d data/Db data/FacePicture data/ElectronicMap \
    data/*.json data/*.ini user/Downloads user/Pictures)
input_bytes=$(cd "$src" && du -scb "${items[@]}" | tail -1 | cut -f1)
input_files=$(cd "$src" && find "${items[@]}" -type f | wc -l)
largest_bytes=$(cd "$src" && find "${items[@]}" -type f -printf '%s\n' | sort -n | tail -1)

safety=()
"$client" recover --help 2>&1 | grep -q -- '--no-safety-copy' && safety=(--no-safety-copy)

results="$work/results.tsv"
: > "$results"
failed=0
record() { printf '%s\t%s\t%s\t%s\n' "$@" >> "$results"; }

# measure NAME DIR COMMAND...: runs COMMAND in DIR under GNU time and records its wall seconds and peak
# resident kB (for a pipeline, of its largest process). The writes are flushed untimed afterwards, so that
# no tool pays for the one before it.
measure() {
    local name="$1" dir="$2"; shift 2
    local log="$logs/$name.time"
    if ! (cd "$dir" && /usr/bin/time -v -o "$log" "$@" >"$logs/$name.out" 2>"$logs/$name.err"); then
        echo "   $name failed; last lines of $logs/$name.err and .out:" >&2
        tail -n 3 "$logs/$name.err" "$logs/$name.out" >&2
        record "$name" fail fail 0
        failed=1
        sync
        return 1
    fi
    sync
    local wall rss
    wall=$(awk -F': ' '/Elapsed \(wall clock\)/ {n = split($2, p, ":"); s = 0; for (i = 1; i <= n; i++) s = s * 60 + p[i]; print s}' "$log")
    rss=$(awk -F': ' '/Maximum resident set size/ {print $2}' "$log")
    record "$name" "$wall" "$rss" 0
    printf '   %-15s %8.2f s %8d MiB\n' "$name" "$wall" $((rss / 1024))
}
size_record() { record "$1" 0 0 "$(du -sb "$2" | cut -f1)"; }
file_bytes() { (cd "$1" && find "${@:2}" -type f -printf '%s\n' | awk '{s += $1} END {print s + 0}'); }

# complete NAME DIR: the other tools' results are not verified byte for byte, but one that left files out
# must not pass as fast.
complete() {
    local got
    got=$(file_bytes "$2" .)
    [ "$got" = "$expected_bytes" ] && return 0
    echo "   $1 wrote $got bytes of files, the source has $expected_bytes" >&2
    record "$1" fail fail 0
    failed=1
}

# Each HxClient restore must bring back what the backup took: the checked files are removed first, so
# that a restore that writes nothing cannot pass.
run_hxclient() {
    mkdir -p "$out/hx"
    measure hx_backup "$out" "$client" backup "$out/hx" || return 0
    local archive
    archive=$(ls -t "$out"/hx/BackUp_*.zip | head -1)
    size_record hx_size "$archive"
    rm -f "$src/.params"
    (cd "$src" && rm -rf "${checked[@]}")
    if measure hx_restore "$out" "$client" recover --yes "${safety[@]}" "$archive"; then
        if python3 "$here/bench/tree_check.py" verify "$src" "$manifest" > "$logs/verify.out" &&
           python3 "$here/bench/tree_check.py" db "$src/data/Db/Orvella.db" "$src/data/Db/Orvella_backup.db" \
               --skip tab_operate_log --skip sqlite_sequence >> "$logs/verify.out"; then
            echo "   restored and identical: $(paste -sd ';' "$logs/verify.out")"
            printf '%s' "${gen_args[*]}" > "$src/.params"
        else
            echo "   the restored data differs from the backed-up data (see above); stopping" >&2
            failed=1
        fi
    fi
    rm -f "$src"/data/Db/*_backup.db "$src"/data/Db/*.pre-restore-*
    rm -rf "$out"
    # Without a complete source the other tools would measure something else.
    [ -f "$src/.params" ] || { echo "   the source data is incomplete; it is generated anew next time" >&2; return 1; }
}

run_tar_zstd() {
    mkdir -p "$out/x"
    measure tar_backup "$src" bash -c 'set -o pipefail; tar cf - "${@:2}" | zstd -q -T2 -3 -o "$1"' \
        bash "$out/bench.tar.zst" "${items[@]}" &&
    size_record tar_size "$out/bench.tar.zst" &&
    measure tar_restore "$out/x" bash -c 'set -o pipefail; zstd -dcq "$1" | tar xf -' bash "$out/bench.tar.zst" &&
    complete tar_restore "$out/x" || true
    rm -rf "$out"
}

run_borg() {
    mkdir -p "$out/x"
    export BORG_BASE_DIR="$out/borg-home" BORG_UNKNOWN_UNENCRYPTED_REPO_ACCESS_IS_OK=yes
    borg init --encryption none "$out/borg" >/dev/null
    measure borg_backup "$src" borg create --compression lz4 "$out/borg::bench" "${items[@]}" &&
    size_record borg_size "$out/borg" &&
    measure borg_restore "$out/x" borg extract "$out/borg::bench" &&
    complete borg_restore "$out/x" || true
    rm -rf "$out"
}

run_restic() {
    mkdir -p "$out/x"
    export RESTIC_PASSWORD=bench RESTIC_CACHE_DIR="$out/restic-cache"
    restic init -q --repository-version 2 -r "$out/restic" >/dev/null
    measure restic_backup "$src" restic -q -r "$out/restic" backup "${items[@]}" &&
    size_record restic_size "$out/restic" &&
    measure restic_restore "$out" restic -q -r "$out/restic" restore latest --target "$out/x" &&
    complete restic_restore "$out/x" || true
    rm -rf "$out"
}

run_cp() {
    mkdir -p "$out/cp"
    measure cp_copy "$src" cp -r --parents "${items[@]}" "$out/cp" && complete cp_copy "$out/cp" || true
    rm -rf "$out"
}

echo "== client $client"
echo "== input: $input_files files, $((input_bytes >> 20)) MiB; $runs run(s); warming the page cache"
(cd "$src" && tar cf - "${items[@]}" | cat >/dev/null)
for run in $(seq 1 "$runs"); do
    echo "== run $run of $runs"
    rm -rf "$out"
    run_hxclient || break
    expected_bytes=$(file_bytes "$src" "${items[@]}")
    run_tar_zstd
    run_borg
    run_restic
    run_cp
done

python3 - "$results" "$input_bytes" "$input_files" "$largest_bytes" "$runs" <<'PY'
import statistics, sys
rows = [line.rstrip("\n").split("\t") for line in open(sys.argv[1]) if line.strip()]
MiB = 1024 * 1024
input_bytes, files, largest, runs = (int(a) for a in sys.argv[2:6])

def median(name, column):
    values = [r[column] for r in rows if r[0] == name]
    if not values:
        return None
    if "fail" in values:
        return "fail"
    return statistics.median(float(v) for v in values)

def text(value, scale=1.0, digits=2):
    if value is None:
        return "-"
    if value == "fail":
        return "failed"
    return f"{value / scale:.{digits}f}"

print(f"\ninput: {files} files, {input_bytes / MiB:.0f} MiB, largest file {largest / MiB:.0f} MiB; "
      f"medians of {runs} run(s); page cache warm, writes flushed between steps (untimed)\n")
print("| tool | backup s | backup MiB/s | backup peak RSS MiB | restore s | restore peak RSS MiB | archive/repo MiB |")
print("|---|---|---|---|---|---|---|")
for key, label in [("hx", "HxClient backup / recover"), ("tar", "tar \\| zstd -q -T2 -3"),
                   ("borg", "borg create / extract (lz4)"), ("restic", "restic backup / restore (auto)"),
                   ("cp", "cp -r (one copy, the floor)")]:
    b = median(f"{key}_backup" if key != "cp" else "cp_copy", 1)
    rate = input_bytes / MiB / b if isinstance(b, float) and b > 0 else None
    print(f"| {label} | {text(b)} | {text(rate, digits=0)} | "
          f"{text(median(f'{key}_backup' if key != 'cp' else 'cp_copy', 2), 1024, 0)} | "
          f"{text(median(f'{key}_restore', 1))} | {text(median(f'{key}_restore', 2), 1024, 0)} | "
          f"{text(median(f'{key}_size', 3), MiB, 0)} |")

def ratio(a, b):
    x, y = median(a, 1), median(b, 1)
    return x / y if isinstance(x, float) and isinstance(y, float) and y > 0 else None

def verdict(value, goal):
    return "-" if value is None else ("met" if value <= goal else "missed")

print("\n| goal | measured | target | |")
print("|---|---|---|---|")
r = ratio("hx_backup", "tar_backup")
print(f"| HxClient backup / tar \\| zstd backup | {text(r)} | ≤ 1.2 | {verdict(r, 1.2)} |")
r = ratio("hx_restore", "borg_restore")
print(f"| HxClient restore / borg extract | {text(r)} | ≤ 1.0 | {verdict(r, 1.0)} |")
for step in ("backup", "restore"):
    m = median(f"hx_{step}", 2)
    mib = m / 1024 if isinstance(m, float) else None
    print(f"| HxClient {step} peak RSS MiB | {text(mib, digits=0)} | ≤ 128 | {verdict(mib, 128)} |")
PY

if [ "$phases" = 1 ] && [ -f "$src/.params" ]; then
    echo
    echo "== where one backup spends its time"
    mkdir -p "$out/hx"
    python3 "$here/bench/profile_backup.py" "$client" "$out/hx" || failed=1
    rm -rf "$out"
fi
echo "== logs of every step in $logs"
exit "$failed"
