#!/usr/bin/env python3
"""Breaks the code in one place at a time and tells which breaks the tests notice.

  scripts/mutants.py --sample 300 >before.tsv      # always the same sample of the same code
  scripts/mutants.py --again before.tsv >after.tsv # the same ones, say after a change of tests

Each line of output is a verdict (killed, survived, not built), a path, a line number, and the line
before and after. With --again the line is found by its text, so other lines may come and go ("gone"
if it changed itself); mutants that were killed and are no more are told at the end. Every worker
builds a copy of the tree in build-mutants/; the tree itself is never changed. A broken program may do
anything that its user may, so let that not be root.
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
FOLDERS = ("src", "common", "codestream", "check", "codec", "tools", "picture")
PRODUCTS = ("kvjpx", "kvj2k", "kvjpx_tool")  # what test programs load or run
TESTS = {"kvjpx_tests": ("src", "common"), "kvjpx_hpp_tests": ("src", "common"), "codec_test": ("codec",),
         "kvjpx_check_tests": ("src", "codestream", "check"),
         "picture_writers_test": ("picture",), "kvjpx_tool_tests": FOLDERS}
REPLAYS = {f"kvjpx_fuzz_replay_{name}": name for name in ("load", "edit", "fields", "reader", "stream", "decode")}

SWAPS = [pair for a, b in (("==", "!="), ("<", "<="), (">", ">="), ("&&", "||"), ("+", "-"), ("<<", ">>"),
                           ("&", "|"), ("+=", "-="), ("*", "/")) for pair in ((a, b), (b, a))]
RULES = [(re.compile(rf"(?<= ){re.escape(a)}(?= )"), b) for a, b in SWAPS] + [
    (re.compile(r"\btrue\b"), "false"), (re.compile(r"\bfalse\b"), "true"),
    (re.compile(r"(?<![\w.'])(\d+|0x[0-9A-Fa-f]+)(?![\w.'])"), r"(\1 + 1)"),
    (re.compile(r"\bif \((?!.*;)"), "if (false && "), (re.compile(r"\bif \((?!.*;)"), "if (true || "),
    (re.compile(r"(?<=\breturn )(?!\{).+(?=;)"), "{}"),
    (re.compile(r"^\s*(?!return|using|const|break|continue|case|delete)[\w.:>\[\]*-]+( [+|&-]?= |\().*;$"), ";")]
UNTOUCHED = re.compile(r'"(\\.|[^"\\])*"|\'(\\.|[^\'\\])\'|operator\S+|template.*')


def mutants_of(path):
    """All mutants of a file as (path, line number, line before, line after)."""
    for number, line in enumerate((TOP / path).read_text().splitlines(), 1):
        code = line.split("//")[0]
        if code.lstrip().startswith(("#", "*", "static_assert", "using", "namespace")):
            continue
        untouched = [match.span() for match in UNTOUCHED.finditer(code)]
        for pattern, replacement in RULES:
            for match in pattern.finditer(code):
                if not any(a <= match.start() < b for a, b in untouched):
                    yield path, number, line, code[:match.start()] + match.expand(replacement) + code[match.end():]


def limit_resources():
    resource.setrlimit(resource.RLIMIT_AS, (16 << 30, 16 << 30))  # tests map 4 GiB
    resource.setrlimit(resource.RLIMIT_FSIZE, (5 << 30, 5 << 30))


class Worker:
    """A copy of the tree with a build of it."""

    def __init__(self, number):
        self.tree = TOP / "build-mutants" / str(number)
        listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=TOP, text=True,
                                stdout=subprocess.PIPE, check=True).stdout.split("\n")
        files = {name for name in listed if name and (TOP / name).is_file()}
        for old in self.tree.glob("*/**/*"):
            name = old.relative_to(self.tree).as_posix()
            if old.is_file() and not name.startswith("build/") and name not in files:
                old.unlink()
        for name in files:
            self.put(name, (TOP / name).read_bytes(), (TOP / name).stat().st_mode)
        self.cmake("-S", ".", "-B", "build", "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
                   "-DCMAKE_CXX_FLAGS_DEBUG=-O0 -w", "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON")
        if self.build(*PRODUCTS, *TESTS, *REPLAYS) != 0:
            sys.exit(f"{self.tree} does not build")
        self.seconds = {}
        for test in (*TESTS, *REPLAYS):
            start = time.monotonic()
            if self.run(test, 600) != 0:
                sys.exit(f"{test} fails without a mutant")
            self.seconds[test] = 10 + 5 * (time.monotonic() - start)

    def put(self, name, content, mode=0o644):
        path = self.tree / name
        if not path.exists() or path.read_bytes() != content:
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(content)
            path.chmod(mode)

    def cmake(self, *arguments):
        return subprocess.run(["cmake", *arguments], cwd=self.tree, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL).returncode

    def build(self, *targets):
        return self.cmake("--build", "build", "--target", *targets)

    def run(self, test, seconds):
        """The exit code of a test program; a mutant may take neither all memory nor all day."""
        arguments = ["--gtest_brief=1", "--gtest_fail_fast"]
        if test in REPLAYS:
            folders = ("corpus", "corpus-" + REPLAYS[test], "findings/" + REPLAYS[test])
            arguments = [f"fuzz/{folder}" for folder in folders if (self.tree / "fuzz" / folder).exists()]
        process = subprocess.Popen([self.tree / "build/bin" / test, *arguments], cwd=self.tree,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                   start_new_session=True, preexec_fn=limit_resources)
        try:
            return process.wait(seconds)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            return process.wait()

    def verdict(self, path, number, before, after):
        original = (TOP / path).read_text() if (TOP / path).exists() else ""
        lines = original.splitlines(keepends=True)
        same = [i for i, line in enumerate(lines) if line.rstrip("\n") == before]
        if not same:
            return "gone"
        lines[min(same, key=lambda i: abs(i + 1 - number))] = after + "\n"
        self.put(path, "".join(lines).encode())
        folder = path.split("/")[0]
        try:
            if self.build(*PRODUCTS, *TESTS) != 0:
                return "not built"
            if any(self.run(test, self.seconds[test]) for test, seen in TESTS.items() if folder in seen):
                return "killed"
            is_linked = folder != "tools" and self.build(*REPLAYS) == 0
            is_killed = is_linked and any(self.run(test, self.seconds[test]) for test in REPLAYS)
            return "killed" if is_killed else "survived"
        finally:
            self.put(path, original.encode())


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("--sample", type=int, default=300, help="how many mutants")
    parser.add_argument("--seed", type=int, default=1, help="another sample for each")
    parser.add_argument("--again", type=pathlib.Path, help="the mutants of this list instead")
    parser.add_argument("--jobs", type=int, default=1, help="copies of the tree to work in")
    options = parser.parse_args()
    rows = [row.split("\t") for row in options.again.read_text().splitlines()] if options.again else []
    known = {(path, int(number), before, after): verdict for verdict, path, number, before, after in rows}
    paths = sorted(p.relative_to(TOP).as_posix() for folder in FOLDERS for p in (TOP / folder).rglob("*.cpp"))
    mutants = list(known) or [m for path in paths for m in mutants_of(path)]
    if not known and options.sample < len(mutants):
        mutants = random.Random(options.seed).sample(mutants, options.sample)
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
        return verdict

    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        verdicts = list(pool.map(judge, mutants))
    print(", ".join(f"{verdicts.count(v)} {v}" for v in ("killed", "survived", "not built", "gone")), file=sys.stderr)
    lost = [m for m, verdict in zip(mutants, verdicts) if verdict == "survived" and known.get(m) == "killed"]
    for path, number, before, after in lost:
        print(f"lost: {path}:{number}: {before.strip()} -> {after.strip()}", file=sys.stderr)
    return 1 if lost else 0


if __name__ == "__main__":
    sys.exit(main())
