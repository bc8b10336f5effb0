#!/usr/bin/env python3
"""Generates a client data folder for the backup benchmark.

Random bytes stand in for pictures and video (they do not compress, like the real ones); the database and
the configuration files are text-like and compress well.
"""
import argparse
import os
import random
import sqlite3

MB = 1024 * 1024


def write_random(path, size, rng):
    with open(path, "wb") as f:
        left = size
        while left > 0:
            chunk = min(left, 4 * MB)
            f.write(rng.randbytes(chunk))
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


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("root", help="folder to create; the data folder is ROOT/data")
    parser.add_argument("--size-mb", type=int, default=1536, help="approximate total size (default 1536)")
    parser.add_argument("--seed", type=int, default=7)
    args = parser.parse_args()

    rng = random.Random(args.seed)
    total = args.size_mb * MB
    data = os.path.join(args.root, "data")
    downloads = os.path.join(args.root, "user", "Downloads")
    pictures = os.path.join(args.root, "user", "Pictures")
    for folder in (os.path.join(data, "Db"), os.path.join(data, "FacePicture"),
                   os.path.join(data, "ElectronicMap"), downloads, pictures):
        os.makedirs(folder, exist_ok=True)

    # Shares of the total: database 20 %, face pictures 35 %, videos 30 %, pictures 10 %, the rest small.
    make_database(os.path.join(data, "Db", "Orvella.db"), total * 20 // 100, (downloads, pictures), rng)
    for i in range(300):
        with open(os.path.join(data, "config_%03d.%s" % (i, "json" if i % 2 else "ini")), "w") as f:
            f.write(("{\"key_%d\": \"value %d\"}\n" % (i, i)) * 120)
    face_count = max(1, total * 35 // 100 // (100 * 1024))
    for i in range(face_count):
        write_random(os.path.join(data, "FacePicture", "face_%05d.jpg" % i), 90 * 1024 + rng.randrange(20 * 1024), rng)
    for i in range(40):
        write_random(os.path.join(data, "ElectronicMap", "map_%02d.png" % i), 256 * 1024, rng)
    video_size = total * 30 // 100 // 3
    for i in range(3):
        write_random(os.path.join(downloads, "record_%d.mp4" % i), video_size, rng)
    picture_count = max(1, total * 10 // 100 // (200 * 1024))
    for i in range(picture_count):
        write_random(os.path.join(pictures, "snapshot_%04d.jpg" % i), 200 * 1024, rng)
    print(data)


if __name__ == "__main__":
    main()
