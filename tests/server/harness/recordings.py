"""Real streams: noise and moving pictures, encoded by ffmpeg. Noise, so that no two stretches are alike.

They are made once for a test run and last longer than any test listens, so that a player that starts late on a
busy machine still finds its source playing.
"""
import dataclasses
import fcntl
import pathlib
import shlex

from .programs import run_program

SECONDS = 45
NOISE = f"-f lavfi -i anoisesrc=sample_rate=44100:amplitude=0.2:color=pink:seed=7 -t {SECONDS} -ac 2"
PICTURES = f"-f lavfi -i testsrc2=size=160x120:rate=10 -t {SECONDS}"
TITLE, ARTIST = "Drift", "The Noise"
# One serial number for all runs, so that the same stream is the same bytes.
SAME_BYTES = "-fflags +bitexact"


@dataclasses.dataclass(frozen=True)
class Kind:
    file: str
    encoding: str  # options of ffmpeg, from the input to the codec
    container: str  # as ffmpeg calls it
    content_type: str


KINDS = {
    "mp3": Kind("noise.mp3", f"{NOISE} -c:a libmp3lame -b:a 128k", "mp3", "audio/mpeg"),
    # Without noise substitution: that is random, and two decoders would not agree.
    "aac": Kind("noise.aac", f"{NOISE} -c:a aac -b:a 96k -aac_pns 0", "adts", "audio/aac"),
    "vorbis": Kind("vorbis.ogg", f"{NOISE} -c:a libvorbis -q:a 9", "ogg", "application/ogg"),
    "opus": Kind("opus.ogg", f"{NOISE} -c:a libopus -b:a 256k", "ogg", "application/ogg"),
    "flac": Kind("flac.ogg", f"{NOISE} -c:a flac", "ogg", "application/ogg"),
    "theora": Kind("theora.ogg", f"{PICTURES} -c:v libtheora -q:v 7", "ogg", "video/ogg"),
}


class Recording:
    """A stream of one kind. `path` is what encoders are given, `sent` the stream that they make of it."""

    def __init__(self, directory, kind):
        self.kind = kind
        self.path = directory / kind.file
        self.sent = directory / f"{kind.file}.sent"

    def make(self):
        tags = f"-metadata title='{TITLE}' -metadata artist='{ARTIST}'"
        ffmpeg(f"{self.kind.encoding} {tags} {SAME_BYTES} -f {self.kind.container}", self.path)
        # Into a pipe, as into a connection: nothing can be filled in afterwards.
        self.sent.write_bytes(ffmpeg(f"-i {self.path} {self.sending}", "pipe:1"))

    @property
    def sending(self):
        """The options with which ffmpeg sends the recording."""
        return f"-c copy {SAME_BYTES} -f {self.kind.container}"

    def size(self, seconds):
        """How many bytes of the stream play for so long."""
        return self.sent.stat().st_size * seconds // SECONDS


def ffmpeg(options, output):
    return run_program("ffmpeg", "-v", "error", "-y", *shlex.split(options), output)


def make_recordings(directory):
    """All recordings by name. Whoever comes first makes them; other workers of this run wait, and share them."""
    directory = pathlib.Path(directory)
    directory.mkdir(parents=True, exist_ok=True)
    recordings = {name: Recording(directory, kind) for name, kind in KINDS.items()}
    with open(directory / "lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        done = directory / "done"
        if not done.exists():
            for recording in recordings.values():
                recording.make()
            done.touch()
    return recordings
