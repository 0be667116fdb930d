#!/usr/bin/python3
"""Scores what run_ns made of the judging material.  usage: score_judge.py [SIGNALS_DIR] [RESULTS_DIR]

For each noise, means over voices and levels: gain in SI-SDR and in segmental SNR, log-spectral distance, STOI and ESTOI with
the unprocessed signal's in brackets. The last column is the worst loss of STOI or ESTOI of a noise against the unprocessed
signal: for no noise may it be more than .005.
"""
import glob
import os
import sys

import numpy as np

sys.path.insert(0, os.path.dirname(__file__))
import metrics as m

sig = sys.argv[1] if len(sys.argv) > 1 else "signals/noises"
out = sys.argv[2] if len(sys.argv) > 2 else "ns_judge"
names = [line.strip() for line in open(os.path.join(out, "names"))]


def scores(clean, y, rate):
    act, _ = m.activity(clean, rate)
    return np.array([m.si_sdr(clean, y), m.seg_snr(clean, y, rate, act), m.lsd(clean, y, rate, act), m.stoi(clean, y, rate),
                     m.stoi(clean, y, rate, True)])


def processed(name, file, clean_file, clean, rate):
    """What a reducer made of a file, without its delay."""
    d = m.align(clean, m.load(f"{out}/{name}/{clean_file}.s16"), rate)
    y = m.load(f"{out}/{name}/{file}.s16")
    return np.concatenate([y[d:], np.zeros(d)])


def judged(tag):
    """{noise: {name: rows of scores}}; 'none' is the unprocessed signal"""
    rate, table = int(tag[:-1]) * 1000, {}
    for path in sorted(glob.glob(f"{sig}/ns_{tag}_*.s16")):
        file = os.path.basename(path)[:-4]
        _, _, noise, voice, _ = file.split("_")
        clean_file = f"speech_{tag}_{voice}"
        clean = m.load(f"{sig}/{clean_file}.s16")
        rows = table.setdefault(noise, {})
        rows.setdefault("none", []).append(scores(clean, m.load(path), rate))
        for name in names:
            if os.path.exists(f"{out}/{name}/{file}.s16"):
                rows.setdefault(name, []).append(scores(clean, processed(name, file, clean_file, clean, rate), rate))
    return table


def show(who, noise, mean, none, lost):
    print(f"{who:16s} {noise:10s} {mean[0] - none[0]:7.2f} {mean[1] - none[1]:6.2f} {mean[2]:6.2f} ({none[2]:5.2f}) "
          f"{mean[3]:6.3f} ({none[3]:.3f}) {mean[4]:6.3f} ({none[4]:.3f}) {lost:7.3f}")


for tag in ("8k", "16k"):
    table = judged(tag)
    print(f"\n==== {tag}\n{'who':16s} {'noise':10s} {'dSISDR':>7s} {'dSeg':>6s} {'LSD':>6s} {'':7s} {'STOI':>6s} {'':7s} "
          f"{'ESTOI':>6s} {'':7s} {'lost':>7s}")
    for name in names:
        if not all(name in rows for rows in table.values()):
            continue
        means = {noise: (np.mean(rows[name], 0), np.mean(rows["none"], 0)) for noise, rows in table.items()}
        lost = {noise: max(0, *(none - mean)[3:]) for noise, (mean, none) in means.items()}
        for noise, (mean, none) in means.items():
            show(name, noise, mean, none, lost[noise])
        show(name, "mean", *np.mean(list(means.values()), 0), max(lost.values()))
