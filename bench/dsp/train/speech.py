"""Speech for the training: free synthesizers speak sentences of words that no language has.

A voice is a row of VOICES; its file is the same bytes on every run. The talkers that bench/dsp measures with (signals/ and
judge/) are not among them: neither those variants of espeak-ng nor any of the recorded prompts nor Festival's Finnish.
"""
import os
import subprocess
import tempfile
import wave

import numpy as np
from scipy.signal import resample_poly

RATE = 16000
LANGUAGES = ("af az bs ca cs cy da de en-gb en-us es et eu fi fr-fr ga hr hu id is it lt lv ms nb nl pl pt pt-br ro sk sl sq "
             "sv sw tr vi").split()
# Variants of espeak-ng that sound like people, but for those of the bench's talkers.
TIMBRES = ["m5", "f3", "m6", "Andrea", "m8", "linda", "Gene", "Annie", "Lee", "belinda", "Michael", "Alicia", "travis", "steph",
           "Denis", "aunty", "klatt2", "anika", "Diogo", "shelby", "max", "grandma", "Alex", "klatt4", "boris"]
# Recorded voices: program, name, seconds. Of flite and Festival, whose licences ask for a credit only: see NOTICE.
RECORDED = [("flite", "rms", 480), ("flite", "slt", 480), ("flite", "awb", 480), ("flite", "kal16", 240),
            ("festival", "kal_diphone", 240), ("festival", "ked_diphone", 240)]
VOICES = [("espeak-ng", f"{language}+{TIMBRES[i % len(TIMBRES)]}", 75) for i, language in enumerate(LANGUAGES)] + RECORDED

ONSETS = "b d f g k l m n p r s t v z br dr fl gr kl pr sk sp st tr".split()
VOWELS = "a e i o u a e i o ai ou".split()
CODAS = [""] * 6 + "n r s t l m k".split()


def text(rng):
    """Eight sentences: enough for a synthesizer's melody, short enough for many speeds and pitches."""
    def word():
        return "".join(rng.choice(ONSETS) + rng.choice(VOWELS) + rng.choice(CODAS) for _ in range(rng.integers(1, 4)))

    def sentence():
        words = [word() for _ in range(rng.integers(4, 11))]
        return " ".join(words).capitalize() + rng.choice([".", ".", ".", "?", "!"])
    return " ".join(sentence() for _ in range(8))


def command(program, voice, rng, source, target):
    if program == "espeak-ng":
        return ["espeak-ng", "-v", voice, "-s", str(rng.integers(130, 210)), "-p", str(rng.integers(25, 75)),
                "-f", source, "-w", target]
    if program == "flite":
        return ["flite", "-voice", voice, "--setf", f"duration_stretch={rng.uniform(.8, 1.2):.2f}", "-f", source,
                "-o", target]
    return ["text2wave", "-eval", f"(voice_{voice})", "-o", target, source]


def spoken(program, voice, rng):
    with tempfile.TemporaryDirectory() as folder:
        source, target = os.path.join(folder, "text"), os.path.join(folder, "wav")
        with open(source, "w") as f:
            f.write(text(rng) + "\n")
        subprocess.run(command(program, voice, rng, source, target), check=True, stdout=subprocess.DEVNULL)
        with wave.open(target) as w:
            rate = w.getframerate()
            x = np.frombuffer(w.readframes(w.getnframes()), dtype="<i2").astype(float)
    shared = np.gcd(rate, RATE)
    return resample_poly(x, RATE // shared, rate // shared)


def build(number, share):
    """One voice as 16-bit samples; `share` of its length for a trial."""
    program, voice, seconds = VOICES[number]
    rng = np.random.default_rng([1, number])
    x = np.zeros(0)
    while len(x) < seconds * share * RATE:
        x = np.concatenate([x, spoken(program, voice, rng)])
    return np.rint(x * 3000 / x.std()).clip(-32768, 32767).astype("<i2")


def name(number):
    program, voice, _ = VOICES[number]
    return f"speech-{program}-{voice}"
