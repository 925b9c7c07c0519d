"""Photographs: the sample photo as an H x W x 3 array of red, green, blue at a chosen rate.

    PYTHONPATH=build/default/python python3 python/examples/photo.py [DATA_DIR]
"""
import kelscan
from sample_data import data_dir

photo = str(data_dir() / "photo.jpg")
full, rate = kelscan.load_photo(photo, rate=1)
print(f"full resolution: {full.shape}, {full.dtype}, mean colour {full.reshape(-1, 3).mean(0).round(1)}")
half, rate = kelscan.load_photo(photo, rate=2)  # decoded at 1/2 in the JPEG's own DCT
print(f"rate {rate}: {half.shape}; loaded pixel (x, y) is full-resolution pixel (x, y) * {rate}")
shown, rate = kelscan.load_photo(photo)  # the rate the image view would choose for its size
print(f"the view's choice: rate {rate}, {shown.shape}")
