"""A map-style dataset, as data loaders of training loops expect it: a length, and a sample for each
index. It can be passed to worker processes, each of which opens the package again."""

import multiprocessing

import vantry


class PackageDataset:
    def __init__(self, package):
        self.package = package
        self.keys = list(package)

    def __len__(self):
        return len(self.keys)

    def __getitem__(self, index):
        key = self.keys[index]
        return key.decode(), self.package.view(key)


def load(task):
    dataset, indices = task
    return sum(sum(body) for _, body in map(dataset.__getitem__, indices))


if __name__ == "__main__":
    with vantry.open("samples.hpk", "w") as package:
        for number in range(1000):
            package[f"sample/{number:04}"] = bytes([number % 10]) * 100
    with vantry.open("samples.hpk") as package:
        dataset = PackageDataset(package)
        batches = [(dataset, range(start, start + 100)) for start in range(0, len(dataset), 100)]
        with multiprocessing.get_context("spawn").Pool(2) as workers:
            print(len(dataset), dataset[7][0], sum(workers.map(load, batches)))
