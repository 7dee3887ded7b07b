"""Types as callers see them: the common form in which declarations and descriptions are compared."""
import re
from dataclasses import dataclass

# Built-in C types on arm64 macOS: family, bits, signed.
BUILTINS = {
    "void": ("void", 0, False),
    "bool": ("bool", 8, False),
    "_Bool": ("bool", 8, False),
    "BOOL": ("bool", 8, False),
    "char": ("integer", 8, True),
    "signed char": ("integer", 8, True),
    "unsigned char": ("integer", 8, False),
    "short": ("integer", 16, True),
    "unsigned short": ("integer", 16, False),
    "int": ("integer", 32, True),
    "unsigned int": ("integer", 32, False),
    "long": ("integer", 64, True),
    "unsigned long": ("integer", 64, False),
    "long long": ("integer", 64, True),
    "unsigned long long": ("integer", 64, False),
    "float": ("real", 32, True),
    "double": ("real", 64, True),
    "SEL": ("selector", 0, False),
    "instancetype": ("self", 0, False),
    "Class": ("class", 0, False),
}

# Ownership, nullability and other qualifiers, which do not affect the type.
QUALIFIERS = re.compile(
    r"\b(_Nonnull|_Nullable|_Null_unspecified|_Nullable_result|__strong|__weak"
    r"|__unsafe_unretained|__autoreleasing|__kindof|const|volatile|enum|struct|union)\b")


@dataclass(frozen=True)
class Kind:
    """One type.

    family     void, bool, integer, real, enum, struct, selector, id, self, class, object, block,
               function, text (characters of C), pointer, array, or unknown
    name       of the enum, struct, class; the protocol of an id; the pointee of a pointer
    bits       of a number, 0 if unknown
    arguments, result   of a block or function
    """
    family: str
    name: str = ""
    bits: int = 0
    signed: bool = False
    arguments: tuple = ()
    result: "Kind | None" = None

    def __str__(self):
        if self.family in ("block", "function"):
            return f"a {self.family} of {len(self.arguments)} arguments"
        if self.family == "integer":
            return f"{'a signed' if self.signed else 'an unsigned'} integer of {self.bits} bits"
        if self.family == "real":
            return f"a real of {self.bits} bits"
        article = "an" if self.family[0] in "aeiou" else "a"
        return f"{article} {self.family} {self.name}".strip()


def split_outside_brackets(text, separator):
    """Splits a text at the separators outside brackets of any kind."""
    parts, depth, start, i = [], 0, 0, 0
    while i < len(text):
        if text.startswith("=>", i):
            i += 2
            continue
        if text[i] in "([{<":
            depth += 1
        elif text[i] in ")]}>":
            depth -= 1
        elif depth == 0 and text.startswith(separator, i):
            parts.append(text[start:i])
            i += len(separator)
            start = i
            continue
        i += 1
    parts.append(text[start:])
    return [part.strip() for part in parts if part.strip()]


def closing_bracket(text):
    """Index of the bracket that closes the text's first one."""
    depth = 0
    for i, character in enumerate(text):
        depth += (character in "([{") - (character in ")]}")
        if depth == 0:
            return i
    return len(text)


class CTypes:
    """Parses clang's spelling of types, using the names declared in a file."""

    def __init__(self):
        self.typedefs = {}
        self.enums = {}
        self.structs = set()
        self.classes = set()

    def kind(self, text, parameters=()):
        """The kind of a type; `parameters` are the enclosing class's type parameters."""
        text = re.sub(r"\s+", " ", QUALIFIERS.sub(" ", text)).strip()
        called = re.match(r"(.*?)\(([\^*]) ?\) ?\((.*)\)$", text)
        if called:
            return self._called(called, parameters)
        if text.endswith("]"):
            return Kind("array", text[:text.rindex("[")].strip())
        if text.endswith("*"):
            return self._pointer(text[:-1].strip())
        bare, _, protocols = text.partition("<")
        bare = bare.strip()
        if bare in parameters or bare == "id":
            return Kind("id", protocols.rstrip("> "))
        if bare in BUILTINS:
            family, bits, signed = BUILTINS[bare]
            return Kind(family, bits=bits, signed=signed)
        if bare in self.enums:
            under = self.kind(self.enums[bare])
            return Kind("enum", bare, under.bits, under.signed)
        if bare in self.structs:
            return Kind("struct", bare)
        if bare in self.typedefs and QUALIFIERS.sub("", self.typedefs[bare]).strip() != bare:
            kind = self.kind(self.typedefs[bare], parameters)
            if kind == Kind("pointer", "void") and re.fullmatch(r"CF\w+Ref", bare):
                return Kind("pointer", "__" + bare.removesuffix("Ref"))
            return kind
        return Kind("unknown", text)

    def _called(self, match, parameters):
        result, mark, arguments = match.groups()
        kinds = tuple(self.kind(a, parameters) for a in split_outside_brackets(arguments, ",")
                      if a != "void")
        return Kind("block" if mark == "^" else "function",
                    arguments=kinds, result=self.kind(result, parameters))

    def _pointer(self, pointee):
        bare = pointee.split("<")[0].strip()
        if bare in self.classes:
            return Kind("object", bare)
        if pointee == "char":
            return Kind("text")
        return Kind("pointer", pointee)
