#!/usr/bin/env python3
"""Generates a client data folder for the backup benchmark.

Random bytes stand in for pictures and video (they do not compress, like the real ones); the database and
the configuration files are text-like and compress well. Every random file is distinct data from the
kernel's generator: a repeated block would let the deduplicating tools (borg, restic) skip it.

Profiles:
  default  about --size-mb of the usual layout (database 20 %, face pictures of ~100 KiB 35 %, three videos
           30 %, pictures 10 %, maps and configuration files).
  large    the usual layout of --size-mb without its face share, plus 70,000 face pictures of ~16 KiB and a
           4.5 GiB clip in the download folder: about 6.5 GiB at the default size.
--faces, --face-kb and --clip-mb override the profile's numbers (to try the large layout on a small scale).
"""
import argparse
import os
import random
import sqlite3

KB = 1024
MB = 1024 * KB
BLOCK = 16 * MB

PROFILES = {
    "default": {"faces": None, "face_kb": 100, "clip_mb": 0},
    "large": {"faces": 70000, "face_kb": 16, "clip_mb": 4608},
}


def write_random(path, size):
    with open(path, "wb") as f:
        left = size
        while left > 0:
            chunk = min(left, BLOCK)
            f.write(os.urandom(chunk))
            left -= chunk


def make_database(path, size, user_folders, rng):
    if os.path.exists(path):
        os.remove(path)
    db = sqlite3.connect(path)
    db.execute("CREATE TABLE tab_config_user_personaladmin (s_main_type TEXT, s_sub_type TEXT, s_value TEXT)")
    db.executemany("INSERT INTO tab_config_user_personaladmin VALUES ('MAINTYPE_SYSCONFIG', ?, ?)",
                   [("downpath", user_folders[0]), ("picturePath", user_folders[1])])
    db.execute("CREATE TABLE tab_record (id INTEGER PRIMARY KEY, channel TEXT, started TEXT, note TEXT)")
    words = ["camera", "door", "alarm", "motion", "entrance", "parking", "lobby", "stair", "north", "south"]
    row_bytes = 400
    rows = max(1, size // row_bytes)
    batch = []
    for i in range(rows):
        note = " ".join(rng.choice(words) for _ in range(40))
        batch.append((i, "ch-%04d" % (i % 512), "2026-%02d-%02d %02d:%02d:00" % (
            1 + i % 12, 1 + i % 28, i % 24, i % 60), note))
        if len(batch) == 5000:
            db.executemany("INSERT INTO tab_record VALUES (?, ?, ?, ?)", batch)
            batch.clear()
    if batch:
        db.executemany("INSERT INTO tab_record VALUES (?, ?, ?, ?)", batch)
    db.commit()
    db.close()


def plan(args):
    """The byte counts of each part of the layout, from the size, the profile and the overrides."""
    profile = PROFILES[args.profile]
    total = args.size_mb * MB
    face_kb = args.face_kb if args.face_kb is not None else profile["face_kb"]
    faces = args.faces if args.faces is not None else profile["faces"]
    if faces is None:
        faces = max(1, total * 35 // 100 // (face_kb * KB))
    return {
        "database": total * 20 // 100,
        "faces": faces,
        "face_bytes": face_kb * KB,
        "video_bytes": total * 30 // 100 // 3,
        "pictures": max(1, total * 10 // 100 // (200 * KB)),
        "clip_bytes": (args.clip_mb if args.clip_mb is not None else profile["clip_mb"]) * MB,
    }


def estimated_bytes(p):
    return (p["database"] + p["faces"] * p["face_bytes"] + 3 * p["video_bytes"] + p["pictures"] * 200 * KB
            + p["clip_bytes"] + 40 * 256 * KB + 300 * 3 * KB)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("root", nargs="?", help="folder to create; the data folder is ROOT/data")
    parser.add_argument("--profile", choices=sorted(PROFILES), default="default")
    parser.add_argument("--size-mb", type=int, default=1536, help="size of the usual layout (default 1536)")
    parser.add_argument("--faces", type=int, help="number of face pictures")
    parser.add_argument("--face-kb", type=int, help="mean size of a face picture in KiB (each within 10 %%)")
    parser.add_argument("--clip-mb", type=int, help="size of the one large clip in the download folder, MiB")
    parser.add_argument("--estimate", action="store_true", help="print the bytes it would write and stop")
    parser.add_argument("--seed", type=int, default=7, help="seed of the sizes and the database text")
    args = parser.parse_args()
    p = plan(args)
    if args.estimate:
        print(estimated_bytes(p))
        return
    if not args.root:
        parser.error("ROOT is needed")

    rng = random.Random(args.seed)
    data = os.path.join(args.root, "data")
    downloads = os.path.join(args.root, "user", "Downloads")
    pictures = os.path.join(args.root, "user", "Pictures")
    for folder in (os.path.join(data, "Db"), os.path.join(data, "FacePicture"),
                   os.path.join(data, "ElectronicMap"), downloads, pictures):
        os.makedirs(folder, exist_ok=True)

    make_database(os.path.join(data, "Db", "Orvella.db"), p["database"], (downloads, pictures), rng)
    for i in range(300):
        with open(os.path.join(data, "config_%03d.%s" % (i, "json" if i % 2 else "ini")), "w") as f:
            f.write(("{\"key_%d\": \"value %d\"}\n" % (i, i)) * 120)
    spread = p["face_bytes"] // 5
    for i in range(p["faces"]):
        write_random(os.path.join(data, "FacePicture", "face_%05d.jpg" % i),
                     p["face_bytes"] - spread // 2 + rng.randrange(spread))
    for i in range(40):
        write_random(os.path.join(data, "ElectronicMap", "map_%02d.png" % i), 256 * KB)
    for i in range(3):
        write_random(os.path.join(downloads, "record_%d.mp4" % i), p["video_bytes"])
    if p["clip_bytes"]:
        write_random(os.path.join(downloads, "clip_large.mp4"), p["clip_bytes"])
    for i in range(p["pictures"]):
        write_random(os.path.join(pictures, "snapshot_%04d.jpg" % i), 200 * KB)
    print(data)


if __name__ == "__main__":
    main()
