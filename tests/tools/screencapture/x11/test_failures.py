"""Failures: a distinct exit status, exactly one line on standard error, nothing on standard output
and no file left behind."""

import os
import resource
import shutil
import signal
import stat
import subprocess
import tempfile
import unittest

from picture import TOOL, Picture, capture, run
from screen import Screen, stop, wait_until

(UNKNOWN_OPTION, MISSING_PATH, TOO_MANY_PATHS, NO_DISPLAY, SCREEN_UNREADABLE, NO_COMPOSITE,
 IMAGE_TOO_LARGE, PATH_UNWRITABLE, DISK_FULL) = range(2, 11)
EXCLUDED = 0xff00ff


def limit_file_size():
    resource.setrlimit(resource.RLIMIT_FSIZE, (100_000, 100_000))


class FailureTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="quellora-capture-test-")
        self.addCleanup(shutil.rmtree, self.folder, True)
        self.path = os.path.join(self.folder, "picture.png")

    def assert_fails(self, status, words, arguments, environment, **options):
        result = run(arguments, environment, **options)
        self.assertEqual((result.returncode, result.stdout), (status, ""), result.stderr)
        self.assertTrue(result.stderr.startswith("quellora-screencapture: "), result.stderr)
        self.assertEqual(result.stderr.count("\n"), 1, result.stderr)
        self.assertTrue(result.stderr.endswith("\n"), result.stderr)
        self.assertIn(words, result.stderr)
        self.assertEqual(os.listdir(self.folder), [])


class CommandLineTest(FailureTest):
    """Errors that occur before the display is opened."""

    def setUp(self):
        super().setUp()
        self.environment = {"PATH": os.environ["PATH"], "LC_ALL": "C"}

    def test_unknown_option(self):
        for option in ("-q", "-xC", "--silent", "-x=1"):
            self.assert_fails(UNKNOWN_OPTION, "unknown option " + option, [option, self.path],
                              self.environment)

    def test_missing_path(self):
        for arguments in ([], ["-x"], ["-x", "-C"], ["--"], [""]):
            self.assert_fails(MISSING_PATH, "no path", arguments, self.environment)

    def test_more_than_one_path(self):
        self.assert_fails(TOO_MANY_PATHS, "more than one path: b", ["-x", self.path, "b"],
                          self.environment)

    def test_no_display(self):
        self.assert_fails(NO_DISPLAY, "DISPLAY is not set", ["-x", "-C", self.path],
                          self.environment)
        self.assert_fails(NO_DISPLAY, "cannot open the display :98765", [self.path],
                          dict(self.environment, DISPLAY=":98765"))
        self.assert_fails(NO_DISPLAY, "cannot open the display no such", [self.path],
                          dict(self.environment, DISPLAY="no such"))

    def test_control_characters_are_replaced_in_messages(self):
        self.assert_fails(UNKNOWN_OPTION, "-a?b??[31m", ["-a\nb\r\x1b[31m"], self.environment)

    def test_help_and_version(self):
        result = run(["--help"], self.environment)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertTrue(result.stdout.startswith(
            "Usage: quellora-screencapture [-x] [-C] [--all | --window] PATH\n"))
        for status in range(11):
            self.assertIn("\n  %-3d " % status, result.stdout)
        result = run(["--version"], self.environment)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertRegex(result.stdout, r"^quellora-screencapture \d+\.\d+\.\d+\n$")

    def test_closed_standard_output(self):
        read_end, write_end = os.pipe()
        os.close(read_end)
        process = subprocess.Popen([TOOL, "--help"], env=self.environment, stdout=write_end)
        os.close(write_end)
        self.assertGreaterEqual(process.wait(60), 0, "killed by a signal")


