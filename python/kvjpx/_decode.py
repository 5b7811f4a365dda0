"""Pictures, and the samples of codestreams."""

from __future__ import annotations

import ctypes
import warnings
from array import array
from ctypes import byref, c_uint32, c_uint64, c_void_p
from typing import TYPE_CHECKING, Any, NamedTuple, Optional

from ._library import (
    INTERNAL,
    INVALID_ARGUMENT,
    OK,
    Codestream,
    Context,
    DecodeReport,
    Error,
    PictureLayout,
    PictureRequest,
    SampleRequest,
    Samples,
    answer_of_tools,
    codec,
    fields_of,
    has_samples,
)

if TYPE_CHECKING:
    from ._document import Document

# Of kvjpx_tools_decode_request.
_SRGB = 1
_STRICT = 2
_PARTS = ("layer", "codestream", "frame")
#: The greatest limit, in million samples.
MOST_MILLIONS = 1000000
_INTERLEAVED = 71
_SOC_AND_SIZ = b"\xff\x4f\xff\x51"
# Samples that a composed picture may have whatever its file's size, in all, and for each byte.
_FREE_SAMPLES = 1 << 25
_MOST_SAMPLES = 300_000_000
_SAMPLES_PER_BYTE = 4096


class _Request(NamedTuple):
    left: int
    top: int
    right: int
    bottom: int
    reduce: int
    layers: Optional[int]

    def within(self, width: int, height: int) -> _Request:
        """Cut to a picture."""
        right = min(self.right or width, width)
        bottom = min(self.bottom or height, height)
        if self.left >= right or self.top >= bottom:
            raise Error(
                INVALID_ARGUMENT, f"the region lies outside the picture of {width} x {height}"
            )
        return self._replace(right=right, bottom=bottom)

    @property
    def size(self) -> tuple[int, int]:
        """Columns and rows of the composed picture that comes of it."""
        step = (1 << self.reduce) - 1
        return (
            (self.right - self.left + step) >> self.reduce,
            (self.bottom - self.top + step) >> self.reduce,
        )

    # One single layer is told from level 1, which stands for all, by a higher bit.
    @property
    def quality_level(self) -> int:
        return 1 if self.layers is None else 0x100 | self.layers


def _region(region: Optional[tuple[int, int, int, int]]) -> tuple[int, int, int, int]:
    left, top, right, bottom = region or (0, 0, 0, 0)
    sane = 0 <= left and 0 <= top and (right == 0 or left < right) and (bottom == 0 or top < bottom)
    if not sane or max(right, bottom) >= 1 << 32:
        raise Error(INVALID_ARGUMENT, f"the region {region} is not left, top, right, bottom")
    return left, top, right, bottom


def _check_effort(reduce: int, layers: Optional[int]) -> None:
    if not 0 <= reduce <= 31 or not (layers is None or 1 <= layers <= 255):
        raise Error(INVALID_ARGUMENT, "reduce is 0 to 31, layers are 1 to 255")


