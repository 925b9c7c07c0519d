import json

import numpy as np
import pytest

import kelscan
from conftest import read_points


def test_orientations_equal_the_programs(data, cli):
    """Every method from arrays gives what `kelscan orient` gives from the same files."""
    names, obj = read_points(data / "control_object.csv", 3)
    _, pixels = read_points(data / "control_image.csv", 2)
    _, photo = read_points(data / "control_photo.csv", 2)
    camera = kelscan.Camera.read(str(data / "camera.cam"))
    corrected = camera.img_to_phc(pixels)
    for method, points, extra in [
        ("resection-multistart", corrected, ["--camera", data / "camera.cam", "--image", data / "control_image.csv"]),
        ("resection", corrected, ["--camera", data / "camera.cam", "--image", data / "control_image.csv"]),
        ("dlt", photo, ["--photo", data / "control_photo.csv"]),
        ("dlt-iterative", photo, ["--photo", data / "control_photo.csv"]),
        ("selfcal-k1k2p1p2", photo, ["--photo", data / "control_photo.csv"]),
    ]:
        theirs = json.loads(cli("orient", "--object", data / "control_object.csv", *extra,
                                "--method", method, "--format", "json"))
        # Names from a list or from a numpy array of strings.
        ours = kelscan.orient(obj, points, method=method, focal=camera.focal,
                              names=names if method != "dlt" else np.array(names))
        assert ours.pairs == theirs["pairs"] == len(names)
        np.testing.assert_array_equal(ours.centre, theirs["centre"])
        np.testing.assert_array_equal(ours.rotation.ravel(), theirs["rotation"])
        np.testing.assert_array_equal(ours.rms, theirs["rms_mm"])
        assert ours.names == [r["name"] for r in theirs["residuals_mm"]]
        np.testing.assert_array_equal(ours.residuals[:, 1], [r["dy"] for r in theirs["residuals_mm"]])
        if method.startswith("resection"):
            np.testing.assert_array_equal(ours.sigma, theirs["centre_sigma"] + theirs["angles_sigma_rad"])
            assert ours.b is None
            np.testing.assert_allclose(ours.rotation @ ours.rotation.T, np.eye(3), atol=1e-12)
        else:
            np.testing.assert_array_equal(ours.b, theirs["b"])
            assert ours.sigma is None


def test_camera_file_round_trip_and_pixels(data, tmp_path):
    camera = kelscan.Camera.read(str(data / "camera.cam"))
    camera.write(str(tmp_path / "copy.cam"))
    assert (tmp_path / "copy.cam").read_bytes() == (data / "camera.cam").read_bytes()
    # The principal point's pixel has photo point (0, 0); the lens model inverts to 1e-9 px.
    px = np.array([[camera.principal[0] / camera.pixel_size[0], camera.principal[1] / camera.pixel_size[1]],
                   [0.0, 0.0], [4001.0, 2998.0]])
    phc = camera.img_to_phc(px)
    np.testing.assert_allclose(phc[0], [0.0, 0.0], atol=1e-12)
    assert phc[1, 0] < 0 < phc[1, 1]  # top-left: photo x left, y up
    np.testing.assert_allclose(camera.phc_to_img(phc), px, atol=1e-9)
    made = kelscan.Camera(8.8, (3.341, 2.503), (0.00167, 0.00167), 1, camera.parameters)
    np.testing.assert_array_equal(made.img_to_phc(px), phc)
    with pytest.raises(ValueError, match=r"parameters: expected 5 numbers, got shape \(4,\)"):
        kelscan.Camera(8.8, (3.341, 2.503), (0.00167, 0.00167), 3, camera.parameters)
    (tmp_path / "short.cam").write_text("8.8\n0.0\n0.0\n1\n4\n-2e-3\n")
    with pytest.raises(kelscan.Error, match="short.cam:7: missing or unreadable camera line"):
        kelscan.Camera.read(str(tmp_path / "short.cam"))


def test_bad_control_is_refused():
    obj, photo = np.zeros((6, 3)), np.zeros((6, 2))
    with pytest.raises(ValueError, match="the same number of rows"):
        kelscan.orient(obj, photo[:5])
    with pytest.raises(ValueError, match="name a given twice"):
        kelscan.orient(obj, photo, names=["a", "a", "b", "c", "d", "e"])
    with pytest.raises(ValueError, match="method"):
        kelscan.orient(obj, photo, method="magic")
    with pytest.raises(ValueError, match=r"photo_points: expected an N x 2 array, got shape \(6, 3\)"):
        kelscan.orient(obj, obj)
    with pytest.raises(kelscan.Error, match="orient: dlt3d: CDlt::"):
        kelscan.orient(obj, photo, method="dlt3d")  # all points in one place
