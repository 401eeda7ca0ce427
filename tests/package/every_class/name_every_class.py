"""Writes a program that includes every installed header and names every exported class: a header that was not installed, or
a polymorphic class that was not exported whole, breaks its build. Fails for a function that a user can call, but that is neither
exported nor defined in its header.  Arguments: the include folders of the package."""
import pathlib
import re
import sys

IGNORED = re.compile(r'//[^\n]*|^\s*#(?:[^\n]*\\\n)*[^\n]*|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])\'', re.MULTILINE)
TOKEN = re.compile(
    r"(?P<namespace>\bnamespace [\w:]+\s*\{)|(?P<open>\{)|(?P<close>\})"
    r"|(?:class|struct) FN_EXPORT (?P<name>\w+)(?! *;)\b|FN_DECLARE_EXCEPTION\((?P<exception>\w+),")


def exported_classes(text):
    """The exported classes of a header with their namespaces; those inside of another class come with it."""
    blocks = []  # What is open, outermost first: namespaces by name, anything else as None.
    for match in TOKEN.finditer(IGNORED.sub("", text)):
        if match["namespace"]:
            blocks.append(match["namespace"].removeprefix("namespace ").rstrip("{ \n"))
        elif match["open"]:
            blocks.append(None)
        elif match["close"]:
            blocks.pop()
        elif None not in blocks:
            yield "::".join([*blocks, match["name"] or match["exception"]])


def unlinkable(text):
    """The declarations of functions in a header that are neither exported nor defined there. Private ones are left out: nobody
    can call them."""
    blocks, start, text = [["namespace", "public"]], 0, IGNORED.sub("", text)  # What is open, and who may see what comes.
    for match in re.finditer(r"[{};]|\b(public|protected|private):", text):
        head = " ".join(text[start : match.start()].split())
        start = match.end()
        kind, access = blocks[-1]
        named = re.match(r"(template <.*>)? ?(namespace|class|struct)\b", head)
        if match[1]:
            blocks[-1][1] = match[1]
        elif match[0] == "}":
            blocks.pop()
        elif match[0] == "{" and named:
            # A template is defined where it is declared, a nested class is exported with the one around it.
            linkable = kind == "other" or named[1] or re.search(r"FN_EXPORT|gnu::visibility|\w::\w+( final)?( :.*)?$", head)
            blocks.append(["other" if linkable and named[2] != "namespace" else named[2],
                           "private" if named[2] == "class" else "public"])
        elif match[0] == "{":
            blocks.append(["other", access])
        elif kind != "other" and access != "private" and re.search(r"\w\(.*\)[ \w]*$", head):
            if not re.search(r"\b(FN_\w+|using|typedef|friend|template|static_assert|constexpr|operator)\b|=", head):
                yield head


headers, classes, missing = [], [], []
for folder in map(pathlib.Path, sys.argv[1:]):
    for header in sorted(folder.rglob("*.h")):
        headers.append(header.relative_to(folder))
        classes += exported_classes(header.read_text())
        missing += [f"{header.name}: {head}" for head in unlinkable(header.read_text())]

for header in headers:
    print(f"#include <{header}>")
print("#include <cstdio>\n#include <typeinfo>\n\nint main()\n{\n    const std::type_info* classes[] = {")
for name in classes:
    print(f"        &typeid({name}),")
print("    };\n    for (const auto* type : classes) std::puts(type->name());\n    return 0;\n}")
if missing:
    sys.exit("neither exported nor inline:\n" + "\n".join(missing))
sys.exit(0 if len(classes) > 20 else "hardly any class found: are the headers installed?")
