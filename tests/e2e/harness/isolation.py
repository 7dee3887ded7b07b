"""A network namespace of one's own, and an ordinary user, for the process and all its children.

Compositors and portals meet other programs over abstract sockets and loopback, so desktops that run
side by side need a network each. sway and GNOME refuse to run as root.
"""

import ctypes
import errno
import fcntl
import os
import pathlib
import socket
import struct

_libc = ctypes.CDLL(None, use_errno=True)
_CLONE_NEWNS = 0x00020000
_CLONE_NEWUSER = 0x10000000
_CLONE_NEWNET = 0x40000000
_MS_REC, _MS_PRIVATE = 0x4000, 0x40000
_SIOCGIFFLAGS, _SIOCSIFFLAGS = 0x8913, 0x8914
_IFF_UP = 1

#: The ordinary user that tests started by root become.
_USER = 1000
_X_SOCKETS = pathlib.Path("/tmp/.X11-unix")

_entered = False


def _check(result, what):
    if result != 0:
        error = ctypes.get_errno()
        raise OSError(error, f"{what}: {os.strerror(error)}")


def _mount(source, target, kind, flags, options):
    _check(_libc.mount(source, target, kind, ctypes.c_ulong(flags), options),
           f"mount {target.decode()}")


def _raise_loopback():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
        request = struct.pack("16sh14x", b"lo", 0)
        flags = struct.unpack("16sh14x", fcntl.ioctl(any_socket, _SIOCGIFFLAGS, request))[1]
        fcntl.ioctl(any_socket, _SIOCSIFFLAGS, struct.pack("16sh14x", b"lo", flags | _IFF_UP))


def _unshare():
    user, group = os.getuid(), os.getgid()
    flags = _CLONE_NEWNET | _CLONE_NEWNS
    if user != 0:
        flags |= _CLONE_NEWUSER
    # X servers of this process's desktops must neither see nor disturb those of others.
    _X_SOCKETS.mkdir(mode=0o1777, exist_ok=True)
    _check(_libc.unshare(flags), "unshare")
    if user != 0:
        pathlib.Path("/proc/self/setgroups").write_text("deny", encoding="ascii")
        pathlib.Path("/proc/self/uid_map").write_text(f"{user} {user} 1", encoding="ascii")
        pathlib.Path("/proc/self/gid_map").write_text(f"{group} {group} 1", encoding="ascii")
    _raise_loopback()
    _mount(None, b"/", None, _MS_REC | _MS_PRIVATE, None)
    _mount(b"tmpfs", bytes(_X_SOCKETS), b"tmpfs", 0, b"mode=1777")


def is_readable(path):
    """Whether every user can read the file or folder."""
    path = pathlib.Path(path).resolve()
    return all(folder.stat().st_mode & 0o005 == 0o005
               for folder in (path, *path.parents) if folder.is_dir())


def enter(writable=None):
    """Enters the namespaces and becomes an ordinary user. Idempotent.

    Where the machine does not permit namespaces, prints so and goes on without. Threads that
    already run stay outside, so call it first.

    `writable`: a folder to create that this process can still write to afterwards.
    """
    global _entered  # pylint: disable=global-statement
    if _entered:
        return
    _entered = True
    try:
        _unshare()
    except OSError as error:
        if error.errno not in (errno.EPERM, errno.EACCES, errno.ENOSPC, errno.ENOSYS,
                               errno.EINVAL):
            raise
        print(f"No network namespace of its own ({error.strerror})", flush=True)
    if writable is not None:
        pathlib.Path(writable).mkdir(parents=True, exist_ok=True)
    if os.getuid() == 0:
        if writable is not None:
            os.chown(writable, _USER, _USER)
        os.setgroups([])
        os.setresgid(_USER, _USER, _USER)
        os.setresuid(_USER, _USER, _USER)
        # Changing the user made this process and its /proc entries root's.
        _libc.prctl(4, 1, 0, 0, 0)
        os.environ.pop("XDG_RUNTIME_DIR", None)
        os.environ["HOME"] = "/nonexistent"
