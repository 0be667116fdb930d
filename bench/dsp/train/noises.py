"""Noises for the training, made by arithmetic: each function takes a generator of random numbers and a length at 16 kHz.

Levels are left to who mixes: noise() brings each to a standard deviation of 1.
"""
import numpy as np
from scipy.signal import fftconvolve, lfilter

RATE = 16000


def white(rng, n):
    return rng.standard_normal(n)


def wandering(n, step, values):
    """Straight lines between knots every `step` samples."""
    knots = n // step + 2
    return np.interp(np.arange(n), np.arange(knots) * step, values(knots))


def shaped(rng, n, low, high):
    """Power falls with frequency above a corner of 1 to 60 Hz."""
    spectrum = np.fft.rfft(white(rng, n))
    f = np.arange(len(spectrum)) * RATE / n + 10 ** rng.uniform(0, 1.8)
    return np.fft.irfft(spectrum * f ** -rng.uniform(low, high), n)


def resonant(rng, n):
    x = white(rng, n)
    for _ in range(rng.integers(1, 4)):
        radius, angle = rng.uniform(.5, .97), rng.uniform(.02, 3.1)
        x = lfilter([1], [1, -2 * radius * np.cos(angle), radius * radius], x)
    return x


def modulated(rng, n):
    x = resonant(rng, n)
    if rng.random() < .5:
        t = np.arange(n) / RATE
        return x * (1 + rng.uniform(.2, .9) * np.sin(2 * np.pi * rng.uniform(.2, 6) * t + rng.uniform(0, 6)))
    return x * wandering(n, 4000, lambda k: 10 ** rng.uniform(-.5, .5, k))


def machine(rng, n):
    """Noise of a motor, low-passed, with up to eight harmonics."""
    spectrum = np.fft.rfft(white(rng, n))
    f = np.arange(len(spectrum)) * RATE / n
    lowpass = (1 + (f / rng.uniform(500, 4000)) ** 2) ** -rng.uniform(.3, 1.2)
    x = np.fft.irfft(spectrum * (f + 30) ** -rng.uniform(.2, .8) * lowpass, n)
    x, loud = x / x.std(), rng.choice([1, 1, 2])
    phase = 2 * np.pi * rng.uniform(40, 300) * np.arange(n) / RATE
    for k in range(1, rng.integers(2, 9)):
        x = x + loud * rng.uniform(.02, .5) / k ** .5 * np.sin(k * phase + rng.uniform(0, 6))
    return x


def hum(rng, n):
    """Mains, 50 or 60 Hz and its harmonics, more or less of the even ones; the frequency wanders by some 0.1 Hz."""
    off = wandering(n, 8000, lambda k: rng.uniform(-.1, .1, k))
    phase = 2 * np.pi * np.cumsum(rng.choice([50, 60]) * rng.choice([1, 1, 2]) + off) / RATE
    tilt, even = rng.uniform(.2, 1.4), rng.uniform(.1, 1)
    x = np.zeros(n)
    for k in range(1, rng.integers(6, 40)):
        x += k ** -tilt * (1 if k % 2 else even) * rng.uniform(.2, 1) * np.sin(k * phase + rng.uniform(0, 6))
    return x / x.std() + rng.uniform(0, .2) * white(rng, n)


def click(rng, template):
    """A stroke: a burst of noise, the plate's resonances, the table's thump. Strokes of a keyboard resemble each other."""
    t = np.arange(int(.08 * RATE)) / RATE
    x = white(rng, len(t)) * np.exp(-t / template["burst"]) * rng.uniform(.5, 1)
    for f, decay, loud in template["modes"]:
        x += loud * rng.uniform(.5, 1) * np.sin(2 * np.pi * f * rng.uniform(.97, 1.03) * t) * np.exp(-t / decay)
    return x * np.minimum(1, t / template["rise"])


