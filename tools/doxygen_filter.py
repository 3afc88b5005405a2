#!/usr/bin/python3
"""Shows a public header to Doxygen: its first comment and its sections become groups, and a comment above several declarations
that stand together is that of each.

usage: doxygen_filter.py HEADER"""
import pathlib
import re
import subprocess
import sys

header = pathlib.Path(sys.argv[1])
INCLUDE = pathlib.Path(__file__).resolve().parent.parent / "include"
family = header.stem
opened = ["family"]  # what is to be closed at the end
sections = 0


def words(comment):
    """The text of a comment, line by line."""
    return [re.sub(r"^ \* ?", "", line) for line in comment[2:-2].split("\n")]


def group(name, title, text):
    # Brackets around a name are no markup.
    text = re.sub(r"<(?=\w)", r"\\<", "\n".join(text))
    return f"/** \\defgroup {name} {title}\n{text}\n@{{ */"


def section(match):
    global sections
    sections += 1
    first, *text = words(match[0])
    title = first.strip().strip("-").strip().capitalize()
    closing = "/** @} */\n" if sections > 1 else ""
    if sections == 1:
        opened.append("section")
    return closing + group(f"{family}_{sections}", title, text)


def expanded(invocations):
    """The declarations that macros of the header make."""
    marks = "".join(f"MARK {line}\n" for line in invocations)
    result = subprocess.run(["cc", "-E", "-P", f"-I{INCLUDE}", "-DKRL_API=", "-"], input=f"#include <{header.resolve().relative_to(INCLUDE)}>\n{marks}",
                            capture_output=True, text=True, check=True)
    return " ".join(result.stdout.split("MARK ", 1)[1].replace("MARK ", "").split())


def shared_comment(match):
    comment, run = match[1], match[2]
    if run.startswith("KRL_API"):
        declarations = run
    else:
        declarations = expanded(run.strip().split("\n"))
    statements = [statement.strip() for statement in declarations.split(";") if statement.strip()]
    return "\n".join(f"{comment}\n{statement};" for statement in statements) + "\n"


source = header.read_text()
head = re.match(r"/\*.*?\*/", source, re.S)
title, *text = words(head[0])
body = source[head.end():]
body = re.sub(r"#define KRL_\w*(?:_DECLARE_|_COUNT_ONE|_FROM_\d)(?:.*\\\n)*.*\n", "", body)  # of the header's own making
body = re.sub(r"/\* -{4} .*?\*/", section, body, flags=re.S)
body = re.sub(r"(/\*\*(?:(?!\*/).)*\*/)\n((?:KRL_API|KRL_[A-Z0-9_]+\()(?:(?!\n\n|/\*|\n#|\ntypedef|\nKRL_END).)*\n)", shared_comment, body,
              flags=re.S)
print(group(family, title.strip().rstrip("."), text) + body + "/** @} */\n" * len(opened))
