#!/usr/bin/python3
"""Scores what run_aec wrote.  usage: score_aec.py [AECSIGDIR] [OUTDIR]

 ERLE(t)  energy of mic over energy of output in the second centred on t (far talker alone), dB
 T20      first time from which 200 ms ERLE stays at 20 dB or more for half a second (active mic), s
 chg      the same after the room changes (times from the change)
 dt       near talker over the echo: segmental SNR and log-spectral distance of the output, over the near talker's
          active frames, to what the same canceller makes of the near talker alone (so a fixed filter or delay does
          not count), near level against the same (dB, least-squares gain), STOI against the near talker himself,
          ERLE in the second after he stops
 near     near talker alone: SNR of output to input, dB
 drift  the loudspeaker's clock is 50 or 20 ppm fast: ERLE at 5 s; 10 ppm: from 15 to 23 s
 music  ERLE at 3 s
 clip   loudspeaker cut off 16 or 22 dB below its peak: ERLE from 2 to 8 s, then STOI of the near talker
 jump   ERLE 1 s after the echo came 12 ms later
"""
import os, sys
import numpy as np
sys.path.insert(0, os.path.dirname(__file__))
import metrics as m
sig = sys.argv[1] if len(sys.argv) > 1 else "signals/tune"
out = sys.argv[2] if len(sys.argv) > 2 else "aec"
names = [l.strip() for l in open(os.path.join(out, "names"))]

def erle(mic, y, a, b):
    return 10 * np.log10((mic[a:b] ** 2).sum() / ((y[a:b] ** 2).sum() + 1e-3))

def t20(mic, y, rate, start, need=20.0):
    n, hop = rate // 5, rate // 20
    pm = (m.frames(mic[start:], n, hop) ** 2).mean(1)
    py = (m.frames(y[start:], n, hop) ** 2).mean(1) + 1e-3
    ok = (10 * np.log10(pm / py) >= need) | (pm < 32768 ** 2 * 10 ** -5.0)    # pauses count as held
    act = pm >= 32768 ** 2 * 10 ** -5.0
    for i in range(len(ok) - 10):
        if act[i] and ok[i:i + 10].all():
            return i * hop / rate
    return float("nan")

for rate in (8000, 16000):
    tag = "%dk" % (rate // 1000)
    print(f"\n==== {tag}\n{'who':18s} {'tail':>4s} | {'st 1s':>6s} {'3s':>6s} {'5s':>6s} {'15s':>6s} {'T20':>5s} | {'stn1s':>6s} {'5s':>6s} {'T20':>5s} | {'chg 1s':>6s} {'3s':>6s} {'5s':>6s} {'T20':>5s} | {'dt seg':>6s} {'LSD':>5s} {'STOI':>5s} {'lvl':>6s} {'after':>6s} | {'nl 5s':>6s} {'15s':>6s} | {'nearSNR':>7s} {'delay':>6s}")
    for nm in names:
        L = lambda s: m.load(f"{out}/{nm}/{tag}_{s}.s16")
        if not os.path.exists(f"{out}/{nm}/{tag}_near_0.s16"):
            continue
        near = m.load(f"{sig}/{tag}_near_0.near"); mic = m.load(f"{sig}/{tag}_near_0.mic"); y = L("near_0")
        d = m.align(mic, y, rate, 0.05)
        def sh(v): return np.concatenate([v[d:], np.zeros(d)])
        y = sh(y); nsnr = 10 * np.log10((mic ** 2).sum() / (((mic - y) ** 2).sum() + 1e-3))
        for ms in (32, 64, 128):
            mic = m.load(f"{sig}/{tag}_st_{ms}.mic"); y = sh(L(f"st_{ms}"))
            st = [erle(mic, y, int((t - .5) * rate), int((t + .5) * rate)) for t in (1, 3, 5, 15)] + [t20(mic, y, rate, 0)]
            mic = m.load(f"{sig}/{tag}_stn_{ms}.mic"); y = sh(L(f"stn_{ms}"))
            sn = [erle(mic, y, int((t - .5) * rate), int((t + .5) * rate)) for t in (1, 5)] + [t20(mic, y, rate, 0)]
            mic = m.load(f"{sig}/{tag}_chg_{ms}.mic"); y = sh(L(f"chg_{ms}"))
            cg = [erle(mic, y, int((8 + t - .5) * rate), int((8 + t + .5) * rate)) for t in (1, 3, 5)] + [t20(mic, y, rate, 8 * rate)]
            mic = m.load(f"{sig}/{tag}_dt_{ms}.mic"); nr = m.load(f"{sig}/{tag}_dt_{ms}.near"); y = sh(L(f"dt_{ms}"))
            a, b = 8 * rate, 16 * rate
            act, _ = m.activity(nr[a:b], rate)
            c, o = nr[a:b], y[a:b]
            alone = sh(L("dtn_0"))[a:b]
            dt = [m.seg_snr(alone, o, rate, act), m.lsd(alone, o, rate, act), m.stoi(c, o, rate), 20 * np.log10(max(1e-3, (alone @ o) / (alone @ alone))), erle(mic, y, int(16.3 * rate), int(17.3 * rate))]
            if ms == 64:
                mic = m.load(f"{sig}/{tag}_nl_64.mic"); yy = sh(L("nl_64"))
                nl = "%6.1f %6.1f" % tuple(erle(mic, yy, int((t - .5) * rate), int((t + .5) * rate)) for t in (5, 15))
                tail = f"{nl} | {nsnr:7.1f} {d * 1e3 / rate:6.2f}"
            else:
                tail = f"{'':6s} {'':6s} | {'':7s} {'':6s}"
            print(f"{nm:18s} {ms:4d} | " + "%6.1f %6.1f %6.1f %6.1f %5.2f | %6.1f %6.1f %5.2f | %6.1f %6.1f %6.1f %5.2f | %6.2f %5.2f %5.3f %6.2f %6.1f | " % (*st, *sn, *cg, *dt) + tail)

    print(f"\n{'who':18s} {tag:>4s} | {'drift50':>7s} {'20':>6s} {'10':>6s} | {'music':>6s} | {'clip16':>6s} {'STOI':>5s} {'clip22':>6s} {'STOI':>5s} | {'jump':>6s}")
    for nm in names:
        if not os.path.exists(f"{out}/{nm}/{tag}_jump.s16"):
            continue
        mic = m.load(f"{sig}/{tag}_near_0.mic"); d = m.align(mic, m.load(f"{out}/{nm}/{tag}_near_0.s16"), rate, 0.05)
        def after(s, a, b):
            y = m.load(f"{out}/{nm}/{tag}_{s}.s16"); y = np.concatenate([y[d:], np.zeros(d)])
            return y, erle(m.load(f"{sig}/{tag}_{s}.mic"), y, int(a * rate), int(b * rate))
        row = [after("drift50", 4.5, 5.5)[1], after("drift20", 4.5, 5.5)[1], after("drift10", 15, 23)[1], after("music", 2.5, 3.5)[1]]
        a, b = 8 * rate, 16 * rate
        for c in ("clip16", "clip22"):
            y, e = after(c, 2, 8)
            row += [e, m.stoi(m.load(f"{sig}/{tag}_{c}.near")[a:b], y[a:b], rate)]
        row.append(after("jump", 10.5, 11.5)[1])
        print(f"{nm:18s} {'':4s} | %7.1f %6.1f %6.1f | %6.1f | %6.1f %5.3f %6.1f %5.3f | %6.1f" % tuple(row))