class FileTest(FailureTest):
    @classmethod
    def setUpClass(cls):
        cls.screen = Screen()
        cls.addClassCleanup(cls.screen.close)

    def read(self):
        with open(self.path, "rb") as file:
            return file.read()

    def test_success(self):
        for arguments in (["-x", "-C", self.path], [self.path], ["-C", "--", self.path]):
            result = run(arguments, self.screen.environment)
            self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))
            picture = Picture(self.read())
            self.assertEqual((picture.width, picture.height), (640, 480))
            self.assertEqual(stat.S_IMODE(os.stat(self.path).st_mode), 0o600)
            self.assertEqual(os.listdir(self.folder), ["picture.png"])
            os.unlink(self.path)

    def test_replaces_existing_file(self):
        with open(self.path, "w", encoding="utf-8") as file:
            file.write("x" * 2_000_000)
        os.chmod(self.path, 0o644)
        self.assertEqual(run([self.path], self.screen.environment).returncode, 0)
        Picture(self.read())
        self.assertEqual(stat.S_IMODE(os.stat(self.path).st_mode), 0o600)
        self.assertEqual(os.listdir(self.folder), ["picture.png"])

    def test_relative_path(self):
        for path in ("picture.png", "./picture.png"):
            result = run(["-x", path], self.screen.environment, cwd=self.folder)
            self.assertEqual((result.returncode, result.stderr), (0, ""))
            Picture(self.read())
            os.unlink(self.path)
        result = run(["--", "-x"], self.screen.environment, cwd=self.folder)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertEqual(os.listdir(self.folder), ["-x"])

    def test_unwritable_path(self):
        environment = self.screen.environment
        for path in ("/no/such/folder/picture.png", "/proc/picture.png", self.folder,
                     self.folder + "/", self.folder + "/a/b.png"):
            self.assert_fails(PATH_UNWRITABLE, "cannot write " + path, [path], environment)
        self.assert_fails(PATH_UNWRITABLE, "File name too long",
                          [os.path.join(self.folder, "n" * 300)], environment)

    def test_only_regular_files_are_replaced(self):
        pipe = os.path.join(self.screen.folder, "pipe")
        os.mkfifo(pipe)
        self.addCleanup(os.unlink, pipe)
        self.assert_fails(PATH_UNWRITABLE, "not a regular file", [pipe], self.screen.environment)
        self.assertTrue(stat.S_ISFIFO(os.stat(pipe).st_mode))

    def test_no_space(self):
        self.assert_fails(DISK_FULL, "no space for " + self.path, ["-x", self.path],
                          self.screen.environment, preexec_fn=limit_file_size)

    def test_no_space_keeps_existing_file(self):
        with open(self.path, "w", encoding="utf-8") as file:
            file.write("older")
        result = run([self.path], self.screen.environment, preexec_fn=limit_file_size)
        self.assertEqual(result.returncode, DISK_FULL)
        self.assertEqual(self.read(), b"older")
        self.assertEqual(os.listdir(self.folder), ["picture.png"])

    def test_full_file_system(self):
        """Uses a private file system if the test may mount one, else a file size limit."""
        script = ("mount -t tmpfs -o size=64k tmpfs \"$1\" || exit 77; \"$2\" \"$1/picture.png\";"
                  " status=$?; ls -A \"$1\"; exit $status")
        result = subprocess.run(
            ["unshare", "--map-root-user", "--user", "--mount", "sh", "-c", script, "sh",
             self.folder, TOOL],
            env=self.screen.environment, capture_output=True, text=True, timeout=60, check=False)
        if result.returncode in (1, 77):
            self.test_no_space()
            return
        self.assertEqual((result.returncode, result.stdout), (DISK_FULL, ""), result.stderr)
        self.assertEqual(result.stderr.count("\n"), 1)
        self.assertIn("No space left on device", result.stderr)

    def test_killed_during_capture_leaves_no_partial_file(self):
        process = subprocess.Popen([TOOL, self.path], env=self.screen.environment)
        os.kill(self.screen.server.pid, signal.SIGSTOP)
        try:
            process.send_signal(signal.SIGTERM)
            process.wait(60)
        finally:
            os.kill(self.screen.server.pid, signal.SIGCONT)
        self.assertIn(os.listdir(self.folder), ([], ["picture.png"]))
        if os.listdir(self.folder):
            Picture(self.read())


