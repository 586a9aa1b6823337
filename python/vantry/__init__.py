"""Keyed packages, registry values, a polynomial hash and a tokenizer.

A package is one file, or one buffer in memory, that holds any number of named items. It is a
mapping from bytes to bytes that stays sorted by key:

>>> import vantry
>>> with vantry.open("letters.hpk", "w") as package:
...     package[b"beta"] = b"the second letter"
...     package["alpha"] = "the first letter"   # text is taken as UTF-8

>>> with vantry.open("letters.hpk", "u") as package:
...     package[b"gamma"] = b"the third letter"
...     package.rename(b"beta", b"b")
...     del package[b"gamma"]
...     dict(package)
{b'alpha': b'the first letter', b'b': b'the second letter'}

What fails raises a class of vantry.errors. Any thread may use any object: calls on one object wait
for each other, and other threads run during them.
"""

import io
import os
import warnings
from collections.abc import MutableMapping as _MutableMapping
from typing import (TYPE_CHECKING, Any, BinaryIO, Callable, Dict, ItemsView, Iterable, Iterator,
                    KeysView, List, MutableMapping, NamedTuple, Optional, Tuple, Union, ValuesView)

from . import _vantry
from ._vantry import PolyHash, decrypt, encrypt, tokenize
from .errors import (BusyError, EncryptionError, Error, ForbiddenError, HashError, MissingFileError,
                     MissingKeyError, PackageError, RegistryError, StreamError)
from .files import Lock, NewFile, stream_error
from .places import Body, Buffer, Where, path_bytes
from .repair import Fault, Note, Recovery, check, compact, recover

__all__ = ["Buffer", "BusyError", "EncryptionError", "Error", "Fault", "ForbiddenError",
           "HashError", "Identity", "MissingFileError", "MissingKeyError", "Note", "Package",
           "PackageError", "PolyHash", "Recovery", "Registry", "RegistryError", "StreamError",
           "check", "compact", "decrypt", "encrypt", "open", "recover", "tokenize"]
__version__ = _vantry.version()

Key = Union[bytes, bytearray, memoryview, str]
if TYPE_CHECKING:
    # Keys and bodies are given in any form, and come back as bytes.
    class _Mapping(MutableMapping[Any, bytes]):
        def keys(self) -> KeysView[bytes]: ...
        def items(self) -> ItemsView[bytes, bytes]: ...
        def update(self, *values: Any, **more: Body) -> None: ...
else:
    _Mapping = _MutableMapping


class Identity(NamedTuple):
    """What a package's owner has noted in it; it means nothing to the library.

    id has 32 bits, word 16, flags 8. `old` tells a package of a former format, which can not be
    given an identity.
    """

    id: int
    word: int
    flags: int
    old: bool = False


class _ItemFile(io.RawIOBase):
    """The body of an item, read where it lies."""

    def __init__(self, package: "Package", key: Key) -> None:
        self._package = package._package
        self._key = key
        self._size = self._package.size(key)
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


