"""One connection and what it asks: first lines, heads, refusals byte for byte, keep-alive, bodies."""
import re

import pytest

from harness.accounts import ban, user_file
from harness.answers import http_head, icy_head, masked
from harness.client import Connection, Head, basic, fetch, request_text
from harness.server import ADMIN, mount
from harness.source import HttpSource

BAD_REQUEST = (
    '<!DOCTYPE HTML PUBLIC "-//IETF//DTD HTML 2.0//EN"><html><head><title>400 Bad Request</title></head><body>\r\n'
    "<h1>Bad Request</h1>\r\n"
    "<p>Your browser sent a request that this server could not understand.<br /></p><hr>\r\n"
    "<address>Quillwave Multimedia server port {}{}</address>\r\n"
    "</body></html>")
HTML = ("Content-Type", "text/html")
ALLOWED = "GET,HEAD,POST,PUT,OPTIONS,SOURCE"


def exchange(server, request):
    """Everything that the server sends until it ends the connection."""
    with Connection(server.port) as connection:
        connection.send(request)
        return connection.receive_all()


def answer_to(server, request):
    """(masked head, body) of a connection that the server ends."""
    head, _, body = exchange(server, request).partition(b"\r\n\r\n")
    return masked(head + b"\r\n\r\n"), body


def still_asking(connection):
    """Whether a connection that is kept answers its next request."""
    connection.send(request_text("GET", "/nowhere"))
    head = connection.receive_head()
    connection.receive_body(head)
    return head.status == 404


# ---- first lines -----------------------------------------------------------------------------------------------------

@pytest.mark.parametrize("first_line", [
    "GET /nowhere HTTP/1.0", "get /nowhere http/1.0", " GET /nowhere HTTP/1.0 ", "GET /nowhere ICE/1.0",
    "GET /nowhere HTTP", "GET /nowhere?a=b HTTP/1.0",
])
def test_first_line_that_is_understood(start_server, first_line):
    server = start_server()
    assert Head(exchange(server, first_line + "\r\n\r\n")).status == 404


@pytest.mark.parametrize("first_line", ["GET /nowhere HTTP/1.1", "GET /nowhere HTTP/2.0"])
def test_newer_version_needs_a_host(start_server, first_line):
    server = start_server()
    assert exchange(server, first_line + "\r\n\r\n") == BAD_REQUEST.format("localhost", server.port).encode()
    assert answer_to(server, first_line + "\r\nHost: h\r\nConnection: close\r\n\r\n")[0].split("\r\n")[0] == \
        f"{first_line.split()[-1]} 404 Not Found"


@pytest.mark.parametrize("request_head", [
    "GET /nowhere ICY/1.0\r\n\r\n", "GET /nowhere ICE/1.1\r\nHost: h\r\n\r\n", "GET /nowhere HTTP/0.9\r\n\r\n",
])
def test_request_that_is_not_valid_gets_the_fixed_document_and_nothing_else(start_server, request_head):
    server = start_server()
    assert exchange(server, request_head) == BAD_REQUEST.format("localhost", server.port).encode()


def test_fixed_document_names_host_and_port_of_the_settings(start_server):
    server = start_server([("Hostname", "radio.example")])
    assert exchange(server, "GET / ICY/1.0\r\n\r\n") == BAD_REQUEST.format("radio.example", server.port).encode()


SENSELESS = ["pass word", "GET /nowhere", "GET /nowhere HTTP/1.0 more", "GET  /nowhere HTTP/1.0", "BREW /pot HTTP/1.0",
             "GET /nowhere GOPHER/1.0", "GET ?a=b HTTP/1.0", " "]


@pytest.mark.parametrize("first_line", SENSELESS)
def test_whole_head_that_makes_no_sense_gets_the_fixed_document(start_server, first_line):
    server = start_server()
    assert exchange(server, first_line + "\r\n\r\n") == BAD_REQUEST.format("localhost", server.port).encode()


