"""Reads clang's JSON AST dump (-Xclang -ast-dump=json) of a file that includes every header with
declarations, compiled with -DSDK_STRICT so that option sets are enums.

The dump names a file only if it differs from the previous one, so that the whole tree must be
traversed in order to locate the declarations.
"""
import os
from dataclasses import dataclass
from pathlib import Path

from .kinds import CTypes, Kind

# Declarations checked as parts of others.
PARTS = {"ParmVarDecl", "FieldDecl", "ObjCTypeParamDecl", "LinkageSpecDecl"}


@dataclass
class Declaration:
    """One declaration of ours.

    sort       class, forward class, category, protocol, method, property, enum, forward enum,
               enumerator, function, constant, struct, forward struct, typedef, operator; else
               clang's node kind
    name       name, or selector of a method
    place      file and line
    owner      class or protocol of a member, enum of an enumerator ("" without a name)
    kind       type of a property, constant, typedef; underlying type of an enum
    parts      kinds of arguments, or (name, kind) of fields
    result     of a method or function
    value      number of an enumerator or constant, if it has one
    is_class, readonly, getter   of methods and properties
    adopted    protocols of a class or protocol
    superclass of a class
    """
    sort: str
    name: str
    place: str
    owner: str = ""
    kind: "Kind | None" = None
    parts: tuple = ()
    result: "Kind | None" = None
    value: "int | None" = None
    is_class: bool = False
    readonly: bool = False
    getter: str = ""
    adopted: tuple = ()
    superclass: str = ""


class Locations:
    """Source locations of a dump's nodes: a file below a folder and a line."""

    def __init__(self, folder):
        self.folder = Path(os.path.realpath(folder))
        self._file = None
        self._line = 0
        self._relative = {}
        self._of = {}

    def read(self, node):
        """Traverses a tree in order."""
        for key, value in node.items():
            if key == "loc":
                self._location(value)
                self._of[id(node)] = (self._file, self._line)
            elif key == "range":
                self._location(value.get("begin", {}))
                self._location(value.get("end", {}))
            elif key == "inner":
                for child in value:
                    self.read(child)

    def of(self, node):
        """"file:line" of a node within the folder, else None."""
        file, line = self._of.get(id(node), (None, 0))
        relative = file and self._below(file)
        return f"{relative}:{line}" if relative else None

    def _location(self, location):
        for inner in ("spellingLoc", "expansionLoc"):
            if inner in location:
                self._location(location[inner])
        self._file = location.get("file", self._file)
        self._line = location.get("line", self._line)

    def _below(self, file):
        if file not in self._relative:
            path = Path(os.path.realpath(file))
            inside = path.is_relative_to(self.folder)
            self._relative[file] = str(path.relative_to(self.folder)) if inside else None
        return self._relative[file]


def count_declarations(node, locations):
    """Number of declarations that a tree has in the folder, of whatever kind."""
    count = 0
    for child in node.get("inner", ()):
        kind = child.get("kind", "")
        if kind.endswith("Stmt"):
            continue
        own = (kind.endswith("Decl") and kind not in PARTS and not child.get("isImplicit")
               and "loc" in child and locations.of(child) is not None)
        count += own + count_declarations(child, locations)
    return count


