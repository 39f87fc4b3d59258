#!/usr/bin/env python3
"""Exports small films with `lumenar render` and reads every output back with ffprobe and ffmpeg.

  render_cli.py LUMENAR FILM_SERVER WORKDIR

- The frames a render writes while an item dwells are, byte for byte, frames the headless player
  presents (`lumenar play --headless --dump`); two renders write the same frames; a render of the film
  served slowly over HTTP writes the same frames as one of the local file.
- Every output kind is a real video or animation: codec, size, frame rate and duration as asked.
- The narration's clicks land in the MP4 within one frame of the items they were placed at.
- Bad options and unwritable outputs give one line and a non-zero status; an interrupted render and a
  film that cannot be completed leave nothing under the output's name.
"""
import json
import os
import pty
import shutil
import signal
import subprocess
import sys
import time

COLOURS = [(200, 40, 40), (40, 170, 60), (40, 70, 200)]
SIZE = "320x240"
TRANSITION_MS = 300
DWELL_S = 1
FIRST_STEP_MS = 500  # The player's first step falls due half a second after it starts.
# Each item's first frame: the first step, then one transition and one dwell per item.
ITEM_STARTS_MS = [FIRST_STEP_MS + i * (TRANSITION_MS + DWELL_S * 1000) for i in range(len(COLOURS))]
FILM_MS = ITEM_STARTS_MS[-1] + TRANSITION_MS + DWELL_S * 1000
FRAME_MS = 55  # The player's own frame period.


# A sanitizer build lists the leak suppressions it used on stderr at exit: not the program's output.
os.environ["LSAN_OPTIONS"] = ":".join(filter(None, [os.environ.get("LSAN_OPTIONS"), "print_suppressions=0"]))


def fail(message):
    sys.exit("render_cli: " + message)


def run(args, expect=0, timeout=120):
    result = subprocess.run(args, capture_output=True, timeout=timeout)
    if result.returncode != expect:
        fail("exit %d, not %d: %s\n%s" % (result.returncode, expect, " ".join(args), result.stderr.decode()))
    return result


def make_film(lumenar, folder, advance="automatic"):
    """Three flat photos; item 1 carries a narration with a click where each item begins."""
    os.makedirs(folder, exist_ok=True)
    clicks = []
    for i, start in enumerate(ITEM_STARTS_MS):
        click = os.path.join(folder, "click%d.wav" % i)
        gap = (start - (ITEM_STARTS_MS[i - 1] if i else 0)) / 1000.0 - (0.03 if i else 0)
        run(["sox", "-n", "-r", "8000", "-c", "1", "-b", "16", click, "synth", "0.03", "sine", "1000",
             "vol", "0.9", "pad", "%.3f" % gap, "0"])
        clicks.append(click)
    narration = os.path.join(folder, "clicks.wav")
    run(["sox", *clicks, narration])
    lines = ["advance " + advance]
    for i, (r, g, b) in enumerate(COLOURS):
        ppm = os.path.join(folder, "p%d.ppm" % i)
        run(["convert", "-size", SIZE, "xc:rgb(%d,%d,%d)" % (r, g, b), "-fill", "white", "-draw",
             "rectangle 10,10 60,40", "-depth", "8", "ppm:" + ppm])
        run(["cjpeg", "-quality", "90", "-outfile", os.path.join(folder, "p%d.jpg" % i), ppm])
        # The last transition draws random choices: two renders must still agree.
        effect = 37 if i == len(COLOURS) - 1 else 39
        lines += ["photo p%d.jpg" % i, "  effect %d" % effect, "  effect-ms %d" % TRANSITION_MS, "  seconds %d" % DWELL_S]
        if i == 0:
            lines.append("  sound clicks.wav")
    manifest = os.path.join(folder, "film.manifest")
    with open(manifest, "w") as f:
        f.write("\n".join(lines) + "\n")
    film = os.path.join(folder, "render.film")
    run([lumenar, "pack", manifest, "-o", film])
    return film


class Server:
    def __init__(self, script, film, log, *options):
        port_file = log + ".port"
        if os.path.exists(port_file):
            os.remove(port_file)
        self.process = subprocess.Popen([sys.executable, script, film, "--port-file", port_file, "--log", log,
                                         "--exit-on-stdin-eof", *options], stdin=subprocess.PIPE)
        deadline = time.time() + 10
        while not (os.path.exists(port_file) and open(port_file).read().strip()):
            if time.time() > deadline:
                fail("the test server did not start")
            time.sleep(0.05)
        self.url = "http://127.0.0.1:%s/render.film" % open(port_file).read().strip()

    def close(self):
        self.process.stdin.close()
        self.process.wait(timeout=10)


