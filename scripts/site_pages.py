"""What scripts/docs gives Doxygen: the pages with anchors and links as it understands them, the public headers, and the layout."""
import os
import re
import shutil
import subprocess

from tree import ROOT, list_files

CONTENTS = ROOT / "docs/site/contents.txt"
HEADING = re.compile(r"(#{1,6}) (.+)")
LINK = re.compile(r"(!?)\[((?:[^][]|\[[^]]*\])*)\]\(([^)\s#]*)(#[^)\s]*)?\)")
FENCE = re.compile(r"```")
MARKER = re.compile(r"<!-- .* -->\n?")


def contents():
    """Sections of the navigation with their pages: {"Tour": ["docs/tour/...", ...], ...}"""
    sections = {}
    for line in CONTENTS.read_text().splitlines():
        if line.startswith("    "):
            sections[list(sections)[-1]].append(line.strip())
        elif line and not line.startswith("#"):
            sections[line] = []
    return sections


def label(name):
    """By what Doxygen knows a page."""
    return "page_" + re.sub(r"\W", "_", name.removesuffix(".md"))


def anchor(heading):
    """As source hosts make it of a heading's text."""
    text = re.sub(r"\[([^]]*)\]\([^)]*\)|[`*]", r"\1", heading).lower()
    return re.sub(r"[^\w\- ]", "", text).replace(" ", "-")


def title(name):
    return HEADING.match((ROOT / name).read_text())[2]


class Pages:
    """All pages, and the files that they link to: each of those becomes a page, too."""

    def __init__(self):
        self.pages = ["README.md", *(page for pages in contents().values() for page in pages)]
        self.sources = []
        self.faults = [f"{page}: not in docs/site/contents.txt" for page in list_files(".md")
                       if page.startswith("docs/") and page not in self.pages]
        self.external = set()

    def write(self, folder):
        for page in self.pages:
            (folder / f"{label(page)}.md").write_text(self._converted(page))
        for source in self.sources:
            language = {".txt": "txt", ".cmake": "cmake"}.get(os.path.splitext(source)[1], "cpp")
            text = (ROOT / source).read_text()
            (folder / f"{label(source)}.md").write_text(f"# {source} {{#{label(source)}}}\n\n~~~{{.{language}}}\n{text}~~~\n")

    def _converted(self, page):
        lines = []
        in_code = False
        level = 0
        for line in (ROOT / page).read_text().splitlines():
            if FENCE.match(line):
                in_code = not in_code
            elif not in_code and not line.startswith("    "):
                line = LINK.sub(lambda match: self._link(page, match), line)
                if heading := HEADING.fullmatch(line):
                    own = label(page) + ("" if heading[1] == "#" else "_" + anchor(heading[2]))
                    level = min(len(heading[1]), level + 1)  # Doxygen knows no heading that skips a level.
                    line = f"{'#' * level} {heading[2].replace('`', '')} {{#{own}}}"  # Code in it would show its tags.
            lines.append(line)
        return MARKER.sub("", "\n".join(lines) + "\n")

    def _link(self, page, match):
        image, text, target, part = match[1], match[2], match[3], (match[4] or "")[1:]
        if re.match(r"[a-z]+:", target):
            self.external.add(target)
            return match[0]
        file = os.path.normpath(os.path.join(os.path.dirname(page), target)) if target else page
        if image:
            return f"![{text}]({os.path.basename(file)})"
        if (ROOT / file).is_dir():
            file += "/README.md"
        if file not in self.pages:
            if not (ROOT / file).is_file():
                self.faults.append(f"{page}: no such file: {target}")
                return text
            if file not in self.sources:
                self.sources.append(file)
        return f"[{text}](@ref {label(file)}{'_' + part if part else ''})"


def public_headers(*options):
    """Those that are installed; with "--named" those that programs include by name."""
    listed = subprocess.run([ROOT / "scripts/public-headers", *options], check=True, capture_output=True, text=True).stdout.split()
    return [f"libs/{name}" for name in listed]


