"""Child processes that cannot outlive their test."""

import ctypes
import os
import signal
import subprocess
import time

from .waiting import ALLOWANCE

_libc = ctypes.CDLL(None, use_errno=True)
_PR_SET_PDEATHSIG = 1
_PR_SET_CHILD_SUBREAPER = 36


def adopt_orphans():
    """Makes this process the parent of every orphaned descendant, so that all can be found."""
    _libc.prctl(_PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)


def _before_exec():
    _libc.prctl(_PR_SET_PDEATHSIG, signal.SIGKILL, 0, 0, 0)


def spawn(arguments, **options):
    """Starts a program in its own session; the kernel kills it when this process dies.

    Call on the main thread only: the kernel ties the death signal to the forking thread.
    """
    options.setdefault("stdin", subprocess.DEVNULL)
    return subprocess.Popen(
        arguments, start_new_session=True, preexec_fn=_before_exec, **options)


def children_by_parent():
    """All live processes except zombies: parent id -> [(id, command name)]."""
    table = {}
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            with open(f"/proc/{entry}/stat", encoding="utf-8", errors="replace") as file:
                text = file.read()
        except OSError:
            continue
        name = text[text.index("(") + 1:text.rindex(")")]
        state, parent = text[text.rindex(")") + 2:].split()[:2]
        if state != "Z":
            table.setdefault(int(parent), []).append((int(entry), name))
    return table


def descendants(root):
    """All live descendants of a process as {id: command name}."""
    table = children_by_parent()
    found = {}
    waiting = [root]
    while waiting:
        for pid, name in table.get(waiting.pop(), []):
            if pid not in found:
                found[pid] = name
                waiting.append(pid)
    return found


def reap():
    """Reaps adopted orphans that have ended."""
    try:
        while os.waitpid(-1, os.WNOHANG)[0] > 0:
            pass
    except ChildProcessError:
        pass


def stop(process, timeout=5.0):
    """Ends a child and its descendants: SIGTERM, then SIGKILL."""
    if process is None:
        return
    family = [process.pid, *descendants(process.pid)]
    if process.poll() is None:
        process.terminate()
        try:
            process.wait(timeout * ALLOWANCE)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
    for pid in family[1:]:
        try:
            os.kill(pid, signal.SIGKILL)
        except ProcessLookupError:
            continue
    for stream in (process.stdout, process.stderr):
        if stream is not None and not stream.closed:
            stream.close()


def kill_all_descendants():
    """Kills all descendants of this process."""
    deadline = time.monotonic() + 5
    while time.monotonic() < deadline:
        left = descendants(os.getpid())
        if not left:
            return
        for pid in left:
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                continue
        time.sleep(0.02)
