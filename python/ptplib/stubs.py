"""Stubs of all types, for editors and mypy: python3 -m ptplib.stubs DIR

Writes DIR/__init__.pyi and DIR/<Namespace>.pyi from the records of the loaded modules. The package
has those of its own modules in ptplib/types. `--load LIBRARY` adds the modules of a library."""

import argparse
import collections
import keyword
import os

from . import _docs, _ptplib, load


class _Writer:
    """The stub of one top namespace; inner namespaces are classes."""

    def __init__(self, top):
        self.top = top
        self.lines = []

    def place(self, type_):
        """How a type is named here."""
        top, *rest = type_.name.split("::")
        return ".".join(rest if top == self.top else [f"_{top}", *rest])

    def value(self, type_, seconds=False):
        kind = type_.kind
        if kind in ("enumeration", "value", "entity"):
            return self.place(type_)
        if kind == "optional":
            return f"Optional[{self.value(type_.inner, seconds)}]"
        if kind == "opaque":
            return "int" if type_.numeric else "str"
        return {"boolean": "bool", "unsigned": "int", "signed": "int", "floating": "float",
                "string": "str"}[kind]

    def member(self, type_, field, indent):
        doc = _docs.of(type_.name, field.name)
        if field.kind == "single":
            what = self.value(field.type)
            if field.settable:
                self.add(indent, f"{field.name}: {what}", doc, field)
            else:
                self.add(indent, "@property")
                self.add(indent, f"def {field.name}(self) -> {what}: ...", doc, field)
        elif field.kind != "operation":
            what = self.place(field.type) if field.type.kind == "entity" else self.value(field.type)
            key = self.value(field.keyType) if field.keyType else ""
            what = {"child": f"Optional[{what}]", "children": f"_p.Children[{key}, {what}]",
                    "queue": f"_p.Queue[{what}]"}.get(field.kind, f"_p.Map[{key}, {what}]")
            self.add(indent, "@property")
            self.add(indent, f"def {field.name}(self) -> {what}: ...", doc)
            if field.kind == "child":
                self.add(indent, f"@{field.name}.deleter")
                self.add(indent, f"def {field.name}(self) -> None: ...")

    def add(self, indent, text, doc="", field=None):
        bounds = ""
        if field is not None and field.least is not None:
            bounds = f" ({field.least} .. {field.greatest})"
        note = f"  # {doc}{bounds}" if doc or bounds else ""
        self.lines.append("    " * indent + text + note)

    def type(self, type_, name, indent):
        if type_.kind == "enumeration":
            self.add(indent, f"class {name}(_enum.IntEnum):")
            for enumerator, number in type_.enumerators:
                self.add(indent + 1, f"{enumerator} = {number}", _docs.of(type_.name, enumerator))
        elif type_.kind == "value":
            self.add(indent, f"class {name}(NamedTuple):")
            for field in type_.fields:
                safe = field.name + ("_" if keyword.iskeyword(field.name) else "")
                self.add(indent + 1, f"{safe}: {self.value(field.type)}",
                         _docs.of(type_.name, field.name))
        else:
            base = self.place(type_.base) if type_.base else "_p.Entity"
            self.add(indent, f"class {name}({base}):")
            if _docs.of(type_.name):
                self.add(indent + 1, f'"""{_docs.of(type_.name)}"""')
            if type_.isRoot:
                self.add(indent + 1, "def __init__(self, name: str) -> None: ...")
            inherited = {field.name for field in type_.base.fields} if type_.base else set()
            for field in type_.fields:
                if field.name not in inherited:
                    self.member(type_, field, indent + 1)
        if self.lines[-1].lstrip().startswith("class "):
            self.add(indent + 1, "...")
        if indent == 0:
            self.lines.append("")

    def text(self, tops):
        head = [f"# Types of {self.top}, written by ptplib.stubs.", "import enum as _enum",
                "from typing import NamedTuple, Optional", "", "import ptplib as _p"]
        body = "\n".join(self.lines)
        head += [f"from . import {top} as _{top}" for top in tops
                 if top != self.top and f"_{top}." in body]
        return "\n".join(head + ["", body])


def _tree(types):
    tree = {}
    for type_ in types:
        at = tree
        *namespaces, last = type_.name.split("::")
        for namespace in namespaces:
            at = at.setdefault(namespace, {})
        at[last] = type_
    return tree


def _order(types):
    """Bases before what is derived from them; else by name."""
    return sorted(types, key=lambda item: (
        isinstance(item[1], dict), getattr(item[1], "base", None) is not None, item[0]))


def _write(writer, tree, indent):
    for name, item in _order(tree.items()):
        if isinstance(item, dict):
            writer.add(indent, f"class {name}:")
            _write(writer, item, indent + 1)
        else:
            writer.type(item, name, indent)


def write(directory):
    """Writes the stubs into a directory, which is made if it does not exist."""
    types = [_ptplib.typeByName(name) for name in _ptplib.typeNames()]
    tree = _tree(types)
    os.makedirs(directory, exist_ok=True)
    tops = sorted(name for name, item in tree.items() if isinstance(item, dict))
    for top in tops:
        writer = _Writer(top)
        _write(writer, tree[top], 0)
        with open(os.path.join(directory, f"{top}.pyi"), "w", encoding="utf-8") as file:
            file.write(writer.text(tops))
    with open(os.path.join(directory, "__init__.pyi"), "w", encoding="utf-8") as file:
        file.write("".join(f"from . import {top} as {top}\n" for top in tops))


def main():
    parser = argparse.ArgumentParser(prog="python3 -m ptplib.stubs",
                                     description="Writes stubs of all types.")
    parser.add_argument("directory")
    parser.add_argument("--load", action="append", default=[], metavar="LIBRARY",
                        help="load the modules of this library, too")
    options = parser.parse_args()
    for library in options.load:
        load(library)
    write(options.directory)


if __name__ == "__main__":
    main()
