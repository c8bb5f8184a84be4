#!/usr/bin/python3
"""pages.py <project> <directory>: writes the pages of the site, from the project's Markdown and its header.

The pages have the paths that they have in the project, so that their links hold. A link to another file of the project leads
to a page with that file; a link to a directory becomes plain text.
"""

import pathlib
import re
import shutil
import sys

from reference import reference

project, target = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
HEADER = project / "src/libzentadbpp/zentadbpp.h"
LANGUAGES = {".c": "c", ".h": "cpp", ".hpp": "cpp", ".cpp": "cpp", ".md": "markdown"}
pages = {path: path.relative_to(project) for path in [*project.glob("*.md"), *project.glob("docs/*.md")]}
pages[project / "README.md"] = pathlib.Path("index.md")
pages[HEADER] = pathlib.Path("docs/reference.md")
sources = {}


def between(start, end):
    """The relative path from the page `start` to `end`."""
    up = len(start.parts) - 1
    return "/".join([".."] * up + list(end.parts))


def link(page, source, match):
    text, address = match.groups()
    if re.match(r"[a-z]+:|#", address):
        return match.group(0)
    path, _, anchor = address.partition("#")
    found = (source.parent / path).resolve()
    if found.is_dir():
        return text
    if not found.is_file():
        sys.exit(f"{source}: no {path}")
    if found.suffix in (".png", ".svg"):
        copy = target / found.relative_to(project)
        copy.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(found, copy)
        return match.group(0)
    if found not in pages:
        sources[found] = pages[found] = pathlib.Path("source") / (str(found.relative_to(project)) + ".md")
    return f"[{text}]({between(page, pages[found])}{'#' + anchor if anchor else ''})"


def indented(lines):
    """The generator requires four spaces before everything that belongs to a list item."""
    width = 0
    fenced = False
    for line in lines:
        if item := re.match(r"(- |\d+\. )", line):
            width = 0 if fenced else item.end()
        elif line.strip() and not line.startswith(" ") and not fenced:
            width = 0
        if re.match(r" *```", line):
            fenced = not fenced
        yield line if not width or not line.startswith(" " * width) else " " * (4 - width) + line


def page_of(source, page):
    text = re.sub(r"^<!--.*?^-->\n", "", source.read_text(), flags=re.M | re.S)
    text = re.sub(r"^( *```+[a-z]+) [a-z]+(=\S+)?$", r"\1", text, flags=re.M)
    blocks = re.split(r"(^ *```.*?^ *```$)", text, flags=re.M | re.S)
    for at in range(0, len(blocks), 2):
        blocks[at] = re.sub(r"\[([^][]*(?:`[^`]*`[^][]*)*)\]\(([^()\s]+)\)", lambda m: link(page, source, m), blocks[at])
    return "\n".join(indented("".join(blocks).split("\n")))


def write(page, text):
    (target / page).parent.mkdir(parents=True, exist_ok=True)
    (target / page).write_text(text)


shutil.rmtree(target, ignore_errors=True)
for source, page in list(pages.items()):
    write(page, reference(source) if source == HEADER else page_of(source, page))
for source, page in sources.items():
    name = source.relative_to(project)
    language = LANGUAGES.get(source.suffix, "text")
    write(page, f"# {name}\n\n````{language}\n{source.read_text()}\n````\n")