def write_headers(folder):
    for name in public_headers():
        copy = folder / name
        copy.parent.mkdir(parents=True, exist_ok=True)
        copy.write_text(with_shared_docstrings((ROOT / name).read_text()))


DECLARED = re.compile(r"\s*(?!///|return\b|using\b)[^(]*?\b(\w+)\(")
NEEDS_NONE = re.compile(r"~|= (delete|default)|\b(\w+)\((const )?\2(<\w+>)? ?&&?( \w+)?\)")


def blank_statement(lines, first):
    """With its body, and the line above it that says `template`."""
    depth = 0
    if lines[first - 1].strip().startswith("template"):
        lines[first - 1] = ""
    for i in range(first, len(lines)):
        depth += lines[i].count("{") - lines[i].count("}")
        is_end = depth == 0 and re.search(r"[;}]\s*(//.*)?$", lines[i])
        lines[i] = ""
        if is_end:
            return


def give_docstring(lines, i, docstring):
    """Puts it before the declaration, in its line."""
    start = i - 1 if lines[i - 1].strip().startswith("template") else i
    code = lines[start].lstrip()
    lines[start] = " " * (len(lines[start]) - len(code)) + "/** " + r" \ilinebr ".join(docstring) + " */ " + code


def with_shared_docstrings(text):
    """Gives overloads the docstring that stands above the first of them; what stands behind a declaration is for that one alone. The
    lines stay where they are: warnings name them."""
    lines = text.split("\n")
    above = []  # The docstring that is being read.
    documented, name = [], None  # That of the last declaration, and its name.
    for i, line in enumerate(lines):
        stripped = line.strip()
        if stripped.startswith("friend ") and not above and "///<" not in line:
            blank_statement(lines, i)  # Doxygen lists it although it does not show it, or looks for it in the wrong class.
        elif stripped.startswith("///"):
            above.append(stripped[3:].strip())
        elif not stripped or stripped.endswith(":") or stripped == "};":
            above, documented, name = [], [], None
        elif stripped.startswith("friend "):
            lines[i] = line.replace("friend ", "", 1)  # One with a docstring is shown only as a member.
            above = []
        elif declared := DECLARED.match(line):
            if above or "///<" in line:
                documented, name = above, declared[1]
            elif documented and declared[1] == name and not NEEDS_NONE.search(line):
                give_docstring(lines, i, documented)
            above = []
        elif not stripped.startswith(("template", "[[", "requires")):
            above = []
    return "\n".join(lines)


def write_layout(file):
    """Doxygen's own layout with our sections as its navigation."""
    subprocess.run(["doxygen", "-l", file], check=True)
    tabs = ['<tab type="mainpage" visible="yes" title="Overview"/>']
    for section, pages in contents().items():
        tabs.append(f'<tab type="usergroup" visible="yes" title="{section}" url="@ref {label(pages[0])}">')
        tabs += [f'<tab type="user" visible="yes" title="{short_title(page)}" url="@ref {label(page)}"/>' for page in pages]
        if section == "Reference":
            tabs += ['<tab type="classlist" visible="yes" title="Classes" intro=""/>',
                     '<tab type="namespacelist" visible="yes" title="Namespaces" intro=""/>',
                     '<tab type="filelist" visible="yes" title="Headers" intro=""/>',
                     '<tab type="classindex" visible="yes" title="Index of classes" intro=""/>']
        tabs.append("</tab>")
    layout = file.read_text().replace('<allmemberslink visible="yes"/>', '<allmemberslink visible="no"/>')
    file.write_text(re.sub(r"<navindex>.*</navindex>", lambda _: "<navindex>" + "\n".join(tabs) + "</navindex>", layout, flags=re.DOTALL))


def short_title(page):
    text = re.sub(r"[`*]", "", title(page)).replace("&", "&amp;")
    return text.split(":")[0] if page.startswith("libs/") else text
