#!/usr/bin/python3
"""Takes a picture of the panel with an answer on a private desktop, into docs/images.

The desktop is that of QUELLORA_TEST_DESKTOP. `scripts/test-desktops --pictures` runs this.
"""

import os
import pathlib
import subprocess
import sys

from harness import App, HostileServer, desktops, isolation
from harness.messages import STREAM_COMPLETE
from harness.programs import OtherProgram
from harness.server import QUERY

FOLDER = pathlib.Path(__file__).resolve().parents[2] / "docs" / "images"
NAMES = {"sway": "sway", "kwin": "kde", "gnome": "gnome"}
ANSWER = """## Two rows are missing

The export stops at **midnight UTC**, but the region `eu` closes its day at 22:00 UTC.

```python
midnight = datetime.combine(day, time.min, tzinfo=REGIONS[region])
```

Compare the counts again after tonight's run.
"""


def main():
    """Takes the picture."""
    kind = os.environ["QUELLORA_TEST_DESKTOP"]
    # Opened before this process becomes an ordinary user, who may not write there.
    with open(FOLDER / f"wayland-{NAMES[kind]}.png", "wb") as file:
        isolation.enter()
        desktop = desktops.start(kind)
        server = HostileServer()
        server.on(QUERY, HostileServer.answer_with(ANSWER))
        app = App(desktop, server.url)
        try:
            app.start().sign_in()
            other = OtherProgram(desktop)
            app.send_prompt("Why do the counts differ?")
            app.wait_for_line(STREAM_COMPLETE)
            app.access.wait_for_page_text("Compare the counts")
            desktop.click(desktop.width - 60, desktop.height - 60)
            other.wait_for("click")
            last = desktop.wait_for_picture(lambda now: len(now.colours()) > 200, "the answer")
            picture = subprocess.run(
                ["convert", "png:-", "-strip", "-define", "png:compression-level=9", "png:-"],
                input=last.png(), stdout=subprocess.PIPE, check=True).stdout
            file.write(picture)
            other.close()
        finally:
            app.close()
            server.close()
            desktop.close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
