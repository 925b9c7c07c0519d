"""kelscan from Python: surfaces, camera orientation, scan planning, scan files and photographs,
with numpy arrays in and out.

Frames and units, as the library keeps them:
- surveying frame: x north, y east, z height, metres (scan points, station, the scan project);
- surface (Tin): x east, y north, z height, in the unit of its points (metres in kelscan's files);
- image pixels: full resolution, u to the right, v down the rows, pixel i spanning [i, i + 1);
- photo coordinates: millimetres relative to the principal point, y up;
- instrument angles: degrees, H the horizontal circle reading, V the zenith angle (90 level).

A failure raises Error carrying the library's trace line(s); a bad argument (shape, dtype, a value
that is not finite) raises TypeError or ValueError before the library runs.
"""
from typing import Optional, Sequence, Tuple, overload

import numpy as np
import numpy.typing as npt

__version__: str

ArrayLike = npt.ArrayLike
Floats = npt.NDArray[np.float64]
Ints = npt.NDArray[np.int32]
PathLike = str

class Error(RuntimeError):
    """A library operation failed; str(e) carries the library's trace line(s)."""

    lines: list[str]

def last_trace() -> list[str]:
    """The library's trace lines written during the last call into it, oldest first."""

def set_device_root(path: Optional[str]) -> None:
    """The folder under which device paths ('\\temp\\SDB.log') live; None: $KELSCAN_ROOT or the
    current folder."""

def device_root() -> str: ...

# ---- surfaces -----------------------------------------------------------------------------

class Tin:
    """A triangulated surface (x east, y north, z height); triangles counter-clockwise in plan;
    neighbour slot i lies across the edge from vertex (i + 2) % 3 to vertex i, -1 on the
    boundary."""

    def __init__(self) -> None: ...
    @staticmethod
    def build(points: ArrayLike, breaklines: Optional[Sequence[ArrayLike]] = None,
              angle: float = 0.0, name: str = "", eps: float = 1e-6,
              index_order: bool = False) -> "Tin":
        """Triangulates N x 3 points; break lines are K x 3 vertex chains forced in as edges;
        angle > 0 removes thin boundary triangles (degrees). Duplicates within eps skipped.
        Inserted in a spatial order, or in the given order with index_order (slower)."""
    @staticmethod
    def read(path: PathLike) -> list["Tin"]:
        """Every surface of a surface file (version 0, 1 or 2)."""
    @staticmethod
    def write_all(path: PathLike, tins: Sequence["Tin"], version: int = 2) -> None: ...
    def write(self, path: PathLike, version: int = 2) -> None: ...
    def export(self, path: Optional[PathLike] = None, format: str = "ply", name: str = "") -> Optional[str]:
        """'ply', 'obj', 'landxml' or 'svg'; returns the text when path is None."""
    name: str
    @property
    def eps(self) -> float: ...
    @property
    def points(self) -> Floats:
        """N x 3 vertices (a copy)."""
    @property
    def triangles(self) -> Ints:
        """T x 3 vertex indices."""
    @property
    def neighbours(self) -> Ints:
        """T x 3 neighbour triangles, -1 on the boundary."""
    @property
    def range(self) -> Floats:
        """2 x 3: lower and upper corner."""
    @property
    def plan_area(self) -> float: ...
    @property
    def slope_area(self) -> float: ...
    def height(self, xy: ArrayLike) -> Floats:
        """Heights at N x 2 positions; NaN outside."""
    def find_triangle(self, xy: ArrayLike) -> Ints:
        """Triangle of each N x 2 position; -1 outside."""
    def intersect(self, origins: ArrayLike, directions: ArrayLike) -> Tuple[Floats, Ints]:
        """First hits of N rays: (N x 3 points, NaN for a miss; N triangles, -1 for a miss)."""
    def __len__(self) -> int: ...

# ---- cameras and orientation --------------------------------------------------------------

