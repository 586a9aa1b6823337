"""Checks, recovers and compacts packages."""

from typing import List, NamedTuple, Optional

from . import _vantry
from .places import Buffer, Path, Where, path_bytes


class Fault(NamedTuple):
    """Something wrong with a package: a name, a text that explains it, its offset, and the key of the
    item concerned, or None."""

    kind: str
    text: str
    offset: int
    key: Optional[bytes]


def check(where: Where) -> List[Fault]:
    """Reads everything that a package uses, and reports what is wrong with it.

    It accepts any file or buffer, also one that open() refuses. Bodies have no checksum: a change in
    one is not noticed.

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
    """Something about one record that recover() found: a name, a text that explains it, the record's
    offset, and its key as far as it can be read."""

    kind: str
    text: str
    offset: int
    key: bytes


class Recovery(NamedTuple):
    """The result of recover().

    index_state: "good"; "displaced" if the header does not lead to the index; "damaged" or "none":
    deleted items may have reappeared. header: whether identity and state could be read. items: the
    number of items in the new package; listed: of them, those that the index led to. superseded:
    complete records left out because another version was taken. notes: records that were dropped,
    are doubtful, or could not be decided, by offset.
    """

    index_state: str
    header: bool
    items: int
    listed: int
    superseded: int
    notes: List[Note]


def recover(source: Path, out: Path, *, unlisted: bool = False) -> Recovery:
    """Creates a package from whatever can be read of a damaged one.

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

    unlisted: also recovers what a valid index does not list, because it was deleted or never saved.
    Where the newest version of an item cannot be determined, several are kept: one under the key,
    others with ".recovered-OFFSET" appended to it.
    The new file appears when it is complete; an existing one is a FileExistsError. A file without
    any package data is a PackageError with number 3.
    """
    found = _vantry.recover(path_bytes(source), path_bytes(out), unlisted)
    return Recovery(*found[:5], notes=[Note(*note) for note in found[5]])


def compact(source: Path, out: Optional[Path] = None, *, order: str = "key") -> None:
    """Rewrites a package without its dead space: in place, or as the new file `out`.

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

    order: of the records, by "key" or by their former "offset". The new file appears after it has
    been read back and compared; an existing `out` is a FileExistsError. Without `out` the package is
    replaced and keeps its mode and, where the system permits, its owner; another program that is
    changing it is waited for up to 30 seconds, then BusyError is raised.
    """
    if order not in ("key", "offset"):
        raise ValueError(f"the order must be 'key' or 'offset', not {order!r}")
    _vantry.compact(path_bytes(source), None if out is None else path_bytes(out),
                    order == "offset")
