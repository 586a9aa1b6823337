"""A zarr store in one file. Unlike a zip store it can overwrite and delete."""

from collections.abc import MutableMapping

import vantry
import zarr


class PackageStore(MutableMapping):
    """Chunks by their names, in an open package."""

    def __init__(self, package):
        self.package = package

    def __getitem__(self, name):
        return self.package[name]

    def __setitem__(self, name, chunk):
        self.package[name] = chunk

    def __delitem__(self, name):
        del self.package[name]

    def __contains__(self, name):
        return name in self.package

    def __iter__(self):
        return map(bytes.decode, self.package)

    def __len__(self):
        return len(self.package)


if __name__ == "__main__":
    with vantry.open("numbers.hpk", "a") as package:
        root = zarr.group(PackageStore(package), overwrite=True)
        numbers = root.zeros("numbers", shape=(1000, 1000), chunks=(100, 100), dtype="i4")
        numbers[:] = 1
        numbers[100:200, :500] = 2
        root.array("unused", [1, 2, 3])
        del root["unused"]
    vantry.compact("numbers.hpk")
    with vantry.open("numbers.hpk") as package:
        numbers = zarr.open_group(PackageStore(package), mode="r")["numbers"]
        print(numbers.shape, numbers[:].sum(), len(package.prefix("numbers/")))
