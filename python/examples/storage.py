"""Scan files: the sample scan point database as a numpy structured array, a changed copy
written back, and the sample scan log's status.

    PYTHONPATH=build/default/python python3 python/examples/storage.py [DATA_DIR]
"""
import datetime
import tempfile

import numpy as np

import kelscan
from sample_data import data_dir

records, header = kelscan.read_sdb(str(data_dir() / "scan.dbs"))
print(f"{len(records)} records ({np.count_nonzero(~records['deleted'])} live), header {header}")
print(records[["record", "name", "north", "east", "height", "code"]][:3])

# Points are north, east, height in metres; move them 1 m north and mark the first deleted.
copy = records.copy()
copy["north"] += 1.0
copy["deleted"][0] = True
with tempfile.TemporaryDirectory() as folder:
    kelscan.write_sdb(f"{folder}/moved.dbs", copy, header=header)
    again, _ = kelscan.read_sdb(f"{folder}/moved.dbs")
assert np.array_equal(again["north"], records["north"] + 1.0) and again["deleted"][0]

# The recovery log: was the last scan interrupted, and where did it get to?
log = kelscan.log_status(str(data_dir() / "SDB.log"))
q, day = divmod(log.date_code, 31)  # date code: (month + 12 year) * 31 + day
if day == 0:
    q, day = q - 1, 31
year, month = divmod(q, 12)
if month == 0:
    year, month = year - 1, 12
started = datetime.datetime(year, month, day) + datetime.timedelta(milliseconds=log.time_code)
print(f"scan log: {log.state}, database {log.database}, started {started} UTC, "
      f"last point {log.last_point['name'][0]}")
