"""Reads description B: the interfaces of the system's API in Free Pascal's sources (Debian package
fpc-source), partly handwritten, partly generated, from older headers than description A.

packages/cocoaint/src/*/*.inc contains Objective-C, packages/univint/src/*.pas contains C, and
rtl/inc/objcbase.pp the root class. Format of the source:
    NSMenu = objcclass external (NSObject, NSCopyingProtocol)
      class function separatorItem: NSMenuItem; message 'separatorItem';
      procedure addItem (newItem: NSMenuItem); message 'addItem:';
    end;
    NSEventMask = culonglong;
    NSAlphaShiftKeyMask = 1 shl 16;
    NSAppearanceNameAqua: NSString; cvar; external;
    EventHotKeyID = record signature: OSType; id: UInt32; end;
    function AXIsProcessTrusted: Boolean; external name '_AXIsProcessTrusted';
Unlike description A it has the colons of selectors, widths of integers and values of constants.
"""
import re
from dataclasses import dataclass

from .kinds import Kind

# The Objective-C units to read; all C units are read.
COCOA_UNITS = ("foundation", "appkit", "quartzcore", "coredata")

# Types whose definitions are platform-dependent or built into the compiler.
BASE_TYPES = {
    "NSInteger": Kind("integer", bits=64, signed=True),
    "NSUInteger": Kind("integer", bits=64),
    "CFIndex": Kind("integer", bits=64, signed=True),
    "UNSIGNEDLONG": Kind("integer", bits=64),
    "clong": Kind("integer", bits=64, signed=True),
    "culong": Kind("integer", bits=64),
    "clonglong": Kind("integer", bits=64, signed=True),
    "culonglong": Kind("integer", bits=64),
    "Int64": Kind("integer", bits=64, signed=True),
    "UInt64": Kind("integer", bits=64),
    "cint": Kind("integer", bits=32, signed=True),
    "cuint": Kind("integer", bits=32),
    "SInt32": Kind("integer", bits=32, signed=True),
    "UInt32": Kind("integer", bits=32),
    "cshort": Kind("integer", bits=16, signed=True),
    "cushort": Kind("integer", bits=16),
    "SInt16": Kind("integer", bits=16, signed=True),
    "UInt16": Kind("integer", bits=16),
    "cuchar": Kind("integer", bits=8),
    "Byte": Kind("integer", bits=8),
    "FourCharCode": Kind("integer", bits=32),
    "single": Kind("real", bits=32, signed=True),
    "cfloat": Kind("real", bits=32, signed=True),
    "double": Kind("real", bits=64, signed=True),
    "cdouble": Kind("real", bits=64, signed=True),
    "CGFloat": Kind("real", bits=64, signed=True),
    "NSTimeInterval": Kind("real", bits=64, signed=True),
    "ObjCBOOL": Kind("bool", bits=8),
    "cbool": Kind("bool", bits=8),
    "CBool": Kind("bool", bits=8),
    "Boolean": Kind("integer", bits=8),
    "id": Kind("id"),
    "instancetype": Kind("self"),
    "SEL": Kind("selector"),
    "pobjc_class": Kind("class"),
    "OpaqueCBlock": Kind("block"),
    "pointer": Kind("pointer"),
    "UnivPtr": Kind("pointer"),
    "PChar": Kind("text"),
    "pcchar": Kind("text"),
    "NSPoint": Kind("struct", "CGPoint"),
    "NSSize": Kind("struct", "CGSize"),
    "NSRect": Kind("struct", "CGRect"),
}

CLASS = re.compile(
    r"  (\w+) = (?:public )?objc(class|category|protocol) ?(?:external)?(?: name '(\w+)')?"
    r"(?: ?\((.*?)\))?")
METHOD = re.compile(
    r"\s*(class )?(?:function|procedure) \w+\s*(?:\((.*)\))?\s*(?::\s*(\w+))?\s*;.*?"
    r"message\s*'([^']+)'")
