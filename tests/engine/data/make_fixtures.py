#!/usr/bin/env python3
"""Writes the hostile archives of this folder. Each is a small, hand-laid zip file; run from this folder."""
import random
import struct
import zlib


def entry(name, data, method=8, size=None, csize=None, crc=None):
    body = data
    if method == 8:
        packer = zlib.compressobj(9, zlib.DEFLATED, -15)
        body = packer.compress(data) + packer.flush()
    return {
        "name": name.encode(),
        "body": body,
        "method": method,
        "size": len(data) if size is None else size,
        "csize": len(body) if csize is None else csize,
        "crc": zlib.crc32(data) & 0xFFFFFFFF if crc is None else crc,
        "mode": 0o100644,
    }


def archive(entries, zip64=False):
    """zip64: every size and offset in zip64 fields, and the zip64 end records, as a writer does past 4 GiB."""
    local = b""
    central = b""
    for e in entries:
        offset = len(local)
        sizes = (e["csize"] & 0xFFFFFFFF, e["size"] & 0xFFFFFFFF)
        local_extra = b""
        central_extra = b""
        if zip64:
            sizes = (0xFFFFFFFF, 0xFFFFFFFF)
            local_extra = struct.pack("<HHQQ", 1, 16, e["size"], e["csize"])
            central_extra = struct.pack("<HHQQQ", 1, 24, e["size"], e["csize"], offset)
        local += struct.pack("<IHHHHHIIIHH", 0x04034B50, 45 if zip64 else 20, 0x800, e["method"], 0, 0x21,
                             e["crc"], sizes[0], sizes[1], len(e["name"]), len(local_extra))
        local += e["name"] + local_extra + e["body"]
        central += struct.pack("<IHHHHHHIIIHHHHHII", 0x02014B50, 0x0314, 45 if zip64 else 20, 0x800, e["method"],
                               0, 0x21, e["crc"], sizes[0], sizes[1], len(e["name"]), len(central_extra), 0, 0,
                               0, e["mode"] << 16, 0xFFFFFFFF if zip64 else offset)
        central += e["name"] + central_extra
    if not zip64:
        end = struct.pack("<IHHHHIIH", 0x06054B50, 0, 0, len(entries), len(entries), len(central), len(local), 0)
        return local + central + end
    return local + central + zip64_end(len(entries), len(central), len(local), len(local) + len(central))


def zip64_end(count, directory_size, directory_offset, at):
    end64 = struct.pack("<IQHHIIQQQQ", 0x06064B50, 44, 45, 45, 0, 0, count, count, directory_size,
                        directory_offset)
    locator = struct.pack("<IIQI", 0x07064B50, 0, at, 1)
    end = struct.pack("<IHHHHIIH", 0x06054B50, 0, 0, 0xFFFF, 0xFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0)
    return end64 + locator + end


def write(path, data):
    with open(path, "wb") as f:
        f.write(data)


text = b"client configuration\n" * 40

# Names that climb out of the unpack root, beside one that stays inside it.
write("zip_slip.zip", archive([
    entry("../slip_parent.txt", b"parent"),
    entry("/hx_zip_slip_abs/slip.txt", b"absolute"),
    entry("a/../../slip_climb.txt", b"climb"),
    entry("good/ok.txt", b"kept"),
]))

