"""Music and other recorded sounds for the training: pieces made up from random notes, played by FluidSynth on the
instruments of the sound font FluidR3 GM (MIT licence).
"""
import os
import subprocess
import tempfile

import numpy as np
from scipy.signal import resample_poly

RATE = 16000
FONT = "/usr/share/sounds/sf2/FluidR3_GM.sf2"
TICKS = 480  # a quarter note
SCALES = [[0, 2, 4, 5, 7, 9, 11], [0, 2, 3, 5, 7, 8, 10], [0, 2, 4, 7, 9]]
# Numbers of General MIDI, from 0: what leads, what accompanies, what plays the bass; then the sound effects.
LEAD, CHORDS, BASS = [0, 4, 11, 21, 24, 26, 40, 42, 56, 60, 64, 68, 73, 80], [0, 1, 16, 24, 25, 48, 50, 52, 89, 91], [32, 33, 38]
EFFECTS = {"fret": 120, "breath": 121, "seashore": 122, "bird": 123, "telephone": 124, "helicopter": 125, "applause": 126,
           "gunshot": 127, "cymbal": 119, "drum": 118}
PIECES, SECONDS = 30, 40
DRUMS = 9  # the channel


def variable_length(n):
    octets = [n & 127]
    while n := n >> 7:
        octets.insert(0, 128 | n & 127)
    return bytes(octets)


def midi_file(events, tempo):
    """Standard MIDI file, format 0. Events are (tick, bytes)."""
    body, now = b"\0\xff\x51\x03" + int(60e6 / tempo).to_bytes(3, "big"), 0
    for tick, octets in sorted(events, key=lambda event: event[0]):  # programs stay before notes
        body += variable_length(tick - now) + octets
        now = tick
    body += b"\0\xff\x2f\0"
    header = b"MThd" + (6).to_bytes(4, "big") + bytes([0, 0, 0, 1]) + TICKS.to_bytes(2, "big")
    return header + b"MTrk" + len(body).to_bytes(4, "big") + body


def note(channel, pitch, tick, length, loud):
    return [(tick, bytes([0x90 | channel, pitch, loud])), (tick + length, bytes([0x80 | channel, pitch, 0]))]


def piece(rng):
    """Chords of a scale, a melody over them, bass, and drums in two pieces of three."""
    tempo, root, scale = rng.integers(60, 160), rng.integers(48, 60), SCALES[rng.integers(len(SCALES))]

    def pitch(degree, octave):
        return int(min(root + 12 * (octave + degree // len(scale)) + scale[degree % len(scale)], 108))
    events = [(0, bytes([0xc0 | channel, rng.choice(programs)])) for channel, programs in enumerate((LEAD, CHORDS, BASS))]
    drums = rng.random() < .67
    for beat in range(int(SECONDS * tempo / 60)):
        tick = beat * TICKS
        if beat % 4 == 0:
            degree = rng.integers(7)
            for third in (0, 2, 4):
                events += note(1, pitch(degree + third, 0), tick, 4 * TICKS - 10, rng.integers(50, 90))
        if beat % 2 == 0:
            events += note(2, pitch(degree, -1), tick, TICKS, rng.integers(60, 100))
        for part in range(rng.integers(0, 4)):
            start = tick + part * TICKS // 3
            events += note(0, pitch(degree + rng.integers(0, 9), 1), start, rng.integers(TICKS // 4, TICKS), rng.integers(50, 110))
        if drums:
            for kit in (36 if beat % 2 == 0 else 38, 42):
                events += note(DRUMS, kit, tick, TICKS // 4, rng.integers(50, 110))
    return midi_file(events, tempo)


def effect(program, rng):
    """One sound at changing pitches, with and without a pause before the next."""
    events, tick = [(0, bytes([0xc0, program]))], 0
    while tick < SECONDS * 2 * TICKS:
        length = int(rng.integers(TICKS // 2, 8 * TICKS))
        events += note(0, int(rng.integers(40, 80)), tick, length, int(rng.integers(60, 120)))
        tick += length + int(rng.integers(0, 2 * TICKS))
    return midi_file(events, 120)


def played(octets):
    with tempfile.TemporaryDirectory() as folder:
        source, target = os.path.join(folder, "music.mid"), os.path.join(folder, "raw")
        with open(source, "wb") as f:
            f.write(octets)
        # At 48 kHz, and filtered on the way to 16: the synthesizer does not filter what it plays above half its rate.
        subprocess.run(["fluidsynth", "-ni", "-q", "-r", "48000", "-T", "raw", "-O", "s16", "-F", target, FONT, source],
                       check=True, stdout=subprocess.DEVNULL)
        x = np.fromfile(target, dtype="<i2").astype(float).reshape(-1, 2).mean(1)
    return resample_poly(x, 1, 3)


def build(number):
    rng = np.random.default_rng([2, number])
    x = played(piece(rng) if number < PIECES else effect(list(EFFECTS.values())[number - PIECES], rng))
    return np.rint(x * 3000 / (x.std() + 1)).clip(-32768, 32767).astype("<i2")


def name(number):
    return f"music-{number:02}" if number < PIECES else f"effect-{list(EFFECTS)[number - PIECES]}"


COUNT = PIECES + len(EFFECTS)
