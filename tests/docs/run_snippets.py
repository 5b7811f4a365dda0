"""Runs what a page of documentation tells its readers to do.

The fenced blocks of one language make one program: shell blocks a script, C and C++ blocks the body of
a main() behind their includes, Python blocks a module. A block marked `text` is what the block in front
of it prints, and all a program prints must be there. Everything runs in an empty folder with a copy of
the samples and photo.jp2, one of them.

usage: run_snippets.py PAGE BUILD_DIR PYTHON_DIR [C_COMPILER CXX_COMPILER [FLAG...]]
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent


def blocks(page):
    """Language -> (code, what it prints)."""
    programs = {}
    last = None
    for language, text in re.findall(r"^```(\w+)\n(.*?)^```$", page, re.M | re.S):
        if language == "text":
            programs[last][1].append(text)
        else:
            last = language
            programs.setdefault(language, ([], []))[0].append(text)
    return {language: ("\n".join(code), "".join(output)) for language, (code, output) in programs.items()}


def in_main(code):
    includes = re.findall(r"^#include.*\n", code, re.M)
    body = re.sub(r"^#include.*\n", "", code, flags=re.M)
    return "".join(includes) + "int main(void) {\n" + body + "return 0;\n}\n"


def commands(language, code, build, compilers):
    """The file to write and the commands to run."""
    if language == "sh":
        return "snippet.sh", [["bash", "-eu", "snippet.sh"]]
    if language == "python":
        return "snippet.py", [[sys.executable, "snippet.py"]]
    compiler, standard = (compilers[0], "-std=c99") if language == "c" else (compilers[1], "-std=c++17")
    build_it = [compiler, standard, *compilers[2:], f"-I{ROOT}/include", f"snippet.{language}", f"-L{build}/lib",
                "-lkvjpx", f"-Wl,-rpath,{build}/lib", "-o", "snippet"]
    return f"snippet.{language}", [build_it, ["./snippet"]]


def main():
    page, build, python = map(pathlib.Path, sys.argv[1:4])
    # The loader's path is for sanitizers, which keep programs from finding the codec beside them.
    environment = dict(os.environ, PATH=f"{build}/bin:{os.environ['PATH']}", PYTHONPATH=str(python),
                       KVJPX_LIBRARY=f"{build}/lib/libkvjpx.so", LD_LIBRARY_PATH=f"{build}/lib")
    # What an interpreter needs to load libraries with sanitizers; "none" where it cannot at all.
    preload = {}
    if "KVJPX_PRELOAD" in os.environ:
        preload = {"LD_PRELOAD": os.environ["KVJPX_PRELOAD"], "ASAN_OPTIONS": "detect_leaks=0"}
    for language, (code, expected) in blocks(page.read_text()).items():
        if language == "python" and preload.get("LD_PRELOAD") == "none":
            continue
        with tempfile.TemporaryDirectory() as folder:
            shutil.copytree(ROOT / "samples", f"{folder}/samples")
            shutil.copy(ROOT / "samples/gradient.jp2", f"{folder}/photo.jp2")
            name, steps = commands(language, code, build, sys.argv[4:])
            pathlib.Path(folder, name).write_text(in_main(code) if language in ("c", "cpp") else code)
            more = preload if language == "python" else {}
            for step in steps:
                run = subprocess.run(step, cwd=folder, env={**environment, **more}, stdout=subprocess.PIPE, text=True,
                                     check=False)
                if run.returncode != 0:
                    sys.exit(f"{page.name}: its {language} blocks: {step[0]} exits with {run.returncode}")
        printed = "\n".join(line.rstrip() for line in run.stdout.splitlines())
        if expected and printed != "\n".join(line.rstrip() for line in expected.splitlines()):
            sys.exit(f"{page.name}: its {language} blocks print\n{printed}\nnot\n{expected}")


main()
