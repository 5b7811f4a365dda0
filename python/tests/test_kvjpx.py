"""Tests of the package against the library and the program, which must say the same.

KVJPX_LIBRARY names the library, KVJPX_PROGRAM the program, KVJPX_SAMPLES the sample files."""

import json
import os
import re
import subprocess
import sys
import tempfile
import unittest
import warnings
from unittest import mock

import kvjpx
import numpy

PROGRAM = os.environ["KVJPX_PROGRAM"]
SAMPLES = os.environ["KVJPX_SAMPLES"]
NAMES = sorted(name for name in os.listdir(SAMPLES) if ".jp" in name)


def sample(name):
    return os.path.join(SAMPLES, name)


def content(path):
    with open(path, "rb") as file:
        return file.read()


def run(*arguments):
    # A sanitizer that stands between the program and the loader hides where the codec is.
    codec = {**os.environ, "LD_LIBRARY_PATH": os.path.dirname(os.environ["KVJPX_LIBRARY"])}
    return subprocess.run([PROGRAM, *arguments], capture_output=True, env=codec).stdout


class OnSamples(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def place(self, name):
        return os.path.join(self.folder, name)

    def open(self, name):
        document = kvjpx.open(sample(name))
        self.addCleanup(document.close)
        return document

    def tells_as_the_program(self, document, path):
        """Both of the file at the path, whatever name reports give it."""
        for codestreams in ([], ["--codestream"]):
            told = json.loads(run("dump", "--format", "json", *codestreams, path))
            self.assertEqual(document.to_dict(bool(codestreams)), {**told, "file": document.name})
        told = json.loads(run("check", "--json", path))
        self.assertEqual(document.check(), {**told, "file": document.name})

    def test_says_what_the_program_says(self):
        for name in NAMES:
            with self.subTest(name), kvjpx.open(sample(name)) as document:
                self.tells_as_the_program(document, sample(name))
                self.assertEqual(document.save_to_memory(), content(sample(name)))
                facts = document.to_dict()
                boxes = list(document)
                self.assertEqual([box.path for box in boxes], [b["path"] for b in facts["boxes"]])
                for box, told in zip(boxes, facts["boxes"]):
                    self.assertEqual(document.find(told["path"]), box)
                    values = {
                        key: list(value) if isinstance(value, kvjpx.Entries) else value
                        for key, value in box.fields.items() if not isinstance(value, bytes)
                    }
                    for key, value in told.get("fields", {}).items():
                        if key in values:
                            strings = json.loads(json.dumps(values[key], default=str))
                            large = isinstance(value, str) and value.isdigit()
                            self.assertEqual(str(strings) if large else strings, value)
                finding = [(f.place.path, f.text) for f in document.findings]
                self.assertEqual(finding, [(f["path"], f["text"]) for f in facts["findings"]])
        odd = self.open("minimal.jp2")
        self.assertEqual(odd.check("jpx")["profile"], "jpx")
        with self.assertRaises(kvjpx.Error):
            odd.check("png")

    def test_edits_as_the_program_does(self):
        document = self.open("gradient.jp2")
        header = document.root["jp2h/ihdr"]
        self.assertFalse(document.is_changed)
        header.unkc = 1
        document["ftyp"].cl.append("jpx ")
        document["jp2h/res/resc"].fields["vr_e"] = -3
        document["xml"].payload = b"<a/>"
        edited, expected = self.place("edited.jp2"), self.place("expected.jp2")
        document.save(edited)
        run("set", sample("gradient.jp2"), "jp2h/ihdr.UnkC=1", "ftyp.CL[1]=jpx ",
            "jp2h/res/resc.VR_E=-3", "-o", expected)
        payload = self.place("payload")
        with open(payload, "wb") as file:
            file.write(b"<a/>")
        run("replace", expected, "xml", "--payload", payload, "--in-place")
        self.assertEqual(content(edited), content(expected))
        self.assertEqual(document["jp2h/res/resc"].vr_e, -3)
        self.tells_as_the_program(document, edited)
        # What is told of is the document, whatever comes to stand in its file's place.
        document = kvjpx.open(edited)
        os.replace(sample_copy(self.place("other.jp2"), "minimal.jp2"), edited)
        self.assertEqual(document.to_dict()["size"], os.path.getsize(expected))

    def test_boxes_are_added_moved_and_removed(self):
        document = self.open("rich.jpx")
        root = document.root
        for box in document:
            if box.type in ("asoc", "uuid"):
                box.remove()
        self.assertEqual([document.count("asoc"), document.first("uuid")], [0, None])
        label = root.append("asoc").append("lbl")
        label.set_content(b"sea")
        note = label.parent.add_before("xml")
        self.assertEqual(note.next.add_after("free"), root.children[-1])
        note.move(label.parent, "first_child")
        self.assertEqual([box.type for box in label.parent], ["xml", "lbl"])
        self.assertEqual((label.path, label.payload), ("asoc/lbl", b"sea"))
        self.assertEqual(root.add_first("free").add_before("free"), root.first_child)
        with kvjpx.read(document.save_to_memory()) as again:
            self.assertEqual([b.path for b in again], [b.path for b in document])
            self.assertEqual(again["asoc/lbl"].extent.header_length, 8)
        lists = document.first("cdef")
        lists.cn = [4, 5, 6, 7]
        self.assertEqual((lists.cn, len(lists.typ)), ([4, 5, 6, 7], 4))
        depths = document.first("bpcc")
        depths.bpc = [7] * 5
        self.assertEqual(depths.bpc[-2:], [7, 7])

    def test_failures_say_what_and_where(self):
        document = self.open("gradient.jp2")
        header = document["jp2h/ihdr"]
        self.assertIn("jp2h/colr", document.root)
        for call, kind, code, words in (
            (lambda: header.nothing, AttributeError, 4, "jp2h/ihdr has no field 'nothing'"),
            (lambda: setattr(header, "nc", 65536), kvjpx.Error, 3, "NC is a number from 0 to"),
            (lambda: setattr(header, "bpc", 200), kvjpx.Error, 3, ""),
            (lambda: document["jp2h/ihdr[1]"], KeyError, 3, "there is no box 'ihdr[1]' in jp2h"),
            (lambda: document.find("jp2h/toolong"), kvjpx.Error, 3, "is not TYPE or TYPE[INDEX]"),
            (lambda: document.find("#99"), kvjpx.Error, 3, "no box with this identifier"),
            (lambda: header.append("xml"), kvjpx.Error, 3, ""),
            (lambda: document["jp2h"].append("jP"), kvjpx.Error, 6, ""),
            (lambda: document.save("/nowhere/file"), kvjpx.Error, 100, ""),
        ):
            with self.assertRaises(kind) as caught:
                call()
            self.assertEqual(caught.exception.code, code)
            self.assertIn(words, str(caught.exception))
        with self.assertRaises(kvjpx.Error) as caught:
            header.width = -1
        self.assertEqual((caught.exception.box_id, caught.exception.box_type), (header.id, "ihdr"))
        with self.assertRaises(AttributeError):
            header.parent = header
        header.remove()
        self.assertFalse(header.exists)
        with self.assertRaises(kvjpx.Error):
            header.width
        document.close()
        with self.assertRaises(kvjpx.Error) as caught:
            document.root.append("xml")
        self.assertEqual(caught.exception.code, 8)
        with self.assertRaises(FileNotFoundError):
            kvjpx.open(self.place("nothing"))
        with self.assertRaisesRegex(kvjpx.Error, "not a JPX"):
            kvjpx.read(b"text").to_dict()
        script = "import kvjpx; kvjpx.create()"
        nowhere = {**os.environ, "KVJPX_LIBRARY": self.place("libkvjpx.so")}
        ended = subprocess.run([sys.executable, "-c", script], env=nowhere, capture_output=True)
        self.assertIn(b"OSError", ended.stderr)

    def test_decodes_as_the_program_does(self):
        part = {"region": (8, 20, 100, 0), "reduce": 2, "layers": 1}
        of_part = ["--region", "8,20,100,0", "--reduce", "2", "--layers", "1"]
        for name, options, arguments in (
            *((name, {}, []) for name in NAMES if name != "profile.jp2"),
            ("profile.jp2", {"srgb": True}, ["--srgb"]),
            ("cmyk.jpx", {"srgb": True}, ["--srgb"]),
            ("gradient.jp2", part, of_part),
            ("layers.jpx", {"layer": 1}, ["--layer", "1"]),
            ("palette.jp2", {"codestream": 0}, ["--codestream", "0"]),
            ("film.jpx", {"frame": 2}, ["--frame", "2"]),
            ("rich.jpx", {"strict": True}, ["--strict"]),
            ("gradient.jp2", {"raw": True, **part}, ["--raw", *of_part]),
            ("composed.jpx", {"raw": True, "region": (5, 50, 999, 151), "reduce": 1},
             ["--raw", "--region", "5,50,999,151", "--reduce", "1"]),
            ("composed.jpx", {"raw": True, "codestream": 1}, ["--raw", "--codestream", "1"]),
        ):
            with self.subTest(name, **options), warnings.catch_warnings(record=True) as noted:
                warnings.simplefilter("always")
                form = "raw" if "raw" in options else "pam"
                expected = run("decode", sample(name), "--format", form, "-o", "-", *arguments)
                document = self.open(name)
                if not expected:
                    self.assertRaises(kvjpx.Error, document.decode, **options)
                    continue
                with mock.patch.dict(sys.modules, {"numpy": None}):
                    plain = document.decode(**options)
                if form == "pam":
                    head, expected = expected.split(b"ENDHDR\n")
                    width, height, depth, largest = map(int, re.findall(rb" (\d+)", head))
                    expected = numpy.frombuffer(expected, ">H" if largest > 255 else "B")
                    expected = expected.astype(plain.format).tobytes()
                    shape = (height, width, depth)[: 2 + (depth > 1)]
                    self.assertEqual(document.shape if not options else shape, shape)
                    self.assertEqual(plain.shape, shape)
                self.assertEqual(plain.tobytes(), expected)
                picture = document.decode(**options)
                self.assertEqual((picture.shape, picture.dtype), (plain.shape, plain.format))
                self.assertEqual(picture.tobytes(), expected)
                self.assertEqual(len(noted), {"exact.jpx": 4, "rich.jpx": 2}.get(name, 0))
        document = self.open("gradient.jp2")
        self.assertEqual(document[10:-2:2, ::2].shape, (90, 128, 3))
        self.assertEqual(document[..., 1].tobytes(), document.decode()[:, :, 1].tobytes())
        with self.assertRaises(IndexError):
            document[::3, ::3]
        codestream = document["jp2c"].payload
        bare = kvjpx.read(codestream)
        self.assertEqual((bare.shape, bare.decode(reduce=1).shape), ((192, 256, 3), (96, 128, 3)))
        self.assertTrue((self.open("signed.jp2").decode(raw=True).astype(int) + 128
                         == self.open("signed.jp2").decode()).all())
        # The same samples, but that the codestream says it has 12 bits: shifted by the difference.
        deep = self.open("minimal.jp2")
        siz = deep["jp2c"].payload
        shallow = deep.decode()
        deep["jp2c"].payload = siz[:42] + bytes([11]) + siz[43:]
        deep["jp2h/ihdr"].bpc = 11
        self.assertEqual(deep.decode().dtype, numpy.uint16)
        with mock.patch.dict(sys.modules, {"numpy": None}):
            plain = deep.decode(raw=True)
        for samples in (deep.decode(), deep.decode(raw=True), plain):
            self.assertEqual(samples.tobytes(), numpy.uint16(shallow + 1920.0).tobytes())
        for call in (
            lambda: document.decode(codestream=1),
            lambda: document.decode(region=(9, 0, 9, 1)),
            lambda: document.decode(region=(256, 0, 300, 1)),
            lambda: document.decode(reduce=33),
            lambda: document.decode(reduce=9, raw=True),
            lambda: document.decode(layer=0, frame=0),
            lambda: document.decode(layer=-1),
            lambda: document.decode(limit=1000001),
            lambda: document.decode(srgb=True, raw=True),
            lambda: kvjpx.create().decode(),
            lambda: kvjpx.create().decode(raw=True),
            lambda: kvjpx.read(codestream[:99]).decode(strict=True),
            lambda: kvjpx.read(codestream[:99]).decode(raw=True),
        ):
            with self.assertRaises(kvjpx.Error):
                call()
        huge = self.open("composed.jpx")
        huge["comp/copt"].width = huge["comp/copt"].height = 60000
        self.assertEqual((huge.shape, huge[:9, :6].shape), ((60000, 60000, 4), (9, 6, 4)))
        huge["jp2h/ihdr"].width = huge["jp2h/ihdr"].height = 60000
        for options in ({}, {"raw": True}):
            self.assertRaises(kvjpx.Error, huge.decode, **options)
        huge.root.children[-1].payload = b"broken"
        with self.assertWarnsRegex(UserWarning, "1 codestreams left"):
            part = huge.decode(region=(0, 0, 160, 120), raw=True)
            self.assertEqual(part.shape, (120, 160, 3))


def sample_copy(path, name):
    with open(path, "wb") as file:
        file.write(content(sample(name)))
    return path


if __name__ == "__main__":
    unittest.main()
