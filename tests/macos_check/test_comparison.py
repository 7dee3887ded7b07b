"""Verdicts on correct and incorrect declarations."""

import unittest

from snippets import Declaration, verdict

from declarations.compare import title


class ComparisonTest(unittest.TestCase):
    def assertConfirmed(self, *arguments, **details):
        self.assertEqual(verdict(*arguments, **details), ("confirmed", ""))

    def assertNote(self, part, *arguments, **details):
        outcome, reason = verdict(*arguments, **details)
        self.assertEqual(outcome, "note")
        self.assertIn(part, reason)

    def assertWrong(self, part, *arguments, **details):
        outcome, reason = verdict(*arguments, **details)
        self.assertEqual(outcome, "error", reason)
        self.assertIn(part, reason)


class ClassTest(ComparisonTest):
    def test_class(self):
        self.assertConfirmed("class", "NSLid", superclass="NSObject")
        self.assertWrong("no such class", "class", "NSBax", superclass="NSObject")
        self.assertWrong("no such class", "forward class", "NSBax")
        self.assertWrong("not derived from NSLid", "class", "NSBox", superclass="NSLid")

    def test_display_names(self):
        for sort, details, name in (
                ("class", {}, "class x"), ("enumerator", {}, "x"),
                ("method", {"owner": "NSBox"}, "-[NSBox x]"),
                ("method", {"owner": "@NSFolding", "is_class": True}, "+[NSFolding x]"),
                ("property", {"owner": "NSBox"}, "property NSBox.x"),
                ("category", {"owner": "NSBox"}, "category NSBox (x)")):
            self.assertEqual(title(Declaration(sort, "x", "", **details)), name)

    def test_neither_protocols_nor_structs_are_classes(self):
        self.assertWrong("no such class", "class", "NSFolding")
        self.assertWrong("no such class", "class", "Corner")

    def test_adopted_protocols(self):
        self.assertConfirmed("class", "NSLid", superclass="NSBox",
                             adopted=("NSFolding", "NSObject"))
        self.assertWrong("does not adopt NSFolding", "class", "NSArray", adopted=("NSFolding",))
        self.assertWrong("no protocol NSBending", "class", "NSBox", adopted=("NSBending",))

    def test_protocol_and_category(self):
        self.assertConfirmed("protocol", "NSFolding", adopted=("NSObject",))
        self.assertWrong("no such protocol", "protocol", "NSBox")
        self.assertWrong("does not adopt NSFolding", "protocol", "NSObject",
                         adopted=("NSFolding",))
        self.assertConfirmed("category", "Mine", owner="NSBox")
        self.assertWrong("no class NSBax", "category", "Mine", owner="NSBax")


