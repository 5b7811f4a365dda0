#!/usr/bin/env python3
"""Breaks the code in one place at a time and tells which breaks the tests notice.

  scripts/mutants.py --sample 300 >before.tsv     # a deterministic sample of all mutants
  scripts/mutants.py --again before.tsv >after.tsv # the same ones, say after a change of tests

Each line of output is a verdict, a path, a line number, and the line before and after: killed,
survived, or not built. With --again the line is found by its text, so other lines may come and go
("gone" when it changed itself), and mutants that were killed and now survive are told at the end.
Every worker builds a copy of the tree in build-mutants/; the tree itself is never changed.
"""
import argparse
import concurrent.futures
import os
import pathlib
import queue
import random
import re
import resource
import signal
import subprocess
import sys
import time

TOP = pathlib.Path(__file__).resolve().parent.parent
FOLDERS = ("src", "codec", "tools")
PRODUCTS = ("kvjpx", "kvj2k", "kvjpx_tool")  # what mutants go into; tests find them at run time
TESTS = {"kvjpx_tests": ("src",), "codec_test": ("codec",), "kvjpx_tool_tests": FOLDERS}
REPLAYS = ("load", "edit", "fields", "reader", "stream")  # of the fuzzers: asked last, as they are linked anew

SWAPS = [(a, b) for pair in (("==", "!="), ("<", "<="), (">", ">="), ("&&", "||"), ("+", "-"),
                             ("<<", ">>"), ("&", "|"), ("+=", "-="), ("*", "/"))
         for a, b in (pair, pair[::-1])]
RULES = [(re.compile(rf"(?<= ){re.escape(a)}(?= )"), b) for a, b in SWAPS]
RULES += [(re.compile(r"\btrue\b"), "false"), (re.compile(r"\bfalse\b"), "true"),
          (re.compile(r"(?<![\w.'])(\d+|0x[0-9A-Fa-f]+)(?![\w.'])"), r"(\1 + 1)"),
          (re.compile(r"\bif \((?!.*;)"), "if (false && "), (re.compile(r"\bif \((?!.*;)"), "if (true || "),
          (re.compile(r"(?<=\breturn )(?!\{).+(?=;)"), "{}"),
          (re.compile(r"^\s*(?!return|using|const|break|continue|case|delete)[\w.:>\[\]*-]+( [+|&-]?= |\().*;$"), ";")]


def mutants_of(path):
    """All mutants of a file as (path, line number, line before, line after)."""
    for number, line in enumerate((TOP / path).read_text().splitlines(), 1):
        code = line.split("//")[0]
        if code.lstrip().startswith(("#", "*", "static_assert", "using", "namespace")):
            continue
        text = [m.span() for m in re.finditer(r'"(\\.|[^"\\])*"|\'(\\.|[^\'\\])\'|operator\S+|template.*', code)]
        for pattern, replacement in RULES:
            for match in pattern.finditer(code):
                if any(a <= match.start() < b for a, b in text):
                    continue
                yield path, number, line, code[:match.start()] + match.expand(replacement) + code[match.end():]


class Worker:
    """A copy of the tree with a build of it."""

    def __init__(self, number):
        self.tree = TOP / "build-mutants" / str(number)
        self.build = self.tree / "build"
        listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=TOP, text=True,
                                stdout=subprocess.PIPE, check=True).stdout.split("\n")
        files = {name for name in listed if name and (TOP / name).is_file()}
        for name in files:
            self.put(name, (TOP / name).read_bytes(), (TOP / name).stat().st_mode)
        for old in self.tree.glob("tests/**/*"):
            if old.is_file() and str(old.relative_to(self.tree)) not in files:
                old.unlink()
        self.call(["cmake", "-S", ".", "-B", "build", "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
                   "-DCMAKE_CXX_FLAGS_DEBUG=-O0 -w"], check=True)
        self.call(["cmake", "--build", "build", "--target", *PRODUCTS, *TESTS], check=True)
        self.limits = {}
        for test in TESTS:
            start = time.monotonic()
            if self.run(test, 600) != 0:
                sys.exit(f"{test} fails without a mutant")
            self.limits[test] = 10 + 5 * (time.monotonic() - start)

    def put(self, name, content, mode=0o644):
        path = self.tree / name
        if not path.exists() or path.read_bytes() != content:
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(content)
            path.chmod(mode)

    def call(self, command, check=False):
        return subprocess.run(command, cwd=self.tree, stdout=subprocess.DEVNULL,
                              stderr=None if check else subprocess.DEVNULL, check=check).returncode

    def run(self, test, seconds):
        """The exit code of a test program; a mutant may take neither all memory nor all day."""
        def limit():
            resource.setrlimit(resource.RLIMIT_AS, (4 << 30, 4 << 30))
            resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 30, 1 << 30))
        process = subprocess.Popen([self.build / "bin" / test, "--gtest_brief=1", "--gtest_fail_fast"],
                                   cwd=self.tree, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL, start_new_session=True, preexec_fn=limit)
        try:
            return process.wait(seconds)
        except subprocess.TimeoutExpired:
            return -1
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass

    def verdict(self, path, number, before, after):
        original = (TOP / path).read_text()
        lines = original.splitlines(keepends=True)
        same = [i for i, line in enumerate(lines, 1) if line.rstrip("\n") == before]
        if not same:
            return "gone"
        place = min(same, key=lambda i: abs(i - number)) - 1
        lines[place] = after + "\n"
        self.put(path, "".join(lines).encode())
        try:
            if self.call(["cmake", "--build", "build", "--target", *PRODUCTS]) != 0:
                return "not built"
            seen = [test for test in TESTS if test not in UNSEEN[path.split("/")[0]]]
            return "killed" if any(self.run(test, self.limits[test]) for test in seen) else "survived"
        finally:
            self.put(path, original.encode())


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("--sample", type=int, default=300, help="how many mutants")
    parser.add_argument("--seed", type=int, default=1, help="another sample for each")
    parser.add_argument("--again", type=pathlib.Path, help="the mutants of this list instead")
    parser.add_argument("--jobs", type=int, default=1, help="copies of the tree to work in")
    options = parser.parse_args()
    if options.again:
        rows = [line.split("\t") for line in options.again.read_text().splitlines()]
        known = {(path, int(number), before, after): verdict for verdict, path, number, before, after in rows}
        mutants = list(known)
    else:
        paths = sorted(p.relative_to(TOP).as_posix() for f in FOLDERS for p in (TOP / f).rglob("*.cpp"))
        mutants = random.Random(options.seed).sample([m for p in paths for m in mutants_of(p)], options.sample)
        known = {}
    workers = queue.Queue()
    for number in range(options.jobs):
        workers.put(Worker(number))

    def judge(mutant):
        worker = workers.get()
        try:
            verdict = worker.verdict(*mutant)
        finally:
            workers.put(worker)
        print(verdict, *mutant, sep="\t", flush=True)
        return mutant, verdict

    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        results = dict(pool.map(judge, mutants))
    verdicts = list(results.values())
    print(*(f"{verdicts.count(v)} {v}" for v in ("killed", "survived", "not built", "gone")), sep=", ", file=sys.stderr)
    lost = [m for m, verdict in results.items() if verdict == "survived" and known.get(m) == "killed"]
    print(*("lost: %s:%d: %s" % m[:3] for m in lost), sep="\n", file=sys.stderr)
    return 1 if lost else 0


if __name__ == "__main__":
    sys.exit(main())
