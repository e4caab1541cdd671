# %% [markdown]
# # From an MTZ file to a figure of a ligand's density
#
# Map coefficients of a refined structure become two maps, and the plane that the ligand lies in becomes a figure: 2mFo-DFc in
# blue, mFo-DFc in green (above) and red (below), atoms as dots. Here the file is the shipped example, calculated from coordinates
# of ubiquitin, which has no ligand: a histidine stands in for one. Give files and a selection of your own below.

# %%
import os

import matplotlib.pyplot as plt
import numpy as np
import quorix as qx

folder = os.environ.get('EXAMPLE_FOLDER', '.')
MTZ = os.environ.get('EXAMPLE_MTZ', os.path.join(folder, '1ubq.mtz'))
MODEL = os.environ.get('EXAMPLE_MODEL', os.path.join(folder, '1ubq.pdb'))
LIGAND = os.environ.get('EXAMPLE_LIGAND', '(HIS)')  # in gemmi's selection language: '(FOL)' is a residue's name

# %% [markdown]
# ## The data
# What maps can be made of stands in `pairs`; those that `map()` takes by itself are marked.

# %%
data = qx.read(MTZ)
print(data)
for pair in data.pairs:
    print('*' if pair.default else ' ', pair.amplitude, pair.phase, pair.kind)

# %% [markdown]
# ## Two maps, and the density at the ligand's atoms
# `at` gives the density at the atoms; divided by `rms` it is in the units that one contours in.

# %%
density = data.map()
difference = data.map(difference=True)
print(density)
atoms = qx.positions(MODEL, LIGAND)
heights = density.at(atoms) / density.rms
print(f'{len(atoms)} atoms, density {heights.mean():.1f} rms on average, {heights.min():.1f} at the weakest')

# %% [markdown]
# ## The plane of the ligand
# The two directions in which the atoms spread most span it; through its depth the highest density counts.

# %%
centre = atoms.mean(axis=0)
directions = np.linalg.svd(atoms - centre)[2]
across, through = directions[:2], directions[2]
places = (atoms - centre) @ across.T
depth = np.abs((atoms - centre) @ through).max()
reach = np.abs(places).max() + 3.0
steps = np.linspace(-reach, reach, 160)
u, v = np.meshgrid(steps, steps)
points = centre + u[..., None] * across[0] + v[..., None] * across[1]
layers = [points + w * through for w in np.arange(-depth, depth + 0.25, 0.5)]
highest = np.max([density.at(layer) for layer in layers], axis=0) / density.rms

# %%
figure, axes = plt.subplots(figsize=(6, 6))
axes.contourf(u, v, np.minimum(highest, 5), levels=[1, 1.5, 2, 3, 4, 5], cmap='Blues', extend='max')
for levels, colour in (([3, 4, 5], 'green'), ([-5, -4, -3], 'red')):
    axes.contour(u, v, difference.at(points) / difference.rms, levels=levels, colors=colour, linewidths=1)
axes.plot(places[:, 0], places[:, 1], 'o', color='black', markersize=4)
axes.set_xlabel('A')
axes.set_ylabel('A')
axes.set_aspect('equal')
axes.set_title(f'{LIGAND}: 2mFo-DFc from 1 rms, mFo-DFc at 3 rms')
figure.savefig(os.environ.get('EXAMPLE_FIGURE', 'ligand_density.png'), dpi=150)

# %% [markdown]
# ## The same for a viewer
# A box about the ligand, as a CCP4 map of a few hundred kilobytes.

# %%
box = density.around(MODEL, LIGAND, cushion=5)
box.write(os.environ.get('EXAMPLE_BOX', 'ligand_density.ccp4'))
print(box)
