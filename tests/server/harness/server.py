"""The program under test, in a directory of its own."""
import ctypes
import json
import os
import pathlib
import re
import signal
import socket
import subprocess
import time

from . import tcp_table
from .client import fetch
from .ports import PortBlock

ROOT = pathlib.Path(__file__).resolve().parents[3]
PATIENCE = 30  # seconds for anything that should come soon; sanitizers on a busy machine are slow
STOP_PATIENCE = 60
REPORTS = re.compile(r"ERROR: \w+Sanitizer|WARNING: ThreadSanitizer|runtime error:|SUMMARY: \w+Sanitizer")
SANITIZERS = {
    "ASAN_OPTIONS": "detect_leaks=1:exitcode=86",
    "UBSAN_OPTIONS": "print_stacktrace=1:halt_on_error=1:exitcode=86",
    "TSAN_OPTIONS": "exitcode=66",
}
ADMIN = ("admin", "hackme")


def binary():
    return os.environ.get("QUILLWAVE_BIN", str(ROOT / "build" / "dev" / "quillwave"))


def mount(address, index=1, **keys):
    """The settings of one mount: mount("/live", User="dj", Pass="secret", UserMax=10).

    Its source account is "source" with the password "hackme", unless said otherwise.
    """
    keys = {"Mount": address, "User": "source", "Pass": "hackme", **keys}
    return [(f"Source{key}{index}", value) for key, value in keys.items()]


