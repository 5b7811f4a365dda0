#!/usr/bin/env python3
"""Compares verdicts and speed of `kvjpx check --profile jp2` with those of jpylyzer.

  compare_check.py KVJPX FOLDER COUNT FILE...

Takes the files and COUNT copies of them with one change each, which it writes to FOLDER, and prints
how often both find a file valid or not, the time that each took in one run over all files, and each
kind of difference: our findings or their failed tests, and the first file. Needs the Debian package
python3-jpylyzer and Debian's python3.
"""

import collections
import json
import random
import subprocess
import sys
import time
from pathlib import Path

import jpylyzer.jpylyzer

CONTAINERS = (b"jp2h", b"res ", b"uinf")


def boxes(data, begin, end):
    """Offset, length and type of each box, containers before their content."""
    at = begin
    while at + 8 <= end:
        length = int.from_bytes(data[at : at + 4], "big")
        header = 8
        if length == 1:
            length, header = int.from_bytes(data[at + 8 : at + 16], "big"), 16
        elif length == 0:
            length = end - at
        if length < header or at + length > end:
            return
        kind = data[at + 4 : at + 8]
        yield at, length, kind
        if kind in CONTAINERS:
            yield from boxes(data, at + header, at + length)
        at += length


def changed(data, chance):
    found = list(boxes(data, 0, len(data)))
    codestreams = [box for box in found if box[2] == b"jp2c"]
    others = [box for box in found if box[2] != b"jp2c"]
    data = bytearray(data)
    way = chance.randrange(10)
    if way < 7:  # a byte of a box, or of the codestream's main header
        at, length, _ = chance.choice(others if way < 4 else codestreams)
        place = at + chance.randrange(min(length, 60 if way < 4 else 170))
        data[place] = chance.choice([0, 1, 255, chance.randrange(256), data[place] ^ 1])
    elif way == 7:
        del data[chance.randrange(len(data)) :]
    elif way == 8:
        at, length, _ = chance.choice(found)
        data[at : at + length] = data[at : at + length] * chance.choice([0, 2])
    else:
        data[chance.randrange(len(data))] = chance.randrange(256)
    return bytes(data)


def their_verdict(name):
    result = jpylyzer.jpylyzer.checkOneFile(name)
    tests = result.find("tests")
    failed = {} if tests is None else {one.tag for one in tests.iter() if one.text == "False"}
    return result.find("isValid").text == "True", " ".join(sorted(failed))


def our_verdicts(program, names):
    verdicts = []
    for i in range(0, len(names), 500):
        command = [program, "check", "--profile", "jp2", "--json", *names[i : i + 500]]
        lines = subprocess.run(command, capture_output=True, text=True).stdout.splitlines()
        for line in lines:
            findings = json.loads(line)["findings"]
            errors = {one["id"] for one in findings if one["severity"] == "error"}
            verdicts.append((not errors, " ".join(sorted(errors))))
    return verdicts


def main(program, folder, count, *files):
    chance = random.Random(1)
    names = list(files)
    sources = [Path(name) for name in files]
    contents = [source.read_bytes() for source in sources]
    for i in range(int(count)):
        which = chance.randrange(len(sources))
        name = Path(folder, f"{i:05}-{sources[which].name}")
        name.write_bytes(changed(contents[which], chance))
        names.append(str(name))
    start = time.perf_counter()
    theirs = [their_verdict(name) for name in names]
    middle = time.perf_counter()
    ours = our_verdicts(program, names)
    end = time.perf_counter()
    assert len(ours) == len(names)
    verdicts = collections.Counter()
    differences = collections.defaultdict(list)
    for name, our, their in zip(names, ours, theirs):
        verdicts[f"kvjpx {our[0]}, jpylyzer {their[0]}"] += 1
        if our[0] != their[0]:
            differences[(our[1] or "none", their[1] or "none")].append(name)
    for verdict, number in verdicts.most_common():
        print(f"{number:6} valid: {verdict}")
    print(f"jpylyzer {middle - start:.2f} s, kvjpx {end - middle:.2f} s for {len(names)} files")
    for (our, their), where in sorted(differences.items(), key=lambda item: -len(item[1])):
        print(f"{len(where):6} kvjpx: {our}; jpylyzer: {their}; {where[0]}")


if __name__ == "__main__":
    main(*sys.argv[1:])
