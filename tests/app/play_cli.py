#!/usr/bin/env python3
"""Plays films with `lumenar play` as a user would, served by a loopback HTTP server.

  play_cli.py LUMENAR FILM_SERVER WORKDIR [--window]

Headless (default): a film of five differently coloured photos, served at 200 KiB/s, must show its
first item well before the download can have ended, show every item in order, end by itself, and
leave nothing in the temporary folder; served by a server that stalls after the second item, the
delivered items still play and closing mid-download neither hangs nor leaves files; a film that cannot
be completed (404, a redirect loop, a film cut short, no usable temporary folder) ends the player
within seconds with one line that says why and exit status 1.

Then the viewer's keys (pressed with --press), a window larger than 800x600 and --loop.

--window (run under xvfb-run): the same film in a real window; a screenshot of the screen while
item 1 dwells must match the frame the headless player presents for item 1.
"""
import os
import re
import shutil
import signal
import subprocess
import sys
import time

RATE = 80 * 1024  # Slow enough that item 1 shows long before the end, even in sanitizer builds.
COLOURS = [(200, 40, 40), (40, 170, 60), (40, 70, 200), (220, 200, 40), (150, 60, 170)]


def fail(message):
    sys.exit("play_cli: " + message)


def run(args, expect=0, env=None, timeout=120):
    result = subprocess.run(args, capture_output=True, env=env, timeout=timeout)
    if result.returncode != expect:
        fail("exit %d, not %d: %s\n%s" % (result.returncode, expect, " ".join(args), result.stderr.decode()))
    return result


def make_film(lumenar, folder, seconds, advance="automatic", count=len(COLOURS)):
    """Noisy photos (so that they weigh what photos weigh) around a flat coloured centre."""
    os.makedirs(folder, exist_ok=True)
    lines = ["advance " + advance]
    for i, (r, g, b) in enumerate(COLOURS[:count]):
        ppm = os.path.join(folder, "p%d.ppm" % i)
        run(["convert", "-size", "800x600", "-seed", str(i + 1), "xc:rgb(%d,%d,%d)" % (r, g, b),
             "-attenuate", "0.6", "+noise", "Gaussian", "-fill", "rgb(%d,%d,%d)" % (r, g, b),
             "-draw", "rectangle 300,200 500,400", "-depth", "8", "ppm:" + ppm])
        run(["cjpeg", "-quality", "90", "-outfile", os.path.join(folder, "p%d.jpg" % i), ppm])
        os.remove(ppm)
        lines += ["photo p%d.jpg" % i, "  effect 39", "  effect-ms 200", "  seconds %d" % seconds]
        if i == 1:
            run(["sox", "-n", "-r", "8000", "-c", "1", "-b", "16", os.path.join(folder, "tone.wav"),
                 "synth", "1", "sine", "440"])
            lines.append("  sound tone.wav")
    manifest = os.path.join(folder, "film.manifest")
    with open(manifest, "w") as f:
        f.write("\n".join(lines) + "\n")
    film = os.path.join(folder, "test.film")
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
        self.url = "http://127.0.0.1:%s/test.film" % open(port_file).read().strip()

    def close(self):
        self.process.stdin.close()
        self.process.wait(timeout=10)


def centre_colours(frames, crop="120x120+340+240"):
    """The mean colour of each frame's centre square, through one ImageMagick run per batch."""
    colours = []
    for start in range(0, len(frames), 40):
        batch = frames[start:start + 40]
        out = run(["convert", *batch, "-crop", crop, "-scale", "1x1!", "-depth", "8",
                   "txt:-"]).stdout.decode()
        for line in out.splitlines():
            if line.startswith("0,0:"):
                values = line.split("(")[1].split(")")[0].split(",")
                colours.append(tuple(int(float(v)) for v in values[:3]))
    if len(colours) != len(frames):
        fail("could not read the centre of %d frames" % (len(frames) - len(colours)))
    return colours


def item_of(colour):
    best = min(range(len(COLOURS)), key=lambda i: sum((a - b) ** 2 for a, b in zip(colour, COLOURS[i])))
    return best + 1 if sum((a - b) ** 2 for a, b in zip(colour, COLOURS[best])) < 30 ** 2 else 0


def played_items(folder, crop="120x120+340+240"):
    """(item, ms) for every frame that shows one item whole, in frame order."""
    frames = sorted(os.listdir(folder))
    if not frames:
        fail("no frames in " + folder)
    colours = centre_colours([os.path.join(folder, f) for f in frames], crop)
    return [(item_of(c), int(f.split("-")[1].split(".")[0])) for f, c in zip(frames, colours)]


def first_appearances(played):
    order, first = [], {}
    for item, ms in played:
        if item and item not in first:
            first[item] = ms
            order.append(item)
    return order, first


def check_temp_empty(tmp):
    left = [os.path.join(d, f) for d, _, files in os.walk(tmp) for f in files]
    left += [d for d, dirs, files in os.walk(tmp) if d != tmp]
    if left:
        fail("temporary files left behind: %s" % left)


