#!/usr/bin/env python3
"""Blind correction on real recordings from Debian's data packages, for every built-in profile.

Fetches the packages (apt-get download, nothing installed) into a cache folder, decodes the
recordings through the tool itself, corrects each with every built-in profile and the tool's
defaults, and prints the third-octave band levels in and out relative to the 1 kHz band. It
fails (exit 1) when a profile lifts a band by more than 6 dB relative to 1 kHz where the input
lies more than 30 dB under its own 1 kHz band.

    /usr/bin/python3 bench/real_recordings.py [--tool build/cli/kelfiner] [--cache DIR]

Needs python3-numpy, python3-scipy and python3-soundfile, and sox for the telephone prompts.
"""
import argparse, glob, os, subprocess, sys, tempfile
import numpy as np
import soundfile as sf
from scipy.signal import welch

# (name, package, files inside it, what it is)
RECORDINGS = [
    ("flying-me-softly", "bumprace-data", ["usr/share/games/bumprace/sound/Flying_me_softly.ogg"],
     "music: an instrumental track, Ogg Vorbis"),
    ("upipang", "pangzero", ["usr/share/perl5/auto/share/dist/Games-PangZero/UPiPang.mp3"],
     "music: a game's theme, MP3"),
    ("music-game", "chromium-bsu-data", ["usr/share/games/chromium-bsu/wav/music_game.wav"],
     "music: a game's loop, 22 kHz WAV"),
    ("allison-prompts", "asterisk-core-sounds-en-gsm",
     ["usr/share/asterisk/sounds/en_US_f_Allison/agent-alreadyon.gsm",
      "usr/share/asterisk/sounds/en_US_f_Allison/agent-incorrect.gsm",
      "usr/share/asterisk/sounds/en_US_f_Allison/conf-adminmenu.gsm",
      "usr/share/asterisk/sounds/en_US_f_Allison/vm-intro.gsm",
      "usr/share/asterisk/sounds/en_US_f_Allison/privacy-prompt.gsm"],
     "speech: telephone prompts, 8 kHz GSM, joined"),
]
PROFILES = ["automatic", "music", "music-dark", "music-less-harsh", "speech"]
CENTRES = [1000.0 * 2 ** (k / 3) for k in range(-17, 14)]


def bands(path):
    x, rate = sf.read(path, always_2d=True)
    f, p = welch(x.T, fs=rate, nperseg=8192 if rate > 30000 else 4096)
    p = p.sum(axis=0)
    levels = {}
    for c in CENTRES:
        lo, hi = c * 2 ** (-1 / 6), c * 2 ** (1 / 6)
        if hi > rate / 2:
            break
        m = (f >= lo) & (f < hi)
        if m.any():
            levels[c] = 10 * np.log10(p[m].mean() + 1e-30)
    ref = levels[min(levels, key=lambda c: abs(c - 1000))]
    return {c: v - ref for c, v in levels.items()}


def fetch(cache, package, files):
    os.makedirs(cache, exist_ok=True)
    debs = glob.glob(os.path.join(cache, package + "_*.deb"))
    if not debs:
        subprocess.run(["apt-get", "download", package], cwd=cache, check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        debs = glob.glob(os.path.join(cache, package + "_*.deb"))
    root = os.path.join(cache, package)
    if not os.path.isdir(root):
        subprocess.run(["dpkg-deb", "-x", debs[0], root], check=True)
    return [os.path.join(root, f) for f in files]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", default="build/cli/kelfiner")
    parser.add_argument("--cache", default="build/recordings")
    args = parser.parse_args()
    tool = os.path.abspath(args.tool)
    failures, summary = [], []
    with tempfile.TemporaryDirectory() as work:
        for name, package, files, what in RECORDINGS:
            paths = fetch(os.path.abspath(args.cache), package, files)
            source = os.path.join(work, name + ".wav")
            if paths[0].endswith(".gsm"):
                subprocess.run(["sox"] + paths + ["-e", "signed-integer", "-b", "16", source], check=True)
            else:
                # Decoded by the tool itself: nothing corrected, nothing moved in level.
                subprocess.run([tool, "process", paths[0], "-o", source, "--amount", "0",
                                "--loudness", "off", "--ceiling", "off", "--bits", "32f", "-q"],
                               check=True)
            before = bands(source)
            print(f"\n### {name} ({package}: {what})\n")
            shown = [c for c in before if c < 20000]
            print("| profile | " + " | ".join(f"{c:.0f}" if c < 1000 else f"{c / 1000:.1f}k"
                                                 for c in shown) + " |")
            print("|---|" + "---|" * len(shown))
            print("| input (dB re 1 kHz) | " + " | ".join(f"{before[c]:.0f}" for c in shown) + " |")
            for profile in PROFILES:
                out = os.path.join(work, f"{name}-{profile}.wav")
                subprocess.run([tool, "process", source, "-o", out, "--target", profile, "-q"],
                               check=True)
                after = bands(out)
                lifts = {c: after[c] - before[c] for c in shown if c in after}
                print(f"| {profile} (change) | " + " | ".join(f"{lifts[c]:+.0f}" for c in shown)
                      + " |")
                deep = [lifts[c] for c in shown if before[c] < -30 and c in lifts]
                top = max(lifts, key=lambda c: lifts[c])
                low = min(lifts, key=lambda c: lifts[c])
                summary.append(f"| {name} | {profile} | {lifts[top]:+.1f} dB at {top:.0f} Hz | "
                               f"{lifts[low]:+.1f} dB at {low:.0f} Hz | "
                               + (f"{max(deep):+.1f} dB |" if deep else "none |"))
                for c in shown:
                    if before[c] < -30 and lifts.get(c, 0) > 6:
                        failures.append(f"{name}, {profile}: +{lifts[c]:.1f} dB at {c:.0f} Hz, "
                                        f"where the input is {before[c]:.0f} dB under 1 kHz")
    print("\n| recording | profile | largest lift | deepest cut | largest lift where the input "
          "lies > 30 dB under 1 kHz |\n|---|---|---|---|---|")
    print("\n".join(summary))
    print()
    for failure in failures:
        print("LIFTED AN EMPTY BAND:", failure)
    print("no profile lifted a band far under 1 kHz" if not failures else "")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
