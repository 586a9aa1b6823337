"""Packages as mappings."""

import io
import itertools
import os
import threading
import warnings
from typing import (Any, BinaryIO, Callable, ItemsView, Iterable, Iterator, Literal, Mapping,
                    MutableMapping, NamedTuple, Optional, Tuple, Type, TypeVar, Union, ValuesView,
                    cast, overload)

from . import _vantry
from .places import Body, Buffer, Key, Path, Source, path_bytes

Mode = Literal["r", "u", "w", "a"]
_T = TypeVar("_T")
_Backend = Union[_vantry.Reader, _vantry.Writer, _vantry.Source]


class Identity(NamedTuple):
    """Owner-defined values that the library does not interpret.

    id has 32 bits, word 16, flags 8. `old` is true for a package of a former format, which cannot
    be given an identity.
    """

    id: int
    word: int
    flags: int
    old: bool = False


_PIECE = 1 << 20


def key_bytes(key: Key) -> bytes:
    """The key as a package stores it."""
    if isinstance(key, str):
        return key.encode()
    if not isinstance(key, (bytes, bytearray, memoryview)):
        raise TypeError(f"a key is bytes or str, not {type(key).__name__}")
    return bytes(key)


def _after(prefix: bytes) -> Optional[bytes]:
    """The first key after all that start with the prefix; None where there is no such key."""
    head = prefix.rstrip(b"\xff")
    return head[:-1] + bytes([head[-1] + 1]) if head else None


class _ItemFile(io.RawIOBase):
    """The body of an item, of which each read takes the part that it needs."""

    def __init__(self, package: _Backend, key: Key) -> None:
        self._package = package
        self._key = key
        self._size = package.size(key)
        self._position = 0

    def readable(self) -> bool:
        return True

    def seekable(self) -> bool:
        return True

    def seek(self, offset: int, whence: int = os.SEEK_SET) -> int:
        starts = {os.SEEK_SET: 0, os.SEEK_CUR: self._position, os.SEEK_END: self._size}
        if whence not in starts:
            raise ValueError(f"unknown whence {whence}")
        position = offset + starts[whence]
        if position < 0:
            raise ValueError(f"negative position {position}")
        self._position = position
        return position

    def readinto(self, into: Any) -> int:
        count = self._package.read_into(self._key, self._position, into)
        self._position += count
        return count


class _Items(ItemsView[bytes, bytes]):
    _mapping: "_Sorted"

    def __iter__(self) -> Iterator[Tuple[bytes, bytes]]:
        return self._mapping._walk("items")

    def __reversed__(self) -> Iterator[Tuple[bytes, bytes]]:
        return self._mapping._walk("items", True)


class _Bodies(ValuesView[bytes]):
    _mapping: "_Sorted"

    def __iter__(self) -> Iterator[bytes]:
        return self._mapping._walk("bodies")

    def __reversed__(self) -> Iterator[bytes]:
        return self._mapping._walk("bodies", True)


class _Sorted(Mapping[bytes, bytes]):
    """The items of a package from a first key up to a last one, which is excluded."""

    _package: _Backend
    _first = b""
    _last: Optional[bytes] = None

    def _walk(self, what: str, backwards: bool = False) -> Iterator[Any]:
        package = self._package
        if isinstance(package, _vantry.Reader):
            walk = getattr(package, what)(self._first, self._last, backwards)
            return itertools.chain.from_iterable(iter(walk.next, []))
        keys = package.keys(self._first, self._last)
        if backwards:
            keys.reverse()
        if what == "keys":
            return iter(keys)
        if what == "bodies":
            return map(package.get, keys)
        return ((key, package.get(key)) for key in keys)

    def __iter__(self) -> Iterator[bytes]:
        return self._walk("keys")

    def __reversed__(self) -> Iterator[bytes]:
        return self._walk("keys", True)

    def items(self) -> ItemsView[bytes, bytes]:
        return _Items(self)

    def values(self) -> ValuesView[bytes]:
        return _Bodies(self)

    def prefix(self, text: Key) -> "Range":
        """The items whose keys start with `text`, as a read-only mapping.

        >>> import vantry
        >>> with vantry.open("pages.hpk", "w") as package:
        ...     package.update({b"en/a": b"1", b"en/b": b"2", b"fr/a": b"3"})
        >>> with vantry.open("pages.hpk") as package:
        ...     dict(package.prefix("en/")), next(reversed(package))
        ({b'en/a': b'1', b'en/b': b'2'}, b'fr/a')
        """
        start = key_bytes(text)
        return self.range(start, _after(start))

    def range(self, start: Key = b"", stop: Optional[Key] = None) -> "Range":
        """The items with keys from `start` up to `stop`, which is excluded, as a read-only mapping.
        Without `stop`, up to the last key."""
        first = max(self._first, key_bytes(start))
        last = self._last if stop is None else key_bytes(stop)
        if self._last is not None and last is not None:
            last = min(self._last, last)
        return Range(self._package, first, last)


