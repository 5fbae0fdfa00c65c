"""The heads of answers, byte for byte, with what differs from run to run masked out."""
import email.utils
import re
import time

PRODUCT = "Quillwave Distributed Network Media Server/1.0.2 evergreen (Linux 64-bit)"
DATE = "(the time)"
SESSION = "(an id)"
_DATE_LINE = re.compile(rb"(?<=\r\nDate: )[^\r]*")
_SESSION_LINE = re.compile(rb"(?<=\r\nSet-Cookie: __quill_sess=)[^;\r]*")
_NOT_CACHED = [("Cache-Control", "max-age=0, no-cache, no-store"), ("Expires", "Mon, 25 Jan 2002 10:11:57 GMT"),
               ("Pragma", "no-cache")]


def masked(raw):
    """The bytes of a head with the time and the session id replaced by DATE and SESSION. A time not near is no time."""
    found = _DATE_LINE.search(raw)
    if found:
        text = found.group().decode("latin-1")
        then = email.utils.parsedate_to_datetime(text)
        assert text == then.strftime("%a, %d %b %Y %H:%M:%S GMT") and abs(then.timestamp() - time.time()) < 300, text
    return _SESSION_LINE.sub(SESSION.encode(), _DATE_LINE.sub(DATE.encode(), raw)).decode("latin-1")


def http_head(status_line, connection, fields=(), session=True):
    """A masked HTTP head; `fields` are pairs in their order, `connection` is "Close" or "Keep-Alive"."""
    lines = [status_line, f"Server: {PRODUCT}", f"Date: {DATE}", f"Connection: {connection}",
             *(f"{name}: {value}" for name, value in fields)]
    if session:
        lines.append(f"Set-Cookie: __quill_sess={SESSION}; path=/")
    return "\r\n".join(lines) + "\r\n\r\n"


def icy_head(status_line, fields=()):
    lines = [status_line, "icy-notice1:<BR>This stream requires a media player", f"icy-notice2:{PRODUCT}<BR>",
             *(f"{name}:{value}" for name, value in fields)]
    return "\r\n".join(lines) + "\r\n\r\n"


def not_cached():
    """The fields that keep a stream out of caches."""
    return list(_NOT_CACHED)