class MethodTest(ComparisonTest):
    correct = {"owner": "NSBox", "parts": ("NSLid *", "unsigned short"), "result": "BOOL"}

    def test_method(self):
        self.assertConfirmed("method", "addItem:atRow:", **self.correct)
        self.assertConfirmed("method", "foldAt:", owner="@NSFolding", parts=("NSInteger",),
                             result="BOOL")

    def test_inherited(self):
        self.assertConfirmed("method", "addItem:atRow:", **{**self.correct, "owner": "NSLid"})
        self.assertConfirmed("method", "foldAt:", owner="NSBox", parts=("NSInteger",),
                             result="BOOL")

    def test_declared_on_a_superclass(self):
        self.assertWrong("no such method", "method", "addItem:atRow:",
                         **{**self.correct, "owner": "NSObject"})

    def test_selector(self):
        self.assertWrong("no such method", "method", "addItm:atRow:", **self.correct)
        # Same word and number of colons, split differently: description A cannot tell them apart.
        self.assertNote("colons by their number only", "method", "addItemAt:row:", **self.correct)

    def test_number_of_arguments(self):
        self.assertWrong("1 arguments, not 2", "method", "addItemAtRow:",
                         **{**self.correct, "parts": ("NSLid *",)})

    def test_kinds(self):
        self.assertWrong("argument 1 is an object NSBox", "method", "addItem:atRow:",
                         **{**self.correct, "parts": ("NSBox *", "unsigned short")})
        self.assertWrong("returns a void", "method", "addItem:atRow:",
                         **{**self.correct, "result": "void"})

    def test_width(self):
        self.assertWrong("description B has an unsigned integer of 16 bits", "method",
                         "addItem:atRow:", **{**self.correct, "parts": ("NSLid *", "int")})

    def test_class_and_instance(self):
        self.assertConfirmed("method", "emptyBox", owner="NSBox", is_class=True, result="NSBox *")
        self.assertWrong("no such method", "method", "emptyBox", owner="NSBox", result="NSBox *")

    def test_accessors_of_properties(self):
        self.assertConfirmed("method", "lid", owner="NSBox", result="NSLid *")
        self.assertWrong("no such method", "method", "lid", owner="NSBox", is_class=True,
                         result="NSLid *")
        self.assertConfirmed("method", "setTitle:", owner="NSBox", parts=("NSString *",),
                             result="void")
        self.assertWrong("no such method", "method", "setLid:", owner="NSBox",
                         parts=("NSLid *",), result="void")

    def test_own_class_as_type(self):
        self.assertConfirmed("method", "init", owner="NSBox", result="instancetype")
        self.assertConfirmed("method", "emptyBox", owner="NSBox", is_class=True,
                             result="instancetype")

    def test_enum(self):
        self.assertConfirmed("method", "setShape:", owner="NSBox", parts=("NSBoxShape",),
                             result="void")
        self.assertWrong("argument 1 is an unsigned integer", "method", "setShape:",
                         owner="NSBox", parts=("NSUInteger",), result="void")

    def test_blocks(self):
        correct = "NSLid * _Nullable (^)(NSBox * _Nonnull, void (^)(double))"
        for written in (correct, correct.replace("double", "NSInteger")):
            self.assertConfirmed("method", "whenOpened:", owner="NSBox", parts=(written,),
                                 result="id")
        for wrong in ("void (^)(NSBox *, void (^)(double))", "NSLid *(^)(NSBox *)",
                      "NSLid *(^)(NSLid *, void (^)(double))",
                      "NSLid *(^)(NSBox *, void (^)(void))", "id"):
            self.assertWrong("argument 1", "method", "whenOpened:", owner="NSBox",
                             parts=(wrong,), result="id")

    def test_newer_than_b(self):
        self.assertNote("newer than description B: colons", "method", "brandNewThing:",
                        owner="NSBox", parts=("double",), result="void")
        self.assertNote("rests on description A", "method", "brandNew", owner="NSBox",
                        result="void")
        self.assertNote("in other classes only", "method", "addItem:atRow:",
                        **{**self.correct, "owner": "NSArray"})

    def test_unknown_type(self):
        self.assertWrong("does not understand the type Mystery", "method", "brandNewThing:",
                         owner="NSBox", parts=("Mystery",), result="void")


class PropertyTest(ComparisonTest):
    def test_property(self):
        self.assertConfirmed("property", "title", owner="NSLid", kind="NSString *")
        self.assertConfirmed("property", "title", owner="NSLid", kind="NSBoxName")
        self.assertWrong("no such property", "property", "titel", owner="NSBox",
                         kind="NSString *")
        self.assertWrong("no such property", "property", "title", owner="NSObject",
                         kind="NSString *")
        self.assertWrong("is a bool, not string", "property", "title", owner="NSBox", kind="BOOL")

    def test_readonly(self):
        self.assertConfirmed("property", "lid", owner="NSBox", kind="NSLid *", readonly=True)
        self.assertWrong("can only be read", "property", "lid", owner="NSBox", kind="NSLid *")

    def test_getter(self):
        self.assertConfirmed("property", "open", owner="NSBox", kind="BOOL", getter="isOpen")
        self.assertWrong("reads it with isOpen", "property", "open", owner="NSBox", kind="BOOL")
        self.assertWrong("no description has its getter theItems", "property", "items",
                         owner="NSBox", kind="NSArray *", getter="theItems")

    def test_by_description_b(self):
        self.assertConfirmed("property", "depth", owner="NSBox", kind="unsigned short")
        self.assertWrong("description B has an unsigned integer of 16 bits", "property", "depth",
                         owner="NSBox", kind="NSInteger")
        self.assertNote("no setter", "property", "label", owner="NSBox", kind="NSString *")
        self.assertConfirmed("property", "label", owner="NSBox", kind="NSString *", readonly=True)

    def test_newer_than_b(self):
        self.assertNote("newer than description B", "property", "items", owner="NSBox",
                        kind="NSArray<NSLid *> *")

    def test_class_property_from_a_method(self):
        self.assertConfirmed("property", "emptyBox", owner="NSBox", kind="NSBox *",
                             is_class=True, readonly=True)
        self.assertWrong("can only be read", "property", "emptyBox", owner="NSBox",
                         kind="NSBox *", is_class=True)


