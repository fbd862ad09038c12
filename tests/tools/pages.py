"""Pages that the tools have made, read by Python's HTML parser, and what tests say when they are not as they should be."""
import html.parser
import os
import sys
import tempfile

VOID = {"meta", "input", "col", "wbr", "img", "link", "br", "base"}


class Failure(Exception):
    pass


def check(truth, message):
    if not truth:
        raise Failure(message)


def same(is_so, expected):
    check(is_so == expected, f"is so:    {is_so!r}\nexpected: {expected!r}")


class Node:
    def __init__(self, tag, attributes=()):
        self.tag = tag
        self.attributes = dict(attributes)
        self.children = []

    def text(self):
        return "".join(child if isinstance(child, str) else child.text() for child in self.children)

    def all(self, tag, **attributes):
        """The elements below with that tag; class_ means one of the classes."""
        found = []
        for child in self.children:
            if isinstance(child, Node):
                if child.tag == tag and all(child.has(name, value) for name, value in attributes.items()):
                    found.append(child)
                found += child.all(tag, **attributes)
        return found

    def has(self, name, value):
        if name == "class_":
            return value in self.attributes.get("class", "").split()
        return self.attributes.get(name) == value

    def one(self, tag, **attributes):
        found = self.all(tag, **attributes)
        check(len(found) == 1, f"{len(found)} elements <{tag}> with {attributes} instead of one")
        return found[0]

    def section(self, name):
        return self.one("section", id=name)

    def rows(self):
        """The texts of each row of each table's body below."""
        return [[cell.text() for cell in row.children if isinstance(cell, Node)]
                for body in self.all("tbody") for row in body.all("tr")]

    def facts(self):
        return {pair.one("dt").text(): pair.one("dd").text() for pair in self.all("div") if pair.all("dt")
                and not pair.all("div")}


class TreeParser(html.parser.HTMLParser):
    def __init__(self):
        super().__init__()
        self.root = Node("")
        self.open = [self.root]

    def handle_starttag(self, tag, attributes):
        node = Node(tag, attributes)
        self.open[-1].children.append(node)
        if tag not in VOID:
            self.open.append(node)

    def handle_endtag(self, tag):
        check(self.open[-1].tag == tag, f"</{tag}> ends <{self.open[-1].tag}>")
        self.open.pop()

    def handle_data(self, data):
        self.open[-1].children.append(data)


def tree(text):
    parser = TreeParser()
    parser.feed(text)
    parser.close()
    check(len(parser.open) == 1, f"<{parser.open[-1].tag}> is not closed")
    return parser.root


def read(path):
    with open(path, encoding="utf-8", newline="") as file:
        return file.read()


def run_case(case, function):
    """In a folder of its own; a failure ends the program."""
    with tempfile.TemporaryDirectory(dir=".", prefix="tool-") as folder:
        origin = os.getcwd()
        os.chdir(folder)
        try:
            function()
        except Failure as failure:
            sys.exit(f"{case}: {failure}"[:8000])
        finally:
            os.chdir(origin)
