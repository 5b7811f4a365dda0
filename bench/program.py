#!/usr/bin/env python3
"""Shows what the program costs from start to end, as a table in the form of docs/performance.md.

  program.py KVJPX [ROUNDS]    least processor time of ROUNDS runs (default: 9) of each command

The aims: `ls` of a small file at most 2 ms more than /bin/true; of 200,000 boxes 100 ms; of 232
files in one process 20 ms; `info`, `dump --format json` and `check` at most 3 times `ls` of the
same; 4,000 boxes removed or changed by their identifiers in 200 ms. What misses its aim is marked
with `<--`, and the exit code is then 1. Times are of one machine: compare rows of one run.
"""

import os
import sys
import tempfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "scripts"))
from make_samples import SAMPLES, box, signature  # noqa: E402

BOXES, FILES, EDITED = 200000, 232, 4000

# Boxes in containers, with texts, numbers and bytes: seven boxes a group.
GROUP = (
    bytes(box("asoc", box("nlst", b"\1\0\0\0" * 2), box("lbl ", b"a label")))
    + bytes(box("uuid", bytes(range(16)), b"its data"))
    + bytes(box("asoc", box("free", bytes(16)), box("xml ", b"<a/>")))
)
LISTS = {"info": ["info"], "dump": ["dump", "--format", "json"], "check": ["check"]}


def milliseconds(command, rounds):
    """Least time of the processor; the command's findings and output do not matter."""
    nothing = os.open(os.devnull, os.O_WRONLY)
    least = float("inf")
    for _ in range(rounds):
        child = os.posix_spawn(
            command[0],
            command,
            os.environ,
            file_actions=[(os.POSIX_SPAWN_DUP2, nothing, 1), (os.POSIX_SPAWN_DUP2, nothing, 2)],
        )
        _, status, used = os.wait4(child, 0)
        if os.waitstatus_to_exitcode(status) not in (0, 1):  # 1: check has found something
            raise SystemExit(f"{' '.join(command[:3])} failed")
        least = min(least, 1000 * (used.ru_utime + used.ru_stime))
    os.close(nothing)
    return least


def main():
    program = str(Path(sys.argv[1]).resolve())
    rounds = int(sys.argv[2]) if len(sys.argv) > 2 else 9
    misses = 0

    def row(what, found, aim):
        nonlocal misses
        misses += found > aim
        print(f"| {what} | {found:.1f} | {aim:.1f} | {'<--' * (found > aim)} |", flush=True)

    print("| | ms | aim |\n| --- | --- | --- |")
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        start = milliseconds(["/bin/true"], 20 * rounds)
        small = milliseconds([program, "ls", str(SAMPLES / "minimal.jp2")], 20 * rounds)
        row("`ls` of a small file, more than `/bin/true`", small - start, 2)

        head = bytes(signature())
        Path("flat.jpx").write_bytes(head + bytes(box("free")) * BOXES)
        Path("mixed.jpx").write_bytes(head + GROUP * (BOXES // 7))
        samples = sorted(SAMPLES.glob("*.jp?"))
        Path("files").mkdir()
        for i in range(FILES):
            sample = samples[i % len(samples)]
            Path("files", f"{i}{sample.suffix}").write_bytes(sample.read_bytes())
        inputs = {
            f"{BOXES} boxes in a row": (["flat.jpx"], 100),
            f"{BOXES} boxes of many kinds": (["mixed.jpx"], 100),
            f"{FILES} files": (["-r", "files", "-j", "1"], 20),
        }
        for name, (arguments, aim) in inputs.items():
            listed = milliseconds([program, "ls", *arguments], rounds)
            row(f"`ls`, {name}", listed, aim)
            for command, words in LISTS.items():
                found = milliseconds([program, *words, *arguments], rounds)
                row(f"`{command}`, {name}", found, 3 * listed)

        Path("some.jpx").write_bytes(head + bytes(box("free", b"data")) * (2 * EDITED))
        ids = [f"#{2 * i + 1}" for i in range(EDITED)]
        out = ["-o", "out.jpx"]
        removed = milliseconds([program, "rm", "some.jpx", *ids, *out], rounds)
        row(f"`rm`, {EDITED} boxes", removed, 200)
        changes = [f"{i}.DATA=text:x" for i in ids]
        changed = milliseconds([program, "set", "some.jpx", *changes, *out], rounds)
        row(f"`set`, {EDITED} boxes", changed, 200)
    return misses > 0


if __name__ == "__main__":
    sys.exit(main())
