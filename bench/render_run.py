#!/usr/bin/env python3
"""A measured run of `lumenar render` on the demo film, next to ffmpeg encoding a still picture.

  render_run.py LUMENAR DEMO_FILM [--runs N] [--quick]

For each output (MP4, PNG frames), size (800x600, 1920x1080) and rate (the player's pace, 30 fps) it
renders the demo film N times (default 3) and prints the best run as a multiple of real time (film
seconds / render seconds), with the busy seconds `lumenar render --times` reports for the player
(composing, effects, photos), the colour conversion and the encoders (they overlap on two threads).
The peer, in the same run: the ffmpeg program encoding 60 s of one still 800x600 picture at 18
frames a second with x264's veryfast preset. --quick leaves out 1920x1080 frames, the slowest row.
"""
import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time


def render(lumenar, film, out, size, fps):
    args = [lumenar, "render", film, "-o", out, "--size", size, "--times"]
    if fps:
        args += ["--fps", str(fps)]
    started = time.monotonic()
    result = subprocess.run(args, capture_output=True, text=True)
    wall = time.monotonic() - started
    if result.returncode != 0:
        sys.exit("render_run: %s failed: %s" % (" ".join(args), result.stderr))
    times = dict(re.findall(r"(\w+)=([\d.]+)", result.stderr.split("times ")[-1]))
    return wall, {k: float(v) for k, v in times.items()}


def peer(work):
    still = os.path.join(work, "still.png")
    subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc2=size=800x600:rate=1", "-frames:v", "1",
                    still], check=True)
    started = time.monotonic()
    subprocess.run(["ffmpeg", "-v", "error", "-y", "-loop", "1", "-framerate", "18", "-i", still, "-t", "60",
                    "-c:v", "libx264", "-preset", "veryfast", "-pix_fmt", "yuv420p",
                    os.path.join(work, "still.mp4")], check=True)
    return 60.0 / (time.monotonic() - started)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("lumenar")
    parser.add_argument("film")
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--quick", action="store_true")
    options = parser.parse_args()
    work = tempfile.mkdtemp(prefix="render-run-")
    try:
        print("%-6s %-10s %-6s %8s %8s %8s %8s %8s" % ("output", "size", "rate", "film s", "speed", "player",
                                                       "convert", "encode"))
        for kind in ("mp4", "png"):
            for size in ("800x600", "1920x1080"):
                for fps in (0, 30):
                    if options.quick and kind == "png" and size == "1920x1080":
                        continue
                    best = None
                    for _ in range(options.runs):
                        out = os.path.join(work, "out.mp4" if kind == "mp4" else "frames/")
                        shutil.rmtree(os.path.join(work, "frames"), ignore_errors=True)
                        wall, times = render(options.lumenar, options.film, out, size, fps)
                        if best is None or wall < best[0]:
                            best = (wall, times)
                    wall, times = best
                    print("%-6s %-10s %-6s %8.1f %7.1fx %7.2fs %7.2fs %7.2fs" % (
                        kind, size, "%d fps" % fps if fps else "pace", times["film"], times["film"] / wall,
                        times["player"], times["convert"], times["encode"]), flush=True)
        print("peer: ffmpeg, 60 s of a still 800x600 picture at 18 fps, x264 veryfast: %.1fx" % peer(work))
    finally:
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
