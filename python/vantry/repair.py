"""What is done about packages that are damaged, or have much dead space."""

import contextlib
import errno
import os
from typing import List, NamedTuple, Optional

from . import _vantry
from .files import Lock, appearing
from .places import Buffer, Path, Where, path_bytes


class Fault(NamedTuple):
    """Something that is wrong with a package: a name, the same in words, where it is, and the key
    of the item concerned, or None."""

    kind: str
    text: str
    offset: int
    key: Optional[bytes]


def check(where: Where) -> List[Fault]:
    """Reads all that a package has in use, and tells what is wrong with it.

    It takes any file or buffer, also one that open() refuses. Bodies have no checksum: a change in
    one goes unnoticed.

    >>> import vantry
    >>> with vantry.open("letters.hpk", "w") as package:
    ...     package["alpha"] = b"first"
    >>> vantry.check("letters.hpk")
    []
    >>> [fault.kind for fault in vantry.check(vantry.Buffer(b"no package"))]
    ['header-magic']
    """
    faults = _vantry.check(where._buffer if isinstance(where, Buffer) else path_bytes(where))
    return [Fault(*fault) for fault in faults]


class Note(NamedTuple):
    """Something about one record that recover() met: a name, the same in words, where the record
    is, and its key as far as it can be read."""

    kind: str
    text: str
    offset: int
    key: bytes


class Recovery(NamedTuple):
    """What recover() found.

    index_state: "good"; "strayed", found where the header does not say; "damaged" or "none": what
    was deleted may be back then. header: identity and state could be read. items: in the new
    package; listed: of them, those by the index. superseded: other versions of items, left out.
    notes: what was dropped, is doubtful or can not be decided, by offset.
    """

    index_state: str
    header: bool
    items: int
    listed: int
    superseded: int
    notes: List[Note]


def recover(source: Path, out: Path, *, unlisted: bool = False) -> Recovery:
    """Makes a package of whatever can be read of a damaged one.

    >>> import vantry
    >>> with vantry.open("letters.hpk", "w") as package:
    ...     package.update(alpha=b"first", beta=b"second")
    >>> import os
    >>> os.truncate("letters.hpk", 60)         # in the middle of the index
    >>> vantry.recover("letters.hpk", "saved.hpk").items
    2
    >>> with vantry.open("saved.hpk") as package:
    ...     dict(package)
    {b'alpha': b'first', b'beta': b'second'}

    unlisted takes also what an index that is in order does not list: what was deleted, or never
    saved. The new file appears when it is whole; an existing one is a FileExistsError. A file in
    which nothing is of a package is a PackageError with number 3.
    """
    with appearing(_new(out)) as path:
        found = _vantry.recover(path_bytes(source), path, unlisted)
        return Recovery(*found[:5], notes=[Note(*note) for note in found[5]])


def compact(source: Path, out: Optional[Path] = None, *, order: str = "key") -> None:
    """Writes a package anew without its dead space: in its place, or as the new file `out`.

    >>> import vantry
    >>> with vantry.open("letters.hpk", "w") as package:
    ...     package["alpha"] = b"first"
    >>> with vantry.open("letters.hpk", "u") as package:
    ...     package["alpha"] = b"much longer"
    ...     package.dead_space()
    22
    >>> vantry.compact("letters.hpk")
    >>> with vantry.open("letters.hpk", "u") as package:
    ...     package["alpha"], package.dead_space()
    (b'much longer', 0)

    order: of the records, by "key" or by their former "offset". The new file appears when it has
    been read back and compared; an existing `out` is a FileExistsError. In its place it keeps mode,
    and owner where the system lets it, and what the tools change waits meanwhile.
    """
    if order not in ("key", "offset"):
        raise ValueError(f"the order must be 'key' or 'offset', not {order!r}")
    name = path_bytes(source)
    with contextlib.ExitStack() as stack:
        if out is None:
            stack.callback(Lock(name, wait=True).release)
        path = stack.enter_context(appearing(name if out is None else _new(out)))
        _vantry.compact(name, path, order == "offset")


def _new(out: Path) -> bytes:
    path = path_bytes(out)
    if os.path.lexists(path):
        raise FileExistsError(errno.EEXIST, os.strerror(errno.EEXIST), os.fsdecode(path))
    return path