class Picture:
    """The picture that a document, saved now, means."""

    def __init__(
        self,
        document: Document,
        region: Optional[tuple[int, int, int, int]] = None,
        reduce: int = 0,
        layers: Optional[int] = None,
        numbers: tuple[Optional[int], ...] = (),
        flags: tuple[bool, bool] = (False, False),
        limit: Optional[int] = None,
    ) -> None:
        """numbers: of layer, codestream and frame, of which one at most is not None; flags: srgb
        and strict."""
        _check_effort(reduce, layers)
        chosen = [(part, number) for part, number in enumerate(numbers, 1) if number is not None]
        if len(chosen) > 1:
            raise Error(INVALID_ARGUMENT, f"more than one of {', '.join(_PARTS)} is given")
        part, number = chosen[0] if chosen else (0, 0)
        if not 0 <= number < 1 << 32:
            raise Error(INVALID_ARGUMENT, f"there is no {_PARTS[part - 1]} {number}")
        if not (limit is None or 1 <= limit <= MOST_MILLIONS):
            raise Error(INVALID_ARGUMENT, f"limit is 1 to {MOST_MILLIONS}")
        srgb, strict = flags
        self._request = PictureRequest(
            ctypes.sizeof(PictureRequest), srgb * _SRGB | strict * _STRICT, part, number,
            *_region(region), reduce, layers or 0, limit or 0,
        )
        name, data = document._saved()
        self._file = name, data, 0 if data is None else len(data)
        self._layout = PictureLayout(size=ctypes.sizeof(PictureLayout))
        self._ask(None, 0)

    def _ask(self, samples: Any, length: int) -> bytes:
        return answer_of_tools(
            "kvjpx_tools_decode", *self._file, byref(self._request), byref(self._layout), samples,
            length,
        )

    @property
    def shape(self) -> tuple[int, ...]:
        """Rows and columns, and channels where there are several."""
        layout = self._layout
        size = layout.height, layout.width
        return size if layout.channels == 1 else (*size, layout.channels)

    def read(self) -> tuple[Any, list[str]]:
        """The samples, and what must be said of them."""
        layout = self._layout
        form = "B" if layout.bits <= 8 else "H"
        count = layout.width * layout.height * layout.channels
        pixels = bytearray(count * array(form).itemsize)
        notes = self._ask((ctypes.c_char * len(pixels)).from_buffer(pixels), len(pixels))
        picture = _shaped(
            memoryview(pixels).cast(form), layout.width, layout.height, layout.channels
        )
        return picture, notes.decode("utf-8", "replace").splitlines()


def decode_raw(
    document: Document,
    region: Optional[tuple[int, int, int, int]],
    reduce: int,
    layers: Optional[int],
    codestream: Optional[int],
) -> Any:
    """As Document.decode with raw."""
    left, top, right, bottom = _region(region)
    _check_effort(reduce, layers)
    request = _Request(left, top, right, bottom, reduce, layers)
    codestreams = list(document.boxes("jp2c"))
    if not codestreams:
        if codestream not in (None, 0):
            raise Error(INVALID_ARGUMENT, f"there is no codestream {codestream}")
        return _decode_codestream(_bare_codestream(document), request)
    if codestream is None and len(codestreams) > 1:
        return _compose(document, request)
    number = codestream or 0
    if not 0 <= number < len(codestreams):
        raise Error(
            INVALID_ARGUMENT, f"there is no codestream {number}; the file has {len(codestreams)}"
        )
    return _decode_codestream(codestreams[number].payload, request)


def _bare_codestream(document: Document) -> bytes:
    data = document.save_to_memory() if document.root.first_child is None else b""
    if not data.startswith(_SOC_AND_SIZ):
        raise Error(INVALID_ARGUMENT, "the file has no codestream")
    return data


def part(document: Document, key: Any) -> Any:
    """The samples that an index of Document names."""
    whole = slice(None)
    size = document.shape
    keys = list(key) if isinstance(key, tuple) else [key]
    if keys[0] is Ellipsis:
        keys[:1] = [whole] * (len(size) - len(keys) + 1)
    rows, columns, *others = keys if len(keys) > 1 else [*keys, whole]
    if not (isinstance(rows, slice) and isinstance(columns, slice)):
        raise TypeError("rows and columns are slices")
    top, bottom, step = rows.indices(size[0])
    left, right, other_step = columns.indices(size[1])
    if step != other_step or step < 1 or step & (step - 1):
        raise IndexError("the steps of rows and columns are not the same power of two")
    if top >= bottom or left >= right:
        raise IndexError("no row or no column is in the slice")
    picture = document.decode((left, top, right, bottom), step.bit_length() - 1)
    return picture[(whole, whole, *others)] if others else picture


