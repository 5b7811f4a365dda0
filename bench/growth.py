#!/usr/bin/env python3
"""Shows that the work of every kvjpx command grows with the number of boxes and no faster.

  growth.py KVJPX [BOXES]    runs every command on every shape of file with BOXES boxes (default:
                             75000) and with four times as many; fails when time grows tenfold

Times below a tenth of a second count as that, since starting the program is most of them.
"""

import os
import resource
import subprocess
import sys
import tempfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "scripts"))
from make_samples import box, image_header, signature  # noqa: E402

SHORTEST, TENFOLD = 0.1, 10
# As many as fit on a command line.
MOST_ARGUMENTS = 40000


def nested(depth):
    inner = box("free")
    for _ in range(depth - 1):
        inner = box("asoc", inner)
    return inner


# The worst shapes: a function of the number of boxes each.
SHAPES = {
    "wide": lambda n: bytes(box("free")) * n,
    "types": lambda n: b"".join(bytes(box("x%03x" % (i % 4096))) for i in range(n)),
    "pairs": lambda n: bytes(nested(3)) * (n // 3),
    "deep": lambda n: bytes(nested(250)) * (n // 250),
    "texts": lambda n: bytes(box("lbl ", b"text" * 5)) * n,
    "references": lambda n: bytes(box("asoc", box("cref", b"jp2c", box("free")))) * (n // 3),
    "palettes": lambda n: bytes(
        box("jp2h", image_header(1, 1, 1), bytes(box("pclr", b"\0\1\1\7\0")) * n)
    ),
    "refused": lambda n: bytes(box("asoc", image_header(1, 1, 1))) * (n // 2),
    "long list": lambda n: bytes(box("asoc", box("nlst", b"\0\0\0\1" * n))),
}

EDITED = ["-o", "out"]


def commands(boxes):
    few = range(1, min(boxes // 10, MOST_ARGUMENTS))
    identifiers = [f"#{i}" for i in few]
    return {
        "ls": ["ls", "in"],
        "print": ["print", "in"],
        "copy": ["copy", "in", "-o", "out"],
        "get": ["get", "in", "#2"],
        "check": ["check", "in"],
        "add": ["add", "in", "free", "--into", "/", *EDITED],
        "rm by path": ["rm", "in", *[f"free[{i}]" for i in few], *EDITED],
        "rm by identifier": ["rm", "in", *identifiers, *EDITED],
        "set": ["set", "in", *[f"{i}.DATA=text:x" for i in identifiers], *EDITED],
    }


def cost(program, arguments):
    """Seconds of the processor; None when the command does not fit the shape."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    done = subprocess.run([program, *arguments], capture_output=True, timeout=300)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    if done.returncode > 1:  # 1: check has found something
        return None
    spent = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
    return max(spent, SHORTEST)


def main():
    program = str(Path(sys.argv[1]).resolve())
    boxes = int(sys.argv[2]) if len(sys.argv) > 2 else 75000
    too_steep = 0
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        for shape, make in SHAPES.items():
            costs = []
            for count in (boxes, 4 * boxes):
                Path("in").write_bytes(bytes(signature()) + make(count))
                costs.append(
                    {name: cost(program, words) for name, words in commands(count).items()}
                )
            for name, small in costs[0].items():
                large = costs[1][name]
                if small is None or large is None:
                    continue
                steep = large > TENFOLD * small
                too_steep += steep
                print(f"{shape:12} {name:18} {small:6.2f} s {large:6.2f} s", "STEEP" * steep)
    return too_steep > 0


if __name__ == "__main__":
    sys.exit(main())
