"""Keys of a US keyboard by the codes of linux/input-event-codes.h."""

_ROWS = ((2, "1234567890-=", "!@#$%^&*()_+"), (16, "qwertyuiop[]", "QWERTYUIOP{}"),
         (30, "asdfghjkl;'`", "ASDFGHJKL:\"~"), (43, "\\zxcvbnm,./", "|ZXCVBNM<>?"))

_NAMED = {
    "escape": 1, "backspace": 14, "tab": 15, "return": 28, "ctrl": 29, "shift": 42, "alt": 56,
    "space": 57, "caps_lock": 58, "f2": 60, "f6": 64, "home": 102, "up": 103, "page_up": 104,
    "left": 105, "right": 106, "end": 107, "down": 108, "page_down": 109, "delete": 111,
    "super": 125,
}
_CHARACTERS = {" ": (57, False), "\n": (28, False), "\t": (15, False)}
for _first, _plain, _shifted in _ROWS:
    for _index, (_lower, _upper) in enumerate(zip(_plain, _shifted)):
        _CHARACTERS[_lower] = (_first + _index, False)
        _CHARACTERS[_upper] = (_first + _index, True)

SHIFT = _NAMED["shift"]
LEFT_BUTTON = 0x110
RIGHT_BUTTON = 0x111


def code_of(key):
    """The code of a key by its name or its character."""
    if key.lower() in _NAMED:
        return _NAMED[key.lower()]
    return of_character(key)[0]


def of_character(character):
    """(code, with Shift) of the key that types a character."""
    if character not in _CHARACTERS:
        raise ValueError(f"no key types {character!r}")
    return _CHARACTERS[character]
