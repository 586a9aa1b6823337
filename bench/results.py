"""Results of the benchmark programs: read, condensed to medians, shown as tables of ratios.

    python3 bench/results.py condense OUT.json RUN.json...   the medians of some runs, in one file
    python3 bench/results.py tables RESULTS.json             for people

A name is set, work and contender with slashes between; what Google Benchmark appends is left off. A
condensed file holds
{set: {work: {contender: {"ns": time, "bytes": a second, if any, ...counters}}}}.
"""

import json
import sys

OURS = ("hpack_view", "hpack", "hpack_memory", "vantry")
UNITS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
COUNTERS = ("disk_bytes", "peak_bytes")
# As in the documents; sizes by their number, and what is not named here after these.
WORKS = ("create", "open", "read_one", "list", "read_all", "replace_1000")


def condense(paths):
    results = {}
    for path in paths:
        with open(path, encoding="utf-8") as file:
            runs = json.load(file)["benchmarks"]
        for run in runs:
            if "error_message" in run:
                raise SystemExit(f"{path}: {run['name']}: {run['error_message']}")
            if run.get("aggregate_name", "median") != "median":
                continue
            group, work, contender = run["run_name"].split("/")[:3]
            figure = {"ns": run["real_time"] * UNITS[run["time_unit"]]}
            if "bytes_per_second" in run:
                figure["bytes"] = run["bytes_per_second"]
            figure.update({name: run[name] for name in COUNTERS if name in run})
            results.setdefault(group, {}).setdefault(work, {})[contender] = figure
    return results


def load(path):
    with open(path, encoding="utf-8") as file:
        return json.load(file)


def columns(works):
    """Column title -> {contender: amount}; an amount is better when it is smaller."""
    def place(work):
        number = int(work) if work.isdigit() else 0
        return (WORKS.index(work) if work in WORKS else len(WORKS), number, work)

    found = {}
    for work, figures in sorted(works.items(), key=lambda item: place(item[0])):
        found[work] = {name: figure["ns"] for name, figure in figures.items()}
    for counter in COUNTERS:
        amounts = {name: figure[counter] for figures in works.values()
                   for name, figure in figures.items() if figure.get(counter, 0) > 0}
        if amounts:
            found[counter.replace("_", " ")] = amounts
    return found


def reference(amounts):
    """What the ratios are relative to: ours, from a file where there are two."""
    return next((name for name in OURS if name in amounts), None)


def amount_text(title, value):
    if title.endswith(" bytes"):
        return f"{value / 1e6:.1f} MB"
    for unit, size in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if value >= size:
            return f"{value / size:.3g} {unit}"
    return f"{value:.2f} ns"


def table(group, works):
    found = columns(works)
    contenders = sorted({n for amounts in found.values() for n in amounts},
                        key=lambda n: ("floor" not in n, n not in OURS, n))
    rows = [[group, *found]]
    rows.append(["(ours)", *(amount_text(t, a[reference(a)]) if reference(a) else "-"
                             for t, a in found.items())])
    for name in contenders:
        row = [name]
        for amounts in found.values():
            base = amounts.get(reference(amounts))
            row.append(f"{amounts[name] / base:.2f}" if base and name in amounts else "-")
        rows.append(row)
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    return "\n".join("  ".join([row[0].ljust(widths[0])] +
                               [cell.rjust(width) for cell, width in zip(row[1:], widths[1:])])
                     for row in rows)


def main(arguments):
    match arguments:
        case ["condense", out, *paths] if paths:
            with open(out, "w", encoding="utf-8") as file:
                json.dump(condense(paths), file, indent=1)
        case ["tables", path]:
            print("Times and sizes as multiples of ours (hpack, vantry): above 1 is slower or "
                  "larger.\n")
            print("\n\n".join(table(*item) for item in load(path).items()))
        case _:
            raise SystemExit(__doc__)


if __name__ == "__main__":
    main(sys.argv[1:])
