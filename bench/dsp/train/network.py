"""The noise reducer's network as the training sees it: what anr_track.cpp and anr_net.cpp compute, in floating point.

Its sizes are read from anr_net.hpp, so there is one place to change them. same.py shows that both compute the same.
"""
import os
import re

import numpy as np
import torch
from torch.nn.functional import pad

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "../../.."))
HEADER = os.path.join(ROOT, "mpp/code/mpi/audio/dsp/anr_net.hpp")
WEIGHTS = os.path.join(ROOT, "mpp/code/mpi/audio/dsp/anr_weights.cpp")


def header():
    text = open(HEADER).read()
    numbers = {name: int(value) for name, value in re.findall(r"\b(k\w+) = (\d+)", text)}
    numbers["edges"] = [int(n) for n in re.findall(r"\d+", re.search(r"kBandEdges\[.*?\] = \{(.*?)\}", text, re.S)[1])]
    return numbers


SIZES = header()
EDGES, NB8, NB16 = SIZES["edges"], SIZES["kBands8k"], SIZES["kBands16k"]
FEATURES, DENSE, HIDDEN = SIZES["kFeatures"], SIZES["kDense"], SIZES["kHidden"]
UNITS, INPUTS = SIZES["kLineUnits"], SIZES["kLineInputs"]
WINDOW, HOP, RATE = 512, 160, 16000  # at 8 kHz half of each: the same lines, up to 4 kHz


def analysis_window():
    n, rise = np.arange(WINDOW), WINDOW - HOP
    w = np.where(n < rise, np.sin(np.pi / 2 * (n + .5) / rise), np.cos(np.pi / 2 * (n - rise + .5) / HOP))
    return torch.tensor(w, dtype=torch.float32)


def spectrum(x):
    """(files, samples) to (files, blocks, lines); scaled so that a sample of 1 in every point is a line of 1/2"""
    x = pad(torch.tensor(x, dtype=torch.float32), (WINDOW - HOP, 0))
    return torch.fft.rfft(x.unfold(1, WINDOW, HOP) * analysis_window()) / WINDOW


def log_power(lines):
    """log2, with the floor of kPowerFloor"""
    return torch.log2(lines.real ** 2 + lines.imag ** 2 + 2.0 ** -6)


def tracks(level):
    """Smoothed level, slow floor, fast floor: anr_track.cpp."""
    level = level.numpy()
    smooth, slow, fast = (level[:, 0].copy() for _ in range(3))
    out = [np.empty_like(level) for _ in range(3)]
    for t in range(level.shape[1]):
        smooth += .25 * (level[:, t] - smooth)
        for floor, down, up in ((slow, .125, 1 / 128), (fast, .25, 1 / 32)):
            d = smooth - floor
            rise = np.minimum(d, 20) / (t + 2) if t < 24 else np.minimum(d, 2) * up
            floor += np.where(d < 0, down * d, rise)
        for o, v in zip(out, (smooth, slow, fast)):
            o[:, t] = v
    return [torch.from_numpy(o) for o in out]


def features(lines, bands):
    """What the network reads, from a spectrum of EDGES[bands] lines: (files, blocks, kBands16k x kFeatures) and
    (files, blocks, lines, kLineInputs)"""
    level = log_power(lines)
    smooth, slow, fast = tracks(level)
    means = torch.zeros(EDGES[bands], bands)
    for b in range(bands):
        means[EDGES[b]:EDGES[b + 1], b] = 1 / (EDGES[b + 1] - EDGES[b])
    ratio, smoothed, rise = ((x - slow).clamp(-4, 12) for x in (level, smooth, fast))
    energy = torch.log2((2 ** level) @ means + 1e-3)
    band = torch.stack([(energy - slow @ means).clamp(-4, 12), (energy - energy.mean(2, keepdim=True)).clamp(-8, 8),
                        rise @ means], 3) / 4
    band = torch.cat([band, torch.zeros(*band.shape[:2], NB16 - bands, FEATURES)], 2).flatten(2)
    around = pad(ratio, (2, 2))
    before = torch.cat([ratio[:, :1], ratio[:, :-1]], 1)
    line = torch.stack([ratio, around[:, :, 1:-3], around[:, :, 3:-1], .5 * (around[:, :, :-4] + around[:, :, 4:]), before,
                        smoothed, rise], 3) / 4
    return band, line


