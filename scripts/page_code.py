"""The blocks of code on the pages. What stands in a comment before a block says how it is checked:

<!-- PATH -->                    it is that file
<!-- PATH "FIRST" "LAST" -->     it is the part of that file from the line that begins with FIRST to the next
                                one, no further to the right, that begins with LAST
<!-- in a coroutine -->          (cpp) it is compiled as statements of a coroutine
<!-- no-run: REASON -->          (sh) it is not run

Without a comment C++ is compiled as declarations, Python is compiled, and sh is run in the root of the tree. A page's blocks see what
docs/site/code/PAGE.h declares."""
import concurrent.futures
import re
import subprocess

from tree import ROOT, compile_commands

BLOCK = re.compile(r"(?:^<!-- (?P<marker>[^\n]*) -->\n)?^```(?P<language>\w*)\n(?P<text>.*?)^```$", re.DOTALL | re.MULTILINE)
SHOWN = re.compile(r'([\w./-]+\.\w+|[\w./-]+/[\w.-]+)(?: "(.*)" "(.*)")?')
CHECKED = ("cpp", "sh", "cmake", "python")  # Languages of which no block goes unchecked.
UNCHECKED = ("", "text", "json")  # To look at. (Diagrams are pictures, docs/processes.svg: the site draws none.)
INDENTED = re.compile(r"\n\n    [^ \n*-][^\n]*(?:\n    [^\n]*)*\n")
BY_ITSELF = re.compile(r"IPC_MODULE_ENTRY_POINT|int main\(")
NEAR = "examples/ladder/1_one_call.cpp"  # Compiled as this one is.


def shown(marker):
    """The text that a comment names, or None where it names no file."""
    match = SHOWN.fullmatch(marker or "")
    if not match:
        return None
    lines = (ROOT / match[1]).read_text().splitlines(keepends=True)
    if match[2] is None:
        return "".join(lines)
    first = next((i for i, line in enumerate(lines) if line.lstrip().startswith(match[2])), None)
    indent = 0 if first is None else len(lines[first]) - len(lines[first].lstrip())
    last = next((i for i in range(first or 0, len(lines)) if first is not None and lines[i].startswith(" " * indent + match[3])), None)
    if last is None:
        raise ValueError(f"{match[1]} has no lines from {match[2]} to {match[3]}")
    return "".join(line[indent:] or "\n" for line in lines[first:last + 1])


def with_files(text):
    """The text of a page with the blocks that show a file as the file is now."""
    def current(match):
        now = shown(match["marker"])
        start, end = (place - match.start() for place in match.span("text"))
        return match[0] if now is None else match[0][:start] + now + match[0][end:]
    return BLOCK.sub(current, text)


def own_blocks(page, text):
    """Those that show no file: line of the page, comment before it, language, text."""
    return [(text.count("\n", 0, match.start("text")) + 1, match["marker"] or "", match["language"], match["text"])
            for match in BLOCK.finditer(text) if shown(match["marker"]) is None and match["language"] in CHECKED]


def unclear_blocks(page, text):
    """What no check can make sense of."""
    faults = [f"{page}:{line}: a block of {language} needs a comment that names its file"
              for line, _, language, _ in own_blocks(page, text) if language == "cmake"]
    faults += [f"{page}: nothing checks, or shows, a block of {match['language']}" for match in BLOCK.finditer(text)
               if match["language"] not in (*CHECKED, *UNCHECKED)]
    prose = BLOCK.sub("", text)
    return faults + [f"{page}: indented code: give it a fence and a language: {match[0].strip()[:60]}" for match in INDENTED.finditer(prose)]


def translation_units(page, text):
    declarations = ROOT / "docs/site/code" / (page.split("/")[-1].removesuffix(".md") + ".h")
    start = f'#include "{declarations}"\n' if declarations.exists() else ""
    includes, together = [], []
    for line, marker, language, code in own_blocks(page, text):
        if language != "cpp":
            continue
        at = f'\n#line {line} "{page}"\n'
        if BY_ITSELF.search(code):
            yield start + at + code
            continue
        includes += re.findall(r"^#include .*\n", code, re.MULTILINE)
        code = re.sub(r"^#(include|pragma once).*", "", code, flags=re.MULTILINE)
        inside = marker == "in a coroutine"
        together.append(f"fn::Promise<void> line_{line}() {{{at}{code}\nco_return; }}" if inside else at + code)
    if together:
        yield start + '#include "foundation/promise.h"\n' + "".join(includes) + "\n".join(together) + "\n"


def compile_all(pages):
    """Compiles and runs what stands on the pages alone; gives what is wrong."""
    flags = [*compile_commands()[NEAR], "-w", "-fsyntax-only", f"-I{ROOT}", f"-I{ROOT}/apps", "-x", "c++", "-"]
    texts = {page: (ROOT / page).read_text() for page in pages}
    with concurrent.futures.ThreadPoolExecutor() as pool:
        compiled = pool.map(lambda unit: subprocess.run(flags, input=unit, text=True, capture_output=True, check=False),
                            [unit for page, text in texts.items() for unit in translation_units(page, text)])
        faults = [result.stderr for result in compiled if result.returncode]
    for page, text in texts.items():
        for line, marker, language, code in own_blocks(page, text):
            if language == "python":
                try:
                    compile("\n" * (line - 1) + code, page, "exec")
                except SyntaxError as error:
                    faults.append(f"{page}:{error.lineno}: {error.msg}")
            if language == "sh" and not re.match(r"no-run: .", marker):
                result = subprocess.run(["bash", "-e"], input=code, text=True, capture_output=True, cwd=ROOT, timeout=60, check=False)
                faults += [f"{page}:{line}: {result.stdout}{result.stderr}"] if result.returncode else []
    return faults