class Server:
    """One run of the program at a time; start() again after stop() is a second run in the same directory.

    `settings` is a list of pairs or a mapping, or a function that makes it from the server (for its ports). It is
    added to the defaults below; a value None takes a default out, a list repeats a key. `config` replaces the whole
    file (a text, or a function that makes it from the server); False leaves it away. `users` is the text of the user
    file. `arguments` replaces the command line, by default the path of the configuration file.
    `console=True` keeps standard input open for say(); otherwise the server finds it at its end.
    """

    def __init__(self, directory, settings=(), *, config=None, users=None, arguments=None, console=False, environment=None):
        self.directory = pathlib.Path(directory)
        self.directory.mkdir(parents=True, exist_ok=True)
        self.host = "127.0.0.1"
        self._block = PortBlock()
        self.port = self._block.first  # PortBase
        self.source_port = self.port + 1  # SCSourcePort
        self.spare_ports = list(range(self.port + 2, self.port + 10))  # for the test to use
        self.console = console
        self.arguments = ["quillwave.conf"] if arguments is None else list(arguments)
        self._environment = environment or {}
        self.process = None
        self.returncode = None
        self._awaited = [self.port]  # bound one after the other
        if config is None:
            config = self._settings_text(settings)
        if config is not False:
            self.write("quillwave.conf", config(self) if callable(config) else config)
        if users is not None:
            self.write("quillwave-users.xml", users)

    def _settings_text(self, settings):
        defaults = {
            "PortBase": self.port,
            "SCSourcePort": self.source_port,  # set, so that the start changes nothing and the file is not rewritten
            "ServIP": self.host,
            "RealtimeLog": "no",  # no status line on standard output
            "AdminUser": ADMIN[0],
            "AdminPass": ADMIN[1],
        }
        if callable(settings):
            settings = settings(self)
        pairs = list(settings.items() if isinstance(settings, dict) else settings)
        for key, _ in pairs:
            defaults.pop(key, None)
        if "SCSourcePort" in defaults:
            self._awaited.append(self.source_port)
        lines = []
        for key, value in [*defaults.items(), *pairs]:
            for one in value if isinstance(value, list) else [value]:
                if one is not None:
                    lines.append(f"{key}={one}\n")
        return "".join(lines)

    # ---- files ---------------------------------------------------------------------------------------------------

    def path(self, name):
        return self.directory / name

    def write(self, name, text):
        self.path(name).write_text(text)

    def read(self, name, encoding="utf-8"):
        """The text of a file in the server's directory; empty when there is none."""
        try:
            return self.path(name).read_text(encoding, errors="replace")
        except FileNotFoundError:
            return ""

    def stdout(self):
        return self.read("stdout", "latin-1")

    def stderr(self):
        return self.read("stderr", "latin-1")

    def log_lines(self, name="quillwave.log"):
        """The event log without the times."""
        return [line.split("] ", 1)[-1] for line in self.read(name, "latin-1").splitlines()]

    def wait_log(self, text, count=1, within=PATIENCE):
        """The `count`th line of the event log that holds `text`; waits for it."""
        def found():
            lines = [line for line in self.log_lines() if text in line]
            return lines[count - 1] if len(lines) >= count else None
        return self.wait_until(found, within, f"no {text!r} in the event log")

    def wait_source(self, count=1):
        """Until a mount has taken a source for the `count`th time; gives the line of the event log."""
        return self.wait_log("> Source Connected (A: ", count)

    def wait_source_gone(self, count=1, address="/live"):
        """Until a source has left for the `count`th time and the mount would take another; gives the line of the log."""
        line = self.wait_log("> Source Disconnected ", count)
        self.wait_until(lambda: not self.is_on_the_air(address), complaint=f"{address} stays connected")
        return line

    def wait_read(self, connections):
        """Until the program has taken all that these connections have sent."""
        ports = {connection.local_port for connection in connections}
        self.wait_until(
            lambda: not any(entry.port == self.port and entry.peer_port in ports and entry.unread
                            for entry in tcp_table.entries()), complaint="it does not read")

    def is_on_the_air(self, address):
        document = json.loads(fetch(self.port, "/admin/status.json", user=ADMIN).text)
        return any(source["mount"] == address and source["status"] == 1 for source in document.get("sources", []))

    def listener_log(self, name="quillwave-w3c.log"):
        """The records of the listener log, each a dictionary by the names of its "#Fields" line."""
        fields, records = [], []
        for line in self.read(name, "latin-1").splitlines():
            if line.startswith("#Fields: "):
                fields = line.split()[1:]
            elif line and not line.startswith("#"):
                words = re.findall(r'"((?:[^"]|"")*)"(?: |$)|(\S*)(?: |$)', line)
                values = [quoted.replace('""', '"') or plain for quoted, plain in words]
                records.append(dict(zip(fields, values)))
        return records

    def wait_records(self, count, within=PATIENCE):
        """All records of the listener log, once there are `count` of them."""
        def found():
            records = self.listener_log()
            return records if len(records) >= count else None
        return self.wait_until(found, within, f"fewer than {count} records in the listener log")

    # ---- the process ---------------------------------------------------------------------------------------------

    def program(self):
        return binary()

    def start(self, wait=True):
        """Starts the program and, with `wait`, returns once it accepts connections."""
        environment = {**os.environ, **self._environment}
        for name, default in SANITIZERS.items():
            environment[name] = f"{environment.get(name, default)}:log_path={self.path('sanitizer')}"
        with open(self.path("stdout"), "ab") as out, open(self.path("stderr"), "ab") as err:
            self.process = subprocess.Popen(
                [self.program(), *self.arguments], cwd=self.directory, env=environment, stdout=out, stderr=err,
                stdin=subprocess.PIPE if self.console else subprocess.DEVNULL)
        self.returncode = None
        if wait:
            self.wait_accepting()
        return self

    @property
    def pid(self):
        return self.process.pid

    def wait_until(self, holds, within=PATIENCE, complaint="it did not come true"):
        """What holds() gives as soon as that is true; fails when the time is up or the program has ended."""
        deadline = time.monotonic() + within
        while True:
            alive = self.alive()
            if result := holds():
                return result
            if not alive:
                raise AssertionError(f"the server ended with {self.returncode}: {complaint}\n{self.report()}")
            if time.monotonic() > deadline:
                raise AssertionError(f"{complaint} within {within} seconds\n{self.report()}")
            time.sleep(0.01)

    def wait_accepting(self, port=None):
        """Until somebody listens at the port. No connection is made, so that the logs hold the test's own only."""
        awaited = [port] if port else self._awaited
        self.wait_until(lambda: all(map(is_listening, awaited)), complaint="nobody listens")

    def alive(self):
        if self.process is not None and self.returncode is None:
            self.returncode = self.process.poll()
        return self.process is not None and self.returncode is None

    def say(self, words):
        """Console words on standard input."""
        self.process.stdin.write(words.encode())
        self.process.stdin.flush()

    def thread_names(self):
        tasks = pathlib.Path(f"/proc/{self.pid}/task").iterdir()
        return sorted((task / "comm").read_text().rstrip("\n") for task in tasks)

    def send_signal(self, number):
        os.kill(self.pid, number)

    def wait_end(self, within=STOP_PATIENCE):
        """The exit status, once the program has ended by itself."""
        deadline = time.monotonic() + within
        while self.alive():
            if time.monotonic() > deadline:
                self.kill()
                raise AssertionError(f"the server did not end within {within} seconds\n{self.report()}")
            time.sleep(0.01)
        return self.returncode

    def stop(self, within=STOP_PATIENCE):
        """Ends the program as an operator would, and gives its exit status."""
        if self.alive():
            self.send_signal(signal.SIGTERM)
        if self.process is not None and self.process.stdin:
            self.process.stdin.close()  # a console that waits for a word sees the signal only now
        return self.wait_end(within)

    def kill(self):
        if self.alive():
            self.send_signal(signal.SIGKILL)
            self.process.wait()
            self.returncode = -signal.SIGKILL

    def close(self):
        """After the last run."""
        self.kill()
        self._block.release()

    # ---- what went wrong -----------------------------------------------------------------------------------------

    def faults(self):
        """Why this run is no good, in words; empty when it is."""
        faults = []
        reports = sorted(self.directory.glob("sanitizer*"))
        if reports or REPORTS.search(self.stderr()):
            faults.append("a sanitizer has found something")
        if self.returncode is not None and self.returncode < 0:
            faults.append(f"the server died of {signal.Signals(-self.returncode).name}")
        return faults

    def report(self, tail=60):
        """The ends of everything that the server has written."""
        parts = []
        for file in [*sorted(self.directory.glob("sanitizer*")), self.path("stderr"), self.path("stdout"), self.path("quillwave.log")]:
            lines = self.read(file.name, "latin-1").splitlines()
            if lines:
                parts.append(f"---- {file.name} ----\n" + "\n".join(lines[:tail] if "sanitizer" in file.name else lines[-tail:]))
        return "\n".join(parts)


