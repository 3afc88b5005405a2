#!/usr/bin/python3
"""The documents hang together: every link and picture of README, CHANGELOG and docs/ leads to something, every page that a header
or a source names exists, no picture is unused, and the pages of docs/index.md lead to each other in its order.

usage: check_documents.py [--write]                 writes the last line of each page in place of checking it
       check_documents.py --reference FOLDER     checks what Doxygen made there: no warning, and every exported symbol"""
import argparse
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
LINK = re.compile(r"(!?)\[[^\]]*\]\(([^)\s]+)\)")
complaints = []


def anchors(page):
    """Of the headings, as GitHub makes them."""
    headings = re.findall(r"^#+ (.*)$", page.read_text(), re.M)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


def check_links(page):
    text = re.sub(r"^(```|    ).*$", "", page.read_text(), flags=re.M)
    for _, target in LINK.findall(text):
        if re.match(r"[a-z]+:", target):
            continue
        path, _, anchor = target.partition("#")
        found = (page.parent / path).resolve() if path else page
        if not found.exists():
            complaints.append(f"{page.relative_to(ROOT)}: {target} is not there")
        elif anchor and anchor not in anchors(found):
            complaints.append(f"{page.relative_to(ROOT)}: {target} has no such heading")


def order():
    listed = re.findall(r"^\d+\. \[([^\]]+)\]\(([^)]+)\)", (ROOT / "docs/index.md").read_text(), re.M)
    pages = {page.name for page in (ROOT / "docs").glob("*.md")} - {"index.md"}
    for name in pages ^ {name for _, name in listed}:
        complaints.append(f"docs/index.md: {name} is listed and not there, or the other way round")
    return listed


def last_lines(listed):
    for i, (_, name) in enumerate(listed):
        parts = [f"[← {listed[i - 1][0]}]({listed[i - 1][1]})"] if i > 0 else []
        parts.append("[Index](index.md)")
        if i + 1 < len(listed):
            parts.append(f"[{listed[i + 1][0]} →]({listed[i + 1][1]})")
        yield ROOT / "docs" / name, "\n---\n\n" + " · ".join(parts) + "\n"


def check_reference(folder):
    warnings = (folder / "warnings.txt").read_text()
    named = set(re.findall(r"<name>(\w+)</name>", (folder / "korla.tag").read_text()))
    exported = set(re.findall(r"^(\w+) [FD]", "".join(path.read_text() for path in (ROOT / "exports").glob("*/*.txt")), re.M))
    missing = sorted(exported - named)
    print(f"{warnings}{len(exported)} symbols" + (f", missing: {' '.join(missing)}" if missing else ""))
    return bool(warnings or missing or len(exported) < 1000)


def main():
    options = argparse.ArgumentParser(usage=__doc__)
    options.add_argument("--write", action="store_true")
    options.add_argument("--reference", type=pathlib.Path)
    options = options.parse_args()
    if options.reference:
        return check_reference(options.reference)
    write = options.write

    for page, line in last_lines(order()):
        text = page.read_text()
        if write:
            page.write_text(re.sub(r"\n---\n\n.*\[Index\]\(index\.md\).*\n\Z", "", text) + line)
        elif not text.endswith(line):
            complaints.append(f"{page.relative_to(ROOT)}: ends with other links than docs/index.md says; tools/check_documents.py --write")

    pages = [ROOT / "README.md", ROOT / "CHANGELOG.md", *(ROOT / "docs").glob("*.md")]
    for page in pages:
        check_links(page)
    everything = subprocess.run(["git", "-C", ROOT, "grep", "-hoE", r"docs/[a-z0-9-]+\.md"], capture_output=True, text=True).stdout
    if not everything:  # not a checkout: what is installed is checked by its own test
        everything = "\n".join(re.findall(r"docs/[a-z0-9-]+\.md", "".join(path.read_text() for path in (ROOT / "include").rglob("*.h"))))
    for name in set(everything.split()):
        if not (ROOT / name).exists():
            complaints.append(f"{name} is named somewhere and not there")
    shown = {(page.parent / target).resolve() for page in pages for picture, target in LINK.findall(page.read_text()) if picture}
    for picture in (ROOT / "docs/images").iterdir():
        if picture not in shown:
            complaints.append(f"{picture.relative_to(ROOT)} is shown nowhere")
    print("\n".join(complaints) or f"{len(pages)} pages")
    return bool(complaints)


if __name__ == "__main__":
    sys.exit(main())
