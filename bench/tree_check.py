#!/usr/bin/env python3
"""Checks that a restore brought every byte back.

  tree_check.py manifest ROOT PATH... > LIST   SHA-256, size and name of every file under ROOT/PATH...
  tree_check.py verify ROOT LIST               the same files are there again, and no others beside them
  tree_check.py db LIVE RESTORED [--skip T]    the restored database holds the same rows in every table
"""
import argparse
import concurrent.futures
import hashlib
import os
import sqlite3
import sys


def digest(path):
    with open(path, "rb") as f:
        return hashlib.file_digest(f, "sha256").hexdigest()


def files_under(root, paths):
    for path in paths:
        full = os.path.join(root, path)
        if os.path.isfile(full):
            yield path
            continue
        for folder, _, names in os.walk(full):
            for name in names:
                yield os.path.relpath(os.path.join(folder, name), root)


def hashed(root, names):
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count() or 2) as pool:
        return dict(zip(names, pool.map(lambda n: digest(os.path.join(root, n)), names)))


def manifest(args):
    names = sorted(files_under(args.root, args.paths))
    digests = hashed(args.root, names)
    print("\t".join(["#paths"] + args.paths))
    for name in names:
        print(f"{digests[name]}\t{os.path.getsize(os.path.join(args.root, name))}\t{name}")


def verify(args):
    expected = {}
    with open(args.list) as f:
        paths = f.readline().rstrip("\n").split("\t")[1:]
        for line in f:
            sha, size, name = line.rstrip("\n").split("\t", 2)
            expected[name] = (sha, int(size))
    present = set(files_under(args.root, paths))
    missing = sorted(set(expected) - present)
    extra = sorted(present - set(expected))
    common = sorted(set(expected) & present)
    digests = hashed(args.root, common)
    differ = [n for n in common if digests[n] != expected[n][0]]
    for label, names in (("missing", missing), ("extra", extra), ("different", differ)):
        for name in names[:10]:
            print(f"{label}: {name}", file=sys.stderr)
        if len(names) > 10:
            print(f"... and {len(names) - 10} more {label}", file=sys.stderr)
    if missing or extra or differ:
        sys.exit(f"{len(missing)} missing, {len(extra)} extra, {len(differ)} different of {len(expected)} files")
    print(f"{len(expected)} files, {sum(s for _, s in expected.values())} bytes identical")


def table_digests(path, skip):
    db = sqlite3.connect(f"file:{path}?mode=ro", uri=True)
    try:
        if db.execute("PRAGMA integrity_check").fetchone()[0] != "ok":
            sys.exit(f"{path}: integrity check failed")
        tables = [r[0] for r in db.execute("SELECT name FROM sqlite_master WHERE type = 'table'")
                  if r[0] not in skip]
        result = {}
        for table in tables:
            h = hashlib.sha256()
            rows = 0
            for row in db.execute(f'SELECT * FROM "{table}" ORDER BY rowid'):
                h.update(repr(row).encode())
                rows += 1
            result[table] = (rows, h.hexdigest())
        return result
    finally:
        db.close()


def compare_db(args):
    live = table_digests(args.live, set(args.skip))
    restored = table_digests(args.restored, set(args.skip))
    if live != restored:
        differ = sorted(t for t in set(live) | set(restored) if live.get(t) != restored.get(t))
        sys.exit(f"database tables differ: {', '.join(differ)}")
    print(f"{len(live)} tables, {sum(r for r, _ in live.values())} rows identical")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    commands = parser.add_subparsers(dest="command", required=True)
    p = commands.add_parser("manifest")
    p.add_argument("root")
    p.add_argument("paths", nargs="+")
    p.set_defaults(run=manifest)
    p = commands.add_parser("verify")
    p.add_argument("root")
    p.add_argument("list")
    p.set_defaults(run=verify)
    p = commands.add_parser("db")
    p.add_argument("live")
    p.add_argument("restored")
    p.add_argument("--skip", action="append", default=[], help="a table left out (may repeat)")
    p.set_defaults(run=compare_db)
    args = parser.parse_args()
    args.run(args)


if __name__ == "__main__":
    main()
