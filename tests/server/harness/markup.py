"""Pages read back as a browser reads them: Page(text).rows, .figures, .buttons, .all("a"), .first(id="x")."""
import html.parser

VOID = {"input", "img", "br", "hr", "meta", "link"}


class Element:
    def __init__(self, name, attributes, parent=None):
        self.name, self.attributes, self.parent = name, attributes, parent
        self.children = []  # elements and texts

    def get(self, attribute):
        return self.attributes.get(attribute)

    @property
    def text(self):
        """All words in it, without those of scripts."""
        return "".join(child if isinstance(child, str) else child.text
                       for child in self.children if isinstance(child, str) or child.name != "script")

    def all(self, tag=None, /, **attributes):
        """The elements below this one, in order: all("a"), all(class_="metaSong")."""
        wanted = {key.rstrip("_"): value for key, value in attributes.items()}
        found = []
        for child in self.children:
            if isinstance(child, str):
                continue
            if tag in (None, child.name) and all(child.get(key) == value for key, value in wanted.items()):
                found.append(child)
            found += child.all(tag, **attributes)
        return found

    def first(self, tag=None, /, **attributes):
        found = self.all(tag, **attributes)
        return found[0] if found else None

    @property
    def cells(self):
        """The words of the cells of a row."""
        return [cell.text for cell in self.children if not isinstance(cell, str)]


class Page(Element, html.parser.HTMLParser):
    """A document. An end tag that does not fit is a fault of the page."""

    def __init__(self, text):
        Element.__init__(self, "page", {})
        html.parser.HTMLParser.__init__(self)
        self._open = self
        self.feed(text)
        self.close()
        assert self._open is self, f"<{self._open.name}> is never closed"

    @property
    def rows(self):
        return [row.cells for row in self.all("tr")]

    @property
    def figures(self):
        """Of a table of two columns: value by label."""
        return {cells[0]: cells[1] for cells in self.rows if len(cells) == 2}

    @property
    def buttons(self):
        return [button.get("value") for button in self.all("input", type="submit")]

    def handle_starttag(self, tag, attributes):
        element = Element(tag, dict(attributes), self._open)
        self._open.children.append(element)
        if tag not in VOID:
            self._open = element

    def handle_startendtag(self, tag, attributes):
        self._open.children.append(Element(tag, dict(attributes), self._open))

    def handle_endtag(self, tag):
        assert tag == self._open.name, f"</{tag}> where <{self._open.name}> is open"
        self._open = self._open.parent

    def handle_data(self, data):
        self._open.children.append(data)
