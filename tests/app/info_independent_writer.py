#!/usr/bin/env python3
"""Writes a film file with a compound-file writer of its own (nothing shared with libgsf or our test
writer), runs `lumenar info` on it and checks every field of the JSON against the description.

usage: info_independent_writer.py LUMENAR WORKDIR
"""
import json
import os
import struct
import subprocess
import sys

ENDOFCHAIN, FREESECT, FATSECT, NOSTREAM = 0xFFFFFFFE, 0xFFFFFFFF, 0xFFFFFFFD, 0xFFFFFFFF
SECTOR, MINI = 512, 64


def compound_file(tree):
    """tree: list of (name, bytes) streams and (name, [children]) storages under the root."""
    entries = [{"name": "Root Entry", "type": 5}]

    def add(name, content):
        entry = {"name": name}
        index = len(entries)
        entries.append(entry)
        if isinstance(content, list):
            entry["type"] = 1
            entry["children"] = [add(n, c) for n, c in content]
        else:
            assert len(content) < 4096, "this writer keeps every stream in the mini stream"
            entry["type"] = 2
            entry["data"] = content
        return index

    entries[0]["children"] = [add(n, c) for n, c in tree]

    # Mini stream and its allocation table.
    mini, minifat = bytearray(), []
    for entry in entries:
        if entry["type"] != 2:
            continue
        data = entry["data"]
        if not data:
            entry["start"] = ENDOFCHAIN
            continue
        count = (len(data) + MINI - 1) // MINI
        entry["start"] = len(minifat)
        minifat += [len(minifat) + i + 1 for i in range(count - 1)] + [ENDOFCHAIN]
        mini += data + bytes(count * MINI - len(data))

    # Siblings: each storage's children as a right-leaning chain in the format's name order.
    for entry in entries:
        entry.setdefault("left", NOSTREAM)
        entry.setdefault("right", NOSTREAM)
    for entry in entries:
        kids = sorted(entry.get("children", []),
                      key=lambda i: (len(entries[i]["name"]), entries[i]["name"].upper()))
        entry["child"] = kids[0] if kids else NOSTREAM
        for a, b in zip(kids, kids[1:]):
            entries[a]["right"] = b

    ndir = (len(entries) + 3) // 4
    nminifat = (len(minifat) * 4 + SECTOR - 1) // SECTOR
    nmini = (len(mini) + SECTOR - 1) // SECTOR
    nfat = 1
    while (nfat + ndir + nminifat + nmini + 127) // 128 > nfat:
        nfat += 1
    fat = [FREESECT] * (nfat * 128)
    for i in range(nfat):
        fat[i] = FATSECT

    def chain(first, count):
        for i in range(count):
            fat[first + i] = first + i + 1 if i + 1 < count else ENDOFCHAIN
        return first if count else ENDOFCHAIN

    first_dir = chain(nfat, ndir)
    first_minifat = chain(nfat + ndir, nminifat)
    first_mini = chain(nfat + ndir + nminifat, nmini)
    entries[0]["start"], entries[0]["data"] = first_mini, bytes(len(mini))

    directory = bytearray()
    for entry in entries:
        name = entry["name"].encode("utf-16-le")
        directory += name + bytes(64 - len(name))
        directory += struct.pack("<HBBIII", len(name) + 2, entry["type"], 1,
                                 entry["left"], entry["right"], entry["child"])
        directory += bytes(16) + struct.pack("<IQQ", 0, 0, 0)
        size = len(entry.get("data", b"")) if entry["type"] != 1 else 0
        directory += struct.pack("<III", entry.get("start", 0) if entry["type"] != 1 else 0, size, 0)
    empty = bytes(64) + struct.pack("<HBBIII", 0, 0, 0, NOSTREAM, NOSTREAM, NOSTREAM) + bytes(16 + 20 + 12)
    while len(directory) < ndir * SECTOR:
        directory += empty

    header = b"\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1" + bytes(16)
    header += struct.pack("<HHHHH", 0x3E, 3, 0xFFFE, 9, 6) + bytes(6)
    header += struct.pack("<IIIIIIIII", 0, nfat, first_dir, 0, 4096,
                          first_minifat if nminifat else ENDOFCHAIN, nminifat, ENDOFCHAIN, 0)
    header += struct.pack("<109I", *(list(range(nfat)) + [FREESECT] * (109 - nfat)))
    assert len(header) == SECTOR

    body = struct.pack("<%dI" % len(fat), *fat) + bytes(directory)
    body += struct.pack("<%dI" % len(minifat), *minifat)
    body += bytes(nminifat * SECTOR - len(minifat) * 4)
    body += bytes(mini) + bytes(nmini * SECTOR - len(mini))
    return header + body


def file_reference(path, name):
    return path.ljust(260, b"\0")[:260] + name.ljust(256, b"\0")[:256]


def words(*values):
    return b"".join(struct.pack("<i", v) for v in values)


def item_record(kind, slots, numbers):
    """slots: dict slot letter -> (path, name); numbers: width..rect as 12 ints."""
    record = b""
    for letter in "ABCDEF":
        record += file_reference(*slots.get(letter, (b"", b"")))
    return record + words(*numbers)


