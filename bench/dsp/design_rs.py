#!/usr/bin/env python3
"""Designs the filters of the fixed-ratio resamplers and prints their integer coefficients.

Each filter is the minimax solution of a linear programme, rounded; the gain at 0 Hz stays exactly one.
Where rounding would cost decibels (down), the coefficients are rounded one after the other, largest
first, the rest being solved again each time with a few candidates kept, so that the later ones take
back what the earlier ones lost. `low` is the lower of the two rates. Needs numpy and scipy.
"""
import numpy as np
from scipy.optimize import linprog


def best_rest(S, T, gain, c, free, total):
    """Minimax values of the free coefficients, the others being fixed in c."""
    fixed = [i for i in range(len(c)) if i not in free]
    r = T - S[:, fixed] @ c[fixed]
    A, n = S[:, free], len(free)
    one = -np.ones((len(r), 1))
    s = linprog(np.r_[np.zeros(n), 1], A_ub=np.r_[np.c_[A, one], np.c_[-A, one]], b_ub=np.r_[r, -r],
                A_eq=[np.r_[gain[free], 0]], b_eq=[total - gain[fixed] @ c[fixed]],
                bounds=[(None, None)] * (n + 1), method="highs")
    return s.x[:n]


def integers(C, W, D, gain, q, order, keep):
    """The integer coefficients nearest to the minimax solution, and their largest weighted error."""
    S, T, n = C * W[:, None] / 2**q, W * D, C.shape[1]
    free = list(range(n))
    kept = [(0, np.zeros(n), best_rest(S, T, gain, np.zeros(n), free, 2**q))]
    for i in order[:-1]:
        at, rest, found = free.index(i), [f for f in free if f != i], []
        for _, c, x in kept:
            for v in (np.floor(x[at]), np.floor(x[at]) + 1):
                d = c.copy()
                d[i] = v
                y = best_rest(S, T, gain, d, rest, 2**q)
                found.append((np.max(abs(S[:, rest] @ y + S @ d - T)), d, y))
        kept, free = sorted(found, key=lambda t: t[0])[:keep], rest
    done = []
    for _, c, x in kept:
        c[free[0]] = round(x[0])
        done.append((np.max(abs(S @ c - T)), [int(v) for v in c]))
    return min(done)


def show(name, q, error, c):
    print(f"{name}: Q{q}, error {20 * np.log10(error):.1f} dB\n    {', '.join(map(str, c))}")


def half_band(name, k, edge, q, keep, points):
    """Half-sample interpolator with 2k taps, centre outwards; edge in units of its input's half rate."""
    w = np.linspace(0, edge * np.pi, points)
    C = 2 * np.cos(np.outer(w, np.arange(k) + .5))
    orders = list(range(k)), list(range(k))[::-1]
    e, c = min(integers(C, np.ones(points), np.ones(points), 2 * np.ones(k), q, o, keep) for o in orders)
    show(name, q, e / 2, c)


def decimate3(name, taps, q, keep):
    """Low-pass before every third sample is kept: centre coefficient, then outwards."""
    m = (taps - 1) // 2
    w = np.r_[np.linspace(0, .5 / 3 * np.pi, 100), np.linspace(1.45 / 3 * np.pi, 2.55 / 3 * np.pi, 220)]
    pas = np.arange(320) < 100
    C = np.c_[np.ones(320), 2 * np.cos(np.outer(w, np.arange(1, m + 1)))]
    gain = np.r_[1, 2 * np.ones(m)]
    order = list(range(m, 0, -1)) + [0]
    show(name, q, *integers(C, np.where(pas, .4, 1), pas * 1., gain, q, order, keep))


def to_gain(x, total):
    """Rounded; the coefficients that rounding changed most make up for what the sum lacks."""
    c = np.round(x).astype(int)
    miss = int(total - c.sum())
    c[np.argsort(-(x - c) * np.sign(miss))[:abs(miss)]] += np.sign(miss)
    return c


def fraction(name, k, delay, q, half=None, points=260):
    """
    Interpolator at a fraction of a sample with 2k taps; twice as exact to 0.39 low as from there to 0.45.
    From there to 0.5 low the other fractions follow the gain that the half one has, or else the phases would
    disagree and what lies there would come back around 1.5 and 2.5 low.
    """
    w = np.linspace(0, .9 * np.pi, points)
    W = np.where(w <= .78 * np.pi, 2, 1)
    T = np.ones(points, complex)
    if half is not None:
        soft = np.linspace(.9 * np.pi, np.pi, 40)[1:]
        gain = (1 + 2 * np.cos(np.outer(soft, np.arange(k) + .5)) @ half / 2**q) / 2
        w, W = np.r_[w, soft], np.r_[W, np.full(39, .3)]
        T = np.r_[T, gain + (1 - gain) * np.exp(-2j * np.pi * delay)]   # the input and its image about low
    C = np.exp(1j * np.outer(w, np.arange(1 - k, k + 1) - delay))
    turns = np.exp(-1j * np.pi * np.arange(8) / 8)          # |z| from its projections
    S = np.vstack([(C * t).real for t in turns]) * np.tile(W, 8)[:, None]
    D = np.concatenate([W * (T * t).real for t in turns])
    x = best_rest(S, D, np.ones(2 * k), np.zeros(2 * k), list(range(2 * k)), 1) * 2**q
    if half is None:
        kept = to_gain((x[k:] + x[k - 1::-1]) / 2, 2**(q - 1))
        c = np.r_[kept[::-1], kept]
    else:
        kept = c = to_gain(x, 2**q)
    e = abs(C @ (c / 2**q) - T)
    show(name, q, np.max(e[:points]), kept)
    return kept


half = fraction("up, 1/2 of a sample", 32, 1 / 2, 20)
for n in (4, 3, 6):
    fraction(f"up, 1/{n} of a sample", 32, 1 / n, 20, half)
half_band("down from 2 low, pass to 0.45 low", 30, .9, 20, 3, 500)
half_band("down by 2 to 2 low", 7, .55, 17, 6, 300)
decimate3("down by 3 to 2 low", 37, 18, 2)
