"""Parsers of the two descriptions, clang dumps and header texts."""

import tempfile
import unittest
from pathlib import Path

from snippets import descriptions, kind

from declarations import headers, stub_files
from declarations.clang_ast import Reader
from declarations.kinds import Kind, split_outside_brackets
from declarations.pascal import agrees
from declarations.typescript import accepts, in_one_word
from verify_declarations import verify


class KindTest(unittest.TestCase):
    def test_numbers(self):
        self.assertEqual(kind("NSUInteger"), Kind("integer", bits=64))
        self.assertEqual(kind("const unsigned short"), Kind("integer", bits=16))
        self.assertEqual(kind("float"), Kind("real", bits=32, signed=True))

    def test_objects(self):
        self.assertEqual(kind("__kindof NSBox * _Nullable __strong"), Kind("object", "NSBox"))
        self.assertEqual(kind("NSArray<NSBox *> * _Nonnull"), Kind("object", "NSArray"))
        self.assertEqual(kind("id<NSFolding> _Nonnull"), Kind("id", "NSFolding"))
        self.assertEqual(kind("ObjectType", {"ObjectType"}), Kind("id"))

    def test_pointers(self):
        self.assertEqual(kind("const char *"), Kind("text"))
        self.assertEqual(kind("struct Corner *"), Kind("pointer", "Corner"))
        self.assertEqual(kind("CFBoxRef"), Kind("pointer", "__CFBox"))
        self.assertEqual(kind("CFTypeRef"), Kind("pointer", "__CFType"))
        self.assertEqual(kind("unsigned long[5]").family, "array")

    def test_blocks_and_functions(self):
        block = kind("NSLid * _Nullable (^ _Nonnull)(NSBox * _Nonnull __strong, int)")
        self.assertEqual(block.family, "block")
        self.assertEqual(block.arguments, (kind("NSBox *"), kind("int")))
        self.assertEqual(block.result, kind("NSLid *"))
        self.assertEqual(kind("int (*)(void)"), Kind("function", result=kind("int")))

    def test_unknown_types(self):
        self.assertEqual(kind("Mystery"), Kind("unknown", "Mystery"))


class TypeScriptTest(unittest.TestCase):
    def test_classes(self):
        api, _ = descriptions()
        self.assertEqual([c.name for c in api.chain("NSLid")],
                         ["NSLid", "NSBox", "NSObject", "NSFolding", "NSObjectProtocol"])
        self.assertEqual(api.superclasses("NSLid"), ["NSBox", "NSObject"])
        self.assertTrue(api.classes["NSFolding"].is_protocol)
        self.assertTrue(api.classes["Corner"].is_struct)
        self.assertFalse(api.classes["NSBox"].is_struct)

    def test_members(self):
        box = descriptions()[0].classes["NSBox"]
        by_name = {m.name: m for m in (*box.methods, *box.properties)}
        self.assertTrue(by_name["emptyBox"].is_class)
        self.assertEqual(by_name["addItemAtRow"].arguments, ["NSLid", "number"])
        self.assertTrue(by_name["lid"].readonly)
        self.assertFalse(by_name["title"].readonly)

    def test_receiver_is_not_an_argument(self):
        root = descriptions()[0].classes["NSObject"]
        self.assertEqual(root.methods[0].arguments, [])

    def test_enums_constants_and_functions(self):
        api, _ = descriptions()
        self.assertEqual(api.enums["NSBoxShape"], {"Round": 0, "Flat": 8})
        self.assertEqual(api.constants["kBoxLimit"], "number")
        self.assertEqual(api.functions["BoxOpen"][0],
                         ["interop.PointerConvertible", "Corner", "number"])

    def test_selector_names_and_splitting(self):
        self.assertEqual(in_one_word("addItem:atRow:"), "addItemAtRow")
        self.assertEqual(split_outside_brackets("a: X<b, c>, d: (e, f) => void", ","),
                         ["a: X<b, c>", "d: (e, f) => void"])

    def test_unions(self):
        written = "NSArray<interop.Object> | Array<interop.Object> | null"
        self.assertTrue(accepts(written, kind("NSArray *")))
        self.assertFalse(accepts(written, kind("NSBox *")))

    def test_other_kinds(self):
        self.assertTrue(accepts("ObjectType", kind("id")))
        self.assertFalse(accepts("ObjectType", kind("int")))
        self.assertTrue(accepts("interop.Object", kind("CFBoxRef")))
        self.assertFalse(accepts("interop.Object", kind("Corner *")))
        self.assertTrue(accepts("unknown /* const array */", kind("int[3]")))

    def test_protocol_of_an_id(self):
        self.assertTrue(accepts("NSFolding", kind("id<NSFolding>")))
        self.assertFalse(accepts("NSFolding", kind("id")))
        self.assertFalse(accepts("NSBox", kind("id<NSFolding>")))


