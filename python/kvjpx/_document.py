"""Documents and their boxes."""

from __future__ import annotations

import builtins
import ctypes
import json
import os
import stat
import struct
import uuid
import warnings
from collections.abc import Iterator, Mapping, Sequence
from ctypes import byref, c_uint8, c_uint32, c_uint64, c_void_p
from types import TracebackType
from typing import Any, NamedTuple, Optional, Union, overload

from . import _decode
from ._library import (
    FIELD_BYTES,
    INVALID_ARGUMENT,
    NO_SUCH_FIELD,
    OK,
    ROOT,
    UNKNOWN_OFFSET,
    Context,
    Error,
    ExtentRecord,
    Field,
    FindingRecord,
    NoSuchField,
    answer_of_tools,
    fields_of,
    four_characters,
    type_code,
    type_name,
)

Path = Union[str, "os.PathLike[str]"]
Bytes = Union[bytes, bytearray, memoryview]
#: What a field of numbers holds: numbers, or four-character codes, which may be set as numbers.
Number = Union[int, str]

_BEFORE, _AFTER, _FIRST_CHILD, _LAST_CHILD = range(4)
_PLACEMENTS = {
    "before": _BEFORE, "after": _AFTER, "first_child": _FIRST_CHILD, "last_child": _LAST_CHILD
}
_CHANGED = 4
_MARKS = {
    1: "64-bit", 2: "open-ended", _CHANGED: "changed", 8: "malformed", 16: "cut short",
    32: "misplaced",
}
_OUTPUT_JPX = 74
_UUID_SIZE = 16
_PAYLOAD = "DATA"


class Extent(NamedTuple):
    """Where a box stood in the input when it was read; all numbers in bytes."""

    #: Of the header.
    offset: int
    #: 8 or 16; 0 for the root.
    header_length: int
    #: Of what follows the header, as far as it is there.
    content_length: int
    #: End of a container's content that belongs to no box.
    tail_length: int
    #: What is special about the box: "64-bit", "open-ended", "changed", "malformed", "cut short",
    #: "misplaced".
    marks: frozenset[str]

    @property
    def content_offset(self) -> int:
        """Of the first byte behind the header."""
        return self.offset + self.header_length

    @property
    def end(self) -> int:
        """Of the first byte behind the content."""
        return self.content_offset + self.content_length


class Finding(NamedTuple):
    """Something that a strict reader would refuse."""

    #: A number of kv_jpx_finding_kind (kvjpx.h).
    kind: int
    #: The box that it is about; the root for the file itself.
    place: Box
    #: Type of that box, or of what looks like one.
    box_type: str
    #: In the input, in bytes; None when there is no such place.
    offset: Optional[int]
    #: A sentence in English.
    text: str


class Entries(Sequence[Number]):
    """The entries of a field that repeats. Changes of it are changes of the box.

    An entry can be set and appended; appending one appends one to the other fields of the same
    list, too. `resize` gives all of them another number of entries.
    """

    def __init__(self, box: Box, field: Field) -> None:
        self._box = box
        self._field = field
        len(self)  # raises where the box has no such field now

    def __len__(self) -> int:
        count = c_uint64()
        self._box._call("kv_jpx_get_box_field_count", self._field.key, byref(count), None)
        return count.value

    @overload
    def __getitem__(self, index: int) -> Number: ...
    @overload
    def __getitem__(self, index: slice) -> list[Number]: ...
    def __getitem__(self, index: Union[int, slice]) -> Union[Number, list[Number]]:
        if isinstance(index, slice):
            places = range(*index.indices(len(self)))
            return [self._box._number(self._field, place) for place in places]
        return self._box._number(self._field, self._place(index))

    def __setitem__(self, index: int, value: Number) -> None:
        self._box._set_number(self._field, self._place(index), value)

    def append(self, value: Number) -> None:
        """Adds an entry."""
        self._box._set_number(self._field, len(self), value)

    def resize(self, count: int) -> None:
        """Gives the field another number of entries: the last ones go, or new ones of zeros
        come."""
        self._box._call("kv_jpx_set_box_field_count", self._field.key, count)

    def assign(self, values: Sequence[Number]) -> None:
        """Replaces all entries."""
        numbers = [self._box._checked(self._field, value) for value in values]
        if len(numbers) != len(self):
            if self._field.access & FIELD_BYTES:
                width = {1: "B", 2: "H", 4: "I", 8: "Q"}[self._field.width]
                self._box._set_bytes(self._field, struct.pack(f"={len(numbers)}{width}", *numbers))
                return
            self.resize(len(numbers))
        for place, number in enumerate(numbers):
            self._box._set_number(self._field, place, number)

    def _place(self, index: int) -> int:
        count = len(self)
        place = index + count if index < 0 else index
        if not 0 <= place < count:
            raise IndexError(f"{self._field.name} has {count} entries")
        return place

    def __eq__(self, other: object) -> bool:
        if isinstance(other, (Entries, list, tuple)):
            return list(self) == list(other)
        return NotImplemented

    __hash__ = None  # type: ignore[assignment]

    def __repr__(self) -> str:
        return repr(list(self))


