"""Makes the page of all functions out of the comments in zentadbpp.h."""

import html
import re

RULE = re.compile(r"^// [-=]{20,}$")
LABEL = re.compile(r"^(Result|Errors|Cost|Arguments|Errors of all, by value|Errors, by value|Checked in the order)\b(:?)")
DECLARED = re.compile(r"\b([a-z_0-9]+)\(")


class Comment:
    """A comment's text as HTML: paragraphs, lists, code, and "term   description" as definitions."""

    def __init__(self, functions):
        self.functions = functions

    def inline(self, text):
        text = html.escape(re.sub(r"\s+", " ", text).strip(), quote=False)

        def marked(match):
            word = match.group(0).strip("`")
            if word.startswith("<a"):
                return word
            if word in ("[sync]", "[rev]", "[data]"):
                return f'<a href="#error-texts">{word}</a>'
            if word in self.functions:
                return f'<a href="#{word}"><code>{word}</code></a>'
            return f"<code>{word}</code>"

        text = re.sub(r"\bdocs/([a-z-]+)\.md\b", r'<a href="\1.html">docs/\1.md</a>', text)
        pattern = r'<a.*?</a>|\[(?:sync|rev|data)\]|`[^`]+`|"[^"]*"|\{[^}]*\}|\b[a-z]+(?:_[a-z0-9]+)+\b|\b[A-Z]+(?:_[A-Z0-9]+)+\b'
        return re.sub(pattern, marked, text)

    def definitions(self, lines):
        indent = len(lines[0]) - len(lines[0].lstrip())
        column = re.match(r" *\S.*?\s{2,}", lines[0]).end()
        entries = []  # the term, and what is said of it: texts, and lines of code
        for line in lines:
            term, rest = line[:column], line[column:]
            if line.lstrip().startswith("{ "):
                entries[-1][1] += [self.code([line]), ""]
            elif not term.strip():
                entries[-1][1][-1] += " " + rest
            elif len(term) - len(term.lstrip()) > indent:
                entries[-1][0] += " " + term.strip()
                entries[-1][1][-1] += " " + rest
            else:
                entries.append([term.strip(), [rest]])
        body = []
        for term, said in entries:
            body.append(f"<dt>{self.inline(term) if term.startswith('[') else f'<code>{html.escape(term)}</code>'}</dt><dd>")
            body += [text if text.startswith("<pre>") else f"<p>{self.inline(text)}</p>" for text in said]
            body.append("</dd>")
        kind = ' class="short"' if all(len(term) < 16 for term, _ in entries) else ""
        return f"<dl{kind}>{''.join(body)}</dl>"

    def settings(self, lines):
        entries = []
        for line in lines:
            if found := re.match(r'^  ("\w+") +(\w+) +(\S+) +(\S.*)$', line):
                key, kind, default, readers = found.groups()
                entries.append([f"<code>{key}</code> {kind}, default <code>{default}</code>, read by {readers}", []])
            elif entries:
                entries[-1][1].append(line)
        return "<dl>" + "".join(f"<dt>{t}</dt><dd>{self.inline(' '.join(d))}</dd>" for t, d in entries) + "</dl>"

    def code(self, lines):
        indent = min(len(line) - len(line.lstrip()) for line in lines)
        return "<pre><code>" + html.escape("\n".join(line[indent:] for line in lines), quote=False) + "</code></pre>"

    def block(self, kind, lines):
        if kind == "definitions":
            return self.settings(lines[1:]) if lines[0].startswith("  Key ") else self.definitions(lines)
        if kind == "code":
            return self.code(lines)
        text = self.inline(" ".join(lines))
        if kind == "label":
            text = LABEL.sub(lambda found: f"<strong>{found.group(1)}</strong>{found.group(2)}", text)
        return f"<li>{text[2:]}</li>" if kind == "item" else f"<p>{text}</p>"

    def render(self, lines):
        """Splits the lines into blocks: of what kind a line is follows from its indentation and the gap in it."""
        blocks = []
        kind = None
        for line in lines:
            indent = len(line) - len(line.lstrip())
            if not line.strip():
                kind = None
                continue
            if kind == "definitions" and (indent >= base or base == 0):
                new = None
            elif re.match(r"(  )?- ", line):
                new = "item"
            elif LABEL.match(line):
                new = "label"
            elif kind in ("label", "item", "code") and indent >= 2:
                new = None
            elif re.match(r"(  )?\S(.{0,40}?\S)?? {2,}\S", line):
                new, base = "definitions", indent
            elif indent >= 2:
                new = "code"
            else:
                new = None if kind == "text" else "text"
            if new is not None:
                kind = new
                blocks.append((kind, []))
            blocks[-1][1].append(line.lstrip() if kind == "item" else line)
        out = [self.block(*block) for block in blocks]
        return re.sub(r"((?:<li>.*</li>\n?)+)", r"<ul>\1</ul>", "\n".join(out))


def heading(level, title, names=()):
    anchors = "".join(f'<a id="{name}"></a>' for name in names[1:])
    shown = " / ".join(f"`{name}`" for name in names) if names else title
    ident = f" {{ #{names[0]} }}" if names else ""
    return f"{anchors}\n\n{'#' * level} {shown}{ident}\n"


def reference(header):
    text = header.read_text()
    functions = set(DECLARED.findall(re.sub(r"//.*", "", text))) - {"defined", "__attribute__", "visibility"}
    comment = Comment(functions)
    uncomment = lambda line: line[3:] if line.startswith("// ") else ""

    prologue, rest = text.split("#ifndef ZENTADBPP_H", 1)
    parts = re.split(r"^// -{20,}\n// (.+)\n//\n", prologue, flags=re.M)
    lines = lambda part: [uncomment(line) for line in part.splitlines()]
    out = ["# Functions of zentadbpp.h\n", comment.render(lines(parts[0]))]
    for title, body in zip(parts[1::2], parts[2::2]):
        out += [heading(2, title), comment.render(lines(body))]

    body = rest.split('extern "C" {\n#endif\n', 1)[1].split("\n#ifdef __cplusplus", 1)[0]
    out.append(heading(2, "Records and handles"))
    for group in re.split(r"\n\s*\n(?=//|typedef)", body):
        group = group.strip("\n")
        if title := re.match(r"// ={20,}\n// (.+)\n// ={20,}\n?(?://\n)?", group):
            out.append(heading(2, title.group(1)))
            group = group[title.end():]
        comments = [uncomment(line) for line in group.splitlines() if line.startswith("//")]
        code = "\n".join(line for line in group.splitlines() if not line.startswith("//")).replace("ZENTADBPP_EXPORT ", "")
        names = DECLARED.findall(code)
        if names:
            out.append(heading(3, "", names))
        if code.strip():
            code = re.sub(r"\n +(?=\w)", " ", code) if names else code
            out.append(f"```c\n{code.strip()}\n```\n")
        out.append(comment.render(comments))
    return "\n".join(out) + "\n"
