"""Programs of others: encoders that send to the server, players that listen to it."""
import os
import pathlib
import signal
import subprocess
import time

PATIENCE = 60  # seconds for what should take a few; several of these share two cores with sanitizers


class Program:
    """A program running beside the test, the leader of a process group of its own.

    said() is what it has written so far, on standard error and, unless `output` names a file, on standard output.
    """

    def __init__(self, directory, *words, output=None, environment=None):
        self.name = pathlib.Path(str(words[0])).name
        directory = pathlib.Path(directory)
        directory.mkdir(parents=True, exist_ok=True)
        self._said = directory / f"{self.name}-{len(list(directory.iterdir()))}.said"
        with open(self._said, "wb") as said, open(output or os.devnull, "wb") as out:
            self.process = subprocess.Popen(
                [str(word) for word in words], cwd=directory, env={**os.environ, **(environment or {})},
                stdin=subprocess.DEVNULL, stdout=out if output else said, stderr=said, start_new_session=True)

    def said(self):
        return self._said.read_text("utf-8", "replace")

    def wait_until(self, holds, complaint="it did not come true", within=PATIENCE):
        """What holds() gives as soon as that is true; fails when the time is up or the program has ended."""
        deadline = time.monotonic() + within
        while True:
            ended = self.process.poll() is not None
            if result := holds():
                return result
            if ended or time.monotonic() > deadline:
                state = f"ended with {self.process.returncode}" if ended else f"still runs after {within} seconds"
                raise AssertionError(f"{complaint}; {self.name} {state}, having said:\n{self.said()[-4000:]}")
            time.sleep(0.02)

    def wait_said(self, words, within=PATIENCE):
        self.wait_until(lambda: words in self.said(), f"no {words!r}", within)

    def wait_written(self, file, count, within=PATIENCE):
        """What a file holds, once that is `count` bytes."""
        path = pathlib.Path(file)
        self.wait_until(lambda: path.exists() and path.stat().st_size >= count, f"{path.name} stays short", within)
        return path.read_bytes()

    def wait_end(self, within=PATIENCE):
        """The exit status, once the program has ended by itself."""
        self.wait_until(lambda: self.process.poll() is not None, "no end", within)
        return self.process.returncode

    def interrupt(self):
        """What Ctrl-C does in a terminal: SIGINT for the whole group."""
        os.killpg(self.process.pid, signal.SIGINT)

    def group_members(self):
        """The processes of the group that still run, by pid and name."""
        members = {}
        for entry in pathlib.Path("/proc").iterdir():
            try:
                name, _, rest = (entry / "stat").read_text().partition("(")[2].rpartition(")")
            except OSError:
                continue  # no process, or one that has just gone
            state, _, group = rest.split()[:3]
            if int(group) == self.process.pid and state != "Z":
                members[int(entry.name)] = name
        return members

    def kill(self):
        """The end of the program, and of whatever it has started in its group."""
        try:
            os.killpg(self.process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self.process.wait()


def run_program(*words, within=PATIENCE):
    """What a program writes on standard output; it must end with 0."""
    done = subprocess.run([str(word) for word in words], stdin=subprocess.DEVNULL, capture_output=True, timeout=within)
    said = done.stderr[-2000:].decode("utf-8", "replace")
    assert done.returncode == 0, f"{words[0]} ended with {done.returncode}: {said}"
    return done.stdout
