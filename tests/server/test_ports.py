"""Listening: which ports are bound, what is said about it, and what happens at its limits."""
import resource
import socket
import time

import pytest

from harness import tcp_table
from harness.client import Connection, fetch
from harness.operator import CONF
from harness.server import ADMIN, accepts


def listening_lines(server):
    prefix, suffix = "Listening to ", " for incoming connections..."
    return [line[len(prefix):-len(suffix)] for line in server.log_lines() if line.startswith(prefix)]


def settings_after_save(server):
    server.wait_log("Configuration saved to quillwave.conf")
    return server.read("quillwave.conf").splitlines()


def has_ipv6():
    try:
        with socket.socket(socket.AF_INET6) as probe:
            probe.bind(("::1", 0))
        return True
    except OSError:
        return False


def test_start_tells_what_it_listens_to(start_server):
    server = start_server()
    server.wait_log("Starting thread pool of ")
    lines = server.log_lines()
    at = lines.index(f"Listening to 127.0.0.1:{server.port} for incoming connections...")
    assert lines[at + 1] == f"Listening to 127.0.0.1:{server.source_port} for incoming connections..."
    assert lines[at + 2] == "Server Bound 2 sockets"
    assert lines[at + 3].startswith("Starting thread pool of ")


def test_every_port_carries_every_protocol(start_server):
    server = start_server()
    for port in (server.port, server.source_port):
        assert fetch(port, "/nowhere").status == 404
        with Connection(port) as connection:
            connection.send("nobody:wrong\r\n")
            assert connection.receive_until(b"\r\n") == b"bad password\r\n"


def test_source_port_follows_the_largest_port_base_and_is_saved(start_server):
    server = start_server([("SCSourcePort", None)])
    server.wait_log("Server Bound 2 sockets")
    assert listening_lines(server) == [f"127.0.0.1:{server.port}", f"127.0.0.1:{server.port + 1}"]
    assert f"SCSourcePort={server.port + 1}" in settings_after_save(server)


def test_source_port_equal_to_the_largest_port_base_moves_on(start_server):
    server = start_server(lambda s: [("PortBase", [s.port, s.port + 5]), ("SCSourcePort", s.port + 5)])
    server.wait_log("Server Bound 3 sockets")
    assert listening_lines(server) == [f"127.0.0.1:{server.port + offset}" for offset in (0, 5, 6)]
    assert f"SCSourcePort={server.port + 6}" in settings_after_save(server)


@pytest.mark.parametrize("source_port", [None, 0])
def test_source_port_that_is_not_set_listens_behind_the_largest_port_base(start_server, source_port):
    server = start_server(lambda s: [("PortBase", [s.spare_ports[4], s.port]), ("SCSourcePort", source_port)])
    largest = server.spare_ports[4]
    server.wait_log("Server Bound 3 sockets")
    assert listening_lines(server) == [f"127.0.0.1:{port}" for port in (largest, server.port, largest + 1)]
    assert fetch(largest + 1, "/nowhere").status == 404
    assert not accepts(server.host, server.port + 1)
    server.stop()  # does the save that is pending
    assert [line for line in server.read(CONF).splitlines() if "Source" in line] == [f"SCSourcePort={largest + 1}"]


def test_source_port_behind_the_last_port_of_all_is_zero_and_left_to_the_system(start_server):
    def address(server):  # nobody else's, as the port is the same in every run
        return f"127.{server.port // 256}.{server.port % 256}.1"
    server = start_server(lambda s: [("PortBase", 65535), ("ServIP", address(s)), ("SCSourcePort", None)], wait=False)
    server.wait_log("Server Bound 2 sockets")
    host = address(server)
    last, (chosen_host, chosen) = [line.split(":") for line in listening_lines(server)]
    assert last == [host, "65535"]
    assert chosen_host == host and chosen not in ("0", "65535")
    for port in (65535, int(chosen)):
        assert fetch(port, "/nowhere", host=host).status == 404
    server.stop()  # does the save that is pending
    assert "SCSourcePort=0" in server.read(CONF).splitlines()


def test_source_port_of_its_own_is_bound_and_changes_nothing(start_server):
    server = start_server(lambda s: [("PortBase", s.port), ("SCSourcePort", s.port + 7)])
    server.wait_log("Server Bound 2 sockets")
    assert accepts(server.host, server.port + 7)
    assert not accepts(server.host, server.port + 1)
    before = server.read("quillwave.conf")
    server.stop()
    assert server.read("quillwave.conf") == before


def test_same_port_twice_is_bound_once_with_a_warning(start_server):
    server = start_server(lambda s: [("PortBase", [s.port, s.port])])
    server.wait_log(f"Warning: Unable to bind to port {server.port}")
    server.wait_log("Server Bound 2 sockets")


