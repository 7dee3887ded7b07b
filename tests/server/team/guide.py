"""The configurations that docs/TEAM.md shows."""

import os
import pathlib
import re

# Where Debian installs the servers that they are for; ordinary users do not have it in their path.
os.environ["PATH"] += os.pathsep + "/usr/sbin"
GUIDE = pathlib.Path(__file__).resolve().parents[3] / "docs" / "TEAM.md"


def example(language):
    """The guide's only block of that language."""
    blocks = re.findall(rf"^```{language}\n(.*?)^```", GUIDE.read_text(), re.M | re.S)
    assert len(blocks) == 1, language
    return blocks[0]


def replaced(text, replacements):
    """Text with each key, which it must contain, replaced."""
    for old, new in replacements.items():
        assert old in text, old
        text = text.replace(old, str(new))
    return text