class Net(torch.nn.Module):
    def __init__(self):
        super().__init__()
        self.d = torch.nn.Linear(NB16 * FEATURES, DENSE)
        self.g = torch.nn.GRU(DENSE, HIDDEN, batch_first=True)
        self.c = torch.nn.Linear(HIDDEN, NB16 * UNITS)
        self.b1 = torch.nn.Linear(INPUTS, UNITS)
        self.b2 = torch.nn.Linear(UNITS, 1)

    def forward(self, band, line, bands):
        """gain of each line, 0 to 1"""
        h, _ = self.g(torch.tanh(self.d(band)))
        band_of = torch.repeat_interleave(torch.arange(bands), torch.tensor(np.diff(EDGES[:bands + 1])))
        context = self.c(h).view(*band.shape[:2], NB16, UNITS)[:, :, band_of]
        return torch.sigmoid(self.b2(torch.relu(self.b1(line) + context))).squeeze(3)


def quantised(net):
    """Weights as 8 bits in Q6 hold them; gradients pass."""
    return {name: p if "bias" in name else p + ((p * 64).round().clamp(-127, 127) / 64 - p).detach()
            for name, p in net.named_parameters()}


def braces(a):
    return "{" + (", ".join(map(str, a)) if a.ndim == 1 else ",\n ".join(map(braces, a))) + "}"


def export(weights, path, origin):
    """The table of anr_net.hpp's Weights; the comment says where it comes from."""
    p = {name: v.detach().numpy().astype(float) for name, v in weights.items()}

    def weight(name):
        return np.clip(np.rint(p[name] * 64), -127, 127).astype(int)

    def offset(a, places):
        return np.rint(a * 2 ** places).astype(int)
    wi, wh, h = weight("g.weight_ih_l0"), weight("g.weight_hh_l0"), HIDDEN
    bi, bh = offset(p["g.bias_ih_l0"], 21), offset(p["g.bias_hh_l0"], 21)
    both, shared = np.concatenate([wi[:2 * h], wh[:2 * h]], 1), (bi + bh)[:2 * h]
    context = offset(p["c.bias"], 21).reshape(NB16, UNITS).T + offset(p["b1.bias"], 21)[:, None]
    members = {"dense": weight("d.weight"), "reset": both[:h], "keep": both[h:], "candidate": wi[2 * h:],
               "candidate_back": wh[2 * h:], "context": weight("c.weight").reshape(NB16, UNITS, h).transpose(1, 0, 2),
               "line": weight("b1.weight"), "gain": weight("b2.weight")[0], "dense_offset": offset(p["d.bias"], 16),
               "reset_offset": shared[:h], "keep_offset": shared[h:], "candidate_offset": bi[2 * h:],
               "candidate_back_offset": bh[2 * h:], "context_offset": context}
    with open(path, "w") as f:
        f.write(f"// Written by bench/dsp/train/run; do not edit.\n// {origin}\n"
                '#include "mpi/audio/dsp/anr_net.hpp"\n\n// clang-format off\n'
                "const zep::anr::Weights zep::anr::kWeights = {\n")
        for name, a in members.items():
            f.write(f".{name} = {braces(a)},\n")
        f.write(f".gain_offset = {offset(p['b2.bias'], 16)[0]},\n}};\n")


def imported(path):
    """The network of such a table."""
    text = re.sub(r"//.*", "", open(path).read())
    t = {name: np.array([int(n) for n in re.findall(r"-?\d+", body)], dtype=np.float32)
         for name, body in re.findall(r"\.(\w+) = (.*?)(?=,\n\.|,\n\};)", text, re.S)}
    gates = np.stack([t["reset"], t["keep"]]).reshape(2 * HIDDEN, DENSE + HIDDEN) / 64
    recurrent, inputs = t["candidate_back"].reshape(HIDDEN, HIDDEN) / 64, t["candidate"].reshape(HIDDEN, DENSE) / 64
    p = {"d.weight": t["dense"].reshape(DENSE, -1) / 64, "d.bias": t["dense_offset"] / 2 ** 16,
         "g.weight_ih_l0": np.concatenate([gates[:, :DENSE], inputs]),
         "g.weight_hh_l0": np.concatenate([gates[:, DENSE:], recurrent]),
         "g.bias_ih_l0": np.concatenate([t["reset_offset"], t["keep_offset"], t["candidate_offset"]]) / 2 ** 21,
         "g.bias_hh_l0": np.concatenate([0 * t["reset_offset"], 0 * t["keep_offset"], t["candidate_back_offset"]]) / 2 ** 21,
         "c.weight": t["context"].reshape(UNITS, NB16, HIDDEN).transpose(1, 0, 2).reshape(NB16 * UNITS, HIDDEN) / 64,
         "c.bias": t["context_offset"].reshape(UNITS, NB16).T.flatten() / 2 ** 21,
         "b1.weight": t["line"].reshape(UNITS, INPUTS) / 64, "b1.bias": np.zeros(UNITS, np.float32),
         "b2.weight": t["gain"].reshape(1, UNITS) / 64, "b2.bias": t["gain_offset"] / 2 ** 16}
    net = Net()
    net.load_state_dict({name: torch.from_numpy(np.ascontiguousarray(v)) for name, v in p.items()})
    return net
