#!/usr/bin/env python3
"""Composes the demo loop and encodes it: demo/make-loop.py loop.mp3 (needs ffmpeg with libmp3lame).

Four bars of slow arpeggios over a soft bass, in stereo; the tail of each note runs on over the
end of the loop, so that it repeats without a seam.
"""
import array
import math
import subprocess
import sys

RATE = 44100
BEAT = 0.5
CHORDS = [(220.00, 261.63, 329.63, 440.00), (174.61, 220.00, 261.63, 349.23),
          (261.63, 329.63, 392.00, 523.25), (196.00, 246.94, 293.66, 392.00)]  # Am F C G


def note(left, right, start, pitch, seconds, volume, pan):
    total = len(left)
    for i in range(int(seconds * RATE)):
        t = i / RATE
        level = volume * min(1.0, t * 40) * math.exp(-3.2 * t / seconds)
        wave = math.sin(2 * math.pi * pitch * t) + 0.35 * math.sin(4 * math.pi * pitch * t) * math.exp(-4 * t)
        at = (start + i) % total
        left[at] += level * wave * (1 - pan)
        right[at] += level * wave * pan


def compose():
    samples = int(len(CHORDS) * 8 * BEAT * RATE)
    left, right = [0.0] * samples, [0.0] * samples
    for bar, chord in enumerate(CHORDS):
        begin = bar * 8
        note(left, right, int(begin * BEAT * RATE), chord[0] / 2, 4.0, 0.30, 0.5)
        for step in range(8):
            pitch = chord[[0, 1, 2, 3, 2, 3, 1, 2][step]]
            note(left, right, int((begin + step) * BEAT * RATE), pitch, 1.8, 0.22, 0.3 + 0.4 * (step % 2))
    return left, right


def main():
    left, right = compose()
    pcm = array.array("h", (int(max(-1.0, min(1.0, s)) * 32000) for pair in zip(left, right) for s in pair))
    subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "s16le", "-ar", str(RATE), "-ac", "2", "-i", "-", "-c:a", "libmp3lame",
                    "-b:a", "96k", "-write_xing", "0", "-id3v2_version", "0", sys.argv[1]], input=pcm.tobytes(), check=True)


main()
