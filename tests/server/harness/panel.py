"""The panel as a browser uses it: pages, posted forms, and what stands in them."""
import html
import re
import urllib.parse

from .client import fetch
from .server import ADMIN

FORM = "application/x-www-form-urlencoded"
ROW = re.compile(r'<tr class="tableViewCol">(.*?)</tr>', re.S)
CELL = re.compile(r"<td[^>]*>(.*?)</td>", re.S)
SETTING = re.compile(r'<td class="tableViewIndex">([^<]*)</td><td><input type="text" name="([^"]*)"(?: value="([^"]*)")?')


def page(server, target, user=ADMIN, headers=None, **options):
    """The answer to a look at a page."""
    return fetch(server.port, target, user=user, headers=headers, **options)


def post(server, target, fields, user=ADMIN, headers=None, **options):
    """The answer to a form; `fields` is a mapping or a list of pairs."""
    body = urllib.parse.urlencode(fields).encode()
    return fetch(server.port, target, method="POST", user=user, body=body, headers={"Content-Type": FORM, **(headers or {})},
                 **options)


def session_of(answer):
    """The header that keeps an answer's session."""
    return {"Cookie": answer.head["Set-Cookie"].split(";")[0]}


def text_of(markup):
    """What a reader of the markup sees."""
    return html.unescape(re.sub(r"<[^>]*>", "", markup)).strip()


def rows_of(answer):
    """The rows of a page's table, each the texts of its cells."""
    return [[text_of(cell) for cell in CELL.findall(row)] for row in ROW.findall(answer.text)]


def settings_of(answer):
    """The settings of a page, by label: (the name of the text box, its value)."""
    return {html.unescape(label): (html.unescape(name), html.unescape(value)) for label, name, value in SETTING.findall(answer.text)}
