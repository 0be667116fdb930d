#!/usr/bin/python3
"""Echo-canceller scenarios from the far and near talkers of mk_signals.py.
usage: mk_aec.py [SIGDIR] [OUTDIR] [tune|judge]
The constants of the canceller are tuned on the first set. The second one is for judging only: other talkers of another
synthesizer, other rooms, levels, music and seeds, and a loudspeaker whose amplifier clips between the samples.

For every scenario: NAME.ref (loudspeaker), NAME.mic (microphone), NAME.near (near talker alone), all s16.
Room: 2 ms direct delay, then Gaussian reflections decaying by 60 dB over 32, 64 or 128 ms; echo 6 dB under
the far signal (so -26 dBov for speech), microphone noise at -70 dBov. When judging: 5 ms, sparse early reflections, then
the same decay; echo 8 dB under the far signal, noise at -74 dBov.
 st    far speech, 20 s                       stn   far white noise, 20 s
 dt    far speech, near talker from 8 to 16 s (as loud as the echo)
 chg   far speech, another room from 8 s on   nl    far speech through a clipping loudspeaker
 near  near talker only, far silent                  dtn   the near talker of dt, far silent
 drift10, 20, 50  the loudspeaker's clock runs that many ppm fast, 24 s, room of 64 ms
 music  chords of plucked strings and a drum as far end
 clip16, clip22  far speech cut off that many dB below its peak, near talker from 8 to 16 s
 jump   the echo comes 12 ms later from 10 s on
"""
import os, sys
import numpy as np
from scipy.signal import fftconvolve, resample_poly

SETS = {
    "tune": dict(far="far", near="near", seed=0, hiss=-70, echo=0.5, sparse=False, delay=0.002, oversampled=1,
                 beats=2, root=110, scale=[0, 2, 4, 5, 7, 9, 11, 12, 14, 16, 19, 24], drum=0.8),
    "judge": dict(far="farjudge", near="nearjudge", seed=40000, hiss=-74, echo=0.4, sparse=True, delay=0.005,
                  oversampled=8, beats=3, root=98, scale=[0, 3, 5, 7, 8, 10, 12, 15, 17, 19, 20, 27], drum=0.4),
}
sig = sys.argv[1] if len(sys.argv) > 1 else "signals/data"
out = sys.argv[2] if len(sys.argv) > 2 else "signals/tune"
SET = SETS[sys.argv[3] if len(sys.argv) > 3 else "tune"]
os.makedirs(out, exist_ok=True)
load = lambda n: np.fromfile(f"{sig}/{n}.s16", dtype="<i2").astype(np.float64)
def save(n, x): np.clip(np.rint(x), -32768, 32767).astype("<i2").tofile(f"{out}/{n}")

def drifted(x, ppm):
    """x as a clock that is ppm parts in a million fast plays it: band-limited to 64 phases, then a line between two"""
    up = 64
    y = resample_poly(x, up, 1, window=("kaiser", 9.0))
    t = np.arange(len(x)) * (1 + ppm * 1e-6) * up
    i = np.minimum(t.astype(np.int64), len(y) - 2)
    return y[i] + (y[i + 1] - y[i]) * (t - i)

def clipped(x, g):
    n = SET["oversampled"]
    if n == 1:
        return np.clip(x, -g, g)
    return resample_poly(np.clip(resample_poly(x, n, 1), -g, g), 1, n)

def music(rate, seconds, seed):
    """Four-note chords on every beat: eleven harmonics that fade, higher ones faster; a noise burst with each"""
    rng = np.random.default_rng(seed + SET["seed"])
    n = rate // SET["beats"]
    t = np.arange(2 * n) / rate
    x = np.zeros((seconds + 2) * rate)
    for beat in range(SET["beats"] * seconds):
        for tone in SET["root"] * 2 ** (rng.choice(SET["scale"], 4, replace=False) / 12):
            for k in range(1, 12):
                if k * tone < 0.45 * rate:
                    x[beat * n:beat * n + 2 * n] += np.sin(2 * np.pi * k * tone * t + rng.uniform(0, 6.28)) / k * np.exp(-t * (1 + k))
        x[beat * n:beat * n + n] += SET["drum"] * rng.standard_normal(n) * np.exp(-40 * t[:n])
    x = x[:seconds * rate]
    return np.rint(x * (32768 * 10 ** (-20 / 20) / np.sqrt((x ** 2).mean())))

def room(rate, ms, seed):
    rng = np.random.default_rng(seed + SET["seed"])
    n, d = int(rate * ms / 1000), int(rate * SET["delay"])
    h = rng.standard_normal(n) * 10 ** (-3 * np.arange(n) / n)
    if SET["sparse"]:                       # a quarter of the length: only one point in six reflects, but more strongly
        h[:n // 4] *= 2 * (rng.random(n // 4) < 1 / 6)
    h[0] = 2.5 * (np.sign(h[0]) or 1)
    return np.concatenate([np.zeros(d), h])

for rate in (8000, 16000):
    tag = "%dk" % (rate // 1000)
    N = 20 * rate
    far, noise, near = load(SET["far"] + "_" + tag)[:N], load("farnoise_" + tag)[:N], load(SET["near"] + "_" + tag)
    rng = np.random.default_rng(9 + SET["seed"])
    hiss = rng.standard_normal(N) * 32768 * 10 ** (SET["hiss"] / 20)
    def norm(h, x):                         # echo 6 dB under its source
        e = fftconvolve(x, h)[:len(x)]
        return h * (np.sqrt((x ** 2).mean() / (e ** 2).mean()) * SET["echo"])
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

    far = load(SET["far"] + "_" + tag)[:24 * rate]    # longer, and rooms of their own from here on
    M = len(far); hiss = rng.standard_normal(M) * 32768 * 10 ** (SET["hiss"] / 20)
    nr = np.zeros(M); nr[8 * rate:16 * rate] = near[2 * rate:10 * rate]
    for ppm in (10, 20, 50):
        h = norm(room(rate, 64, 700 + ppm), far)
        put(f"{tag}_drift{ppm}", far, fftconvolve(drifted(far, ppm), h)[:M] + hiss, np.zeros(M))
    tune = music(rate, 24, 77)
    put(f"{tag}_music", tune, fftconvolve(tune, norm(room(rate, 64, 720), tune))[:M] + hiss, np.zeros(M))
    for below in (16, 22):
        g = np.abs(far).max() * 10 ** (-below / 20)
        h = norm(room(rate, 64, 730 + below), far)
        put(f"{tag}_clip{below}", far, fftconvolve(clipped(far, g), h)[:M] + nr + hiss, nr)
    e = fftconvolve(far, norm(room(rate, 64, 740), far))[:M]
    late = np.concatenate([np.zeros(rate * 12 // 1000), e])[:M]
    put(f"{tag}_jump", far, np.concatenate([e[:10 * rate], late[10 * rate:]]) + hiss, np.zeros(M))