class _Codec:
    """A handle of the codec for one codestream."""

    def __init__(self, codestream: bytes) -> None:
        self.library = codec()
        self._codestream = codestream
        self._handle = c_void_p()
        code: int = self.library.kv_j2k_create(byref(self._handle))
        if code != OK:
            raise Error(code, "the codec has not enough memory")

    def close(self) -> None:
        self.library.kv_j2k_destroy(self._handle)

    def _call(self, function: str, *arguments: Any) -> None:
        code = getattr(self.library, function)(self._handle, *arguments)
        if code != OK:
            raise Error(code, _reason(self.library, self._handle, code))

    def samples(self, request: _Request) -> Any:
        """The picture with the depth of its components; None where they differ in size or sign."""
        self._call("kv_j2k_set_input_borrowed", self._codestream, len(self._codestream))
        about = Codestream(size=ctypes.sizeof(Codestream))
        self._call("kv_j2k_get_codestream", byref(about))
        part = request.within(about.right - about.left, about.bottom - about.top)
        if part.reduce > about.levels:
            raise Error(INVALID_ARGUMENT, f"width and height can be halved {about.levels} times")
        wanted = SampleRequest(
            size=ctypes.sizeof(SampleRequest),
            left=about.left + part.left,
            top=about.top + part.top,
            right=about.left + part.right,
            bottom=about.top + part.bottom,
            reduction=part.reduce,
            layers=part.layers or 0,
        )
        samples = ctypes.POINTER(Samples)()
        self._call("kv_j2k_decode_samples", byref(wanted), byref(samples))
        try:
            return _interleaved(samples[0])
        finally:
            self.library.kv_j2k_free_samples(samples)

    def bytes_of(self, request: _Request) -> Any:
        """The picture with 8 bits a sample and all components of one size."""
        if len(self._codestream) >= 1 << 32:
            raise Error(INVALID_ARGUMENT, "the codec takes codestreams of less than 4 GiB")
        self._call("kv_j2k_set_input_image", self._codestream, len(self._codestream))
        width, height, components, x, y = (c_uint32() for _ in range(5))
        self._call(
            "kv_j2k_get_input_image_info", byref(width), byref(height), None, byref(components)
        )
        self._call("kv_j2k_get_input_j2k_tile_info", None, None, None, None, byref(x), byref(y))
        part = request.within(width.value - x.value, height.value - y.value)
        edges = (
            part.left + x.value, part.top + y.value, part.right + x.value, part.bottom + y.value
        )
        self._call("kv_j2k_set_input_j2k_region_level", *edges)
        self._call("kv_j2k_set_input_j2k_resolution_level", part.reduce + 1, 0)
        self._call("kv_j2k_set_input_j2k_quality_level", part.quality_level)
        self._call("kv_j2k_set_output_type", _INTERLEAVED)
        data, length = c_void_p(), c_uint32()
        self._call("kv_j2k_get_output_image", byref(data), byref(length))
        try:
            samples = _copy(data, length.value)
        finally:
            self.library.kv_j2k_free(self._handle, data)
        left, top, right, bottom = (-(-edge >> part.reduce) for edge in edges)
        return _picture(samples, right - left, bottom - top)


def _decode_codestream(codestream: bytes, request: _Request) -> Any:
    handle = _Codec(codestream)
    try:
        picture = handle.samples(request) if has_samples(handle.library) else None
        return handle.bytes_of(request) if picture is None else picture
    finally:
        handle.close()


def _interleaved(samples: Samples) -> Any:
    planes = samples.planes[: samples.plane_count]
    first = planes[0]
    sizes = {(plane.width, plane.height, plane.is_signed) for plane in planes}
    if len(sizes) > 1:
        return None
    depth = max(plane.precision for plane in planes)
    form = "B" if depth <= 8 else "H" if depth <= 16 else "I"
    form = form.lower() if first.is_signed else form
    count = first.width * first.height
    if count == 0:
        raise Error(INVALID_ARGUMENT, "no sample is in the region at this reduction")
    pixels = array(form, bytes(count * len(planes) * array(form).itemsize))
    for number, plane in enumerate(planes):
        values = (ctypes.c_int32 * count).from_address(ctypes.addressof(plane.samples.contents))
        pixels[number :: len(planes)] = _narrowed(values, form)
    return _shaped(memoryview(pixels), first.width, first.height, len(planes))


def _narrowed(values: Any, form: str) -> array[int]:
    try:
        import numpy
    except ImportError:
        return array(form, values)
    return array(form, numpy.frombuffer(values, numpy.int32).astype(form).tobytes())


