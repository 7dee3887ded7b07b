"""Compares our declarations with the two descriptions: A (TypeScript), B (Pascal).

Every declaration gets exactly one verdict: confirmed if it agrees with the descriptions; note if a part
of it is confirmed by only one description, or by none where that is harmless; error if a description
contradicts it or neither contains it.
"""
import re
from dataclasses import dataclass

from . import pascal, typescript

# Defined by the compiler and the language's runtime; in neither description.
LANGUAGE_TYPES = {"BOOL", "SEL", "IMP", "Class", "id", "instancetype"}


@dataclass
class Verdict:
    """Result for a declaration: "confirmed", "note" or "error", and the reason."""
    declaration: object
    outcome: str
    reason: str = ""

    def __str__(self):
        d = self.declaration
        return f"{self.outcome}: {d.place}: {title(d)}: {self.reason}"


def title(d):
    """Display name of a declaration."""
    if d.sort == "method":
        return f"{'+' if d.is_class else '-'}[{d.owner.lstrip('@')} {d.name}]"
    if d.sort == "property":
        return f"property {d.owner.lstrip('@')}.{d.name}"
    if d.sort == "enumerator":
        return d.name
    if d.sort == "category":
        return f"category {d.owner} ({d.name})"
    return f"{d.sort} {d.name}".strip()


class Wrong(Exception):
    """Raised for a declaration that a description contradicts or that neither contains."""


