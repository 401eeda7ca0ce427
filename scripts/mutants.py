"""Small faults in sources, for scripts/mutate: where lines can take one, how they are drawn, and the text that keeps them."""
import collections
import random
import re

# The object system and the base library get 60 of 100: everything else rests on them.
MAIN, REST = "object system and base library", "the rest"
MAIN_FOLDERS = ("libs/core/ipc/", "libs/foundation/")
LEFT_OUT = ("libs/core/simulation/", "libs/foundation/folly/")
MOST_DEPENDENTS = 12  # Sources that include a header; one that more do takes minutes to build.

# Report texts and declarations; in an assertion only the condition counts (its site and line are text, too).
NOT_CODE = re.compile(r"static_assert|FN_EXPORT|FN_LOGF?_TO|FN_DECLARE_|FN_IMPLEMENT_|Log\(|\blog[A-Z]?\w*\(|\bwants\(|\bwriteFormatted\(|^(#|using |template|friend |enum )")
NUMBER = re.compile(r"(?<![\w.'])\d+(?![\w.'])")
SWAPS = {
    "comparison": {" == ": " != ", " != ": " == ", " < ": " >= ", " >= ": " < ", " > ": " <= ", " <= ": " > "},
    "boundary": {" < ": " <= ", " <= ": " < ", " > ": " >= ", " >= ": " > "},
    "logic": {" && ": " || ", " || ": " && "},
    "sign": {" + ": " - ", " - ": " + ", " += ": " -= ", " -= ": " += ", "++": "--", "--": "++"},
    "truth": {"true": "false", "false": "true"},
    "jump": {"break;": "continue;", "continue;": "break;"},
}
TARGET = r"[\w:.\->\[\]()*]+"
STATEMENT = re.compile(rf"(?!return\b.|throw\b|case\b|delete\b|else\b)({TARGET}(<[^()]*>)?\(.*\)|\(void\).*|{TARGET} [-+|&]?= .*"
    rf"|(\+\+|--){TARGET}|return);$|if \(.*\) [^{{}}]*;$")
NAME = re.compile(r"(~?\w+)\(")
CONTROL = re.compile(r"(if|for|while|switch|return|catch|else|case|do|throw|\}|//)\b|\}|//")


class Mutant:
    """One changed line. It is named by file, function, and the old text with its number among equal lines of the function, so that
    it is found again in another revision."""

    def __init__(self, path, function, number, kind, old, new, equivalent=""):
        self.path, self.function, self.number, self.kind, self.old, self.new = path, function, number, kind, old, new
        self.equivalent = equivalent  # Why nobody could tell it from the original.

    def key(self):
        return f"{self.path} {self.function} {self.number} {self.kind}\n-{self.old}\n+{self.new}"

    def text(self):
        return f"== {self.key()}\n" + (f"equivalent: {self.equivalent}\n" if self.equivalent else "")

    def area(self):
        return MAIN if self.path.startswith(MAIN_FOLDERS) else REST

    def line(self, text):
        """The index of its line in the file's text; None if it has gone."""
        lines = text.split("\n")
        equal = [index for index, line in enumerate(lines) if line.strip() == self.old and functionAt(lines, index) == self.function]
        return equal[self.number - 1] if len(equal) >= self.number else None

    def put_in(self, text):
        lines = text.split("\n")
        index = self.line(text)
        lines[index] = lines[index].replace(self.old, self.new)
        return "\n".join(lines)


def read(text):
    mutants = []
    for part in re.split(r"^== ", text, flags=re.MULTILINE)[1:]:
        lines = part.split("\n")
        path, function, number, kind = lines[0].split(" ")
        field = lambda start: next((line[len(start):] for line in lines[1:] if line.startswith(start)), "")
        mutants.append(Mutant(path, function, int(number), kind, field("-"), field("+"), field("equivalent: ")))
    return mutants


def indentation(line):
    return len(line) - len(line.lstrip())


def functionAt(lines, index):
    """The nearest name before the line that is called or declared further left; the same wherever the function moves."""
    depth = indentation(lines[index])
    for line in reversed(lines[:index]):
        if line.strip() in ("", "{", "{}") or indentation(line) >= depth:
            continue
        depth = indentation(line)
        name = NAME.search(line)
        if name and not CONTROL.match(line.strip()):
            return name[1]
        if depth == 0:
            break
    return "-"


def masked(line):
    """The line with texts and its comment blanked, at the same places."""
    blank = lambda match: match[0][0] + "_" * (len(match[0]) - 2) + match[0][-1]
    line = re.sub(r'"(\\.|[^"\\])*"|(?<!\w)\'(\\.|[^\'\\])+\'', blank, line)
    comment = line.find("//")
    return line if comment < 0 else line[:comment] + " " * (len(line) - comment)


def swapped(line, mask, table):
    for old, new in table.items():
        for match in re.finditer(rf"\b{old}" if old[0].isalpha() else re.escape(old), mask):
            yield line[:match.start()] + new + line[match.end():]


