"""Triangulates a generated terrain with rytri and draws it with matplotlib.

    PYTHONPATH=build/release/python /usr/bin/python3 python/examples/terrain.py terrain.png

Scattered survey points on two hills and a valley, an irregular site boundary, a pond cut out as
a hole, and a road kept as a breakline; the picture shows the kept triangles coloured by height
(left) and the surface in 3-D (right).
"""
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np
import rytri
from matplotlib.collections import LineCollection
from matplotlib.tri import Triangulation


def terrain(x, y):
    hills = 40 * np.exp(-((x - 300) ** 2 + (y - 650) ** 2) / 4e4)
    hills += 25 * np.exp(-((x - 720) ** 2 + (y - 300) ** 2) / 6e4)
    return 100 + hills + 0.02 * x - 8 * np.cos(y / 90)


def ring(cx, cy, radius, wobble, count, seed):
    """A closed, irregular ring of `count` vertices around (cx, cy)."""
    angle = np.linspace(0, 2 * np.pi, count, endpoint=False)
    r = radius * (1 + wobble * np.random.default_rng(seed).uniform(-1, 1, count))
    return np.column_stack([cx + r * np.cos(angle), cy + r * np.sin(angle)])


def main(out):
    rng = np.random.default_rng(7)
    xy = rng.uniform(0, 1000, (2500, 2))
    points = np.column_stack([xy, terrain(xy[:, 0], xy[:, 1])])
    site = ring(500, 500, 440, 0.08, 40, 1)
    pond = ring(560, 560, 90, 0.15, 24, 2)
    road = np.column_stack([np.linspace(80, 920, 30), 250 + 120 * np.sin(np.linspace(0, 3, 30))])
    # The rings and the road carry no heights: they take the surface's heights where they run.
    s = rytri.triangulate(points, boundaries=[site], holes=[pond], breaklines=[road])
    print(f"{len(s.vertices)} vertices, {len(s.triangles)} triangles kept of {s.all_triangles}, "
          f"kept area {s.kept_area:.0f}")
    v = s.volumes(110)  # against a level of 110; contour lines every 5
    print(f"{len(s.contours(interval=5))} contour lines; cut {v.cut:.0f}, fill {v.fill:.0f}")

    x, y, z = s.vertices.T
    mesh = Triangulation(x, y, s.triangles)
    fig = plt.figure(figsize=(12, 5.6), dpi=80)
    ax = fig.add_subplot(1, 2, 1)
    shaded = ax.tripcolor(mesh, z, shading="gouraud", cmap="terrain")
    ax.triplot(mesh, color="k", linewidth=0.15, alpha=0.5)
    colours = {rytri.BOUNDARY: "black", rytri.HOLE: "tab:blue", rytri.BREAKLINE: "tab:red"}
    segments = s.vertices[s.constraint_edges, :2]
    ax.add_collection(LineCollection(segments, linewidths=1.6,
                                     colors=[colours[r] for r in s.constraint_roles]))
    ax.set_aspect("equal")
    ax.set_title("boundary (black), pond (blue), road (red)")
    fig.colorbar(shaded, ax=ax, shrink=0.8, label="height")
    ax3 = fig.add_subplot(1, 2, 2, projection="3d")
    ax3.plot_trisurf(mesh, z, cmap="terrain", linewidth=0.1, edgecolor=(0, 0, 0, 0.2))
    ax3.view_init(elev=50, azim=-110)
    ax3.set_box_aspect((1, 1, 0.3))
    ax3.set_title("the surface in 3-D")
    fig.suptitle("rytri.triangulate: 2500 points, a boundary, a hole and a breakline")
    fig.tight_layout()
    fig.savefig(out)
    print("wrote", out)


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else "terrain.png")
