#!/usr/bin/env python3
"""ratios.py [--lacking REGEX] [--json FILE] [--footprint FILE] --one-core FILE... [--unpinned FILE...]

Tables of what the benchmarks say, from the JSON files of several runs on one core and of as many on
all. Each row is a benchmark beside its yardstick: the medians of both over the runs, the median of the
runs' ratios, and the smallest and largest of these. What else the machine does is alike in both, as
they run soon one after the other. A row over its limit is marked; that fails nothing. A benchmark that
is missing fails, unless its name matches REGEX: then a row without the measured is left out, and the
figures of a yardstick are "-".
--json keeps the raw figures of all files in one. --footprint has the lines of zem_footprint.
"""
import argparse
import json
import re
import sys
from math import inf
from statistics import median
from typing import NamedTuple, Optional


class Row(NamedTuple):
    name: str
    measured: str  # a benchmark, or several, FOLDER/*, of which the slowest counts
    yardstick: tuple  # benchmarks, whose times are added
    one_core: float  # the limits of the ratio
    unpinned: Optional[float] = None


ROWS = [
    Row("request: match / bare hand-off", "match", ("bareHandoff",), 1.2, 1.3),
    Row("request: getProfile / bare hand-off", "getProfile", ("bareHandoff",), 1.2, 1.3),
    Row("request: match / call over D-Bus", "match", ("busCall",), 0.2),
    Row("request: match / post to Asio", "match", ("asioPost",), 2.5),
    Row("filter, APN equal / 255 comparisons", "filter/apnEqual/lower", ("compareNames",), 2),
    Row("filter, APN equal, upper case / the same", "filter/apnEqual/upper", ("compareNames",), 2),
    Row("filter, APN subset / the same", "filter/apnSubset", ("compareNames",), 2),
    Row("filter, each other criterion / the same", "filter/other/*", ("compareNames",), 2),
    Row("filter, 255 hits / 255 hand-offs and objects", "filterWithHits", ("handoffsAndKeys",), 1.3),
    Row("log line kept, TZ set / vsnprintf", "keptLine/TZ", ("formatLine",), 1.6),
    Row("log line kept, TZ not set / vsnprintf", "keptLine/noTZ", ("formatLine",), 1.6),
    Row("log line kept, TZ set / spdlog", "keptLine/TZ", ("spdlogLine/TZ",), 1),
    Row("log line kept, TZ not set / spdlog", "keptLine/noTZ", ("spdlogLine/noTZ",), 1),
    Row("log line not kept, macro / empty call", "droppedLineByMacro", ("emptyCall",), 2),
    Row("log line not kept, call / empty call", "droppedLineByCall", ("emptyCall",), 2),
    Row("dump / appending its pieces", "dump", ("appendPieces",), 1.5),
    Row("refresh, 510 profiles / the modem's answers", "refresh/510", ("directRefresh",), 1.3),
    Row("add / the modem's part and a hand-off", "add", ("directAdd", "bareHandoff"), 1.3),
    Row("modify / the same", "modify", ("directModify", "bareHandoff"), 1.3),
    Row("remove / the same", "remove", ("directRemove", "bareHandoff"), 1.3),
]
GROWTH = [8, 32, 128, 510]  # profiles
GROWING = [  # the last: whether the time is divided among the profiles
    ("filter without hit, for each profile", "filterGrowth", True),
    ("refresh, for each profile", "refresh", True),
    ("indication of a change, until absorbed", "indicationGrowth", False),
]
UNITS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}

missing = set()


