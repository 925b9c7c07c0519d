import numpy as np
import pytest

import kelscan


def test_photos_equal_what_the_program_writes(data, cli, tmp_path):
    """A JPEG loaded here at each rate has the pixels of the program's BMP and PNG of it."""
    for rate in (1, 2, 4, 8):
        cli("image", "convert", data / "photo.jpg", "-o", tmp_path / f"r{rate}.bmp", "--scale", rate)
        cli("image", "convert", data / "photo.jpg", "-o", tmp_path / f"r{rate}.png", "--scale", rate)
        pixels, got = kelscan.load_photo(str(data / "photo.jpg"), rate=rate)
        assert got == rate and pixels.shape == (240 // rate, 320 // rate, 3) and pixels.dtype == np.uint8
        bmp, one = kelscan.load_photo(str(tmp_path / f"r{rate}.bmp"))
        png, _ = kelscan.load_photo(str(tmp_path / f"r{rate}.png"), rate=1)
        assert one == 1
        np.testing.assert_array_equal(bmp, pixels)
        np.testing.assert_array_equal(png, pixels)
    # Red, green, blue order: the sample photo is a blue sky over grey-green ground.
    assert pixels[0, :, 2].mean() > pixels[0, :, 0].mean()


def test_bad_requests():
    with pytest.raises(ValueError, match="rate"):
        kelscan.load_photo("x.jpg", rate=3)
    with pytest.raises(kelscan.Error, match="not a photo"):
        kelscan.load_photo("x.txt")
    with pytest.raises(kelscan.Error, match="rate it cannot take"):
        kelscan.load_photo("x.bmp", rate=2)