class Range(_Sorted):
    """Some of a package's items; prefix() and range() of a package make one. It shows the items that
    the package has when it is used, and needs the package open."""

    def __init__(self, package: _Backend, first: bytes, last: Optional[bytes]) -> None:
        self._package = package
        self._first = first
        self._last = last

    def __contains__(self, key: object) -> bool:
        found = key_bytes(cast(Key, key))
        return found >= self._first and (self._last is None or found < self._last) and \
            self._package.contains(found)

    def __getitem__(self, key: Key) -> bytes:
        if key not in self:
            _vantry.fail_missing(key)
        return self._package.get(key)

    def __len__(self) -> int:
        if isinstance(self._package, _vantry.Reader):
            return self._package.keys(self._first, self._last, False).count()
        return len(self._package.keys(self._first, self._last))

    def __repr__(self) -> str:
        return f"<vantry.Range from {self._first!r} to {self._last!r}>"


class Package(_Sorted, MutableMapping[bytes, bytes]):
    """An open package; open() creates one.

    Leaving `with` closes it, which saves the changes to its index. Leaving `with` by an exception,
    discarding it and dropping the last reference release it instead: what was written since the
    last save stays out of the index, and of a package that was being created nothing remains.

    >>> import vantry
    >>> with vantry.open("letters.hpk", "w") as package:
    ...     package["alpha"] = b"first"
    >>> with vantry.open("letters.hpk", "u") as package:
    ...     package["beta"] = b"second"
    ...     raise RuntimeError("changed my mind")
    Traceback (most recent call last):
    RuntimeError: changed my mind
    >>> with vantry.open("letters.hpk") as package:
    ...     list(package), b"beta" in package, package.get("beta", b"none")
    ([b'alpha'], False, b'none')

    Saving replaces the index in one step, but nothing else. In mode "u" a body that replaces a
    longer one is written over it at once, and so is a key that replaces a longer one: discarding
    does not bring those back.

    Iteration covers the keys that exist when it starts. A missing key is a KeyError. A package that
    is being created in a file (mode "w") accepts new items, but can be neither read nor changed
    before it is closed.
    """

    def __init__(self, where: Union[Path, Buffer, Source], mode: Mode = "r") -> None:
        if mode not in ("r", "u", "w", "a"):
            raise ValueError(f"the mode must be 'r', 'u', 'w' or 'a', not {mode!r}")
        self._mode = mode
        self._owner, self._lock = os.getpid(), threading.RLock()
        self._origin: Any = where
        if isinstance(where, Buffer):
            self._name = repr(where)
            if mode == "a":
                mode = "u" if len(where) else "w"
            buffer = where._buffer
            self._package = _vantry.Reader(buffer) if mode == "r" else _vantry.Writer(buffer, mode)
        elif isinstance(where, (str, bytes, os.PathLike)):
            path = path_bytes(where)
            self._name = os.fsdecode(path)
            self._origin = os.path.abspath(self._name)
            if mode == "a":
                if not os.path.exists(path):
                    _vantry.create_empty(path)
                mode = "u"
            self._package = _vantry.Reader(path) if mode == "r" else _vantry.Writer(path, mode)
        elif hasattr(where, "seek") and hasattr(where, "readinto"):
            if mode != "r":
                raise ValueError(f"the mode of a file object must be 'r', not {mode!r}")
            name = getattr(where, "name", None) or getattr(where, "path", None)
            self._name = name if isinstance(name, str) else repr(where)
            self._package = _vantry.Source(where, os.fsencode(self._name))
        else:
            raise TypeError("a package is in a path, a vantry.Buffer or a file object with seek() "
                            f"and readinto(), not {type(where).__name__}")

    @property
    def name(self) -> str:
        """The path as it was given, or a text for what the package is in."""
        return self._name

    @property
    def mode(self) -> Mode:
        """The mode as it was given to open()."""
        return self._mode

    def _alone(self) -> "threading.RLock":
        """Keeps out changes by other threads while an item is written in pieces."""
        if self._owner != os.getpid():
            # A child of fork() has no thread that could release the lock.
            self._owner, self._lock = os.getpid(), threading.RLock()
        return self._lock

    def close(self) -> None:
        """Saves the index if it changed, and closes. A package that was being created appears at
        its path. Closing twice does no harm.

        When saving fails the package stays open with its changes, and may be closed again.
        """
        with self._alone():
            self._package.close()

    def discard(self) -> None:
        """Closes without saving."""
        self._package.discard()

    def save(self) -> None:
        """Saves a changed index; mode "u"."""
        with self._alone():
            self._changing().save()

    @property
    def closed(self) -> bool:
        """Whether the package has been closed or discarded."""
        return not self._package.is_open()

    def __enter__(self) -> "Package":
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Any, trace: Any) -> None:
        if kind is None:
            self.close()
        else:
            self.discard()

    def __del__(self) -> None:
        # If __init__ raised there is no package.
        package = getattr(self, "_package", None)
        if package is not None and self._mode != "r" and package.is_open():
            warnings.warn(f"{self!r} was not closed", ResourceWarning, source=self)

    def __reduce__(self) -> Any:
        """Packages that are read from a path are pickled as that path: another process opens it.
        Those in a file object are pickled with it."""
        if self._mode != "r" or isinstance(self._origin, Buffer):
            raise TypeError(f"only packages that are read from a file can be pickled, not {self!r}")
        return open, (self._origin,)

    def __repr__(self) -> str:
        return f"<vantry.Package {self._name!r} mode={self._mode!r}>"

    def _changing(self) -> _vantry.Writer:
        if isinstance(self._package, _vantry.Writer):
            return self._package
        self._package.count()  # raises if it is closed
        return _vantry.fail_not_updating(os.fsencode(self._name))

    def __getitem__(self, key: Key) -> bytes:
        return self._package.get(key)

    @overload
    def get(self, key: Key) -> Optional[bytes]: ...
    @overload
    def get(self, key: Key, default: Union[bytes, _T]) -> Union[bytes, _T]: ...

    def get(self, key: Key, default: Any = None) -> Any:
        """The item's body, or `default` if there is no such item."""
        return self._package.get_or(key, default)

    def __setitem__(self, key: Key, body: Body) -> None:
        with self._alone():
            self._changing().put(key, body)

    def __delitem__(self, key: Key) -> None:
        self._changing().delete(key)

    def __contains__(self, key: object) -> bool:
        return self._package.contains(key)

    def __len__(self) -> int:
        return self._package.count()

    def clear(self) -> None:
        """Deletes all items."""
        for key in self:
            del self[key]

    def rename(self, old: Key, new: Key) -> None:
        """Moves an item to another key. An item that the other key had is lost."""
        with self._alone():
            self._changing().rename(old, new)

    def size(self, key: Key) -> int:
        """The length of an item's body in bytes, without reading it."""
        return self._package.size(key)

    def view(self, key: Key) -> memoryview:
        """The body of an item without a copy, read-only; mode "r", of a path or a Buffer.

        >>> import vantry
        >>> with vantry.open("letters.hpk", "w") as package:
        ...     package["alphabet"] = b"abcdefghijklmnopqrstuvwxyz"
        >>> with vantry.open("letters.hpk") as package:
        ...     letters = package.view("alphabet")
        >>> bytes(letters[-3:])
        b'xyz'

        It stays valid after close(): the package's bytes are released with the last view of them.
        """
        if isinstance(self._package, _vantry.Reader):
            return self._package.view(key)
        raise io.UnsupportedOperation("view() needs a package of a path or a Buffer in mode 'r'")

    def file(self, key: Key) -> BinaryIO:
        """The body of an item as a file, of which only parts are in memory.

        >>> import vantry
        >>> with vantry.open("letters.hpk", "w") as package:
        ...     package["alphabet"] = b"abcdefghijklmnopqrstuvwxyz"
        >>> with vantry.open("letters.hpk") as package, package.file("alphabet") as file:
        ...     file.seek(-3, 2), file.read()
        (23, b'xyz')

        It works while the package is open. If the item is replaced, later reads return parts of the
        new one.
        """
        return io.BufferedReader(_ItemFile(self._package, key), 65536)

    def write(self, key: Key, source: Union[BinaryIO, Iterable[bytes]]) -> None:
        """Adds or replaces an item whose body comes from a file or in pieces.

        >>> import io, vantry
        >>> with vantry.open("large.hpk", "w") as package:
        ...     package.write("zeros", (bytes(65536) for i in range(1000)))
        ...     package.write("text", io.BytesIO(b"from a file"))
        >>> with vantry.open("large.hpk") as package:
        ...     package.size("zeros"), package["text"]
        (65536000, b'from a file')

        At most a few megabytes of the body are in memory. A body of up to a megabyte is written as by
        package[key] = body; a longer one is appended, whatever the item's former length, and makes
        the former body dead space. If the source raises, the package keeps its former item. Other
        threads that change the package wait; the source itself must not change it.
        """
        if isinstance(source, (bytes, bytearray, memoryview, str)):
            raise TypeError("package[key] = body accepts a body in one piece")
        pieces: Iterable[bytes] = source
        if hasattr(source, "read"):
            read: Callable[[int], bytes] = source.read
            pieces = iter(lambda: read(_PIECE), b"")
        with self._alone():
            rest = iter(pieces)
            start = bytearray()
            for piece in rest:
                start += piece
                if len(start) > _PIECE:
                    break
            else:
                self[key] = start
                return
            package = self._changing()
            package.begin_item(key)
            try:
                package.write_item(start)
                del start
                for piece in rest:
                    package.write_item(piece)
                package.finish_item()
            finally:
                package.abandon_item()

    def dead_space(self) -> int:
        """How many bytes of the package nothing uses, after saving it; mode "u"."""
        with self._alone():
            return self._changing().space()[1]

    @property
    def identity(self) -> Identity:
        """The owner's values. What is assigned is written at once.

        >>> import vantry
        >>> with vantry.open("letters.hpk", "w") as package:
        ...     package.identity = vantry.Identity(42, 1, 0)
        ...     package.state = 3
        >>> with vantry.open("letters.hpk") as package:
        ...     package.identity, package.state
        (Identity(id=42, word=1, flags=0, old=False), 3)
        """
        return Identity(*self._package.identity())

    @identity.setter
    def identity(self, value: Identity) -> None:
        id, word, flags = value[:3]  # a plain tuple is accepted, too
        self._changing().set_identity(_number(id, 32), _number(word, 16), _number(flags, 8))

    @property
    def state(self) -> int:
        """A number from 0 to 255 of the owner. What is assigned is written at once."""
        return self._package.state()

    @state.setter
    def state(self, value: int) -> None:
        self._changing().set_state(_number(value, 8))


