#!/usr/bin/python3
"""Trains the noise reducer's network and writes mpp/code/mpi/audio/anr_weights.cpp.

usage: ns_train.py CORPUS_DIR MINUTES WEIGHTS.cpp [STATE.pt]

Needs python3-torch and python3-scipy. CORPUS_DIR holds speech as *.s16 (16 kHz, mono, 16 bits), any amount of it; the
weights in the tree came from some 1.5 h of espeak-ng voices speaking random words in forty languages and from recorded
prompts and dialogues of Debian packages (asterisk-core-sounds-en-g722, -fr-g722, fillets-ng-data, -nl), with the
voices that mk_signals.py uses for its talkers left out (some of those behind its babble are in, with other text).
Every minute of training mixes new speech with new noise.
STATE.pt is read if it exists, and written.

8 kHz uses the lower 20 bands of the same network: half of the batches see nothing above 4 kHz.
"""
import glob, os, sys, time
import numpy as np, torch
from scipy.signal import fftconvolve, lfilter
from torch.nn.functional import pad
from torch.nn.utils import stateless

W, HOP, RATE = 512, 160, 16000
EDGES = [0, 4, 7, 10, 13, 16, 19, 22, 26, 30, 34, 39, 44, 50, 57, 65, 74, 84, 96, 111, 129, 145, 164, 186, 211, 237, 257]
NB8, NB16, D, H, UNITS, INPUTS = 20, 26, 32, 48, 8, 7
rng = np.random.default_rng(int(os.environ.get("SEED", "11")))

# ---- what the fixed-point code computes around the network

def analysis_window():
    n, rise = np.arange(W), W - HOP
    return np.where(n < rise, np.sin(np.pi / 2 * (n + .5) / rise), np.cos(np.pi / 2 * (n - rise + .5) / HOP))

WINDOW = torch.tensor(analysis_window(), dtype=torch.float32)

def spectrum(x):
    return torch.fft.rfft(pad(torch.tensor(x, dtype=torch.float32), (W - HOP, 0)).unfold(1, W, HOP) * WINDOW) / W

def log_power(X):
    return torch.log2(X.real ** 2 + X.imag ** 2 + 2.0 ** -6)

def tracks(L):
    """anr_track.cpp in floating point: smoothed level, slow floor, fast floor"""
    L = L.numpy()
    S, slow, fast = L[:, 0].copy(), L[:, 0].copy(), L[:, 0].copy()
    out = [np.empty_like(L) for _ in range(3)]
    for t in range(L.shape[1]):
        S += .25 * (L[:, t] - S)
        for floor, down, up in ((slow, .125, 1 / 128), (fast, .25, 1 / 32)):
            d = S - floor
            rise = np.minimum(d, 20) / (t + 2) if t < 24 else np.minimum(d, 2) * up
            floor += np.where(d < 0, down * d, rise)
        for o, v in zip(out, (S, slow, fast)):
            o[:, t] = v
    return map(torch.from_numpy, out)

def band_means(nb):
    M = np.zeros((EDGES[nb], nb), np.float32)
    for b in range(nb):
        M[EDGES[b]:EDGES[b + 1], b] = 1 / (EDGES[b + 1] - EDGES[b])
    return torch.tensor(M)

class Net(torch.nn.Module):
    def __init__(self):
        super().__init__()
        self.d = torch.nn.Linear(NB16 * 3, D)
        self.g = torch.nn.GRU(D, H, batch_first=True)
        self.c = torch.nn.Linear(H, NB16 * UNITS)
        self.b1 = torch.nn.Linear(INPUTS, UNITS)
        self.b2 = torch.nn.Linear(UNITS, 1)

    def forward(self, L, nb):
        S, slow, fast = tracks(L)
        B, T, _ = L.shape
        M = band_means(nb)
        ratio, smooth, rise = ((a - slow).clamp(-4, 12) for a in (L, S, fast))
        e = torch.log2((2 ** L) @ M + 1e-3)
        f = torch.stack([(e - slow @ M).clamp(-4, 12), (e - e.mean(2, keepdim=True)).clamp(-8, 8), rise @ M], 3) / 4
        f = torch.cat([f, torch.zeros(B, T, NB16 - nb, 3)], 2)
        h, _ = self.g(torch.tanh(self.d(f.flatten(2))))
        band_of = torch.repeat_interleave(torch.arange(nb), torch.tensor(np.diff(EDGES[:nb + 1])))
        c = self.c(h).view(B, T, NB16, UNITS)[:, :, band_of]
        p = pad(ratio, (2, 2))
        before = torch.cat([ratio[:, :1], ratio[:, :-1]], 1)
        x = torch.stack([ratio, p[:, :, 1:-3], p[:, :, 3:-1], .5 * (p[:, :, :-4] + p[:, :, 4:]), before, smooth, rise], 3) / 4
        return torch.sigmoid(self.b2(torch.relu(self.b1(x) + c))).squeeze(3)

