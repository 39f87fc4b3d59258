#!/usr/bin/env python3
"""Runs `lumenar caption` as a user would and checks the layout it prints and the ink it draws.

usage: caption_cli.py LUMENAR WORKDIR
"""
import json
import os
import subprocess
import sys

sys.path.insert(0, os.path.dirname(__file__))
from effect_cli import write_bmp, run  # noqa: E402

GREY = (100, 100, 100)


def read_ppm(path):
    with open(path, "rb") as f:
        data = f.read()
    parts = data.split(b"\n", 3)
    assert parts[0] == b"P6", parts[0]
    width, height = map(int, parts[1].split())
    pixels = parts[3]
    return width, height, lambda x, y: tuple(pixels[(y * width + x) * 3:(y * width + x) * 3 + 3])


def ink(path):
    """Box of changed pixels (top-down), and counts of shadow-dark and text-coloured pixels."""
    width, height, rgb = read_ppm(path)
    box, dark, coloured = [width, height, -1, -1], 0, 0
    for y in range(height):
        for x in range(width):
            p = rgb(x, y)
            if p == GREY:
                continue
            box = [min(box[0], x), min(box[1], y), max(box[2], x), max(box[3], y)]
            dark += all(c < 100 for c in p)
            coloured += p[0] > 200 and p[1] < 60 and p[2] < 60  # Red text (0x0000FF).
    return box, dark, coloured


def main():
    lumenar, work = sys.argv[1], sys.argv[2]
    os.makedirs(work, exist_ok=True)

    # Layout: two letters, an empty line, one letter; metrics and key order as outside checks read them.
    out = run([lumenar, "caption", "--glyphs", "--text", "AB\\r\\n\\r\\nC", "--face", "Liberation Sans"]).stdout
    assert out.startswith('{"extent":[') and out.endswith("]}\n"), out
    layout = json.loads(out)
    assert list(layout) == ["extent", "ascent", "descent", "height", "glyphs"], list(layout)
    g = layout["glyphs"]
    assert [x["code"] for x in g] == [65, 66, 67] and [x["line"] for x in g] == [0, 0, 1], g
    assert list(g[0]) == ["code", "line", "gx", "gy", "cw", "ch"], list(g[0])
    assert g[0]["gy"] == layout["ascent"] and g[1]["gx"] == g[0]["cw"]
    assert g[2]["gy"] == layout["ascent"] + 2 * layout["height"], g
    assert layout["extent"] == [g[0]["cw"] + g[1]["cw"], g[2]["gy"] + layout["descent"]], layout
    # A 400-pixel frame halves the caption: the 48-pixel default becomes 24.
    half = json.loads(run([lumenar, "caption", "--glyphs", "--frame", "400x300", "--text", "AB"]).stdout)
    assert abs(half["height"] * 2 - layout["height"]) <= 2, (half, layout)

    picture = os.path.join(work, "grey.bmp")
    write_bmp(picture, 400, 150, lambda x, row: GREY)
    common = ["--on", picture, "--text", "Lumenar", "--x", "80", "--y", "60", "--colour", "0x0000FF"]

    def draw(name, *extra):
        path = os.path.join(work, name + ".ppm")
        run([lumenar, "caption"] + common + list(extra) + ["-o", path])
        return ink(path)

    # The frame is 400 wide: positions are halved, so the caption starts near x 40, y 30.
    place, dark, coloured = draw("whole")
    assert 38 <= place[0] <= 42 and 28 <= place[1] <= 40, place
    assert coloured > 100 and dark > 0, (coloured, dark)
    box, dark, coloured = draw("noshadow", "--shadow", "0")
    assert dark == 0 and coloured > 100, (dark, coloured)
    box, dark, coloured = draw("before-half", "--progress", "1499/3000")
    assert box[2] == -1, box
    box, _, _ = draw("fly-from-left", "--effect", "22", "--progress", "1/2")
    assert box[2] < place[2], (box, place)
    for row in (0, 4, 9, 15, 19, 29, 34):
        box, _, _ = draw("end-%d" % row, "--effect", str(row), "--progress", "3000/3000")
        assert box == place, (row, box, place)

    bad = run([lumenar, "caption", "--on", picture, "--text", "x", "--align", "3", "-o", "x.png"], expect_ok=False)
    # (Sanitizer builds may add their own report after the one line.)
    assert bad.returncode != 0 and bad.stderr.startswith("lumenar: 3: alignment is 0, 1 or 2\n"), bad.stderr
    bad = run([lumenar, "caption", "--text", "x", "-o", "x.png"], expect_ok=False)
    assert bad.returncode != 0 and bad.stderr.startswith("lumenar: caption: "), bad.stderr
    assert run([lumenar, "caption", "--help"]).stdout.startswith("usage: lumenar caption")
    print("caption command ok")


if __name__ == "__main__":
    main()
