#!/usr/bin/env python3
"""The player animates captions exactly as `lumenar caption` draws them.

  caption_play_cli.py LUMENAR WORKDIR

A two-item film is packed and played headless with every frame dumped. Item 1's caption sweeps in
from the left (text row 3): every caption frame the player showed must equal, byte for byte,
`lumenar caption` on the item's clean picture at some progress, and a frame half-way must show the
left of the caption drawn and its right still bare. Item 2's caption slides in from above the top
edge (text row 20): at progress 0 nothing of it may be on screen. Both need the caption's laid-out
extent, which the text effects read from the caption record.
"""
import os
import shutil
import subprocess
import sys

WIDTH, HEIGHT = 800, 600
BACKGROUNDS = [(30, 40, 90), (90, 30, 40)]
SWEEP = "Sweeping in from the left"
# The play/stop button's corner and the loading bar's corner may hold the control's own drawing.
IGNORED = [(760, 0, WIDTH, 20), (0, HEIGHT - 14, 70, HEIGHT)]


def fail(message):
    sys.exit("caption_play_cli: " + message)


def run(args, timeout=120):
    result = subprocess.run(args, capture_output=True, timeout=timeout)
    if result.returncode != 0:
        fail("exit %d: %s\n%s" % (result.returncode, " ".join(args), result.stderr.decode()))
    return result


def read_rgb(path):
    """Top-down RGB bytes of any picture ImageMagick reads."""
    data = run(["convert", path, "-depth", "8", "rgb:-"]).stdout
    if len(data) != WIDTH * HEIGHT * 3:
        fail("%s is not %dx%d" % (path, WIDTH, HEIGHT))
    return data


def masked(data):
    rows = [bytearray(data[y * WIDTH * 3:(y + 1) * WIDTH * 3]) for y in range(HEIGHT)]
    for left, top, right, bottom in IGNORED:
        for y in range(top, bottom):
            rows[y][left * 3:right * 3] = bytes((right - left) * 3)
    return b"".join(rows)


def distance(a, b, rows):
    """How far a picture has moved from the clean one over the caption's rows: grows with every
    glyph's opacity, so it orders progress values."""
    lo, hi = rows[0] * WIDTH * 3, rows[1] * WIDTH * 3
    return sum(abs(x - y) for x, y in zip(a[lo:hi], b[lo:hi]))


def make_film(lumenar, work):
    lines = ["advance automatic"]
    for i, (r, g, b) in enumerate(BACKGROUNDS):
        ppm = os.path.join(work, "p%d.ppm" % i)
        run(["convert", "-size", "%dx%d" % (WIDTH, HEIGHT), "xc:rgb(%d,%d,%d)" % (r, g, b), "-depth", "8",
             "ppm:" + ppm])
        run(["cjpeg", "-quality", "95", "-outfile", os.path.join(work, "p%d.jpg" % i), ppm])
        lines += ["photo p%d.jpg" % i, "  effect 0", "  effect-ms 0", "  seconds 4"]
    lines.insert(5, '  caption text="%s" effect=3 x=100 y=100 height=-48 colour=0xFFFFFF shadow=0' % SWEEP)
    lines.append('  caption text="From above" effect=20 x=100 y=100 height=-48 colour=0xFFFFFF shadow=0')
    manifest = os.path.join(work, "film.manifest")
    with open(manifest, "w") as f:
        f.write("\n".join(lines) + "\n")
    film = os.path.join(work, "caption.film")
    run([lumenar, "pack", manifest, "-o", film])
    return film


def main():
    lumenar, work = sys.argv[1], sys.argv[2]
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    film = make_film(lumenar, work)
    frames_dir = os.path.join(work, "frames")
    run([lumenar, "play", film, "--headless", "--dump", frames_dir, "--seconds", "20"], timeout=60)

    # Each frame by the item whose background it shows (the centre is never under a caption).
    items = {0: [], 1: []}
    for name in sorted(os.listdir(frames_dir)):
        data = read_rgb(os.path.join(frames_dir, name)) if name.endswith(".png") else None
        if data is None:
            continue
        centre = tuple(data[(300 * WIDTH + 400) * 3:(300 * WIDTH + 400) * 3 + 3])
        for i, colour in enumerate(BACKGROUNDS):
            if max(abs(a - b) for a, b in zip(centre, colour)) <= 3:
                items[i].append(masked(data))
    if len(items[0]) < 10 or len(items[1]) < 10:
        fail("expected ten or more frames of each item, got %d and %d" % (len(items[0]), len(items[1])))

    # Item 2 slides in from above the top edge: at progress 0 the first frame is the bare picture.
    first = items[1][0]
    if len(set(first[i:i + 3] for i in range(0, len(first), 3))) > 2:
        fail("the caption sliding in from above is on screen at progress 0")

    # Item 1: its first frame is at progress 0, where a sweep has drawn nothing yet: the clean picture.
    clean = os.path.join(work, "clean.png")
    clean_frame = items[0][0]
    subprocess.run(["convert", "-size", "%dx%d" % (WIDTH, HEIGHT), "-depth", "8", "rgb:-", clean],
                   input=clean_frame, check=True)
    rows = (80, 180)

    def drawn(numerator, denominator=100000):
        out = os.path.join(work, "caption.ppm")
        run([lumenar, "caption", "--on", clean, "--text", SWEEP, "--effect", "3", "--x", "100", "--y", "100",
             "--height", "-48", "--colour", "0xFFFFFF", "--shadow", "0",
             "--progress", "%d/%d" % (numerator, denominator), "-o", out])
        return masked(read_rgb(out))

    animated = [f for f in items[0] if f != items[0][-1]]
    picks = [animated[len(animated) * k // 6] for k in range(1, 6)]
    for index, frame in enumerate(picks):
        target = distance(frame, clean_frame, rows)
        low, high = 0, 100000
        while low < high:  # The smallest progress that has drawn as much as the frame shows.
            middle = (low + high) // 2
            if distance(drawn(middle), clean_frame, rows) < target:
                low = middle + 1
            else:
                high = middle
        if drawn(low) != frame:
            fail("caption frame %d of the player matches no progress of lumenar caption (nearest %d/100000)"
                 % (index, low))
        if index == 1:
            # A third of the way, the left of the caption is drawn and its right is still bare.
            def ink(x0, x1):
                return sum(abs(frame[(y * WIDTH + x) * 3] - clean_frame[(y * WIDTH + x) * 3])
                           for y in range(*rows) for x in range(x0, x1))
            if not (ink(100, 200) > 0 and ink(450, 560) == 0):
                fail("a third of the way through the sweep the caption is not drawn on the left and bare on the right")
    print("caption_play_cli: %d and %d frames; the player's sweep matches lumenar caption at %d progress values"
          % (len(items[0]), len(items[1]), len(picks)))


if __name__ == "__main__":
    main()
