#!/usr/bin/env python3
"""Photos as people have them, packed with `lumenar pack` and played headless.

  photos_cli.py LUMENAR WORKDIR

Every kind of photo (progressive, greyscale, CMYK, EXIF-turned, PNG with alpha, WebP, halved chroma at
everyday widths, too large) is drawn with ImageMagick and cjpeg, packed from a folder, and played: the
frame each one dwells on must match a reference ImageMagick draws from the same source (upright,
over black, letterboxed into the 800x600 frame) within a PSNR bound. Photos the player shows as they
are must be carried byte for byte and no line printed for them; every other one gets one line. A file
that cannot be read fails pack with one line; a folder of mixed photos becomes one item per photo in
natural name order; masks are converted like photos; `lumenar play DIR` plays a folder directly.
"""
import json
import os
import re
import shutil
import struct
import subprocess
import sys

MIN_PSNR = 24.0  # A good match measures 27-40 dB; sheared, sideways or black frames 6-15 dB.


def fail(message):
    sys.exit("photos_cli: " + message)


def run(args, expect=0, timeout=120):
    result = subprocess.run(args, capture_output=True, timeout=timeout)
    if result.returncode != expect:
        fail("exit %d, not %d: %s\n%s" % (result.returncode, expect, " ".join(args), result.stderr.decode()))
    return result


def error_lines(result):
    """stderr's lines, without the list of suppressions that LeakSanitizer builds print at exit."""
    lines = result.stderr.decode(errors="replace").splitlines()
    if "Suppressions used:" in lines:
        lines = lines[:lines.index("Suppressions used:") - 1]
    return lines


