#!/usr/bin/env python3
"""Runs one `HxClient backup` and splits its wall time into the phases its progress reports mark.

Usage: profile_backup.py HXCLIENT SAVE_DIR

The run reports 0 at its start, up to 40 while copying the sources into the staging folder, up to 49
while preparing the database copies, and 49 + half the packing percentage while packing. What follows the
last report is the check of the new archive, the removal of the staging folder and the program's exit.
"""
import re
import subprocess
import sys
import time


def main():
    client, save_dir = sys.argv[1], sys.argv[2]
    started = time.monotonic()
    process = subprocess.Popen([client, "backup", save_dir], stdout=subprocess.PIPE, text=True)
    marks = []  # (seconds since start, rate)
    for line in process.stdout:
        match = re.search(r"\]\s+(\d+)%", line)
        if match:
            marks.append((time.monotonic() - started, int(match.group(1))))
    process.wait()
    ended = time.monotonic() - started
    if process.returncode != 0 or not marks:
        sys.exit(f"backup failed (exit {process.returncode})")

    def first_at_least(rate):
        return next((t for t, r in marks if r >= rate), marks[-1][0])

    first = marks[0][0]
    staged = first_at_least(40)
    prepared = first_at_least(49)
    packed = marks[-1][0]
    phases = [
        ("start-up, settings, source set", first),
        ("copy to the staging folder", staged - first),
        ("database copies prepared", prepared - staged),
        ("packing (listing, reading, deflating, writing)", packed - prepared),
        ("archive check, staging removed, exit", ended - packed),
    ]
    print("| phase | seconds | share |")
    print("|---|---|---|")
    for name, seconds in phases:
        print(f"| {name} | {seconds:.2f} | {100 * seconds / ended:.0f} % |")
    print(f"| total | {ended:.2f} | |")


if __name__ == "__main__":
    main()
