#!/usr/bin/env python3
"""What becomes of files that are edited, and what damaged files cost: kvjpx beside other programs.

Takes the samples (and what else is named) and copies of them with one change each: a byte, a cut, bytes
behind. Each is edited (XMP in, XMP out again) and must then be what it was; and each is looked into.

usage: safety.py [KVJPX] [--copies N] [FILE...]     others: exiftool, opj_dump, jpylyzer where installed
"""
import argparse
import pathlib
import random
import shutil
import subprocess
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
XMP = b'<x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#"/></x:xmpmeta>'


def changed(data, dice):
    kind = dice.randrange(3)
    at = dice.randrange(len(data))
    if kind == 0:
        return data[:at] + bytes([data[at] ^ 1 << dice.randrange(8)]) + data[at + 1:]
    return data[:at] if kind == 1 else data + dice.randbytes(1 + at % 40)


def run(*command):
    """0 done, 1 refused, 2 crashed or hung."""
    try:
        code = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, timeout=20, check=False).returncode
    except subprocess.TimeoutExpired:
        return 2
    return 0 if code == 0 else 2 if code < 0 or code >= 128 else 1


def edit_with_kvjpx(kvjpx, path):
    return run(kvjpx, "meta", path, "--xmp", "new.xmp", "--in-place") or \
        run(kvjpx, "meta", path, "--remove", "xmp", "--in-place")


def edit_with_exiftool(_, path):
    return run("exiftool", "-q", "-overwrite_original", "-xmp<=new.xmp", path) or \
        run("exiftool", "-q", "-overwrite_original", "-xmp:all=", path)


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("kvjpx", nargs="?", default=str(ROOT / "build/bin/kvjpx"))
    arguments.add_argument("--copies", type=int, default=10)
    arguments.add_argument("files", nargs="*")
    options = arguments.parse_args()
    kvjpx = str(pathlib.Path(options.kvjpx).resolve())
    dice = random.Random(1)
    whole = [pathlib.Path(f).read_bytes() for f in options.files or sorted((ROOT / "samples").glob("*.jp*"))]
    whole = [data for data in whole if b"\xbe\x7a\xcf\xcb\x97\xa9\x42\xe8" not in data]  # with XMP already
    damaged = [changed(data, dice) for data in whole for _ in range(options.copies)]

    print("| XMP put in and taken out again | the file is what it was | it is another | refused | crash, hang |")
    print("|---|---|---|---|---|")
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        editors = {"kvjpx": edit_with_kvjpx, "exiftool": edit_with_exiftool}
        for tool, edit in editors.items():
            if tool != "kvjpx" and not shutil.which(tool):
                continue
            for kind, inputs in (("whole", whole), ("damaged", damaged)):
                counts = [0, 0, 0, 0]
                for data in inputs:
                    path = folder / "file.jp2"
                    path.write_bytes(data)
                    (folder / "new.xmp").write_bytes(XMP)
                    outcome = run_in(folder, edit, kvjpx, path)
                    counts[outcome + 1 if outcome else path.read_bytes() != data] += 1
                print(f"| {tool}, {len(inputs)} {kind} files | " + " | ".join(map(str, counts)) + " |", flush=True)

        print("\n| Look into | says something | refuses | crash, hang |\n|---|---|---|---|")
        viewers = {"kvjpx info": [kvjpx, "info"], "kvjpx dump": [kvjpx, "dump"], "exiftool": ["exiftool"],
                   "opj_dump": ["opj_dump", "-i"], "jpylyzer": ["jpylyzer"]}
        for tool, command in viewers.items():
            if not shutil.which(command[0]):
                continue
            counts = [0, 0, 0]
            for data in damaged:
                path = folder / "file.jp2"
                path.write_bytes(data)
                counts[run(*command, str(path))] += 1
            print(f"| {tool}, {len(damaged)} damaged files | " + " | ".join(map(str, counts)) + " |", flush=True)


def run_in(folder, edit, kvjpx, path):
    import os
    here = os.getcwd()
    os.chdir(folder)
    try:
        return edit(kvjpx, str(path))
    finally:
        os.chdir(here)


main()