def draw(path, size):
    """A picture whose every part differs: corner colours blended, a white disc, a black bar."""
    w, h = (int(v) for v in size.split("x"))
    r = min(w, h) // 4
    run(["convert", "-size", size, "xc:", "-sparse-color", "bilinear",
         "0,0 red %d,0 blue 0,%d green %d,%d yellow" % (w, h, w, h),
         "-fill", "white", "-draw", "circle %d,%d %d,%d" % (w // 3, h // 2, w // 3 + r, h // 2),
         "-fill", "black", "-draw", "rectangle %d,%d %d,%d" % (w * 2 // 3, h // 6, w * 2 // 3 + max(2, w // 12), h * 5 // 6),
         "-depth", "8", path])


def with_orientation(jpeg, orientation):
    """The JPEG with an EXIF segment that records `orientation` (big-endian TIFF, one IFD entry)."""
    tiff = b"MM\x00\x2a" + struct.pack(">IH", 8, 1) + struct.pack(">HHIHH", 0x0112, 3, 1, orientation, 0)
    body = b"Exif\x00\x00" + tiff + struct.pack(">I", 0)
    return jpeg[:2] + b"\xff\xe1" + struct.pack(">H", len(body) + 2) + body + jpeg[2:]


def cjpeg(source, target, *options):
    run(["cjpeg", "-quality", "90", *options, "-outfile", target, source])


# name, source size, how the photo file is made from the source, how ImageMagick turns the source
# into what should be seen, whether pack must carry it byte for byte.
def kinds(work):
    def src(name):
        return os.path.join(work, "src", name + ".ppm")

    rows = []

    def add(name, size, make, view=(), as_is=False):
        rows.append(dict(name=name, size=size, make=make, view=list(view), as_is=as_is))

    add("01-baseline.jpg", "320x240", lambda s, t: cjpeg(s, t, "-sample", "1x1"), as_is=True)
    add("02-restarts.jpg", "320x240", lambda s, t: cjpeg(s, t, "-sample", "1x1", "-restart", "2"), as_is=True)
    add("03-420-at-608.jpg", "608x200", lambda s, t: cjpeg(s, t, "-sample", "2x2"), as_is=True)
    for width in (600, 801, 1000, 1080):
        add("%02d-420-at-%d.jpg" % (len(rows) + 1, width), "%dx200" % width,
            lambda s, t: cjpeg(s, t, "-sample", "2x2"))
    add("08-progressive.jpg", "320x240", lambda s, t: cjpeg(s, t, "-sample", "1x1", "-progressive"))
    add("09-greyscale.jpg", "320x240", lambda s, t: cjpeg(s, t, "-grayscale"), view=["-colorspace", "gray"])
    add("10-cmyk.jpg", "320x240", lambda s, t: run(["convert", s, "-colorspace", "CMYK", "-quality", "92", t]))
    for orientation, turn in ((6, "90"), (8, "-90")):
        def make(s, t, orientation=orientation):
            cjpeg(s, t + ".plain", "-sample", "1x1")
            with open(t + ".plain", "rb") as f, open(t, "wb") as out:
                out.write(with_orientation(f.read(), orientation))
            os.remove(t + ".plain")
        add("%02d-exif-%d.jpg" % (len(rows) + 1, orientation), "320x200", make, view=["-rotate", turn])
    add("13-alpha.png", "320x240",
        lambda s, t: run(["convert", s, "-alpha", "set", "-channel", "A", "-fx", "i/w", "+channel", t]),
        view=["-alpha", "set", "-channel", "A", "-fx", "i/w", "+channel", "-background", "black", "-flatten"])
    add("14-photo.webp", "320x240", lambda s, t: run(["cwebp", "-quiet", "-q", "95", s, "-o", t]))
    add("15-too-large.jpg", "4400x300", lambda s, t: cjpeg(s, t, "-sample", "1x1"))
    for row in rows:
        row["source"] = src(row["name"])
    return rows


def psnr(a, b):
    out = subprocess.run(["compare", "-metric", "PSNR", a, b, "null:"], capture_output=True).stderr.decode()
    value = out.split()[0] if out else "0"
    return 99.0 if value == "inf" else float(value)


def main():
    lumenar, work = sys.argv[1], sys.argv[2]
    shutil.rmtree(work, ignore_errors=True)
    folder = os.path.join(work, "photos")
    os.makedirs(os.path.join(work, "src"))
    os.makedirs(folder)
    rows = kinds(work)
    for row in rows:
        draw(row["source"], row["size"])
        row["make"](row["source"], os.path.join(folder, row["name"]))

    film = os.path.join(work, "kinds.film")
    # Cut, at once: one second for each photo.
    notes = run([lumenar, "pack", "--photos", folder, "-o", film, "--seconds", "1", "--effect", "39",
                 "--effect-ms", "0"]).stdout.decode()
    info = json.loads(run([lumenar, "info", film]).stdout)
    names = [item["photo"]["name"] for item in info["items"]]
    if len(names) != len(rows):
        fail("%d photos became %d items" % (len(rows), len(names)))
    with open(film, "rb") as f:
        stream = f.read()
    for index, (row, name) in enumerate(zip(rows, names), 1):
        with open(os.path.join(folder, row["name"]), "rb") as f:
            original = f.read()
        stem = os.path.splitext(row["name"])[0]
        if not re.fullmatch(r"\d+_" + re.escape(stem) + r"\.jpe?g", name):
            fail("item %d is named %s, not after %s" % (index, name, row["name"]))
        line = [l for l in notes.splitlines() if l.startswith("photo %d (%s): " % (index, row["name"]))]
        if row["as_is"]:
            if line or int(name.split("_")[0]) != len(original) or original not in stream:
                fail("%s was not carried byte for byte (%s)" % (row["name"], line))
        elif len(line) != 1:
            fail("no line (or more than one) says why %s was converted:\n%s" % (row["name"], notes))
    if len(notes.splitlines()) != sum(not r["as_is"] for r in rows):
        fail("pack printed lines for photos it did not change:\n" + notes)

    # Played: every photo's dwell frame matches its reference.
    frames = os.path.join(work, "frames")
    # The film ends by itself after its last photo; the limit only guards a hang.
    run([lumenar, "play", film, "--headless", "--dump", frames, "--seconds", "110"], timeout=120)
    small = os.path.join(work, "small")
    os.makedirs(small)
    distinct = {}
    for name in sorted(os.listdir(frames)):
        with open(os.path.join(frames, name), "rb") as f:
            distinct.setdefault(f.read(), name)
    candidates = []
    for name in sorted(distinct.values()):
        target = os.path.join(small, name)
        run(["convert", os.path.join(frames, name), "-scale", "400x300", target])
        candidates.append(target)
    worst = []
    for row in rows:
        reference = os.path.join(work, "ref-" + os.path.splitext(row["name"])[0] + ".png")
        run(["convert", row["source"], *row["view"], "-resize", "800x600", "-background", "black",
             "-gravity", "center", "-extent", "800x600", "-scale", "400x300", reference])
        best = max(psnr(reference, c) for c in candidates)
        worst.append((best, row["name"]))
        if best < MIN_PSNR:
            fail("no frame shows %s as ImageMagick draws it (best %.1f dB < %.1f)" % (row["name"], best, MIN_PSNR))
    print("closest matches (dB): " + ", ".join("%s %.1f" % (n, b) for b, n in sorted(worst)[:4]))

    # A file no library reads: one line, naming it, and no film.
    bad = os.path.join(work, "bad")
    os.makedirs(bad)
    shutil.copy(os.path.join(folder, rows[0]["name"]), os.path.join(bad, "IMG_1.jpg"))
    with open(os.path.join(bad, "IMG_2.jpg"), "wb") as f:
        f.write(b"\xff\xd8\xff\xe0 this is no photo at all")
    result = run([lumenar, "pack", "--photos", bad, "-o", os.path.join(work, "bad.film")], expect=2)
    lines = error_lines(result)
    if len(lines) != 1 or "IMG_2.jpg" not in lines[0] or os.path.exists(os.path.join(work, "bad.film")):
        fail("an unreadable photo should fail pack with one line naming it, got %s" % lines)
    manifest = os.path.join(bad, "film.manifest")
    with open(manifest, "w") as f:
        f.write("photo IMG_1.jpg\nphoto notes.heic\n")
    with open(os.path.join(bad, "notes.heic"), "wb") as f:
        f.write(b"\x00\x00\x00\x18ftypheic")
    lines = error_lines(run([lumenar, "pack", manifest, "-o", os.path.join(work, "bad.film")], expect=2))
    if len(lines) != 1 or "line 2" not in lines[0] or "notes.heic" not in lines[0]:
        fail("a manifest photo no library reads should fail with one line naming its line, got %s" % lines)

    # Masks are made fit like photos, and said so.
    shutil.copy(os.path.join(folder, "13-alpha.png"), os.path.join(bad, "m.png"))
    with open(manifest, "w") as f:
        f.write("photo IMG_1.jpg\n  mask m.png\n")
    masked = os.path.join(work, "masked.film")
    notes = run([lumenar, "pack", manifest, "-o", masked]).stdout.decode().splitlines()
    mask = json.loads(run([lumenar, "info", masked]).stdout)["items"][0]["mask"]["name"]
    if len(notes) != 1 or not notes[0].startswith("mask of photo 1 (m.png): ") or not mask.endswith("_m.jpg"):
        fail("a PNG mask should become m.jpg with one line saying so, got %s and %s" % (notes, mask))

    # A mixed folder: one item each, in natural order (IMG_2 before IMG_10), other and hidden files left out,
    # file names as captions.
    mixed = os.path.join(work, "mixed")
    os.makedirs(mixed)
    copies = {"img_1.webp": "14-photo.webp", "IMG_2.png": "13-alpha.png", "IMG_10.jpg": "01-baseline.jpg",
              "IMG_10b.jpeg": "08-progressive.jpg", "img_020.JPG": "09-greyscale.jpg"}
    order = list(copies)
    for name, source in copies.items():
        shutil.copy(os.path.join(folder, source), os.path.join(mixed, name))
    with open(os.path.join(mixed, "readme.txt"), "w") as f:
        f.write("not a photo\n")
    with open(os.path.join(mixed, "._IMG_2.png"), "wb") as f:
        f.write(b"\x00\x05\x16\x07 a copied Mac's resource fork")
    mixed_film = os.path.join(work, "mixed.film")
    run([lumenar, "pack", "--photos", mixed, "-o", mixed_film, "--captions", "names", "--effect", "random"])
    items = json.loads(run([lumenar, "info", mixed_film]).stdout)["items"]
    got = [item["photo"]["name"].split("_", 1)[1] for item in items]
    want = ["img_1.jpg", "IMG_2.jpg", "IMG_10.jpg", "IMG_10b.jpeg", "img_020.JPG"]
    if got != want:
        fail("the mixed folder became items %s, not %s" % (got, want))
    captions = [[t["text"] for t in item["texts"]] for item in items]
    if captions != [[os.path.splitext(n)[0]] for n in order]:
        fail("captions %s are not the file names" % captions)
    if any(item["displaySeconds"] != 5 or item["effectMs"] != 1000 for item in items):
        fail("a folder film should show each photo 5 seconds with a one-second transition")

    # `lumenar play DIR` packs the folder itself and shows its first photo.
    direct = os.path.join(work, "direct")
    run([lumenar, "play", mixed, "--headless", "--dump", direct, "--seconds", "2"], timeout=60)
    if not os.listdir(direct):
        fail("playing a folder presented no frame")


if __name__ == "__main__":
    main()