class ConstantTest(ComparisonTest):
    def test_enum(self):
        self.assertConfirmed("enum", "NSBoxShape", kind="unsigned long")
        self.assertWrong("made of a signed", "enum", "NSBoxShape", kind="long")
        self.assertWrong("no such enum", "enum", "NSBoxForm", kind="long")
        self.assertWrong("no fixed underlying type", "enum", "NSBoxShape")
        self.assertNote("width of the underlying", "enum", "NSBoxMoods", kind="long")
        self.assertConfirmed("forward enum", "NSBoxMoods", kind="long")
        self.assertConfirmed("enum", "")

    def test_members(self):
        self.assertConfirmed("enumerator", "NSBoxShapeFlat", owner="NSBoxShape", value=8)
        self.assertWrong("description B has 8", "enumerator", "NSBoxShapeFlat",
                         owner="NSBoxShape", value=7)
        self.assertWrong("no such member", "enumerator", "NSBoxShapeSquare",
                         owner="NSBoxShape", value=8)
        # Has the suffix of a member, but not the prefix of the enum.
        self.assertWrong("no such member", "enumerator", "NSBoFlat", owner="NSBoxShape", value=8)

    def test_member_with_prefix_from_description_b(self):
        self.assertConfirmed("enumerator", "NSBoxMoodilyCalm", owner="NSBoxMoods", value=0)
        self.assertConfirmed("enumerator", "kBoxWildMood", owner="NSBoxMoods", value=5)
        self.assertWrong("no such member", "enumerator", "kBoxCalmMood", owner="NSBoxMoods",
                         value=0)

    def test_member_with_c_prefix(self):
        self.assertNote("where its prefix ends", "enumerator", "kNSBoxMoodWild",
                        owner="NSBoxMoods", value=5)

    def test_members_that_description_b_lacks(self):
        self.assertConfirmed("enumerator", "NSBoxMoodWild", owner="NSBoxMoods", value=5)
        self.assertWrong("is 4, not 5", "enumerator", "NSBoxMoodWild", owner="NSBoxMoods",
                         value=4)
        self.assertNote("where its prefix ends", "enumerator", "NSBoxWild", owner="NSBoxMoods",
                        value=5)

    def test_member_with_unconfirmed_prefix(self):
        self.assertNote("description B, which is older, has NSBoxShapeFlat", "enumerator",
                        "NSBoxFlat", owner="NSBoxShape", value=8)

    def test_constants_without_an_enum(self):
        self.assertConfirmed("enumerator", "kBoxLimit", value=int.from_bytes(b"abcd", "big"))
        self.assertWrong("description B has", "enumerator", "kBoxLimit", value=7)
        self.assertWrong("no such constant", "enumerator", "kBoxLimits", value=7)
        self.assertWrong("value is in no description", "enumerator", "kBoxNew", value=7)
        self.assertWrong("is a number, not string", "enumerator", "NSBoxTitle", value=7)

    def test_variables(self):
        self.assertConfirmed("constant", "NSBoxTitle", kind="NSBoxName")
        self.assertWrong("not string", "constant", "NSBoxTitle", kind="NSInteger")
        self.assertWrong("no such constant", "constant", "NSBoxTitel", kind="NSString *")
        self.assertWrong("value is in no description", "constant", "kBoxNew", kind="int", value=3)
        self.assertWrong("description B has", "constant", "kBoxLimit", kind="int", value=3)
        self.assertNote("newer than description B", "constant", "kBoxNew", kind="int")
        self.assertConfirmed("constant", "kBoxWeight", kind="double")
        self.assertWrong("description B has double", "constant", "kBoxWeight", kind="long")


