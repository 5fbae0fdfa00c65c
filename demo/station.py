#!/usr/bin/env python3
"""Sends a loop of MP3 to a server, at the pace at which it plays, with a title for each round.

It logs in the way ICY sources do: "user:password" as the first line, the stream's properties as
header lines, then audio with a metadata block after every METAINT bytes. It tries again when the
server is not there or goes away.
"""
import argparse
import itertools
import signal
import socket
import sys
import time

METAINT = 8192
RETRY_SECONDS = 1
TITLES = ["Low Tide", "Paper Lanterns", "The Long Wave", "Inkwell"]

# ISO 11172-3: MPEG-1 Layer III, by bitrate index and sampling index.
KBITS = [0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320]
RATES = [44100, 48000, 32000]
SAMPLES_PER_FRAME = 1152


def frames(data):
    """Yields (bytes, seconds) for each MPEG-1 Layer III frame; skips what stands between them."""
    at = 0
    while at + 4 <= len(data):
        head = data[at:at + 4]
        bitrate, rate = head[2] >> 4, (head[2] >> 2) & 3
        if head[0] != 0xFF or head[1] & 0xFE != 0xFA or bitrate in (0, 15) or rate == 3:
            at += 1
            continue
        length = 144 * KBITS[bitrate] * 1000 // RATES[rate] + ((head[2] >> 1) & 1)
        if at + length > len(data):
            return
        yield data[at:at + length], SAMPLES_PER_FRAME / RATES[rate]
        at += length


def metadata_block(title):
    text = f"StreamTitle='{title}';StreamUrl='';".encode()
    units = len(text) // 16 + 1
    return bytes([units]) + text.ljust(units * 16, b"\0")


class Interleaver:
    """Puts a metadata block after every METAINT bytes of audio: the title when it is new, else an empty one."""

    def __init__(self):
        self.left, self.title = METAINT, None

    def pack(self, audio):
        out = bytearray()
        while len(audio) >= self.left:
            out += audio[:self.left] + (metadata_block(self.title) if self.title else b"\0")
            audio, self.left, self.title = audio[self.left:], METAINT, None
        self.left -= len(audio)
        return bytes(out + audio)


def log_in(args):
    server = socket.create_connection((args.host, args.port), timeout=10)
    server.sendall(f"{args.user}:{args.password}\r\n".encode())
    if not server.recv(64).startswith(b"OK"):
        raise PermissionError("the server refuses the login")
    server.sendall(b"content-type:audio/mpeg\r\nicy-name:Quillwave Demo\r\nicy-genre:Ambient\r\nicy-pub:0\r\n"
                   b"icy-br:96\r\nicy-metaint:%d\r\n\r\n" % METAINT)
    return server


def play(server, loop):
    stream, due = Interleaver(), time.monotonic()
    for round_number in itertools.count():
        stream.title = TITLES[round_number % len(TITLES)]
        for frame, seconds in loop:
            server.sendall(stream.pack(frame))
            due += seconds
            time.sleep(max(0.0, due - time.monotonic()))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--host", default="localhost")
    parser.add_argument("--port", type=int, default=8000)
    parser.add_argument("--user", required=True)
    parser.add_argument("--password", required=True)
    parser.add_argument("loop", help="an MP3 file")
    args = parser.parse_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    signal.signal(signal.SIGINT, lambda *_: sys.exit(0))
    with open(args.loop, "rb") as file:
        loop = list(frames(file.read()))
    while True:
        try:
            with log_in(args) as server:
                play(server, loop)
        except PermissionError as fault:
            sys.exit(str(fault))
        except OSError:
            time.sleep(RETRY_SECONDS)


if __name__ == "__main__":
    main()
