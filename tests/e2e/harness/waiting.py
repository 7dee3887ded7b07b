"""Bounded waiting for things that announce themselves by no event."""

import time

#: Seconds after which something that should have happened counts as failed. Generous, because it
#: only costs time when a test fails.
PATIENCE = 30.0


def wait_until(condition, timeout=PATIENCE, what="the condition", interval=0.03):
    """Calls `condition` until it returns something true, and returns that."""
    deadline = time.monotonic() + timeout
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() >= deadline:
            raise AssertionError(f"waited {timeout:.0f} s for {what}")
        time.sleep(interval)
