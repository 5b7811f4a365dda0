"""JPX and JP2 files (JPEG 2000; ISO/IEC 15444-1 and -2) as trees of boxes.

    import kvjpx

    with kvjpx.open("photo.jp2") as f:
        for box in f:
            print(box.path)
        header = f.root["jp2h/ihdr"]
        print(header.width, header.height)
        header.unkc = 1
        picture = f.decode(region=(0, 0, 100, 100))
        f.save("edited.jp2")

Nothing in a file is lost: every sequence of bytes opens, a file that was not changed is saved byte
for byte, and an edit changes the bytes of its box and the lengths above it only.

The package needs libkvjpx.so and nothing else; `Document.to_dict`, `Document.check` and
`Document.decode` need libkvjpx-tools.so, and the last one libkvj2k.so, too, both from beside it. The environment variable
KVJPX_LIBRARY names a libkvjpx.so; otherwise the system's loader finds it. Where numpy is
installed, pictures are its arrays.

Calls release the interpreter's lock. Threads may share a document, one call on it after the other;
for more than that each opens its own.
"""

from ._document import Box, Document, Entries, Fields, Finding, create, open, read
from ._library import Error, NoSuchField, library_version

__version__ = "1.0.2"
__all__ = [
    "Box",
    "Document",
    "Entries",
    "Error",
    "Fields",
    "Finding",
    "NoSuchField",
    "create",
    "library_version",
    "open",
    "read",
]
