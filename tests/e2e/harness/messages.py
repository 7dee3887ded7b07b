"""Log messages on which several tests wait."""

#: Component prefix of the overlay's messages.
PREFIX = "[OverlayWindowController] "
RUNNING = "[AppDelegate] Vantiro Overlay running (single-process, no pipeline.py dependency)."
STREAM_COMPLETE = PREFIX + "Stream complete, buffer cleared"