class Camera:
    """A camera file (mm): focal length, principal point from the image's top-left corner, pixel
    size, and a lens model that corrects a measured photo point: ideal = measured + D(measured)."""

    @overload
    def __init__(self) -> None: ...
    @overload
    def __init__(self, focal: float, principal: ArrayLike, pixel_size: ArrayLike, model: int = 0,
                 parameters: Optional[ArrayLike] = None) -> None:
        """Focal length (mm), principal point (2, mm), pixel size (2, mm), model 0..4 and its
        parameters."""
    @staticmethod
    def read(path: PathLike) -> "Camera": ...
    def write(self, path: PathLike) -> None: ...
    @property
    def name(self) -> str: ...
    focal: float
    principal: Floats
    pixel_size: Floats
    @property
    def model(self) -> int:
        """0 none, 1 k1..k4, 2 k1 k2 p1 p2, 3 k1 k2 k3 p1 p2, 4 k1 k2 a1..a6."""
    @property
    def parameters(self) -> Floats: ...
    def set_distortion(self, model: int, parameters: ArrayLike) -> None: ...
    @property
    def fiducials(self) -> list[Tuple[str, float, float]]: ...
    @property
    def radial_table(self) -> Floats: ...
    def img_to_phc(self, pixels: ArrayLike) -> Floats:
        """N x 2 pixels to ideal photo points (mm, y up)."""
    def phc_to_img(self, photo_points: ArrayLike) -> Floats:
        """N x 2 ideal photo points (mm) to pixels; NaN where the inversion does not settle."""

class OpenCvCamera:
    """OpenCV's camera: matrix (pixels, centres at whole numbers), coefficients k1 k2 p1 p2 k3 k4 k5
    k6 s1 s2 s3 s4 tauX tauY, image size; its lens model distorts an ideal point, so conversions
    fit and report max_residual (pixels)."""

    def __init__(self) -> None: ...
    @staticmethod
    def read(path: PathLike) -> "OpenCvCamera": ...
    def write(self, path: PathLike) -> None: ...
    def format(self) -> str: ...
    @staticmethod
    def from_camera(camera: Camera, image_size: Optional[Tuple[int, int]] = None,
                    coefficients: int = 8) -> "OpenCvCamera": ...
    def to_camera(self, pixel_size: ArrayLike, model: Optional[int] = None) -> Camera: ...
    @property
    def default_model(self) -> int: ...
    matrix: Floats
    coefficients: Floats
    image_size: Tuple[int, int]
    @property
    def max_residual(self) -> float: ...
    @property
    def rms_residual(self) -> float: ...
    @property
    def grid_points(self) -> int: ...
    def distort(self, points: ArrayLike) -> Floats: ...
    def undistort(self, points: ArrayLike) -> Floats: ...
    @staticmethod
    def pose_to_opencv(rotation: ArrayLike, centre: ArrayLike) -> Tuple[Floats, Floats]:
        """kelscan's pose (camera = R (P - C), looking along -z) as OpenCV's (Rcv, t)."""

def export_opencv(camera: PathLike, output: PathLike, image_size: Optional[Tuple[int, int]] = None,
                  coefficients: int = 8) -> OpenCvCamera:
    """kelscan camera export-opencv."""

def import_opencv(input: PathLike, pixel_size: ArrayLike, model: Optional[int] = None,
                  output: Optional[PathLike] = None) -> Tuple[Camera, OpenCvCamera]:
    """kelscan camera import-opencv."""

class Orientation:
    """orient()'s result: camera = R (P - centre), looking along -z; R = Rx(omega) Ry(phi) Rz(kappa)."""

    method: str
    variant: str
    pairs: int
    iterations: int
    centre: Floats
    angles: Floats
    rotation: Floats
    sigma: Optional[Floats]
    focal: float
    focal_xy: Optional[Floats]
    principal_point: Optional[Floats]
    b: Optional[Floats]
    distortion_model: int
    distortion: Floats
    names: list[str]
    residuals: Floats
    rms: Floats

def orient(object_points: ArrayLike, photo_points: ArrayLike, method: str = "dlt",
           focal: float = 0.0, principal: ArrayLike = (0.0, 0.0),
           names: Optional[Sequence[str]] = None) -> Orientation:
    """dlt, dlt2d, dlt3d, dlt-iterative, selfcal-k1k2k3k4, selfcal-k1k2p1p2, selfcal-k1k2k3p1p2,
    resection, resection-multistart; rows of N x 3 object and N x 2 photo points (mm) pair up."""

class OrientedCamera:
    """An oriented camera over a surface; object points, centre and surface share one frame."""

    def __init__(self, camera: Camera, focal: float, centre: ArrayLike, rotation: ArrayLike) -> None: ...
    def set_surface(self, tin: Tin) -> None: ...
    def obj_to_phc(self, points: ArrayLike) -> Floats: ...
    def obj_to_img(self, points: ArrayLike) -> Floats: ...
    def phc_to_xyz(self, photo_points: ArrayLike) -> Floats: ...
    @property
    def focal(self) -> float: ...
    @property
    def centre(self) -> Floats: ...
    @property
    def rotation(self) -> Floats: ...