@pytest.mark.parametrize("first_line", ["pass word", "GET /nowhere", "BREW /pot HTTP/1.0"])
def test_first_line_that_makes_no_sense_ends_the_connection_before_its_head_does(start_server, first_line):
    server = start_server()
    assert exchange(server, first_line + "\r\n") == b""


def test_line_without_a_space_is_a_login_before_the_head_ends(start_server):
    server = start_server()
    assert exchange(server, "nobody:wrong\r\n") == b"bad password\r\n"


@pytest.mark.parametrize("end", ["\r\n\r\n", "\n\n"])
def test_head_ends_with_either_line_end(start_server, end):
    server = start_server()
    line_end = end[:len(end) // 2]
    assert Head(exchange(server, f"GET /nowhere HTTP/1.1{line_end}Host: h{line_end}Connection: close{end}")).status == 404


def test_head_may_come_byte_by_byte(start_server):
    server = start_server()
    with Connection(server.port) as connection:
        for byte in b"GET /nowhere HTTP/1.1\r\nHost: h\r\nConnection: close\r\n\r\n":
            connection.send(bytes([byte]))
        assert connection.receive_head().status == 404


def test_head_may_be_split_at_every_byte(start_server):
    server = start_server()
    head = b"GET /nowhere HTTP/1.0\r\nHost: h\r\n\r\n"
    connections = [Connection(server.port) for _ in range(1, len(head))]
    for at, connection in enumerate(connections, 1):
        connection.send(head[:at])
    # Another connection that is answered now was read after the first halves.
    assert fetch(server.port, "/nowhere").status == 404
    for at, connection in enumerate(connections, 1):
        connection.send(head[at:])
    for at, connection in enumerate(connections, 1):
        assert connection.receive_head().status == 404, f"split at {at}"
        connection.close()


def test_header_may_go_on_in_the_next_line(start_server):
    server = start_server()
    fetch(server.port, "/nowhere", headers={"User-Agent": "one\r\n two\r\n\tthree"})
    server.wait_log("<127.0.0.1> Invalid Resource Request (/nowhere) {UA: one two three}")


def test_header_sent_twice_has_both_values_run_together(start_server):
    server = start_server()
    exchange(server, "GET /nowhere HTTP/1.0\r\nUser-Agent: one\r\nuser-agent: two\r\n\r\n")
    server.wait_log("<127.0.0.1> Invalid Resource Request (/nowhere) {UA: onetwo}")


def test_path_is_decoded_for_the_lookup(start_server):
    server = start_server(mount("/live"))
    assert fetch(server.port, "/%6Cive").status == 503


# ---- refusals --------------------------------------------------------------------------------------------------------

def test_404_over_http_1_0(start_server):
    server = start_server()
    head, body = answer_to(server, "GET /nowhere HTTP/1.0\r\nUser-Agent: me\r\n\r\n")
    assert head == http_head("HTTP/1.0 404 Not Found", "Close", [HTML, ("Content-Length", len(body))])
    assert b"The requested resource could not be located" in body and b"Page Not Found" in body
    server.wait_log("<127.0.0.1> Invalid Resource Request (/nowhere) {UA: me}")


def test_404_over_http_1_1(start_server):
    server = start_server()
    with Connection(server.port) as connection:
        connection.send(request_text("GET", "/nowhere"))
        head = connection.receive_head()
        body = connection.receive_body(head)
        assert masked(head.raw) == http_head("HTTP/1.1 404 Not Found", "Keep-Alive", [HTML, ("Content-Length", len(body))])
        assert still_asking(connection)


@pytest.mark.parametrize("target, headers", [
    ("/nowhere", "Icy-MetaData: 1\r\n"), ("/;nowhere", ""), ("/nowhere?icy=1", ""), ("/nowhere?icy=http", ""),
])
def test_404_for_a_player_is_icy(start_server, target, headers):
    server = start_server()
    assert answer_to(server, f"GET {target} HTTP/1.0\r\n{headers}\r\n") == (icy_head("ICY 404 Not Found"), b"")


@pytest.mark.parametrize("target, headers", [
    ("/nowhere", "Icy-MetaData: 0\r\n"), ("/nowhere?http=1", "Icy-MetaData: 1\r\n"), ("/nowhere?icy=", ""),
    ("/nowhere?icy", ""),
])
def test_404_is_http_when_no_icy_is_asked_for(start_server, target, headers):
    server = start_server()
    assert answer_to(server, f"GET {target} HTTP/1.0\r\n{headers}\r\n")[0].startswith("HTTP/1.0 404 Not Found\r\n")


def test_icy_answer_to_a_newer_version_ends_the_connection(start_server):
    server = start_server()
    assert answer_to(server, "GET /nowhere HTTP/1.1\r\nHost: h\r\nIcy-MetaData: 1\r\n\r\n") == \
        (icy_head("ICY 404 Not Found"), b"")


def test_mount_without_a_source_is_503(start_server):
    server = start_server(mount("/live"))
    head, body = answer_to(server, "GET /live HTTP/1.0\r\nUser-Agent: me\r\n\r\n")
    assert head == http_head("HTTP/1.0 503 Service Unavailable", "Close", [HTML, ("Content-Length", len(body))])
    assert b"Mount source is unavailable." in body and b"Mount has no source" in body
    server.wait_log("<127.0.0.1> No Source (/live) {UA: me}")


def test_mount_without_a_source_is_icy_401_for_a_player(start_server):
    server = start_server(mount("/live"))
    assert answer_to(server, "GET /live HTTP/1.0\r\nIcy-MetaData: 1\r\n\r\n") == (icy_head("ICY 401 No Source"), b"")


def test_refused_listener_is_451(start_server):
    server = start_server(mount("/live", UserMax=0))
    with HttpSource(server, "/live"):
        server.wait_source()
        head, body = answer_to(server, "GET /live HTTP/1.0\r\n\r\n")
        assert head == http_head("HTTP/1.0 451 Unavailable For Legal Reasons", "Close",
                                 [HTML, ("Content-Length", len(body))])
        assert b"Access to this server has been terminated." in body


def test_451_is_http_for_a_player_too_and_the_connection_is_kept(start_server):
    server = start_server(mount("/live", UserMax=0))
    with HttpSource(server, "/live"), Connection(server.port) as connection:
        server.wait_source()
        connection.send(request_text("GET", "/live", {"Icy-MetaData": "1"}))
        head = connection.receive_head()
        assert head.first_line == "HTTP/1.1 451 Unavailable For Legal Reasons"
        connection.receive_body(head)
        assert still_asking(connection)


def test_banned_client_is_403_whatever_it_asks_for_and_whoever_it_is(start_server):
    server = start_server(mount("/live"), users=user_file(banned=ban("127.0.0.1")))
    authorization = f"Authorization: {basic(*ADMIN)}\r\n"
    for first_line in ("GET /live HTTP/1.0", "DELETE /live HTTP/1.0", "SOURCE /live HTTP/1.0"):
        assert answer_to(server, f"{first_line}\r\n{authorization}\r\n") == (
            http_head("HTTP/1.0 403 Forbidden", "Close", [("Content-Type", "text/plain"), ("Content-Length", 9)]),
            b"Forbidden")
    server.wait_log("<127.0.0.1> Banned user")


def test_403_promises_to_keep_the_connection_and_ends_it(start_server):
    server = start_server(users=user_file(banned=ban("127.0.0.1")))
    head, body = answer_to(server, request_text("GET", "/"))
    assert (head.split("\r\n")[3], body) == ("Connection: Keep-Alive", b"Forbidden")


def test_other_clients_are_not_banned(start_server):
    server = start_server(users=user_file(banned=ban("127.0.0.2")))
    assert fetch(server.port, "/nowhere").status == 404
    assert fetch(server.port, "/nowhere", source="127.0.0.2").status == 403


def test_invalid_request_of_a_banned_client_is_400(start_server):
    server = start_server(users=user_file(banned=ban("127.0.0.1")))
    assert exchange(server, "GET / HTTP/1.1\r\n\r\n").startswith(b"<!DOCTYPE")


@pytest.mark.parametrize("method", ["DELETE", "TRACE", "CONNECT"])
def test_other_methods_are_405(start_server, method):
    server = start_server()
    head, body = answer_to(server, f"{method} /x HTTP/1.0\r\nUser-Agent: me\r\n\r\n")
    assert head == http_head("HTTP/1.0 405 Method Not Allowed", "Close", [("Allow", ALLOWED), ("Content-Length", len(body))])
    assert b"An inappropriate method was requested.  See 'Allow' Header for more details." in body
    server.wait_log(f"<127.0.0.1> Invalid Method Requested [{method}] (/x) {{UA: me}}")


def test_405_keeps_the_connection(start_server):
    server = start_server()
    with Connection(server.port) as connection:
        connection.send(request_text("DELETE", "/"))
        head = connection.receive_head()
        assert head.status == 405 and head["Connection"] == "Keep-Alive"
        connection.receive_body(head)
        assert still_asking(connection)


# ---- the size of a head ----------------------------------------------------------------------------------------------

def head_of(size):
    """A whole head of so many bytes."""
    start, end = b"GET /nowhere HTTP/1.0\r\nX: ", b"\r\n\r\n"
    return start + b"x" * (size - len(start) - len(end)) + end


def test_head_of_8191_bytes_passes(start_server):
    server = start_server()
    assert Head(exchange(server, head_of(8191))).status == 404


def test_head_without_an_end_is_507(start_server):
    server = start_server()
    with Connection(server.port) as connection:
        connection.send(head_of(20000)[:9216])
        head = connection.receive_head()
        body = connection.receive_all()
    assert masked(head.raw) == http_head("HTTP/1.0 507 Insufficient Storage", "Close", [("Content-Length", len(body))],
                                         session=False)
    line = server.wait_log("<127.0.0.1> Recv Failed: Client Trying to send more than ")
    assert line.endswith(" of data in their request payload")


def test_head_without_an_end_in_small_pieces_is_507(start_server):
    server = start_server()
    with Connection(server.port) as connection:
        connection.send("GET /nowhere HTTP/1.0\r\n")
        sent = 0
        while b"507" not in (answer := connection.receive_for(0.06)) and sent < 40000:
            connection.send(b"X: " + b"x" * 500 + b"\r\n")
            sent += 505
        assert answer.startswith(b"HTTP/1.0 507 Insufficient Storage\r\n")
        assert sent < 20000


def test_head_whose_end_comes_behind_the_limit_is_507(start_server):
    server = start_server()
    with Connection(server.port) as connection:
        connection.send("GET /nowhere HTTP/1.0\r\n")
        for _ in range(18):
            connection.send(b"X: " + b"x" * 495 + b"\r\n")
            server.wait_read([connection])
        connection.send(b"X: " + b"x" * 3000 + b"\r\n\r\n")
        assert connection.receive_head().status == 507


def test_largest_head_is_a_setting(start_server):
    server = start_server([("MaxRequestBufferSize", 32768)])
    assert Head(exchange(server, head_of(20000))).status == 404


# ---- kept connections ------------------------------------------------------------------------------------------------

def test_http_1_1_keeps_the_connection_for_further_requests(start_server):
    server = start_server(mount("/live"))
    with Connection(server.port) as connection:
        for target, status in [("/nowhere", 404), ("/live", 503), ("/nowhere", 404)]:
            connection.send(request_text("GET", target))
            head = connection.receive_head()
            assert (head.status, head["Connection"]) == (status, "Keep-Alive")
            connection.receive_body(head)


@pytest.mark.parametrize("version, connection", [("HTTP/1.1", "close"), ("HTTP/1.1", "Close"), ("HTTP/1.0", "keep-alive"),
                                                 ("HTTP/1.0", "close")])
def test_connection_that_is_not_kept_is_ended(start_server, version, connection):
    server = start_server()
    head, _ = answer_to(server, request_text("GET", "/nowhere", {"Connection": connection}, version))
    assert head.split("\r\n")[3] == "Connection: Close"


def test_pipelined_requests_are_answered_in_order(start_server):
    server = start_server(mount("/live"))
    targets = ["/one", "/live", "/two", "/live", "/three"]
    with Connection(server.port) as connection:
        connection.send("".join(request_text("GET", target) for target in targets))
        statuses = []
        for _ in targets:
            head = connection.receive_head()
            connection.receive_body(head)
            statuses.append(head.status)
    assert statuses == [404, 503, 404, 503, 404]
    server.wait_log("Invalid Resource Request (/three)")
    lines = [line for line in server.log_lines() if "Invalid Resource Request" in line]
    assert [re.search(r"\((.*?)\)", line).group(1) for line in lines] == ["/one", "/two", "/three"]


def test_line_without_a_space_on_a_kept_connection_is_no_source(start_server):
    server = start_server(mount("/live"))
    with Connection(server.port) as connection:
        connection.send(request_text("GET", "/live"))
        connection.receive_body(connection.receive_head())
        connection.send("nonsense\r\n\r\n")
        assert connection.receive_all() == b"bad password\r\n"
    assert not any("Source Connected" in line for line in server.log_lines())


# ---- HEAD and OPTIONS ------------------------------------------------------------------------------------------------

def test_head_of_a_page_has_the_length_and_no_body(start_server):
    server = start_server()
    length = len(answer_to(server, "GET /nowhere HTTP/1.0\r\n\r\n")[1])
    assert answer_to(server, "HEAD /nowhere HTTP/1.0\r\n\r\n") == (
        http_head("HTTP/1.0 404 Not Found", "Close", [HTML, ("Content-Length", length)]), b"")


def test_head_on_a_kept_connection_leaves_nothing_behind(start_server):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live"), Connection(server.port) as connection:
        server.wait_source()
        for target, status in [("/live", 200), ("/nowhere", 404), ("/live", 200)]:
            connection.send(request_text("HEAD", target))
            assert connection.receive_head().status == status
        assert still_asking(connection)


def test_options_tells_what_is_allowed(start_server):
    server = start_server()
    head, body = answer_to(server, "OPTIONS /nowhere HTTP/1.0\r\n\r\n")
    assert head == http_head("HTTP/1.0 404 Not Found", "Close",
                             [HTML, ("Content-Length", len(body)), ("Allow", "GET,HEAD,POST,OPTIONS,PUT")])


def test_options_on_a_stream_is_only_a_head_and_no_listener(start_server):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live"), Connection(server.port) as connection:
        server.wait_source()
        connection.send(request_text("OPTIONS", "/live"))
        head = connection.receive_head()
        assert (head.status, head["Allow"]) == (200, "GET,HEAD,POST,OPTIONS,PUT")
        assert still_asking(connection)
        server.wait_log("> Connection Closed ")


# ---- bodies ----------------------------------------------------------------------------------------------------------

@pytest.mark.parametrize("headers", [{"Content-Length": "0"}, {}, {"Content-Length": "-1"}, {"Content-Length": "abc"}])
def test_post_without_a_body_is_answered(start_server, headers):
    server = start_server()
    with Connection(server.port) as connection:
        connection.send(request_text("POST", "/nowhere", headers))
        head = connection.receive_head()
        connection.receive_body(head)
        assert head.status == 404
        assert still_asking(connection)


@pytest.mark.parametrize("content_type", ["application/x-www-form-urlencoded", "text/plain",
                                          "multipart/form-data; boundary=x"])
def test_body_is_taken_off_the_connection(start_server, content_type):
    server = start_server()
    body = "--x\r\nContent-Disposition: form-data; name=a\r\n\r\nGET / HTTP/1.1\r\n--x--\r\n"
    with Connection(server.port) as connection:
        connection.send(request_text("POST", "/nowhere", {"Content-Type": content_type, "Content-Length": len(body)}) + body)
        head = connection.receive_head()
        connection.receive_body(head)
        assert head.status == 404
        assert still_asking(connection)


def test_body_may_come_later_and_in_pieces(start_server):
    server = start_server()
    with Connection(server.port) as connection:
        connection.send(request_text("POST", "/nowhere", {"Content-Length": 6}))
        for byte in b"a=b&c=":
            assert connection.receive_for(0.1) == b""
            connection.send(bytes([byte]))
        assert connection.receive_head().status == 404


def test_body_over_the_limit_is_507(start_server):
    server = start_server([("UploadLimit", 1000)])
    head, body = answer_to(server, request_text("POST", "/nowhere", {"Content-Length": 1001}))
    assert head == http_head("HTTP/1.1 507 Insufficient Storage", "Close", [("Content-Length", len(body))])
    line = server.wait_log("<127.0.0.1> Recv Failed: Client Trying to send more than ")
    assert line.endswith(" of data in their request payload")


def test_body_of_exactly_the_limit_passes(start_server):
    server = start_server([("UploadLimit", 1000)])
    assert fetch(server.port, "/nowhere", method="POST", body=b"x" * 1000).status == 404


def test_file_in_a_form_is_logged(start_server):
    server = start_server()
    body = (b'--edge\r\nContent-Disposition: form-data; name="upload"; filename="a.txt"\r\nContent-Type: text/plain\r\n\r\n'
            b"words\r\n--edge--\r\n")
    answer = fetch(server.port, "/nowhere", method="POST", body=body,
                   headers={"Content-Type": "multipart/form-data; boundary=edge"})
    assert answer.status == 404
    server.wait_log("<127.0.0.1> Received File: a.txt of type text/plain (upload)")


@pytest.mark.parametrize("content_type, complaint", [
    ("multipart/form-data", "Multipart form data submitted with no boundary defined."),
    ("multipart/form-data; edge=x", "Multipart form data submitted with no boundary defined."),
    ("multipart/form-data; boundary=y", "Multipart form data submitted boundary position not found."),
])
def test_form_without_its_boundary_is_logged_and_answered(start_server, content_type, complaint):
    server = start_server()
    answer = fetch(server.port, "/nowhere", method="POST", body=b"--x\r\n\r\n\r\n--x--", headers={"Content-Type": content_type})
    assert answer.status == 404
    server.wait_log(f"<127.0.0.1> {complaint}")


def test_form_that_waits_does_not_keep_others_waiting(start_server):
    server = start_server([("ThreadPool", 3)])
    waiting = [Connection(server.port) for _ in range(20)]
    for connection in waiting:
        connection.send(request_text("POST", "/nowhere", {"Content-Length": 10}) + "a=")
    for _ in range(10):
        assert fetch(server.port, "/nowhere", within=10).status == 404
    for connection in waiting:
        connection.close()


# ---- sessions --------------------------------------------------------------------------------------------------------

def session_of(head):
    return re.fullmatch(r"__quill_sess=([0-9a-fA-F-]+); path=/", head["Set-Cookie"]).group(1)


def test_every_client_gets_a_session_of_its_own(start_server):
    server = start_server()
    sessions = [session_of(fetch(server.port, "/nowhere").head) for _ in range(5)]
    assert len(set(sessions)) == 5


def test_known_session_is_kept(start_server):
    server = start_server()
    session = session_of(fetch(server.port, "/nowhere").head)
    for cookie in (f"__quill_sess={session}", f"a=b; __quill_sess={session}; c=d", f" __quill_sess = {session} "):
        assert session_of(fetch(server.port, "/nowhere", headers={"Cookie": cookie}).head) == session


@pytest.mark.parametrize("cookie", ["__quill_sess=unknown", "__quill_sess=", "__quill_sess=a=b", "nonsense", ";;"])
def test_unknown_session_is_replaced(start_server, cookie):
    server = start_server()
    assert session_of(fetch(server.port, "/nowhere", headers={"Cookie": cookie}).head) not in ("unknown", "a", "a=b")
