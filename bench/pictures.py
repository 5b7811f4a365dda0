#!/usr/bin/python3
"""kvjpx decode beside opj_decompress and grk_decompress: processor time, wall time and memory of each, on
one picture in one tile and in tiles, whole, in part and reduced, in one run.

usage: pictures.py [KVJPX] [--rounds N] [--side COLUMNS]   needs python3-numpy, libopenjp2-tools, and
for the third column grokj2k-tools
"""
import argparse
import multiprocessing
import os
import pathlib
import resource
import shutil
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent


def make_picture(path, columns):
    """A scene of slopes, edges and grain, three channels of 8 bits."""
    import numpy

    rows = columns * 2 // 3
    y, x = numpy.mgrid[0:rows, 0:columns]
    grain = numpy.random.default_rng(1).integers(0, 8, (rows, columns, 3))
    scene = numpy.stack([x * 200 // columns, y * 200 // rows, ((x // 97 + y // 61) % 2) * 120 + 40], axis=2)
    with open(path, "wb") as out:
        out.write(b"P6\n%d %d\n255\n" % (columns, rows))
        out.write((scene + grain).astype(numpy.uint8).tobytes())


def measure(command, rounds):
    """Least processor and wall seconds, most memory in MB; None if it fails."""
    cpu, wall, memory = [], [], []
    for _ in range(rounds):
        begin = time.monotonic()
        child = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = status
        if status != 0:
            return None
        wall.append(time.monotonic() - begin)
        cpu.append(usage.ru_utime + usage.ru_stime)
        memory.append(usage.ru_maxrss / 1000)
    return min(cpu), min(wall), max(memory)


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("kvjpx", nargs="?", default=str(ROOT / "build/bin/kvjpx"))
    arguments.add_argument("--rounds", type=int, default=3)
    arguments.add_argument("--side", type=int, default=6000)
    options = arguments.parse_args()
    kvjpx = os.path.abspath(options.kvjpx)
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        # By a process of its own: what this one holds would count as its children's memory.
        rows = options.side * 2 // 3
        maker = multiprocessing.Process(target=make_picture, args=("scene.ppm", options.side))
        maker.start()
        maker.join()
        pixels = options.side * rows * 3 / 1e6
        for name, tiles in (("one.jp2", []), ("tiles.jp2", ["-t", "1024,1024"])):
            subprocess.run(["opj_compress", "-i", "scene.ppm", "-o", name, "-n", "6", *tiles], check=True,
                           stdout=subprocess.DEVNULL)
        part = ",".join(str(n) for n in (1500, 1000, 2500, 2000))
        print(f"{options.side} x {rows}, 3 components, {pixels:.0f} MB of pixels; "
              f"{os.path.getsize('one.jp2') / 1e6:.0f} MB of file\n")
        print("| | kvjpx: cpu s, wall s, MB | opj_decompress | grk_decompress |\n|---|---|---|---|")
        peers = [tool for tool in ("opj_decompress", "grk_decompress") if shutil.which(tool)]
        for name in ("one.jp2", "tiles.jp2"):
            for label, ours, theirs in (("whole", [], []), (f"part {part}", ["--region", part], ["-d", part]),
                                        ("reduced by 8", ["--reduce", "3"], ["-r", "3"])):
                for form in ("ppm", "png", "tif") if label == "whole" else ("ppm",):
                    commands = [[kvjpx, "decode", name, *ours, "-o", f"ours.{form}"]]
                    commands += [[tool, "-i", name, *theirs, "-o", f"theirs.{form}"] for tool in peers]
                    cells = []
                    for command in commands:
                        figures = measure(command, options.rounds)
                        cells.append("fails" if figures is None else "%.2f, %.2f, %.0f" % figures)
                    print(f"| {name}, {label}, {form} | " + " | ".join(cells) + " |", flush=True)


if __name__ == "__main__":
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    sys.exit(main())