FONT_FIELDS = ["height", "width", "escapement", "orientation", "weight"]
BYTE_FIELDS = ["italic", "underline", "strikeOut", "charSet", "outPrecision", "clipPrecision", "quality",
               "pitchAndFamily"]


def text_record(x, y, font, colour, spacing, alignment, shadow, extent, state):
    record = words(x, y) + words(*[font[f] for f in FONT_FIELDS])
    record += bytes(font[f] for f in BYTE_FIELDS) + font["faceName"].encode().ljust(32, b"\0")
    record += struct.pack("<IiiiiiI", colour, spacing, alignment, shadow, extent[0], extent[1], state)
    assert len(record) == 96
    return record


def style_json(x, y, font, colour, spacing, alignment, shadow, extent, state):
    return {"x": x, "y": y, "font": dict(font), "colour": colour, "lineSpacing": spacing,
            "alignment": alignment, "shadow": shadow, "extentWidth": extent[0], "extentHeight": extent[1],
            "effectState": state}


def main():
    lumenar, workdir = sys.argv[1], sys.argv[2]
    os.makedirs(workdir, exist_ok=True)
    font = {"height": -32, "width": 0, "escapement": 0, "orientation": 0, "weight": 700, "italic": 1,
            "underline": 0, "strikeOut": 0, "charSet": 0, "outPrecision": 3, "clipPrecision": 2, "quality": 1,
            "pitchAndFamily": 34, "faceName": "Arial"}
    style_a = (100, 500, font, 0x00FFFF, 120, 1, 1, (-5, 77), 0x12345678)
    style_b = (0, 0, dict(font, weight=400, italic=0), 0x0000FF, 100, 2, 0, (0, 0), 0)
    captions = [(1, 7, "Caf\xe9 \u201cbonjour\u201d\r\nline two", style_a), (2, 60, "Second", style_b)]
    text_list = [("TEXT%d" % k, words(99, effect) + text.encode("cp1252").ljust(256, b"\0") + text_record(*style))
                 for k, effect, text, style in captions]

    photo_numbers = [800, 600, 4, 150, 2000, 42, 1000, 0, 0, 0, 800, 600]
    clip_numbers = [320, 240, 9, -3, 500, 7, 1001, 2, 1, 2, 3, 4]
    tree = [
        ("VERSION", words(200)),
        ("BGMUSIC", file_reference(b"C:\\Music\\", b"theme.mp3")),
        ("LOOP", words(0)),
        ("AUTOPLAY", words(729)),
        ("FILMLINK1", [("FILMITEM", item_record(1000, {"A": (b"", b"51234photo.jpg"), "B": (b"", b"77mask.jpg"),
                                                       "C": (b"junk", b"junk"), "F": (b"", b"900voice.ca")},
                                                photo_numbers)),
                       ("TEXTLIST", text_list)]),
        ("FILMLINK2", [("FILMITEM", item_record(1001, {"A": (b"", b"5clip.avi"), "B": (b"", b"6a.jpg"),
                                                       "D": (b"", b"8b.jpg"), "E": (b"junk", b"junk"),
                                                       "F": (b"", b"Track02.cda")}, clip_numbers))]),
    ]
    path = os.path.join(workdir, "independent.flm")
    with open(path, "wb") as out:
        out.write(compound_file(tree))

    empty = {"path": "", "name": ""}

    def ref(name, folder=""):
        return {"path": folder, "name": name}

    expected = {
        "result": 1, "loop": 0, "advanceMode": 729, "music": "C:\\Music\\theme.mp3", "itemCount": 2,
        "items": [
            {"index": 1, "kind": 1000, "photo": ref("51234photo.jpg"), "mask": ref("77mask.jpg"),
             "clipFile": empty, "clipPicture1": empty, "clipPicture2": empty, "showFile": empty,
             "sound": ref("900voice.ca"), "width": 800, "height": 600, "displaySeconds": 4, "effect": 98,
             "effectMs": 2000, "soundMode": 0, "rect": [0, 0, 800, 600],
             "texts": [{"ordinal": k, "effect": min(effect, 53) if effect > 54 else effect, "text": text,
                        "style": style_json(*style)} for k, effect, text, style in captions]},
            {"index": 2, "kind": 1001, "photo": empty, "mask": empty, "clipFile": ref("5clip.avi"),
             "clipPicture1": ref("6a.jpg"), "clipPicture2": ref("8b.jpg"), "showFile": empty,
             "sound": ref("Track02.cda"), "width": 320, "height": 240, "displaySeconds": 9, "effect": -3,
             "effectMs": 500, "soundMode": 2, "rect": [1, 2, 3, 4], "texts": []},
        ],
    }
    run = subprocess.run([lumenar, "info", path], capture_output=True, text=True)
    if run.returncode != 0:
        sys.exit("lumenar info failed: " + run.stderr)
    got = json.loads(run.stdout)
    if got != expected:
        for key in expected:
            if got.get(key) != expected[key]:
                print("mismatch in %s:\n  got      %s\n  expected %s" % (key, got.get(key), expected[key]))
        sys.exit(1)
    # Key order is part of the format.
    if list(got.keys()) != list(expected.keys()) or list(got["items"][0].keys()) != list(expected["items"][0].keys()):
        sys.exit("keys out of order")
    print("lumenar info read the independently written film: 2 items, 2 captions, all fields match")


if __name__ == "__main__":
    main()
