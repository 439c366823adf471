"""Files of calibrations with maps, made without the program."""

from __future__ import annotations

import json
import re

import numpy as np

import veldrane_polarization as vp

WIDTH, HEIGHT = 48, 24


def maps_of(model, layout):
    random = np.random.default_rng(11)

    def near(value, spread=0.05):
        return random.uniform(value - spread, value + spread, (HEIGHT, WIDTH)).astype(np.float32)

    orientations = np.tile(np.array(layout).reshape(2, 2), (HEIGHT // 2, WIDTH // 2))
    all_maps = {
        "dark_level": near(20, 3),
        "gain": near(1),
        "throughput": near(1),
        "diattenuation": near(0.9),
        "orientation": np.mod(orientations + near(0, 1), 180).astype(np.float32),
    }
    names = ["dark_level", "gain"]
    if model == "pixel":
        names = ["dark_level", "throughput", "diattenuation", "orientation"]
    return {name: all_maps[name] for name in names}


def saved_calibration(folder, model, bit_depth=10):
    """The name of a file sensor.json. The refusal of a wrong hash tells the right one."""
    sensor = vp.imperfect_sensor(2, seed=3)
    maps = maps_of(model, sensor.layout)
    text = json.loads(sensor.to_json())
    text["schema"]["version"] = 3
    text["model"] = model
    text["noise"] = {"electrons_per_count": 2.5, "read_noise_electrons": 7.0}
    text["quality"] |= {"models": [], "held_out_frame": ""}
    text["maps"] = {
        "file": "sensor.npy",
        "version": 1,
        "hash": "xxh3-64:" + 16 * "0",
        "sensor": {"width": WIDTH, "height": HEIGHT},
        "region": {"column": 0, "row": 0, "width": WIDTH, "height": HEIGHT},
        "bit_depth": bit_depth,
        "planes": list(maps),
        "bad_pixels": [3, 70],
    }
    np.save(folder / "sensor.npy", np.stack(list(maps.values())))
    file = folder / "sensor.json"
    file.write_text(json.dumps(text))
    try:
        vp.Calibration.load(file)
    except ValueError as error:
        (found,) = re.findall("the hash of its bytes is ([0-9a-f]{16}),", str(error))
        text["maps"]["hash"] = "xxh3-64:" + found
    file.write_text(json.dumps(text))
    return file
