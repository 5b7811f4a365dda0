"""The shared libraries: where they are, what their functions take, how they fail."""

from __future__ import annotations

import ctypes
import functools
import os
import threading
from ctypes import POINTER, byref, c_char_p, c_int16, c_int32, c_uint8, c_uint32, c_uint64, c_void_p
from typing import Any, NamedTuple, Optional, Sequence

ROOT = 0xFFFFFFFF
UNKNOWN_OFFSET = 0xFFFFFFFFFFFFFFFF

OK = 0
INVALID_ARGUMENT = 3
NO_SUCH_FIELD = 4
NO_INPUT = 8
INTERNAL = 999

FIELD_INTEGER = 1
FIELD_BYTES = 2
FIELD_REPEATS = 4


class Error(Exception):
    """What went wrong. `str(error)` is the library's sentence, in English."""

    def __init__(
        self,
        code: int,
        text: str,
        box_id: Optional[int] = None,
        box_type: Optional[str] = None,
        offset: Optional[int] = None,
    ) -> None:
        super().__init__(text)
        #: A number of kv_jpx_error (kvjpx_errors.h).
        self.code = code
        #: The sentence.
        self.text = text
        #: Identifier of the box that it is about (`Document.by_id`); None when there is none.
        self.box_id = box_id
        #: Its type, as in paths; None when there is none.
        self.box_type = box_type
        #: Where in the input it was noticed, in bytes; None when that is not known.
        self.offset = offset


class NoSuchField(Error, AttributeError, KeyError):
    """The box has no such field, or none now."""

    __str__ = Exception.__str__


class _FieldInfo(ctypes.Structure):
    _fields_ = [
        ("size", c_uint32),
        ("box_type", c_uint32),
        ("key", c_uint32),
        ("name", c_char_p),
        ("width", c_uint32),
        ("access", c_uint32),
    ]


class _ErrorInfo(ctypes.Structure):
    _fields_ = [
        ("size", c_uint32),
        ("code", c_int32),
        ("box_id", c_uint32),
        ("box_type", c_uint32),
        ("offset", c_uint64),
        ("text", c_char_p),
    ]


class ExtentRecord(ctypes.Structure):
    """kv_jpx_box_extent"""

    _fields_ = [
        ("size", c_uint32),
        ("flags", c_uint32),
        ("offset", c_uint64),
        ("header_length", c_uint64),
        ("content_length", c_uint64),
        ("tail_length", c_uint64),
    ]


class FindingRecord(ctypes.Structure):
    """kv_jpx_finding"""

    _fields_ = [
        ("size", c_uint32),
        ("kind", c_uint32),
        ("box_id", c_uint32),
        ("box_type", c_uint32),
        ("offset", c_uint64),
        ("text", c_char_p),
    ]


class DecodeReport(ctypes.Structure):
    """kv_jpx_decode_report"""

    _fields_ = [
        ("size", c_uint32),
        ("delivered", c_uint32),
        ("failed", c_uint32),
        ("skipped", c_uint32),
        ("failed_box_id", c_uint32),
        ("codec_code", c_int32),
        ("output_code", c_int32),
        ("text", c_char_p),
    ]


class Codestream(ctypes.Structure):
    """kv_j2k_codestream"""

    _fields_ = [
        (name, c_uint32)
        for name in (
            "size", "components", "left", "top", "right", "bottom",
            "tile_left", "tile_top", "tile_width", "tile_height", "levels",
        )
    ]


class SampleRequest(ctypes.Structure):
    """kv_j2k_sample_request"""

    _fields_ = [
        ("size", c_uint32),
        ("flags", c_uint32),
        ("left", c_uint32),
        ("top", c_uint32),
        ("right", c_uint32),
        ("bottom", c_uint32),
        ("reduction", c_uint32),
        ("layers", c_uint32),
        ("components", POINTER(c_uint32)),
        ("component_count", c_uint32),
        ("threads", c_uint32),
    ]


