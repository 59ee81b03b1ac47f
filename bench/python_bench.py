"""rytri.triangulate from Python against the same buildSurface call from C++ (the binding's
overhead) and against scipy.spatial.Delaunay, on the same uniform points, in one run.

Run by hand after a Release build (the machine may be shared: the three are alternated round by
round and medians are quoted):

    PYTHONPATH=build/release/python /usr/bin/python3 bench/python_bench.py \
        [--points 1000000] [--rounds 5] [--timing build/release/bench/surface_timing]

Each round times one Python call (after a warm-up call) and one C++ call (the second of two in a
fresh process, so that both sides run with a warmed allocator), in alternating order, then one
scipy call (--no-scipy leaves it out).
"""
import argparse
import os
import statistics
import subprocess
import tempfile
import time

import numpy as np
import rytri
from scipy.spatial import Delaunay


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--points", type=int, default=1_000_000)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--timing", default="build/release/bench/surface_timing")
    parser.add_argument("--no-scipy", action="store_true")
    args = parser.parse_args()

    rng = np.random.default_rng(2024)
    points = np.column_stack([rng.uniform(0, 1000, (args.points, 2)), rng.uniform(0, 50, args.points)])
    times = {"python": [], "c++": [], "scipy": []}
    with tempfile.TemporaryDirectory() as scratch:
        path = os.path.join(scratch, "points.f64")
        points.tofile(path)
        expected = len(rytri.triangulate(points).triangles)  # warm-up
        for round_ in range(args.rounds):
            # Which of the two goes first alternates from round to round.
            for side in ("python", "c++") if round_ % 2 == 0 else ("c++", "python"):
                if side == "python":
                    start = time.perf_counter()
                    result = rytri.triangulate(points)
                    times["python"].append(time.perf_counter() - start)
                    assert len(result.triangles) == expected
                    del result
                else:
                    out = subprocess.run([args.timing, path, "2"], check=True,
                                         capture_output=True, text=True)
                    seconds, triangles = out.stdout.split("\n")[1].split()
                    assert int(triangles) == expected
                    times["c++"].append(float(seconds))
            if not args.no_scipy:
                start = time.perf_counter()
                simplices = Delaunay(points[:, :2]).simplices
                times["scipy"].append(time.perf_counter() - start)
                assert len(simplices) == expected
                del simplices
            print(f"round {round_ + 1}: " +
                  ", ".join(f"{k} {v[-1]:.3f} s" for k, v in times.items() if v), flush=True)

    median = {k: statistics.median(v) for k, v in times.items() if v}
    print(f"{args.points} uniform points, {args.rounds} rounds, {expected} triangles; medians:")
    for k, v in median.items():
        print(f"  {k:7s} {v:.3f} s")
    pairs = [p / c for p, c in zip(times["python"], times["c++"])]
    print(f"python / c++ = {median['python'] / median['c++']:.3f} "
          f"(median of the rounds' ratios {statistics.median(pairs):.3f})")
    if "scipy" in median:
        print(f"scipy / python = {median['scipy'] / median['python']:.1f}")

if __name__ == "__main__":
    main()