def headless(lumenar, server, work):
    film = make_film(lumenar, os.path.join(work, "film"), seconds=1)
    size = os.path.getsize(film)
    env = dict(os.environ, TMPDIR=os.path.join(work, "tmp"))
    os.makedirs(env["TMPDIR"], exist_ok=True)

    def serve_and_play(name, seconds, *server_options):
        """Plays the film from a fresh server headless; the items in order of appearance, when each
        first appeared (ms) and how long the player ran (s)."""
        srv = Server(server, film, os.path.join(work, name + ".log"), *server_options)
        frames = os.path.join(work, "frames-" + name)
        started = time.time()
        run([lumenar, "play", srv.url, "--headless", "--dump", frames, "--seconds", str(seconds)], env=env)
        took = time.time() - started
        srv.close()
        return (*first_appearances(played_items(frames)), took)

    # Throttled: the whole film plays, in order, and starts long before the download can be over.
    order, first, took = serve_and_play("throttled", 60, "--throttle", str(RATE))
    if order != list(range(1, len(COLOURS) + 1)):
        fail("items appeared in the order %s" % order)
    download_ms = size * 1000 // RATE
    if first[1] > download_ms * 6 // 10:
        fail("item 1 appeared at %d ms, the download takes %d ms" % (first[1], download_ms))
    if took > 50:
        fail("the film did not end by itself (%.0f s)" % took)
    check_temp_empty(env["TMPDIR"])
    print("throttled: %d bytes at %d B/s (%d ms), item 1 at %d ms, items at %s" %
          (size, RATE, download_ms, first[1], [first[i] for i in order]))

    # Stalled after the second item: both play, then closing mid-download ends promptly and cleanly.
    stall_at = size - sum(os.path.getsize(os.path.join(work, "film", "p%d.jpg" % i)) for i in range(2, 5))
    order, _, took = serve_and_play("stalled", 6, "--stall-after", str(stall_at))
    if order != [1, 2]:
        fail("with the stalled server items %s appeared, not [1, 2]" % order)
    if took > 15:
        fail("closing during a stalled download took %.1f s" % took)
    check_temp_empty(env["TMPDIR"])
    print("stalled after %d bytes: items %s played, closed after %.1f s" % (stall_at, order, took))

    # Films that cannot be completed: one line, exit status 1, within seconds.
    cut = os.path.join(work, "cut.film")
    with open(film, "rb") as whole, open(cut, "wb") as part:
        part.write(whole.read(size - sum(os.path.getsize(os.path.join(work, "film", "p%d.jpg" % i))
                                         for i in range(1, 5))))
    missing = Server(server, film, os.path.join(work, "missing.log"), "--status", "404")
    looping = Server(server, film, os.path.join(work, "looping.log"), "--redirect-loop")
    rows = [
        ("404", missing.url, env, re.escape(missing.url) + ": 404 Not Found"),
        ("redirect loop", looping.url, env, re.escape(looping.url) + ": more than 10 redirects"),
        ("cut short", cut, env, re.escape(cut) + r": the film ends after [01] of 5 items"),
        ("no temporary folder", film, dict(env, TMPDIR=os.path.join(work, "no-such-folder")),
         re.escape(film) + ": cannot write the film file: cannot make a private folder .*"),
    ]
    for name, address, environment, expected in rows:
        started = time.time()
        result = run([lumenar, "play", address, "--headless", "--seconds", "60"], expect=1, env=environment)
        took = time.time() - started
        lines = [line for line in result.stderr.decode().splitlines() if line.startswith("lumenar:")]
        if len(lines) != 1 or not re.fullmatch("lumenar: " + expected, lines[0]):
            fail("%s: the player said %s" % (name, lines))
        if took > 15:
            fail("%s: the player took %.1f s to give up" % (name, took))
        print("%s: '%s' after %.1f s" % (name, lines[0], took))
    missing.close()
    looping.close()
    check_temp_empty(env["TMPDIR"])


