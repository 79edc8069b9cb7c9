#!/usr/bin/env python3
"""Writes the example bundles' alert sounds.

The output is deterministic, so running this again leaves the committed files
unchanged. Each sound is 16-bit mono at 16 kHz and stays well under 20 KB.
"""
import math
import os
import struct
import wave

RATE = 16000
HERE = os.path.dirname(os.path.abspath(__file__))


def tone(frequency, seconds, decay):
    """A sine note with a short attack and an exponential fade."""
    count = int(RATE * seconds)
    attack = int(RATE * 0.005)
    notes = []
    for i in range(count):
        t = i / RATE
        envelope = min(1.0, i / attack) * math.exp(-t * decay)
        notes.append(envelope * math.sin(2 * math.pi * frequency * t))
    return notes


def mix(length, *parts):
    """Adds (offset in seconds, samples) parts into one track of `length` seconds."""
    track = [0.0] * int(RATE * length)
    for offset, samples in parts:
        first = int(RATE * offset)
        for i, sample in enumerate(samples[: len(track) - first]):
            track[first + i] += sample
    return track


def write(path, samples, volume=0.6):
    peak = max(1e-9, max(abs(s) for s in samples))
    frames = b"".join(struct.pack("<h", round(32767 * volume * s / peak)) for s in samples)
    with wave.open(path, "wb") as out:
        out.setnchannels(1)
        out.setsampwidth(2)
        out.setframerate(RATE)
        out.writeframes(frames)


SOUNDS = {
    # Two quick rising notes.
    "Chat.tapp/ding.wav": mix(0.35, (0.0, tone(880, 0.15, 18)), (0.08, tone(1320, 0.27, 12))),
    # A soft major triad, struck together.
    "Reminders.tapp/chime.wav": mix(
        0.5, (0.0, tone(523.25, 0.5, 6)), (0.0, tone(659.25, 0.5, 7)), (0.0, tone(783.99, 0.5, 8))),
    # Two dry clicks.
    "News.tapp/tick.wav": mix(0.2, (0.0, tone(2000, 0.04, 90)), (0.1, tone(1600, 0.05, 80))),
}

if __name__ == "__main__":
    for name, samples in SOUNDS.items():
        path = os.path.join(HERE, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        write(path, samples)
        print(f"{name}: {os.path.getsize(path)} bytes")
