"""Checks the headers' text for what the AST does not contain."""
import re

# Our own, and those that <objc/objc.h> defines too.
ALLOWED_MACROS = re.compile(r"SDK_\w+|YES|NO|nil|Nil")


def frameworks(folder):
    """Names of the frameworks with headers in a folder."""
    return sorted(p.name for p in folder.iterdir() if p.is_dir() and any(p.rglob("*.h")))


def without_comments(text):
    """A header's text without its comments."""
    return re.sub(r"//[^\n]*|/\*.*?\*/", "", text, flags=re.DOTALL)


def declaring_text(text):
    """A header's text without comments, directives and whitespace."""
    text = re.sub(r"\\\n", "", without_comments(text))
    return re.sub(r"^\s*#[^\n]*", "", text, flags=re.MULTILINE).strip()


def unseen(folder, declarations):
    """An error for each header whose declarations are missing from the dump."""
    seen = {d.place.rsplit(":", 1)[0] for d in declarations}
    errors = []
    for header in sorted(folder.rglob("*.h")):
        name = str(header.relative_to(folder))
        if name not in seen and declaring_text(header.read_text()):
            errors.append(f"error: {name}: not in the dump, so nothing of it was looked at")
    return errors


def unchecked_macros(folder):
    """An error for each macro that defines system API: the AST does not contain macros."""
    errors = []
    for header in sorted(folder.rglob("*.h")):
        text = without_comments(header.read_text())
        for match in re.finditer(r"^\s*#\s*define\s+(\w+)", text, re.MULTILINE):
            if not ALLOWED_MACROS.fullmatch(match[1]):
                line = text.count("\n", 0, match.start(1)) + 1
                errors.append(f"error: {header.relative_to(folder)}:{line}: macro {match[1]}:"
                              " cannot be looked at; declare a constant or a function")
    return errors
