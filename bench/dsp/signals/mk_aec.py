#!/usr/bin/python3
"""Echo-canceller scenarios from the far and near talkers of mk_signals.py.
usage: mk_aec.py [SIGDIR] [OUTDIR]
For every scenario: NAME.ref (loudspeaker), NAME.mic (microphone), NAME.near (near talker alone), all s16.
Room: 2 ms direct delay, then Gaussian reflections decaying by 60 dB over 32, 64 or 128 ms; echo 6 dB under
the far signal (so -26 dBov for speech), microphone noise at -70 dBov.
 st    far speech, 20 s                       stn   far white noise, 20 s
 dt    far speech, near talker from 8 to 16 s (as loud as the echo)
 chg   far speech, another room from 8 s on   nl    far speech through a clipping loudspeaker
 near  near talker only, far silent                  dtn   the near talker of dt, far silent
"""
import os, sys
import numpy as np
from scipy.signal import fftconvolve
sig = sys.argv[1] if len(sys.argv) > 1 else "signals/data"
out = sys.argv[2] if len(sys.argv) > 2 else "signals/aec"
os.makedirs(out, exist_ok=True)
load = lambda n: np.fromfile(f"{sig}/{n}.s16", dtype="<i2").astype(np.float64)
def save(n, x): np.clip(np.rint(x), -32768, 32767).astype("<i2").tofile(f"{out}/{n}")

def room(rate, ms, seed):
    rng = np.random.default_rng(seed)
    n, d = int(rate * ms / 1000), int(rate * 0.002)
    h = rng.standard_normal(n) * 10 ** (-3 * np.arange(n) / n)
    h[0] = 2.5 * np.sign(h[0])
    return np.concatenate([np.zeros(d), h])

for rate in (8000, 16000):
    tag = "%dk" % (rate // 1000)
    N = 20 * rate
    far, noise, near = load("far_" + tag)[:N], load("farnoise_" + tag)[:N], load("near_" + tag)
    rng = np.random.default_rng(9)
    hiss = rng.standard_normal(N) * 32768 * 10 ** (-70 / 20)
    def norm(h, x):                         # echo 6 dB under its source
        e = fftconvolve(x, h)[:N]
        return h * (np.sqrt((x ** 2).mean() / (e ** 2).mean()) * 0.5)
    def put(name, ref, mic, nr):
        save(name + ".ref", ref); save(name + ".mic", mic); save(name + ".near", nr)
    zero = np.zeros(N)
    for ms in (32, 64, 128):
        h = norm(room(rate, ms, 100 + ms), far)
        e = fftconvolve(far, h)[:N]
        put(f"{tag}_st_{ms}", far, e + hiss, zero)
        put(f"{tag}_stn_{ms}", noise, fftconvolve(noise, norm(room(rate, ms, 100 + ms), noise))[:N] + hiss, zero)
        nr = zero.copy(); nr[8 * rate:16 * rate] = near[:8 * rate]
        put(f"{tag}_dt_{ms}", far, e + nr + hiss, nr)
        h2 = norm(room(rate, ms, 900 + ms), far)
        e2 = fftconvolve(far, h2)[:N]
        put(f"{tag}_chg_{ms}", far, np.concatenate([e[:8 * rate], e2[8 * rate:]]) + hiss, zero)
    nr = zero.copy(); nr[8 * rate:16 * rate] = near[:8 * rate]
    put(f"{tag}_dtn_0", zero, nr + hiss, nr)
    h = norm(room(rate, 64, 164), far)
    g = 0.5 * np.abs(far).max()
    put(f"{tag}_nl_64", far, fftconvolve(g * np.tanh(far / g), h)[:N] + hiss, zero)
    nr = near[:N]
    put(f"{tag}_near_0", zero, nr + hiss, nr)
