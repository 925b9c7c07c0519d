"""Camera interchange with OpenCV: the sample camera file as OpenCV's camera YAML and back.

OpenCV's lens model moves an ideal point to where it is seen; the camera file's corrects a seen
point to its ideal place. The parameters are therefore fitted, not copied, and each conversion
reports the largest difference of the two models' pixels over the image.

    PYTHONPATH=build/default/python python3 python/examples/opencv_camera.py [DATA_DIR]
"""
import tempfile

import kelscan
from sample_data import data_dir

with tempfile.TemporaryDirectory() as folder:
    out = kelscan.export_opencv(str(data_dir() / "camera.cam"), f"{folder}/camera.yml")
    print("camera matrix (pixels):\n", out.matrix.round(3))
    print("k1 k2 p1 p2 k3 k4 k5 k6:", out.coefficients.round(6))
    print(f"image {out.image_size}, largest residual {out.max_residual:.2e} px")

    camera, cv = kelscan.import_opencv(f"{folder}/camera.yml", pixel_size=(0.00167, 0.00167),
                                       output=f"{folder}/back.cam")
    print(f"back: focal {camera.focal:.6f} mm, model {camera.model}, k1..k4 {camera.parameters}")
    print(f"largest residual {cv.max_residual:.2e} px over {cv.grid_points} grid points")
