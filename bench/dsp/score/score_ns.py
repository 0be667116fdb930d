#!/usr/bin/python3
"""Scores what run_ns wrote.  usage: score_ns.py [SIGNALS_DIR] [RESULTS_DIR]

Per condition, against the clean speech after removing the algorithm's delay:
 dSeg   gain in segmental SNR over the noisy input (20 ms active frames, -10..35 dB)
 dSISDR gain in scale-invariant SDR over the whole file
 NA     noise attenuation in speech pauses from second 3 on, dB
 LSD    log-spectral distance to clean, dB (noisy input's own value in the row 'none')
 STOI, ESTOI
 kurt   log of (kurtosis of the residual noise spectrum / that of the input noise): musical noise, 0 is none
start/step/final: see adapt().  On clean speech: SNR of output to input, LSD, level change of active frames, STOI.
"""
import os, sys
import numpy as np
sys.path.insert(0, os.path.dirname(__file__))
import metrics as m

sig = sys.argv[1] if len(sys.argv) > 1 else "signals/data"
out = sys.argv[2] if len(sys.argv) > 2 else "ns"
names = [l.strip() for l in open(os.path.join(out, "names"))]

def adapt(nm, tag, rate):
    """noise alone, 15 dB louder from 6 s: seconds until the attenuation (200 ms) is within 3 dB of its final value,
    from the start and after the step, and that final value"""
    p = f"{out}/{nm}/step_{tag}.s16"
    if not os.path.exists(p):
        return float("nan"), float("nan"), float("nan")
    x, y = m.load(f"{sig}/step_{tag}.s16"), m.load(p)
    d = delay[nm]; y = np.concatenate([y[d:], np.zeros(d)])
    n, h = rate // 5, rate // 20
    a = 10 * np.log10(((m.frames(x, n, h) ** 2).mean(1) + 1e-3) / ((m.frames(y, n, h)[:1 + (len(x) - n) // h] ** 2).mean(1) + 1e-3))
    k6 = int(6 * rate / h)
    f1, f2 = np.median(a[k6 - 40:k6 - 8]), np.median(a[-50:-10])
    t1 = next((i * h / rate for i in range(k6) if (a[i:i + 10] > f1 - 3).all()), float("nan"))
    t2 = next(((i - k6) * h / rate for i in range(k6, len(a) - 10) if (a[i:i + 10] > f2 - 3).all()), float("nan"))
    return t1, t2, f2

def kurt(y, rate, idx):
    n = rate // 50
    f = m.frames(y, n, n)
    f = f[:len(idx)][idx[:len(f)]]
    P = np.abs(np.fft.rfft(f * np.hanning(n), axis=1)) ** 2
    P = P[:, 3:int(n * 0.45)]
    return np.mean((P ** 2).mean(0) / P.mean(0) ** 2)     # 2 for exponential power (Gaussian noise)

for rate in (8000, 16000):
    tag = "%dk" % (rate // 1000)
    clean = m.load(f"{sig}/speech_{tag}.s16")
    act, sil = m.activity(clean, rate)
    sil3 = sil.copy(); sil3[:int(3 * 50)] = False            # pauses after second 3
    hop = rate // 50
    rows = {}
    print(f"\n==== {tag}: active frames {act.mean():.2f}, pauses {sil.mean():.2f}")
    print(f"{'who':16s} {'noise':7s} {'SNR':>3s} {'dSeg':>6s} {'dSISDR':>7s} {'NA':>6s} {'LSD':>6s} {'STOI':>6s} {'ESTOI':>6s} {'kurt':>6s}")
    delay = {}
    for nm in names:
        p = f"{out}/{nm}/speech_{tag}.s16"
        if os.path.exists(p):
            delay[nm] = m.align(clean, m.load(p), rate)
    for nz in ("white", "fan", "babble"):
        for snr in ("00", "05", "10", "15"):
            noisy = m.load(f"{sig}/ns_{tag}_{nz}_{snr}.s16")
            noise = noisy - clean
            base = m.seg_snr(clean, noisy, rate, act)
            bsd = m.si_sdr(clean, noisy)
            for nm in names:
                if nm not in delay:
                    continue
                d = delay[nm]
                y = m.load(f"{out}/{nm}/ns_{tag}_{nz}_{snr}.s16")
                y = np.concatenate([y[d:], np.zeros(d)])
                c = clean[:len(y)]
                n = hop
                pin = (m.frames(noise, n, n)[:len(sil3)] ** 2).mean(1)[sil3].mean()
                pout = (m.frames(y, n, n)[:len(sil3)] ** 2).mean(1)[sil3[:len(y) // n]].mean()
                r = dict(dSeg=m.seg_snr(c, y, rate, act) - base, dSI=m.si_sdr(c[hop * 150:], y[hop * 150:]) - m.si_sdr(c[hop * 150:], noisy[hop * 150:]),
                         NA=10 * np.log10(pin / (pout + 1e-3)), LSD=m.lsd(c, y, rate, act), STOI=m.stoi(c, y, rate), ESTOI=m.stoi(c, y, rate, True),
                         kurt=np.log(kurt(y, rate, sil3) / kurt(noise, rate, sil3)))
                rows.setdefault(nm, []).append((nz, snr, r))
                print(f"{nm:16s} {nz:7s} {snr:>3s} {r['dSeg']:6.2f} {r['dSI']:7.2f} {r['NA']:6.1f} {r['LSD']:6.2f} {r['STOI']:6.3f} {r['ESTOI']:6.3f} {r['kurt']:6.2f}")
    print(f"\n-- {tag} means over the 12 conditions, by noise (white/fan/babble), and clean speech")
    print(f"{'who':16s} {'delay ms':>8s} {'dSeg':>6s} {'  w/f/b':>17s} {'dSISDR':>7s} {'NA':>6s} {'  w/f/b':>17s} {'LSD':>6s} {'STOI':>6s} {'ESTOI':>6s} {'kurt':>6s} | {'SNR':>6s} {'LSD':>5s} {'lvl dB':>6s} {'STOI':>6s} | {'start s':>7s} {'step s':>6s} {'final':>6s}")
    for nm in names:
        if nm not in delay:
            continue
        r = rows[nm]
        mean = lambda k, f=None: np.mean([x[k] for a, b, x in r if f is None or a == f])
        by = lambda k: "/".join("%.1f" % mean(k, z) for z in ("white", "fan", "babble"))
        d = delay[nm]
        y = m.load(f"{out}/{nm}/speech_{tag}.s16"); y = np.concatenate([y[d:], np.zeros(d)])
        n = hop
        la, lb = (m.frames(clean, n, n) ** 2).mean(1)[act].mean(), (m.frames(y, n, n)[:len(act)] ** 2).mean(1)[act].mean()
        e = clean - y
        t1, t2, f2 = adapt(nm, tag, rate)
        print(f"{nm:16s} {d * 1e3 / rate:8.1f} {mean('dSeg'):6.2f} {by('dSeg'):>17s} {mean('dSI'):7.2f} {mean('NA'):6.1f} {by('NA'):>17s} {mean('LSD'):6.2f} {mean('STOI'):6.3f} {mean('ESTOI'):6.3f} {mean('kurt'):6.2f} | "
              f"{10 * np.log10((clean ** 2).sum() / ((e ** 2).sum() + 1e-9)):6.1f} {m.lsd(clean, y, rate, act):5.2f} {10 * np.log10(lb / la):6.2f} {m.stoi(clean, y, rate):6.3f} | {t1:7.2f} {t2:6.2f} {f2:6.1f}")
