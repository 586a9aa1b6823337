"""Sets of packages that hold one collection: shards.

The shards of the set "data" are the files data-00000-of-00016.hpk to data-00015-of-00016.hpk. An
item is in the shard whose number is the polynomial hash of its key, modulo their count.
"""

import contextlib
import glob
import heapq
import itertools
import operator
import os
import re
from typing import (Any, Dict, ItemsView, Iterable, Iterator, List, Mapping, Optional, Tuple, Type,
                    TypeVar, Union, ValuesView, overload)

from . import _vantry
from .package import Package, open
from .places import Body, Key

_T = TypeVar("_T")
_SHARD = r"(.*)-(\d{5,})-of-(\d{5,})\.hpk"
_digits = "[0-9]" * 5


def shard_pattern(name: str) -> str:
    """A pattern of the files of a set, by its name or that of a shard; patterns stay as they are."""
    if glob.has_magic(name):
        return name
    shard = re.fullmatch(_SHARD, name, re.DOTALL)
    if shard:
        return f"{glob.escape(shard[1])}-{_digits}*-of-{shard[3]}.hpk"
    return f"{glob.escape(name)}-{_digits}*-of-{_digits}*.hpk"


def shard_of(key: Key, count: int) -> int:
    """The number of the shard, among `count`, that has the key.

    >>> import vantry
    >>> [vantry.shard_of(key, 16) for key in (b"", b"a", "alpha")]
    [1, 1, 13]
    """
    if count <= 0:
        raise ValueError(f"a set has at least one shard, not {count}")
    return _vantry.shard_of(key, count)


def shard_name(name: str, number: int, count: int) -> str:
    """The file of a shard.

    >>> import vantry
    >>> vantry.shard_name("data", 3, 16)
    'data-00003-of-00016.hpk'
    """
    return os.fsdecode(_vantry.shard_name(os.fsencode(name), number, count))


def sort_shards(pattern: str, files: Iterable[str]) -> List[str]:
    """The shards of one set among the files, in order.

    Files that are no shards are left out. Without any, if one is missing, and for one that belongs to
    another set, a PackageError with number 7 is raised.
    """
    shards: Dict[str, Tuple[str, int, int]] = {}
    for file in sorted(files):
        parts = re.fullmatch(_SHARD, file, re.DOTALL)
        if parts:
            shards[file] = parts[1], int(parts[2]), int(parts[3])
    if not shards:
        _vantry.fail_no_shards(os.fsencode(pattern))
    name, _, count = next(iter(shards.values()))
    for file, (other, number, total) in shards.items():
        if (other, total) != (name, count) or number >= count:
            _vantry.fail_foreign_shard(os.fsencode(file))
    names = [shard_name(name, number, count) for number in range(count)]
    for file in names:
        if file not in shards:
            _vantry.fail_missing_shard(os.fsencode(file))
    return names


def require_shard(package: Package, number: int, count: int) -> None:
    """Raises a PackageError with number 7 if the first or last key belongs to another shard."""
    for keys in iter(package), reversed(package):
        if any(shard_of(key, count) != number for key in itertools.islice(keys, 1)):
            _vantry.fail_foreign_shard(os.fsencode(package.name))


class _Items(ItemsView[bytes, bytes]):
    _mapping: "Shards"

    def __iter__(self) -> Iterator[Tuple[bytes, bytes]]:
        parts = [package.items() for package in self._mapping.packages]
        return iter(heapq.merge(*parts, key=operator.itemgetter(0)))


class _Bodies(ValuesView[bytes]):
    _mapping: "Shards"

    def __iter__(self) -> Iterator[bytes]:
        return (body for _, body in self._mapping.items())


class Shards(Mapping[bytes, bytes]):
    """A set of shards that is open for reading; open_shards() makes one. `packages` are the shards,
    in order."""

    def __init__(self, pattern: "Union[str, os.PathLike[str]]") -> None:
        self.name = os.fspath(pattern)
        self._files = [os.path.abspath(file) for file in find_shards(self.name)]
        self.packages: List[Package] = []
        with contextlib.ExitStack() as opened:
            for number, file in enumerate(self._files):
                package = opened.enter_context(open(file))
                require_shard(package, number, len(self._files))
                self.packages.append(package)
            self._opened = opened.pop_all()

    def close(self) -> None:
        """Closes all shards."""
        self._opened.close()

    def __enter__(self) -> "Shards":
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Any, trace: Any) -> None:
        self.close()

    def __reduce__(self) -> Any:
        # A pattern of this set alone: the folder may have others of that name.
        name = glob.escape(self._files[0][:-len("-00000-of-00001.hpk")])
        return open_shards, (f"{name}-{_digits}-of-{len(self._files):05}.hpk",)

    def shard(self, key: Key) -> Package:
        """The shard that has the key, if any has."""
        return self.packages[shard_of(key, len(self.packages))]

    def __getitem__(self, key: Key) -> bytes:
        return self.shard(key)[key]

    @overload
    def get(self, key: Key) -> Optional[bytes]: ...
    @overload
    def get(self, key: Key, default: Union[bytes, _T]) -> Union[bytes, _T]: ...

    def get(self, key: Key, default: Any = None) -> Any:
        """The item's body, or `default` if there is no such item."""
        return self.shard(key).get(key, default)

    def __contains__(self, key: object) -> bool:
        return key in self.shard(key)  # type: ignore[arg-type]

    def __len__(self) -> int:
        return sum(map(len, self.packages))

    def __iter__(self) -> Iterator[bytes]:
        return iter(heapq.merge(*self.packages))

    def items(self) -> ItemsView[bytes, bytes]:
        return _Items(self)

    def values(self) -> ValuesView[bytes]:
        return _Bodies(self)

    def view(self, key: Key) -> memoryview:
        """The body of an item without a copy, as Package.view() returns it."""
        return self.shard(key).view(key)

    def __repr__(self) -> str:
        return f"<vantry.Shards {self.name!r} of {len(self.packages)}>"


def find_shards(pattern: str) -> List[str]:
    """The files of a set, in order, by its name or a pattern as for glob."""
    return sort_shards(pattern, glob.glob(shard_pattern(pattern)))


def open_shards(pattern: "Union[str, os.PathLike[str]]") -> Shards:
    """Opens a set of shards for reading, as one mapping sorted by key.

    >>> import vantry
    >>> vantry.create_shards("colors", 4, [(b"red", b"#f00"), (b"lime", b"#0f0")])
    >>> with vantry.open_shards("colors") as colors:
    ...     len(colors.packages), colors["lime"], list(colors)
    (4, b'#0f0', [b'lime', b'red'])

    pattern: the name of the set or of a shard, or a pattern as for glob, such as "colors-*.hpk". A
    shard that is missing, or that belongs to another set, is a PackageError that names it.
    """
    return Shards(pattern)


def create_shards(name: str, count: int, items: Iterable[Tuple[Key, Body]]) -> None:
    """Writes a set of shards, each of which appears complete. All are open at the same time; items
    are written as they come, and each key may come once.

    With an error nothing appears, unless it is in the last step.
    """
    if not 0 < count < 100000:
        raise ValueError(f"a set has from 1 to 99999 shards, not {count}")
    with contextlib.ExitStack() as opened:
        shards = [opened.enter_context(open(shard_name(name, number, count), "w"))
                  for number in range(count)]
        for key, body in items:
            shards[shard_of(key, count)][key] = body
