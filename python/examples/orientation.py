"""Orientation: a camera file, pixels to photo millimetres, and the orientation of the sample
photograph from its control points by the DLT and by space resection.

    PYTHONPATH=build/default/python python3 python/examples/orientation.py [DATA_DIR]
"""
import numpy as np

import kelscan
from sample_data import data_dir, read_csv

data = data_dir()
camera = kelscan.Camera.read(str(data / "camera.cam"))
print(camera, "principal point", camera.principal, "mm, pixel size", camera.pixel_size, "mm")

# Control: object points (any frame, here metres) and where they were measured in the image
# (pixels: column right, row down). Pixels become ideal photo points (mm from the principal
# point, y up, the lens distortion corrected).
names, obj = read_csv(data / "control_object.csv")
image_names, pixels = read_csv(data / "control_image.csv")
assert names == image_names
photo = camera.img_to_phc(pixels)

# Space resection with the camera's focal length: pose, standard errors, residuals.
ori = kelscan.orient(obj, photo, method="resection-multistart", focal=camera.focal, names=names)
print("resection: centre", ori.centre.round(4), "m, angles", np.degrees(ori.angles).round(4), "deg")
print("  standard errors of the centre", ori.sigma[:3].round(5), "m; RMS", ori.rms.round(5), "mm")
print("  rotation (object to camera):\n", ori.rotation.round(6))

# The spatial DLT needs no camera: it finds focal length and principal point itself.
dlt = kelscan.orient(obj, photo, method="dlt3d", names=names)
print(f"DLT ({dlt.variant}): focal {dlt.focal:.4f} mm, principal point {dlt.principal_point.round(4)} mm")

# Back from the photo to pixels: the camera applies its distortion again.
assert np.allclose(camera.phc_to_img(photo), pixels, atol=1e-6)
worst = np.abs(ori.residuals).max()
print(f"largest resection residual {worst * 1000:.2f} um on the photo")
