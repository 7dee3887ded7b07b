"""Pictures in a Wayland session in which the program does not run: the desktop's portal takes them.
Every failure has an exit status and one line on standard error, and leaves no file behind; a file
of the portal is removed only if it is the picture that was asked for."""

import hashlib
import os
import pathlib
import shutil
import socket
import stat
import subprocess
import sys
import tempfile
import threading
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "x11"))
from desktop import Desktop, Portal, number, other_program, text, tuple_of  # noqa: E402
from picture import TOOL, run  # noqa: E402

SCREEN_UNREADABLE = 6
PATH_UNWRITABLE = 9
NO_SESSION_BUS, NO_PORTAL, REFUSED, PORTAL_FAILED, NOT_PNG = range(11, 16)
# Larger than one block of the copy.
PNG = b"\x89PNG\r\n\x1a\n" + bytes(range(256)) * 3000


class PortalTest(unittest.TestCase):
    def setUp(self):
        self.desktop = Desktop()
        self.addCleanup(self.desktop.close)
        self.environment = self.desktop.environment
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="quellora-portal-test-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.path = self.folder / "picture.png"
        self.pictures = self.desktop.folder / "Pictures"
        self.pictures.mkdir()
        self.shot = self.pictures / "Screenshot.png"

    def portal(self, answer):
        portal = Portal(self.desktop, answer)
        self.addCleanup(portal.close)
        return portal

    def answers(self, uri=None, data=PNG, prepare=None):
        """A portal that writes the picture, then responds before it replies."""
        def answer(portal, handle):
            if prepare:
                prepare()
            else:
                self.shot.write_bytes(data)
            portal.respond(handle, 0, {"other": number(7),
                                       "uri": text(uri or self.shot.as_uri())})
            return handle
        return self.portal(answer)

    def run_tool(self):
        return run(["-x", "-C", str(self.path)], self.environment)

    def assert_succeeds(self):
        result = self.run_tool()
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))
        self.assertEqual(self.path.read_bytes(), PNG)
        self.assertEqual(os.listdir(self.folder), ["picture.png"])
        self.assertEqual(stat.S_IMODE(self.path.stat().st_mode), 0o600)

    def assert_fails(self, status, words):
        result = self.run_tool()
        self.assertEqual((result.returncode, result.stdout), (status, ""), result.stderr)
        self.assertRegex(result.stderr, r"\Aquellora-screencapture: [^\n]*\n\Z")
        self.assertIn(words, result.stderr)
        self.assertEqual(os.listdir(self.folder), [])