def withNumber(line, mask, values):
    for match in NUMBER.finditer(mask):
        for value in values(int(match[0])):
            yield line[:match.start()] + str(value) + line[match.end():]


def negated(line, mask):
    match = re.search(r"\b(?:if|while) \(", mask)
    if match:
        end = closing(mask, match.end() - 1)
        condition = mask[match.end():end] if end else ";"
        if not re.search(r";|(?<![=!<>])=(?!=)", condition):
            yield f"{line[:match.end()]}!({line[match.end():end]}){line[end:]}"
    match = re.search(r"\breturn ([^;]*( [=!<>]=? | && | \|\| )[^;]*);", mask)
    if match and "?" not in match[1] and closing(mask[:match.end(1)] + ")", None, match.start(1)):
        yield f"{line[:match.start(1)]}!({line[match.start(1):match.end(1)]}){line[match.end(1):]}"


def closing(mask, opening, begin=None):
    """Where the parenthesis is closed that opens at `opening`, or before `begin`; None if that is not in this line."""
    depth = 0 if begin is None else 1
    for index in range(opening if begin is None else begin, len(mask)):
        depth += {"(": 1, "{": 1, ")": -1, "}": -1}.get(mask[index], 0)
        if depth == 0:
            return index
    return None


def changes(line, mask, isWhole, isAssertion):
    """Every (kind, new line)."""
    for kind, table in SWAPS.items():
        if kind == "sign" and '"' in mask:
            continue  # Texts are joined.
        yield from ((kind, new) for new in swapped(line, mask, table))
    yield from (("negation", new) for new in negated(line, mask))
    if not isAssertion:
        yield from (("boundary", new) for new in withNumber(line, mask, lambda value: {value + 1, max(value - 1, 0)} - {value}))
        yield from (("constant", new) for new in withNumber(line, mask, lambda value: [2 * value, 0] if value > 1 else []))
    code = mask.rstrip()
    if isWhole and not isAssertion and STATEMENT.match(code) and code.count("(") == code.count(")"):
        yield "removal", "{ }"


def sites(path, text):
    """Every mutant of a file, by kind."""
    found = collections.defaultdict(list)
    lines = text.split("\n")
    masks = [masked(line) for line in lines]
    seen = collections.Counter()
    begin = 0  # Of the statement that the line belongs to.
    for index, line in enumerate(lines):
        old = line.strip()
        statement = "".join(masks[begin:index + 1]).strip()
        isWhole = begin == index
        if re.search(r"([;{}:]|\)|else)\s*$", masks[index]) and statement.count("(") <= statement.count(")") or not masks[index].strip():
            begin = index + 1
        if not old or NOT_CODE.search(statement) or masks[index].strip().startswith("/*") or "virtual" in statement:
            continue
        function = functionAt(lines, index)
        seen[function, old] += 1
        for kind, new in changes(old, masks[index].strip(), isWhole, "FN_ASSERT" in statement):
            found[kind].append(Mutant(path, function, seen[function, old], kind, old, new))
    return found


def dependents(root):
    """For every header the number of sources that include it, however far away."""
    includes = {}
    for folder in ("libs", "apps", "examples", "tests", "fuzz"):
        for file in (root / folder).rglob("*.[ch]*"):
            names = re.findall(r'^#include "([^"]+)"', file.read_text(), re.MULTILINE)
            places = [[root / "libs" / name, root / "tests" / name, file.parent / name] for name in names]
            includes[file] = [place for choice in places for place in choice if place.is_file()]
    counts = collections.Counter()
    for source in (file for file in includes if file.suffix == ".cpp"):
        reached, due = set(), [source]
        while due:
            new = set(includes.get(due.pop(), [])) - reached
            reached |= new
            due += new
        counts.update(reached)
    return counts


def draw(root, seed, area):
    """Without end different mutants of an area, the same for the same seed and tree: a file by its length, a kind, a line."""
    counts = dependents(root)
    texts = {}
    for file in sorted((root / "libs").rglob("*.[ch]*")):
        path = str(file.relative_to(root))
        isMain = path.startswith(MAIN_FOLDERS)
        if not path.startswith(LEFT_OUT) and isMain == (area == MAIN) and counts[file] <= MOST_DEPENDENTS:
            texts[path] = file.read_text()
    found = {path: kinds for path, text in texts.items() if (kinds := sites(path, text))}
    paths = sorted(found)
    weights = [texts[path].count("\n") for path in paths]
    chance = random.Random(f"{seed} {area}")
    drawn = set()
    for _ in range(100_000):
        kinds = found[chance.choices(paths, weights)[0]]
        mutant = chance.choice(kinds[chance.choice(sorted(kinds))])
        if (mutant.path, mutant.function, mutant.old) not in drawn:
            drawn.add((mutant.path, mutant.function, mutant.old))
            yield mutant