def frame_files(folder):
    names = sorted(os.listdir(folder))
    if not names:
        fail("no frames in " + folder)
    return names


def read(path):
    with open(path, "rb") as f:
        return f.read()


def dwell_frames(folder):
    """The last frame before each long gap: what the screen holds while an item dwells."""
    names = frame_files(folder)
    times = [int(n.split("-")[1].split(".")[0]) for n in names]
    return [n for n, t, after in zip(names, times, times[1:] + [None]) if after is None or after - t > 400]


def check_frames(lumenar, film, server, work):
    rendered = os.path.join(work, "frames") + "/"
    run([lumenar, "render", film, "-o", rendered, "--size", SIZE])
    dwells = dwell_frames(rendered)  # The empty player before the first step, then each item.
    if len(dwells) != len(COLOURS) + 1:
        fail("%d dwell frames in the render, not %d: %s" % (len(dwells), len(COLOURS), dwells))

    played = os.path.join(work, "played")
    run([lumenar, "play", film, "--headless", "--size", SIZE, "--dump", played, "--seconds", "30"])
    shown = {read(os.path.join(played, n)) for n in frame_files(played)}
    for name in dwells:
        if read(os.path.join(rendered, name)) not in shown:
            fail("render frame %s is none of the headless player's frames" % name)

    # The same film gives the same frames: locally once more, and downloaded slowly over HTTP.
    again = os.path.join(work, "frames-again") + "/"
    run([lumenar, "render", film, "-o", again, "--size", SIZE])
    srv = Server(server, film, os.path.join(work, "slow.log"), "--throttle", str(24 * 1024), "--block", "1024")
    slow = os.path.join(work, "frames-url") + "/"
    try:
        started = time.time()
        run([lumenar, "render", srv.url, "-o", slow, "--size", SIZE])
        if time.time() - started < os.path.getsize(film) / (24 * 1024) * 0.5:
            fail("the slow download cannot have been slow")
    finally:
        srv.close()
    for other in (again, slow):
        if frame_files(other) != frame_files(rendered):
            fail("%s holds other frame names than %s" % (other, rendered))
        for name in frame_files(rendered):
            if read(os.path.join(other, name)) != read(os.path.join(rendered, name)):
                fail("frame %s differs between %s and %s" % (name, rendered, other))


def probe(path):
    out = run(["ffprobe", "-v", "error", "-show_entries",
               "stream=codec_type,codec_name,width,height,r_frame_rate:format=duration", "-of", "json", path])
    return json.loads(out.stdout)


# name, extra arguments, video codec, frame rate (None: variable), sound codec, first second, last second.
KINDS = [
    ("player pace mp4", "out.mp4", [], "h264", None, "aac", 0, None),
    ("30 fps mp4", "out30.mp4", ["--fps", "30"], "h264", "30/1", "aac", 0, None),
    ("webm", "out.webm", ["--fps", "10"], "vp9", "10/1", "opus", 0, None),
    ("gif", "out.gif", [], "gif", None, None, 0, None),
    ("range", "cut.mp4", ["--fps", "25", "--from", "1", "--to", "2.5"], "h264", "25/1", "aac", 1, 2.5),
]


def check_kinds(lumenar, film, work):
    for name, out, extra, video, rate, sound, start, end in KINDS:
        path = os.path.join(work, out)
        quiet = run([lumenar, "render", film, "-o", path, "--size", SIZE, *extra]).stderr
        if quiet:
            fail("%s: a render to a pipe printed %r" % (name, quiet[:200]))
        info = probe(path)
        streams = {s["codec_type"]: s for s in info["streams"]}
        if streams.get("video", {}).get("codec_name") != video:
            fail("%s: video %s, not %s" % (name, streams.get("video"), video))
        if (streams["video"]["width"], streams["video"]["height"]) != (320, 240):
            fail("%s: %dx%d" % (name, streams["video"]["width"], streams["video"]["height"]))
        if rate and streams["video"]["r_frame_rate"] != rate:
            fail("%s: frame rate %s, not %s" % (name, streams["video"]["r_frame_rate"], rate))
        if (streams.get("audio", {}).get("codec_name")) != sound:
            fail("%s: sound %s, not %s" % (name, streams.get("audio"), sound))
        wanted = ((end * 1000 if end else FILM_MS) - start * 1000) / 1000.0
        duration = float(info["format"]["duration"])
        if abs(duration - wanted) > 0.1:
            fail("%s: lasts %.3f s, not %.3f s" % (name, duration, wanted))
        if video == "h264":
            again = os.path.join(work, "again-" + out)
            run([lumenar, "render", film, "-o", again, "--size", SIZE, *extra])
            if read(again) != read(path):
                fail("%s: two renders of the same film differ" % name)