class Plane(ctypes.Structure):
    """kv_j2k_plane"""

    _fields_ = [
        *(
            (name, c_uint32)
            for name in (
                "component", "precision", "is_signed", "dx", "dy", "x0", "y0", "width", "height",
            )
        ),
        ("samples", POINTER(c_int32)),
    ]


class Samples(ctypes.Structure):
    """kv_j2k_samples"""

    _fields_ = [
        ("plane_count", c_uint32),
        ("planes", POINTER(Plane)),
        ("is_complete", c_uint32),
        ("missing_tile_count", c_uint32),
        ("missing_tiles", POINTER(c_uint32)),
        ("missing", c_char_p),
    ]


class PictureRequest(ctypes.Structure):
    """kvjpx_tools_decode_request"""

    _fields_ = [
        ("size", c_uint32),
        ("flags", c_uint32),
        ("part", c_uint32),
        ("number", c_uint32),
        ("left", c_uint64),
        ("top", c_uint64),
        ("right", c_uint64),
        ("bottom", c_uint64),
        ("reduce", c_uint32),
        ("layers", c_uint32),
        ("limit", c_uint64),
    ]


class PictureLayout(ctypes.Structure):
    """kvjpx_tools_picture"""

    _fields_ = [
        (name, c_uint32)
        for name in ("size", "width", "height", "channels", "bits", "colours", "opacity")
    ]


class Field(NamedTuple):
    """A row of the library's table of fields."""

    key: int
    name: str
    width: int
    access: int
    is_signed: bool
    is_code: bool  # a four-character code

    @property
    def is_number(self) -> bool:
        return self.access & FIELD_INTEGER != 0

    @property
    def is_bytes(self) -> bool:
        return self.access & FIELD_BYTES != 0

    @property
    def repeats(self) -> bool:
        return self.access & FIELD_REPEATS != 0


# What the table of fields does not tell: numbers that may be negative, and four-character codes.
_SIGNED = {("colr", "PREC")} | {(t, n) for t in ("resc", "resd") for n in ("VR_E", "HR_E")}
_CODES = {("ftyp", "BR"), ("ftyp", "CL"), ("cref", "RTYP")}

# Of functions that take a context, what follows it.
_CONTEXT_FUNCTIONS: dict[str, list[Any]] = {
    "kv_jpx_destroy": [],
    "kv_jpx_free": [c_void_p],
    "kv_jpx_set_keep_everything": [c_int32],
    "kv_jpx_set_input_image": [c_char_p, c_uint64],
    "kv_jpx_set_input_image_mapped": [c_char_p],
    "kv_jpx_get_box_extent": [c_uint32, POINTER(ExtentRecord)],
    "kv_jpx_get_finding": [c_uint32, POINTER(FindingRecord)],
    "kv_jpx_get_last_error": [POINTER(_ErrorInfo)],
    "kv_jpx_get_next_box_id_by_type": [c_uint32, c_uint32, POINTER(c_uint32)],
    "kv_jpx_get_box_count_by_type": [c_uint32, POINTER(c_uint32)],
    "kv_jpx_get_box_type_by_id": [c_uint32, POINTER(c_uint32)],
    "kv_jpx_get_next_box_id": [c_uint32, POINTER(c_uint32)],
    "kv_jpx_get_previous_box_id": [c_uint32, POINTER(c_uint32)],
    "kv_jpx_get_first_child_box_id": [c_uint32, POINTER(c_uint32)],
    "kv_jpx_get_parent_box_id": [c_uint32, POINTER(c_uint32)],
    "kv_jpx_is_box_super": [c_uint32, POINTER(c_uint8)],
    "kv_jpx_get_box_field_int": [c_uint32, c_uint32, c_uint64, POINTER(c_uint64)],
    "kv_jpx_set_box_field_int": [c_uint32, c_uint32, c_uint64, c_uint64],
    "kv_jpx_get_box_field_count": [c_uint32, c_uint32, POINTER(c_uint64), POINTER(c_uint32)],
    "kv_jpx_set_box_field_count": [c_uint32, c_uint32, c_uint64],
    "kv_jpx_get_box_field_buffer": [
        c_uint32, c_uint32, POINTER(c_uint64), POINTER(c_uint32), POINTER(c_void_p)
    ],
    "kv_jpx_set_box_field_buffer": [c_uint32, c_uint32, c_uint64, c_uint32, c_char_p],
    "kv_jpx_add_box": [c_uint32, c_uint32, c_int32, POINTER(c_uint32)],
    "kv_jpx_append_box": [c_uint32, c_uint32, POINTER(c_uint32)],
    "kv_jpx_delete_box": [c_uint32],
    "kv_jpx_move_box": [c_uint32, c_uint32, c_int32],
    "kv_jpx_set_box_content": [c_uint32, c_char_p, c_uint64],
    "kv_jpx_set_input_jpx_region_level": [c_uint64] * 4,
    "kv_jpx_set_input_jpx_resolution_level": [c_int16, c_int16],
    "kv_jpx_set_input_jpx_quality_level": [c_int16],
    "kv_jpx_set_output_type": [c_int32],
    "kv_jpx_set_decode_limits": [c_uint64, c_uint32],
    "kv_jpx_get_decode_report": [POINTER(DecodeReport)],
    "kv_jpx_get_output_image": [POINTER(c_void_p), POINTER(c_uint64)],
    "kv_jpx_get_output_image_file": [c_char_p],
}

