"""Sets of shards as dask bags; needs dask, and fsspec for what is not a local file.

>>> import dask, dask.bag, vantry.dask
>>> squares = dask.bag.from_sequence([(b"%d" % i, b"%d" % (i * i)) for i in range(100)])
>>> files = vantry.dask.to_shards(squares, "squares", 4, scheduler="sync")
>>> bag = vantry.dask.bag_from_shards("squares")
>>> bag.npartitions, bag.map(lambda item: int(item[1])).sum().compute(scheduler="sync")
(4, 328350)

A partition is one shard, so a worker reads one shard at a time: a local one is mapped, another one is
fetched by one request. A task that is lost with its worker runs again: it reads its shard again, or
writes it again. Shards appear complete, by a rename.
"""

# Neither package has complete annotations.
# mypy: disable-error-code="import,attr-defined"

from typing import Any, Dict, Iterable, Iterator, List, Optional, Tuple

import dask
import dask.bag
import fsspec
from fsspec.implementations.local import LocalFileSystem

from .package import key_bytes, open
from .places import Body, Buffer, Key
from .shards import require_shard, shard_name, shard_of, shard_pattern, sort_shards

__all__ = ["bag_from_shards", "to_shards"]

_Item = Tuple[bytes, bytes]


def _read(url: str, number: int, count: int, options: Dict[str, Any]) -> Iterator[_Item]:
    files, path = fsspec.core.url_to_fs(url, **options)
    where = path if isinstance(files, LocalFileSystem) else Buffer(files.cat_file(path))
    with open(where) as package:
        require_shard(package, number, count)
        yield from package.items()


def bag_from_shards(pattern: str, storage_options: Optional[Dict[str, Any]] = None) -> Any:
    """A bag of the items (key, body) of a set of shards, with one partition a shard.

    pattern: the name of the set, or a pattern, as for open_shards(); with the protocol in front if
    it is not of local files, as "s3://bucket/data". storage_options: for fsspec.
    """
    options = storage_options or {}
    files, path = fsspec.core.url_to_fs(pattern, **options)
    found = files.glob(shard_pattern(path))
    urls = [files.unstrip_protocol(file) for file in sort_shards(pattern, found)]
    reads = [dask.delayed(_read)(url, number, len(urls), options)
             for number, url in enumerate(urls)]
    return dask.bag.from_delayed(reads)


def _split(items: Iterable[Tuple[Key, Body]], count: int) -> List[List[Tuple[Key, Body]]]:
    parts: List[List[Tuple[Key, Body]]] = [[] for _ in range(count)]
    for item in items:
        parts[shard_of(item[0], count)].append(item)
    return parts


def _write(url: str, parts: List[List[Tuple[Key, Body]]], options: Dict[str, Any]) -> str:
    # Of equal keys the last counts.
    items = {key_bytes(key): body for part in parts for key, body in part}
    files, path = fsspec.core.url_to_fs(url, **options)
    local = isinstance(files, LocalFileSystem)
    where = path if local else Buffer()
    with open(where, "w") as package:
        for key in sorted(items):
            package[key] = items[key]
    if not local:
        files.pipe_file(path, bytes(where))
    return url


def to_shards(bag: Any, name: str, count: Optional[int] = None,
              storage_options: Optional[Dict[str, Any]] = None, **compute: Any) -> List[str]:
    """Writes the items (key, body) of a bag as a set of shards, and returns their files.

    name: the name of the set, with the protocol in front if it is not of local files; workers on
    several machines need a file system that all of them have. count: of shards, by default as many
    as the bag has partitions. storage_options: for fsspec. compute: for dask.compute().

    Each worker holds the items of the shard that it writes. If a key occurs more than once, the last
    one counts, in the order of the bag.
    """
    options = storage_options or {}
    count = count or bag.npartitions
    split = [dask.delayed(_split)(part, count) for part in bag.to_delayed()]
    writes = [dask.delayed(_write)(shard_name(name, number, count),
                                   [part[number] for part in split], options)
              for number in range(count)]
    return list(dask.compute(*writes, **compute))