def _number(value: int, bits: int) -> int:
    if not isinstance(value, int):
        raise TypeError(f"a number is expected, not {type(value).__name__}")
    if not 0 <= value < 1 << bits:
        raise ValueError(f"a number from 0 to {(1 << bits) - 1} is expected")
    return value


def open(where: Union[Path, Buffer, Source], mode: Mode = "r") -> Package:
    """Opens a package.

    where: a path; a Buffer; or a file object with seek() and readinto(), in mode "r", such as an
    open file of fsspec: it is read by one call for the header, one for the index and one an item.

    mode: "r" reads an existing package. "u" also changes it, in place, and raises BusyError if
    another program does so. "w" creates one, which appears at the path when it is closed, in place
    of an existing file. "a" opens as "u", and creates an empty package if there is none.

    >>> import vantry
    >>> for count in range(2):
    ...     with vantry.open("visits.hpk", "a") as package:
    ...         package["visit %d" % len(package)] = b""
    >>> with vantry.open("visits.hpk") as package:
    ...     package.name, package.mode, list(package)
    ('visits.hpk', 'r', [b'visit 0', b'visit 1'])

    In mode "r" a file is mapped into memory, and reading it takes no lock. Another program must
    not cut it short meanwhile, which would end this one; programs that replace it, as mode "w" and
    hpk do, are no danger. Where a file may be cut, read vantry.Buffer(bytes).
    """
    return Package(where, mode)