def window(lumenar, server, work):
    film = make_film(lumenar, os.path.join(work, "film"), seconds=30)
    srv = Server(server, film, os.path.join(work, "window.log"))
    frames = os.path.join(work, "frames-window")
    title = "Lumenar - " + srv.url
    player = subprocess.Popen([lumenar, "play", srv.url, "--dump", frames, "--seconds", "60"],
                              stderr=subprocess.PIPE)
    # Item 1 comes with a 200 ms cut and no captions, so once frames stop arriving it is dwelling.
    deadline, seen, quiet_since = time.time() + 20, -1, time.time()
    while time.time() < deadline:
        count = len(os.listdir(frames)) if os.path.isdir(frames) else 0
        if count != seen:
            seen, quiet_since = count, time.time()
        elif count > 0 and time.time() - quiet_since > 1.5:
            break
        time.sleep(0.1)
    else:
        fail("item 1 did not settle on screen within 20 s")
    info = run(["xwininfo", "-name", title]).stdout.decode()
    geometry = {}
    for line in info.splitlines():
        line = line.strip()
        for key in ("Absolute upper-left X:", "Absolute upper-left Y:", "Width:", "Height:"):
            if line.startswith(key):
                geometry[key] = int(line.split(":")[1])
    shot = os.path.join(work, "screen.png")
    run(["sh", "-c", "xwd -root -silent | convert xwd:- " + shot])
    player.send_signal(signal.SIGINT)  # Closes the player as closing its window would.
    if player.wait(timeout=30) != 0:
        fail("lumenar play in a window: " + player.stderr.read().decode())
    srv.close()
    x, y = geometry["Absolute upper-left X:"], geometry["Absolute upper-left Y:"]
    w, h = geometry["Width:"], geometry["Height:"]
    if (w, h) != (800, 600):
        fail("the window is %dx%d, not 800x600" % (w, h))
    window_png = os.path.join(work, "window.png")
    # The play/stop button shows in the top-right corner while the pointer is over the window (the
    # virtual display's pointer starts there); the headless host has no pointer, so that corner is
    # left out of both pictures.
    corner = ["-fill", "black", "-draw", "rectangle 760,0 799,24"]
    run(["convert", shot, "-crop", "%dx%d+%d+%d" % (w, h, x, y), "+repage", *corner, window_png])
    # The same item played headless, for the frame the window is compared with.
    headless_frames = os.path.join(work, "frames-headless")
    run([lumenar, "play", film, "--headless", "--dump", headless_frames, "--seconds", "3"])
    for name, folder in (("presented in the window", frames), ("presented headless", headless_frames)):
        played = played_items(folder)
        item1 = [i for i, (item, _) in enumerate(played) if item == 1]
        if not item1:
            fail("item 1 never appeared " + name)
        frame = os.path.join(work, "item1-%s.png" % name.split()[-1])
        run(["convert", os.path.join(folder, sorted(os.listdir(folder))[item1[-1]]), *corner, frame])
        metric = subprocess.run(["compare", "-metric", "PSNR", window_png, frame, "null:"],
                                capture_output=True).stderr.decode().strip()
        psnr = float("inf") if metric.startswith("inf") else float(metric.split()[0])
        # The window shows what the compositor made, and so does the headless host: anything but a
        # near-copy means the window shows something else (a shifted, scaled or stale picture).
        if psnr < 40:
            fail("the window's pixels differ from item 1 %s: PSNR %s dB" % (name, metric))
        print("window screenshot against item 1 %s: PSNR %s dB" % (name, metric))


def viewer(lumenar, work):
    """The viewer's keys, pressed as a viewer would, step a manual film on and quit; the picture fills a
    window larger than 800x600; --loop plays the film again."""
    help_text = run([lumenar, "play", "--help"]).stdout.decode()
    for key in ("Space, Right, Down", "F11", "Ctrl+Q"):
        if key not in help_text:
            fail("play --help does not list " + key)
    film = make_film(lumenar, os.path.join(work, "manual"), seconds=1, advance="manual")
    frames = os.path.join(work, "viewer-frames")
    started = time.monotonic()
    run([lumenar, "play", film, "--headless", "--size", "1000x750", "--dump", frames, "--seconds", "60",
         "--press", "space@1500,right@3000,f11@3500,q@5000"])
    if time.monotonic() - started > 30:
        fail("q did not quit the player")
    played = played_items(frames, "150x150+425+300")
    order = [item for item, _ in played if item]
    steps = [order[0]] + [b for a, b in zip(order, order[1:]) if a != b]
    if steps != [1, 2, 3]:
        fail("space and right showed items %s, not [1, 2, 3]" % steps)
    last = sorted(os.listdir(frames))[-1]
    size = run(["identify", "-format", "%wx%h", os.path.join(frames, last)]).stdout.decode()
    edge = centre_colours([os.path.join(frames, last)], "20x20+5+365")[0]
    if size != "1000x750" or item_of(edge) != 3:
        fail("the picture does not fill a 1000x750 window (%s, left edge %s)" % (size, edge))
    looped = os.path.join(work, "loop-frames")
    run([lumenar, "play", make_film(lumenar, os.path.join(work, "loop"), seconds=1, count=2), "--headless",
         "--loop", "--dump", looped, "--seconds", "7"])
    order = [item for item, _ in played_items(looped) if item]
    steps = [order[0]] + [b for a, b in zip(order, order[1:]) if a != b]
    if steps[:3] != [1, 2, 1]:
        fail("--loop showed items %s, not 1, 2 and 1 again" % steps)


def main():
    if len(sys.argv) < 4:
        fail("usage: play_cli.py LUMENAR FILM_SERVER WORKDIR [--window]")
    lumenar, server, work = sys.argv[1], sys.argv[2], sys.argv[3]
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    for tool in ("convert", "cjpeg", "sox"):
        if shutil.which(tool) is None:
            fail(tool + " is missing (scripts/install-deps installs it)")
    if "--window" in sys.argv[4:]:
        window(lumenar, server, work)
    else:
        headless(lumenar, server, work)
        viewer(lumenar, work)


if __name__ == "__main__":
    main()
