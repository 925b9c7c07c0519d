"""Scan planning: a fine scan and a tracking scan over an angular box, with and without the
sample scan region, as arrays of instrument angles with their measuring times.

    PYTHONPATH=build/default/python python3 python/examples/planning.py [DATA_DIR]
"""
import numpy as np

import kelscan
from sample_data import data_dir

# V is the zenith angle (90 level), H the horizontal circle reading, degrees. This box runs
# across north: H 350 ... 380 (targets are not reduced into [0, 360)).
fine = kelscan.FineScan(start=(95.0, 350.0), end=(80.0, 20.0), spacing=(0.5, 0.5))
count = fine.plan()
hv = fine.targets
print(f"fine scan: {count} targets, {fine.time()} s; first {hv[0]}, last {hv[-1]}")
print("  H reduced into [0, 360):", np.mod(hv[:3, 0], 360.0))

# The region drawn on the photo (pixels) is mapped onto the box: fewer targets.
region = np.loadtxt(data_dir() / "region.csv", delimiter=",", comments="#", skiprows=3)
fine.region = region
print(f"  with the region: {fine.plan()} targets, {fine.time(resume=True)} s already set up")

track = kelscan.TrackScan(start=(95.0, 350.0), end=(80.0, 20.0), spacing=(0.5, 0.05), speed=50)
lines = track.plan()
print(f"tracking scan: {lines} lines at {track.rate():.3f} deg/s, {track.time()} s, "
      f"{track.total_points} points; first line V, H from, H to: {track.lines[0]}")
