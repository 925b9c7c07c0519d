import sys

import numpy as np
import pytest

import kelscan
from conftest import EXAMPLES

sys.path.insert(0, str(EXAMPLES))
import scan_project as scene  # noqa: E402  (the worked example's site, camera and project)


def test_pixels_to_angles_and_back():
    p = scene.project
    assert p.ready
    px = np.array([[100.0, 100.0], [800.0, 600.0], [1500.0, 1100.0], [800.0, -5000.0]])
    xyz = p.img_to_xyz(px)
    hv = p.img_to_hv(px)
    assert np.isnan(hv[3]).all() and np.isnan(xyz[3]).all()  # far above: into the sky
    # H, V from the instrument's axis point to the surface point, written out here.
    d = xyz[:3] - (scene.station + [0.0, 0.0, scene.height])
    azimuth = np.degrees(np.arctan2(d[:, 1], d[:, 0]))
    h = np.mod(azimuth - 40.0 + 10.0, 360.0)
    v = np.degrees(np.arccos(d[:, 2] / np.linalg.norm(d, axis=1)))
    np.testing.assert_allclose(hv[:3], np.c_[h, v], atol=1e-9)
    # The surface point lies on the hillside, and the angles lead back to the pixel.
    np.testing.assert_allclose(xyz[:3, 2], 99.0 + 0.4 * (xyz[:3, 0] - 5000.0) + 0.25 * (xyz[:3, 1] - 3000.0), atol=1e-9)
    np.testing.assert_allclose(p.hv_to_img(hv[:3]), px[:3], atol=0.01)
    # The region's plan covers the region drawn: every target seen inside it (widened by a cell).
    plan = kelscan.FineScan()
    p.compute_incline_grid(scene.region, 0.1, plan)
    plan.plan()
    seen = p.hv_to_img(plan.targets)
    assert np.isfinite(seen).all()
    lo, hi = scene.region.min(axis=0), scene.region.max(axis=0)
    assert ((seen > lo - 60) & (seen < hi + 60)).all()


def test_bad_input_to_the_project():
    p = kelscan.ScanProject()
    with pytest.raises(kelscan.Error, match="ScanProject.orient"):
        p.orient(np.zeros((3, 2)), np.zeros((3, 3)))
    with pytest.raises(ValueError, match="the same number of rows"):
        p.orient(np.zeros((4, 2)), np.zeros((5, 3)))
    with pytest.raises(ValueError, match="at least 3 vertices"):
        p.compute_incline_grid([[0, 0], [1, 1]], 0.1, kelscan.FineScan())
    with pytest.raises(TypeError):
        p.compute_incline_grid([[0, 0], [1, 1], [2, 0]], 0.1, "not a planner")
    assert np.isnan(p.img_to_hv([[1.0, 1.0]])).all()  # not oriented: no answer, no crash
