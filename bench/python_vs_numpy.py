"""The Python module's array call against the same expressions written in
numpy (np.where for the shaped functions), 10^6 points, one thread unless
told otherwise (numpy uses one).

    PYTHONPATH=build/python /usr/bin/python3 bench/python_vs_numpy.py [points [threads]]

Prints milliseconds per call (least of several runs) and vexa / numpy.
"""
import math
import sys
import time

import numpy as np

import vexa


def step(x, x0, h0, x1, h1):
    a = (x - x0) / (x1 - x0)
    return np.where(x <= x0, h0, np.where(x >= x1, h1, (3 - 2 * a) * (h1 - h0) * a * a + h0))


def step5(x, x0, h0, x1, h1):
    a = (x - x0) / (x1 - x0)
    return np.where(x <= x0, h0, np.where(x >= x1, h1, ((6 * a) * a + (10 - 15 * a)) * (h1 - h0) * a * a * a + h0))


def havsin(x, x0, h0, x1, h1):
    a = (x - x0) / (x1 - x0)
    ramp = ((h1 + h0) + (h1 - h0) * np.sin(np.pi * a - np.pi / 2)) * 0.5
    return np.where(x <= x0, h0, np.where(x >= x1, h1, ramp))


def impact(x, v, x1, k, e, cmax, d):
    inside = x < x1
    f = k * np.power(np.where(inside, x1 - x, 0.0), e) - step(x, x1 - d, cmax, x1, 0) * v
    return np.where(inside & (f > 0), f, 0.0)


rng = np.random.default_rng(1)
RANGES = {"TIME": (0, 3), "AMP": (0.5, 2), "FREQ": (0.5, 5), "OMEGA": (3, 30), "STIFF": (1000, 5000),
          "DAMP": (10, 50), "DISP": (-0.02, 0.02), "PRELOAD": (-0.005, 0.005), "VEL": (-2, 2),
          "MU": (0.1, 0.4), "NORMAL": (50, 500), "{DIST}": (-0.03, 0.03), "{RATE}": (-2, 2)}

CASES = [
    ("STEP(TIME, 0, 0, 1, 10)*SIN(2*PI*TIME)",
     lambda p: step(p["TIME"], 0, 0, 1, 10) * np.sin(2 * np.pi * p["TIME"])),
    ("STEP5(TIME, 0.5, 0, 1.5, 90D)", lambda p: step5(p["TIME"], 0.5, 0, 1.5, math.pi / 2)),
    ("HAVSIN(TIME, 0, 0, 0.8, AMP)", lambda p: havsin(p["TIME"], 0, 0, 0.8, p["AMP"])),
    ("STEP(TIME, 0, 0, 0.5, 1)*STEP(TIME, 2.5, 1, 3, 0)*AMP*SIN(OMEGA*TIME)",
     lambda p: step(p["TIME"], 0, 0, 0.5, 1) * step(p["TIME"], 2.5, 1, 3, 0) * p["AMP"]
     * np.sin(p["OMEGA"] * p["TIME"])),
    ("IF(TIME-1: 0, 0, 30D*SIN(2*PI*FREQ*(TIME-1)))",
     lambda p: np.where(p["TIME"] - 1 > 0, math.radians(30) * np.sin(2 * np.pi * p["FREQ"] * (p["TIME"] - 1)), 0.0)),
    ("IMPACT({DIST}, {RATE}, 0, 1E5, 1.5, 100, 0.001)",
     lambda p: impact(p["{DIST}"], p["{RATE}"], 0, 1e5, 1.5, 100, 0.001)),
    ("-STIFF*(DISP-PRELOAD)-DAMP*VEL",
     lambda p: -p["STIFF"] * (p["DISP"] - p["PRELOAD"]) - p["DAMP"] * p["VEL"]),
    ("-SIGN(1, VEL)*MU*NORMAL*STEP(ABS(VEL), 0, 0, 0.01, 1)",
     lambda p: -np.where(p["VEL"] > 0, 1.0, -1.0) * p["MU"] * p["NORMAL"] * step(np.abs(p["VEL"]), 0, 0, 0.01, 1)),
    ("MAX(0, ABS(DISP) - 0.005)^1.5*STIFF*SIGN(1, DISP)",
     lambda p: np.maximum(0, np.abs(p["DISP"]) - 0.005) ** 1.5 * p["STIFF"] * np.where(p["DISP"] > 0, 1.0, -1.0)),
]


def least(f, runs=7):
    best = math.inf
    for _ in range(runs):
        start = time.perf_counter()
        f()
        best = min(best, time.perf_counter() - start)
    return best


def main():
    n = int(sys.argv[1]) if len(sys.argv) > 1 else 10**6
    threads = int(sys.argv[2]) if len(sys.argv) > 2 else 1
    print(f"{n} points, vexa on {threads} thread(s), least of 7 runs, milliseconds per call")
    print(f"{'expression':<72} {'vexa':>7} {'numpy':>7} {'ratio':>6}")
    ratios = []
    for text, numpy_form in CASES:
        e = vexa.Expression(text, threads=threads)
        values = {name: rng.uniform(*RANGES[name], n) for name in e.params}
        got, want = e(**values), numpy_form(values)
        if not np.allclose(got, want, rtol=1e-12, atol=1e-12):
            raise SystemExit(f"{text}: vexa and numpy disagree")
        t_vexa = least(lambda: e(**values))
        t_numpy = least(lambda: numpy_form(values))
        ratios.append(t_vexa / t_numpy)
        print(f"{text[:72]:<72} {1e3 * t_vexa:7.2f} {1e3 * t_numpy:7.2f} {ratios[-1]:6.2f}")
    print(f"geometric mean of vexa / numpy: {math.exp(sum(map(math.log, ratios)) / len(ratios)):.2f}")


if __name__ == "__main__":
    main()