_CODEC_FUNCTIONS: dict[str, list[Any]] = {
    "kv_j2k_create": [POINTER(c_void_p)],
    "kv_j2k_destroy": [c_void_p],
    "kv_j2k_set_input_image": [c_void_p, c_char_p, c_uint32],
    "kv_j2k_get_input_image_info": [c_void_p] + [POINTER(c_uint32)] * 4,
    "kv_j2k_get_input_j2k_tile_info": [c_void_p] + [POINTER(c_uint32)] * 6,
    "kv_j2k_set_input_j2k_region_level": [c_void_p] + [c_uint64] * 4,
    "kv_j2k_set_input_j2k_resolution_level": [c_void_p, c_int32, c_int32],
    "kv_j2k_set_input_j2k_quality_level": [c_void_p, c_int32],
    "kv_j2k_set_output_type": [c_void_p, c_int32],
    "kv_j2k_get_output_image": [c_void_p, POINTER(c_void_p), POINTER(c_uint32)],
    "kv_j2k_free": [c_void_p, c_void_p],
}

# Not every codec delivers samples as they were coded.
_SAMPLE_FUNCTIONS: dict[str, list[Any]] = {
    "kv_j2k_set_input_borrowed": [c_void_p, c_char_p, c_uint64],
    "kv_j2k_get_codestream": [c_void_p, POINTER(Codestream)],
    "kv_j2k_decode_samples": [c_void_p, POINTER(SampleRequest), POINTER(POINTER(Samples))],
    "kv_j2k_free_samples": [POINTER(Samples)],
}


def _load(name: str, alternative: Optional[str] = None) -> ctypes.CDLL:
    """The library of this name beside the one of KVJPX_LIBRARY, or as the loader finds it."""
    chosen = os.environ.get("KVJPX_LIBRARY")
    if chosen:
        return ctypes.CDLL(os.path.join(os.path.dirname(os.path.abspath(chosen)), name))
    try:
        return ctypes.CDLL(name)
    except OSError:
        if alternative is None:
            raise
        return ctypes.CDLL(alternative)


def _declare(library: ctypes.CDLL, functions: dict[str, list[Any]], first: Sequence[Any]) -> None:
    for name, arguments in functions.items():
        function = getattr(library, name)
        function.argtypes = [*first, *arguments]
        function.restype = c_int32


