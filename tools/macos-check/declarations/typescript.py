"""Reads description A: the npm package @nativescript/macos-node-api (MIT), generated from the
system's own headers. Its types/*.d.ts hold one TypeScript declaration file per framework.

Format of the source, one item per line:
    declare class NSMenu extends NSObject implements NSCopying {      a class
      static separatorItem(): NSMenuItem;                             a method of the class
      addItemWithTitleActionKeyEquivalent(string: string, ...): NSMenuItem;
      readonly title: string;                                         a property
    declare interface NSMenuDelegate extends NSObjectProtocol {       a protocol
    declare class CGPoint {  constructor(init?: CGPoint);  x: number; a struct
    declare const NSEventMask: {  LeftMouseDown: 2,                   an enum, its prefix dropped
    declare const noErr: number;                                      a constant, without its value
    declare function CGWindowLevelForKey(key: ...): number;           a function
Selectors are single words without colons; integers have no width.
"""
import re
from dataclasses import dataclass, field

from .kinds import closing_bracket, split_outside_brackets

# Frameworks re-exported by others.
ALWAYS_READ = ("Runtime", "CoreFoundation", "CoreServices")

HEAD = re.compile(
    r"declare (?:abstract )?(class|interface) (\w+)(?:<.*?>)?(?: extends (\w+)(?:<.*?>)?)?"
    r"(?: implements ([^{]+))?")
PROPERTY = re.compile(r"  (static )?(readonly )?(\w+)\??: (.*);$")
METHOD = re.compile(r"  (static )?(\w+)\??(?:<.*?>)?\((.*)\): (.*);$")
ENUM_MEMBER = re.compile(r'  "?(\w+)"?: (-?\d+)n?,')
ENUM = re.compile(r"declare const (\w+): \{$")
CONSTANT = re.compile(r"declare const (\w+): (.*);$")
FUNCTION = re.compile(r"declare function (\w+)(?:<.*?>)?\((.*)\): (.*);$")


@dataclass
class Property:
    """A property: of the class or of its instances, its type as written."""
    is_class: bool
    name: str
    type: str
    readonly: bool


@dataclass
class Method:
    """A method: its name as a single word, its types as written."""
    is_class: bool
    name: str
    arguments: list
    result: str


@dataclass
class Class:
    """A class, a protocol, or a struct (its properties are the fields, in order)."""
    name: str
    framework: str
    superclass: str = ""
    protocols: list = field(default_factory=list)
    properties: list = field(default_factory=list)
    methods: list = field(default_factory=list)
    is_protocol: bool = False
    is_struct: bool = False


class TypeScript:
    """The contents of description A for a set of frameworks.

    classes    name: Class
    enums      name: {member without its prefix: value}
    constants  name: type
    functions  name: ([argument types], result type)
    home       name of any of these: framework
    """

    def __init__(self):
        self.classes = {}
        self.enums = {}
        self.constants = {}
        self.functions = {}
        self.home = {}

    def read_folder(self, folder, frameworks):
        """Reads the files of these frameworks, all of which must exist."""
        for framework in sorted({*frameworks, *ALWAYS_READ}):
            text = (folder / f"{framework}.d.ts").read_text(encoding="utf8")
            self.read(framework, text)

    def read(self, framework, text):
        """Reads one file's text."""
        members = None
        for line in text.splitlines():
            if line in ("}", "};"):
                members = None
            elif line.startswith("declare "):
                members = self._declaration(framework, line)
            elif isinstance(members, Class):
                self._class_member(members, line)
            elif members is not None and (match := ENUM_MEMBER.match(line)):
                members[match[1]] = int(match[2])

    def chain(self, name):
        """The class, its superclasses and every protocol they adopt."""
        seen, waiting = set(), [name]
        while waiting:
            name = waiting.pop(0)
            if name in self.classes and name not in seen:
                seen.add(name)
                found = self.classes[name]
                yield found
                waiting += [n for n in (found.superclass, *found.protocols) if n]

    def superclasses(self, name):
        """Names of the superclasses, nearest first."""
        names = []
        while name in self.classes and self.classes[name].superclass:
            name = self.classes[name].superclass
            if name in names:
                break
            names.append(name)
        return names

    def protocol(self, name):
        """The protocol of this name; one that shares a class's name has a suffix here."""
        for spelled in (name + "Protocol", name):
            found = self.classes.get(spelled)
            if found and found.is_protocol:
                return found
        return None

    def _declaration(self, framework, line):
        """Records a declaration; returns the owner of the lines that follow."""
        if match := ENUM.match(line):
            self.home.setdefault(match[1], framework)
            return self.enums.setdefault(match[1], {})
        if match := CONSTANT.match(line):
            self.home.setdefault(match[1], framework)
            self.constants[match[1]] = match[2]
        elif match := FUNCTION.match(line):
            self.home.setdefault(match[1], framework)
            self.functions[match[1]] = (argument_types(match[2]), match[3])
        elif match := HEAD.match(line):
            return self._class(framework, match)
        return None

    def _class(self, framework, match):
        keyword, name, parent, adopted = match.groups()
        found = self.classes.setdefault(name, Class(name, framework))
        self.home.setdefault(name, framework)
        if keyword == "interface":
            found.is_protocol = True
            found.protocols += [parent] if parent else []
        elif parent not in (None, name, "NativeObject"):
            found.superclass = parent
        found.protocols += [re.sub(r"<.*", "", p) for p in
                            split_outside_brackets(adopted or "", ",") if p != name]
        return found

    @staticmethod
    def _class_member(owner, line):
        if line.startswith("  constructor(init"):
            owner.is_struct = True
        elif match := METHOD.match(line):
            owner.methods.append(
                Method(bool(match[1]), match[2], argument_types(match[3]), match[4]))
        elif match := PROPERTY.match(line):
            owner.properties.append(
                Property(bool(match[1]), match[3], match[4], bool(match[2])))


