#!/usr/bin/env python3
"""`lumenar effect --frames`, `lumenar caption --frames` and `lumenar gallery` as a user runs them: the
animations are read back by real decoders (libwebp's webpmux, ffprobe for GIF), a folder of frames
holds exactly the single frames the commands draw at 0 and full progress, and the gallery's page names
every row of both tables with the state `lumenar effects` gives it.

usage: preview_cli.py LUMENAR WORKDIR
"""
import html.parser
import os
import re
import shutil
import subprocess
import sys


def run(args):
    result = subprocess.run(args, capture_output=True, text=True, timeout=300)
    if result.returncode != 0:
        sys.exit("failed: %s\n%s" % (" ".join(args), result.stderr))
    return result.stdout


def read(path):
    with open(path, "rb") as f:
        return f.read()


class Figures(html.parser.HTMLParser):
    """The gallery's previews: (image file, caption text, class) per figure."""

    def __init__(self):
        super().__init__()
        self.figures, self.current = [], None

    def handle_starttag(self, tag, attrs):
        attrs = dict(attrs)
        if tag == "figure":
            self.current = [None, "", attrs.get("class")]
        elif tag == "img" and self.current is not None:
            self.current[0] = attrs["src"]

    def handle_data(self, data):
        if self.current is not None:
            self.current[1] += data

    def handle_endtag(self, tag):
        if tag == "figure":
            self.figures.append(tuple(self.current))
            self.current = None


def main():
    lumenar, work = sys.argv[1], sys.argv[2]
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    os.chdir(work)
    # Two distinct pictures of an odd size, drawn by ImageMagick.
    subprocess.run(["convert", "-size", "37x23", "gradient:red-blue", "a.png"], check=True)
    subprocess.run(["convert", "-size", "37x23", "gradient:yellow-green", "b.png"], check=True)
    effect = [lumenar, "effect", "--picture", "41", "--seed", "3", "--from", "a.png", "--to", "b.png"]

    run(effect + ["--frames", "5", "-o", "fade.webp"])
    info = run(["webpmux", "-info", "fade.webp"])
    assert "Canvas size: 37 x 23" in info and "Number of frames: 5" in info, info

    run(effect + ["--frames", "5", "--frame-ms", "120", "-o", "fade.gif"])
    probe = run(["ffprobe", "-v", "error", "-count_frames", "-select_streams", "v:0", "-show_entries",
                 "stream=width,height,nb_read_frames", "-of", "csv=p=0", "fade.gif"]).strip()
    assert probe == "37,23,5", probe

    run(effect + ["--frames", "5", "-o", "fade-frames"])
    assert sorted(os.listdir("fade-frames")) == ["frame-%03d.png" % i for i in range(5)]
    for index, progress in ((0, "0/1"), (2, "1/2"), (4, "1/1")):
        run(effect + ["--progress", progress, "-o", "single.png"])
        assert read("fade-frames/frame-%03d.png" % index) == read("single.png"), progress

    # A caption flying in from the top: a folder of frames against single frames.
    caption = [lumenar, "caption", "--on", "a.png", "--frame", "200x150", "--text", "Hi", "--effect", "20"]
    run(caption + ["--frames", "3", "-o", "fly"])
    for index, progress in ((0, "0/1"), (2, "1/1")):
        run(caption + ["--progress", progress, "-o", "single.png"])
        assert read("fly/frame-%03d.png" % index) == read("single.png"), progress

    # The gallery: one preview per row of both tables, each labelled as `lumenar effects` lists it.
    run([lumenar, "gallery", "-o", "samples", "--size", "64x48", "--frames", "2"])
    listing = [line.split("\t") for line in run([lumenar, "effects"]).splitlines()]
    page = read("samples/index.html").decode()
    parser = Figures()
    parser.feed(page)
    assert len(parser.figures) == len(listing) == 99 + 54, len(parser.figures)
    for (image, text, state), (table, row, _, _, _, _, name, built) in zip(parser.figures, listing):
        assert image == "%s-%02d.webp" % (table, int(row)), image
        assert os.path.getsize(os.path.join("samples", image)) > 0, image
        assert text.startswith("%s row %s · %s · " % (table, row, name)), text
        assert state == built and (built == "not-built") == ("not built" in text), (text, state, built)
    not_built = sum(c[7] == "not-built" for c in listing)
    heading = re.findall(r"(\d+) not built</h2>", page)
    assert sum(map(int, heading)) == not_built, heading

    run([lumenar, "gallery", "-o", "gif-samples", "--size", "16x16", "--frames", "2", "--format", "gif"])
    assert len([f for f in os.listdir("gif-samples") if f.endswith(".gif")]) == 99 + 54
    print("previews: animations, frame folders and a gallery of %d rows" % len(listing))


if __name__ == "__main__":
    main()
