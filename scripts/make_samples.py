#!/usr/bin/env python3
"""Makes the small JP2 and JPX files of samples/, or a seed corpus for the fuzzers.

  make_samples.py [FOLDER]      writes the sample files (default: the repository's samples/)
  make_samples.py --seeds DIR   writes DIR/corpus/ and the box type dictionary DIR/boxes.dict

Needs nothing beyond Python and, for the sample files, opj_compress (libopenjp2-tools) for their
codestreams. The same opj_compress gives the same bytes on every run.
"""

import argparse
import shutil
import subprocess
import sys
import tempfile
import uuid
from dataclasses import dataclass
from pathlib import Path
from struct import pack

from sample_pictures import framed_target, grey_ramp, photograph

SAMPLES = Path(__file__).resolve().parent.parent / "samples"

# The three forms of a box header: an exact 32-bit length, an exact 64-bit length (XLBox), or
# LBox 0, with which the last box of a file runs to the file's end.
EXACT, LONG, TO_END = "exact", "long", "to end"

# Enumerated colour spaces.
CMYK, S_RGB, GREYSCALE, S_YCC = 12, 16, 17, 18

# The white of ICC profiles.
D50 = pack(">iii", 63190, 65536, 54061)

# The groups of words that the instructions of an instruction set can hold.
OFFSETS, SCALING, PERSISTENCE, CROPPING = 0x01, 0x02, 0x08, 0x20


@dataclass
class Box:
    """A box; its parts are bytes and boxes, in the order of the content."""

    type: str
    parts: tuple
    form: str = EXACT

    def __bytes__(self):
        content = b"".join(map(bytes, self.parts))
        name = self.type.encode("ascii")
        if self.form == LONG:
            return pack(">I4sQ", 1, name, 16 + len(content)) + content
        return pack(">I4s", 0 if self.form == TO_END else 8 + len(content), name) + content

    def walk(self, ancestors=()):
        """This box and all below it, each with the boxes that it lies in, outermost first."""
        yield ancestors, self
        for part in self.parts:
            if isinstance(part, Box):
                yield from part.walk((*ancestors, self))


def box(type, *parts, form=EXACT):
    return Box(type, parts, form)


# ---- Box contents, family by family ---------------------------------------------------------


def signature():
    return box("jP  ", b"\r\n\x87\n")


def file_type(brand, *compatible, version=0):
    return box("ftyp", pack(">4sI", brand.encode(), version), "".join(compatible).encode())


def image_header(width, height, components, bpc=7, unknown=0, ipr=0):
    return box("ihdr", pack(">IIHBBBB", height, width, components, bpc, 7, unknown, ipr))


def enumerated(space, precedence=0, approximation=0):
    return box("colr", pack(">BBBI", 1, precedence, approximation, space))


def profile(method, data, precedence=0, approximation=0):
    return box("colr", bytes([method, precedence, approximation]), data)


def vendor_colour(name, data, precedence=0, approximation=0):
    return box("colr", bytes([4, precedence, approximation]), vendor_id(name), data)


def resolution(type, vertical, horizontal, vertical_exponent, horizontal_exponent):
    fractions = pack(">HHHH", *vertical, *horizontal)
    return box(type, fractions, pack(">bb", vertical_exponent, horizontal_exponent))