class Runs:
    """The nanoseconds of each benchmark in each run; where it was repeated in a run, their median."""

    def __init__(self, raw):
        self.times = {}
        for run in raw:
            repetitions = {}
            for each in run["benchmarks"]:
                if each["run_type"] == "iteration" and not each.get("error_occurred"):
                    name = re.sub("/(real|manual)_time$", "", each["run_name"])
                    repetitions.setdefault(name, []).append(each["real_time"] * UNITS[each["time_unit"]])
            for name, times in repetitions.items():
                self.times.setdefault(name, []).append(median(times))

        self.count = len(raw)

    def of(self, name):
        """One for each run: a run that lacks it would put those of the runs after it beside another's."""
        if len(self.times.get(name, [])) == self.count:
            return self.times[name]
        missing.add(name)
        return None

    def slowest(self, pattern):
        """Its name as well, where there was a choice."""
        if not pattern.endswith("*"):
            return "", self.of(pattern)
        names = [name for name in self.times if name.startswith(pattern[:-1])]
        if not names:
            return "", self.of(pattern)
        name = max(names, key=lambda each: median(self.times[each]))
        return f" (worst: {name[len(pattern) - 1:]})", self.of(name)

    def sum(self, names):
        parts = [self.of(name) for name in names]
        return [sum(run) for run in zip(*parts)] if all(parts) else None


def print_table(title, heads, rows):
    if not rows:
        return
    rows = [[title, *heads], *rows]
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    rows.insert(1, ["----", *["---:"] * len(heads)])
    for row in rows:
        cells = [cell.rjust(width) if column else cell.ljust(width)
                 for column, (cell, width) in enumerate(zip(row, widths))]
        print(f"| {' | '.join(cells)} |")
    print()


def ratio_row(row, runs, limit):
    worst, measured = runs.slowest(row.measured)
    yardstick = runs.sum(row.yardstick)
    if not measured:
        return []
    cells = [row.name + worst, f"{median(measured):,.0f}"]
    mark = f"{limit:g}" if limit else ""
    if not yardstick:
        return [[*cells, *["-"] * 4, mark]]
    # What runs but once may take no time that the clock could tell.
    ratios = [a / b if b else inf for a, b in zip(measured, yardstick)]
    cells += [f"{median(yardstick):,.0f}", *(f"{of(ratios):.2f}" for of in (median, min, max))]
    return [[*cells, mark + (" OVER" if limit and median(ratios) > limit else "")]]


def growth_row(name, benchmark, divided, runs):
    times = [runs.of(f"{benchmark}/{count}") for count in GROWTH]
    if not all(times):
        return []
    return [[name, *(f"{median(each) / (count if divided else 1):,.1f}" for count, each in zip(GROWTH, times))]]


def print_runs(title, runs, limit_of):
    print_table(f"{title}, ns", ["measured", "yardstick", "ratio", "smallest", "largest", "limit"],
                [cells for row in ROWS for cells in ratio_row(row, runs, limit_of(row))])
    print_table(f"{title}, ns with so many profiles", [str(count) for count in GROWTH],
                [cells for row in GROWING for cells in growth_row(*row, runs)])


def read(path):
    with open(path, encoding="utf-8") as file:
        return json.load(file)


def print_footprint(path):
    with open(path, encoding="utf-8") as file:
        taken = dict(line.split() for line in file)
    each = (float(taken["heap-full"]) - float(taken["heap-empty"])) / 510
    print_table("memory", ["bytes", "allocations"],
                [["heap, for each profile", f"{each:,.0f}", ""]] +
                [[name.removesuffix("-allocations"), taken[name.replace("-allocations", "-bytes")], count]
                 for name, count in taken.items() if name.endswith("-allocations")])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--lacking", metavar="REGEX")
    parser.add_argument("--json", metavar="FILE")
    parser.add_argument("--footprint", metavar="FILE")
    parser.add_argument("--one-core", metavar="FILE", nargs="+", required=True)
    parser.add_argument("--unpinned", metavar="FILE", nargs="+", default=[])
    arguments = parser.parse_args()

    settings = [("one core", arguments.one_core, lambda row: row.one_core),
                ("unpinned", arguments.unpinned, lambda row: row.unpinned)]
    raw = {}
    for title, paths, limit_of in settings:
        raw[title] = [read(path) for path in paths]
        if paths:
            print_runs(title, Runs(raw[title]), limit_of)
    if arguments.footprint:
        print_footprint(arguments.footprint)
    if arguments.json:
        with open(arguments.json, "w", encoding="utf-8") as file:
            json.dump(raw, file, indent=1)

    lacking = sorted(name for name in missing
                     if not arguments.lacking or not re.search(arguments.lacking, name))
    if lacking:
        sys.exit(f"no figures of {', '.join(lacking)}")


main()