def test_addresses_are_bound_in_the_order_of_the_file(start_server):
    server = start_server([("ServIP", ["127.0.0.1", "127.0.0.2"])])
    server.wait_log("Server Bound 4 sockets")
    assert listening_lines(server) == [f"{ip}:{port}" for ip in ("127.0.0.1", "127.0.0.2")
                                       for port in (server.port, server.source_port)]
    assert fetch(server.port, "/nowhere", host="127.0.0.2").status == 404


@pytest.mark.parametrize("any_address", ["ANY", "any", "Any", None])
def test_any_is_the_wildcard(start_server, any_address):
    server = start_server([("ServIP", any_address), ("ServProtocolFamily", "INET")])
    server.wait_log("Server Bound 2 sockets")
    assert listening_lines(server) == [f"0.0.0.0:{server.port}", f"0.0.0.0:{server.source_port}"]
    assert fetch(server.port, "/nowhere", host="127.0.0.9").status == 404


@pytest.mark.parametrize("family", ["inet", "INet", "INET"])
def test_inet_is_one_ipv4_socket_for_each_port(start_server, family):
    server = start_server([("ServIP", None), ("ServProtocolFamily", family)])
    server.wait_log("Server Bound 2 sockets")
    ports = [server.port, server.source_port]
    assert listening_lines(server) == [f"0.0.0.0:{port}" for port in ports]
    listening = [entry.port for entry in tcp_table.entries() if entry.state == tcp_table.LISTEN and entry.port in ports]
    assert sorted(listening) == ports
    # A socket of the other family that was tried in vain would have left one of these.
    assert not [line for line in server.log_lines() if line.startswith(("Warning: Unable to bind", "Error initializing"))]


def test_family_is_open_by_default(start_server):
    server = start_server([("ServIP", None)])
    server.wait_log("Server Bound 2 sockets")
    assert listening_lines(server) == [f"0.0.0.0:{server.port}", f"0.0.0.0:{server.source_port}"]
    warned = any(line == f"Warning: Unable to bind to port {server.port}" for line in server.log_lines())
    assert warned == has_ipv6(), "the IPv6 wildcard claims IPv4, which is taken by then"


def test_host_name_as_address_leaves_it_without_a_listener(start_server):
    server = start_server([("ServIP", "localhost")], wait=False)
    server.wait_log("Unable to get information about your machine's network capabilities ( Name or service not known)")
    assert not accepts(server.host, server.port)
    assert "ThreadPool Work" not in server.thread_names()
    assert server.stop() == 0
    assert "Server Thread Shutting Down" not in server.log_lines()


def test_taken_ports_leave_it_without_a_listener_until_it_is_told_to_stop(start_server):
    first = start_server()
    second = start_server([("PortBase", first.port), ("SCSourcePort", first.source_port)], wait=False)
    second.wait_log("Error Initializing any client ports, unable to continue.")
    lines = second.log_lines()
    assert f"Warning: Unable to bind to port {first.port}" in lines
    assert not any(line.startswith("Server Bound") for line in lines)
    assert second.alive()
    assert second.stop() == 0


def test_connection_made_right_at_the_start_is_served(start_server):
    server = start_server(wait=False)
    server.wait_accepting()
    assert fetch(server.port, "/nowhere", user=ADMIN).status == 404


def test_descriptor_limit_is_logged_once_a_second_and_passes(start_server):
    server = start_server()
    assert fetch(server.port, "/nowhere").status == 404
    soft, hard = resource.prlimit(server.pid, resource.RLIMIT_NOFILE)
    in_use = len(list((server.path("/proc") / str(server.pid) / "fd").iterdir()))
    resource.prlimit(server.pid, resource.RLIMIT_NOFILE, (in_use, hard))
    waiting = [Connection(server.port) for _ in range(3)]
    time.sleep(2.5)
    resource.prlimit(server.pid, resource.RLIMIT_NOFILE, (soft, hard))
    for connection in waiting:
        connection.send("GET /nowhere HTTP/1.0\r\n\r\n")
        assert connection.receive_head().status == 404
        connection.close()
    # The log file cannot be opened at the limit; the console shows the lines.
    out = server.stdout()
    assert 2 <= out.count("ERROR: Quillwave cannot accept anymore clients due to system limits. Retrying in one second.") <= 4
    assert "WARNING: Unable to accept new client. Error: Too many open files" in out


def test_stop_at_the_descriptor_limit_does_not_wait(start_server):
    server = start_server()
    assert fetch(server.port, "/nowhere").status == 404
    hard = resource.prlimit(server.pid, resource.RLIMIT_NOFILE)[1]
    resource.prlimit(server.pid, resource.RLIMIT_NOFILE, (3, hard))
    with Connection(server.port):
        server.wait_until(lambda: "Retrying in one second." in server.stdout(), complaint="no word about the limit")
        resource.prlimit(server.pid, resource.RLIMIT_NOFILE, (hard, hard))
        assert server.stop() == 0
