"""The scan project: from a pixel of the photograph to the instrument's angles through the
surface, on a made-up site (a hillside), and a fine scan planned from a region drawn on the
photograph.

Frames: the project takes and gives points in the surveying frame (north, east, height, m).
The oriented camera alone (OrientedCamera) works in the computation frame (x east, y north,
z height, millimetres); it only makes the example's control points here.

    PYTHONPATH=build/default/python python3 python/examples/scan_project.py
"""
import numpy as np

import kelscan

station = np.array([5000.0, 3000.0, 100.0])  # north, east, height (m)
height = 1.6                                 # instrument height (m)

# The hillside in front of the station: a grid of points, height rising away from it.
north, east = np.meshgrid(np.arange(4990.0, 5071.0, 2.0), np.arange(2990.0, 3071.0, 2.0))
ground = 99.0 + 0.4 * (north - station[0]) + 0.25 * (east - station[1])
points = np.c_[north.ravel(), east.ravel(), ground.ravel()]

# A camera 0.12 m beside the telescope (east), looking at azimuth 30 degrees, 2 degrees down.
camera = kelscan.Camera(focal=8.0, principal=(4.0, 3.0), pixel_size=(0.005, 0.005),
                        model=2, parameters=[-8e-4, 1e-6, 2e-5, -1e-5])
az, zen = np.radians(30.0), np.radians(92.0)
f = np.array([np.sin(az) * np.sin(zen), np.cos(az) * np.sin(zen), np.cos(zen)])  # x east, y north
r = np.cross(f, [0.0, 0.0, 1.0])
r /= np.linalg.norm(r)
rotation = np.array([r, np.cross(r, f), -f])  # camera = R (P - C), looking along -z
centre = np.array([station[1] + 0.12, station[0], station[2] + height + 0.08]) * 1000.0

# Control points: where twelve pixels' rays meet the hillside (made with the true pose).
truth = kelscan.OrientedCamera(camera, camera.focal, centre, rotation)
truth.set_surface(kelscan.Tin.build(points[:, [1, 0, 2]] * 1000.0))
pixels = np.array([[u, v] for u in (200.0, 600.0, 1000.0, 1400.0) for v in (250.0, 600.0, 950.0)])
xyz_mm = truth.phc_to_xyz(camera.img_to_phc(pixels))
control = xyz_mm[:, [1, 0, 2]] / 1000.0  # to north, east, height (m)

project = kelscan.ScanProject(camera)
project.set_surface(points)
project.orient(pixels, control)
project.set_station(station, height, backsight_azimuth=40.0, backsight_reading=10.0)

hv = project.img_to_hv([[800.0, 600.0], [100.0, 1100.0]])
print("H, V of two pixels (deg):\n", hv.round(5))
back = project.hv_to_img(hv)
print("and back to pixels:\n", back.round(4))

region = np.array([[500.0, 400.0], [1100.0, 420.0], [1150.0, 800.0], [450.0, 760.0]])
plan = kelscan.FineScan()
project.compute_incline_grid(region, 0.1, plan)  # 0.1 m between targets at the region
print(f"fine scan over the region: {plan.plan()} targets, spacing {np.round(plan.spacing, 4)} deg, "
      f"{plan.time()} s")
