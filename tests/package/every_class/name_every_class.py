"""Writes a program that includes every installed header and names every exported class: a header that was not installed, or
a polymorphic class that was not exported whole, breaks its build. Fails for a function that a user can call, but that is neither
exported nor defined in its header.  Arguments: the include folders of the package."""
import pathlib
import re
import sys

IGNORED = re.compile(r'//[^\n]*|^\s*#(?:[^\n]*\\\n)*[^\n]*|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])\'', re.MULTILINE)
BLOCK = re.compile(r"(template <.*>)? ?(namespace|class|struct)\b ?([\w:]*)")
EXPORTED = re.compile(r"(?:class|struct) FN_EXPORT (\w+)|FN_DECLARE_EXCEPTION\((\w+),")
headers, classes, missing = [], [], []


def scan(header, text):
    """Notes the exported classes with their namespaces, and the functions that are neither exported nor defined there. What is
    inside of an exported class comes with it; private functions are left out: nobody can call them."""
    blocks, start = [["namespace", "public", ""]], 0  # What is open, who may see what comes, and the namespace's name.
    for match in re.finditer(r"[{};]|\b(public|protected|private):", text):
        head = " ".join(text[start : match.start()].split())
        start = match.end()
        kind, access, _ = blocks[-1]
        named = BLOCK.match(head)
        exported = EXPORTED.search(head)
        if kind == "namespace" and exported and (match[0] == "{" or exported[2]):
            classes.append("::".join([block[2] for block in blocks if block[2]] + [exported[1] or exported[2]]))
        if match[1]:
            blocks[-1][1] = match[1]
        elif match[0] == "}":
            blocks.pop()
        elif match[0] == "{" and named:
            # A template is defined where it is declared, a nested class is exported with the one around it.
            linkable = kind == "other" or named[1] or re.search(r"FN_EXPORT|gnu::visibility|\w::\w+( final)?( :.*)?$", head)
            is_namespace = named[2] == "namespace"
            blocks.append(["other" if linkable and not is_namespace else named[2],
                           "private" if named[2] == "class" else "public", named[3] if is_namespace else ""])
        elif match[0] == "{":
            blocks.append(["other", access, ""])
        elif kind != "other" and access != "private" and re.search(r"\w\(.*\)[ \w]*$", head):
            if not re.search(r"\b(FN_\w+|using|typedef|friend|template|static_assert|constexpr|operator)\b|=", head):
                missing.append(f"{header.name}: {head}")


for folder in map(pathlib.Path, sys.argv[1:]):
    for header in sorted(folder.rglob("*.h")):
        headers.append(header.relative_to(folder))
        scan(header, IGNORED.sub("", header.read_text()))

for header in headers:
    print(f"#include <{header}>")
print("#include <cstdio>\n#include <typeinfo>\n\nint main()\n{\n    const std::type_info* classes[] = {")
for name in classes:
    print(f"        &typeid({name}),")
print("    };\n    for (const auto* type : classes) std::puts(type->name());\n    return 0;\n}")
if missing:
    sys.exit("neither exported nor inline:\n" + "\n".join(missing))
sys.exit(0 if len(classes) > 20 else "hardly any class found: are the headers installed?")