class CTest(ComparisonTest):
    correct = {"parts": ("void *", "Corner", "BoxFlags"), "result": "int"}

    def test_function(self):
        self.assertConfirmed("function", "BoxOpen", **self.correct)
        self.assertWrong("no such function", "function", "BoxOpn", **self.correct)
        self.assertWrong("2 arguments, not 3", "function", "BoxOpen", parts=("void *", "Corner"),
                         result="int")
        self.assertWrong("argument 2 is a pointer", "function", "BoxOpen",
                         parts=("void *", "Corner *", "BoxFlags"), result="int")
        self.assertWrong("argument 3 is an unsigned integer of 64 bits", "function", "BoxOpen",
                         parts=("void *", "Corner", "NSUInteger"), result="int")
        self.assertWrong("result is an unsigned", "function", "BoxOpen",
                         parts=self.correct["parts"], result="unsigned int")

    def test_function_of_description_a_only(self):
        correct = {"parts": ("CFBoxRef", "int"), "result": "BOOL"}
        self.assertNote("newer than description B", "function", "BoxShake", **correct)
        self.assertWrong("argument 1 is an unsigned", "function", "BoxShake",
                         **{**correct, "parts": ("NSUInteger", "int")})
        self.assertWrong("returns a signed integer of 32 bits, not boolean", "function",
                         "BoxShake", **{**correct, "result": "int"})

    def test_function_of_description_b_only(self):
        correct = {"parts": ("Corner *", "double", "double"), "result": "unsigned char"}
        self.assertNote("description A", "function", "BoxClose", **correct)
        self.assertWrong("2 arguments, description B has 3", "function", "BoxClose",
                         **{**correct, "parts": ("Corner *", "double")})

    def test_struct(self):
        self.assertConfirmed("struct", "Corner", parts=(("left", "int"), ("top", "int")))
        self.assertWrong("has the fields left, top, not top, left", "struct", "Corner",
                         parts=(("top", "int"), ("left", "int")))
        self.assertWrong("left is a signed integer of 16 bits", "struct", "Corner",
                         parts=(("left", "short"), ("top", "int")))
        self.assertWrong("no such struct", "struct", "Ledge", parts=(("left", "int"),))

    def test_struct_with_differing_descriptions(self):
        self.assertWrong("1 fields, description B has 2", "struct", "Edge",
                         parts=(("left", "int"),))
        correct = (("width", "int"), ("marks", "long[4]"))
        self.assertNote("description B does not have it", "struct", "Gap", parts=correct)
        self.assertWrong("marks is a signed integer", "struct", "Gap",
                         parts=(("width", "int"), ("marks", "long")))

    def test_typedef(self):
        self.assertConfirmed("typedef", "BoxFlags", kind="unsigned int")
        self.assertWrong("is a signed integer of 64 bits", "typedef", "BoxFlags", kind="long")
        self.assertNote("in no description", "typedef", "NSBoxName", kind="NSString *")
        self.assertConfirmed("typedef", "BOOL", kind="BOOL")
        self.assertConfirmed("typedef", "NSBoxShape", kind="enum NSBoxShape")
        self.assertConfirmed("typedef", "BoxRef", kind="struct OpaqueBox *")
        self.assertWrong("is a signed", "typedef", "BoxRef", kind="long")
        self.assertConfirmed("typedef", "BoxHandler", kind="int (*)(void *)")

    def test_option_set_operators(self):
        self.assertConfirmed("operator", "operator|", parts=("NSBoxShape", "NSBoxShape"))
        self.assertWrong("one option set", "operator", "operator|", parts=("NSBoxShape", "int"))

    def test_unknown_sort_of_declaration(self):
        self.assertWrong("does not know this sort", "ConceptDecl", "Boxed")


if __name__ == "__main__":
    unittest.main()