def palette(depths, rows):
    """Depth bytes of the columns (depth - 1, bit 7: signed), then rows of values."""
    sizes = [max(1, ((depth & 0x7F) + 7) // 8) for depth in depths]
    cells = (
        (value % 256**size).to_bytes(size, "big") for row in rows for size, value in zip(sizes, row)
    )
    return box("pclr", pack(">HB", len(rows), len(depths)), bytes(depths), *cells)


def component_mapping(*entries):
    return box("cmap", *(pack(">HBB", *entry) for entry in entries))


def channel_definition(*channels):
    return box("cdef", pack(">H", len(channels)), *(pack(">HHH", *channel) for channel in channels))


def requirements(mask_length, understand, display, standard=(), vendor=()):
    """Standard features are (number, mask), vendor features (name, mask)."""

    def mask(value):
        return value.to_bytes(mask_length, "big")

    return box(
        "rreq",
        bytes([mask_length]) + mask(understand) + mask(display),
        pack(">H", len(standard)),
        *(pack(">H", number) + mask(value) for number, value in standard),
        pack(">H", len(vendor)),
        *(vendor_id(name) + mask(value) for name, value in vendor),
    )


def opacity(type, *chroma_key):
    return box("opct", bytes([type, len(chroma_key), *chroma_key] if type == 2 else [type]))


def registration(grid, *records):
    return box("creg", pack(">HH", *grid), *(pack(">HBBBB", *record) for record in records))


def composition_options(width, height, loop):
    return box("copt", pack(">IIB", height, width, loop))


def instruction_set(groups, repeat, tick, *instructions):
    """Each instruction is the sequence of 32-bit words of the groups that it has."""
    words = (pack(f">{len(words)}I", *words) for words in instructions)
    return box("inst", pack(">HHI", groups, repeat, tick), *words)


def life(ticks, persists):
    return ticks | (0x80000000 if persists else 0)


def fragment_list(*fragments):
    return box("flst", pack(">H", len(fragments)), *(pack(">QIH", *each) for each in fragments))


def data_references(*urls):
    return box("dtbl", pack(">H", len(urls)), *urls)


def url(location, version=0, flags=0):
    return box("url ", bytes([version]) + flags.to_bytes(3, "big"), location.encode() + b"\0")


def cross_reference(type, *children):
    return box("cref", type.encode(), *children)


def number_list(*numbers):
    return box("nlst", pack(f">{len(numbers)}I", *numbers))


def regions(*entries):
    return box("roid", bytes([len(entries)]), *(pack(">BBBIIII", *entry) for entry in entries))


def vendor_id(name):
    """A UUID made from a name, so that it differs for each use and never changes."""
    return uuid.uuid5(uuid.NAMESPACE_URL, f"https://example.com/{name}").bytes


def uuid_box(name, data):
    return box("uuid", vendor_id(name), data)


def uuid_info(names, location):
    identifiers = map(vendor_id, names)
    return box("uinf", box("ulst", pack(">H", len(names)), *identifiers), url(location))


def label(text):
    return box("lbl ", text.encode("utf-8"))


def xml(title):
    text = f'<?xml version="1.0"?>\n<picture><title>{title}</title></picture>\n'
    return box("xml ", text.encode())


# ---- Files ----------------------------------------------------------------------------------
# Each function takes the encoder, which the seed corpus replaces.


def encode(picture, *options):
    """The JPEG 2000 codestream of a PGM or PPM file; lossless unless the options say otherwise."""
    with tempfile.TemporaryDirectory() as folder:
        source = Path(folder, "picture.pgm" if picture.startswith(b"P5") else "picture.ppm")
        target = Path(folder, "picture.j2k")
        source.write_bytes(picture)
        command = ["opj_compress", "-i", source, "-o", target, "-C", "sample", *options]
        result = subprocess.run(command, capture_output=True, text=True)
        if result.returncode != 0:
            sys.exit(f"make_samples.py: opj_compress failed: {result.stdout}{result.stderr}")
        return target.read_bytes()


def encode_planes(width, height, depth, planes, signed=False, sampling=None):
    """The lossless codestream of planes of samples; each may be subsampled: (dx, dy)."""
    sampling = sampling or [(1, 1)] * len(planes)
    form = "{},{},{},{},{}@{}".format(
        width, height, len(planes), depth, "s" if signed else "u",
        ":".join(f"{dx}x{dy}" for dx, dy in sampling),
    )  # fmt: skip
    size = 1 if depth <= 8 else 2
    with tempfile.TemporaryDirectory() as folder:
        source = Path(folder, "picture.raw")
        target = Path(folder, "picture.j2k")
        source.write_bytes(
            b"".join(each.to_bytes(size, "big", signed=signed) for plane in planes for each in plane)
        )
        command = ["opj_compress", "-i", source, "-o", target, "-F", form]
        command += ["-C", "sample", "-n", "1", "-mct", "0"]
        result = subprocess.run(command, capture_output=True, text=True)
        if result.returncode != 0:
            sys.exit(f"make_samples.py: opj_compress failed: {result.stdout}{result.stderr}")
        return target.read_bytes()


def linear_profile():
    """An ICC profile of the primaries of sRGB, for samples in proportion to the light."""
    tags = {
        "desc": b"desc\0\0\0\0" + pack(">I", 7) + b"linear\0" + bytes(78),
        "cprt": b"text\0\0\0\0none\0",
        "wtpt": b"XYZ \0\0\0\0" + D50,
        "rXYZ": b"XYZ \0\0\0\0" + pack(">iii", 28576, 14578, 912),
        "gXYZ": b"XYZ \0\0\0\0" + pack(">iii", 25239, 46981, 6362),
        "bXYZ": b"XYZ \0\0\0\0" + pack(">iii", 9375, 3977, 46787),
        "rTRC": b"curv\0\0\0\0" + pack(">I", 0),
    }
    tags |= {"gTRC": tags["rTRC"], "bTRC": tags["rTRC"]}
    place = 132 + 12 * len(tags)
    table, data = b"", b""
    for name, content in tags.items():
        table += name.encode() + pack(">II", place + len(data), len(content))
        data += content + bytes(-len(content) % 4)
    header = pack(">I4xI4s4s4s", place + len(data), 0x02100000, b"mntr", b"RGB ", b"XYZ ")
    header = header.ljust(36, b"\0") + b"acsp" + bytes(28) + D50
    return header.ljust(128, b"\0") + pack(">I", len(tags)) + table + data


def minimal(encode):
    return [
        signature(),
        file_type("jp2 ", "jp2 "),
        box("jp2h", image_header(16, 16, 1), enumerated(GREYSCALE)),
        box("jp2c", encode(grey_ramp(16), "-n", "3"), form=TO_END),
    ]


def gradient(encode):
    picture = encode(photograph(256, 192), "-n", "5", "-t", "128,96", "-r", "40,16,4")
    # 300 and 72 dots per inch, in dots per metre.
    on_paper = resolution("resc", (30000, 254), (30000, 254), 2, 2)
    on_screen = resolution("resd", (7200, 254), (7200, 254), 2, 2)
    return [
        signature(),
        file_type("jp2 ", "jp2 "),
        box("jp2h", image_header(256, 192, 3), enumerated(S_RGB), box("res ", on_paper, on_screen)),
        xml("Lake before sunset"),
        uuid_box("camera", b"shutter=1/250;aperture=8"),
        box("jp2c", picture),
    ]


def composed(encode):
    background = encode(photograph(160, 120), "-n", "4", "-r", "24,5")
    inset = encode(framed_target(64, 48), "-n", "4")
    colour = box("cgrp", enumerated(S_RGB))
    instructions = instruction_set(OFFSETS, 0, 0, (0, 0), (12, 60))
    return [
        signature(),
        file_type("jpx ", "jpx ", "jp2 "),
        # Several compositing layers (2) in unrestricted Part 1 codestreams (5).
        requirements(1, 0xC0, 0x80, standard=((2, 0x80), (5, 0x40))),
        box("jp2h", image_header(160, 120, 3), enumerated(S_RGB)),
        box("jpch", label("background")),
        box("jpch", label("inset")),
        box("jplh", label("landscape"), colour, registration((1, 1), (0, 1, 1, 0, 0))),
        box("jplh", label("target"), colour, registration((1, 1), (1, 1, 1, 0, 0))),
        box("comp", composition_options(160, 120, 0), instructions),
        box("jp2c", background),
        box("jp2c", inset),
    ]


def rich_header():
    # As many rows as columns: otherwise the palette's length would not fit when it is written back.
    rows = (
        (10, 1111, 101010, -1),
        (20, 2222, 202020, -22),
        (30, 3333, 303030, 33),
        (40, 4004, 404040, 127),
    )
    return box(
        "jp2h",
        image_header(48, 36, 3, bpc=255, unknown=1, ipr=1),
        box("bpcc", bytes([7, 11, 0x85])),
        enumerated(S_RGB, precedence=2, approximation=1),
        profile(2, bytes(range(0x30, 0x3D)), precedence=1, approximation=2),
        vendor_colour("inks", b"cyan,gold", precedence=255, approximation=3),
        palette((7, 11, 19, 0x87), rows),
        component_mapping((0, 1, 0), (0, 1, 1), (1, 1, 3), (2, 0, 0)),
        channel_definition((0, 0, 1), (1, 0, 3), (2, 2, 0), (3, 65535, 65535)),
        box(
            "res ",
            resolution("resc", (301, 10), (302, 11), -3, 4),
            resolution("resd", (7201, 97), (7202, 98), 5, -6),
        ),
        regions((1, 0, 9, 5, 6, 7, 8)),
    )


def rich_composition():
    groups = OFFSETS | SCALING | PERSISTENCE | CROPPING
    instructions = (
        (3, 2, 40, 30, life(11, True), 2, 0, 0, 40, 30),
        (29, 21, 16, 12, life(12, False), 0, 1, 2, 14, 9),
        (5, 19, 17, 13, life(0x7FFFFFFF, True), 1, 4, 6, 15, 10),
    )
    return box(
        "comp",
        composition_options(48, 36, 7),
        instruction_set(groups, 3, 40, *instructions),
        fragment_list((0x123456789A, 4096, 0), (77, 65537, 2)),
    )


def rich(encode):
    return [
        signature(),
        file_type("jpx ", "kvt1", "jpxb", "jpx ", "kvt2", "jp2 ", "jpx ", "kvt1", version=6),
        requirements(
            2,
            0xF00A,
            0x8001,
            standard=((2, 0x8000), (5, 0x4000), (45, 0x0002)),
            vendor=(("feature-one", 0x2008), ("feature-two", 0x1001)),
        ),
        rich_header(),
        box(
            "jpch",
            label("first codestream"),
            regions((1, 1, 200, 11, 12, 13, 14), (0, 0, 3, 21, 22, 23, 24)),
            cross_reference("colr"),
        ),
        box("jpch", label("second codestream")),
        box(
            "jplh",
            box("cgrp", enumerated(S_YCC, precedence=7), profile(3, b"any profile", 8, 4)),
            opacity(2, 17, 34, 51),
            registration((8, 9), (0, 1, 2, 3, 4), (1, 5, 6, 7, 8)),
            cross_reference("lbl "),
        ),
        box("jplh", opacity(1), registration((300, 400))),
        rich_composition(),
        # Inside a fragment table a fragment list would be kept as opaque bytes.
        box("ftbl", box("kvfr", b"fragment notes")),
        box("drep", box("asoc", number_list(0x01000000))),
        # References with entries do not survive being written; oneway.jpx has them.
        data_references(),
        box(
            "asoc",
            number_list(0, 0x01000001, 0x02000002),
            label("Grüße vom See"),
            regions((1, 0, 128, 101, 102, 103, 104)),
            box("asoc", number_list(3), label("inner"), cross_reference("xml ")),
        ),
        label("top level label"),
        uuid_info(("schema-one", "schema-two"), "https://example.com/schemas"),
        uuid_box("notes", b"seventeen octets!"),
        uuid_box("nothing", b""),
        xml("Every kind of box"),
        box("mp7b", b"<Mpeg7/>"),
        box("gtso", b"print profile"),
        box("mdat", b"media data behind a long header", form=LONG),
        box("free", bytes(5)),
        box("jp2i", b"<rights owner='nobody'/>"),
        box("kvjx", b"a type that nobody knows"),
        box("jp2c", encode(photograph(48, 36), "-n", "2", "-r", "12,4")),
        box("jp2c", encode(framed_target(16, 12), "-n", "2"), form=TO_END),
    ]


def oneway(encode):
    return [
        signature(),
        file_type("jpx ", "jpx ", "jpxb"),
        requirements(1, 0x80, 0x80, standard=((5, 0x80),)),
        box(
            "jp2h",
            image_header(16, 16, 1),
            enumerated(S_RGB),
            palette((7, 9, 7), [(i * 3, i * 300, i * 5) for i in range(1, 6)]),
            component_mapping((0, 1, 0), (0, 1, 1), (0, 1, 2)),
        ),
        box("jpch", cross_reference("lbl ", label("referred to"))),
        box("ftbl", fragment_list((512, 64, 1), (1024, 32, 2))),
        data_references(url("https://example.com/a.jpx"), url("b.jpx", flags=1)),
        box("jp2c", encode(grey_ramp(16), "-n", "3")),
    ]


def exact(encode):
    return [
        signature(),
        file_type("jpx ", "jp2 ", "jpx ", "jpxb", "kvt3"),
        requirements(1, 0xC0, 0x80, standard=((5, 0x80), (45, 0x40))),
        box(
            "jp2h",
            image_header(24, 16, 3, bpc=255),
            box("bpcc", bytes([7, 7, 7])),
            enumerated(S_RGB),
            profile(2, b"restricted profile", 1, 2),
            channel_definition((0, 0, 1), (1, 0, 2), (2, 0, 3)),
            box("res ", resolution("resc", (150, 1), (151, 2), 1, -1)),
        ),
        box("jpch", label("only codestream")),
        box(
            "jplh",
            box("cgrp", enumerated(S_RGB)),
            opacity(0),
            registration((1, 1), (0, 1, 1, 0, 0)),
        ),
        box(
            "comp",
            composition_options(24, 16, 255),
            instruction_set(OFFSETS | PERSISTENCE, 1, 10, (0, 0, life(5, True), 0)),
            fragment_list((4294967296, 9, 0)),
        ),
        box("asoc", number_list(0), label("region"), regions((1, 0, 1, 2, 3, 4, 5))),
        uuid_info(("schema-one",), "schemas.html"),
        uuid_box("notes", b"kept as it is"),
        xml("Written back unchanged"),
        box("free", bytes(3)),
        box("jp2c", encode(framed_target(24, 16), "-n", "2")),
    ]


def long(encode):
    boxes = minimal(encode)
    boxes.insert(3, box("asoc", number_list(7), label("long headers")))
    # The signature's header is fixed, and the last box keeps its LBox 0.
    for each in (inner for top in boxes[1:-1] for _, inner in top.walk()):
        each.form = LONG
    return boxes


# Pictures of 4 x 2 samples, small enough to look at each.


def part_1():
    return [signature(), file_type("jp2 ", "jp2 ")]


def part_2(*features):
    # Unrestricted Part 1 codestreams (5).
    bits = [(feature, 0x80 >> i) for i, feature in enumerate((5, *features))]
    mask = sum(bit for _, bit in bits)
    return [signature(), file_type("jpx ", "jpx "), requirements(1, mask, mask, standard=bits)]


def picture_file(width, height, components, colour, codestream, *header, bpc=7, start=part_1):
    """A file of one codestream."""
    return [
        *start(),
        box("jp2h", image_header(width, height, components, bpc), colour, *header),
        box("jp2c", codestream),
    ]


PALETTE = (
    (0, 0, 0), (255, 0, 0), (0, 255, 0), (0, 0, 255),
    (255, 255, 255), (17, 34, 51), (200, 100, 50), (1, 2, 3),
)  # fmt: skip


def paletted():
    mapping = component_mapping((0, 1, 0), (0, 1, 1), (0, 1, 2))
    codestream = encode_planes(4, 2, 3, [[7, 6, 5, 4, 3, 2, 1, 0]])
    header = (palette((7, 7, 7), PALETTE), mapping)
    return picture_file(4, 2, 1, enumerated(S_RGB), codestream, *header, bpc=2)


def subsampled():
    planes = [[100, 110, 120, 130, 140, 150, 160, 170], [128, 90], [128, 200]]
    sampling = [(1, 1), (2, 2), (2, 2)]
    codestream = encode_planes(4, 2, 8, planes, sampling=sampling)
    return picture_file(4, 2, 3, enumerated(S_YCC), codestream)


def deep():
    planes = [[0, 1, 1439, 2048, 4000, 4094, 4095, 7]]
    codestream = encode_planes(4, 2, 12, planes)
    return picture_file(4, 2, 1, enumerated(GREYSCALE), codestream, bpc=11)


def signed():
    codestream = encode_planes(4, 2, 8, [[-128, -1, 0, 127, 1, 2, 3, 4]], signed=True)
    return picture_file(4, 2, 1, enumerated(GREYSCALE), codestream, bpc=0x87)


def inked():
    planes = [[0, 255, 0, 0, 0, 255, 64, 10], [0, 0, 255, 0, 0, 255, 128, 20],
              [0, 0, 0, 255, 0, 255, 192, 30], [0, 0, 0, 0, 255, 255, 32, 40]]  # fmt: skip
    codestream = encode_planes(4, 2, 8, planes)
    return picture_file(4, 2, 4, enumerated(CMYK), codestream, start=part_2)


def see_through():
    """Blue, green, red and opacity, which the channel definition puts in order."""
    planes = [[i * 10 + k for i in range(8)] for k in (0, 1, 2)] + [[0, 255, 128, 1, 2, 3, 4, 5]]
    order = channel_definition((0, 0, 3), (1, 0, 2), (2, 0, 1), (3, 1, 0))
    return picture_file(4, 2, 4, enumerated(S_RGB), encode_planes(4, 2, 8, planes), order)


def profiled():
    planes = [[0, 55, 128, 255, 1, 2, 3, 4], [0, 55, 128, 255, 4, 3, 2, 1], [0, 55, 128, 255] * 2]
    colour = profile(2, linear_profile())
    return picture_file(4, 2, 3, colour, encode_planes(4, 2, 8, planes))


def layers():
    """One layer with a chroma key, and one of two codestreams: grey, and opacity half as large."""
    grey = [10, 20, 30, 40, 50, 60, 70, 80]
    return [
        # Several layers (2), opacity (9) as channels (10) and by a chroma key (12).
        *part_2(2, 9, 10, 12),
        box("jp2h", image_header(4, 2, 1), enumerated(GREYSCALE)),
        box("jpch", label("keyed")),
        box("jpch", label("grey")),
        box("jpch", image_header(2, 1, 1), label("opacity")),
        box("jplh", opacity(2, 20), registration((1, 1), (0, 1, 1, 0, 0))),
        box("jplh", opacity(0), registration((1, 1), (1, 1, 1, 0, 0), (2, 2, 2, 0, 0))),
        box("jp2c", encode_planes(4, 2, 8, [grey])),
        box("jp2c", encode_planes(4, 2, 8, [[each + 1 for each in grey]])),
        box("jp2c", encode_planes(2, 1, 8, [[255, 99]])),
    ]


def film():
    """A background that stays, a patch that goes again, and one that is scaled, cropped and stays."""
    groups = OFFSETS | SCALING | PERSISTENCE | CROPPING
    instructions = (
        (0, 0, 4, 2, life(0, True), 0, 0, 0, 4, 2),
        (1, 0, 2, 1, life(100, False), 2, 0, 0, 2, 1),
        (0, 1, 2, 1, life(50, True), 0, 0, 0, 4, 2),
        (2, 1, 1, 1, life(200, True), 0, 1, 0, 1, 1),
    )
    grey = enumerated(GREYSCALE)
    return [
        *part_2(2),
        box("jp2h", image_header(4, 2, 1), grey),
        box("jpch", label("background")),
        box("jpch", image_header(2, 1, 1), label("patch")),
        *(box("jplh", box("cgrp", grey)) for _ in range(3)),
        box("comp", composition_options(4, 2, 2), instruction_set(groups, 0, 10, *instructions)),
        box("jp2c", encode_planes(4, 2, 8, [[10] * 8])),
        box("jp2c", encode_planes(2, 1, 8, [[100, 110]])),
        box("jp2c", encode_planes(4, 2, 8, [[20, 30, 40, 50, 60, 70, 80, 90]])),
    ]


FILES = {
    "minimal.jp2": minimal,
    "gradient.jp2": gradient,
    "composed.jpx": composed,
    "rich.jpx": rich,
    "oneway.jpx": oneway,
    "exact.jpx": exact,
    "long.jpx": long,
}
# Files that are not for the fuzzers, as these have codestreams of their own.
PICTURES = {
    "palette.jp2": paletted,
    "sycc.jp2": subsampled,
    "deep.jp2": deep,
    "signed.jp2": signed,
    "cmyk.jpx": inked,
    "opacity.jp2": see_through,
    "profile.jp2": profiled,
    "layers.jpx": layers,
    "film.jpx": film,
}


def file_bytes(boxes):
    return b"".join(map(bytes, boxes))


def write_samples(folder):
    if not shutil.which("opj_compress"):
        sys.exit("make_samples.py: opj_compress not found; it comes with libopenjp2-tools")
    folder.mkdir(parents=True, exist_ok=True)
    for name, make in FILES.items():
        (folder / name).write_bytes(file_bytes(make(encode)))
    for name, make in PICTURES.items():
        (folder / name).write_bytes(file_bytes(make()))


# ---- Seeds for the fuzzers ------------------------------------------------------------------


def alone(ancestors, kept):
    """A file with nothing but a box, the boxes that it lies in, and the start of every file."""
    for outer in reversed(ancestors):
        fields = (part for part in outer.parts if isinstance(part, bytes))
        kept = box(outer.type, *fields, kept)
    start = {"jP  ": signature(), "ftyp": file_type("jpx ", "jpx ")}
    return [*(start | {kept.type: kept}).values()]


def write_seeds(folder):
    # One tiny codestream in place of all of them: the fuzzers' time belongs to the boxes.
    codestream = (SAMPLES / "minimal.jp2").read_bytes().partition(b"jp2c")[2]
    files = {name: make(lambda *_: codestream) for name, make in FILES.items()}
    types = set()
    for sample in ("rich.jpx", "oneway.jpx"):
        for ancestors, each in (found for top in files[sample] for found in top.walk()):
            types.add(each.type)
            name = f"box-{each.type.replace(' ', '_')}-{sample}"
            files.setdefault(name, alone(ancestors, each))

    corpus = folder / "corpus"
    corpus.mkdir(parents=True, exist_ok=True)
    for name, boxes in files.items():
        (corpus / name).write_bytes(file_bytes(boxes))
    words = [*sorted(types), "jp2 ", "jpx ", "jpxb", r"\x0d\x0a\x87\x0a"]
    lengths = [r"\x00\x00\x00\x00", r"\x00\x00\x00\x01", r"\x00\x00\x00\x08", r"\xff\xff\xff\xff"]
    (folder / "boxes.dict").write_text("".join(f'"{word}"\n' for word in words + lengths))


def main():
    parser = argparse.ArgumentParser(description="Makes the sample files.")
    parser.add_argument("folder", nargs="?", type=Path, default=SAMPLES, help="where they go")
    parser.add_argument("--seeds", type=Path, metavar="DIR", help="make seeds for fuzzers instead")
    arguments = parser.parse_args()
    if arguments.seeds:
        write_seeds(arguments.seeds)
    else:
        write_samples(arguments.folder)


if __name__ == "__main__":
    main()
