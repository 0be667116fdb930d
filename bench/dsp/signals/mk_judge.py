#!/usr/bin/python3
"""Makes what the noise reducer is judged by: mk_judge.py FOLDER

Five voices in eight noises at two levels, 8 and 16 kHz; nothing of it is in the training (train/), neither a voice nor a
recording nor the way a noise is made:
 voices    prompts of a telephone exchange, spoken by people (asterisk-core-sounds-it, -ru, -es), and two Finnish voices of
           Festival (festvox-suopuhe-lj, -mv)
 keyboard  strokes recorded from a keyboard (bucklespring-data)
 music     recorded music on hold (asterisk-moh-opsound)
 crowd     sixteen prompts at a time in a hall
 traffic, hum, water, wind, drill  by arithmetic
"""
import glob
import os
import subprocess
import sys
import tempfile
import wave

import numpy as np
from scipy.signal import fftconvolve, lfilter, resample_poly, sawtooth

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "../score"))
import metrics

RATE, SECONDS = 16000, 9
N = RATE * SECONDS
LEVELS = (2, 8)  # dB
PROMPTS = "/usr/share/asterisk/sounds"
FINNISH = ["Kello on nyt kaksitoista ja aurinko paistaa. Ovi aukeaa hitaasti, kun joku koputtaa siihen kaksi kertaa.",
           "Laiva saapuu satamaan huomenna aamulla. Lapset juoksevat rantaan katsomaan, mutta tuuli on kylmä."]


def decoded(path):
    raw = subprocess.run(["ffmpeg", "-v", "error", "-f", "g722", "-i", path, "-f", "s16le", "-ar", str(RATE), "-ac", "1", "-"],
                         stdout=subprocess.PIPE, check=True).stdout
    return np.frombuffer(raw, dtype="<i2").astype(float)


def prompts(language):
    """Those of one to six seconds, in order of their names."""
    files = [p for p in sorted(glob.glob(f"{PROMPTS}/{language}*/**/*.g722", recursive=True))
             if 8000 < os.path.getsize(p) < 48000]
    if not files:
        raise SystemExit(f"mk_judge.py: no prompts of {language} in {PROMPTS}")
    return files


