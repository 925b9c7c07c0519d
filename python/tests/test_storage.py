import numpy as np
import pytest

import kelscan
from conftest import csv_tables


def test_database_equals_the_programs_dump_both_ways(data, cli, tmp_path):
    records, header = kelscan.read_sdb(str(data / "scan.dbs"))
    rows = csv_tables(cli("sdb", "dump", data / "scan.dbs", "--format", "csv"))[-1]
    assert len(records) == len(rows) and header == (753026, 22028009)
    for rec, row in zip(records, rows):
        assert rec["record"] == int(row["rec"]) and rec["deleted"] == (row["status"] == "deleted")
        assert (rec["name"], rec["code"], rec["text1"], rec["text2"]) == (row["name"], row["code"], row["text1"], row["text2"])
        assert [rec["north"], rec["east"], rec["height"]] == [float(row["north_m"]), float(row["east_m"]), float(row["height_m"])]
        assert rec["value"] == int(row["value"])

    # Written here, read by the program: the same records, texts up to their full length.
    changed = records.copy()
    changed["north"] += 0.125
    changed["name"][0] = "N" * 31
    changed["text2"][1] = "é" * 63  # single-byte text: Latin-1
    changed["deleted"][2] = True
    assert kelscan.write_sdb(str(tmp_path / "w.dbs"), changed, header=(7, -8)) == len(records)
    again, header = kelscan.read_sdb(str(tmp_path / "w.dbs"))
    assert header == (7, -8)
    changed["record"] = np.arange(1, len(records) + 1)
    assert np.array_equal(again, changed)
    rows = csv_tables(cli("sdb", "dump", tmp_path / "w.dbs", "--format", "csv"))[-1]
    assert rows[0]["name"] == "N" * 31 and rows[2]["status"] == "deleted"
    assert float(rows[3]["north_m"]) == records["north"][3] + 0.125
    assert not (tmp_path / "temp").exists()  # the replacement's folder is tidied away


def test_bad_records_are_refused(tmp_path):
    records = np.zeros(2, kelscan.SDB_DTYPE)
    target = str(tmp_path / "x.dbs")
    long = np.zeros(1, [("name", "U40"), ("north", "f8"), ("east", "f8"), ("height", "f8")])
    long["name"] = "x" * 32
    with pytest.raises(ValueError, match="name of row 0 is longer than 31 characters"):
        kelscan.write_sdb(target, long)
    records["text1"][1] = "\u20ac"
    with pytest.raises(ValueError, match="text1 of row 1 holds a character the file cannot store"):
        kelscan.write_sdb(target, records)
    with pytest.raises(ValueError, match="no field 'height'"):
        kelscan.write_sdb(target, records[["name", "north", "east"]])
    with pytest.raises(TypeError, match="structured array"):
        kelscan.write_sdb(target, np.zeros((2, 3)))
    with pytest.raises(TypeError, match="field 'north' has dtype <U"):
        kelscan.write_sdb(target, np.zeros(1, [("name", "U4"), ("north", "U4"), ("east", "f8"), ("height", "f8")]))
    assert not (tmp_path / "x.dbs").exists()


def test_log_status_equals_the_programs(data, cli, tmp_path):
    before = (data / "SDB.log").read_bytes()
    log = kelscan.log_status(str(data / "SDB.log"))
    text = cli("log", "status", data / "SDB.log")
    assert (data / "SDB.log").read_bytes() == before
    assert "state: interrupted" in text and log.state == "interrupted"
    assert f"database: {log.database}\n" in text and f"value: {log.value}\n" in text
    assert f"(codes {log.date_code},{log.time_code})" in text
    assert f"last point: {log.last_point['name'][0]}," in text
    (tmp_path / "short.log").write_bytes(before[:700])
    with pytest.raises(ValueError, match="700 bytes, want 768"):
        kelscan.log_status(str(tmp_path / "short.log"))
