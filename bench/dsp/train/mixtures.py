"""Batches for the training: speech with noise, each a function of the seed and its number alone."""
import glob
import os

import numpy as np

import noises

RATE, HOP = noises.RATE, 160
FILES = 12  # in a batch


class Corpus:
    """What build_corpus.py made: samples by kind, longer files more often (by the root of their length)."""

    def __init__(self, folder):
        self.files = {kind: [np.memmap(p, dtype="<i2", mode="r") for p in sorted(glob.glob(f"{folder}/{kind}-*.s16"))]
                      for kind in ("speech", "music", "effect")}
        self.shares = {kind: np.sqrt([len(x) for x in files]) for kind, files in self.files.items()}

    def cut(self, rng, kind, n, stretch=(.82, 1.2)):
        """n samples from anywhere, in three of five at another pitch and vocal tract; never a pause alone."""
        files, shares = self.files[kind], self.shares[kind]
        for _ in range(50):
            x = files[rng.choice(len(files), p=shares / shares.sum())]
            factor = rng.uniform(*stretch) if rng.random() < .6 else 1.0
            m = int(n * factor) + 2
            start = rng.integers(0, max(1, len(x) - m))
            x = np.interp(np.arange(n) * factor, np.arange(m), np.resize(np.asarray(x[start:start + m], float), m))
            if x.std() > 30:
                return x
        raise ValueError(f"no {kind} louder than a pause")


def many_voices(corpus, rng, n, voices):
    """Babble of few, or a crowd: the farther ones quieter and more of a room."""
    x = np.zeros(n)
    for _ in range(voices):
        one = corpus.cut(rng, "speech", n)
        x += one / one.std() * 10 ** rng.uniform(-.5, .1)
    return noises.coloured(rng, noises.room(rng, x, (.05, .4)) if rng.random() < .6 else x)


def one_noise(corpus, rng, n):
    recorded = [(.08, lambda rng, n: corpus.cut(rng, "music", n, (.7, 1.4))),
                (.05, lambda rng, n: corpus.cut(rng, "effect", n, (.7, 1.4))),
                (.06, lambda rng, n: many_voices(corpus, rng, n, rng.integers(4, 10))),
                (.03, lambda rng, n: many_voices(corpus, rng, n, rng.integers(12, 24)))]
    shares, kinds = zip(*(noises.ARITHMETIC + recorded))
    x = kinds[rng.choice(len(kinds), p=np.array(shares) / sum(shares))](rng, n)
    return x / (x.std() + 1e-6)


def noise(corpus, rng, n):
    """One kind, or in one of ten two together; in one of four in a room."""
    x = one_noise(corpus, rng, n)
    if rng.random() < .1:
        x = x + rng.uniform(.2, 1) * one_noise(corpus, rng, n)
    if rng.random() < .25:
        x = noises.room(rng, x)
    if rng.random() < .12:
        x[rng.integers(0, n):] *= 10 ** (rng.uniform(-15, 15) / 20)
    return x / (x.std() + 1e-6)


def active_rms(x):
    e = (x[:len(x) // 320 * 320].reshape(-1, 320) ** 2).mean(1)
    return np.sqrt(e[e >= e.max() * 10 ** -3.5].mean())


def speech(corpus, rng, n):
    """-42 to -16 dB of full scale; some begin with silence, some have a pause, a third are in a room."""
    x = noises.coloured(rng, corpus.cut(rng, "speech", n))
    if rng.random() < .35:
        x = noises.room(rng, x)
    x *= 32768 * 10 ** (rng.uniform(-42, -16) / 20) / (active_rms(x) + 1)
    if rng.random() < .4:
        x[:int(rng.uniform(0, n / 3))] = 0
    if rng.random() < .3:
        start, length = int(rng.uniform(0, .7) * n), int(rng.uniform(.1, .3) * n)
        x[start:start + length] = 0
    return x


def mixture(corpus, rng, n):
    """The speech and what a microphone hears; of a hundred, seven are clean and eight nearly so."""
    clean, kind = speech(corpus, rng, n), rng.random()
    if kind < .07:
        added = np.zeros(n)
    else:
        snr = rng.uniform(20, 45) if kind < .15 else rng.uniform(-4, 20)
        added = noise(corpus, rng, n) * active_rms(clean) * 10 ** (-snr / 20)
    scale = min(1, 32000 / (np.abs(clean + added).max() + 1))
    return clean * scale, np.rint((clean + added) * scale)


def batch(corpus, seed, number):
    """Clean and noisy samples, FILES rows of 2 to 6 s, and whether the batch is for 8 kHz."""
    rng = np.random.default_rng([3, seed, number])
    n = int(rng.integers(200, 600)) * HOP
    clean, noisy = (np.stack(x) for x in zip(*(mixture(corpus, rng, n) for _ in range(FILES))))
    return clean, noisy, rng.random() < .6