CONSTANT = re.compile(r"^[ \t]*(\w+)[ \t]*=[ \t]*([^;=\n]+)[;\n]", re.MULTILINE)
NAMED_LEVEL = re.compile(r"#define (kCG\w+Level)\s+.*\{ (-?\d+) \}")
VARIABLE = re.compile(r"^\s*(?:var )?(\w+)\s*:\s*(\w+)[^;\n]*;[^\n]*external", re.MULTILINE)
RECORD = re.compile(r"^\s*(\w+)\s*=\s*(?:packed )?record\b(.*?)\bend;", re.MULTILINE | re.DOTALL)
FUNCTION = re.compile(
    r"^(?:function|procedure)\s+(\w+)\s*(?:\(([^)]*)\))?\s*(?::\s*(\w+))?\s*;([^\n]*)",
    re.MULTILINE)


@dataclass
class Method:
    """A method or function: the kinds of its parameters and of its result."""
    arguments: list
    result: Kind


class Pascal:
    """The contents of description B.

    classes    names of classes
    written    (class or protocol, is_class, selector): (parameters, result) as written
    selectors  the selectors of all classes
    variables  name: type of each exported variable
    """

    def __init__(self):
        self.classes = set()
        self.written = {}
        self.selectors = set()
        self.variables = {}
        self._protocols = set()
        self._functions = {}
        self._records = {}
        self._expressions = {}

    def read_folder(self, packages):
        """Reads the sources below Free Pascal's folder of packages."""
        files = [packages.parent / "rtl/inc/objcbase.pp"]
        for unit in COCOA_UNITS:
            files += (packages / "cocoaint/src" / unit).glob("*.inc")
        files += (packages / "univint/src").glob("*.pas")
        for file in sorted(files):
            # Placeholders, not definitions.
            if file.name != "UndefinedTypes.inc":
                self.read(file.read_text(encoding="latin-1"))

    def read(self, text):
        """Reads one file's text."""
        for match in NAMED_LEVEL.finditer(text):
            self._expressions[match[1]] = match[2]
        text = without_comments(text)
        if " objc" in text:
            self._read_classes(text)
        for match in CONSTANT.finditer(text):
            self._expressions.setdefault(match[1], match[2])
        for match in FUNCTION.finditer(text):
            # Functions without "external" are inline functions implemented elsewhere.
            exported = re.search(r"external name '_(\w+)'", match[4])
            name = exported[1] if exported else match[1]
            self._functions.setdefault(name, (match[2], match[3]))
        for match in VARIABLE.finditer(text):
            self.variables.setdefault(match[1], match[2])
        for match in RECORD.finditer(text):
            if "case" not in match[2].split():
                self._records.setdefault(match[1], match[2])

    def _read_classes(self, text):
        owner = None
        for line in text.splitlines():
            if "message" in line and owner:
                if match := METHOD.match(line):
                    is_class, parameters, result, selector = match.groups()
                    self.written.setdefault(
                        (owner, bool(is_class), selector), (parameters, result))
                    self.selectors.add(selector)
            elif "objc" in line and (match := CLASS.match(line)):
                owner = self._owner(match)
            elif line.startswith("  end;"):
                owner = None

    def _owner(self, match):
        """Records a class; returns the owner of the methods that follow."""
        name, sort, external, parents = match.groups()
        if sort == "category" and parents:
            return parents.split(",")[0].strip()
        if sort == "protocol":
            self._protocols.add(name)
            return (external or name.removesuffix("Protocol")) + "Protocol"
        self.classes.add(name)
        return name

    def function(self, name):
        """The function of this name, or None."""
        written = self._functions.get(name)
        return written and self._method(written)

    def fields(self, record):
        """[(name, kind)] of a struct, or None."""
        text = self._records.get(record)
        return text and self.parameters(text)

    def methods(self, names, is_class, selector):
        """The methods of this selector in any of the classes and protocols."""
        keys = [(spelled, is_class, selector) for name in names
                for spelled in (name, name + "Protocol")]
        return [self._method(self.written[key]) for key in keys if key in self.written]

    def value(self, name, depth=0):
        """The value of a constant's expression, or None."""
        if name not in self._expressions or depth > 5:
            return None
        text = self._expressions[name].strip()
        if match := re.fullmatch(r"FourCharCode\('(.{4})'\)", text):
            return int.from_bytes(match[1].encode("latin-1"), "big")
        text = re.sub(r"\$([0-9a-fA-F]+)", r"0x\1", text)
        text = text.replace(" shl ", " << ").replace(" or ", " | ")
        text = re.sub(r"\b[A-Za-z_]\w*\b", lambda m: str(self.value(m[0], depth + 1)), text)
        # Only numbers and these operators are evaluated.
        if not re.fullmatch(r"[0-9a-fA-Fx\s<|()+*-]+", text):
            return None
        try:
            return int(eval(text, {"__builtins__": {}}))  # only digits and operators
        except (SyntaxError, TypeError, ValueError):
            return None

    def kind(self, name, depth=0):
        """The kind of a type name."""
        if name in BASE_TYPES:
            return BASE_TYPES[name]
        if name in self.classes:
            return Kind("object", name)
        if name in self._protocols:
            return Kind("id", name.removesuffix("Protocol"))
        if name in self._records:
            return Kind("struct", name)
        meaning = self._expressions.get(name, "").strip()
        if meaning.startswith("function"):
            return Kind("function")
        if meaning.startswith("^") or name.endswith(("Ptr", "Ref")):
            return Kind("pointer", meaning[1:])
        if re.fullmatch(r"[A-Za-z_]\w*", meaning) and depth < 8:
            return self.kind(meaning, depth + 1)
        return Kind("unknown", name)

    def parameters(self, text):
        """[(name, kind)] of a parameter list or of fields; parameters by reference are pointers."""
        found = []
        for part in without_comments(text or "").split(";"):
            names, colon, type_name = part.partition(":")
            if not colon:
                continue
            way, *rest = names.split(None, 1)
            has_way = way in ("var", "out", "const", "constref") and rest
            word = re.match(r"\s*(\w*)", type_name)[1]
            by_reference = has_way and way != "const"
            kind = Kind("pointer", word) if by_reference else self.kind(word)
            found += [(n.strip(), kind) for n in (rest[0] if has_way else names).split(",")]
        return found

    def _method(self, written):
        parameters, result = written
        return Method([kind for _, kind in self.parameters(parameters)],
                      self.kind(result) if result else Kind("void"))


def without_comments(text):
    """A text without Pascal's comments."""
    return re.sub(r"\{.*?\}|\(\*.*?\*\)|//[^\n]*", "", text, flags=re.DOTALL).strip()


def agrees(ours, theirs, owner=""):
    """Whether two kinds may be the same type; None if the description does not tell.

    The description has fewer enums, id instead of `instancetype`, and no types of blocks.
    """
    if theirs.family == "unknown":
        return None
    if ours.family in ("integer", "enum") and theirs.family in ("integer", "enum"):
        return (ours.bits, ours.signed) == (theirs.bits, theirs.signed)
    if ours.family == "real" and theirs.family == "real":
        return ours.bits == theirs.bits
    if ours.family in ("self", "object") and theirs.family in ("id", "self"):
        return True
    if ours.family == "self":
        return theirs == Kind("object", owner)
    if ours.family == "object":
        return theirs.family == "object" and theirs.name == ours.name
    if ours.family == "struct" and theirs.family == "struct":
        return theirs.name in (ours.name, ours.name.removeprefix("_"))
    if ours.family in ("text", "function", "pointer"):
        return theirs.family in ("text", "pointer", "function")
    return ours.family == theirs.family