def quantised(net):
    """weights as 8 bits hold them; gradients pass"""
    return {n: p if "bias" in n else p + ((p * 64).round().clamp(-127, 127) / 64 - p).detach()
            for n, p in net.named_parameters()}

# ---- speech, noise, rooms

def cut(corpus, n):
    while True:
        c = corpus[rng.choice(len(corpus), p=SHARES)]
        f = rng.uniform(.82, 1.2) if rng.random() < .6 else 1.0      # another pitch and vocal tract
        m = int(n * f) + 2
        i = rng.integers(0, len(c) - m)
        x = np.interp(np.arange(n) * f, np.arange(m), np.asarray(c[i:i + m], np.float32))
        if x.std() > 30:
            return x

def coloured(x):
    if rng.random() < .5:
        x = lfilter([1, rng.uniform(-.5, .5)], [1, rng.uniform(-.5, .5)], x)
    if rng.random() < .3:
        r, th = rng.uniform(.3, .85), rng.uniform(.1, 3)
        x = lfilter([1], [1, -2 * r * np.cos(th), r * r], x)
    return x

def room(x):
    n = int(rng.uniform(.1, .5) * RATE)
    h = rng.standard_normal(n) * np.exp(-6.9 * np.arange(n) / RATE / rng.uniform(.1, .5)) * rng.uniform(.02, .15)
    h[0] = 1
    return fftconvolve(x, h)[:len(x)]

def shaped(w, power):
    F = np.fft.rfft(w)                                               # flat below a corner of 1 to 60 Hz
    f = np.arange(len(F)) * RATE / 2 / len(F) + 10 ** rng.uniform(0, 1.8)
    return np.fft.irfft(F * f ** -power, len(w))

def resonant(w):
    for _ in range(rng.integers(1, 4)):
        r, th = rng.uniform(.5, .97), rng.uniform(.02, 3.1)
        w = lfilter([1], [1, -2 * r * np.cos(th), r * r], w)
    return w / w.std()

def modulated(w):
    n = len(w)
    if rng.random() < .5:
        t = np.arange(n) / RATE
        return w * (1 + rng.uniform(.2, .9) * np.sin(2 * np.pi * rng.uniform(.2, 6) * t + rng.uniform(0, 6)))
    knots = n // 4000 + 2
    return w * np.interp(np.arange(n), np.arange(knots) * 4000, 10 ** rng.uniform(-.5, .5, knots))

def machine(w, loud):
    F = np.fft.rfft(w)
    f = np.arange(len(F)) * RATE / 2 / len(F)
    y = np.fft.irfft(F * (f + 30) ** -rng.uniform(.2, .8) / (1 + (f / rng.uniform(500, 4000)) ** 2) ** rng.uniform(.3, 1.2), len(w))
    y /= y.std()
    phase = 2 * np.pi * rng.uniform(40, 300) * np.arange(len(w)) / RATE
    for k in range(1, rng.integers(2, 9)):
        y = y + loud * rng.uniform(.02, .5) / k ** .5 * np.sin(k * phase + rng.uniform(0, 6))
    return y

def babble(corpus, n):
    y = np.zeros(n)
    for _ in range(rng.integers(4, 13)):
        s = cut(corpus, n)
        y += s / (s.std() + 1) * rng.uniform(.6, 1.2)
    return coloured(room(y) if rng.random() < .4 else y)