class Comparison:
    """Checks declarations against description A and description B."""

    def __init__(self, api, pascal_sources):
        self.api = api
        self.pascal = pascal_sources
        self._notes = []

    def check_all(self, declarations):
        """One verdict for each declaration, in order."""
        return [self.check(d) for d in declarations]

    def check(self, d):
        """The verdict on one declaration."""
        checks = {
            "class": self._class, "forward class": self._class, "protocol": self._protocol,
            "category": self._category, "method": self._method, "property": self._property,
            "enum": self._enum, "forward enum": self._enum, "enumerator": self._enumerator,
            "function": self._function, "constant": self._constant, "struct": self._struct,
            "forward struct": self._forward_struct, "typedef": self._typedef,
            "operator": self._operator,
        }
        self._notes = []
        try:
            if d.sort not in checks:
                raise Wrong("the check does not know this sort of declaration")
            self._refuse_unknown_types(d)
            checks[d.sort](d)
        except Wrong as wrong:
            return Verdict(d, "error", str(wrong))
        if self._notes:
            return Verdict(d, "note", "; ".join(self._notes))
        return Verdict(d, "confirmed")

    def _note(self, text):
        self._notes.append(text)

    @staticmethod
    def _refuse_unknown_types(d):
        parts = [p[1] if isinstance(p, tuple) else p for p in d.parts]
        for kind in [d.kind, d.result, *parts]:
            if kind is not None and kind.family == "unknown":
                raise Wrong(f"the check does not understand the type {kind.name}")

    # Classes and protocols

    def _class(self, d):
        found = self.api.classes.get(d.name)
        if not found or found.is_protocol or found.is_struct:
            raise Wrong("no such class")
        if d.superclass and d.superclass not in self.api.superclasses(d.name):
            raise Wrong(f"not derived from {d.superclass}, but from {found.superclass}")
        self._adopts(d, d.name)

    def _adopts(self, d, class_name):
        known = {c.name for c in self.api.chain(class_name) if c.is_protocol}
        for name in d.adopted:
            protocol = self.api.protocol(name)
            if not protocol:
                raise Wrong(f"no protocol {name}")
            if protocol.name not in known:
                raise Wrong(f"does not adopt {name}")

    def _protocol(self, d):
        found = self.api.protocol(d.name)
        if not found:
            raise Wrong("no such protocol")
        for name in d.adopted:
            parent = self.api.protocol(name)
            if not parent or parent.name not in {c.name for c in self.api.chain(found.name)}:
                raise Wrong(f"does not adopt {name}")

    def _category(self, d):
        if d.owner not in self.api.classes:
            raise Wrong(f"no class {d.owner}")
        self._adopts(d, d.owner)

    def _chain(self, owner):
        if owner.startswith("@"):
            protocol = self.api.protocol(owner[1:])
            return list(self.api.chain(protocol.name)) if protocol else []
        return list(self.api.chain(owner))

    # Methods

    def _method(self, d):
        owner = d.owner.lstrip("@")
        candidates = self._candidates(d)
        if not candidates:
            raise Wrong("no such method")
        fitting = [c for c in candidates if len(c[0]) == len(d.parts)]
        if not fitting:
            raise Wrong(f"{len(d.parts)} arguments, not {len(candidates[0][0])}")
        for i, kind in enumerate(d.parts):
            if not any(typescript.accepts(c[0][i], kind, owner) for c in fitting):
                raise Wrong(f"argument {i + 1} is {kind}, not {fitting[0][0][i]}")
        if not any(typescript.accepts(c[1], d.result, owner) for c in fitting):
            raise Wrong(f"returns {d.result}, not {fitting[0][1]}")
        self._method_by_b(d, owner)

    def _candidates(self, d):
        """(argument types, result type) of the selector's methods in description A."""
        word, colons = typescript.in_one_word(d.name), d.name.count(":")
        found = []
        for owner in self._chain(d.owner):
            found += [(m.arguments, m.result) for m in owner.methods
                      if m.name == word and m.is_class == d.is_class]
            for p in owner.properties:
                if p.is_class != d.is_class:
                    continue
                if p.name == word and not colons:
                    found.append(([], p.type))
                setter = "set" + p.name[0].upper() + p.name[1:]
                if word == setter and colons == 1 and not p.readonly:
                    found.append(([p.type], "void"))
        return found

    def _method_by_b(self, d, owner):
        names = [c.name for c in self._chain(d.owner)]
        methods = self.pascal.methods(names, d.is_class, d.name)
        if methods:
            self._signature_by_b(d, methods, owner)
        elif d.name in self.pascal.selectors:
            self._note("description B has the selector in other classes only")
        elif ":" in d.name:
            self._note("newer than description B: colons by their number only, widths of integers"
                       " and the system's version not confirmed")
        else:
            self._note("newer than description B: rests on description A alone")

    def _signature_by_b(self, d, methods, owner):
        """Description B may have several overloads; one must agree completely."""
        def disagreement(method):
            if len(method.arguments) != len(d.parts):
                return f"{len(d.parts)} arguments, description B has {len(method.arguments)}"
            ours, theirs = [*d.parts, d.result], [*method.arguments, method.result]
            for i, (mine, other) in enumerate(zip(ours, theirs)):
                if pascal.agrees(mine, other, owner) is False:
                    place = f"argument {i + 1}" if i < len(d.parts) else "result"
                    return f"{place} is {mine}, description B has {other}"
            return None
        wrong = [disagreement(m) for m in methods]
        if all(wrong):
            raise Wrong(wrong[0])

    # Properties

    def _property(self, d):
        found = [p for c in self._chain(d.owner) for p in c.properties
                 if p.name == d.name and p.is_class == d.is_class]
        if not found:
            found = [typescript.Property(m.is_class, m.name, m.result, True)
                     for c in self._chain(d.owner) for m in c.methods
                     if m.name == d.name and m.is_class == d.is_class and not m.arguments]
        if not found:
            raise Wrong("no such property")
        owner = d.owner.lstrip("@")
        if not any(typescript.accepts(p.type, d.kind, owner) for p in found):
            raise Wrong(f"is {d.kind}, not {found[0].type}")
        if not d.readonly and all(p.readonly for p in found):
            raise Wrong("can only be read")
        self._property_by_b(d, owner)

    def _property_by_b(self, d, owner):
        names = [c.name for c in self._chain(d.owner)]
        getter = d.getter or d.name
        methods = self.pascal.methods(names, d.is_class, getter)
        usual = "is" + d.name[0].upper() + d.name[1:]
        if not methods:
            if self.pascal.methods(names, d.is_class, usual):
                raise Wrong(f"description B reads it with {usual}, not {getter}")
            if d.getter and d.getter != d.name:
                raise Wrong(f"no description has its getter {getter}")
            self._note("newer than description B: rests on description A alone")
            return
        if all(pascal.agrees(d.kind, m.result, owner) is False for m in methods):
            raise Wrong(f"is {d.kind}, description B has {methods[0].result}")
        setter = f"set{d.name[0].upper()}{d.name[1:]}:"
        if not d.readonly and not self.pascal.methods(names, d.is_class, setter):
            self._note("description B has no setter: could not be written in older systems")

    # Enums and constants

    def _enum(self, d):
        if not d.name:
            return  # its members are checked by name
        if d.name not in self.api.enums:
            raise Wrong("no such enum")
        theirs = self.pascal.kind(d.name)
        if d.kind is None:
            raise Wrong("has no fixed underlying type")
        if theirs.family != "integer":
            if d.sort == "enum":
                self._note("width of the underlying integer in no description")
        elif not pascal.agrees(d.kind, theirs):
            raise Wrong(f"made of {d.kind}, description B has {theirs}")

    def _enumerator(self, d):
        theirs = self.pascal.value(d.name)
        if theirs is not None and theirs & 0xffffffff != d.value & 0xffffffff:
            raise Wrong(f"is {d.value}, description B has {theirs}")
        if d.owner:
            self._member(d, theirs)
        elif d.name not in self.api.constants:
            raise Wrong("no such constant")
        elif self.api.constants[d.name] != "number":
            raise Wrong(f"is a number, not {self.api.constants[d.name]}")
        elif theirs is None:
            raise Wrong("its value is in no description")

    def _member(self, d, theirs):
        """A member of a named enum; description A has dropped the prefix of its name."""
        members = self.api.enums.get(d.owner, {})
        prefixes = {name: d.name.removesuffix(name) for name in members if d.name.endswith(name)}
        known = {n: p for n, p in prefixes.items() if prefix_of_enum(p, d.owner)}
        if theirs is not None:
            # Some names contain the member's name in the middle: kCGHIDEventTap.
            known = prefixes or {name: "" for name in members
                                 if name in d.name and members[name] == d.value}
        if not known:
            raise Wrong(f"{d.owner} has no such member")
        name = max(known, key=len)
        if members[name] != d.value:
            raise Wrong(f"is {d.value}, not {members[name]}")
        if theirs is not None:
            return
        others = [p + name for p in word_prefixes(d.owner) if p + name != d.name
                  and self.pascal.value(p + name) == d.value]
        if others:
            self._note(f"description B, which is older, has {others[0]} with this value")
        elif not is_whole_prefix(known[name], d.owner):
            self._note("where its prefix ends is in no description")

    def _constant(self, d):
        written = self.api.constants.get(d.name)
        if written is None:
            raise Wrong("no such constant")
        if not typescript.accepts(written, d.kind):
            raise Wrong(f"is {d.kind}, not {written}")
        if d.value is not None:
            theirs = self.pascal.value(d.name)
            if theirs is None:
                raise Wrong("its value is in no description")
            if theirs != d.value:
                raise Wrong(f"is {d.value}, description B has {theirs}")
            return
        type_name = self.pascal.variables.get(d.name)
        if not type_name:
            self._note("newer than description B: rests on description A alone")
        elif pascal.agrees(d.kind, self.pascal.kind(type_name)) is False:
            raise Wrong(f"is {d.kind}, description B has {type_name}")

    # C functions, structs and typedefs

    def _function(self, d):
        theirs = self.pascal.function(d.name)
        if d.name in self.api.functions:
            self._function_by_a(d)
        elif theirs:
            self._note("description A, which leaves out inline functions, does not have it")
        else:
            raise Wrong("no such function")
        if theirs:
            self._signature_by_b(d, [theirs], "")
        else:
            self._note("newer than description B: widths of integers and the system's version"
                       " not confirmed")

    def _function_by_a(self, d):
        arguments, result = self.api.functions[d.name]
        if len(arguments) != len(d.parts):
            raise Wrong(f"{len(d.parts)} arguments, not {len(arguments)}")
        for i, (kind, written) in enumerate(zip(d.parts, arguments)):
            if not typescript.accepts(written, kind):
                raise Wrong(f"argument {i + 1} is {kind}, not {written}")
        if not typescript.accepts(result, d.result):
            raise Wrong(f"returns {d.result}, not {result}")

    def _struct(self, d):
        found = self.api.classes.get(d.name) or self.api.classes.get("_" + d.name)
        if not found or not found.is_struct:
            raise Wrong("no such struct")
        ours = [name for name, _ in d.parts]
        fields = [p.name for p in found.properties]
        if ours != fields:
            raise Wrong(f"has the fields {', '.join(fields)}, not {', '.join(ours)}")
        for (name, kind), p in zip(d.parts, found.properties):
            if not typescript.accepts(p.type, kind):
                raise Wrong(f"{name} is {kind}, not {p.type}")
        self._struct_by_b(d)

    def _struct_by_b(self, d):
        theirs = self.pascal.fields(d.name)
        if not theirs:
            self._note("widths of its fields not confirmed: description B does not have it")
            return
        if len(theirs) != len(d.parts):
            raise Wrong(f"{len(d.parts)} fields, description B has {len(theirs)}")
        for (name, mine), (_, other) in zip(d.parts, theirs):
            if pascal.agrees(mine, other) is False:
                raise Wrong(f"{name} is {mine}, description B has {other}")

    @staticmethod
    def _forward_struct(d):
        """Used through pointers only; the name does not matter to callers."""

    def _typedef(self, d):
        if d.name in LANGUAGE_TYPES or d.kind.name == d.name:
            return
        theirs = self.pascal.kind(d.name)
        if theirs.family == "unknown":
            self._note("the name is in no description; what it stands for is checked where used")
        elif pascal.agrees(d.kind, theirs) is False:
            raise Wrong(f"is {d.kind}, description B has {theirs}")

    @staticmethod
    def _operator(d):
        """Operators of the strict mode that combine members of one option set."""
        kinds = set(d.parts)
        if len(kinds) != 1 or next(iter(kinds)).family != "enum":
            raise Wrong("only members of one option set are combined")


def word_prefixes(name):
    """Prefixes by whole words: NSEventMask, NSEvent, NS; for a plural also without its s."""
    cuts = [m.start() for m in re.finditer(r"(?<=[a-z0-9])(?=[A-Z])|(?<=^NS)(?=[A-Z])", name)]
    found = [name[:cut] for cut in cuts] + [name]
    if name.endswith("s"):
        found.append(name[:-1])
    return found[::-1]


def prefix_of_enum(prefix, enum):
    """Whether a prefix consists of whole words of the enum's name, optionally after a k."""
    return prefix in word_prefixes(enum) or prefix[:1] == "k" and prefix[1:] in word_prefixes(enum)


def is_whole_prefix(prefix, enum):
    """Whether a prefix is the enum's full name, in the singular or plural."""
    return prefix in (enum, enum.removesuffix("s"))
