"""The registry that the programs of a user share."""

import os
from typing import Any, Dict, ItemsView, Iterator, Literal, MutableMapping, ValuesView

from . import _vantry
from .places import Body, Key


class Registry(MutableMapping[bytes, bytes]):
    """The registry that all programs of a user share: a mapping from bytes to bytes.

    >>> import vantry
    >>> with vantry.Registry() as registry:
    ...     registry[b"Pop/Greeting"] = b"hello"
    ...     registry.update({"Pop/Color": "blue", "Pop/Size": "7"})   # in one step
    ...     del registry["Pop/Color"]
    ...     sorted(registry.items())
    [(b'Pop/Greeting', b'hello'), (b'Pop/Size', b'7')]

    The environment variable BASEKIT_REGISTRY names its file, without the suffix ".db". Otherwise it
    is in $XDG_DATA_HOME/basekit or in ~/.local/share/basekit. An open registry blocks no one and sees
    other processes' writes. An assigned value is on the disk. Each change rewrites the entire
    registry, so store many values by one update().
    """

    def __init__(self, mode: Literal["r", "u"] = "u") -> None:
        if mode not in ("r", "u"):
            raise ValueError(f"the mode must be 'r' or 'u', not {mode!r}")
        self._registry = _vantry.Registry(mode == "u")

    @staticmethod
    def path() -> str:
        """The path of the database, which need not exist; empty if the environment names none."""
        return os.fsdecode(_vantry.registry_path())

    def close(self) -> None:
        """Closes the registry; every operation then raises a RegistryError."""
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
        """All records, from a consistent snapshot."""
        return self._records().items()

    def values(self) -> ValuesView[bytes]:
        """All values, from a consistent snapshot."""
        return self._records().values()

    def update(self, *values: Any, **more: Body) -> None:
        """Stores several values: all or nothing."""
        self._registry.apply(list(dict(*values, **more).items()))

    def clear(self) -> None:
        """Removes everything in one step."""
        while not self._registry.apply([(key, None) for key in self]):
            pass  # another process has removed a key meanwhile

    @staticmethod
    def set_password(password: Body, kesh: Key = b"") -> None:
        """Encrypts the password for a database logon and stores it.

        >>> import vantry
        >>> with vantry.Registry() as registry:
        ...     registry.set_password("open sesame")
        ...     vantry.decrypt(registry["LogonDatabaseParam"])
        b'open sesame'

        kesh: one that has a user name, for its own logon; empty for the common logon.
        """
        for text in password, kesh:
            if "\0" in text if isinstance(text, str) else b"\0" in bytes(text):
                raise ValueError("embedded null byte")
        _vantry.set_password(password, kesh)