class PascalTest(unittest.TestCase):
    def setUp(self):
        self.pascal = descriptions()[1]

    def test_values(self):
        values = {name: self.pascal.value(name) for name in
                  ("NSBoxShapeFlat", "kBoxLimit", "kBoxNegative", "kBoxHex", "kBoxMissing")}
        self.assertEqual(values, {"NSBoxShapeFlat": 8, "kBoxLimit": 0x61626364,
                                  "kBoxNegative": -3, "kBoxHex": 0x1f, "kBoxMissing": None})

    def test_type_aliases(self):
        self.assertEqual(self.pascal.kind("BoxFlags"), Kind("integer", bits=32))
        self.assertEqual(self.pascal.kind("Nowhere").family, "unknown")

    def test_methods_of_categories_and_protocols(self):
        self.assertTrue(self.pascal.methods(["NSBox"], False, "whenOpened:"))
        self.assertTrue(self.pascal.methods(["NSFolding"], False, "foldAt:"))
        self.assertFalse(self.pascal.methods(["NSBox"], True, "whenOpened:"))
        self.assertFalse(self.pascal.methods(["NSLid"], False, "whenOpened:"))

    def test_parameters(self):
        close = self.pascal.function("BoxClose")
        self.assertEqual([k.family for k in close.arguments], ["pointer", "real", "real"])
        self.assertEqual([k.family for k in self.pascal.function("BoxOpen").arguments],
                         ["pointer", "struct", "integer"])

    def test_kinds(self):
        kinds = {n: self.pascal.kind(n).family for n in ("BoxRef", "BoxHandler", "NSLid", "id")}
        self.assertEqual(kinds, {"BoxRef": "pointer", "BoxHandler": "function",
                                 "NSLid": "object", "id": "id"})

    def test_only_numeric_expressions_are_evaluated(self):
        self.pascal.read("const\n  kBoxText = 'abc';\n  kBoxCall = Ord('a');\n")
        self.assertIsNone(self.pascal.value("kBoxText"))
        self.assertIsNone(self.pascal.value("kBoxCall"))

    def test_agreement(self):
        def agree(ours, theirs):
            return agrees(kind(ours), self.pascal.kind(theirs), "NSBox")
        self.assertIsNone(agree("int", "Nowhere"))
        for ours, theirs in (("double", "cdouble"), ("NSBox *", "id"), ("instancetype", "NSBox"),
                             ("id<NSFolding>", "NSFoldingProtocol"), ("Corner", "Corner"),
                             ("char *", "pointer"), ("Corner *", "PChar"), ("NSLid *", "NSLid")):
            self.assertIs(agree(ours, theirs), True, ours)
        for ours, theirs in (("float", "cdouble"), ("NSBox *", "NSLid"), ("instancetype", "NSLid"),
                             ("Corner", "Edge"), ("Corner *", "cint"), ("BOOL", "Boolean")):
            self.assertIs(agree(ours, theirs), False, ours)

    def test_fields(self):
        self.assertEqual([name for name, _ in self.pascal.fields("Corner")], ["left", "top"])


def node(kind_name, name="", line=1, file=None, inner=(), **details):
    """A node of a dump; `file` only if it differs from the previous node's."""
    location = {"line": line, **({"file": file} if file else {})}
    return {"kind": kind_name, "name": name, "loc": location,
            "range": {"begin": {}, "end": {}}, "inner": list(inner), **details}


class TreeTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        (self.folder / "Boxes").mkdir()
        self.header = self.folder / "Boxes/Boxes.h"
        self.header.write_text("int x;")

    def read(self, *nodes):
        return Reader({"kind": "TranslationUnitDecl", "inner": list(nodes)}, self.folder)

    def ours(self, *arguments, **details):
        return node(*arguments, file=str(self.header), **details)

    def test_only_declarations_in_the_folder(self):
        reader = self.read(node("TypedefDecl", "size_t", file="/usr/include/x.h",
                                type={"qualType": "unsigned long"}),
                           self.ours("TypedefDecl", "BoxSize", line=3,
                                     type={"qualType": "size_t"}),
                           node("TypedefDecl", "BoxPlace", line=4, type={"qualType": "int"}),
                           node("TypedefDecl", "ssize_t", file="/usr/include/y.h",
                                type={"qualType": "long"}))
        self.assertEqual([(d.name, d.place) for d in reader.declarations],
                         [("BoxSize", "Boxes/Boxes.h:3"), ("BoxPlace", "Boxes/Boxes.h:4")])
        self.assertEqual(reader.declarations[0].kind, Kind("integer", bits=64))
        self.assertEqual(reader.counted, 2)

    def test_macro_expansions_are_located_at_their_use(self):
        expanded = node("VarDecl", "boxes", type={"qualType": "int"})
        expanded["loc"] = {"spellingLoc": {"file": "/elsewhere.h", "line": 1},
                       "expansionLoc": {"file": str(self.header), "line": 9}}
        self.assertEqual(self.read(expanded).declarations[0].place, "Boxes/Boxes.h:9")

    def test_class(self):
        argument = {"kind": "ParmVarDecl", "loc": {}, "type": {"qualType": "int"}}
        method = node("ObjCMethodDecl", "open:", instance=False, inner=[argument],
                      returnType={"qualType": "BOOL"})
        prop = node("ObjCPropertyDecl", "lid", readonly=True, type={"qualType": "id"},
                    getter={"name": "theLid"})
        implicit = node("ObjCMethodDecl", "theLid", isImplicit=True, instance=True)
        reader = self.read(self.ours("ObjCInterfaceDecl", "NSBox", super={"name": "NSObject"},
                                     protocols=[{"name": "NSFolding"}],
                                     inner=[method, prop, implicit]))
        box, opening, lid = reader.declarations
        self.assertEqual((box.sort, box.superclass, box.adopted),
                         ("class", "NSObject", ("NSFolding",)))
        self.assertEqual((opening.is_class, opening.owner, len(opening.parts)), (True, "NSBox", 1))
        self.assertEqual((lid.readonly, lid.getter), (True, "theLid"))
        self.assertEqual(reader.counted, 3)

    def test_sorts(self):
        method = node("ObjCMethodDecl", "foldAt:", instance=True, returnType={"qualType": "BOOL"})
        reader = self.read(
            self.ours("LinkageSpecDecl", inner=[
                node("FunctionDecl", "BoxOpen", type={"qualType": "NSBoxShape (void)"}),
                node("ObjCProtocolDecl", "NSFolding", inner=[method])]),
            node("ObjCCategoryDecl", "Mine", interface={"name": "NSBox"}, inner=[method]),
            node("ObjCInterfaceDecl", "NSBox"), node("CXXRecordDecl", "Corner"),
            node("FunctionDecl", "operator|", type={"qualType": "int (int, int)"}),
            node("EnumDecl", "NSBoxShape", fixedUnderlyingType={"qualType": "long"}))
        self.assertEqual([(d.sort, d.owner) for d in reader.declarations],
                         [("function", ""), ("protocol", ""), ("method", "@NSFolding"),
                          ("category", "NSBox"), ("method", "NSBox"), ("forward class", ""),
                          ("forward struct", ""), ("operator", ""), ("forward enum", "")])
        self.assertEqual(reader.declarations[0].result,
                         Kind("enum", "NSBoxShape", bits=64, signed=True))
        self.assertEqual(reader.counted, 9)

    def test_files_named_only_in_a_range(self):
        first = self.ours("TypedefDecl", "BoxSize", type={"qualType": "int"})
        first["range"] = {"begin": {"file": "/elsewhere.h"}, "end": {}}
        second = node("TypedefDecl", "other_t", type={"qualType": "int"})
        self.assertEqual(len(self.read(first, second).declarations), 1)

    def test_values_of_an_enum(self):
        def literal(value):
            return {"kind": "ConstantExpr", "value": value}
        members = [node("EnumConstantDecl", "a", inner=[literal("4")]),
                   node("EnumConstantDecl", "b"),
                   node("EnumConstantDecl", "c", inner=[{
                       "kind": "UnaryOperator", "opcode": "-",
                       "inner": [{"kind": "IntegerLiteral", "value": "3"}]}])]
        reader = self.read(self.ours("EnumDecl", "", inner=members))
        self.assertEqual([d.value for d in reader.declarations[1:]], [4, 5, -3])

    def test_unnamed_struct_gets_its_typedef_name(self):
        field = {"kind": "FieldDecl", "name": "left", "loc": {}, "type": {"qualType": "int"}}
        struct = self.ours("CXXRecordDecl", inner=[field], completeDefinition=True, id="0x1")
        del struct["name"]
        typedef = node("TypedefDecl", "Edge", type={"qualType": "struct Edge"}, inner=[
            {"kind": "ElaboratedType",
             "ownedTagDecl": {"id": "0x1", "kind": "CXXRecordDecl", "name": ""}}])
        reader = self.read(struct, typedef)
        self.assertEqual(reader.declarations[0].name, "Edge")
        self.assertEqual(reader.declarations[1].kind, Kind("struct", "Edge"))

    def test_every_declaration_is_read(self):
        unknown = self.ours("ConceptDecl", "Boxed")
        local = node("VarDecl", "deep", type={"qualType": "int"})
        reader = self.read(unknown, node("FunctionDecl", "BoxOpen", inner=[
            {"kind": "CompoundStmt", "inner": [local]}], type={"qualType": "int (void)"}))
        self.assertEqual([d.sort for d in reader.declarations], ["ConceptDecl", "function"])
        self.assertEqual(reader.counted, 2)

    def test_missed_declaration_is_an_error(self):
        # Inside a declaration that the reader does not traverse.
        tree = {"inner": [self.ours("NamespaceDecl", "boxes", inner=[
            node("VarDecl", "NSBoxTitle", type={"qualType": "int"})])]}
        errors, _, _ = verify(tree, self.folder, *descriptions())
        self.assertIn("error: of 2 declarations 1 were looked at", errors)

    def test_totals(self):
        tree = {"inner": [
            self.ours("ObjCInterfaceDecl", "NSBox", super={"name": "NSObject"}),
            node("TypedefDecl", "NSBoxName", type={"qualType": "NSBox *"}),
            node("ObjCInterfaceDecl", "NSBax", super={"name": "NSObject"}, line=7)]}
        errors, notes, confirmed = verify(tree, self.folder, *descriptions())
        self.assertEqual(errors, ["error: Boxes/Boxes.h:7: class NSBax: no such class"])
        self.assertEqual((len(notes), confirmed), (1, 1))


class HeadersTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        (self.folder / "Boxes").mkdir()

    def write(self, name, text):
        (self.folder / "Boxes" / name).write_text(text)

    def test_macros(self):
        self.write("Boxes.h", "// #define kOld 1\n#define SDK_BOX(x) \\\n  x\n#  define kNew 2\n")
        errors = headers.unchecked_macros(self.folder)
        self.assertEqual(len(errors), 1)
        self.assertIn("Boxes/Boxes.h:4: macro kNew", errors[0])

    def test_header_missing_from_the_dump(self):
        self.write("Boxes.h", "int x;\n")
        self.write("All.h", "#pragma once\n#import <Boxes/Boxes.h> // everything\n")
        self.assertEqual(len(headers.unseen(self.folder, [])), 1)
        self.assertIn("Boxes/Boxes.h", headers.unseen(self.folder, [])[0])

    def test_frameworks(self):
        self.write("Boxes.h", "")
        (self.folder / "Empty").mkdir()
        self.assertEqual(headers.frameworks(self.folder), ["Boxes"])


class StubsTest(unittest.TestCase):
    def test_names(self):
        symbols, classes = stub_files.names(descriptions()[0], "Boxes")
        self.assertEqual(sorted(symbols),
                         ["_BoxOpen", "_BoxShake", "_NSBoxTitle", "_kBoxLimit", "_kBoxNew",
                          "_kBoxWeight"])
        self.assertEqual(sorted(classes), ["NSArray", "NSBox", "NSLid", "NSObject", "NSString"])

    def test_symbols_of_literals(self):
        api = descriptions()[0]
        self.assertEqual(stub_files.names(api, "Foundation")[0],
                         ["___NSArray0__", "___NSDictionary0__"])
        with tempfile.TemporaryDirectory() as folder:
            stub_files.write(Path(folder), api)
            stub = "System/Library/Frameworks/CoreFoundation.framework/CoreFoundation.tbd"
            self.assertIn("___CFConstantStringClassReference", (Path(folder) / stub).read_text())


if __name__ == "__main__":
    unittest.main()
