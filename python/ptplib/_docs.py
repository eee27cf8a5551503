"""The comments of declarations, which help() shows: what each type and member is.

The records of types have no comments. They are read from the `*.kiv` files when the package is
built: `python3 _docs.py OUT FILE...` writes them to OUT as JSON.
"""

import json
import os
import re
import sys

_blocks = re.compile(
    r"^(?:extern\s+)?(?:value|enum|entity|abstract|type|constants)\s+(\w+)")
_member = re.compile(r"^(?:\w+\s+)+(\w+)\s*[:(]")
_enumerator = re.compile(r"^(\w+)\s*(?:=\s*\w+)?\s*[,;]")


def read(text):
    """{type: {"": comment, member: comment}} of the declarations of a file."""
    docs = {}
    namespace = ""
    inside = None
    comment = []
    for line in text.splitlines():
        line = line.strip()
        if line.startswith("///"):
            comment.append(line[3:].strip())
            continue
        if found := re.match(r"namespace\s+([\w:]+)\s*;", line):
            namespace = found.group(1) + "::"
        elif inside is None and (found := _blocks.match(line)):
            name = namespace + found.group(1)
            docs.setdefault(name, {})[""] = " ".join(comment)
            if not line.endswith("}") and not line.endswith(";"):
                inside = name
        elif inside is not None and line.startswith("}"):
            inside = None
        elif inside is not None and comment:
            if found := _member.match(line) or _enumerator.match(line):
                docs[inside][found.group(1)] = " ".join(comment)
        comment = []
    return docs


def _load():
    try:
        with open(os.path.join(os.path.dirname(__file__), "_docs.json"), encoding="utf-8") as file:
            return json.load(file)
    except FileNotFoundError:
        return {}


_all = None


def of(type_name, member=""):
    """The comment of a type or member; empty if there is none."""
    global _all
    if _all is None:
        _all = _load()
    return _all.get(type_name, {}).get(member, "")


def _main(out, files):
    docs = {}
    for name in files:
        with open(name, encoding="utf-8") as file:
            docs.update(read(file.read()))
    with open(out, "w", encoding="utf-8") as file:
        json.dump(docs, file, indent=1, sort_keys=True)
        file.write("\n")


if __name__ == "__main__":
    _main(sys.argv[1], sys.argv[2:])