KINDS = [(.11, lambda c, w: w), (.08, lambda c, w: shaped(w, rng.uniform(.3, .7))),
         (.11, lambda c, w: shaped(w, rng.uniform(.7, 1.3))), (.14, lambda c, w: resonant(w)),
         (.14, lambda c, w: machine(w, 1)), (.05, lambda c, w: machine(w, 2)), (.26, lambda c, w: babble(c, len(w))),
         (.06, lambda c, w: modulated(resonant(w))),
         (.05, lambda c, w: noise(c, len(w)) + rng.uniform(.2, 1) * noise(c, len(w)))]

def noise(corpus, n):
    y = KINDS[rng.choice(len(KINDS), p=[p for p, _ in KINDS])][1](corpus, rng.standard_normal(n))
    return y / (y.std() + 1e-6)

def active_rms(x):
    e = (x[:len(x) // 320 * 320].reshape(-1, 320) ** 2).mean(1)
    return np.sqrt(e[e >= e.max() * 10 ** -3.5].mean())

def mixture(corpus, n):
    s = coloured(cut(corpus, n))
    if rng.random() < .35:
        s = room(s)
    s = s / (active_rms(s) + 1) * 32768 * 10 ** (rng.uniform(-42, -16) / 20)
    if rng.random() < .4:
        s[:int(rng.uniform(0, 1.6) * RATE)] = 0
    if rng.random() < .3:
        m = int(rng.uniform(.5, 1.5) * RATE)
        i = rng.integers(0, n - m)
        s[i:i + m] = 0
    kind = rng.random()                                              # nearly clean, clean, noisy
    snr = rng.uniform(20, 45) if kind < .08 else rng.uniform(-4, 20)
    v = noise(corpus, n) * active_rms(s) * 10 ** (-snr / 20) * (0 if .08 <= kind < .15 else 1)
    if rng.random() < .12:
        v[rng.integers(0, n):] *= 10 ** (rng.uniform(-15, 15) / 20)
    scale = min(1, 32000 / (np.abs(s + v).max() + 1))
    return s * scale, np.rint((s + v) * scale)

# ---- what counts: the scores of score_ns.py, differentiable, from spectra

def third_octaves(lines):
    f = np.arange(lines) * RATE / W
    M = np.stack([(f >= 150 * 2 ** ((2 * b - 1) / 6)) & (f < 150 * 2 ** ((2 * b + 1) / 6)) for b in range(15)], 1)
    return torch.tensor(M[:, M.any(0)].astype(np.float32))

def unit(v, dim):
    v = v - v.mean(dim, keepdim=True)
    return v / torch.sqrt((v ** 2).sum(dim, keepdim=True) + 1e-4 * (v ** 2).mean() + 1e-9)

def loss(G, S, Y):
    s2, y2, sy = S.abs() ** 2, Y.abs() ** 2, (S * Y.conj()).real
    e = (s2 - 2 * G * sy + G * G * y2).clamp(min=0)
    st, et, o2 = s2.sum(2) + 1e-6, e.sum(2), G * G * y2
    level = 10 * torch.log10(st)
    top = torch.quantile(level, .95, 1, keepdim=True)
    act = ((level > top - 35) & (top > -20)).float()
    n = act.sum() + 1
    seg = ((10 * torch.log10(et / st + 10 ** -3.5)).clamp(max=10) * act).sum() / n
    sdr = (10 * torch.log10(et.sum(1) / st.sum(1) + 10 ** -3.5)).mean()
    floor = s2.amax((1, 2), keepdim=True) * 1e-5 + 1e-9
    d = 10 * torch.log10(torch.maximum(s2, floor) / torch.maximum(o2, floor))[:, :, 3:int(.9 * (G.shape[2] - 1))]
    lsd = (torch.sqrt((d ** 2).mean(2) + 1e-3) * act).sum() / n
    M, T = third_octaves(G.shape[2]), G.shape[1] // 38 * 38          # STOI's segments are 38 blocks of ours
    X, Z = (torch.sqrt(p @ M + 1e-6)[:, :T].reshape(-1, 38, M.shape[1]) for p in (s2, o2))
    ok = (act[:, :T].reshape(-1, 38).mean(1) > .5).float()
    x, z = unit(X, 1), unit(Z, 1)
    stoi = 1 - ((x * z).sum(1).mean(1) * ok).sum() / (ok.sum() + 1e-3)
    x, z = unit(x, 2), unit(z, 2)
    estoi = 1 - ((x * z).sum(2).mean(1) * ok).sum() / (ok.sum() + 1e-3)
    pause = (10 * torch.log10(o2.sum(2) / (y2.sum(2) + 1e-3) + 1e-3) * (1 - act)).sum() / ((1 - act).sum() + 1)
    return .6 * seg + .3 * sdr + 2.3 * lsd + 85 * stoi + 50 * estoi + .03 * pause, (seg, sdr, lsd, stoi, estoi, pause)

# ---- the table

def braces(a):
    return "{" + (", ".join(map(str, a)) if a.ndim == 1 else ",\n ".join(map(braces, a))) + "}"

def export(net, path):
    p = {n: v.detach().numpy().astype(float) for n, v in net.named_parameters()}
    q = lambda n: np.clip(np.rint(p[n] * 64), -127, 127).astype(int)
    o = lambda a, places: np.rint(a * 2 ** places).astype(int)
    wi, wh, bi, bh = q("g.weight_ih_l0"), q("g.weight_hh_l0"), o(p["g.bias_ih_l0"], 21), o(p["g.bias_hh_l0"], 21)
    both, offset = np.concatenate([wi[:2 * H], wh[:2 * H]], 1), (bi + bh)[:2 * H]
    context = o(p["c.bias"], 21).reshape(NB16, UNITS).T + o(p["b1.bias"], 21)[:, None]
    members = [("dense", q("d.weight")), ("reset", both[:H]), ("keep", both[H:]), ("candidate", wi[2 * H:]), ("candidate_back", wh[2 * H:]),
               ("context", q("c.weight").reshape(NB16, UNITS, H).transpose(1, 0, 2)), ("line", q("b1.weight")), ("gain", q("b2.weight")[0]),
               ("dense_offset", o(p["d.bias"], 16)), ("reset_offset", offset[:H]), ("keep_offset", offset[H:]),
               ("candidate_offset", bi[2 * H:]), ("candidate_back_offset", bh[2 * H:]), ("context_offset", context)]
    with open(path, "w") as f:
        f.write('// Written by bench/dsp/ns_train.py; do not edit.\n#include "mpi/audio/dsp/anr_net.hpp"\n\n'
                "// clang-format off\nconst zep::anr::Weights zep::anr::kWeights = {\n")
        for name, a in members:
            f.write(f".{name} = {braces(a)},\n")
        f.write(f".gain_offset = {o(p['b2.bias'], 16)[0]},\n}};\n")

def main():
    global SHARES
    folder, minutes, table = sys.argv[1], float(sys.argv[2]), sys.argv[3]
    state = sys.argv[4] if len(sys.argv) > 4 else None
    corpus = [np.memmap(p, dtype="<i2", mode="r") for p in sorted(glob.glob(folder + "/*.s16"))]
    SHARES = np.sqrt([len(c) for c in corpus])
    SHARES /= SHARES.sum()
    torch.set_num_threads(1)
    net, fast = Net(), 4e-3
    if state and os.path.exists(state):
        net.load_state_dict(torch.load(state))
        fast = 2.5e-3
    opt, start, mean, it = torch.optim.Adam(net.parameters(), fast, betas=(.9, .99)), time.time(), None, 0
    while (part := (time.time() - start) / 60 / minutes) < 1:
        for g in opt.param_groups:
            g["lr"] = fast * min(1, (it + 1) / 20) * (.02 + .49 * (1 + np.cos(np.pi * part)))
        n = int(rng.integers(200, 600)) * HOP
        pairs = [mixture(corpus, n) for _ in range(12)]
        nb = NB8 if rng.random() < .6 else NB16
        S, Y = (spectrum(np.stack(x))[:, :, :EDGES[nb]] for x in zip(*pairs))
        l, scores = loss(stateless.functional_call(net, quantised(net), (log_power(Y), nb)), S, Y)
        opt.zero_grad()
        l.backward()
        if not torch.isfinite(torch.nn.utils.clip_grad_norm_(net.parameters(), 1.)):
            continue
        opt.step()
        with torch.no_grad():
            for p in net.parameters():
                p.clamp_(-1.98, 1.98)
        now = np.array([float(v) for v in (l, *scores)])
        mean = now if mean is None else .97 * mean + .03 * now
        it += 1
        if it % 25 == 0:
            print(it, f"{part:.2f}", mean.round(3), flush=True)
    if state:
        torch.save(net.state_dict(), state)
    export(net, table)

main()
