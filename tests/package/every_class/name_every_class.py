"""Writes a program that includes every installed header and names every exported class: a header that was not installed, or
a polymorphic class that was not exported whole, breaks its build.  Arguments: the include folders of the package."""
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


headers, classes = [], []
for folder in map(pathlib.Path, sys.argv[1:]):
    for header in sorted(folder.rglob("*.h")):
        headers.append(header.relative_to(folder))
        classes += exported_classes(header.read_text())

for header in headers:
    print(f"#include <{header}>")
print("#include <cstdio>\n#include <typeinfo>\n\nint main()\n{\n    const std::type_info* classes[] = {")
for name in classes:
    print(f"        &typeid({name}),")
print("    };\n    for (const auto* type : classes) std::puts(type->name());\n    return 0;\n}")
sys.exit(0 if len(classes) > 20 else "hardly any class found: are the headers installed?")
