#!/usr/bin/env python3
"""How fast `kvjpx check` is.

  check.py KVJPX [FILE...]

Checks two sparse files of 6 GiB, one with a codestream of two tile-parts of 3 GiB each, one with a
free box of that size, and fails when that takes more than 50 ms of the processor or 32 MiB of memory.
With files, and the program jpylyzer (Debian: python3-jpylyzer), gives 100 copies of each to either
program, in one run of each, three times in turns, and fails when kvjpx is not 20 times as fast.
"""

import os
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path
from struct import pack

GIBIBYTE = 1 << 30


def box(kind, content):
    return pack(">I", 8 + len(content)) + kind + content


def run(command):
    """Status, seconds of the processor, and the most memory in MiB."""
    child = subprocess.Popen(command, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(child.pid, 0)
    return status, usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024


def sparse_files(folder):
    ihdr = box(b"ihdr", pack(">IIHBBBB", 16, 32, 1, 7, 7, 0, 0))
    front = (
        box(b"jP  ", bytes.fromhex("0D0A870A"))
        + box(b"ftyp", b"jp2 \0\0\0\0jp2 ")
        + box(b"jp2h", ihdr + box(b"colr", bytes([1, 0, 0, 0, 0, 0, 17])))
    )
    siz = pack(">HHIIIIIIIIHBBB", 41, 0, 32, 16, 0, 0, 16, 16, 0, 0, 1, 7, 1, 1)
    cod = bytes.fromhex("000C00000001000004040001")
    header = b"\xff\x4f\xff\x51" + siz + b"\xff\x52" + cod + bytes.fromhex("FF5C00044040")

    def tile_part(tile, length):
        return pack(">HHHIBBH", 0xFF90, 10, tile, length, 0, 1, 0xFF93)

    large = folder / "codestream.jp2"
    with large.open("wb") as file:
        length = 16 + len(header) + 6 * GIBIBYTE + 2
        file.write(front + pack(">I4sQ", 1, b"jp2c", length) + header)
        begin = file.tell()
        for tile in range(2):
            file.seek(begin + tile * 3 * GIBIBYTE)
            file.write(tile_part(tile, 3 * GIBIBYTE))
        file.seek(begin + 6 * GIBIBYTE)
        file.write(b"\xff\xd9")
    free = folder / "free.jp2"
    with free.open("wb") as file:
        file.write(front + pack(">I4sQ", 1, b"free", 16 + 6 * GIBIBYTE))
        file.seek(6 * GIBIBYTE, os.SEEK_CUR)
        small = header + tile_part(0, 15) + b"x" + tile_part(1, 15) + b"x\xff\xd9"
        file.write(box(b"jp2c", small))
    return [large, free]


def check_sparse(program, folder):
    for file in sparse_files(folder):
        status, seconds, mebibytes = run([program, "check", file])
        size = file.stat().st_size / GIBIBYTE
        print(f"{file.name}: {size:.1f} GiB in {1000 * seconds:.1f} ms, {mebibytes:.1f} MiB")
        if status != 0 or seconds > 0.05 or mebibytes > 32:
            sys.exit("too much, or not found to be valid")


def compare(program, folder, files):
    names = []
    for i in range(100):
        for file in files:
            names.append(str(folder / f"{i}-{Path(file).name}"))
            shutil.copyfile(file, names[-1])
    commands = {"jpylyzer": ["jpylyzer"], "kvjpx": [program, "check", "--json"]}
    best = dict.fromkeys(commands, float("inf"))
    for _ in range(3):
        for name, command in commands.items():
            start = time.perf_counter()
            subprocess.run([*command, *names], capture_output=True, check=False)
            best[name] = min(best[name], time.perf_counter() - start)
    rates = ", ".join(f"{name} {len(names) / seconds:.0f}" for name, seconds in best.items())
    faster = best["jpylyzer"] / best["kvjpx"]
    print(f"{len(names)} files: {rates} files a second, {faster:.0f} times as many")
    if faster < 20:
        sys.exit("not 20 times as many")


def main(program, *files):
    with tempfile.TemporaryDirectory() as name:
        check_sparse(program, Path(name))
        if files:
            compare(program, Path(name), files)


if __name__ == "__main__":
    main(*sys.argv[1:])
