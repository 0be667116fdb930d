#!/usr/bin/python3
"""Trains the noise reducer's network: train.py CORPUS WEIGHTS.cpp [--iterations N] [--seed N] [--state FILE]

The number of iterations, the seed and the threads (one computes, one mixes) are fixed, and nothing follows the clock: the
same corpus gives the same bytes on one machine. The state is written now and then; a run that was broken off goes on from it.

8 kHz uses the lower bands of the same network: three batches of five see nothing above 4 kHz.
"""
import argparse
import hashlib
import os
import time

import numpy as np
import torch
from torch.nn.utils import clip_grad_norm_, stateless

import mixtures
import network

RATE_MOST, WARM_UP = 4e-3, 50
SAVE_EVERY, PRINT_EVERY = 250, 25
COMPRESSION, COMPLEX_SHARE, LOST_SPEECH = .3, .3, .6


class Batches(torch.utils.data.Dataset):
    """Made by a process of its own, in order."""

    def __init__(self, folder, seed, start, end):
        self.folder, self.seed, self.start, self.end, self.corpus = folder, seed, start, end, None

    def __len__(self):
        return self.end - self.start

    def __getitem__(self, i):
        self.corpus = self.corpus or mixtures.Corpus(self.folder)
        clean, noisy, narrow = mixtures.batch(self.corpus, self.seed, self.start + i)
        bands = network.NB8 if narrow else network.NB16
        clean, noisy = (network.spectrum(x)[:, :, :network.EDGES[bands]] for x in (clean, noisy))
        return clean, noisy, *network.features(noisy, bands), bands


def hearing(lines):
    """Weight of each line: lines an ear cannot part share one (equivalent rectangular bandwidth, Glasberg and Moore 1990)."""
    f = torch.arange(lines) * network.RATE / network.WINDOW
    w = 1 / (24.7 * (4.37e-3 * f + 1))
    return w / w.sum()


def loss(gain, clean, noisy):
    """Distance of compressed spectra (as Braun and Tashev 2021 weigh it), magnitudes alone and with their phases; what is
    missing of the speech counts more than what is left of the noise. None of the measures that judge it is in it.
    """
    s, y = clean.abs(), noisy.abs()
    level = torch.sqrt((s ** 2).sum(2).quantile(.9, 1) / s.shape[2])[:, None, None] + .05
    agree = (clean * noisy.conj()).real / (s * y + 1e-9)
    s = ((s / level) ** 2 + 1e-6) ** (COMPRESSION / 2)
    o = ((gain * y / level) ** 2 + 1e-6) ** (COMPRESSION / 2)
    magnitude = (s - o) ** 2
    phase = s * s + o * o - 2 * s * o * agree
    lost = (s - o).clamp(min=0) ** 2
    parts = [(x * hearing(s.shape[2])).sum(2).mean() for x in (magnitude, phase, lost)]
    return (1 - COMPLEX_SHARE) * parts[0] + COMPLEX_SHARE * parts[1] + LOST_SPEECH * parts[2], parts


def rate(iteration, iterations):
    """Warm-up, then a half cosine down to a fiftieth."""
    return RATE_MOST * min(1, (iteration + 1) / WARM_UP) * (.02 + .49 * (1 + np.cos(np.pi * iteration / iterations)))


class Training:
    def __init__(self, iterations, seed):
        torch.manual_seed(seed)
        self.iterations, self.done, self.net = iterations, 0, network.Net()
        self.optimizer = torch.optim.Adam(self.net.parameters(), RATE_MOST, betas=(.9, .99))
        # Mean of the weights over the last hundreds of iterations: quieter than those of the last one.
        self.mean = {name: p.detach().clone() for name, p in self.net.named_parameters()}

    def load(self, path):
        state = torch.load(path)
        if state["iterations"] != self.iterations:
            raise SystemExit(f"{path}: of a run of {state['iterations']} iterations")
        self.done, self.mean = state["done"], state["mean"]
        self.net.load_state_dict(state["net"])
        self.optimizer.load_state_dict(state["optimizer"])

    def save(self, path):
        torch.save({"iterations": self.iterations, "done": self.done, "mean": self.mean, "net": self.net.state_dict(),
                    "optimizer": self.optimizer.state_dict()}, path + ".part")
        os.rename(path + ".part", path)

    def step(self, clean, noisy, band, line, bands):
        for group in self.optimizer.param_groups:
            group["lr"] = rate(self.done, self.iterations)
        value, parts = loss(stateless.functional_call(self.net, network.quantised(self.net), (band, line, bands)), clean, noisy)
        self.optimizer.zero_grad()
        value.backward()
        if torch.isfinite(clip_grad_norm_(self.net.parameters(), 1.)):
            self.optimizer.step()
        keep = min(.998, (self.done + 1) / (self.done + 10))
        with torch.no_grad():
            for name, p in self.net.named_parameters():
                p.clamp_(-1.98, 1.98)
                self.mean[name].mul_(keep).add_((1 - keep) * p)
        self.done += 1
        return np.array([float(v) for v in (value, *parts)])


def main():
    options = argparse.ArgumentParser()
    options.add_argument("corpus")
    options.add_argument("weights")
    options.add_argument("--iterations", type=int, default=6000)
    options.add_argument("--seed", type=int, default=11)
    options.add_argument("--state")
    options = options.parse_args()
    torch.set_num_threads(1)
    torch.use_deterministic_algorithms(True)
    training = Training(options.iterations, options.seed)
    if options.state and os.path.exists(options.state):
        training.load(options.state)
    batches = Batches(options.corpus, options.seed, training.done, options.iterations)
    loader = torch.utils.data.DataLoader(batches, batch_size=None, num_workers=1, prefetch_factor=4)
    start, sums = time.process_time(), []
    for values in loader:
        sums.append(training.step(*values))
        if training.done % PRINT_EVERY == 0:
            print(training.done, np.mean(sums[-200:], 0).round(4), f"{(time.process_time() - start) / len(sums):.2f} s", flush=True)
        if options.state and training.done % SAVE_EVERY == 0:
            training.save(options.state)
    corpus = hashlib.sha256(open(os.path.join(options.corpus, "SHA256SUMS"), "rb").read()).hexdigest()[:16]
    network.export(training.mean, options.weights,
                   f"Corpus {corpus}, seed {options.seed}, {options.iterations} iterations.")


if __name__ == "__main__":
    main()