def keyboard(rng, n):
    template = {"burst": rng.uniform(.0008, .006), "rise": rng.uniform(.0001, .0015),
                "modes": [(rng.uniform(700, 6500), rng.uniform(.001, .01), rng.uniform(.1, 1))
                          for _ in range(rng.integers(1, 5))] + [(rng.uniform(80, 400), rng.uniform(.005, .02), rng.uniform(0, 1))]}
    x, at = np.zeros(n + RATE), rng.integers(RATE // 2)
    while at < n:
        loud = 10 ** rng.uniform(-.4, 0)
        for start, level in ((at, loud), (at + int(rng.uniform(.05, .13) * RATE), loud * 10 ** rng.uniform(-.9, -.2))):
            one = click(rng, template) * level
            x[start:start + len(one)] += one
        at += int(RATE * rng.choice([rng.uniform(.06, .2), rng.uniform(.15, .5), rng.uniform(.5, 2)], p=[.5, .4, .1]))
    return x[:n] + rng.choice([0, .002, .01]) * shaped(rng, n, .2, 1)


def rain(rng, n):
    """Drops at random, each a short resonance, over the hiss of the far ones."""
    drops = (rng.random(n) < 10 ** rng.uniform(1.3, 3.3) / RATE) * 10 ** rng.uniform(-1, 0, n)
    t, x = np.arange(400) / RATE, np.zeros(n)
    for _ in range(3):
        sound = np.sin(2 * np.pi * rng.uniform(400, 6000) * t) * np.exp(-t / rng.uniform(.0005, .005))
        x += fftconvolve(drops * (rng.random(n) < .4), sound)[:n]
    return x / (x.std() + 1e-6) + rng.uniform(.1, 1.5) * lfilter([1, -rng.uniform(0, .9)], [1], white(rng, n))


def wind(rng, n):
    x = lfilter([1], [1, -rng.uniform(.95, .995)], white(rng, n))
    return x * wandering(n, 6000, lambda k: 10 ** rng.uniform(-1, .3, k))


def traffic(rng, n):
    """Tyres and engines that come and go, the engine's harmonics lower after it has passed."""
    x, t = rng.uniform(.05, .3) * shaped(rng, n, .5, 1), np.arange(n) / RATE
    x /= x.std() / rng.uniform(.1, .4)
    for _ in range(rng.integers(1, 4)):
        middle, width = rng.uniform(0, n / RATE), rng.uniform(.4, 2.5)
        near = 1 / (1 + ((t - middle) / width) ** 2)
        tyres = lfilter([1], [1, -rng.uniform(.3, .97)], white(rng, n))
        phase = 2 * np.pi * np.cumsum(rng.uniform(25, 120) * (1 - .06 * np.tanh((t - middle) / width))) / RATE
        engine = sum(rng.uniform(.1, 1) / k ** .7 * np.sin(k * phase) for k in range(1, 12))
        x += near * rng.uniform(.3, 1) * (tyres / tyres.std() + rng.uniform(0, .8) * engine)
    return x


def room(rng, x, wet=(.02, .15)):
    n = int(rng.uniform(.1, .5) * RATE)
    h = rng.standard_normal(n) * np.exp(-6.9 * np.arange(n) / RATE / rng.uniform(.1, .5)) * rng.uniform(*wet)
    h[0] = 1
    return fftconvolve(x, h)[:len(x)]


def coloured(rng, x):
    if rng.random() < .5:
        x = lfilter([1, rng.uniform(-.5, .5)], [1, rng.uniform(-.5, .5)], x)
    if rng.random() < .3:
        radius, angle = rng.uniform(.3, .85), rng.uniform(.1, 3)
        x = lfilter([1], [1, -2 * radius * np.cos(angle), radius * radius], x)
    return x


# Share of the noises that are made, name, function.
ARITHMETIC = [(.07, white), (.05, lambda rng, n: shaped(rng, n, .3, .7)), (.07, lambda rng, n: shaped(rng, n, .7, 1.3)),
              (.08, resonant), (.05, modulated), (.10, machine), (.07, hum), (.12, keyboard), (.05, rain), (.04, wind), (.08, traffic)]
