"""Shared by the kelscan Python tests: the sample data, the C++ program (the other side of
every round trip) and a helper to run it."""
import csv
import io
import os
import pathlib
import subprocess

import numpy as np
import pytest

import kelscan  # noqa: F401  (the module under test must import before anything else)

REPO = pathlib.Path(__file__).resolve().parents[2]
DATA = pathlib.Path(os.environ.get("KELSCAN_DATA", REPO / "data"))
EXAMPLES = REPO / "python" / "examples"


@pytest.fixture
def data():
    return DATA


@pytest.fixture
def cli():
    """Runs the kelscan program and returns its standard output; fails on a non-zero exit."""
    program = os.environ.get("KELSCAN_CLI")
    if not program or not os.path.exists(program):
        pytest.skip("the kelscan program is not built (KELSCAN_CLI)")

    def run(*args):
        done = subprocess.run([program, *map(str, args)], capture_output=True, text=True)
        assert done.returncode == 0, done.stderr
        return done.stdout

    return run


def read_points(path, coords):
    """Named rows of a sample CSV file ('#' lines and a header skipped): (names, N x coords)."""
    names, rows = [], []
    with open(path, newline="") as f:
        for row in csv.reader(line for line in f if not line.startswith("#")):
            try:
                values = [float(v) for v in row[1:1 + coords]]
            except ValueError:
                continue  # the header
            names.append(row[0])
            rows.append(values)
    return names, np.array(rows)


def csv_tables(text):
    """The tables of a `--format csv` report: a list of lists of rows (dicts)."""
    return [list(csv.DictReader(io.StringIO(block))) for block in text.strip().split("\n\n")]