@functools.lru_cache(maxsize=None)
def library() -> ctypes.CDLL:
    """libkvjpx.so. Raises OSError when there is none."""
    chosen = os.environ.get("KVJPX_LIBRARY")
    loaded = ctypes.CDLL(chosen) if chosen else _load("libkvjpx.so", "libkvjpx.so.1")
    _declare(loaded, _CONTEXT_FUNCTIONS, [c_void_p])
    loaded.kv_jpx_create.argtypes = [POINTER(c_void_p)]
    loaded.kv_jpx_get_field_info.argtypes = [c_uint32, POINTER(_FieldInfo)]
    loaded.kv_jpx_get_error_text.argtypes = [c_int32]
    loaded.kv_jpx_get_error_text.restype = c_char_p
    return loaded


@functools.lru_cache(maxsize=None)
def codec() -> ctypes.CDLL:
    """libkvj2k.so, or what a host has put in its place. Raises OSError when there is none."""
    library()
    loaded = _load("libkvj2k.so")
    _declare(loaded, _CODEC_FUNCTIONS, [])
    if has_samples(loaded):
        _declare(loaded, _SAMPLE_FUNCTIONS, [])
        loaded.kv_j2k_free_samples.restype = None
    return loaded


def has_samples(codec: ctypes.CDLL) -> bool:
    """Whether it delivers samples as they were coded."""
    return hasattr(codec, "kv_j2k_decode_samples")


@functools.lru_cache(maxsize=None)
def tools() -> ctypes.CDLL:
    """libkvjpx-tools.so. Raises OSError when there is none."""
    library()
    loaded = _load("libkvjpx-tools.so", "libkvjpx-tools.so.1")
    answer = POINTER(c_void_p)
    loaded.kvjpx_tools_dump.argtypes = [c_char_p, c_char_p, c_uint64, c_int32, answer]
    loaded.kvjpx_tools_check.argtypes = [c_char_p, c_char_p, c_uint64, c_char_p, answer]
    loaded.kvjpx_tools_decode.argtypes = [
        c_char_p, c_char_p, c_uint64, POINTER(PictureRequest), POINTER(PictureLayout), c_void_p,
        c_uint64, answer,
    ]
    loaded.kvjpx_tools_free.argtypes = [c_void_p]
    loaded.kvjpx_tools_free.restype = None
    return loaded


def answer_of_tools(function: str, *arguments: Any) -> bytes:
    """Calls a function of kvjpx_tools.h."""
    answer = c_void_p()
    result: int = getattr(tools(), function)(*arguments, byref(answer))
    try:
        text = ctypes.string_at(answer) if answer else b"not enough memory"
    finally:
        tools().kvjpx_tools_free(answer)
    if result != OK:
        raise Error(INVALID_ARGUMENT, text.decode("utf-8", "replace"))
    return text


def library_version() -> str:
    """The version of the library, which may be another than that of this package."""
    number = c_uint32()
    library().kv_jpx_get_library_version(byref(number), None, None)
    major, rest = divmod(number.value, 1000000)
    return f"{major}.{rest // 10000}.{rest // 100 % 100}"


@functools.lru_cache(maxsize=None)
def _fields() -> dict[int, dict[str, Field]]:
    table: dict[int, dict[str, Field]] = {}
    info = _FieldInfo(size=ctypes.sizeof(_FieldInfo))
    index = 0
    while library().kv_jpx_get_field_info(index, byref(info)) == OK:
        index += 1
        name = info.name.decode("ascii")
        place = four_characters(info.box_type), name
        row = Field(
            info.key, name, info.width, info.access, place in _SIGNED, place in _CODES
        )
        table.setdefault(info.box_type, {})[row.name.lower()] = row
    return table


def fields_of(box_type: int) -> dict[str, Field]:
    """The fields of a box type by their names in small letters; of type 0, of opaque boxes."""
    return _fields().get(box_type, {})


