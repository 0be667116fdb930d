#!/usr/bin/python3
"""Make the test signals: raw mono 16-bit little-endian files, reproducible from this script alone.

usage: mk_signals.py OUTDIR
Speech is spoken by espeak-ng (several voices) and, for judging, flite, brought to 8 and 16 kHz, levelled to -26 dBov
active level; noises come from a fixed-seed generator.  Nothing here is random between runs.
"""
import os, subprocess, sys, tempfile, wave
import numpy as np
from scipy.signal import resample_poly, lfilter, butter, sosfilt

OUT = sys.argv[1] if len(sys.argv) > 1 else "signals/data"
os.makedirs(OUT, exist_ok=True)

SENT = [
    "The birch canoe slid on the smooth planks.", "Glue the sheet to the dark blue background.",
    "It's easy to tell the depth of a well.", "These days a chicken leg is a rare dish.",
    "Rice is often served in round bowls.", "The juice of lemons makes fine punch.",
    "The box was thrown beside the parked truck.", "The hogs were fed chopped corn and garbage.",
    "Four hours of steady work faced us.", "A large size in stockings is hard to sell.",
    "The boy was there when the sun rose.", "A rod is used to catch pink salmon.",
    "The source of the huge river is the clear spring.", "Kick the ball straight and follow through.",
    "Help the woman get back to her feet.", "A pot of tea helps to pass the evening.",
    "Smoky fires lack flame and heat.", "The soft cushion broke the man's fall.",
    "The salt breeze came across from the sea.", "The girl at the booth sold fifty bonds.",
]

