"""Icecast of Debian, as a peer: a server that this one relays, and one that relays this one."""
import os

from .ports import PortBlock
from .server import is_listening

CONFIG = """<icecast>
  <limits><clients>200</clients><sources>60</sources><burst-size>65536</burst-size></limits>
  <authentication>
    <source-password>hackme</source-password><relay-password>hackme</relay-password>
    <admin-user>admin</admin-user><admin-password>hackme</admin-password>
  </authentication>
  <hostname>localhost</hostname>
  <listen-socket><port>{port}</port><bind-address>127.0.0.1</bind-address></listen-socket>
  {relays}
  <fileserve>0</fileserve>
  <paths>
    <basedir>/</basedir><logdir>/</logdir>
    <webroot>/usr/share/icecast2/web</webroot><adminroot>/usr/share/icecast2/admin</adminroot>
  </paths>
  <logging><accesslog>-</accesslog><errorlog>-</errorlog><loglevel>3</loglevel></logging>
  <security><chroot>0</chroot>{owner}</security>
</icecast>
"""
RELAY = """<relay>
    <server>127.0.0.1</server><port>{port}</port><mount>{mount}</mount><local-mount>{mount}</local-mount>
    <on-demand>0</on-demand><relay-shoutcast-metadata>{metadata:d}</relay-shoutcast-metadata>
  </relay>"""
# It does not want to be root; who is not root may not change.
OWNER = "<changeowner><user>nobody</user><group>nogroup</group></changeowner>"


class Icecast:
    """A running Icecast. `relays` are (port, mount) of streams that it fetches; with `metadata` it wants titles.

    To the sources and players of this harness it is a server like ours: host, port.
    """

    def __init__(self, start_program, directory, relays=(), metadata=False):
        self.host = "127.0.0.1"
        self._block = PortBlock()
        self.port = self._block.first
        self._start_program = start_program
        directory.mkdir(parents=True, exist_ok=True)
        self.config = directory / "icecast.xml"
        self.config.write_text(CONFIG.format(
            port=self.port, owner=OWNER if os.getuid() == 0 else "",
            relays="\n  ".join(RELAY.format(port=port, mount=mount, metadata=metadata) for port, mount in relays)))
        self.program = None

    def start(self):
        self.program = self._start_program("icecast2", "-c", self.config)
        self.program.wait_until(lambda: is_listening(self.port), "it does not listen")
        return self

    def stop(self):
        self.program.kill()

    def address(self, mount):
        return f"http://{self.host}:{self.port}{mount}"
