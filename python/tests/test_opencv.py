"""Camera interchange with OpenCV: files the program writes, and, where Debian's python3-opencv
is installed, projections by OpenCV itself."""
import numpy as np
import pytest

import kelscan

try:
    import cv2
except ImportError:  # the projection checks need OpenCV itself
    cv2 = None
needs_cv2 = pytest.mark.skipif(cv2 is None, reason="python3-opencv is not installed")

TOLERANCE_PX = 0.01


def test_export_and_import_equal_the_programs(data, cli, tmp_path):
    cli("camera", "export-opencv", data / "camera.cam", tmp_path / "c.yml")
    ours = kelscan.export_opencv(str(data / "camera.cam"), str(tmp_path / "p.yml"))
    assert (tmp_path / "p.yml").read_bytes() == (tmp_path / "c.yml").read_bytes()
    assert ours.max_residual < 1e-4 and ours.image_size == (4001, 2998)
    cli("camera", "import-opencv", tmp_path / "c.yml", "--pixel-size", "0.00167,0.00167", tmp_path / "c.cam")
    camera, cv = kelscan.import_opencv(str(tmp_path / "c.yml"), (0.00167, 0.00167), output=str(tmp_path / "p.cam"))
    assert (tmp_path / "p.cam").read_bytes() == (tmp_path / "c.cam").read_bytes()
    assert camera.model == 1 and cv.max_residual < 1e-4
    (tmp_path / "bad.yml").write_text((tmp_path / "c.yml").read_text().replace("rows: 1", "rows: x"))
    with pytest.raises(kelscan.Error, match=r"bad.yml:10: rows is not a positive whole number"):
        kelscan.OpenCvCamera.read(str(tmp_path / "bad.yml"))
    with pytest.raises(ValueError, match="pixel_size"):
        kelscan.import_opencv(str(tmp_path / "c.yml"), (0.00167,))


def scene(camera, count=300, seed=18):
    """A pose and object points seen all over the image, 5 to 60 m away."""
    rng = np.random.default_rng(seed)
    rotation = np.array(kelscan.OpenCvCamera.pose_to_opencv(np.eye(3), np.zeros(3))[0])  # any
    angles = np.radians([10.0, -5.0, 30.0])
    c, s = np.cos(angles), np.sin(angles)
    rx = np.array([[1, 0, 0], [0, c[0], -s[0]], [0, s[0], c[0]]])
    ry = np.array([[c[1], 0, s[1]], [0, 1, 0], [-s[1], 0, c[1]]])
    rz = np.array([[c[2], -s[2], 0], [s[2], c[2], 0], [0, 0, 1]])
    rotation = rx @ ry @ rz
    centre = np.array([100.0, -40.0, 12.0])
    width = camera.principal / camera.pixel_size * 2
    pixels = rng.uniform(0, 1, (count, 2)) * width
    phc = camera.img_to_phc(pixels)
    rays = np.c_[phc, np.full(count, -camera.focal)] @ rotation  # R^T (x, y, -c)
    rays /= np.linalg.norm(rays, axis=1)[:, None]
    return rotation, centre, centre + rays * rng.uniform(5, 60, (count, 1))


def project_cv(K, dist, rotation, centre, points):
    r, t = kelscan.OpenCvCamera.pose_to_opencv(rotation, centre)
    rvec, _ = cv2.Rodrigues(r)
    return cv2.projectPoints(points, rvec, t, K, dist)[0].reshape(-1, 2)


@needs_cv2
def test_opencv_projects_an_exported_camera_as_kelscan_does(data, tmp_path):
    kelscan.export_opencv(str(data / "camera.cam"), str(tmp_path / "c.yml"))
    fs = cv2.FileStorage(str(tmp_path / "c.yml"), cv2.FILE_STORAGE_READ)
    K, dist = fs.getNode("camera_matrix").mat(), fs.getNode("distortion_coefficients").mat()
    assert int(fs.getNode("image_width").real()) == 4001
    camera = kelscan.Camera.read(str(data / "camera.cam"))
    rotation, centre, points = scene(camera)
    ours = kelscan.OrientedCamera(camera, camera.focal, centre, rotation).obj_to_img(points)
    theirs = project_cv(K, dist, rotation, centre, points)
    assert np.abs(theirs - (ours - 0.5)).max() < TOLERANCE_PX  # OpenCV's pixel centres at i


@needs_cv2
def test_an_opencv_calibration_imports_and_reprojects(tmp_path):
    K = np.array([[1025.0, 0.0, 639.5], [0.0, 1025.3, 359.5], [0.0, 0.0, 1.0]])
    for dist, limit in [(np.array([[-0.1, 0.05, 0.0, 0.0, 0.0]]), TOLERANCE_PX),
                        (np.array([[-0.05, 0.01, 2e-4, 1e-4, 0.0]]), None)]:
        fs = cv2.FileStorage(str(tmp_path / "cv.yml"), cv2.FILE_STORAGE_WRITE)
        fs.write("camera_matrix", K)
        fs.write("distortion_coefficients", dist)
        fs.write("image_width", 1280)
        fs.write("image_height", 720)
        fs.release()
        camera, cv = kelscan.import_opencv(str(tmp_path / "cv.yml"), (0.003, 0.003))
        rotation, centre, points = scene(camera)
        ours = kelscan.OrientedCamera(camera, camera.focal, centre, rotation).obj_to_img(points)
        worst = np.abs(project_cv(K, dist, rotation, centre, points) - (ours - 0.5)).max()
        # Within what the import reported (and the 0.01 px asked of a radial lens).
        assert worst <= 1.5 * cv.max_residual + 1e-9
        if limit is not None:
            assert cv.max_residual < limit and camera.model == 1