class ServerTest(FailureTest):
    """Displays with missing extensions or unusual formats."""

    def screen(self, *arguments, **options):
        screen = Screen(*arguments, **options)
        self.addCleanup(screen.close)
        return screen

    def test_without_composite(self):
        screen = self.screen(arguments=["-extension", "Composite"])
        screen.fill_root()
        window = screen.window((100, 80, 120, 90), 0xc81e1e)
        self.assertEqual(capture(screen).colours((100, 80, 120, 90)), {0xc81e1e})
        screen.exclude(window)
        screen.display.sync()
        self.assert_fails(NO_COMPOSITE, "Composite", [self.path], screen.environment)

    def check_whole_capture(self, screen, environment=None):
        """Captures desktop and windows without an excluded window."""
        environment = environment or screen.environment
        screen.fill_root()
        screen.window((50, 40, 200, 150), 0xf80000)
        before = capture(screen)
        screen.window((100, 80, 120, 90), EXCLUDED, excluded=True)
        result = run(["-x", self.path], environment)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        with open(self.path, "rb") as file:
            picture = Picture(file.read())
        self.assertIsNone(picture.differences(before))
        return picture

    def test_without_shared_memory(self):
        self.check_whole_capture(self.screen(arguments=["-extension", "MIT-SHM"]))

    def test_over_the_network(self):
        screen = self.screen(arguments=["-listen", "tcp", "-ac"])
        environment = dict(screen.environment, DISPLAY="127.0.0.1" + screen.name)
        self.check_whole_capture(screen, environment)

    def test_without_small_extensions(self):
        for extension in ("DAMAGE", "RANDR", "SHAPE", "XFIXES"):
            with self.subTest(extension=extension):
                screen = self.screen(arguments=["-extension", extension])
                if extension == "XFIXES":  # Composite requires it
                    result = run(["-C", self.path], screen.environment)
                    self.assertEqual((result.returncode, result.stderr), (0, ""))
                else:
                    self.check_whole_capture(screen)

    def test_sixteen_bits(self):
        screen = self.screen("640x480x16")
        screen.fill_root(0x1234)
        screen.window((50, 40, 200, 150), 0xf81f)
        picture = capture(screen)
        self.assertEqual(picture[100, 100], 0xff00ff)
        self.assertEqual("%06x" % picture[500, 400],
                         "%02x%02x%02x" % (round(2 * 255 / 31), round(17 * 255 / 63),
                                           round(20 * 255 / 31)))
        before = picture
        screen.window((100, 80, 120, 90), 0x07e0, excluded=True)
        self.assertIsNone(capture(screen).differences(before))

    def test_thirty_bits(self):
        screen = self.screen("640x480x30")
        screen.fill_root(0x3ff << 20 | 0x200 << 10 | 0x004)
        before = capture(screen)
        self.assertEqual("%06x" % before[500, 400], "ff8001")
        screen.window((100, 80, 120, 90), 0x3ff, excluded=True)
        self.assertIsNone(capture(screen).differences(before))

    def test_palette_display(self):
        screen = self.screen("640x480x8")
        self.assert_fails(SCREEN_UNREADABLE, "palette", [self.path], screen.environment)

    def test_image_too_large(self):
        screen = self.screen("27000x27000x8")
        self.assert_fails(IMAGE_TOO_LARGE, "27000x27000", [self.path], screen.environment)

    def test_server_killed(self):
        screen = self.screen()
        os.kill(screen.server.pid, signal.SIGSTOP)
        process = subprocess.Popen([TOOL, self.path], env=screen.environment,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(stop, process)
        # A sleeping tool has connected and waits for the first reply.
        wait_until(lambda: self.is_sleeping(process.pid), "the tool to wait")
        screen.server.kill()
        output, errors = process.communicate(timeout=60)
        self.assertEqual((process.returncode, output, errors.count("\n")), (NO_DISPLAY, "", 1))
        self.assertEqual(os.listdir(self.folder), [])

    @staticmethod
    def is_sleeping(pid):
        with open("/proc/%d/stat" % pid, encoding="ascii") as file:
            return file.read().rsplit(")", 1)[1].split()[0] == "S"


if __name__ == "__main__":
    unittest.main()