def check_progress(lumenar, film, work):
    """On a terminal the render shows where it is; the line is gone when it ends."""
    master, slave = pty.openpty()
    render = subprocess.Popen([lumenar, "render", film, "-o", os.path.join(work, "tty.mp4"), "--size", SIZE],
                              stderr=slave, stdout=subprocess.DEVNULL)
    os.close(slave)
    shown = b""
    while True:
        try:
            piece = os.read(master, 4096)
        except OSError:
            break
        if not piece:
            break
        shown += piece
    os.close(master)
    if render.wait(timeout=60) != 0:
        fail("a render on a terminal failed: %r" % shown)
    if b"item " not in shown or b"x " not in shown or not shown.rstrip(b" ").endswith(b"\r"):
        fail("no progress line on a terminal: %r" % shown[:300])


def check_sync(lumenar, film, work):
    """Each click must sound within one frame of the first frame of the item it was placed at."""
    path = os.path.join(work, "sync.mp4")
    run([lumenar, "render", film, "-o", path, "--size", SIZE])
    times = run(["ffprobe", "-v", "error", "-select_streams", "v", "-show_entries", "frame=pts_time", "-of",
                 "csv=p=0", path]).stdout.decode().split()
    pixels = run(["ffmpeg", "-v", "error", "-i", path, "-vf", "crop=40:40:140:100,scale=1:1", "-fps_mode",
                  "passthrough", "-f", "rawvideo", "-pix_fmt", "rgb24", "-"]).stdout
    colours = [tuple(pixels[i:i + 3]) for i in range(0, len(pixels), 3)]
    if len(colours) != len(times):
        fail("%d frame times for %d frames" % (len(times), len(colours)))

    def item_of(colour):
        near = [sum((a - b) ** 2 for a, b in zip(colour, c)) for c in COLOURS]
        return near.index(min(near)) if min(near) < 40 ** 2 else -1

    # An item's first frame follows a picture held for a dwell, and the next dwell shows the item.
    times = [float(t.strip(",")) for t in times]
    held = [i for i in range(len(times)) if (times[i + 1] if i + 1 < len(times) else 1e9) - times[i] > 0.4]
    starts = [times[i + 1] for i in held if i + 1 < len(times)]
    if [item_of(colours[i]) for i in held[1:]] != list(range(len(COLOURS))):
        fail("the dwells show items %s" % [item_of(colours[i]) for i in held[1:]])
    if len(starts) != len(COLOURS):
        fail("items seen at %s" % starts)
    pcm = run(["ffmpeg", "-v", "error", "-i", path, "-map", "0:a", "-ac", "1", "-ar", "8000", "-f", "s16le",
               "-"]).stdout
    samples = [int.from_bytes(pcm[i:i + 2], "little", signed=True) for i in range(0, len(pcm), 2)]
    onsets, quiet = [], 0
    for n, s in enumerate(samples):
        if abs(s) > 8000 and quiet > 800:
            onsets.append(n / 8000.0)
        quiet = 0 if abs(s) > 8000 else quiet + 1
    if len(onsets) != len(COLOURS):
        fail("%d clicks heard, not %d: %s" % (len(onsets), len(COLOURS), onsets))
    for item, (click, start) in enumerate(zip(onsets, starts)):
        wanted = ITEM_STARTS_MS[item] / 1000.0
        if abs(click - wanted) > FRAME_MS / 1000.0:
            fail("item %d: click at %.3f s, placed at %.3f s" % (item + 1, click, wanted))
        if abs(click - start) > 2 * FRAME_MS / 1000.0:
            fail("item %d: click at %.3f s, its picture changes at %.3f s" % (item + 1, click, start))


