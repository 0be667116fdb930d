#!/usr/bin/python3
"""Fails when the training's network and the device's do not compute the same: same.py LIBZEPDSP CORPUS

Both reduce the same mixtures with the weights in the tree, one in floating point, one in integers (anr_net.cpp). What is
left between them is rounding, some 50 dB below the signal.
"""
import ctypes
import sys

import numpy as np
import torch

import mixtures
import network

LEAST_DB = 40


def reduced_on_the_device(library, x):
    lib = ctypes.CDLL(library)
    lib.ANR_Create.restype = ctypes.c_void_p
    anr = ctypes.c_void_p(lib.ANR_Create(network.RATE, 2 * network.HOP))
    y = np.ascontiguousarray(x, dtype="<i2").copy()
    for at in range(0, len(y) - network.HOP + 1, network.HOP):
        lib.ANR_Process(anr, ctypes.c_void_p(y.ctypes.data + 2 * at))
    lib.ANR_Destroy(anr)
    return y.astype(float)


def reduced_in_training(net, x):
    """Gains over the spectrum, then overlap-add as anr.cpp does it."""
    lines = network.spectrum(x[None])
    with torch.no_grad():
        gain = net(*network.features(lines, network.NB16), network.NB16)
    blocks = torch.fft.irfft(lines * gain * network.WINDOW, network.WINDOW)[0].numpy()
    hop, analysis = network.HOP, network.analysis_window().numpy()[-2 * network.HOP:]
    hann = .5 + .5 * np.cos(np.pi * (np.arange(2 * hop) + .5 - hop) / hop)
    y = np.zeros(len(x) + 2 * hop)
    for t, block in enumerate(blocks):
        y[t * hop:(t + 2) * hop] += block[-2 * hop:] * hann / analysis
    return y


def main():
    corpus, net = mixtures.Corpus(sys.argv[2]), network.imported(network.WEIGHTS)
    worst = 99
    for number in range(6):
        _, noisy = mixtures.mixture(corpus, np.random.default_rng([4, number]), 400 * network.HOP)
        device, training = reduced_on_the_device(sys.argv[1], noisy), reduced_in_training(net, noisy)
        n = len(device) - network.HOP
        difference = device[:n] - training[:n]
        worst = min(worst, 10 * np.log10((device[:n] ** 2).sum() / ((difference ** 2).sum() + 1)))
    print(f"what training and device make of a mixture differs by {-worst:.1f} dB")
    sys.exit(int(worst < LEAST_DB))


main()
