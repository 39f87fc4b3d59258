#!/usr/bin/env python3
"""Runs `lumenar effects` and `lumenar effect` as a user would and checks what they write.

usage: effect_cli.py LUMENAR WORKDIR
"""
import os
import struct
import subprocess
import sys


def write_bmp(path, width, height, pixel):
    """A 24-bit bottom-up BMP; pixel(x, row_from_bottom) gives (b, g, r)."""
    row_bytes = (width * 3 + 3) // 4 * 4
    data = bytearray()
    for row in range(height):
        line = bytearray()
        for x in range(width):
            line += bytes(pixel(x, row))
        data += line + bytes(row_bytes - len(line))
    header = b"BM" + struct.pack("<IHHI", 54 + len(data), 0, 0, 54)
    header += struct.pack("<IiiHHIIiiII", 40, width, height, 1, 24, 0, len(data), 0, 0, 0, 0)
    with open(path, "wb") as out:
        out.write(header + data)


def read_bmp32(path):
    with open(path, "rb") as f:
        data = f.read()
    width, height = struct.unpack_from("<ii", data, 18)
    assert struct.unpack_from("<H", data, 28)[0] == 32
    offset = struct.unpack_from("<I", data, 10)[0]
    return width, height, lambda x, row: tuple(data[offset + (row * width + x) * 4: offset + (row * width + x) * 4 + 3])


def run(args, expect_ok=True):
    result = subprocess.run(args, capture_output=True, text=True)
    if expect_ok and result.returncode != 0:
        sys.exit("failed: %s\n%s" % (" ".join(args), result.stderr))
    return result


def main():
    lumenar, work = sys.argv[1], sys.argv[2]
    os.makedirs(work, exist_ok=True)

    listing = run([lumenar, "effects"]).stdout.splitlines()
    assert len(listing) == 99 + 54, len(listing)
    columns = [line.split("\t") for line in listing]
    assert all(len(c) == 8 for c in columns)
    assert columns[52] == ["picture", "52", "Push", "0x04", "1", "1", "Push right", "built"], columns[52]
    assert columns[99][:2] == ["text", "0"] and columns[99 + 53][6] == "Random"
    assert all(c[7] == "built" for c in columns)

    a, b = os.path.join(work, "a.bmp"), os.path.join(work, "b.bmp")
    write_bmp(a, 100, 4, lambda x, row: (x, row, 10))
    write_bmp(b, 100, 4, lambda x, row: (x, row, 20))
    out = os.path.join(work, "push.bmp")
    # Push from the left at 10 %: output columns 0-9 are target columns 90-99, the rest source 0-89.
    run([lumenar, "effect", "--picture", "52", "--from", a, "--to", b, "--progress", "10/100", "-o", out])
    width, height, pixel = read_bmp32(out)
    assert (width, height) == (100, 4)
    assert pixel(0, 1) == (90, 1, 20) and pixel(9, 3) == (99, 3, 20), (pixel(0, 1), pixel(9, 3))
    assert pixel(10, 0) == (0, 0, 10) and pixel(99, 2) == (89, 2, 10)

    # The random row and the tile dissolve are reproducible with a seed.
    frames = []
    for _ in range(2):
        for row in ("98", "36"):
            path = os.path.join(work, "seeded-%s-%d.png" % (row, len(frames)))
            run([lumenar, "effect", "--picture", row, "--seed", "7", "--from", a, "--to", b,
                 "--progress", "1/3", "-o", path])
            with open(path, "rb") as f:
                frames.append(f.read())
    assert frames[0] == frames[2] and frames[1] == frames[3]

    # A JPEG photo goes through the player's own decoder (cjpeg makes one from the same picture).
    ppm, jpg = os.path.join(work, "a.ppm"), os.path.join(work, "a.jpg")
    with open(ppm, "wb") as f:
        f.write(b"P6\n100 4\n255\n" + bytes(v for row in range(3, -1, -1) for x in range(100) for v in (10, row, x)))
    with open(jpg, "wb") as f:
        subprocess.run(["cjpeg", "-quality", "100", "-sample", "1x1", ppm], stdout=f, check=True)
    cut = os.path.join(work, "cut.bmp")
    run([lumenar, "effect", "--picture", "39", "--from", jpg, "--to", b, "--progress", "0/100", "-o", cut])
    _, _, pixel = read_bmp32(cut)
    for x, row in ((0, 0), (50, 2), (99, 3)):
        got, want = pixel(x, row), (x, row, 10)
        assert all(abs(g - w) <= 12 for g, w in zip(got, want)), (x, row, got)

    for bad in (["--picture", "x"], ["--picture", "1", "--from", a, "--to", b, "--progress", "3/2", "-o", out],
                ["--picture", "1", "--from", "/nonexistent.png", "--to", b, "--progress", "1/2", "-o", out]):
        result = run([lumenar, "effect"] + bad, expect_ok=False)
        assert result.returncode != 0 and result.stderr.count("\n") == 1, (bad, result.stderr)
    print("lumenar effects lists 153 rows; lumenar effect renders Push and seeded random frames as expected")


if __name__ == "__main__":
    main()
