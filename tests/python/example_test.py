"""The example runs as a script and says and draws what it should."""

from __future__ import annotations

import re
import subprocess
import sys
from pathlib import Path

import numpy as np
from PIL import Image

EXAMPLE = Path(__file__).parents[2] / "examples" / "polarization_notebook.py"


def test_the_example_runs_and_calibration_helps(tmp_path):
    done = subprocess.run([sys.executable, "-B", EXAMPLE, tmp_path], capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    errors = dict(re.findall(r"(.+): median error of the degree ([\d.]+)", done.stdout))
    assert float(errors["calibrated"]) < 0.7 * float(errors["ideal weights"]), errors
    assert (tmp_path / "camera.json").exists()
    picture = np.asarray(Image.open(tmp_path / "polarization.png").convert("RGB"))
    assert picture.shape[:2] == (924, 1210)
    assert len(np.unique(picture.reshape(-1, 3), axis=0)) > 5000
    print(errors)
