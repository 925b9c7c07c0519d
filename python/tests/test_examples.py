"""Every worked example runs (they are the Python documentation, linked from the README)."""
import os
import subprocess
import sys

import pytest

from conftest import DATA, EXAMPLES

SCRIPTS = sorted(p for p in EXAMPLES.glob("*.py") if p.name != "sample_data.py")


@pytest.mark.parametrize("script", SCRIPTS, ids=[p.stem for p in SCRIPTS])
def test_example_runs(script):
    env = dict(os.environ, KELSCAN_DATA=str(DATA))
    done = subprocess.run([sys.executable, str(script)], capture_output=True, text=True, env=env)
    assert done.returncode == 0, done.stderr
    assert done.stdout.strip()