def speak(text, voice, speed=160, pitch=50):
    p = subprocess.run(["espeak-ng", "-v", voice, "-s", str(speed), "-p", str(pitch), "--stdout", text],
                       stdout=subprocess.PIPE, check=True)
    b = p.stdout
    i = b.index(b"data") + 8                  # header sizes are unset when written to a pipe
    x = np.frombuffer(b[i:i + (len(b) - i) // 2 * 2], dtype="<i2").astype(np.float64)
    return x                                   # 22050 Hz

def to_rate(x, rate):
    return resample_poly(x, rate // 50, 441)   # 22050 = 441*50

def speak_flite(text, voice, rate):
    """a second synthesizer with recorded voices, for the sounds that nothing is tuned on"""
    with tempfile.NamedTemporaryFile(suffix=".wav") as f:
        subprocess.run(["flite", "-voice", voice, "-t", text, "-o", f.name], check=True)
        with wave.open(f.name) as w:
            x = np.frombuffer(w.readframes(w.getnframes()), dtype="<i2").astype(np.float64)
            return resample_poly(x, rate // 1000, w.getframerate() // 1000)

def talk_flite(voice, sents, rate, gap):
    return np.concatenate([p for i in sents
                           for p in (speak_flite(SENT[i % len(SENT)], voice, rate), np.zeros(int(gap * rate)))])

def active_rms(x, rate):
    """rms over 20 ms frames that are within 35 dB of the loudest one"""
    n = rate // 50
    f = x[:len(x) // n * n].reshape(-1, n)
    e = (f ** 2).mean(1)
    return np.sqrt(e[e > e.max() * 10 ** -3.5].mean())

def level(x, rate, dbov):
    return x * (32768 * 10 ** (dbov / 20) / active_rms(x, rate))

def talk(voice, sents, rate, gap=0.35, lead=0.0, speed=160, pitch=50):
    parts = [np.zeros(int(lead * rate))]
    for i in sents:
        parts += [to_rate(speak(SENT[i % len(SENT)], voice, speed, pitch), rate), np.zeros(int(gap * rate))]
    return np.concatenate(parts)

def save(name, x):
    y = np.clip(np.rint(x), -32768, 32767).astype("<i2")
    y.tofile(os.path.join(OUT, name))
    return y

def fit(x, n):
    return np.concatenate([x, np.zeros(max(0, n - len(x)))])[:n]

def white(rng, n):
    return rng.standard_normal(n)

def fan(rng, n, rate):
    """pink noise, low-passed at 1.2 kHz, plus blade tones at 120 Hz and harmonics"""
    b = [0.049922035, -0.095993537, 0.050612699, -0.004408786]
    a = [1, -2.494956002, 2.017265875, -0.522189400]
    p = lfilter(b, a, rng.standard_normal(n + 4000))[4000:]
    p = sosfilt(butter(2, 1200 / (rate / 2), output="sos"), p)
    p /= p.std()
    t = np.arange(n) / rate
    tones = sum(0.25 / k * np.sin(2 * np.pi * 120 * k * t + k) for k in (1, 2, 3))
    return p + tones

VOICES = ["en-us+m1", "en-us+f2", "en-gb+m4", "en-gb+f4", "de+m3", "fr+f3", "es+m7", "it+f1", "pt+m2", "nl+f5"]

def babble(n, rate):
    s = np.zeros(n)
    for k, v in enumerate(VOICES):
        x = talk(v, [(7 * k + j) for j in range(12)], rate, gap=0.05, speed=150 + 5 * k, pitch=35 + 4 * k)
        x = level(x, rate, -26)
        x = np.tile(x, 1 + (n + len(x)) // len(x))[k * rate // 3:][:n]
        s += x
    return s

def main():
    for rate in (8000, 16000):
        tag = "%dk" % (rate // 1000)
        # near talkers: 1.5 s of silence first, then a man and a woman in turn (about 24 s in all)
        n = 24 * rate
        m = talk("en-us+m3", range(0, 4), rate, lead=1.5, pitch=40)
        f = talk("en-us+f4", range(4, 9), rate, pitch=60)
        sp = fit(np.concatenate([m, f]), n)
        sp = level(sp, rate, -26)
        clean = save("speech_%s.s16" % tag, sp).astype(np.float64)
        arms = active_rms(clean, rate)
        rng = np.random.default_rng(20240601)
        noises = {"white": white(rng, n), "fan": fan(rng, n, rate), "babble": babble(n, rate)}
        for nm, nz in noises.items():
            nz = nz / np.sqrt((nz ** 2).mean())
            for snr in (0, 5, 10, 15):
                save("ns_%s_%s_%02d.s16" % (tag, nm, snr), clean + nz * arms * 10 ** (-snr / 20))
        # noise alone that grows by 15 dB at 6 s
        st = fan(rng, 14 * rate, rate); st /= np.sqrt((st ** 2).mean())
        st *= np.where(np.arange(14 * rate) < 6 * rate, 32768 * 10 ** (-55 / 20), 32768 * 10 ** (-40 / 20))
        save("step_%s.s16" % tag, st)
        # far-end talkers for the echo canceller: no lead-in, 30 s
        far = np.concatenate([talk("en-gb+f2", range(9, 15), rate, gap=0.25, pitch=55),
                              talk("en-gb+m5", range(15, 24), rate, gap=0.25, pitch=45)])
        save("far_%s.s16" % tag, level(fit(far, 30 * rate), rate, -20))
        near = talk("en-us+m7", range(3, 20), rate, gap=0.15, pitch=50)
        save("near_%s.s16" % tag, level(fit(near, 30 * rate), rate, -26))
        # the same for judging
        far = np.concatenate([talk_flite("slt", range(0, 5), rate, 0.3), talk_flite("rms", range(5, 14), rate, 0.2)])
        save("farjudge_%s.s16" % tag, level(fit(far, 30 * rate), rate, -21))
        near = talk_flite("awb", range(8, 26), rate, 0.2)
        save("nearjudge_%s.s16" % tag, level(fit(near, 30 * rate), rate, -26))
        rng = np.random.default_rng(77)
        save("farnoise_%s.s16" % tag, rng.standard_normal(30 * rate) * 32768 * 10 ** (-20 / 20))
    # codec signals, 8 kHz
    rng = np.random.default_rng(5)
    n = 8000 * 30
    t = np.arange(n) / 8000.0
    speech = np.fromfile(os.path.join(OUT, "speech_8k.s16"), dtype="<i2").astype(np.float64)
    save("c_speech.s16", np.tile(speech * 2, 2)[:n])
    save("c_noise.s16", rng.standard_normal(n) * 3000)
    save("c_loudnoise.s16", rng.integers(-32768, 32768, n).astype(np.float64))
    save("c_tone1k.s16", 10000 * np.sin(2 * np.pi * 1004 * t))
    save("c_dtmf.s16", 6000 * np.sin(2 * np.pi * 697 * t) + 6000 * np.sin(2 * np.pi * 1477 * t))
    save("c_sweep.s16", 16000 * np.sin(2 * np.pi * (50 * t + (3700 - 50) / (2 * 30.0) * t * t)))
    save("c_silence.s16", np.zeros(n))
    save("c_lownoise.s16", rng.integers(-8, 9, n).astype(np.float64))
    save("c_overload.s16", 60000 * np.sin(2 * np.pi * 400 * t))
    sq = np.where((np.arange(n) // 37) % 2, 32767, -32768).astype(np.float64)
    save("c_square.s16", sq)
    imp = np.zeros(n); imp[::997] = 32767; imp[500::1511] = -32768
    save("c_impulse.s16", imp)

main()
