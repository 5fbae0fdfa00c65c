"""Players of others listen to real streams: they decode what they would decode from the sent file."""
import pytest

from harness.compare import assert_heard
from harness.programs import run_program
from harness.recordings import ARTIST, SECONDS, TITLE
from harness.server import mount
from harness.source import HttpSource, IcySource

PCM = 44100 * 2 * 2  # bytes of a second
SETTLING = 3 * PCM // 2  # what a decoder that comes in the middle may need until it agrees with the others
PICTURE = 160 * 120 * 3 // 2


# Each makes the command with which a player writes what it decodes of a stream, an address or a file.

def ffmpeg(stream, output):
    return ["ffmpeg", "-v", "error", "-y", "-i", stream, "-f", "s16le", output]


def ffmpeg_pictures(stream, output):
    return ["ffmpeg", "-v", "error", "-y", "-i", stream, "-f", "rawvideo", "-fps_mode", "passthrough", output]


def mpg123(stream, output):
    return ["mpg123", "-q", "--no-gapless", "-O", output, stream]


def mpv(stream, output):
    return ["mpv", "--no-config", "--no-video", "--ao=pcm", f"--ao-pcm-file={output}", "--ao-pcm-waveheader=no",
            "--audio-format=s16", "--stream-lavf-o=reconnect=0", stream]


def ogg123(stream, output):
    return ["ogg123", "-q", "-d", "raw", "-f", output, stream]


def address(server):
    return f"http://{server.host}:{server.port}/live"


def stream_of(recording, seconds=SECONDS, at_once=0):
    """The beginning of a recording in pieces of a tenth of a second; the first `at_once` seconds take no time."""
    data = recording.sent.read_bytes()
    size = len(data) // (10 * SECONDS)
    for number in range(10 * seconds):
        yield data[number * size:(number + 1) * size], 0 if number < 10 * at_once else 0.1


def source(server, recording, **options):
    kind = recording.kind
    return HttpSource(server, "/live", stream_of(recording, **options), content_type=kind.content_type)


@pytest.mark.parametrize("player, kind", [
    (ffmpeg, "mp3"), (ffmpeg, "aac"), (ffmpeg, "vorbis"), (ffmpeg, "opus"), (ffmpeg, "flac"),
    (mpg123, "mp3"),
    (mpv, "mp3"), (mpv, "aac"), (mpv, "opus"),
    (ogg123, "vorbis"),
], ids=lambda value: value if isinstance(value, str) else value.__name__)
def test_a_player_hears_what_was_sent(start_server, start_program, recordings, tmp_path, player, kind):
    server, recording = start_server(mount("/live")), recordings[kind]
    with source(server, recording):
        server.wait_source()
        listening = start_program(*player(address(server), tmp_path / "heard"))
        heard = listening.wait_written(tmp_path / "heard", 5 * PCM)
        listening.kill()
    run_program(*player(recording.sent, tmp_path / "sent"))
    assert_heard(heard, (tmp_path / "sent").read_bytes(), least=3 * PCM, skipping=SETTLING)


def test_ffmpeg_sees_what_was_sent(start_server, start_program, recordings, tmp_path):
    server, recording = start_server(mount("/live")), recordings["theora"]
    with source(server, recording):
        server.wait_source()
        watching = start_program(*ffmpeg_pictures(address(server), tmp_path / "seen"))
        seen = watching.wait_written(tmp_path / "seen", 40 * PICTURE)
        watching.kill()
    run_program(*ffmpeg_pictures(recording.sent, tmp_path / "sent"))
    assert_heard(seen, (tmp_path / "sent").read_bytes(), least=39 * PICTURE)


@pytest.mark.parametrize("player, kind", [(ffmpeg, "vorbis"), (ffmpeg, "flac"), (ogg123, "vorbis"), (mpg123, "mp3")],
                         ids=lambda value: value if isinstance(value, str) else value.__name__)
def test_a_player_that_comes_later_begins_in_the_middle(start_server, start_program, recordings, tmp_path, player, kind):
    server, recording = start_server(mount("/live")), recordings[kind]
    with source(server, recording, at_once=20) as sending:
        server.wait_source()
        sending.wait_bytes(recording.size(seconds=21))
        listening = start_program(*player(address(server), tmp_path / "heard"))
        heard = listening.wait_written(tmp_path / "heard", 5 * PCM)
        listening.kill()
    run_program(*player(recording.sent, tmp_path / "sent"))
    found = assert_heard(heard, (tmp_path / "sent").read_bytes(), least=3 * PCM, skipping=SETTLING)
    assert found[0].place > 5 * PCM


@pytest.mark.parametrize("player", [ffmpeg, mpg123, mpv], ids=lambda player: player.__name__)
def test_a_player_ends_when_the_stream_does(start_server, start_program, recordings, tmp_path, player):
    server, recording = start_server([*mount("/live"), ("ClientTimeout", 1)]), recordings["mp3"]
    with source(server, recording, seconds=6) as sending:
        server.wait_source()
        listening = start_program(*player(address(server), tmp_path / "heard"))
        server.wait_log("> Connection Opened ")
        sending.wait_sent()
    listening.wait_end()
    run_program(*player(recording.sent, tmp_path / "sent"))
    assert_heard((tmp_path / "heard").read_bytes(), (tmp_path / "sent").read_bytes(), least=4 * PCM, skipping=SETTLING)


@pytest.mark.parametrize("player, options, words", [
    ("mpg123", "-v -o dummy STREAM", "StreamTitle='{}'"),
    ("mpv", "--no-config --no-video --ao=null STREAM", "icy-title: {}"),
    ("ffmpeg", "-v verbose -i STREAM -f null -", "Metadata update for StreamTitle: {}"),
])
def test_titles_reach_a_player(start_server, start_program, recordings, player, options, words):
    server = start_server(mount("/live", IsDefault="yes", MetaInterval=4096))
    with IcySource(server, stream_of(recordings["mp3"]), metaint=2048) as sending:
        sending.set_title("First of all")
        server.wait_source()
        listening = start_program(player, *options.replace("STREAM", address(server)).split())
        listening.wait_said(words.format("First of all"))
        sending.set_title("And then another")
        listening.wait_said(words.format("And then another"))


@pytest.mark.parametrize("kind", ["vorbis", "opus"])
def test_titles_inside_an_ogg_stream_reach_a_player(start_server, recordings, kind):
    server, recording = start_server(mount("/live")), recordings[kind]
    with source(server, recording):
        server.wait_source()
        tags = run_program("ffprobe", "-v", "error", "-show_entries", "stream_tags=title,artist", "-of", "flat",
                           address(server))
    assert f'title="{TITLE}"' in tags.decode() and f'artist="{ARTIST}"' in tags.decode()