def argument_types(text):
    """The types of a parameter list, without the receiver's."""
    return [part.split(":", 1)[1].strip() for part in split_outside_brackets(text, ",")
            if not part.startswith("this:")]


def in_one_word(selector):
    """A selector as spelled in this description."""
    first, *rest = selector.split(":")
    return first + "".join(part[:1].upper() + part[1:] for part in rest)


def accepts(written, kind, owner=""):
    """Whether a type as written here matches a declaration's `kind`.

    `owner` is the enclosing class, which methods may name instead of `this`.
    """
    alternatives = split_outside_brackets(written, " | ")
    return any(_accepts_one(a, kind, owner) for a in alternatives if a != "null")


def _accepts_one(written, kind, owner):
    name = re.sub(r"<.*", "", written)
    if "=>" in written:
        return _accepts_called(written, kind)
    if kind.family == "object":
        return name == ("string" if kind.name == "NSString" else kind.name) or (
            kind.name == owner and (written == "this" or name == "InstanceType"))
    if kind.family == "enum":
        return written == f"interop.Enum<typeof {kind.name}>"
    if kind.family == "struct":
        return written in (kind.name, "_" + kind.name)
    if kind.family == "array":
        return written.startswith("unknown /* const array")
    if kind.family == "pointer" and kind.name.startswith(("__CF", "__CG")):
        return name in ("interop.Object", "interop.Pointer", "string")
    if kind.family == "id" and kind.name:
        return name in (kind.name, kind.name + "Protocol", "interop.Object")
    if kind.family == "id" and re.fullmatch(r"\w+Type", name):
        return True  # a type parameter of a collection
    return name in {
        "void": ("void",),
        "bool": ("boolean",),
        "integer": ("number", "bigint"),
        "real": ("number",),
        "selector": ("string",),
        "text": ("string", "interop.Pointer", "interop.PointerConvertible"),
        "pointer": ("interop.Pointer", "interop.PointerConvertible"),
        "id": ("interop.Object", "any"),
        "class": ("interop.Object", "interop.Class"),
        "self": ("this", "InstanceType", owner, "interop.Object"),
    }.get(kind.family, ())


def _accepts_called(written, kind):
    """Blocks and functions match if all arguments and the result do."""
    if kind.family not in ("block", "function") or not written.startswith("("):
        return False
    end = closing_bracket(written)
    arguments, result = argument_types(written[1:end]), written[end + 1:].removeprefix(" => ")
    return (len(arguments) == len(kind.arguments)
            and all(accepts(a, k) for a, k in zip(arguments, kind.arguments))
            and accepts(result, kind.result))