def _reason(library: ctypes.CDLL, handle: c_void_p, code: int) -> str:
    """The codec's words; not every codec has them."""
    try:
        explain = library.kv_j2k_get_error_text
    except AttributeError:
        return f"the codec's error is {code}"
    explain.argtypes = [c_void_p]
    explain.restype = ctypes.c_char_p
    text: bytes = explain(handle) or b""
    return text.decode("utf-8", "replace") or f"the codec's error is {code}"


def _compose(document: Document, request: _Request) -> Any:
    """By the library's own rules, in a context of its own: one that runs out of memory would take
    the document with it."""
    codec()
    data = document.save_to_memory()
    context = Context()
    try:
        # Strict readers' placements hold where such a reader takes the file.
        if not _load_strictly(context, data):
            context.close()
            context = Context()
            context.call("kv_jpx_set_keep_everything", 1)
            context.call("kv_jpx_set_input_image", data, len(data))
        return _compose_in(context, request, len(data))
    finally:
        context.close()


def _load_strictly(context: Context, data: bytes) -> bool:
    count = c_uint32()
    return (
        context.ask("kv_jpx_set_input_image", data, len(data)) == OK
        and context.ask("kv_jpx_get_box_count_by_type", _code(b"jp2c"), byref(count)) == OK
        and count.value > 0
    )


def _compose_in(context: Context, request: _Request, file_size: int) -> Any:
    header = c_uint32()
    if context.ask("kv_jpx_get_next_box_id_by_type", _code(b"ihdr"), 0, byref(header)) != OK:
        raise Error(INVALID_ARGUMENT, "the file has no image header")
    value = c_uint64()
    size = []
    for name in ("width", "height"):
        key = fields_of(_code(b"ihdr"))[name].key
        context.call("kv_jpx_get_box_field_int", header, key, 0, byref(value))
        size.append(value.value)
    part = request.within(size[0], size[1])
    likely = max(_FREE_SAMPLES, file_size * _SAMPLES_PER_BYTE)
    context.call("kv_jpx_set_decode_limits", min(_MOST_SAMPLES, likely), 0)
    context.call("kv_jpx_set_input_jpx_region_level", part.left, part.top, part.right, part.bottom)
    context.call("kv_jpx_set_input_jpx_resolution_level", part.reduce + 1, 0)
    context.call("kv_jpx_set_input_jpx_quality_level", part.quality_level)
    context.call("kv_jpx_set_output_type", _INTERLEAVED)
    block, length = c_void_p(), c_uint64()
    context.call("kv_jpx_get_output_image", byref(block), byref(length))
    report = DecodeReport(size=ctypes.sizeof(DecodeReport))
    context.call("kv_jpx_get_decode_report", byref(report))
    text = report.text.decode("utf-8", "replace")
    if report.delivered == 0 or not length.value:
        raise Error(report.codec_code or INVALID_ARGUMENT, text or "nothing could be decoded")
    if report.failed:
        warnings.warn(f"{report.failed} codestreams left their places empty: {text}", stacklevel=5)
    columns, rows = part.size
    return _picture(bytearray(context.take(block, length.value)), columns, rows)


def _code(box_type: bytes) -> int:
    return int.from_bytes(box_type, "big")


def _copy(data: c_void_p, length: int) -> bytearray:
    return bytearray((ctypes.c_char * length).from_address(data.value)) if data.value else bytearray()


def _picture(samples: bytearray, width: int, height: int) -> Any:
    if not samples:
        raise Error(INVALID_ARGUMENT, "nothing could be decoded")
    components = len(samples) // (width * height)
    if components * width * height != len(samples):
        raise Error(INTERNAL, f"the codec delivered {len(samples)} samples for {width} x {height}")
    return _shaped(memoryview(samples), width, height, components)


def _shaped(pixels: memoryview, width: int, height: int, components: int) -> Any:
    shape = (height, width) if components == 1 else (height, width, components)
    try:
        import numpy
    except ImportError:
        return pixels.cast("B").cast(pixels.format, shape)
    return numpy.asarray(pixels).reshape(shape)
