#!/usr/bin/env python3
"""Makes the seeds in fuzz/corpus-NAME/ that only fuzzer NAME understands: files with a treatment or
steps, choices of a reader, codestreams. (Those of fuzz/corpus/, which all take, come from
scripts/make_samples.py.) Needs opj_compress (libopenjp2-tools); always gives the same bytes."""

import random
import re
import subprocess
import tempfile
from pathlib import Path
from struct import pack

FUZZ = Path(__file__).resolve().parent
FROM_FILE, FROM_MAPPING = b"\x01", b"\x02"
FROM_MEMORY = b"\x03"

# Name: components, width, height, bits, options of opj_compress.
CODINGS = {
    "gray": (1, 12, 9, 8, ""),
    "lossy": (3, 16, 16, 8, "-I -r 4"),
    "layers": (1, 24, 24, 8, "-r 8,4,1"),
    "tiles": (3, 20, 20, 8, "-t 8,8 -n 2"),
    "offset": (1, 20, 20, 8, "-d 5,3 -T 2,1 -t 9,9 -n 3"),
    "precincts": (1, 40, 40, 8, "-c [16,16],[8,8] -b 4,4 -n 3"),
    "rlcp": (3, 16, 16, 8, "-p RLCP -SOP -EPH"),
    "rpcl": (1, 32, 32, 8, "-p RPCL -n 4"),
    "pcrl": (3, 16, 16, 8, "-p PCRL -n 2"),
    "cprl": (3, 16, 16, 8, "-p CPRL -TP R"),
    "modes": (1, 16, 16, 8, "-M 63 -n 2"),
    "wide": (1, 10, 10, 16, ""),
    "two-bits": (1, 9, 9, 2, ""),
    "gray-opacity": (2, 8, 8, 8, ""),
    "rgb-opacity": (4, 8, 8, 8, ""),
    "roi": (1, 16, 16, 8, "-ROI c=0,U=3"),
    "markers": (1, 16, 16, 8, "-PLT -TLM -C seed"),
    "subsampled": (3, 16, 16, 8, "-s 2,2"),
}


def encode(components, width, height, bits, options):
    maximum = 2**bits - 1
    planes = [
        [(x * (7 + c) + y * y * 3) % (maximum + 1) for y in range(height) for x in range(width)]
        for c in range(components)
    ]
    samples = b"".join(pack(">H" if bits > 8 else "B", value) for plane in planes for value in plane)
    with tempfile.TemporaryDirectory() as folder:
        source, target = Path(folder, "in.raw"), Path(folder, "out.j2k")
        source.write_bytes(samples)
        command = ["opj_compress", "-i", source, "-o", target, "-F",
                   f"{width},{height},{components},{bits},u", *options.split()]
        if "-n" not in options:
            command += ["-n", "3"]
        subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
        return target.read_bytes()


def file_seeds():
    """Every source, and some allocations that fail: early in the load, in the middle, in editing."""
    rich = (FUZZ / "corpus" / "rich.jpx").read_bytes()
    for name, source in {"memory": FROM_MEMORY, "file": FROM_FILE, "mapped": FROM_MAPPING}.items():
        for failing in (0, 7, 100):
            yield f"{name}-{failing}", source + pack(">H", failing), rich


def box(kind, content=b"", length=None):
    return pack(">I", 8 + len(content) if length is None else length) + kind + content


def long_box(kind, content=b""):
    return pack(">I", 1) + kind + pack(">Q", 16 + len(content)) + content


def kept_seeds():
    """What only a kept input loads, or keeps in its form."""
    label, free = box(b"lbl ", b"text"), box(b"free")
    open_label, cut_label = box(b"lbl ", b"text", 0), box(b"lbl ", b"text", 999)

    def asoc(content):
        return box(b"asoc", content)

    def fragments(offset):
        return box(b"flst", pack(">HQIHQIH", 2, offset, 3, 0, 70, 2, 0))

    data = box(b"mdat", bytes(range(32)))
    return {
        "long": long_box(b"asoc", long_box(b"asoc") + long_box(b"lbl ", b"text") + label) + free,
        "open": label + open_label,
        "open-nested": free + asoc(asoc(open_label)),
        "open-containers": box(b"asoc", box(b"asoc", open_label, 0), 0),
        "open-inside": asoc(label + open_label) + free,
        "cut": free + box(b"asoc", cut_label, 200),
        "cut-inside": asoc(asoc(cut_label) + label) + free,
        "tails": asoc(asoc(label + b"tail") + b"\0\0\0\5tail") + label + b"\n",
        "tail-behind": asoc(box(b"nlst", pack(">IIB", 1, 2, 3))) + box(b"res ", b"\0"),
        "malformed": box(b"jp2h", box(b"ihdr", b"short") + box(b"pclr", b"\0\2\1\7")),
        "malformed-nested": box(b"dtbl", pack(">H", 3) + box(b"dtbl", asoc(label)) + free) + label,
        "fragments": box(b"ftbl", fragments(90)) + data,
        "fragments-cref": asoc(box(b"cref", b"mdat" + fragments(94))) + data,
        "fragments-jpch": data + box(b"jpch", fragments(9)) + free,
        "nothing": b"\0",
    }