# A sound archive cut off in the middle of its second entry.
whole = archive([entry("Db/main_backup.db", text), entry("config.json", text * 3, method=0)])
write("truncated.zip", whole[: len(whole) // 2])

# One byte of a stored entry's data changed after the CRC was taken.
flipped = bytearray(archive([entry("config.json", text, method=0)]))
flipped[30 + len(b"config.json") + 100] ^= 0x01
write("flipped_byte.zip", bytes(flipped))

# A few hundred bytes whose directory claims 3 GiB once unpacked.
write("claims_3gib.zip", archive([entry("huge.bin", text, size=3 << 30)]))

# A compressed size of 3 GiB, on which Qt's reader loops for ever.
write("compressed_3gib.zip", archive([entry("huge.bin", text, csize=3 << 30)]))

# Deflated data that inflates to far more than the 1,000 bytes recorded for it.
write("inflates_past_size.zip", archive([entry("zeros.bin", b"\0" * 65536, size=1000)]))

# Deflated data of 3 MiB and one byte, recorded as 3 MiB: whole blocks are written before the last byte
# shows, behind an entry that is sound.
kept = entry("kept.txt", b"kept")
big = (text * ((3 << 20) // len(text) + 1))[: (3 << 20) + 1]
write("inflates_one_past.zip", archive([kept, entry("big.db", big, size=3 << 20)]))

# The same data recorded one byte longer than it inflates to.
write("inflates_one_short.zip", archive([kept, entry("big.db", big, size=len(big) + 1)]))

# A deflate stream cut short, with the compressed size cut to match.
cut = entry("c.bin", big)
cut["body"] = cut["body"][: len(cut["body"]) // 2]
cut["csize"] = len(cut["body"])
write("stream_cut_short.zip", archive([kept, cut]))

# Deflated data that inflates to its recorded size, with one bit of its recorded CRC-32 changed.
write("deflated_bad_crc.zip", archive([kept, entry("big.db", big, crc=(zlib.crc32(big) ^ 1) & 0xFFFFFFFF)]))

one = b"one"

# Two entries of one name: the reader finds the first one's data for both.
write("same_name_twice.zip", archive([entry("same.txt", one, method=0), entry("same.txt", b"two", method=0)]))

# A stored entry whose two sizes differ.
write("stored_two_sizes.zip", archive([entry("s.txt", one, method=0, size=2)]))

# A compression method the reader does not know.
write("unknown_method.zip", archive([entry("m.txt", one, method=12)]))

# A local header that names another method than the directory.
local_method = bytearray(archive([entry("l.txt", one, method=0)]))
local_method[8] = 8
write("local_method.zip", bytes(local_method))

# An end record whose comment would run past the end of the file.
comment = bytearray(archive([entry("c.txt", one, method=0)]))
comment[-2] = 5
write("comment_past_end.zip", bytes(comment))

# An archive without entries is an end record alone.
write("no_entries.zip", archive([]))

# Archives to mutate, plain and zip64: stored and deflated entries, nested, hidden, empty, and two names
# that climb out.
digits = "".join(str(random.Random(11).randrange(100)) for _ in range(4000)).encode()
contents = [entry("config.json", b'{"skin": "dark", "lang": "en"}'),
            entry("FacePicture/p.jpg", random.Random(7).randbytes(3000), method=0),
            entry("Db/main_backup.db", digits),
            entry(".hidden", b"h"),
            entry("empty.txt", b"", method=0),
            entry("../escape.txt", b"escape"),
            entry("x/../../climb.txt", b"climb")]
write("mutate_plain.zip", archive(contents))
write("mutate_zip64.zip", archive(contents, zip64=True))

# A zip64 end record that claims 2**40 entries: once with a directory as large as they need, once with the
# directory that is there.
sound = archive([entry("a.txt", text)], zip64=True)
body = sound[: sound.index(b"PK\x06\x06")]
directory_offset = body.index(b"PK\x01\x02")
write("zip64_2pow40_entries.zip", body + zip64_end(1 << 40, 46 << 40, directory_offset, len(body)))
write("zip64_2pow40_entries_small_directory.zip",
      body + zip64_end(1 << 40, len(body) - directory_offset, directory_offset, len(body)))

# A zip64 extra field that claims 2**50 bytes: deflated from a few hundred bytes, and stored.
write("zip64_2pow50_deflated.zip", archive([entry("huge.db", text, size=1 << 50)], zip64=True))
write("zip64_2pow50_stored.zip", archive([entry("huge.jpg", text, method=0, size=1 << 50, csize=1 << 50)],
                                         zip64=True))

# Offsets past the end of the file: an entry's local header, and the central directory.
past = bytearray(archive([entry("p.txt", text)]))
central = past.index(b"PK\x01\x02")
past[central + 42: central + 46] = struct.pack("<I", len(past) + 1000)
write("local_offset_past_end.zip", bytes(past))
past = bytearray(archive([entry("p.txt", text)]))
past[-6:-2] = struct.pack("<I", len(past) + 1000)
write("directory_offset_past_end.zip", bytes(past))

# A symbolic link entry followed by a file below it: unpacked, the link is a plain file and cannot lead out.
link = entry("link", b"../../../../../../../../..", method=0)
link["mode"] = 0o120777
write("through_link.zip", archive([link, entry("link/escaped.txt", b"escaped")]))

# No archive at all.
write("empty.zip", b"")
write("random.zip", random.Random(7).randbytes(4096))
