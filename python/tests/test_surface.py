import numpy as np
import pytest

import kelscan
from conftest import csv_tables, read_points


def terrain(data):
    """The sample terrain (north, east, height) as x east, y north, z height."""
    return read_points(data / "terrain.csv", 3)[1][:, [1, 0, 2]]


def test_build_matches_the_program_and_round_trips(data, cli, tmp_path):
    """The same points give the same mesh as `kelscan tin build`, whose file reads back; a
    surface written here reads back in the program."""
    cli("tin", "build", data / "terrain.csv", "-o", tmp_path / "c.tin", "--name", "site")
    [theirs] = kelscan.Tin.read(str(tmp_path / "c.tin"))
    points = terrain(data)
    ours = kelscan.Tin.build(points, name="site")
    np.testing.assert_array_equal(ours.triangles, theirs.triangles)
    np.testing.assert_array_equal(ours.neighbours, theirs.neighbours)
    np.testing.assert_array_equal(ours.points, theirs.points)
    assert len(ours.points) == len(points) - 2  # the two check shots are skipped
    cli("tin", "build", data / "terrain.csv", "-o", tmp_path / "r.tin", "--index-order")
    [rows] = kelscan.Tin.read(str(tmp_path / "r.tin"))
    np.testing.assert_array_equal(kelscan.Tin.build(points, index_order=True).triangles,
                                  rows.triangles)
    assert ours.plan_area == pytest.approx(120 * 90, rel=0.05)

    ours.write(str(tmp_path / "p.tin"), version=1)
    [values] = csv_tables(cli("tin", "info", tmp_path / "p.tin", "--format", "csv"))[1]
    assert values["triangles"] == str(len(ours))
    assert float(values["plan_area_m2"]) == pytest.approx(ours.plan_area, abs=1e-9)


def test_queries_agree_with_the_plane_they_lie_on():
    # A tilted plane z = 2 + 0.5 x - 0.25 y: every query has an exact answer.
    xy = np.array([[0, 0], [10, 0], [10, 10], [0, 10], [5, 5], [2, 7]], float)
    tin = kelscan.Tin.build(np.c_[xy, 2 + 0.5 * xy[:, 0] - 0.25 * xy[:, 1]])
    q = np.array([[3.0, 4.0], [9.5, 0.5], [11.0, 5.0]])
    np.testing.assert_allclose(tin.height(q)[:2], 2 + 0.5 * q[:2, 0] - 0.25 * q[:2, 1])
    assert np.isnan(tin.height(q)[2]) and tin.find_triangle(q)[2] == -1
    hits, tri = tin.intersect([[3, 4, 50], [3, 4, 50]], [[0, 0, -1], [0, 0, 1]])
    np.testing.assert_allclose(hits[0], [3, 4, 2 + 1.5 - 1.0])
    assert tri[0] >= 0 and tri[1] == -1 and np.isnan(hits[1]).all()
    # Neighbour slot i of a triangle lies across its edge from vertex (i + 2) % 3 to vertex i.
    t, nb = tin.triangles, tin.neighbours
    for i in range(len(tin)):
        for k in range(3):
            if nb[i, k] >= 0:
                assert {t[i, (k + 2) % 3], t[i, k]} <= set(t[nb[i, k]])
    assert "ply" in tin.export(format="ply") and "<LandXML" in tin.export(format="landxml")


def test_break_lines_become_edges():
    grid = np.array([[x, y, 0.0] for x in range(5) for y in range(5)], float)
    line = np.array([[0.5, 0.2, 1.0], [3.5, 3.7, 1.0]])
    for lines in ([line], np.array([line])):  # a list of K x 3 arrays, or an L x K x 3 array
        tin = kelscan.Tin.build(grid, breaklines=lines)
        assert tin.height([[2.0, 1.95]])[0] == pytest.approx(1.0)  # on the line: its height


def test_bad_arrays_are_refused_before_the_library_runs():
    good = np.zeros((3, 3))
    with pytest.raises(ValueError, match=r"points: expected an N x 3 array, got shape \(3, 2\)"):
        kelscan.Tin.build(np.zeros((3, 2)))
    with pytest.raises(TypeError, match="points: expected real numbers, got dtype <U1"):
        kelscan.Tin.build(np.array([["a", "b", "c"]] * 3))
    with pytest.raises(TypeError, match="complex"):
        kelscan.Tin.build(good.astype(complex))
    with pytest.raises(ValueError, match="not a finite number"):
        kelscan.Tin.build(np.array([[0, 0, 0], [1, 0, np.nan], [0, 1, 0]]))
    with pytest.raises(ValueError, match="breaklines"):
        kelscan.Tin.build(good, breaklines=[np.zeros((2, 2))])
    # A library failure carries the library's line.
    with pytest.raises(kelscan.Error) as e:
        kelscan.Tin.build(np.array([[0, 0, 0], [1, 1, 0], [2, 2, 0]], np.int32))
    assert e.value.lines and e.value.lines[0].startswith("CTin::")
    with pytest.raises(kelscan.Error, match="Tin.read"):
        kelscan.Tin.read("/nonexistent.tin")