# ---- planners -----------------------------------------------------------------------------

class ScanPlan:
    """Angular box, spacing and region (K x 2, mapped onto the box) of both planners."""

    def set_box(self, start: ArrayLike, end: ArrayLike, dms: bool = False) -> None:
        """start, end: (V, H) degrees (packed DDD.MMSS with dms)."""
    region: Optional[Floats]
    @property
    def box(self) -> Tuple[float, float, float, float]: ...
    @property
    def spacing(self) -> Tuple[float, float]: ...

class FineScan(ScanPlan):
    def __init__(self, start: Optional[ArrayLike] = None, end: Optional[ArrayLike] = None,
                 spacing: Optional[ArrayLike] = None, region: Optional[ArrayLike] = None,
                 dms: bool = False) -> None: ...
    def set_spacing(self, dv: float, dh: float, dms: bool = False) -> None: ...
    def plan(self, exact: bool = True) -> int: ...
    @property
    def count(self) -> int: ...
    @property
    def targets(self) -> Floats:
        """N x 2: H, V degrees in measuring order."""
    def time(self, resume: bool = False) -> int:
        """Seconds."""

class TrackScan(ScanPlan):
    def __init__(self, start: Optional[ArrayLike] = None, end: Optional[ArrayLike] = None,
                 spacing: Optional[ArrayLike] = None, speed: int = 1,
                 region: Optional[ArrayLike] = None, dms: bool = False) -> None: ...
    def set_spacing(self, dv: float, dh: float, speed: int, dms: bool = False) -> None: ...
    def plan(self, exact: bool = True) -> int: ...
    @property
    def count(self) -> int: ...
    @property
    def lines(self) -> Floats:
        """L x 3: V, start H, end H degrees."""
    @property
    def speed(self) -> int: ...
    def time(self, quorin: bool = False) -> int:
        """Seconds; also sets total_points."""
    @property
    def total_points(self) -> int: ...
    def rate(self, quorin: bool = False) -> float:
        """Degrees per second of the speed setting."""

# ---- scan files ---------------------------------------------------------------------------

SDB_DTYPE: np.dtype
"""record i4, deleted ?, name U31, north f8, east f8, height f8, code U31, value i4, text1 U63,
text2 U63 (metres, surveying frame)."""

def read_sdb(path: PathLike) -> Tuple[np.ndarray, Tuple[int, int]]:
    """(records of SDB_DTYPE, header values)."""

def write_sdb(path: PathLike, records: np.ndarray, header: Tuple[int, int] = (0, 0)) -> int:
    """Replaces the database safely; returns the record count."""

class ScanLogStatus:
    state: str
    database: str
    value: int
    text: str
    date_code: int
    time_code: int
    last_point: np.ndarray

def log_status(path: Optional[PathLike] = None) -> ScanLogStatus:
    """A scan recovery log (default '\\temp\\SDB.log' under the device root), read unchanged."""

# ---- photographs --------------------------------------------------------------------------

def load_photo(path: PathLike, rate: Optional[int] = None) -> Tuple[npt.NDArray[np.uint8], int]:
    """(H x W x 3 RGB pixels, rate): rate 1, 2, 4 or 8, or None for the image view's choice."""

# ---- the scan project ---------------------------------------------------------------------

class ScanProject:
    """Pixel -> photo mm -> ray -> surface point -> H, V from the station (surveying frame)."""

    def __init__(self, camera: Optional[Camera] = None) -> None: ...
    camera: Camera
    def set_surface(self, points: ArrayLike) -> None: ...
    def orient(self, pixels: ArrayLike, control: ArrayLike, names: Optional[Sequence[str]] = None) -> None: ...
    @property
    def ready(self) -> bool: ...
    def set_station(self, station: ArrayLike, height: float = 0.0, backsight_azimuth: float = -180.0,
                    backsight_reading: float = -180.0) -> None: ...
    def img_to_xyz(self, pixels: ArrayLike) -> Floats: ...
    def img_to_hv(self, pixels: ArrayLike) -> Floats: ...
    def hv_to_xyz(self, hv: ArrayLike) -> Floats: ...
    def hv_to_img(self, hv: ArrayLike) -> Floats: ...
    densify: bool
    def region_to_hv(self, region: ArrayLike) -> Floats: ...
    def compute_incline_grid(self, region: ArrayLike, spacing: float, planner: ScanPlan) -> None: ...
    def no_img_to_img(self, planner: ScanPlan) -> Floats: ...
