"""Keyed packages, registry values, a polynomial hash and a tokenizer.

A package is one file, or one buffer in memory, that holds any number of named items. It is a
mapping from bytes to bytes, sorted by key:

>>> import vantry
>>> with vantry.open("letters.hpk", "w") as package:
...     package[b"beta"] = b"the second letter"
...     package["alpha"] = "the first letter"   # text is encoded as UTF-8

>>> with vantry.open("letters.hpk", "u") as package:
...     package[b"gamma"] = b"the third letter"
...     package.rename(b"beta", b"b")
...     del package[b"gamma"]
...     dict(package)
{b'alpha': b'the first letter', b'b': b'the second letter'}

Failures raise exceptions from vantry.errors. Any thread may use any object: calls that change an
object wait for each other, and other threads run during long ones.
"""

from typing import List

from .mismatch import explain as _explain

try:
    from . import _vantry
except ImportError as error:
    raise _explain(error) from None
from ._vantry import PolyHash, decrypt, encrypt, tokenize
from .errors import (BusyError, EncryptionError, Error, ForbiddenError, HashError, MissingFileError,
                     MissingKeyError, PackageError, RegistryError, StreamError)
from .package import Identity, Package, Range, open
from .places import Buffer
from .registry import Registry
from .repair import Fault, Note, Recovery, check, compact, recover
from .shards import Shards, create_shards, open_shards, shard_name, shard_of
from .texts import Text, text

__all__ = ["Buffer", "BusyError", "EncryptionError", "Error", "Fault", "ForbiddenError",
           "HashError", "Identity", "MissingFileError", "MissingKeyError", "Note", "Package",
           "PackageError", "PolyHash", "Range", "Recovery", "Registry", "RegistryError", "Shards",
           "StreamError", "Text", "check", "compact", "create_shards", "decrypt", "encrypt", "open",
           "open_shards", "recover", "shard_name", "shard_of", "text", "tokenize"]
__version__ = _vantry.version


def __dir__() -> List[str]:
    return [*__all__, "__doc__", "__version__"]