def load_seeds():
    plain = {name: treatment + file for name, treatment, file in file_seeds()}
    return plain | {f"kept-{name}": file for name, file in kept_seeds().items()}


def step_seeds(count):
    chance = random.Random(count)
    return {
        name: treatment + file + b"STEP" + chance.randbytes(count)
        for name, treatment, file in file_seeds()
    }


def edit_seeds():
    chance = random.Random(11)
    kept = {
        f"kept-{name}": file + b"STEP" + chance.randbytes(100)
        for name, file in kept_seeds().items()
    }
    return step_seeds(200) | kept


def reader_seeds(readers=42):
    """Each reader in a place where its boxes may stand, with numbers that are small counts."""
    payload = bytes([0, 1, 0, 2, 7, 7, 0, 1]) + bytes(range(40))
    return {f"{reader:02}": bytes([reader, 0, 0, 0, 0]) + payload for reader in range(readers)}


def stream_seeds(kinds=14):
    """Each kind of stream, with steps by chance and a later allocation that fails in half of them."""
    chance = random.Random(kinds)
    return {
        f"{kind:02}-{failing}": bytes([kind]) + pack(">H", failing) + chance.randbytes(150)
        for kind in range(kinds)
        for failing in (0, 8)
    }


def decode_seeds():
    seeds = {name: encode(*coding) for name, coding in CODINGS.items()}
    settings = {
        "part": bytes([72, 2, 3, 9, 8, 1, 0, 0, 1]),
        "reduced": bytes([9, 0, 0, 0, 0, 2, 0, 0, 2]),
        "enlarged": bytes([9, 0, 0, 0, 0, 3, 1, 0, 1]),
        "png": bytes([3, 0, 0, 0, 0, 1, 0, 0, 1]),
        "tiff": bytes([13, 0, 0, 0, 0, 1, 0, 0, 1]),
        "jpeg": bytes([14, 0, 0, 8, 8, 1, 0, 0, 1]),
        "jp2": bytes([17, 0, 0, 0, 0, 1, 0, 0, 1]),
    }
    composed = (FUZZ / "corpus" / "minimal.jp2").read_bytes()
    for name, prefix in settings.items():
        seeds[f"tiles-{name}"] = prefix + seeds["tiles"]
        seeds[f"file-{name}"] = prefix + composed
    return seeds


def picture_seeds():
    """Each part of the samples that hold several, and each format of files."""
    samples = FUZZ.parent / "samples"
    sources = {name: (samples / name).read_bytes() for name in ("composed.jpx", "exact.jpx", "cmyk.jpx", "deep.jp2")}
    sources["codestream"] = encode(*CODINGS["tiles"])
    choices = {
        "srgb": bytes([0x03, 0, 0, 0, 0]),
        "strict-tiff": bytes([0x25, 0, 0, 1, 2]),
        "frames-pam": bytes([0x69, 3, 1, 0, 0]),
        "layer-jpeg": bytes([0x81, 1, 1, 0, 0]),
        "codestream-bmp": bytes([0xA1, 2, 0, 1, 0]),
        "region-ppm": bytes([0xF1, 0, 0, 0, 0, 3, 2, 9, 12]),
    }
    return {f"{source}-{choice}": choices[choice] + sources[source] for source in sources for choice in choices}


def script_bytes(text):
    """What tests/support/bytes.cpp makes of the notation, without its patterns."""
    parts = re.findall(r"\[.{4}|\]|'[^']*'|\*\d+|[0-9A-F]{2}", text)
    stack = [[b"", b""]]
    for part in parts:
        if part[0] == "[":
            stack.append([part[1:].encode(), b""])
        elif part == "]":
            kind, content = stack.pop()
            stack[-1][1] += box(kind, content)
        elif part[0] == "'":
            stack[-1][1] += part[1:-1].encode()
        elif part[0] == "*":
            stack[-1][1] += stack[-1][1][-1:] * (int(part[1:]) - 1)
        else:
            stack[-1][1] += bytes.fromhex(part)
    return stack[0][1]


def check_seeds():
    """The valid files that the tests of the rules change."""
    names = {}
    script = FUZZ.parent / "tests" / "check" / "rules.script"
    for line in script.read_text().splitlines():
        if line.startswith("= "):
            _, name, text = line.split(" ", 2)
            names[name] = re.sub(r"\{(\w+)\}", lambda match: names[match[1]], text)
    return {f"rules-{name}": script_bytes(names[name]) for name in names if len(name) == 1}


def main():
    corpora = {
        "check": check_seeds(),
        "load": load_seeds(),
        "fields": step_seeds(300),
        "edit": edit_seeds(),
        "reader": reader_seeds(),
        "stream": stream_seeds(),
        "decode": decode_seeds(),
        "picture": picture_seeds(),
    }
    for fuzzer, seeds in corpora.items():
        folder = FUZZ / f"corpus-{fuzzer}"
        folder.mkdir(exist_ok=True)
        for name, seed in seeds.items():
            (folder / name).write_bytes(seed)


if __name__ == "__main__":
    main()
