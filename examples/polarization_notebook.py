# %% [markdown]
# # From a raw frame to pictures
#
# Run it as a script, or cell by cell in an editor that knows the percent format. It simulates a
# camera with imperfect analysers, calibrates it, processes a frame of a scene and plots the result.
# With real frames, leave out what is simulated.
#
# usage: polarization_notebook.py [FOLDER]     pictures go to FOLDER, by default the present one

# %%
import sys
from pathlib import Path

import matplotlib.pyplot as plt
import numpy as np

import veldrane_polarization as vp
from veldrane_polarization import colours
from veldrane_polarization.datasets import to_dataset

LAYOUT = (90, 45, 135, 0)
BIT_DEPTH = 12
folder = Path(sys.argv[1] if len(sys.argv) > 1 else ".")
folder.mkdir(parents=True, exist_ok=True)

# %% [markdown]
# ## Simulate
# The camera, a series through a polariser that turns, and a frame of a glossy ball under a clear sky.

# %%
camera = vp.imperfect_sensor(LAYOUT, seed=4)
angles = np.arange(0, 180, 15)
series = [
    vp.simulate(
        240, 320, layout=LAYOUT, bit_depth=BIT_DEPTH, sensor=camera, polariser_angle=angle
    ).frames[0]
    for angle in angles
]
scene = vp.simulate(480, 640, layout=LAYOUT, bit_depth=BIT_DEPTH, sensor=camera)
frame = scene.frames[0]
print(vp.inspect(frame))

# %% [markdown]
# ## Calibrate

# %%
calibration = vp.calibrate(
    series, angles, layout=LAYOUT, bit_depth=BIT_DEPTH, dark_levels=[0, 0, 0, 0], sensor="simulated"
)
calibration.save(folder / "camera.json", overwrite=True)
for found, true in zip(calibration.analysers, camera.analysers):
    print(
        f"orientation {found.orientation:6.2f} (true {true.orientation:6.2f}), "
        f"diattenuation {found.diattenuation:.3f} ({true.diattenuation:.3f})"
    )

# %% [markdown]
# ## Process
# Once by the ideal weights, once by those of the calibration.

# %%
options = {"bit_depth": BIT_DEPTH, "planes": ("s0", "azimuth", "dolp")}
plain = vp.process(frame, layout=LAYOUT, mode="calibrated", **options)
mended = vp.process(frame, calibration=calibration, **options)
errors = {
    name: np.abs(result.degree() - scene.degree)
    for name, result in (("ideal weights", plain), ("calibrated", mended))
}
for name, error in errors.items():
    print(f"{name}: median error of the degree {np.nanmedian(error):.4f}")
print(to_dataset(mended, unit="degrees"))

# %% [markdown]
# ## Plot

# %%
figure, axes = plt.subplots(2, 2, figsize=(11, 8.4), layout="constrained")
(top_left, top_right), (bottom_left, bottom_right) = axes
shown = top_left.imshow(mended.stokes("s0"), cmap="gray")
top_left.set_title("total intensity S0 (sample units)")
figure.colorbar(shown, ax=top_left, shrink=0.8)
shown = top_right.imshow(mended.degree(), cmap=colours.degree_colours(), vmin=0, vmax=1)
top_right.set_title("degree of linear polarisation")
figure.colorbar(shown, ax=top_right, shrink=0.8)
bottom_left.imshow(colours.picture(mended))
colours.add_angle_legend(bottom_left)
bottom_left.set_title("angle as hue, dimmed by the degree")
for name, error in errors.items():
    bottom_right.hist(
        error[np.isfinite(error)], np.linspace(0, 0.1, 101), histtype="step", label=name
    )
bottom_right.set(title="error of the degree", xlabel="|measured - true|", ylabel="pixels")
bottom_right.legend()
for plot in (top_left, top_right, bottom_left):
    plot.set_axis_off()
figure.savefig(folder / "polarization.png", dpi=110)