class Fields(Mapping[str, Any]):
    """The fields that a box has now, by their names in ISO/IEC 15444; small letters will do, too.

    Values are numbers, `Entries` of numbers, four-character codes as str, `uuid.UUID`, and bytes.
    Iteration leaves out DATA, the payload of opaque and uuid boxes.
    """

    def __init__(self, box: Box) -> None:
        self._box = box

    def __getitem__(self, name: str) -> Any:
        return self._box._get(self._box._field(name))

    def __setitem__(self, name: str, value: Any) -> None:
        self._box._set(self._box._field(name), value)

    def __iter__(self) -> Iterator[str]:
        for field in self._box._all_fields().values():
            if (field.is_number or field.is_bytes) and field.name != _PAYLOAD:
                try:
                    self._box._get(field)
                except NoSuchField:
                    continue
                yield field.name

    def __len__(self) -> int:
        return sum(1 for _ in self)

    def __repr__(self) -> str:
        return f"Fields({dict(self)!r})"


class Box:
    """A handle to a box of a document. It is safe still when the box is gone: then `exists` is
    False, and what is asked of it raises `Error`.

    Its fields are attributes: `header.width`, `header.width = 640`, `ftyp.cl[0]`. `fields` has
    those, too, whose names are taken here, as the ID of a uuid box. A box of boxes is iterated
    over and has a length.
    """

    __slots__ = ("document", "id")

    #: The document that it belongs to.
    document: Document
    #: Its identifier, never used again in this document.
    id: int

    def __init__(self, document: Document, box_id: int) -> None:
        object.__setattr__(self, "document", document)
        object.__setattr__(self, "id", box_id)

    # ------------------------------------------------------------------------------ The tree

    @property
    def exists(self) -> bool:
        """Whether the box is there."""
        return self.document._context.type_of(self.id) is not None

    @property
    def is_root(self) -> bool:
        """Whether it is the nameless box whose content is the whole file."""
        return self.id == ROOT

    @property
    def type(self) -> str:
        """The type as in paths: "xml", "jp2h"; empty for the root."""
        return "" if self.is_root else type_name(self._code())

    @property
    def is_container(self) -> bool:
        """Whether it holds boxes, or could."""
        answer = c_uint8()
        self._call("kv_jpx_is_box_super", byref(answer))
        return answer.value != 0

    @property
    def parent(self) -> Optional[Box]:
        """The container it stands in; None for the root."""
        return None if self.is_root else self._neighbour("kv_jpx_get_parent_box_id", at_root=True)

    @property
    def next(self) -> Optional[Box]:
        """The sibling behind it."""
        return self._neighbour("kv_jpx_get_next_box_id")

    @property
    def previous(self) -> Optional[Box]:
        """The sibling before it."""
        return self._neighbour("kv_jpx_get_previous_box_id")

    @property
    def first_child(self) -> Optional[Box]:
        """The first box in it."""
        return self._neighbour("kv_jpx_get_first_child_box_id")

    @property
    def children(self) -> list[Box]:
        """The boxes directly in it, in order."""
        return list(self)

    #: The same by another name.
    box = children

    def __iter__(self) -> Iterator[Box]:
        """The boxes directly in it. The box at hand may be removed meanwhile."""
        box = self.first_child
        while box is not None:
            following = box.next
            yield box
            box = following

    def __len__(self) -> int:
        return sum(1 for _ in self)

    def __bool__(self) -> bool:
        return True

    def descendants(self) -> Iterator[Box]:
        """All boxes below it, a container before its content. The box at hand may be removed
        meanwhile."""
        levels = [iter(self)]
        while levels:
            box = builtins.next(levels[-1], None)
            if box is None:
                levels.pop()
                continue
            yield box
            if box.exists:
                levels.append(iter(box))

    def child(self, box_type: str, index: int = 0) -> Optional[Box]:
        """The box of this type and number, from 0, among those directly in it."""
        return self._child(type_code(box_type), index)

    def find(self, path: str) -> Box:
        """The box at a path from here: "jp2h/ihdr", "asoc[1]/lbl", and "#17" from the root; "/" or
        "" is the box itself. An index counts from 0 among siblings of one type. Raises Error
        where there is none."""
        place = self
        for step in filter(None, path.split("/")):
            if step[0] == "#" and place.is_root:
                number = _number_in(step[1:])
                found = None if number is None else self.document.by_id(number)
                reason = "there is no box with this identifier"
            else:
                found = place._step(path, step)
                reason = f"there is no box '{step}' in {place.path}"
            if found is None:
                raise place._refused(f"{path}: {reason}")
            place = found
        return place

    def __getitem__(self, path: str) -> Box:
        """As `find`, but raises KeyError."""
        try:
            return self.find(path)
        except Error as error:
            raise _NoBox(error) from None

    def __contains__(self, path: object) -> bool:
        try:
            self.find(str(path))
        except Error:
            return False
        return True

    @property
    def path(self) -> str:
        """Its path from the root, with an index where a sibling has its type; "/" for the root,
        empty for a box that is gone."""
        if not self.exists:
            return ""
        steps = []
        place = self
        while not place.is_root:
            code = place._code()
            parent = place.parent or place.document.root
            same = [box.id for box in parent if box._code() == code]
            index = f"[{same.index(place.id)}]" if len(same) > 1 else ""
            steps.append(place.type + index)
            place = parent
        return "/".join(reversed(steps)) or "/"

    @property
    def extent(self) -> Extent:
        """Where it stood in the input. Raises NoSuchField for a box that is not from there."""
        record = ExtentRecord(size=ctypes.sizeof(ExtentRecord))
        self._call("kv_jpx_get_box_extent", byref(record))
        return Extent(
            record.offset,
            record.header_length,
            record.content_length,
            record.tail_length,
            frozenset(mark for bit, mark in _MARKS.items() if record.flags & bit),
        )

    # -------------------------------------------------------------------------------- Fields

    @property
    def fields(self) -> Fields:
        """The fields as a mapping from their names."""
        return Fields(self)

    @property
    def payload(self) -> bytes:
        """What an opaque box holds, or what stands behind the UUID in a uuid box. Raises
        NoSuchField for any other."""
        return self._bytes(fields_of(0)["data"])

    @payload.setter
    def payload(self, value: Bytes) -> None:
        self._set_bytes(fields_of(0)["data"], value)

    def __getattr__(self, name: str) -> Any:
        if name.startswith("__"):
            raise AttributeError(name)
        return self._get(self._field(name))

    def __setattr__(self, name: str, value: Any) -> None:
        if isinstance(getattr(Box, name, None), property):
            object.__setattr__(self, name, value)
        elif hasattr(Box, name):
            raise AttributeError(f"{name} cannot be set; fields[...] has the field of this name")
        else:
            self._set(self._field(name), value)

    def __dir__(self) -> list[str]:
        return [*super().__dir__(), *(name.lower() for name in self.fields)]

    # ------------------------------------------------------------------------------- Editing

    def append(self, box_type: str) -> Box:
        """Adds an empty box as last one in this one."""
        added = c_uint32()
        code = type_code(box_type)
        context = self.document._context
        context.call("kv_jpx_append_box", code, self.id, byref(added), box_id=self.id)
        return Box(self.document, added.value)

    def add_first(self, box_type: str) -> Box:
        """Adds an empty box as first one in this one."""
        return self._add(box_type, self, _FIRST_CHILD)

    def add_after(self, box_type: str) -> Box:
        """Adds an empty box behind this one."""
        return self._add(box_type, self, _AFTER)

    def add_before(self, box_type: str) -> Box:
        """Adds an empty box before this one."""
        parent = self.parent
        if parent is not None and self.previous is None:
            return parent.add_first(box_type)
        return self._add(box_type, self, _BEFORE)

    def move(self, reference: Box, placement: str) -> None:
        """Moves the box with everything in it. placement: "before" or "after" the reference, or
        its "first_child" or "last_child"."""
        if placement not in _PLACEMENTS:
            raise self._refused(f"'{placement}' is none of {', '.join(_PLACEMENTS)}")
        self._call("kv_jpx_move_box", reference.id, _PLACEMENTS[placement])

    def set_content(self, content: Bytes) -> None:
        """Replaces all that stands behind the header."""
        raw = bytes(content)
        self._call("kv_jpx_set_box_content", raw, len(raw))

    def remove(self) -> None:
        """Deletes the box with everything in it."""
        self._call("kv_jpx_delete_box")

    # ------------------------------------------------------------------------------ In Python

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Box):
            return NotImplemented
        return self.document is other.document and self.id == other.id

    def __hash__(self) -> int:
        return hash((builtins.id(self.document), self.id))

    def __repr__(self) -> str:
        return f"<kvjpx.Box {self.path or 'that is gone'}>"

    # ------------------------------------------------------------------------------ Internals

    def _step(self, path: str, step: str) -> Optional[Box]:
        name, bracket, rest = step.partition("[")
        index: Optional[int] = 0
        if bracket:
            index = _number_in(rest[:-1]) if rest.endswith("]") else None
        try:
            code = type_code(name)
        except Error:
            index = None
        if index is None:
            raise self._refused(f"{path}: '{step}' is not TYPE or TYPE[INDEX]")
        return self._child(code, index)

    def _child(self, code: int, index: int) -> Optional[Box]:
        for box in self:
            if box._code() == code:
                if index == 0:
                    return box
                index -= 1
        return None

    def _call(self, function: str, *arguments: Any) -> None:
        self.document._context.call(function, self.id, *arguments, box_id=self.id)

    def _code(self) -> int:
        code = c_uint32()
        self._call("kv_jpx_get_box_type_by_id", byref(code))
        return code.value

    def _refused(self, text: str, code: int = INVALID_ARGUMENT) -> Error:
        kind = NoSuchField if code == NO_SUCH_FIELD else Error
        return kind(code, text, None if self.is_root else self.id, self.type or None)

    def _neighbour(self, function: str, at_root: bool = False) -> Optional[Box]:
        found = c_uint32()
        if self.document._context.ask(function, self.id, byref(found)) != OK:
            return None
        if found.value == ROOT and not at_root:
            return None
        return Box(self.document, found.value)

    def _add(self, box_type: str, reference: Box, placement: int) -> Box:
        added = c_uint32()
        self.document._context.call(
            "kv_jpx_add_box", type_code(box_type), reference.id, placement, byref(added),
            box_id=reference.id,
        )
        return Box(self.document, added.value)

    def _all_fields(self) -> dict[str, Field]:
        code = self._code()
        known = {} if self.is_root else fields_of(code)
        return known or ({} if self.is_root or self.is_container else fields_of(0))

    def _field(self, name: str) -> Field:
        field = self._all_fields().get(name.lower())
        if field is None:
            raise self._refused(f"{self.path} has no field '{name}'", NO_SUCH_FIELD)
        return field

    def _get(self, field: Field) -> Any:
        if field.is_bytes and field.width == _UUID_SIZE:
            raw = self._bytes(field)
            ids = [uuid.UUID(bytes=raw[i : i + 16]) for i in range(0, len(raw) - 15, 16)]
            return ids if field.repeats else ids[0]
        if field.repeats:
            return Entries(self, field)
        return self._number(field, 0) if field.is_number else self._bytes(field)

    def _set(self, field: Field, value: Any) -> None:
        if field.is_bytes and field.width == _UUID_SIZE:
            ids = value if field.repeats else [value]
            self._set_bytes(field, b"".join(getattr(one, "bytes", one) for one in ids))
        elif field.repeats:
            Entries(self, field).assign(value)
        elif field.is_number:
            self._set_number(field, 0, value)
        else:
            self._set_bytes(field, value)

    def _number(self, field: Field, index: int) -> Number:
        value = c_uint64()
        self._call("kv_jpx_get_box_field_int", field.key, index, byref(value))
        if field.is_code:
            return four_characters(value.value)
        if field.is_signed:
            return (value.value + 128) % 256 - 128
        return value.value

    def _checked(self, field: Field, value: Number) -> int:
        """The number for the library, which keeps the low bits of some that are too large."""
        if isinstance(value, str):
            if not field.is_code:
                raise TypeError(f"{field.name} is a number")
            return type_code(value)
        bits = 8 * field.width
        low, high = 0, 2**bits
        if field.is_signed:
            low, high = -(2 ** (bits - 1)), 2 ** (bits - 1)
        if not low <= value < high:
            raise self._refused(f"{field.name} is a number from {low} to {high - 1}")
        return value

    def _set_number(self, field: Field, index: int, value: Number) -> None:
        self._call("kv_jpx_set_box_field_int", field.key, index, self._checked(field, value))

    def _bytes(self, field: Field) -> bytes:
        count, size, data = c_uint64(), c_uint32(), c_void_p()
        context = self.document._context
        with context.lock:
            self._call(
                "kv_jpx_get_box_field_buffer", field.key, byref(count), byref(size), byref(data)
            )
            return context.take(data, count.value * size.value)

    def _set_bytes(self, field: Field, value: Bytes) -> None:
        raw = bytes(memoryview(value))
        size = field.width if len(raw) % field.width == 0 else 1
        self._call("kv_jpx_set_box_field_buffer", field.key, len(raw) // size, size, raw)


class _NoBox(Error, KeyError):
    """There is no box at a path."""

    __str__ = Exception.__str__

    def __init__(self, error: Error) -> None:
        super().__init__(error.code, error.text, error.box_id, error.box_type)


def _number_in(text: str) -> Optional[int]:
    try:
        return int(text, 16 if text[:2].lower() == "0x" else 10) if text.isalnum() else None
    except ValueError:
        return None


class Document:
    """A file as a tree of boxes. Made by `open`, `read` and `create`; a context manager that
    closes it. Iteration goes over all boxes, a container before its content."""

    def __init__(self) -> None:
        self._context = Context()
        self._context.call("kv_jpx_set_keep_everything", 1)
        #: What reports call the file.
        self.name = "-"
        self._identity: Optional[tuple[int, ...]] = None

    def __enter__(self) -> Document:
        return self

    def __exit__(
        self,
        kind: Optional[type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        self.close()

    def close(self) -> None:
        """Releases everything; changes that were not saved are gone. Once more is nothing."""
        self._context.close()

    def __repr__(self) -> str:
        return f"<kvjpx.Document {self.name}>"

    # ------------------------------------------------------------------------------ The boxes

    @property
    def root(self) -> Box:
        """The nameless box whose content is the whole file."""
        return Box(self, ROOT)

    def __iter__(self) -> Iterator[Box]:
        return self.root.descendants()

    def boxes(self, box_type: Optional[str] = None) -> Iterator[Box]:
        """All boxes in their order, a container before its content; of one type, those of the
        input in its order and then added ones."""
        if box_type is None:
            yield from self.root.descendants()
            return
        code = type_code(box_type)
        # The search begins behind an identifier.
        if self._context.type_of(0) == code:
            yield Box(self, 0)
        found = c_uint32(0)
        function = "kv_jpx_get_next_box_id_by_type"
        while self._context.ask(function, code, found.value, byref(found)) == OK:
            yield Box(self, found.value)

    def first(self, box_type: str) -> Optional[Box]:
        """The first box of a type; None when there is none."""
        return next(self.boxes(box_type), None)

    def count(self, box_type: str) -> int:
        """The number of boxes of a type."""
        count = c_uint32()
        self._context.call("kv_jpx_get_box_count_by_type", type_code(box_type), byref(count))
        return count.value

    def by_id(self, box_id: int) -> Optional[Box]:
        """The box with an identifier; None when there is none."""
        box = Box(self, box_id)
        return box if 0 <= box_id < ROOT and box.exists else None

    def find(self, path: str) -> Box:
        """The box at a path, as `Box.find` from the root."""
        return self.root.find(path)

    @property
    def box(self) -> list[Box]:
        """The boxes at the top level, in order."""
        return self.root.children

    @overload
    def __getitem__(self, key: str) -> Box: ...
    @overload
    def __getitem__(self, key: Any) -> Any: ...
    def __getitem__(self, key: Any) -> Any:
        """The box at a path, `f["jp2h/ihdr"]`; KeyError where there is none. Or samples of the
        picture: `f[:]`, `f[0:100, 200:300]`, and `f[::4, ::4]` for a quarter of width and
        height; rows and columns have the same step, a power of two."""
        return self.root[key] if isinstance(key, str) else _decode.part(self, key)

    @property
    def shape(self) -> tuple[int, ...]:
        """Of the picture that `decode` makes: rows and columns, and channels where there are
        several. Raises Error where there is no picture."""
        return _decode.Picture(self, limit=_decode.MOST_MILLIONS).shape

    @property
    def findings(self) -> list[Finding]:
        """What a strict reader would have refused; after a save also fragments that could not
        follow their bytes."""
        found: list[Finding] = []
        record = FindingRecord(size=ctypes.sizeof(FindingRecord))
        with self._context.lock:
            while self._context.ask("kv_jpx_get_finding", len(found), byref(record)) == OK:
                known = record.box_type != ROOT
                found.append(
                    Finding(
                        record.kind,
                        Box(self, record.box_id),
                        type_name(record.box_type) if known else "",
                        record.offset if record.offset != UNKNOWN_OFFSET else None,
                        record.text.decode("utf-8", "replace"),
                    )
                )
        return found

    # -------------------------------------------------------------------------------- Writing

    @property
    def is_changed(self) -> bool:
        """Whether a box was changed, added, moved or removed, so that saving writes another
        file."""
        return "changed" in self.root.extent.marks

    def save(self, path: Path) -> None:
        """Writes the file, to another place or over itself, never half. The document goes on as
        it is."""
        with self._context.lock:
            self._context.call("kv_jpx_set_output_type", _OUTPUT_JPX)
            self._context.call("kv_jpx_get_output_image_file", os.fsencode(path))

    def save_to_memory(self) -> bytes:
        """The file as `save` writes it."""
        data, length = c_void_p(), c_uint64()
        with self._context.lock:
            self._context.call("kv_jpx_set_output_type", _OUTPUT_JPX)
            self._context.call("kv_jpx_get_output_image", byref(data), byref(length))
            return self._context.take(data, length.value)

    # -------------------------------------------------------------------------------- Telling

    def to_dict(self, codestreams: bool = False) -> dict[str, Any]:
        """Everything that is in the file, saved as it is now: what `kvjpx dump --format json`
        prints of it, which docs/dump.schema.json describes. codestreams: with their marker
        segments. Raises Error for a file that has neither a box nor a codestream."""
        return self._report("kvjpx_tools_dump", int(codestreams))

    def check(self, profile: Optional[str] = None) -> dict[str, Any]:
        """Holds the file, saved as it is now, against the standard: what `kvjpx check --json`
        prints of it, which docs/check.schema.json describes. Its member "findings" has offset,
        path, severity, id, text and clause of each. profile: "jp2", "jpx" or "jph"; None for the
        one that the file claims."""
        return self._report("kvjpx_tools_check", None if profile is None else profile.encode())

    def decode(
        self,
        region: Optional[tuple[int, int, int, int]] = None,
        reduce: int = 0,
        layers: Optional[int] = None,
        codestream: Optional[int] = None,
        *,
        layer: Optional[int] = None,
        frame: Optional[int] = None,
        srgb: bool = False,
        strict: bool = False,
        limit: Optional[int] = None,
        raw: bool = False,
    ) -> Any:
        """The picture, as the file saved now would give it and as `kvjpx decode` shows it: with its
        palettes, channels, colours, layers and composition, which docs/decoding.md describes. Rows
        of pixels, two-dimensional for one channel, with the channels as third dimension for
        several: the colours in their order, then opacity. An array of numpy where that is
        installed, otherwise a memoryview of the same shape. Samples are unsigned numbers of 8 bits
        or 16, of which a picture that is less deep has the low ones: 12 bits go from 0 to 4095.

        region      left, top, right and bottom in samples of the full picture; right and bottom
                    are exclusive, and 0 there is the picture's edge.
        reduce      halvings of width and height, 0 to 31.
        layers      quality layers to decode, 1 to 255; None for all.
        codestream  the components of one, by its number from 0, whatever the file says of them.
        layer       a compositing layer by itself, by its number from 0.
        frame       a frame of an animation, by its number from 0. Without these three, of which one
                    at most can be given: the first frame of a composition, or else layer 0.
        srgb        converts the colours to sRGB; else they are those of the file's profile.
        strict      damage is an Error. Else what is there is shown, with a warning.
        limit       million samples that the picture may have, 540 without it.
        raw         samples as they were coded, in the smallest of 8, 16 and 32 bits, signed or not,
                    that holds the deepest component, to which no box gives a meaning. They have 8
                    bits, and components all one size, where components differ in size or sign, and
                    in a picture that several codestreams make. Goes with region, reduce, layers and
                    codestream.

        What must be said of the picture becomes warnings. Raises Error where nothing can be
        decoded, and for more samples than the limit or, without one, the size of the file
        allows."""
        if raw:
            if (layer, frame, srgb, strict, limit) != (None, None, False, False, None):
                text = "layer, frame, srgb, strict and limit are not for raw samples"
                raise Error(INVALID_ARGUMENT, text)
            return _decode.decode_raw(self, region, reduce, layers, codestream)
        numbers = layer, codestream, frame
        picture = _decode.Picture(self, region, reduce, layers, numbers, (srgb, strict), limit)
        samples, notes = picture.read()
        for note in notes:
            warnings.warn(note, stacklevel=2)
        return samples

    # ------------------------------------------------------------------------------ Internals

    def _saved(self) -> tuple[bytes, Optional[bytes]]:
        """The file as it is now: the name of one on disk and None, or a name and bytes."""
        name = os.fsencode(self.name)
        if self._identity is not None and not self.is_changed:
            try:
                if _identity_of(os.stat(self.name)) == self._identity:
                    return name, None
            except OSError:
                pass
        return name, self.save_to_memory()

    def _report(self, function: str, argument: Any) -> dict[str, Any]:
        name, data = self._saved()
        length = 0 if data is None else len(data)
        report: dict[str, Any] = json.loads(
            answer_of_tools(function, name, data, length, argument)
        )
        return report


def _identity_of(status: os.stat_result) -> tuple[int, ...]:
    return status.st_dev, status.st_ino, status.st_size, status.st_mtime_ns


def open(path: Path) -> Document:
    """Opens a file, which is mapped and not copied: nobody may shorten it meanwhile. Whatever is
    in it, it opens; OSError is raised where it cannot be read."""
    with builtins.open(path, "rb") as file:
        status = os.fstat(file.fileno())
        if not stat.S_ISREG(status.st_mode) or status.st_size == 0:
            return read(file.read(), os.fspath(path))
    document = Document()
    document.name = os.fspath(path)
    document._identity = _identity_of(status)
    document._context.call("kv_jpx_set_input_image_mapped", os.fsencode(path))
    return document


def read(data: Bytes, name: str = "-") -> Document:
    """Opens a file that is in memory, of which a copy is kept. name: what reports call it."""
    document = Document()
    document.name = name
    raw = bytes(data)
    document._context.call("kv_jpx_set_input_image", raw, len(raw))
    return document


def create() -> Document:
    """A document without a box."""
    return read(b"")
