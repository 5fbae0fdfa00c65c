"""An operator at the console."""
from .client import fetch

CONF = "quillwave.conf"


def reload(server, text=None):
    """Writes the settings, if there are new ones, says "r" and waits until it is done."""
    if text is not None:
        server.write(CONF, text)
    done = server.log_lines().count(f"Configuration loaded from {CONF}")
    server.say("r\n")
    server.wait_log(f"Configuration loaded from {CONF}", done + 1)


def save(server):
    """Says "s" and waits until it is done."""
    done = saves(server)
    fetch(server.port, f"/save/{done}")  # equal lines of the log that follow each other are one
    server.wait_log(f"(/save/{done})")
    server.say("s\n")
    server.wait_until(lambda: saves(server) > done, complaint="nothing is saved")


def saves(server):
    return server.log_lines().count(f"Configuration saved to {CONF}")


def lines_of(pairs):
    """Settings as they stand in the file."""
    return "".join(f"{key}={value}\n" for key, value in pairs)


def comes_true(server, holds):
    """Waits until a change shows."""
    server.wait_until(holds, complaint="the change has no effect")
