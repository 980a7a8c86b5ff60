"""The mutants of a C++ source: one operator or one statement changed at a time.

Works on the text, relying on its format (clang-format puts blanks around binary operators, and none
around those of templates and references). What does not compile is sorted out later.
"""

import dataclasses
import re

REPLACED = {"==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">", "&&": "||",
            "||": "&&", "+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "+=": "-=", "-=": "+=",
            "&": "|", "|": "&"}
BINARY = re.compile(r"(?<= )(" + "|".join(map(re.escape, sorted(REPLACED, key=len, reverse=True)))
                    + r")(?= |$)", re.MULTILINE)
WORDS = {"true": "false", "false": "true", "++": "--", "--": "++"}
WORD = re.compile(r"\b(?:true|false)\b|\+\+|--")
NOT = re.compile(r"(?<![\w)])!(?=[\w(:])")
NEITHER_CODE = re.compile(
    r'R"\((?:.|\n)*?\)"|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])+\'|//[^\n]*|/\*(?:.|\n)*?\*/'
    r"|^[ \t]*#(?:[^\n\\]|\\\n|\\.)*", re.MULTILINE)
DECLARATION = re.compile(
    r"(?:(?:static|const|constexpr|inline|mutable|virtual|explicit|struct|auto)\s+)*"
    r"[\w:]+(?:<[^;={}]*>)?(?:\s+const)?[\s&*]+(?!=)~?[\w:]+\s*(?:[={(\[]|;)")
NO_STATEMENT = re.compile(  # va_end does nothing on the machines that we know
    r"(?:return\b(?!\s*;)|va_end\b|(?:const )?auto\b|using|namespace|class|enum|template|static_assert|case|default\b|typedef"
    r"|extern|friend|public|private|protected|do\b|else\s*\{|[{})\]:,?]|~)")
OWNER = re.compile(r"(?:const )?[\w:]*(?:Lock|Scope|Scoped|Umask|Ignored|Guard)\w* \w+[({]")


@dataclasses.dataclass(frozen=True)
class Mutant:
    path: str
    line: int
    column: int
    start: int  # where in the text
    old: str
    new: str

    def apply(self, text):
        assert text[self.start:].startswith(self.old)
        return text[:self.start] + self.new + text[self.start + len(self.old):]

    def __str__(self):
        def one_line(text):
            return " ".join(text.split())
        change = f"`{one_line(self.old)}` -> `{one_line(self.new)}`" if self.new else (
            f"`{one_line(self.old)}` removed")
        return f"{self.path}:{self.line}:{self.column}: {change}"


def blanked(text):
    """The text with comments, literals' contents and directives blanked, in the same places."""
    def blank(match):
        return re.sub(r"[^\n]", lambda _: "\0", match.group(0))
    return NEITHER_CODE.sub(blank, text)


def changes(code):
    """(start, length, new text) of each changed operator."""
    for match in BINARY.finditer(code):
        around = code[match.start() - 2] + code[match.end() + 1:match.end() + 2]
        if not declares(code, match) and not (match[0] == "+" and "\0" in around):  # no texts
            yield match.start(), len(match[0]), REPLACED[match[0]]
    for match in WORD.finditer(code):
        yield match.start(), len(match[0]), WORDS[match[0]]
    for match in NOT.finditer(code):
        yield match.start(), 1, ""


def declares(code, match):
    """Whether a "*" or "&" is part of a type, an "=" of a deleted or pure function."""
    line = code[code.rfind("\n", 0, match.start()) + 1:match.end()]
    return match[0] in "*&" and re.fullmatch(r"\s*(?:const )?[\w:]+(?:<.*>)? [*&]", line) is not None


def closing(code, start):
    """Where the bracket at `start` is closed."""
    depth = 0
    for place in range(start, len(code)):
        depth += {"(": 1, "{": 1, "[": 1, ")": -1, "}": -1, "]": -1}.get(code[place], 0)
        if depth == 0:
            return place
    return len(code) - 1


def in_function(code, start):
    """Whether the innermost block around `start` is code, and no class or namespace."""
    depth = 0
    for place in range(start - 1, -1, -1):
        depth += {"}": 1, "{": -1}.get(code[place], 0)
        if depth < 0:
            head = re.split(r"[;{}]", code[:place])[-1]
            return re.search(r"\b(?:class|struct|namespace|enum|union)\b", head) is None
    return False


def statements(code):
    """(start, end) of each simple statement, one-line branches and loops included."""
    for begin in re.finditer(r"(?<=[;{}\0)])[ \t\0]*\n[ \t\0\n]*(?=[^\s\0])", code):
        start = begin.end()
        head = code[start:code.find("\n", start)]
        if NO_STATEMENT.match(code, start) or not in_function(code, start):
            continue
        if DECLARATION.match(code, start) and not OWNER.match(code, start) and not re.match(
                r"(?:throw|delete|return|if|while|for|else)\b", head):
            continue
        place, ends = start, None
        while place < len(code) and ends is None:
            if code[place] in "([":
                place = closing(code, place)
            elif code[place] == "{" and re.search(r"[)\w]\s*$", code[start:place]) and (
                    re.match(r"(?:if|for|while|switch|else|try)\b", head)):
                ends = -1  # a block: its parts come one by one
            elif code[place] == "{":
                place = closing(code, place)
            elif code[place] == "}":
                ends = -1
            elif code[place] == ";":
                ends = place + 1
            place += 1
        if ends and ends > 0:
            yield start, ends


def conditions(code):
    """(start, end) of the condition of each branch that has a block."""
    for match in re.finditer(r"\bif (?:constexpr )?(?=\()", code):
        end = closing(code, match.end())
        condition = code[match.end() + 1:end]
        compares = re.search(r"==|!=|^!", condition) and not re.search(r"&&|\|\|", condition)
        if ";" not in condition and not compares and code.startswith(") {", end):
            yield match.end() + 1, end


def mutants_of(path, text):
    code = blanked(text)
    found = set()

    def mutant(start, end, new):
        line, column = text.count("\n", 0, start) + 1, start - text.rfind("\n", 0, start)
        found.add(Mutant(path, line, column, start, text[start:end], new))

    for start, length, new in changes(code):
        mutant(start, start + length, new)
    for start, end in statements(code):
        mutant(start, end, ";" if code[start:end].startswith("else") else "")
    for start, end in conditions(code):
        mutant(start, end, f"!({text[start:end]})")
    return sorted(found, key=lambda one: (one.start, one.new))
