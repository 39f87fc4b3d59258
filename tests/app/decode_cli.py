#!/usr/bin/env python3
"""Runs `lumenar decode` as a user would: the three picture files it writes must hold the same pixels.

usage: decode_cli.py LUMENAR WORKDIR
"""
import os
import struct
import subprocess
import sys


def run(args, expect=0):
    result = subprocess.run(args, capture_output=True)
    if result.returncode != expect:
        sys.exit("exit %d, not %d: %s\n%s" % (result.returncode, expect, " ".join(args), result.stderr.decode()))
    return result


def bmp_rgb_rows(path):
    """The 32-bit picture block, as RGB rows from the top."""
    with open(path, "rb") as f:
        data = f.read()
    assert data[:2] == b"BM" and struct.unpack_from("<I", data, 2)[0] == len(data)
    width, height = struct.unpack_from("<ii", data, 18)
    assert struct.unpack_from("<H", data, 28)[0] == 32
    offset = struct.unpack_from("<I", data, 10)[0]
    rows = []
    for row in range(height - 1, -1, -1):
        line = data[offset + row * width * 4: offset + (row + 1) * width * 4]
        assert all(line[x * 4 + 3] == 0 for x in range(width))
        rows.append(b"".join(bytes((line[x * 4 + 2], line[x * 4 + 1], line[x * 4])) for x in range(width)))
    return width, height, b"".join(rows)


def ppm_rgb(data):
    # Header: P6, width, height, maximum, each followed by one blank.
    fields, pos = [], 0
    while len(fields) < 4:
        end = pos
        while data[end:end + 1] not in (b" ", b"\n", b"\t", b"\r"):
            end += 1
        if end > pos:
            fields.append(data[pos:end])
        pos = end + 1
    assert fields[0] == b"P6" and fields[3] == b"255", fields
    return int(fields[1]), int(fields[2]), data[pos:]


def main():
    lumenar, work = sys.argv[1], sys.argv[2]
    os.makedirs(work, exist_ok=True)
    ppm_in = os.path.join(work, "drawn.ppm")
    photo = os.path.join(work, "photo.jpg")
    run(["convert", "-size", "37x21", "-seed", "4", "plasma:fractal", "-depth", "8", "ppm:" + ppm_in])
    run(["cjpeg", "-quality", "90", "-sample", "2x2,1x1,1x1", "-outfile", photo, ppm_in])

    outputs = {ext: os.path.join(work, "out." + ext) for ext in ("bmp", "png", "ppm")}
    for path in outputs.values():
        run([lumenar, "decode", photo, "-o", path])
    expected = bmp_rgb_rows(outputs["bmp"])
    assert expected[:2] == (37, 21), expected[:2]
    with open(outputs["ppm"], "rb") as f:
        assert ppm_rgb(f.read()) == expected, "the PPM differs from the picture block"
    # The PNG is read back by ImageMagick, which knows nothing of our writer.
    png_back = run(["convert", outputs["png"], "-depth", "8", "ppm:-"]).stdout
    assert ppm_rgb(png_back) == expected, "the PNG differs from the picture block"

    # The portable path writes a picture too, within a few levels of the fast one.
    portable = os.path.join(work, "portable.bmp")
    run([lumenar, "decode", photo, "-o", portable, "--portable"])
    other = bmp_rgb_rows(portable)[2]
    assert max(abs(a - b) for a, b in zip(other, expected[2])) <= 16

    # Bad input: one line on stderr, exit status 2.
    for args, needle in (([photo, "-o", os.path.join(work, "x.gif")], "unknown picture format"),
                         ([os.path.join(work, "missing.jpg"), "-o", outputs["bmp"]], "missing.jpg"),
                         ([ppm_in, "-o", outputs["png"]], "not a photo"),
                         ([photo, "-o", os.path.join(work, "no-such-dir", "x.png")], "no-such-dir")):
        result = run([lumenar, "decode"] + args, expect=2)
        lines = result.stderr.decode().splitlines()
        assert len(lines) == 1 and lines[0].startswith("lumenar: ") and needle in lines[0], lines
    assert b"usage: lumenar decode" in run([lumenar, "decode", "--help"]).stdout
    print("decode command: ok")


if __name__ == "__main__":
    main()
