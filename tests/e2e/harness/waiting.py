"""Polling with a timeout, for conditions without an event."""

import os
import time

#: How much more time the programs may take, for instance because they are instrumented.
ALLOWANCE = float(os.environ.get("QUELLORA_TEST_ALLOWANCE", 1))

#: Default timeout in seconds. Generous, because it costs time only when a test fails.
PATIENCE = 30.0 * ALLOWANCE


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