def type_code(name: str) -> int:
    """The code of a box type from its name as in paths: "xml" or "jp2h", others with %xx."""
    raw = b""
    rest = name.encode("utf-8")
    while rest:
        length = 1
        byte = rest[:1]
        if byte == b"%":
            length = 3
            try:
                byte = bytes.fromhex(rest[1:3].decode("ascii"))
            except ValueError:
                byte = b""
        raw += byte
        if len(byte) != 1:
            break
        rest = rest[length:]
    if rest or not 1 <= len(raw) <= 4:
        raise Error(INVALID_ARGUMENT, f"'{name}' is not a box type of one to four characters")
    return int.from_bytes(raw.ljust(4), "big")


def type_name(code: int) -> str:
    """The printable form that paths use: without trailing blanks, other characters as %xx."""
    raw = code.to_bytes(4, "big")
    raw = raw[:1] + raw[1:].rstrip(b" ")
    return "".join(
        chr(c) if 0x20 < c < 0x7F and chr(c) not in "/[].#%-=" else f"%{c:02x}" for c in raw
    )


def four_characters(code: int) -> str:
    """A code as its four characters; those that cannot be printed, and %, as %xx."""
    raw = code.to_bytes(4, "big")
    return "".join(chr(c) if 0x20 <= c < 0x7F and c != 0x25 else f"%{c:02x}" for c in raw)


class Context:
    """A context of the library, used by one thread at a time."""

    def __init__(self) -> None:
        self._pointer: Optional[int] = None
        self.lock = threading.RLock()
        made = c_void_p()
        code: int = library().kv_jpx_create(byref(made))
        if code != OK:
            raise self._error(code, None)
        self._pointer = made.value

    def close(self) -> None:
        """Releases everything; once more is nothing."""
        with self.lock:
            pointer, self._pointer = self._pointer, None
            if pointer is not None:
                library().kv_jpx_destroy(pointer)

    def __del__(self) -> None:
        if getattr(self, "_pointer", None) is not None:
            self.close()

    def ask(self, function: str, *arguments: Any) -> int:
        """Calls a function; its result."""
        with self.lock:
            if self._pointer is None:
                raise Error(NO_INPUT, "the file is closed")
            result: int = getattr(library(), function)(self._pointer, *arguments)
            return result

    def call(self, function: str, *arguments: Any, box_id: Optional[int] = None) -> None:
        """Calls a function; raises Error where its result is not 0."""
        with self.lock:
            code = self.ask(function, *arguments)
            if code != OK:
                raise self._error(code, box_id)

    def take(self, block: c_void_p, length: int) -> bytes:
        """The bytes of a block that the library has handed out, which is given back."""
        if not block:
            return b""
        with self.lock:
            try:
                return bytes((ctypes.c_char * length).from_address(block.value or 0))
            finally:
                self.call("kv_jpx_free", block)

    def type_of(self, box_id: int) -> Optional[int]:
        """The type of a box; None when there is no box with this identifier."""
        found = c_uint32()
        if self.ask("kv_jpx_get_box_type_by_id", box_id, byref(found)) != OK:
            return None
        return found.value

    def _error(self, code: int, box_id: Optional[int]) -> Error:
        info = _ErrorInfo(size=ctypes.sizeof(_ErrorInfo))
        kind = NoSuchField if code == NO_SUCH_FIELD else Error
        known = self._pointer is not None and (
            self.ask("kv_jpx_get_last_error", byref(info)) == OK and info.code == code
        )
        if not known:
            text = library().kv_jpx_get_error_text(code)
            return kind(code, text.decode("utf-8", "replace"), box_id)
        box_type: Optional[int] = info.box_type
        if info.box_id != ROOT:
            box_id = info.box_id
        elif box_id is not None and box_id != ROOT:
            box_type = self.type_of(box_id)
        return kind(
            code,
            info.text.decode("utf-8", "replace"),
            box_id if box_id != ROOT else None,
            type_name(box_type) if box_type is not None and box_type != ROOT else None,
            info.offset if info.offset != UNKNOWN_OFFSET else None,
        )