# name, arguments (after the film; None: no film), status, what the line must hold.
BAD = [
    ("unknown option", ["-o", "x.mp4", "--frobnicate"], 2, "unknown option"),
    ("fps out of range", ["-o", "x.mp4", "--fps", "0"], 2, "not a frame rate"),
    ("bad size", ["-o", "x.mp4", "--size", "12x"], 2, "not a size"),
    ("to before from", ["-o", "x.mp4", "--from", "3", "--to", "2"], 2, "later than --from"),
    ("no output", [], 2, "no output"),
    ("unknown extension", ["-o", "x.avi"], 2, "not an output"),
    ("missing folder", ["-o", "/nonexistent/dir/x.mp4"], 2, "does not exist"),
    ("odd video size", ["-o", "x.mp4", "--size", "321x240"], 2, "even sizes"),
    ("unwritable folder", ["-o", "/proc/x.mp4"], 2, "cannot be written"),
    ("unwritable gif", ["-o", "/proc/x.gif"], 2, "cannot be written"),
]


def check_bad(lumenar, film, work):
    for name, extra, status, text in BAD:
        result = run([lumenar, "render", film, *extra], expect=status)
        lines = result.stderr.decode().splitlines()
        if len(lines) != 1 or text not in lines[0] or not lines[0].startswith("lumenar: "):
            fail("%s: %s" % (name, lines))
        if ".render-" in lines[0]:
            fail("%s: the line names the temporary file: %s" % (name, lines[0]))
    if "x.mp4" in os.listdir(work) or "x.avi" in os.listdir(work):
        fail("a failed render left its output")


def leftovers(work, name):
    return [f for f in os.listdir(work) if f.startswith(name) or f.startswith("." + name)]


def check_interrupted(lumenar, film, server, work):
    """Ctrl-C mid-render, and a download cut short: nothing under the output's name, no temporary."""
    srv = Server(server, film, os.path.join(work, "stalled.log"), "--stall-after", str(os.path.getsize(film) // 2))
    try:
        out = os.path.join(work, "stopped.mp4")
        render = subprocess.Popen([lumenar, "render", srv.url, "-o", out, "--size", SIZE], stderr=subprocess.PIPE)
        deadline = time.time() + 20
        while not leftovers(work, "stopped.mp4") and time.time() < deadline:
            time.sleep(0.05)
        render.send_signal(signal.SIGINT)
        status = render.wait(timeout=30)
        if status != 130:
            fail("interrupted render: exit %d, %s" % (status, render.stderr.read().decode()))
        if leftovers(work, "stopped.mp4"):
            fail("an interrupted render left %s" % leftovers(work, "stopped.mp4"))
    finally:
        srv.close()
    srv = Server(server, film, os.path.join(work, "cut.log"), "--close-after", str(os.path.getsize(film) // 2))
    try:
        result = run([lumenar, "render", srv.url, "-o", os.path.join(work, "short.mp4"), "--size", SIZE],
                     expect=1, timeout=60)
        lines = result.stderr.decode().splitlines()
        if len(lines) != 1 or srv.url not in lines[0]:
            fail("a film cut short: %s" % lines)
        if leftovers(work, "short.mp4"):
            fail("a film cut short left %s" % leftovers(work, "short.mp4"))
    finally:
        srv.close()


def check_manual(lumenar, work):
    """A film that advances by hand waits for its keys in the player; the render turns its pages."""
    film = make_film(lumenar, os.path.join(work, "manual"), advance="manual")
    rendered = os.path.join(work, "manual-frames") + "/"
    run([lumenar, "render", film, "-o", rendered, "--size", SIZE], timeout=60)
    if len(dwell_frames(rendered)) != len(COLOURS) + 1:
        fail("a manual film rendered %d dwell frames, not %d" % (len(dwell_frames(rendered)), len(COLOURS) + 1))


def main():
    lumenar, server, work = sys.argv[1:4]
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    os.chdir(work)
    film = make_film(lumenar, os.path.join(work, "film"))
    check_bad(lumenar, film, work)
    check_kinds(lumenar, film, work)
    check_progress(lumenar, film, work)
    check_sync(lumenar, film, work)
    check_frames(lumenar, film, server, work)
    check_interrupted(lumenar, film, server, work)
    check_manual(lumenar, work)
    print("render_cli: all checks passed")


if __name__ == "__main__":
    main()
