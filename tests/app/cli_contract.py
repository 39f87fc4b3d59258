#!/usr/bin/env python3
"""The command-line contract of every `lumenar` subcommand but `play`, as one table: on bad input a
command prints one line `lumenar: <input>: <message>` naming the input once, exits 2, and neither
reads a special file for ever nor reports success for an output it could not write.

usage: cli_contract.py LUMENAR WORKDIR
"""
import os
import shutil
import struct
import subprocess
import sys


def bmp(width, height):
    pixels = bytes([40, 80, 120, 0]) * (width * height)
    header = b"BM" + struct.pack("<IHHI", 54 + len(pixels), 0, 0, 54)
    info = struct.pack("<IiiHHIIiiII", 40, width, height, 1, 32, 0, len(pixels), 0, 0, 0, 0)
    return header + info + pixels


def main():
    lumenar, work = os.path.abspath(sys.argv[1]), sys.argv[2]
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(os.path.join(work, "a-folder"))
    os.chdir(work)
    files = {
        # One packet: one untransmitted frame (kind 1, one byte).
        "speech.ca": bytes([0, 0, 1, 0, 0x01, 0, 0, 0, 0x03]),
        # The same, then a packet that carries no frames.
        "damaged.ca": bytes([0, 0, 1, 0, 0x01, 0, 0, 0, 0x03]) + bytes(8),
        "frames.tco": bytes(24),  # One 6.3 kbit/s frame.
        "song.wav": b"RIFF" + struct.pack("<I", 36) + b"WAVEfmt " + struct.pack("<IHHIIHH", 16, 1, 1, 8000, 16000, 2, 16)
        + b"data" + struct.pack("<I", 0),
        "photo.jpg": bytes([0xFF, 0xD8, 0xFF, 0xE0, 0x00, 0x10]) + b"JFIF\0" + bytes(64),
        "one-byte.bin": b"x",
        "empty.bin": b"",
        "picture.bmp": bmp(4, 4),
        "missing-photo.manifest": b"photo not-there.jpg\n",
        "good.manifest": b"photo good.jpg\n",
        "wave-photo.manifest": b"photo good.jpg\nphoto song.wav\n",
        "good.ppm": b"P6\n16 16\n255\n" + bytes(range(256)) * 3,
    }
    for name, data in files.items():
        with open(name, "wb") as f:
            f.write(data)
    with open("good.jpg", "wb") as f:
        subprocess.run(["cjpeg", "-quality", "90", "good.ppm"], stdout=f, check=True)
    os.mkfifo("a-pipe")
    for link in ("full.bmp", "full.wav", "full.film", "full.ca", "full.webp", "full.gif"):
        os.symlink("/dev/full", link)

    picture = ["--from", "picture.bmp", "--to", "picture.bmp", "--progress", "1/2"]
    frames = ["--from", "picture.bmp", "--to", "picture.bmp", "--frames", "3"]
    caption = ["caption", "--text", "hi", "-o", "out.png"]
    # Name, arguments, the input the line must name (None: the command succeeds), a piece of its message.
    rows = [
        ("pack to a full disk", ["narration", "--pack", "frames.tco", "-o", "full.ca"], "full.ca", "cannot be written"),
        ("narration to a full disk", ["narration", "speech.ca", "-o", "full.wav"], "full.wav", "cannot write"),
        ("bmp to a full disk", ["decode", "good.jpg", "-o", "full.bmp"], "full.bmp", "cannot be written"),
        ("decode what is not a photo", ["decode", "photo.jpg", "-o", "out.png"], "photo.jpg", "not a photo"),
        ("effect to a full disk", ["effect", "--picture", "0"] + picture + ["-o", "full.bmp"], "full.bmp",
         "cannot write"),
        ("animation to a full disk", ["effect", "--picture", "41"] + frames + ["-o", "full.webp"], "full.webp",
         "cannot be written"),
        ("gif to a full disk", ["effect", "--picture", "41"] + frames + ["-o", "full.gif"], "full.gif",
         "cannot be written"),
        ("frames and a progress", ["effect", "--picture", "41"] + picture + ["--frames", "3", "-o", "out.gif"],
         "effect", "one of --progress or --frames"),
        ("too many frames", ["effect", "--picture", "41"] + frames[:-1] + ["1001", "-o", "out.gif"], "1001",
         "frame count"),
        ("caption frames and a progress", caption[:-2] + ["--on", "picture.bmp", "--frames", "3", "--progress",
                                                         "1/2", "-o", "out.webp"], "--frames", "leave out"),
        ("gallery of another format", ["gallery", "-o", "out-gallery", "--format", "bmp"], "bmp", "webp or gif"),
        ("film to a full disk", ["pack", "good.manifest", "-o", "full.film"], "full.film", "cannot be written"),
        ("manifest naming a missing photo", ["pack", "missing-photo.manifest", "-o", "out.film"],
         "missing-photo.manifest", "not-there.jpg: No such file"),
        ("manifest photo no library reads", ["pack", "wave-photo.manifest", "-o", "out.film"],
         "wave-photo.manifest", "line 2: song.wav: not a JPEG, PNG or WebP"),
        ("photos of an empty folder", ["pack", "--photos", "a-folder", "-o", "out.film"], "a-folder", "no photo"),
        ("photos of a missing folder", ["pack", "--photos", "no-such-dir", "-o", "out.film"], "no-such-dir",
         "cannot read the folder"),
        ("folder effect past the table", ["pack", "--photos", "a-folder", "--effect", "99", "-o", "out.film"], "99",
         "0-98"),
        ("folder captions of another kind", ["pack", "--photos", "a-folder", "--captions", "dates", "-o", "out.film"],
         "dates", "names"),
        ("folder options with a manifest", ["pack", "good.manifest", "--seconds", "3", "-o", "out.film"], "pack",
         "go with --photos"),
        ("a manifest and a folder", ["pack", "good.manifest", "--photos", "a-folder", "-o", "out.film"],
         "good.manifest", "not both"),
        ("narration from a folder", ["narration", "a-folder", "-o", "out.wav"], "a-folder", "folder"),
        ("info on a folder", ["info", "a-folder"], "a-folder", "folder"),
        ("decode a folder", ["decode", "a-folder", "-o", "out.png"], "a-folder", "folder"),
        ("pack a folder", ["pack", "a-folder", "-o", "out.film"], "a-folder", "folder"),
        ("effect from a folder", ["effect", "--picture", "0", "--from", "a-folder", "--to", "picture.bmp",
                                  "--progress", "1/2", "-o", "out.png"], "a-folder", "folder"),
        ("caption on a folder", caption + ["--on", "a-folder"], "a-folder", "folder"),
        ("narration from a wave", ["narration", "song.wav", "-o", "out.wav"], "song.wav", "a wave file"),
        ("narration from a photo", ["narration", "photo.jpg", "-o", "out.wav"], "photo.jpg", "a JPEG photo"),
        ("narration from one byte", ["narration", "one-byte.bin", "-o", "out.wav"], "one-byte.bin",
         "not a compressed narration"),
        ("narration from nothing", ["narration", "empty.bin", "-o", "out.wav"], "empty.bin", "empty"),
        ("frames from a wave", ["narration", "--pack", "song.wav", "-o", "out.ca"], "song.wav", "a wave file"),
        ("narration from /dev/zero", ["narration", "/dev/zero", "-o", "out.wav"], "/dev/zero", "device"),
        ("info on /dev/zero", ["info", "/dev/zero"], "/dev/zero", "device"),
        ("narration from a pipe", ["narration", "a-pipe", "-o", "out.wav"], "a-pipe", "pipe"),
        ("decode a pipe", ["decode", "a-pipe", "-o", "out.png"], "a-pipe", "pipe"),
        ("picture row past the table", ["effect", "--picture", "99999"] + picture + ["-o", "out.png"], "99999",
         "0-98"),
        ("negative picture row", ["effect", "--picture", "-1"] + picture + ["-o", "out.png"], "-1", "0-98"),
        ("text row past the table", caption + ["--on", "picture.bmp", "--effect", "99999"], "99999", "0-53"),
        ("text effect by an unknown name", caption + ["--on", "picture.bmp", "--effect", "wobble"], "wobble",
         "the closest are"),
        ("caption outside its code page", ["caption", "--text", "日本", "--codepage", "1253", "--on", "picture.bmp",
                                           "-o", "out.png"], "--text", "U+65E5"),
        ("picture that is not one", ["effect", "--picture", "0", "--from", "song.wav", "--to", "picture.bmp",
                                     "--progress", "1/2", "-o", "out.png"], "song.wav", "not a PNG or BMP"),
        ("missing picture", caption + ["--on", "no-such.png"], "no-such.png", "No such file"),
        ("narration", ["narration", "speech.ca", "-o", "speech.wav"], None, None),
        ("damaged narration", ["narration", "damaged.ca", "-o", "damaged.wav"], None,
         "lumenar: damaged.ca: warning: 1 packet without frames skipped"),
        ("frames", ["narration", "--pack", "frames.tco", "-o", "frames.ca"], None, None),
        ("effect", ["effect", "--picture", "98"] + picture + ["-o", "out.bmp"], None, None),
    ]
    failures = []
    for name, args, named, needle in rows:
        try:
            result = subprocess.run([lumenar] + args, capture_output=True, timeout=20)
        except subprocess.TimeoutExpired:
            failures.append("%s: still running after 20 s" % name)
            continue
        lines = result.stderr.decode(errors="replace").splitlines()
        # LeakSanitizer's list of the suppressions it used, which sanitizer builds print at exit.
        if "Suppressions used:" in lines:
            lines = lines[:lines.index("Suppressions used:") - 1]
        if named is None:
            expected = [needle] if needle else []
            if result.returncode != 0 or lines != expected:
                failures.append("%s: exit %d, stderr %r" % (name, result.returncode, lines))
            continue
        prefix = "lumenar: %s: " % named
        if (result.returncode != 2 or len(lines) != 1 or not lines[0].startswith(prefix)
                or lines[0].count(named) != 1 or needle not in lines[0]):
            failures.append("%s: exit %d, stderr %r" % (name, result.returncode, lines))
    for output in ("out.wav", "out.png", "out.film", "out.ca", "out.webp", "out.gif", "out-gallery"):
        if os.path.exists(output):
            failures.append("a failed command wrote %s" % output)
    if failures:
        sys.exit("\n".join(failures))
    print("command-line contract: %d cases" % len(rows))


if __name__ == "__main__":
    main()
