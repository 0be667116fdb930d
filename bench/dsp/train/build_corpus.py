#!/usr/bin/python3
"""Builds the corpus: build_corpus.py FOLDER [SHARE]

Raw files of 16-bit samples at 16 kHz and SHA256SUMS over them. SHARE (1) shortens every voice and leaves out as many pieces
of music, for a trial. The same packages give the same bytes; a file that is there is not made again.
"""
import hashlib
import os
import sys
from multiprocessing import Pool

import music
import speech


MODULES = {"speech": speech, "music": music}


def make(job):
    folder, kind, number, arguments = job
    module = MODULES[kind]
    path = os.path.join(folder, module.name(number) + ".s16")
    if not os.path.exists(path):
        module.build(number, *arguments).tofile(path + ".part")
        os.rename(path + ".part", path)
    return path


def main():
    folder, share = sys.argv[1], float(sys.argv[2]) if len(sys.argv) > 2 else 1.0
    os.makedirs(folder, exist_ok=True)
    step = max(1, round(1 / share))
    jobs = [(folder, "speech", i, (share,)) for i in range(len(speech.VOICES))]
    jobs += [(folder, "music", i, ()) for i in range(0, music.COUNT, step)]
    with Pool(2) as pool:
        files = sorted(pool.imap_unordered(make, jobs))
    with open(os.path.join(folder, "SHA256SUMS"), "w") as f:
        for path in files:
            f.write(f"{hashlib.sha256(open(path, 'rb').read()).hexdigest()}  {os.path.basename(path)}\n")
    seconds = sum(os.path.getsize(p) for p in files) / 2 / speech.RATE
    print(f"{len(files)} files, {seconds / 60:.0f} minutes")


main()
