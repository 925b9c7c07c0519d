import numpy as np
import pytest

import kelscan
from conftest import csv_tables


def test_plans_equal_the_programs(data, cli):
    region = np.loadtxt(data / "region.csv", delimiter=",", comments="#", skiprows=3)
    box = ["--start", "95", "350", "--end", "80", "20"]
    fine = kelscan.FineScan(start=(95, 350), end=(80, 20), spacing=(0.5, 0.25), region=region)
    assert fine.plan() == fine.count
    tables = csv_tables(cli("plan", "fine", *box, "--spacing", "0.5", "0.25", "--region",
                            data / "region.csv", "--format", "csv"))
    values = {row["quantity"]: row["value"] for row in tables[0]}
    targets = np.array([[float(r["H_deg"]), float(r["V_deg"])] for r in tables[1]])
    assert int(values["targets"]) == fine.count
    assert int(values["time_s"]) == fine.time()
    # The program prints H reduced into [0, 360); the plan keeps it unwrapped across north.
    np.testing.assert_array_equal(np.mod(fine.targets[:, 0], 360.0), targets[:, 0])
    np.testing.assert_array_equal(fine.targets[:, 1], targets[:, 1])
    np.testing.assert_array_equal(fine.region, region)

    track = kelscan.TrackScan(start=(95, 350), end=(80, 20), spacing=(0.5, 0.1), speed=40)
    lines = track.plan()
    tables = csv_tables(cli("plan", "track", *box, "--spacing", "0.5", "0.1", "--speed", "40",
                            "--family", "halvex", "--format", "csv"))
    values = {row["quantity"]: row["value"] for row in tables[0]}
    assert int(values["lines"]) == lines and int(values["time_s"]) == track.time()
    assert int(values["points"]) == track.total_points
    assert float(values["rate_deg_per_s"]) == track.rate()
    np.testing.assert_array_equal(track.lines[:, 0], [float(r["V_deg"]) for r in tables[1]])


def test_dms_and_failures():
    # 0.3000 packed DDD.MMSS is half a degree.
    plan = kelscan.FineScan(start=(90, 10), end=(89, 11), spacing=(0.3, 0.3), dms=True)
    assert plan.plan() == 9 and plan.spacing == (0.5, 0.5)
    plan.set_box((90, 10), (90, 10))
    plan.region = [[0, 0], [1, 0], [1, 1]]
    with pytest.raises(kelscan.Error, match="nothing planned"):
        plan.plan()
    with pytest.raises(ValueError, match="at least 3 vertices"):
        plan.region = [[0, 0], [1, 1]]
    with pytest.raises(ValueError, match=r"start: expected 2 numbers, got shape \(3,\)"):
        kelscan.FineScan(start=(1, 2, 3), end=(1, 2))
    with pytest.raises(ValueError, match="speed"):
        kelscan.TrackScan(start=(95, 350), end=(80, 20), spacing=(1, 1), speed=200).time()
