"""Small synthetic API descriptions and clang dumps of declarations."""

import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools/macos-check"))

from declarations.clang_ast import Declaration  # noqa: E402
from declarations.compare import Comparison  # noqa: E402
from declarations.kinds import CTypes  # noqa: E402
from declarations.pascal import Pascal  # noqa: E402
from declarations.typescript import TypeScript  # noqa: E402

API = """\
declare interface NSFolding extends NSObjectProtocol {
  foldAt(row: number): boolean;
}
declare interface NSObjectProtocol {
  readonly hash: number;
}
declare class NSObject extends NativeObject implements NSObjectProtocol {
  static alloc<This extends abstract new (...args: any) => any>(this: This): InstanceType<This>;

  init(): this;
}
declare class NSString extends NSObject implements NSFolding {
}
declare class NSBox extends NSObject implements NSFolding {
  static emptyBox(): NSBox;

  readonly lid: NSLid;

  title: string;

  open: boolean;

  addItemAtRow(item: NSLid, row: number): boolean;

  whenOpened(handler: (p1: NSBox, p2: (p1: number) => void) => NSLid | null): interop.Object;

  setShape(shape: interop.Enum<typeof NSBoxShape>): void;

  items: NSArray<interop.Object> | Array<interop.Object>;

  brandNewThing(x: number): void;

  brandNew(): void;

  depth: number;

  label: string;

  static readonly biggest: NSBox;
}
declare class NSLid extends NSBox {
}
declare class NSArray<ObjectType = interop.Object> extends NSObject {
  objectAtIndex(index: number): ObjectType;

  addItemAtRow(item: NSLid, row: number): boolean;
}
declare const NSBoxMoods: {
  Calm: 0,
  Wild: 5,
};
declare const kBoxWeight: number;
declare class Gap {
  constructor(init?: Gap);
  width: number;
  marks: unknown /* const array */;
}
declare class Edge {
  constructor(init?: Edge);
  left: number;
}
declare function BoxShake(box: interop.Object, times: number): boolean;
declare const NSBoxShape: {
  Round: 0,
  Flat: 8,
};
declare const NSBoxTitle: string;
declare const kBoxLimit: number;
declare const kBoxNew: number;
declare class Corner {
  constructor(init?: Corner);
  left: number;
  top: number;
}
declare function BoxOpen(box: interop.PointerConvertible, corner: Corner, flags: number): number;
"""

PASCAL = """\
type
  NSFoldingProtocol = objcprotocol external name 'NSFolding' (NSObjectProtocol)
    function foldAt (row: NSInteger): ObjCBOOL; message 'foldAt:';
  end;
  NSBox = objcclass external (NSObject, NSFoldingProtocol)
  private
    _lid: NSLid;
  public
    class function emptyBox: NSBox; message 'emptyBox';
    function lid: NSLid; message 'lid';
    procedure setTitle(newValue: NSString); message 'setTitle:';
    function title: NSString; message 'title';
    function isOpen: ObjCBOOL; message 'isOpen';
    procedure setOpen(newValue: ObjCBOOL); message 'setOpen:';
    function addItem_atRow (item: NSLid; row: cushort): ObjCBOOL; message 'addItem:atRow:';
    procedure setShape (shape: NSBoxShape); message 'setShape:'; { available in 10_6 }
    function init: id; message 'init';
    function depth: cushort; message 'depth';
    procedure setDepth(newValue: cushort); message 'setDepth:';
    function label: NSString; message 'label';
    function biggest: cushort; message 'biggest';
  end;
  NSBoxExtra = objccategory external (NSBox)
    function whenOpened (handler: OpaqueCBlock): id; message 'whenOpened:';
  end;
  NSString = objcclass external (NSObject)
  end;
  NSLid = objcclass external (NSBox)
  end;
  NSBoxShape = NSUInteger;
  BoxFlags = UInt32;
  BoxRef = ^OpaqueBox;
  BoxHandler = function( box: BoxRef ): SInt32;
  Edge = record
    left: SInt32; right: SInt32;
  end;
  Corner = record
    left: SInt32; top: SInt32; { of the screen }
  end;
{ kBoxLimit = 7, in older systems }
const
  NSBoxShapeRound = 0;
  NSBoxMoodilyCalm = 0;
  kBoxWildMood = 5;
  NSBoxShapeFlat = 1 shl 3;
  kBoxLimit = FourCharCode('abcd');
  kBoxNegative = -3;
  kBoxHex = $0F or kBoxOne;
  kBoxOne = $10;
var
  NSBoxTitle: NSString; cvar; external;
  kBoxWeight: double; cvar; external;
function BoxOpen( box: UnivPtr; const corner: Corner; flags: BoxFlags ): SInt32;\
 external name '_BoxOpen';
function BoxClose( var box: Corner; a, b: double ): Boolean; external name '_BoxClose';
"""


def descriptions():
    """Both descriptions of the synthetic API."""
    api, pascal = TypeScript(), Pascal()
    api.read("Boxes", API)
    pascal.read(PASCAL)
    return api, pascal


def c_types():
    """C types of the synthetic API."""
    types = CTypes()
    types.classes |= {"NSObject", "NSString", "NSBox", "NSLid", "NSArray"}
    types.enums["NSBoxShape"] = "unsigned long"
    types.structs.add("Corner")
    types.typedefs.update(NSInteger="long", NSUInteger="unsigned long", BoxFlags="unsigned int",
                          NSBoxName="NSString *", CFBoxRef="const struct __CFBox *",
                          CFTypeRef="const void *")
    return types


def kind(text, parameters=()):
    """The kind of a C type of the synthetic API."""
    return c_types().kind(text, parameters)


def verdict(sort, name, **details):
    """Checks one declaration, with types in C spelling; returns (outcome, reason)."""
    for key in ("kind", "result"):
        if key in details:
            details[key] = kind(details[key])
    if "parts" in details:
        details["parts"] = tuple((p[0], kind(p[1])) if isinstance(p, tuple) else kind(p)
                                 for p in details["parts"])
    declaration = Declaration(sort, name, "Boxes/Boxes.h:1", **details)
    found = Comparison(*descriptions()).check(declaration)
    return found.outcome, found.reason
