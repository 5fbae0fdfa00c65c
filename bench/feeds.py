#!/usr/bin/env python3
"""What the status feeds and pages cost, and what it costs to let thousands wait for news.

  feeds.py rates --servers quillwave,icecast2 --n 0,1000 --out feeds.jsonl
  feeds.py polls --n 1000 --polls 2000 --out feeds.jsonl

`rates` asks for each path with wrk, with so many listeners streaming beside it. `polls` measures the server with
listeners alone and with long polls open as well, in turns. Servers, source, swarm, network and
pinning are those of run.py. See README.md.
"""
import argparse
import contextlib
import json
import os
import re
import shutil
import socket
import statistics
import subprocess
import tempfile
import time

import run

PATHS = {
    "quillwave": ["/status.json", "/7", "/index.html", "/stylesheets/main.css"],
    "icecast2": ["/status-json.xsl"],
}
UNITS = {"us": 0.001, "ms": 1.0, "s": 1000.0, "m": 60000.0}
FOREVER = 100000  # seconds: the swarm listens until it is ended
SERVER_CPU, CLIENT_CPU = "0", "1"


# ---- a server with listeners -------------------------------------------------------------------------------------------

@contextlib.contextmanager
def streaming(name, listeners, warm):
    """A server with a source and so many listeners, all of them past their burst: (server, port)."""
    port = run.free_port()
    work = tempfile.mkdtemp(prefix="qbench-")
    server = run.make_server(name, port, work, ["/live"])
    source = swarm = None
    try:
        server.start(SERVER_CPU)
        source = start_source(server, port)
        time.sleep(warm)
        if listeners:
            swarm = run.Swarm(["--port", str(port), "--n", str(listeners), "--rate", "500", "--settle", "5", "--verify", "0",
                               "--window", str(FOREVER), "--mss", "1448"], CLIENT_CPU)
            if swarm.wait_for("window") is None:
                raise RuntimeError("the listeners did not all join")
        yield server, port
    finally:
        for process in (swarm and swarm.p, source):
            if process:
                process.kill()
                process.wait()
        if hasattr(server, "p"):
            server.stop()
        shutil.rmtree(work, ignore_errors=True)


def start_source(server, port):
    source = subprocess.Popen(["taskset", "-c", CLIENT_CPU, os.path.join(run.HERE, "source"), "--port", str(port), "--path", "/live",
                               "--user", server.source_user, "--pass", run.PASSWORD, "--rt"], stdout=subprocess.PIPE, text=True)
    if "connected" not in source.stdout.readline():
        raise RuntimeError("the source was refused")
    return source


def cores_over(server, seconds):
    """The cores that the server uses over this time."""
    before, start = run.cpu_clock(server.pid), time.monotonic()
    time.sleep(seconds)
    return (run.cpu_clock(server.pid) - before) / (time.monotonic() - start)


# ---- requests a second -------------------------------------------------------------------------------------------------

def wrk(port, path, connections, seconds, close):
    """Requests a second and milliseconds of the answers, as wrk sees them."""
    words = ["taskset", "-c", CLIENT_CPU, "wrk", "-t1", f"-c{connections}", f"-d{seconds}s", "--latency"]
    if close:
        words += ["-H", "Connection: close"]
    said = subprocess.run([*words, f"http://127.0.0.1:{port}{path}"], capture_output=True, text=True, check=True).stdout
    result = {"requests_per_s": float(re.search(r"Requests/sec:\s*([\d.]+)", said)[1])}
    for share in ("50", "99"):
        value, unit = re.search(share + r"%\s+([\d.]+)(us|ms|s|m)\b", said).groups()
        result[f"p{share}_ms"] = round(float(value) * UNITS[unit], 2)
    refused = re.search(r"Non-2xx or 3xx responses: (\d+)", said)
    errors = re.search(r"Socket errors: connect (\d+), read (\d+), write (\d+), timeout (\d+)", said)
    result["errors"] = (int(refused[1]) if refused else 0) + (sum(map(int, errors.groups())) if errors else 0)
    return result


def rates(a):
    for listeners in map(int, a.n.split(",")):
        for name in a.servers.split(","):
            with streaming(name, listeners, a.warm) as (server, port):
                for path in PATHS[name]:
                    for close in (False, True):
                        before = run.cpu_clock(server.pid)
                        row = wrk(port, path, a.connections, a.seconds, close)
                        row["cpu_ms_per_request"] = round(
                            (run.cpu_clock(server.pid) - before) * 1000 / max(1, row["requests_per_s"] * a.seconds), 4)
                        emit({"kind": "rates", "server": name, "listeners": listeners, "path": path, "close": close,
                              "connections": a.connections, **row}, a.out)


# ---- waiting polls -----------------------------------------------------------------------------------------------------

def open_polls(port, count):
    polls = []
    for _ in range(count):
        poll = socket.create_connection(("127.0.0.1", port))
        poll.sendall(b"GET /status.json?wfc=y HTTP/1.1\r\nHost: localhost\r\n\r\n")
        polls.append(poll)
    return polls


def answered(polls):
    """How many are waiting no longer."""
    count = 0
    for poll in polls:
        with contextlib.suppress(BlockingIOError):
            poll.recv(1, socket.MSG_PEEK | socket.MSG_DONTWAIT)
            count += 1
    return count


def polls(a):
    alone, together, ended = [], [], 0
    with streaming("quillwave", a.n, a.warm) as (server, port):
        for _ in range(a.rounds):  # in turns, so that drift of the machine falls on both
            alone.append(round(cores_over(server, a.window), 4))
            waiting = open_polls(port, a.polls)
            time.sleep(a.settle)
            together.append(round(cores_over(server, a.window), 4))
            ended += answered(waiting)
            for poll in waiting:
                poll.close()
            time.sleep(a.settle)
    added = statistics.median(together) / statistics.median(alone) - 1
    emit({"kind": "polls", "listeners": a.n, "polls": a.polls, "answered": ended, "cores_alone": alone,
          "cores_with_polls": together, "added_percent": round(added * 100, 1)}, a.out)


# ---- results -----------------------------------------------------------------------------------------------------------

def emit(row, out):
    line = json.dumps({"when": time.strftime("%Y-%m-%d %H:%M:%S"), "net": dict(run.NET), **row})
    print(line, flush=True)
    if out:
        with open(out, "a") as file:
            file.write(line + "\n")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    commands = parser.add_subparsers(dest="command", required=True)
    one = commands.add_parser("rates")
    one.add_argument("--servers", default="quillwave,icecast2")
    one.add_argument("--n", default="0,1000")
    one.add_argument("--connections", type=int, default=50)
    one.add_argument("--seconds", type=int, default=10)
    two = commands.add_parser("polls")
    two.add_argument("--n", type=int, default=1000)
    two.add_argument("--polls", type=int, default=2000)
    two.add_argument("--window", type=float, default=20)
    two.add_argument("--settle", type=float, default=12)  # until the server knows that those of the last round have gone
    two.add_argument("--rounds", type=int, default=3)
    for command in (one, two):
        command.add_argument("--warm", type=float, default=10)
        command.add_argument("--cc", default="reno")
        command.add_argument("--out")
    a = parser.parse_args()
    run.raise_fds()
    run.build()
    run.own_network(a.cc)
    {"rates": rates, "polls": polls}[a.command](a)


if __name__ == "__main__":
    main()
