"""Linker stubs of the frameworks, with the names of description A."""
from stubs import tbd

# Frameworks that the program may link.
FRAMEWORKS = ("Foundation", "CoreFoundation", "AppKit", "CoreGraphics", "ApplicationServices",
              "Carbon", "CoreServices")

# Symbols that the compiler references for string, array and dictionary literals; in no header.
LITERALS = {
    "CoreFoundation": ["___CFConstantStringClassReference"],
    "Foundation": ["___NSArray0__", "___NSDictionary0__"],
}


def names(api, framework):
    """(symbols, classes) that a framework exports."""
    symbols = ["_" + name for name in (*api.functions, *api.constants)
               if api.home[name] == framework]
    homes = (framework, "Runtime") if framework == "Foundation" else (framework,)
    classes = [c.name for c in api.classes.values()
               if c.framework in homes and not c.is_protocol and not c.is_struct
               and (c.framework != "Runtime" or c.name.startswith("NS"))]
    return symbols + LITERALS.get(framework, []), classes


def write(folder, api):
    """Writes each framework's stub to its place in a system root."""
    for framework in FRAMEWORKS:
        place = folder / f"System/Library/Frameworks/{framework}.framework"
        place.mkdir(parents=True, exist_ok=True)
        symbols, classes = names(api, framework)
        install_name = f"/System/Library/Frameworks/{framework}.framework/{framework}"
        (place / f"{framework}.tbd").write_text(tbd(install_name, set(symbols), set(classes)))