class Reader:
    """Converts a dump to declarations.

    declarations   the declarations in the folder, in order
    counted        number of declaration nodes in the folder
    """

    def __init__(self, root, folder):
        self.locations = Locations(folder)
        self.locations.read(root)
        self.counted = count_declarations(root, self.locations)
        self.declarations = []
        self.types = CTypes()
        self._names_by_typedef = {}
        self._note_names(root)
        self._read_all(root)

    def _note_names(self, node):
        """Records every named type, including the C library's, which ours refer to."""
        for child in node.get("inner", ()):
            kind, name = child.get("kind"), child.get("name")
            if kind == "LinkageSpecDecl":
                self._note_names(child)
            elif kind in ("TypedefDecl", "TypeAliasDecl"):
                self.types.typedefs.setdefault(name, child["type"]["qualType"])
                self._name_by_typedef(child)
            elif kind == "EnumDecl" and name:
                under = child.get("fixedUnderlyingType", {}).get("qualType", "unsigned int")
                self.types.enums[name] = under
            elif kind == "CXXRecordDecl" and name:
                self.types.structs.add(name)
            elif kind == "ObjCInterfaceDecl":
                self.types.classes.add(name)

    def _name_by_typedef(self, node):
        """An unnamed struct or enum gets the name of its typedef."""
        tag = next(iter(node.get("inner", ())), {}).get("ownedTagDecl", {})
        if tag and not tag.get("name"):
            self._names_by_typedef[tag["id"]] = node["name"]
            if tag["kind"] == "CXXRecordDecl":
                self.types.structs.add(node["name"])

    def _read_all(self, node):
        for child in node.get("inner", ()):
            if child.get("kind") == "LinkageSpecDecl":
                self._read_all(child)
            elif self._is_ours(child):
                self._read_one(child)

    def _is_ours(self, node):
        return (node.get("kind", "").endswith("Decl") and not node.get("isImplicit")
                and self.locations.of(node) is not None)

    def _read_one(self, node):
        readers = {
            "ObjCInterfaceDecl": self._class, "ObjCCategoryDecl": self._class,
            "ObjCProtocolDecl": self._class, "EnumDecl": self._enum,
            "FunctionDecl": self._function, "VarDecl": self._constant,
            "CXXRecordDecl": self._struct, "TypedefDecl": self._typedef,
            "TypeAliasDecl": self._typedef,
        }
        read = readers.get(node["kind"])
        if read:
            read(node)
        else:
            self._add(node, node["kind"])

    def _add(self, node, sort, **details):
        by_typedef = self._names_by_typedef.get(node.get("id"), "")
        details.setdefault("name", node.get("name", by_typedef))
        self.declarations.append(
            Declaration(sort=sort, place=self.locations.of(node), **details))

    def _class(self, node):
        name, inner = node.get("name", ""), node.get("inner", ())
        parent = node.get("super", {}).get("name", "")
        adopted = tuple(p["name"] for p in node.get("protocols", ()))
        members = [m for m in inner if m["kind"] in ("ObjCMethodDecl", "ObjCPropertyDecl")]
        if node["kind"] == "ObjCCategoryDecl":
            sort, owner = "category", node["interface"]["name"]
            self._add(node, sort, owner=owner, adopted=adopted)
        elif node["kind"] == "ObjCProtocolDecl":
            owner = name
            self._add(node, "protocol", adopted=adopted)
        else:
            owner = name
            forward = not parent and not any(m["kind"] == "ObjCRootClassAttr" for m in inner)
            sort = "forward class" if forward and not members else "class"
            self._add(node, sort, superclass=parent, adopted=adopted)
        parameters = {m["name"] for m in inner if m["kind"] == "ObjCTypeParamDecl"}
        if node["kind"] == "ObjCProtocolDecl":
            owner = "@" + owner
        for child in inner:
            if self._is_ours(child) and child["kind"] not in PARTS:
                self._member(child, owner, parameters)

    def _member(self, node, owner, parameters):
        if node["kind"] == "ObjCMethodDecl":
            self._add(node, "method", owner=owner, is_class=not node["instance"],
                      parts=self._arguments(node, parameters),
                      result=self._kind(node["returnType"], parameters))
        elif node["kind"] == "ObjCPropertyDecl":
            self._add(node, "property", owner=owner, is_class=bool(node.get("class")),
                      readonly=bool(node.get("readonly")),
                      getter=node.get("getter", {}).get("name", ""),
                      kind=self._kind(node["type"], parameters))
        else:
            self._add(node, node["kind"], owner=owner)

    def _kind(self, written, parameters=()):
        return self.types.kind(written["qualType"], parameters)

    def _arguments(self, node, parameters=()):
        return tuple(self._kind(part["type"], parameters) for part in node.get("inner", ())
                     if part["kind"] == "ParmVarDecl")

    def _enum(self, node):
        name, members = node.get("name", ""), node.get("inner", ())
        under = node.get("fixedUnderlyingType")
        constants = [m for m in members if m["kind"] == "EnumConstantDecl"]
        sort = "enum" if constants or not name else "forward enum"
        self._add(node, sort, kind=under and self._kind(under))
        following = 0
        for constant in constants:
            value = first_number(constant)
            value = following if value is None else value
            following = value + 1
            self._add(constant, "enumerator", owner=name, value=value)

    def _function(self, node):
        if node["name"].startswith("operator"):
            return self._add(node, "operator", parts=self._arguments(node))
        result = node["type"]["qualType"].split("(")[0].strip()
        self._add(node, "function", parts=self._arguments(node), result=self.types.kind(result))

    def _constant(self, node):
        self._add(node, "constant", kind=self._kind(node["type"]), value=first_number(node))

    def _struct(self, node):
        if not node.get("completeDefinition"):
            return self._add(node, "forward struct")
        fields = tuple((part.get("name", ""), self._kind(part["type"]))
                       for part in node.get("inner", ()) if part["kind"] == "FieldDecl")
        self._add(node, "struct", parts=fields)

    def _typedef(self, node):
        self._add(node, "typedef", kind=self._kind(node["type"]))


def first_number(node):
    """The value of the first constant expression below a node, or None."""
    for child in node.get("inner", ()):
        kind = child["kind"]
        if kind in ("ConstantExpr", "IntegerLiteral", "CharacterLiteral") and "value" in child:
            return int(child["value"])
        value = first_number(child)
        if value is not None:
            negative = kind == "UnaryOperator" and child.get("opcode") == "-"
            return -value if negative else value
    return None
