"""Surfaces: triangulate the sample terrain, query it with arrays, write and read its file.

    PYTHONPATH=build/default/python python3 python/examples/surface.py [DATA_DIR]
"""
import tempfile

import numpy as np

import kelscan
from sample_data import data_dir, read_csv

# terrain.csv holds name,north,east,height (m, surveying frame); a surface holds x east,
# y north, z height, so the first two columns swap.
names, neh = read_csv(data_dir() / "terrain.csv")
tin = kelscan.Tin.build(neh[:, [1, 0, 2]], name="site")
print(tin, f"plan area {tin.plan_area:.1f} m2, slope area {tin.slope_area:.1f} m2")

# Heights at plan positions (x east, y north); NaN outside the surface.
print("heights:", tin.height([[1050.0, 5040.0], [1200.0, 5040.0]]))

# A ray from 50 m above, looking down: where and on which triangle it lands.
hits, triangles = tin.intersect([[1060.0, 5045.0, 150.0]], [[0.0, 0.0, -1.0]])
print("ray hits", hits[0], "on triangle", triangles[0], "with corners", tin.triangles[triangles[0]])

# Files: a version-2 surface file, read back; a PLY mesh for any viewer.
with tempfile.TemporaryDirectory() as folder:
    tin.write(f"{folder}/site.tin")
    [again] = kelscan.Tin.read(f"{folder}/site.tin")
    assert np.array_equal(again.triangles, tin.triangles)
    tin.export(f"{folder}/site.ply", format="ply")
print("LandXML starts:", tin.export(format="landxml").splitlines()[1][:60])