class AnswerTest(PortalTest):
    """What the portal says."""

    def test_the_picture_is_copied_and_the_portals_file_is_removed(self):
        portal = self.answers()
        self.assert_succeeds()
        self.assertEqual(os.listdir(self.pictures), [])
        options, = portal.requests
        self.assertIs(options["interactive"], False)
        self.assertRegex(options["handle_token"], r"\A[A-Za-z0-9_]+\Z")

    def test_an_answer_after_the_reply(self):
        def answer(portal, handle):
            self.shot.write_bytes(PNG)
            portal.after(lambda: portal.respond(handle, 0, {"uri": text(self.shot.as_uri())}))
            return handle
        self.portal(answer)
        self.assert_succeeds()

    def test_an_old_portal_chooses_another_request_path(self):
        def answer(portal, _handle):
            self.shot.write_bytes(PNG)
            chosen = "/org/freedesktop/portal/desktop/request/old"
            portal.respond(chosen, 0, {"uri": text(self.shot.as_uri())})
            return chosen
        self.portal(answer)
        self.assert_succeeds()

    def test_responses_of_others_are_not_heard(self):
        def answer(portal, handle):
            self.shot.write_bytes(PNG)
            other = other_program(self.desktop)
            portal.respond(handle, 1, {}, other)
            other.close_sync(None)
            portal.respond(handle + "x", 1, {})
            portal.after(lambda: portal.respond(handle, 0, {"uri": text(self.shot.as_uri())}))
            return handle
        self.portal(answer)
        self.assert_succeeds()

    def test_the_bus_is_found_in_the_runtime_folder(self):
        self.answers()
        address = self.environment.pop("DBUS_SESSION_BUS_ADDRESS")
        os.symlink(address.removeprefix("unix:path=").split(",")[0], self.desktop.folder / "bus")
        self.assert_succeeds()

    def test_an_older_picture_at_the_path_is_replaced(self):
        self.path.write_bytes(b"old")
        self.answers()
        self.assert_succeeds()

    def test_the_portals_file_may_be_at_the_path(self):
        self.shot = self.path
        self.answers()
        self.assert_succeeds()

    def test_refusal(self):
        def answer(portal, handle):
            portal.respond(handle, 1, {})
            return handle
        self.portal(answer)
        self.assert_fails(REFUSED, "does not permit")

    def test_failure(self):
        def answer(portal, handle):
            portal.respond(handle, 2, {})
            return handle
        self.portal(answer)
        self.assert_fails(PORTAL_FAILED, "ended the request with code 2; it has failed, or the user has refused "
                                         "earlier")

    def test_error(self):
        self.portal(lambda _portal, _handle: "org.freedesktop.portal.Error.Failed")
        self.assert_fails(PORTAL_FAILED, "not?now")

    def test_malformed_responses(self):
        for arguments in (tuple_of("(u)", (0,)), tuple_of("(a{sv}u)", ({}, 0)),
                          tuple_of("(ua{sv})", (0, {"uri": number(7)})), tuple_of("()", ())):
            with self.subTest(str(arguments)):
                def answer(portal, handle, arguments=arguments):
                    portal.send(handle, arguments)
                    return handle
                portal = Portal(self.desktop, answer)
                try:
                    self.assert_fails(PORTAL_FAILED, "malformed")
                finally:
                    portal.close()

    def test_response_without_a_picture(self):
        def answer(portal, handle):
            portal.respond(handle, 0, {"other": text("file:///")})
            return handle
        self.portal(answer)
        self.assert_fails(PORTAL_FAILED, "names no picture")

    def test_the_portal_ends(self):
        def answer(portal, handle):
            portal.after(portal.leave)
            return handle
        self.portal(answer)
        self.assert_fails(PORTAL_FAILED, "portal has ended")

    def test_no_portal(self):
        self.assert_fails(NO_PORTAL, "no Screenshot portal")

    def test_a_portal_without_screenshots(self):
        for error in ("UnknownMethod", "UnknownInterface", "UnknownObject"):
            with self.subTest(error):
                portal = Portal(self.desktop, lambda _portal, _handle, error=error:
                                "org.freedesktop.DBus.Error." + error)
                try:
                    self.assert_fails(NO_PORTAL, "no Screenshot portal")
                finally:
                    portal.close()

    def test_a_portal_that_cannot_be_started(self):
        service = self.desktop.services / "org.freedesktop.portal.Desktop.service"
        service.write_text("[D-BUS Service]\nName=org.freedesktop.portal.Desktop\n"
                           "Exec=/bin/false\n")
        self.assert_fails(NO_PORTAL, "no Screenshot portal")

    def test_no_session_bus(self):
        for address in ("unix:path=/nonexistent/bus", "nonsense", None):
            with self.subTest(address):
                self.environment["DBUS_SESSION_BUS_ADDRESS"] = address
                if address is None:
                    del self.environment["DBUS_SESSION_BUS_ADDRESS"]
                self.assert_fails(NO_SESSION_BUS, "no session bus")

    def test_a_bus_that_hangs_up(self):
        path = self.desktop.folder / "hung"
        with socket.socket(socket.AF_UNIX) as server:
            server.bind(str(path))
            server.listen()
            thread = threading.Thread(target=lambda: server.accept()[0].close())
            thread.start()
            self.environment["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={path}"
            self.assert_fails(NO_SESSION_BUS, "no session bus")
            thread.join()


class FileTest(PortalTest):
    """What the portal has left."""

    def assert_kept(self, words, path=None):
        path = path or self.shot
        before = os.lstat(path)
        self.assert_fails(PORTAL_FAILED, words)
        self.assertEqual(os.lstat(path).st_ino, before.st_ino)

    def test_escaped_characters_in_its_name(self):
        self.shot = self.pictures / "Shot 1 100% – ü.png"
        self.answers()
        self.assert_succeeds()
        self.assertEqual(os.listdir(self.pictures), [])

    def test_other_addresses(self):
        self.shot.write_bytes(PNG)
        for uri in (str(self.shot), f"http://localhost{self.shot}", f"file://elsewhere{self.shot}",
                    f"file:{self.shot.name}", f"{self.shot.as_uri()}?x", f"{self.shot.as_uri()}%00",
                    f"{self.shot.as_uri()}%4", "x"):
            with self.subTest(uri):
                portal = self.answers(uri, prepare=lambda: os.utime(self.shot))
                self.assert_kept("names no file")
                portal.close()

    def test_missing_file(self):
        self.answers(prepare=lambda: None)
        self.assert_fails(PORTAL_FAILED, "No such file")

    def test_symbolic_link(self):
        target = self.desktop.folder / "private"

        def prepare():
            target.write_bytes(PNG)
        os.symlink(target, self.shot)
        self.answers(prepare=prepare)
        self.assert_kept("symbolic link")
        self.assertTrue(target.exists())

    def test_pipe_and_folder(self):
        os.mkfifo(self.shot)
        portal = self.answers(prepare=lambda: None)
        self.assert_kept("not a regular file")
        portal.close()
        self.answers(self.pictures.as_uri(), prepare=lambda: None)
        self.assert_kept("not a regular file", self.pictures)

    def test_older_file(self):
        self.shot.write_bytes(PNG)
        os.utime(self.shot, (1_000_000_000, 1_000_000_000))
        self.answers(prepare=lambda: None)
        self.assert_kept("older than the request")

    def test_foreign_file(self):
        if os.geteuid() == 0:
            def prepare():
                self.shot.write_bytes(PNG)
                os.chown(self.shot, 65534, 65534)
            self.shot.touch()
            self.answers(prepare=prepare)
            self.assert_kept("belongs to another user")
        else:
            system = pathlib.Path("/etc/passwd")
            self.answers(system.as_uri(), prepare=lambda: None)
            self.assert_kept("belongs to another user", system)

    def test_no_png(self):
        for data in (b"", b"\x89PNG", b"GIF89a" + bytes(100), PNG[1:]):
            with self.subTest(data[:8]):
                portal = self.answers(data=data)
                self.assert_fails(NOT_PNG, "not a PNG")
                self.assertEqual(os.listdir(self.pictures), [])
                portal.close()

    def test_path_that_cannot_be_written(self):
        self.answers()
        self.path = self.folder / "missing" / "picture.png"
        self.assert_fails(PATH_UNWRITABLE, "cannot write")
        self.assertEqual(os.listdir(self.pictures), [])


class ProgramTest(PortalTest):
    """The portal is asked only if the program does not run."""

    def test_a_running_program_is_asked_instead(self):
        portal = self.answers()
        name = hashlib.sha256(b"wayland-7").hexdigest()[:16]
        with socket.socket(socket.AF_UNIX) as server:
            server.bind(str(self.desktop.folder / f"quellora-{name}.socket"))
            server.listen()

            def refuse():
                with server.accept()[0] as peer:
                    peer.recv(100)
                    peer.sendall(b"refused: not today\n")
            thread = threading.Thread(target=refuse)
            thread.start()
            self.assert_fails(SCREEN_UNREADABLE, "not today")
            thread.join()
        self.assertEqual(portal.requests, [])
        # The socket's file stays when the program has crashed.
        self.assert_succeeds()

    def test_the_bus_library_is_not_linked(self):
        libraries = subprocess.run(["ldd", TOOL], capture_output=True, text=True, check=True).stdout
        self.assertNotIn("systemd", libraries)
        self.assertNotIn("dbus", libraries)


if __name__ == "__main__":
    unittest.main()