def recorded(language):
    files, x = prompts(language), np.zeros(RATE // 2)
    for path in files[::max(1, len(files) // 12)]:
        x = np.concatenate([x, decoded(path), np.zeros(RATE // 4)])
    return x[:N]


def spoken(voice, text):
    with tempfile.NamedTemporaryFile(suffix=".wav") as f:
        subprocess.run(["text2wave", "-eval", f"(voice_{voice})", "-o", f.name], check=True, input=text.encode("latin-1"))
        with wave.open(f.name) as w:
            x, rate = np.frombuffer(w.readframes(w.getnframes()), dtype="<i2").astype(float), w.getframerate()
    x = resample_poly(x, RATE // np.gcd(rate, RATE), rate // np.gcd(rate, RATE))
    return np.resize(np.concatenate([np.zeros(RATE // 2), x]), N)


def voices():
    found = {language: recorded(language) for language in ("it", "ru", "es")}
    return found | {"lj": spoken("suo_fi_lj_diphone", FINNISH[0]), "mv": spoken("hy_fi_mv_diphone", FINNISH[1])}


def keyboard(rng):
    strokes = [p for p in sorted(glob.glob("/usr/share/buckle/wav/*-1.wav")) if os.path.exists(p.replace("-1.wav", "-0.wav"))]
    x, at = np.zeros(N + 2 * RATE), RATE // 3
    while at < N:
        press = strokes[rng.integers(len(strokes))]
        for path, start in ((press, at), (press.replace("-1.wav", "-0.wav"), at + rng.integers(900, 2200))):
            with wave.open(path) as w:
                one = np.frombuffer(w.readframes(w.getnframes()), dtype="<i2").reshape(-1, w.getnchannels()).mean(1)
                one = resample_poly(one, RATE // 100, w.getframerate() // 100)[:RATE]
            x[start:start + len(one)] += one
        at += int(RATE * rng.gamma(4, .05))
    return x[:N]


def music(rng):
    files = sorted(glob.glob("/usr/share/asterisk/moh/**/*.g722", recursive=True))
    x = decoded(files[rng.integers(len(files))])
    start = rng.integers(10 * RATE, len(x) - N)
    return x[start:start + N]


def crowd(rng):
    files, x = [p for language in ("it", "ru", "es") for p in prompts(language)[1::3]], np.zeros(N)
    for _ in range(16):
        one = np.concatenate([decoded(files[i]) for i in rng.integers(len(files), size=6)])
        x += np.resize(one, N) / one.std() * rng.uniform(.4, 1)
    t = np.arange(RATE) / RATE
    return x + fftconvolve(x, rng.standard_normal(RATE) * 10 ** (-3 * t / 1.1) * .03)[:N]


def by_frames(rng, envelope):
    """Noise of a given power in each of 257 lines and each 16 ms, by overlap-add."""
    hop, blocks, x = 256, N // 256, np.zeros(N + 512)
    for b, power in zip(range(blocks), envelope(np.arange(blocks) * hop / RATE, np.arange(257) * RATE / 512)):
        lines = np.sqrt(power) * (rng.standard_normal(257) + 1j * rng.standard_normal(257))
        x[b * hop:b * hop + 512] += np.fft.irfft(lines) * np.hanning(512)
    return x[:N]


def traffic(rng):
    cars = [(rng.uniform(0, SECONDS), rng.uniform(8, 20), rng.uniform(4, 12)) for _ in range(4)]  # moment, m/s, m

    def envelope(times, f):
        for t in times:
            distance = [np.hypot(beside, speed * (t - when)) for when, speed, beside in cars]
            yield 1e-3 / (f + 100) + sum(1 / d ** 2 / (1 + (f / (900 + 6000 / d)) ** 2) for d in distance)
    return by_frames(rng, envelope)


def hum(rng):
    t = np.arange(N) / RATE
    mains = np.sin(2 * np.pi * 50 * t + .3 * np.sin(.7 * t))
    dimmer = lfilter([1, -1], [1, -.9], np.sign(np.sin(2 * np.pi * 50 * t + .4)))
    return np.tanh(6 * mains) * .5 + mains ** 2 + .6 * dimmer + .02 * rng.standard_normal(N)


def water(rng):
    def envelope(times, f):
        splash = np.ones(257)
        for _ in times:
            splash = .8 * splash + .2 * rng.gamma(.6, 1.6, 257)
            yield splash * np.exp(-((f - 2500) / 3000) ** 2)
    return by_frames(rng, envelope)


def wind(rng):
    gust = lfilter([1], [1, -1.9994, .99941], rng.standard_normal(N))
    return lfilter([1], [1, -.97], rng.standard_normal(N)) * (gust / gust.std()) ** 2


def drill(rng):
    t = np.arange(N) / RATE
    speed = 85 * (1 - .3 * np.exp(-((t % 4.5) - 2) ** 2))
    x = sawtooth(2 * np.pi * np.cumsum(speed) / RATE) * (.6 + .4 * np.sin(2 * np.pi * 7 * t))
    return lfilter([1, -.6], [1, -.5], x + .4 * rng.standard_normal(N)) * ((t % 4.5) < 3.4)


NOISES = [keyboard, music, crowd, traffic, hum, water, wind, drill]


def save(folder, name, x):
    np.clip(np.rint(x), -32768, 32767).astype("<i2").tofile(os.path.join(folder, name + ".s16"))


def main():
    folder = sys.argv[1]
    os.makedirs(folder, exist_ok=True)
    for v, (voice, clean) in enumerate(voices().items()):
        active, _ = metrics.activity(clean + 1e-3, RATE)
        power = (metrics.frames(clean, RATE // 50, RATE // 50) ** 2).mean(1)[active].mean()
        clean *= 32768 * 10 ** (-26 / 20) / np.sqrt(power)
        for rate in (8000, 16000):
            save(folder, f"speech_{rate // 1000}k_{voice}", resample_poly(clean, rate // 8000, 2))
        for i, make in enumerate(NOISES):
            noise = make(np.random.default_rng([5, v, i]))
            for level in LEVELS:
                noisy = clean + noise / noise.std() * 32768 * 10 ** ((-26 - level) / 20)
                noisy *= min(1, 32767 / np.abs(noisy).max())
                for rate in (8000, 16000):
                    save(folder, f"ns_{rate // 1000}k_{make.__name__}_{voice}_{level}", resample_poly(noisy, rate // 8000, 2))


main()