class Package(_Mapping):
    """An open package; open() makes one.

    Leaving `with` closes it, which saves the changes to its index. Leaving `with` by an exception,
    discarding it and dropping the last reference let go of it instead: what was written since the
    last save stays out of the index, and a package that was being created is none.

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

    Only an index is saved as a whole. A body that replaces a longer one is written over it at
    once, and so is a key that replaces a longer one: discarding does not bring those back.

    Iteration goes over the keys that are there when it starts. A missing key is a KeyError. A
    package that is being created in a file (mode "w") takes new items, but can not be read, or
    changed, before it is closed.
    """

    def __init__(self, where: Where, mode: str = "r") -> None:
        if mode not in ("r", "u", "w"):
            raise ValueError(f"the mode must be 'r', 'u' or 'w', not {mode!r}")
        self._mode = mode
        self._lock: Optional[Lock] = None
        self._new: Optional[NewFile] = None
        if isinstance(where, Buffer):
            self._name = repr(where)
            self._package = _vantry.Package(where._buffer, mode)
            return
        path = path_bytes(where)
        self._name = repr(os.fsdecode(path))
        try:
            if mode == "u" or mode == "w" and os.path.isfile(path):
                self._lock = Lock(path, wait=False)
            # A device or a FIFO is written in place.
            if mode == "w" and (self._lock or not os.path.exists(path)):
                self._new = NewFile(path)
        except BusyError:
            raise
        except OSError as error:
            self._release()
            raise stream_error(error, path) from None
        try:
            self._package = _vantry.Package(path, self._new.path if self._new else path, mode)
        except BaseException:
            self._release()
            raise

    def _release(self) -> None:
        new, self._new = self._new, None
        if new:
            new.discard()
        lock, self._lock = self._lock, None
        if lock:
            lock.release()

    def close(self) -> None:
        """Saves the index if it changed, and closes. A package that was being created takes its
        name. Closing twice does no harm.

        When saving fails the package stays open with its changes, and may be closed again.
        """
        self._package.close()
        try:
            new, self._new = self._new, None
            if new:
                try:
                    new.commit()
                finally:
                    new.discard()
        finally:
            self._release()

    def discard(self) -> None:
        """Closes without saving."""
        self._package.discard()
        self._release()

    def save(self) -> None:
        """Saves a changed index; mode "u"."""
        self._package.save()

    @property
    def closed(self) -> bool:
        return not self._package.is_open()

    def __enter__(self) -> "Package":
        return self

    def __exit__(self, kind: Any, error: Any, trace: Any) -> None:
        if kind is None:
            self.close()
        else:
            self.discard()

    def __del__(self) -> None:
        # What __init__ did not finish has no package.
        package = getattr(self, "_package", None)
        if package is None or not package.is_open():
            return
        try:
            if self._mode != "r":
                warnings.warn(f"{self!r} was not closed", ResourceWarning, source=self)
        finally:
            self.discard()

    def __repr__(self) -> str:
        return f"<vantry.Package {self._name} mode={self._mode!r}>"

    def __getitem__(self, key: Key) -> bytes:
        return self._package.get(key)

    def __setitem__(self, key: Key, body: Body) -> None:
        self._package.put(key, body)

    def __delitem__(self, key: Key) -> None:
        self._package.delete(key)

    def __contains__(self, key: object) -> bool:
        return self._package.contains(key)

    def __iter__(self) -> Iterator[bytes]:
        return iter(self._package.keys())

    def __len__(self) -> int:
        return self._package.count()

    def clear(self) -> None:
        """Deletes all items."""
        for key in self:
            del self[key]

    def rename(self, old: Key, new: Key) -> None:
        """Moves an item to another key, whose former item is lost."""
        self._package.rename(old, new)

    def size(self, key: Key) -> int:
        """The length of an item's body in bytes, without reading it."""
        return self._package.size(key)

    def file(self, key: Key) -> BinaryIO:
        """The body of an item as a file, of which only parts are in memory.

        >>> import vantry
        >>> with vantry.open("letters.hpk", "w") as package:
        ...     package["alphabet"] = b"abcdefghijklmnopqrstuvwxyz"
        >>> with vantry.open("letters.hpk") as package, package.file("alphabet") as file:
        ...     file.seek(-3, 2), file.read()
        (23, b'xyz')

        It works while the package is open. When the item is replaced meanwhile, what is read
        next is of the new one.
        """
        return io.BufferedReader(_ItemFile(self, key), 65536)

    def write(self, key: Key, source: Union[BinaryIO, Iterable[bytes]]) -> None:
        """Adds or replaces an item whose body comes from a file or in pieces.

        >>> import io, vantry
        >>> with vantry.open("large.hpk", "w") as package:
        ...     package.write("zeros", (bytes(65536) for i in range(1000)))
        ...     package.write("text", io.BytesIO(b"from a file"))
        >>> with vantry.open("large.hpk") as package:
        ...     package.size("zeros"), package["text"]
        (65536000, b'from a file')

        The body is held in memory once, in small segments, and never in one block.
        """
        if isinstance(source, (bytes, bytearray, memoryview, str)):
            raise TypeError("package[key] = body takes a body in one piece")
        pieces: Iterable[bytes] = source
        if hasattr(source, "read"):
            read: Callable[[int], bytes] = source.read
            pieces = iter(lambda: read(65536), b"")
        body = _vantry.Segments()
        for piece in pieces:
            body.append(piece)
        self._package.put_segments(key, body)

    def dead_space(self) -> int:
        """How many bytes of the package nothing uses, after saving it; mode "u"."""
        return self._package.space()[1]

    @property
    def identity(self) -> Identity:
        """The owner's marks. What is assigned is written at once.

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
        id, word, flags = value[:3]  # a plain tuple does, too
        self._package.set_identity(id, word, flags)

    @property
    def state(self) -> int:
        """A number from 0 to 255 of the owner's. What is assigned is written at once."""
        return self._package.state()

    @state.setter
    def state(self, value: int) -> None:
        self._package.set_state(value)