class Daemon(Server):
    """The program with -k: the process started is gone at once, and its child serves.

    The child becomes ours when its parent ends, so that its exit status can be had.
    """

    def start(self, wait=True):
        PR_SET_CHILD_SUBREAPER = 36
        ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1)
        self._pid = None
        super().start(wait=False)
        self.parent_status = self.process.wait(PATIENCE)
        self._pid = int(self.wait_until(lambda: self.read("quillwave.pid"), complaint="no pid file"))
        if wait:
            self.wait_accepting()
        return self

    @property
    def pid(self):
        return self._pid

    def alive(self):
        if self._pid is None:
            return True  # not known yet
        if self.returncode is None:
            ended, status = os.waitpid(self._pid, os.WNOHANG)
            if ended:
                self.returncode = os.waitstatus_to_exitcode(status)
        return self.returncode is None

    def kill(self):
        if self._pid is not None and self.alive():
            os.kill(self._pid, signal.SIGKILL)
            os.waitpid(self._pid, 0)
            self.returncode = -signal.SIGKILL


def is_listening(port):
    """Whether any socket of this machine listens at the port."""
    return any(entry.port == port and entry.state == tcp_table.LISTEN for entry in tcp_table.entries())


def accepts(host, port):
    """Whether a connection can be made; it is closed again."""
    try:
        socket.create_connection((host, port), timeout=1).close()
    except OSError:
        return False
    return True


def run_to_end(directory, *arguments, within=PATIENCE):
    """The program with arguments that make it end by itself: subprocess.CompletedProcess with bytes."""
    return subprocess.run([binary(), *arguments], cwd=directory, stdin=subprocess.DEVNULL, capture_output=True, timeout=within)
