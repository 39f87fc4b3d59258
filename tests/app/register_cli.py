#!/usr/bin/env python3
"""Runs `lumenar register` and `lumenar unregister` against a temporary XDG_DATA_HOME: registration
writes the store, the desktop entry and the mime package naming this build's files; unregistration
removes them and nothing else.

usage: register_cli.py LUMENAR WORKDIR
"""
import os
import shutil
import subprocess
import sys


def run(args, env, expect=0):
    result = subprocess.run(args, capture_output=True, env=env)
    if result.returncode != expect:
        sys.exit("exit %d, not %d: %s\n%s" % (result.returncode, expect, " ".join(args), result.stderr.decode()))
    return result


def main():
    lumenar, work = sys.argv[1], sys.argv[2]
    shutil.rmtree(work, ignore_errors=True)
    data = os.path.join(work, "data")
    os.makedirs(os.path.join(data, "applications"))
    other = os.path.join(data, "applications", "other.desktop")
    with open(other, "w") as f:
        f.write("[Desktop Entry]\nName=Other\n")
    env = dict(os.environ, XDG_DATA_HOME=data)

    run([lumenar, "register"], env)
    store = open(os.path.join(data, "lumenar", "registry")).read()
    library = os.path.join(os.path.dirname(os.path.realpath(lumenar)), "liblumenar.so")
    assert "\\InprocServer32\t@\t%s\n" % library in store, store
    desktop = open(os.path.join(data, "applications", "lumenar-player.desktop")).read()
    assert 'Exec="%s" play %%u\n' % os.path.realpath(lumenar) in desktop, desktop
    assert os.path.exists(os.path.join(data, "mime", "packages", "lumenar-film.xml"))

    run([lumenar, "unregister"], env)
    for path in ("lumenar/registry", "applications/lumenar-player.desktop", "mime/packages/lumenar-film.xml"):
        assert not os.path.exists(os.path.join(data, path)), path
    assert open(other).read() == "[Desktop Entry]\nName=Other\n"

    # A user's own desktop entry of the same name is never overwritten: one line, nothing written.
    own = os.path.join(data, "applications", "lumenar-player.desktop")
    with open(own, "w") as f:
        f.write("[Desktop Entry]\nName=Mine\n")
    refused = run([lumenar, "register"], env, expect=2)
    lines = refused.stderr.decode().splitlines()
    assert len(lines) == 1 and "applications/lumenar-player.desktop was not written by" in lines[0], lines
    assert not os.path.exists(os.path.join(data, "lumenar")), "a refused registration writes nothing"
    run([lumenar, "unregister"], env)
    assert open(own).read() == "[Desktop Entry]\nName=Mine\n"
    os.remove(own)

    run([lumenar, "register", "--help"], env)
    bad = run([lumenar, "register", "extra"], env, expect=2)
    assert b"unexpected argument" in bad.stderr
    no_home = {k: v for k, v in env.items() if k not in ("XDG_DATA_HOME", "HOME")}
    failed = run([lumenar, "unregister"], no_home, expect=2)
    assert failed.stderr.decode().startswith("lumenar: unregister: "), failed.stderr
    print("register commands passed")


if __name__ == "__main__":
    main()
