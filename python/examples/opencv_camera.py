"""Camera interchange with OpenCV: the sample camera file as OpenCV's camera YAML and back, and
(where python3-opencv is installed) OpenCV's own projection of the exported camera.

OpenCV's lens model moves an ideal point to where it is seen; the camera file's corrects a seen
point to its ideal place. The parameters are therefore fitted, not copied, and each conversion
reports the largest difference of the two models' pixels over the image.

    PYTHONPATH=build/default/python python3 python/examples/opencv_camera.py [DATA_DIR]
"""
import tempfile

import numpy as np

import kelscan
from sample_data import data_dir

try:
    import cv2
except ImportError:
    cv2 = None

with tempfile.TemporaryDirectory() as folder:
    out = kelscan.export_opencv(str(data_dir() / "camera.cam"), f"{folder}/camera.yml")
    print("camera matrix (pixels):\n", out.matrix.round(3))
    print("k1 k2 p1 p2 k3 k4 k5 k6:", out.coefficients.round(6))
    print(f"image {out.image_size}, largest residual {out.max_residual:.2e} px")

    camera, cv = kelscan.import_opencv(f"{folder}/camera.yml", pixel_size=(0.00167, 0.00167),
                                       output=f"{folder}/back.cam")
    print(f"back: focal {camera.focal:.6f} mm, model {camera.model}, k1..k4 {camera.parameters}")
    print(f"largest residual {cv.max_residual:.2e} px over {cv.grid_points} grid points")

if cv2 is None:
    print("python3-opencv is not installed: the check against cv2.projectPoints is left out")
else:
    # A pose in kelscan's convention: camera = R (P - C), looking along -z, photo y up.
    a = np.radians([10.0, -5.0, 30.0])
    rx = np.array([[1, 0, 0], [0, np.cos(a[0]), -np.sin(a[0])], [0, np.sin(a[0]), np.cos(a[0])]])
    ry = np.array([[np.cos(a[1]), 0, np.sin(a[1])], [0, 1, 0], [-np.sin(a[1]), 0, np.cos(a[1])]])
    rz = np.array([[np.cos(a[2]), -np.sin(a[2]), 0], [np.sin(a[2]), np.cos(a[2]), 0], [0, 0, 1]])
    rotation, centre = rx @ ry @ rz, np.array([100.0, -40.0, 12.0])
    # Points seen all over the image, 5 to 60 m away: along the rays of random pixels.
    rng = np.random.default_rng(18)
    camera = kelscan.Camera.read(str(data_dir() / "camera.cam"))
    pixels = rng.uniform(0, 1, (2000, 2)) * out.image_size
    rays = np.c_[camera.img_to_phc(pixels), np.full(len(pixels), -camera.focal)] @ rotation
    points = centre + rays / np.linalg.norm(rays, axis=1)[:, None] * rng.uniform(5, 60, (len(pixels), 1))
    # kelscan's projection (pixel i spans [i, i + 1)) and OpenCV's (pixel centres at i).
    ours = kelscan.OrientedCamera(camera, camera.focal, centre, rotation).obj_to_img(points) - 0.5
    r, t = kelscan.OpenCvCamera.pose_to_opencv(rotation, centre)
    theirs = cv2.projectPoints(points, cv2.Rodrigues(r)[0], t, out.matrix, out.coefficients)[0]
    gap = np.linalg.norm(theirs.reshape(-1, 2) - ours, axis=1).max()
    print(f"cv2.projectPoints of the exported camera: at most {gap:.1e} px from kelscan's pixels")
