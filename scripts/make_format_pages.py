#!/usr/bin/env python3
"""Writes docs/format/, a page a box type: what it is for, its bytes, its fields, where it stands, and
what `kvjpx check` asks of it.

Names come from tools/box_types.cpp, layouts from the comments in src/boxes, fields from
include/kvjpx_fields.h, places from the two lists of box types, rules from check/table.cpp; only the
sentences below are this script's own.

usage: make_format_pages.py [--check]    --check: write nothing, fail where a page is not current
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
PAGES = ROOT / "docs/format"

# Type: clause, what it is for.
BOXES = {
    "jP  ": ("15444-1, I.5.1", "The first box of every file of the family. Its four bytes have been chosen so "
             "that transfers that change line ends or cut the eighth bit show."),
    "ftyp": ("15444-1, I.5.2", "The second box: the standard that the file follows, and those by which a "
             "reader may also understand it."),
    "rreq": ("15444-2, M.11.1", "Tells, as a formula of features, what a reader must know to understand all of "
             "the file, and what to show it as meant. It comes right behind `ftyp`."),
    "jp2h": ("15444-1, I.5.3", "Holds the boxes that describe the image: size, depth, colour, channels, "
             "resolution. In a JPX file they are the defaults of all codestreams and layers."),
    "ihdr": ("15444-1, I.5.3.1", "Size, number and depth of the components. It is the first box in its "
             "container. What it says should be what the codestream's SIZ segment says."),
    "bpcc": ("15444-1, I.5.3.2", "The depth of each component, where they differ and so `ihdr` has 255."),
    "colr": ("15444-1, I.5.3.3; 15444-2, M.11.7.3", "What the colour channels mean: an enumerated space, an "
             "ICC profile, or a vendor's method. A file may have several; a reader takes the one it can use, "
             "by precedence and approximation."),
    "pclr": ("15444-1, I.5.3.4", "A table that makes several channels of one component. It takes effect "
             "through `cmap`, so there is none without the other."),
    "cmap": ("15444-1, I.5.3.5", "How each channel comes from the components: as it is, or through a column of "
             "the palette."),
    "cdef": ("15444-1, I.5.3.6", "What each channel is: a colour, opacity, opacity that the colours have been "
             "multiplied by, or unspecified. Without it the channels are the colours, in the order of the "
             "colourspace."),
    "res ": ("15444-1, I.5.3.7", "Holds the capture and the display resolution."),
    "resc": ("15444-1, I.5.3.7.1", "Samples a metre at which the image was taken, as two fractions with powers "
             "of ten. `kvjpx resolution` works in dots per inch."),
    "resd": ("15444-1, I.5.3.7.2", "Samples a metre at which the image wants to be shown."),
    "jpch": ("15444-2, M.11.6", "Describes one codestream; what it does not say is as in `jp2h`. The n-th such "
             "box is the n-th codestream's."),
    "jplh": ("15444-2, M.11.7", "Describes one layer: colour, channels, opacity, and which codestreams it is "
             "made of."),
    "cgrp": ("15444-2, M.11.7.1", "Holds the colr boxes of a layer."),
    "opct": ("15444-2, M.11.7.6", "The opacity of a layer in short: the last channel, or a colour that is "
             "transparent."),
    "creg": ("15444-2, M.11.7.7", "How the codestreams of a layer lie over each other: sampling and offset of "
             "each on a common grid."),
    "comp": ("15444-2, M.11.10", "How layers become a picture or an animation."),
    "copt": ("15444-2, M.11.10.1", "Size of the composed picture, and how often an animation is shown."),
    "inst": ("15444-2, M.11.10.2", "Where, how large, which part and how long each layer is shown."),
    "jp2c": ("15444-1, I.5.4", "The image data, a codestream of 15444-1, Annex A. `kvjpx dump --codestream` "
             "shows its headers."),
    "jp2i": ("15444-1, I.6", "Rights; the content is not defined by the standard."),
    "ftbl": ("15444-2, M.11.3", "A codestream in pieces: holds the list of them."),
    "flst": ("15444-2, M.11.3.1", "Where the pieces are: offset, length, and in which file. When an edit moves "
             "bytes of this file, entries that point to them follow."),
    "cref": ("15444-2, M.11.4", "Stands for a box whose content is elsewhere: its type, and a fragment list."),
    "dtbl": ("15444-2, M.11.2", "The other files that fragment lists refer to, by number from 1."),
    "url ": ("15444-1, I.7.3.2", "A location: of more on a UUID, in `uinf`; of a file, in `dtbl`. The text is "
             "UTF-8 and ends with a zero byte."),
    "drep": ("15444-2, M.11.15", "How the image wants to look on certain devices."),
    "gtso": ("15444-2, M.11.15.1", "An output profile for printing."),
    "asoc": ("15444-2, M.11.11", "Ties boxes together: the first one says what, such as a label or a number "
             "list, the others what is said of it. GMLJP2 is a tree of these."),
    "nlst": ("15444-2, M.11.12", "Names codestreams and layers, or the whole result, for the association it "
             "stands in."),
    "lbl ": ("15444-2, M.11.13", "A text in UTF-8, without a zero byte at its end."),
    "roid": ("15444-2, M.11.16", "Rectangles and ellipses of the image that matter more."),
    "uuid": ("15444-1, I.7.2", "Anything, marked by 16 bytes that nobody else uses: XMP, Exif, IPTC and "
             "GeoTIFF come so. `kvjpx meta` puts them in, `uuid:xmp` is a path."),
    "uinf": ("15444-1, I.7.3", "Where to read about the UUIDs of the file: a list and a location."),
    "ulst": ("15444-1, I.7.3.1", "The UUIDs that the location beside it is about."),
    "xml ": ("15444-1, I.7.1", "A well-formed document."),
    "mp7b": ("15444-2, M.11.19", "Metadata of ISO/IEC 15938."),
    "mdat": ("15444-2, M.11.9", "Bytes that fragment lists point to; nothing by itself."),
    "free": ("15444-2, M.11.20", "Room; readers skip it."),
}


def comment_text(raw):
    lines = [re.sub(r"^\s*\*? ?", "", line) for line in raw.strip().splitlines()]
    return re.sub(r"\s+", " ", " ".join(lines)).strip()


def read_fields():
    """Box type -> list of (name, text), and of (enum text, [(name, number, text)])."""
    text = (ROOT / "include/kvjpx_fields.h").read_text()
    sections = re.split(r"^/\* (?=[a-zP])([^:]+):", text, flags=re.M)[1:]
    fields, values = {}, {}
    names = {"resc and resd": ["resc", "resd"]}
    for head, body in zip(sections[::2], sections[1::2]):
        types = names.get(head, [head])
        body = body.split("#ifdef")[0].split("/* ---")[0]
        found, enums = [], []
        item = re.compile(r"/\*\*(.*?)\*/\s*(?:#define (\w+) \w+|enum \w+ \{(.*?)\};)", re.S)
        for match in item.finditer(body):
            doc, key, members = match.groups()
            if key and key.startswith("JPX_FIELD_"):
                found.append((key, comment_text(doc)))
            elif members:
                rows = re.findall(r"(KV_JPX_\w+) = (\d+),?(?: /\*\*< (.*?) \*/)?", members, re.S)
                enums.append((comment_text(doc), rows))
        for box_type in types:
            fields[box_type.ljust(4)] = found
            values[box_type.ljust(4)] = enums
    return fields, values


def read_layouts():
    layouts = {}
    for path in sorted((ROOT / "src/boxes").glob("*.cpp")):
        match = re.match(r"// (\w+)(?: and (\w+))?(?:.*\n// )*.*\n//\n((?://   .*\n(?://\n)?)+)",
                         path.read_text())
        if not match:
            continue
        layout = [line[5:] for line in match.group(3).rstrip("/\n").splitlines()]
        for name in filter(None, match.groups()[:2]):
            layouts[name.ljust(4)] = layout
    return layouts


def names_of(text):
    found = []
    for name in re.findall(r'code\("(....)"\)|(kRoot|kAnywhere|kAnyParent|kNoParent)', text):
        words = {"kRoot": "the top level", "kAnywhere": "any container", "kAnyParent": "any box",
                 "kNoParent": "any box or none"}
        found.append(words.get(name[1]) or f"`{name[0].rstrip()}`")
    return found


def read_places():
    standard = {box_type: names_of(places) for box_type, places in re.findall(
        r'\{code\("(....)"\), .*, \{(.*)\}\},', (ROOT / "src/boxes/standard.cpp").read_text())}
    usual = {}
    for row in re.findall(r"^  (?:TYPED|CONTAINER|OPAQUE|OWN)\((.*)\)", 
                          (ROOT / "src/boxes/boxes.h").read_text(), re.M):
        box_type, rest = re.search(r'"(....)", (.*)', row).groups()
        usual[box_type] = names_of(rest)
    return standard, usual


def read_rules():
    rules = {}
    row = re.compile(r'\{"([A-Z0-9-]+)", k(\w+), [^"]*, "([^"]*)",\s*"([^"]*)",\s*code\("(....)"\)')
    for rule, severity, clause, text, box_type in row.findall((ROOT / "check/table.cpp").read_text()):
        rules.setdefault(box_type, []).append((rule, severity.lower(), clause, text))
    return rules


def file_name(box_type):
    return box_type.strip().lower() + ".md"


def page(box_type, fields, values, layouts, places, rules):
    clause, purpose = BOXES[box_type]
    out = [f"# `{box_type}`: {NAMES[box_type]}", "", f"ISO/IEC {clause}", "", purpose, "", "## Content", ""]
    if box_type in layouts:
        out += ["Each number is the length of what follows it, in bytes; numbers are stored with their most "
                "significant byte first.", "", "```"] + layouts[box_type] + ["```", ""]
    elif box_type in CONTAINERS:
        out += ["Other boxes.", ""]
    else:
        out += ["Bytes, which the library keeps as they are (field `JPX_FIELD_JP2C_DATA`, path "
                f"`{box_type.strip()}.DATA`).", ""]
    standard, usual = places
    out += ["## Place", "", "By the standard: in " + ", ".join(standard[box_type]) + "."]
    if usual[box_type] != standard[box_type] and usual[box_type]:
        out.append("Unless everything is kept, the library makes it in " + ", ".join(usual[box_type]) + ".")
    out.append("")
    if fields.get(box_type):
        out += ["## Fields", "", "| Key | Meaning |", "|---|---|"]
        for key, doc in fields[box_type]:
            out.append(f"| `{key}` | {doc.replace('|', chr(92) + '|')} |")
        out.append("")
        for doc, rows in values.get(box_type, []):
            out += [doc, "", "| Value | Name | |", "|---|---|---|"]
            out += [f"| {number} | `{name}` | {re.sub(chr(92) + 's+', ' ', text)} |" for name, number, text in rows]
            out.append("")
    if box_type in rules:
        out += ["## What `kvjpx check` asks", "", "| Rule | | Found | Clause |", "|---|---|---|---|"]
        out += [f"| `{rule}` | {severity} | {text} | {where} |" for rule, severity, where, text in rules[box_type]]
        out.append("")
    return "\n".join(out).rstrip() + "\n"


NAMES = {box_type: name[0].upper() + name[1:] for box_type, name in re.findall(
    r'\{"(....)", "([^"]+)"', (ROOT / "tools/box_types.cpp").read_text())}
CONTAINERS = set(re.findall(r'CONTAINER\("(....)"', (ROOT / "src/boxes/boxes.h").read_text())) | {"cref", "dtbl"}


def main():
    fields, values = read_fields()
    standard, usual = read_places()
    missing = set(usual) ^ set(BOXES)
    if missing:
        sys.exit(f"make_format_pages.py: its list and boxes.h differ in {sorted(missing)}")
    layouts, rules = read_layouts(), read_rules()
    pages = {file_name(box_type): page(box_type, fields, values, layouts, (standard, usual), rules)
             for box_type in BOXES}
    index = ["# The boxes of a JPX file", "", "A file is a row of boxes: four bytes of length, four of type, the "
             "content. A length of 1 is followed by the length in eight bytes, a length of 0 means the rest of the "
             "file. Some boxes contain others. Here are the types that the library knows; it keeps all others as "
             "they are.", "", "These pages are made by `scripts/make_format_pages.py`.", "", "| Type | Name | Clause |",
             "|---|---|---|"]
    index += [f"| [`{box_type}`]({file_name(box_type)}) | {NAMES[box_type]} | {clause} |"
              for box_type, (clause, _) in BOXES.items()]
    pages["README.md"] = "\n".join(index) + "\n"
    stale = []
    for name, text in pages.items():
        path = PAGES / name
        if not path.exists() or path.read_text() != text:
            stale.append(name)
            if "--check" not in sys.argv:
                PAGES.mkdir(parents=True, exist_ok=True)
                path.write_text(text)
    for path in PAGES.glob("*.md"):
        if path.name not in pages:
            sys.exit(f"make_format_pages.py: {path} is of no box type")
    if stale and "--check" in sys.argv:
        sys.exit(f"run scripts/make_format_pages.py: not current: {', '.join(stale)}")


main()