def open(where: Where, mode: str = "r") -> Package:
    """Opens the package in a file or a Buffer.

    "r" reads an existing one, "u" also changes it, "w" creates one in place of what was there.
    """
    return Package(where, mode)


class Registry(_Mapping):
    """The registry that all programs of a user share: a mapping from bytes to bytes.

    >>> import vantry
    >>> with vantry.Registry() as registry:
    ...     registry[b"Pop/Greeting"] = b"hello"
    ...     registry.update({"Pop/Colour": "blue", "Pop/Size": "7"})   # in one step
    ...     del registry["Pop/Colour"]
    ...     sorted(registry.items())
    [(b'Pop/Greeting', b'hello'), (b'Pop/Size', b'7')]

    It is the file that the environment variable BASEKIT_REGISTRY names, less its suffix ".db";
    without that one in $XDG_DATA_HOME/basekit or ~/.local/share/basekit. An open registry keeps
    nobody out, and shows at once what others store. A value that was assigned is on the disk.
    Every change writes the whole registry anew, so store many values by one update().
    """

    def __init__(self, mode: str = "u") -> None:
        if mode not in ("r", "u"):
            raise ValueError(f"the mode must be 'r' or 'u', not {mode!r}")
        self._registry = _vantry.Registry(mode == "u")

    @staticmethod
    def path() -> str:
        """The database, whether it exists or not; empty where the environment names none."""
        return os.fsdecode(_vantry.registry_path())

    def close(self) -> None:
        self._registry.close()

    def __enter__(self) -> "Registry":
        return self

    def __exit__(self, kind: Any, error: Any, trace: Any) -> None:
        self.close()

    def _records(self) -> Dict[bytes, bytes]:
        return dict(sorted(self._registry.records()))

    def __getitem__(self, key: Key) -> bytes:
        value = self._registry.get(key)
        if value is None:
            raise KeyError(key)
        return value

    def __setitem__(self, key: Key, value: Body) -> None:
        self._registry.apply([(key, value)])

    def __delitem__(self, key: Key) -> None:
        if not self._registry.apply([(key, None)]):
            raise KeyError(key)

    def __contains__(self, key: object) -> bool:
        return self._registry.get(key) is not None

    def __iter__(self) -> Iterator[bytes]:
        return iter(self._records())

    def __len__(self) -> int:
        return len(self._registry.records())

    def items(self) -> ItemsView[bytes, bytes]:
        """All records as they were at one moment."""
        return self._records().items()

    def values(self) -> ValuesView[bytes]:
        """All values as they were at one moment."""
        return self._records().values()

    def update(self, *values: Any, **more: Body) -> None:
        """Stores several values, all of them or, when that fails, none."""
        self._registry.apply(list(dict(*values, **more).items()))

    def clear(self) -> None:
        """Removes everything in one step."""
        while not self._registry.apply([(key, None) for key in self]):
            pass  # somebody else has removed a key meanwhile

    @staticmethod
    def set_password(password: Body, kesh: Key = b"") -> None:
        """Encrypts the password for a database logon and stores it.

        >>> import vantry
        >>> with vantry.Registry() as registry:
        ...     registry.set_password("open sesame")
        ...     vantry.decrypt(registry["LogonDatabaseParam"])
        b'open sesame'

        kesh: one that has a user name, for its logon; none for the logon of the whole.
        """
        for text in password, kesh:
            if "\0" in text if isinstance(text, str) else b"\0" in bytes(text):
                raise ValueError("embedded null byte")
        _vantry.set_password(password, kesh)
