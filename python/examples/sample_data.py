"""The sample data the examples read: kelscan's data/ folder (or the folder given as the first
argument, or $KELSCAN_DATA)."""
import csv
import os
import pathlib
import sys

import numpy as np


def data_dir():
    if len(sys.argv) > 1:
        return pathlib.Path(sys.argv[1])
    if "KELSCAN_DATA" in os.environ:
        return pathlib.Path(os.environ["KELSCAN_DATA"])
    return pathlib.Path(__file__).resolve().parents[2] / "data"


def read_csv(path):
    """Rows name,v1,v2,... of a sample file ('#' comment lines and the header skipped):
    (names, N x k array)."""
    with open(path, newline="") as f:
        rows = list(csv.reader(line for line in f if not line.startswith("#")))[1:]
    return [r[0] for r in rows], np.array([[float(v) for v in r[1:]] for r in rows])
