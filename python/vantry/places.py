"""Where packages are: in files, in memory, or where a file object reads."""

import os
from typing import Any, Protocol, Union

from . import _vantry

Path = Union[str, bytes, "os.PathLike[Any]"]
Key = Union[bytes, bytearray, memoryview, str]
Body = Union[bytes, bytearray, memoryview, str]


class Source(Protocol):
    """A file object that packages are read from."""

    def seek(self, offset: int, whence: int = 0, /) -> int: ...
    def readinto(self, into: Any, /) -> Any: ...


def path_bytes(where: Path) -> bytes:
    """The path as the system accepts it."""
    path = os.fsencode(where)
    if b"\0" in path:
        raise ValueError("embedded null byte")
    return path


class Buffer:
    """Memory that packages are created and opened in.

    >>> import vantry
    >>> buffer = vantry.Buffer()
    >>> with vantry.open(buffer, "w") as package:
    ...     package[b"key"] = b"body"
    >>> len(buffer), bytes(buffer)[:4]
    (54, b'J[lf')
    >>> with vantry.open(vantry.Buffer(bytes(buffer))) as package:
    ...     package[b"key"]
    b'body'

    Several packages may be open in it for reading, or one for changes. Until that one is closed,
    accessing the buffer's bytes is a BufferError.
    """

    def __init__(self, content: Body = b"") -> None:
        self._buffer = _vantry.Buffer(content)

    def __bytes__(self) -> bytes:
        return self._buffer.content()

    def __len__(self) -> int:
        return self._buffer.size()

    def __repr__(self) -> str:
        return f"<vantry.Buffer at {id(self):#x}>"


Where = Union[Path, Buffer]
