"""The desktop file, metadata, manual pages, completions and unit that the packages contain."""

import configparser
import json
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest
import unittest.mock
import xml.etree.ElementTree as ElementTree

from paths import BUILD, LINUX, ROOT, VERSION

MANUALS = sorted((LINUX / "man").glob("*.1"))
COMPLETIONS = sorted((LINUX / "completions").iterdir())
COMMANDS = ("capture", "capture-no-send", "capture-window", "capture-region",
            "capture-last-region", "toggle", "clear", "new-thread", "toggle-clicks", "retry",
            "opacity-up", "opacity-down", "prompt", "show", "quit", "export")
OPTIONS = {"--help", "--version", "--or-start"}
EXPORT_OPTIONS = {"--format", "--force", "--list"}
# QML modules of Debian by the import that needs them.
MODULES = {
    "QtQuick": {"qml6-module-qtqml", "qml6-module-qtqml-models",
                "qml6-module-qtqml-workerscript", "qml6-module-qtquick"},
    "QtQuick.Controls.Basic": {"qml6-module-qtquick-controls", "qml6-module-qtquick-templates"},
    "QtQuick.Window": {"qml6-module-qtquick-window"},
    "QtWebChannel": {"qml6-module-qtwebchannel"},
    "QtWebEngine": {"qml6-module-qtwebengine"},
}


def needs(tool, package):
    """Skips a test without the tool."""
    return unittest.skipUnless(shutil.which(tool), f"needs the Debian package {package}")


def run(*command, **options):
    """(exit status, both outputs) of a command."""
    done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, check=False,
                          stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL, text=True,
                          timeout=60, **options)
    return done.returncode, done.stdout


def manual(name):
    """A manual page's text: fonts and escapes removed."""
    text = (LINUX / "man" / f"{name}.1").read_text()
    return re.sub(r"\\f[BIR]", "", text).replace("\\-", "-")


def described(text, section):
    """The first words of the tagged paragraphs in a section of a manual page."""
    body = re.search(rf'^\.SH "?{section}"?\n(.*?)(?=^\.SH|\Z)', text, re.M | re.S).group(1)
    tags = re.findall(r"^\.TP\n\.[BIR]+ (.*)$", body, re.M)
    return {word for tag in tags for word in tag.replace('"', " ").replace(",", " ").split()}


def complete(script, *words):
    """What the shell offers for the last word."""
    shell = '. /usr/share/bash-completion/bash_completion; . "$1"; shift; ' \
        'COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); COMP_LINE="$*"; COMP_POINT=${#COMP_LINE}; ' \
        'COMP_TYPE=9; COMP_KEY=9; f=$(complete -p "$1"); f=${f#*-F }; ${f%% *}; ' \
        'printf "%s\\n" "${COMPREPLY[@]}"'
    status, output = run("bash", "-c", shell, "bash", LINUX / "completions" / script, *words)
    return set(output.split()) if status == 0 else output


class LinuxFilesTest(unittest.TestCase):
    def assert_quiet(self, *command):
        status, output = run(*command, cwd=ROOT)
        self.assertEqual((status, output), (0, ""), command)

    @needs("desktop-file-validate", "desktop-file-utils")
    def test_the_desktop_file_is_valid(self):
        self.assert_quiet("desktop-file-validate", LINUX / "quellora.desktop")
        self.assert_quiet("desktop-file-validate", LINUX / "quellora-screenshot.desktop")

    def test_kwin_is_told_the_programs_own_path(self):
        """Not that of the launcher, which is another program."""
        desktop = configparser.ConfigParser(interpolation=None)
        desktop.optionxform = str
        desktop.read(LINUX / "quellora-screenshot.desktop")
        entry = desktop["Desktop Entry"]
        self.assertEqual(entry["Exec"], "/usr/lib/quellora/quellora")
        self.assertEqual(entry["NoDisplay"], "true")
        self.assertEqual(entry["X-KDE-DBUS-Restricted-Interfaces"], "org.kde.KWin.ScreenShot2")

    def test_the_symbol_can_be_recoloured(self):
        """Desktops recolour filled shapes of their class, but no lines."""
        text = (ROOT / "assets/icons/quellora-symbolic.svg").read_text()
        self.assertNotIn("stroke", text)
        shapes = re.findall(r"<(?:path|rect|circle|ellipse|polygon)\b[^>]*>", text)
        self.assertTrue(shapes)
        for shape in shapes:
            self.assertIn('class="ColorScheme-Text"', shape)
            self.assertIn('fill="currentColor"', shape)
        self.assertIn('id="current-color-scheme"', text)

    def test_desktop_actions_use_commands(self):
        desktop = configparser.ConfigParser(interpolation=None)
        desktop.optionxform = str
        desktop.read(LINUX / "quellora.desktop")
        names = desktop["Desktop Entry"]["Actions"].rstrip(";").split(";")
        self.assertEqual({f"Desktop Action {name}" for name in names},
                         set(desktop.sections()) - {"Desktop Entry"})
        self.assertEqual([desktop[f"Desktop Action {name}"]["Exec"] for name in names],
                         [f"quellora --or-start {command}" for command in
                          ("capture", "capture-no-send", "toggle", "new-thread")])

    @needs("appstreamcli", "appstream")
    def test_the_metadata_is_valid(self):
        status, output = run("appstreamcli", "validate", "--pedantic", "--no-net", "--no-color",
                             LINUX / "com.quellora.app.metainfo.xml")
        self.assertEqual(status, 0, output)
        self.assertNotRegex(output, r"(?m)^[EWIP]: ")

    def test_the_metadata_and_the_changelog_have_this_version(self):
        metadata = ElementTree.parse(LINUX / "com.quellora.app.metainfo.xml")
        self.assertEqual(metadata.find("releases/release").get("version"), VERSION)
        self.assertEqual(metadata.findtext("launchable"), "quellora.desktop")
        release = re.search(r"PACKAGE_RELEASE (\d+)\)", (LINUX / "Debian.cmake").read_text()).group(1)
        first = (LINUX / "debian" / "changelog").read_text().splitlines()[0]
        self.assertTrue(first.startswith(f"quellora ({VERSION}-{release}) "), first)

    @needs("mandoc", "mandoc")
    def test_manuals_have_no_mistakes(self):
        self.assertEqual(len(MANUALS), 3)
        for page in MANUALS:
            with self.subTest(page.name):
                self.assert_quiet("mandoc", "-T", "lint", "-W", "warning", page)

    @needs("groff", "groff-base")
    def test_manuals_are_formatted_without_warnings(self):
        for page in MANUALS:
            with self.subTest(page.name):
                self.assert_quiet("groff", "-man", "-Tutf8", "-ww", "-z", "-rLL=100n", page)

    def test_the_manual_and_the_help_of_the_backend_agree(self):
        status, output = run(BUILD / "bin" / "quellora-backend", "--help")
        self.assertEqual(status, 0, output)
        options, commands = output.split("Commands:")
        commands = set(re.findall(r"^  ([a-z][\w-]+)", commands, re.M))
        options = set(re.findall(r"--[a-z][\w-]+", re.sub(r"  +[^-].*", "", options)))
        self.assertGreater(len(commands), 10)
        text = manual("quellora-backend")
        self.assertEqual(commands - described(text, "COMMANDS"), set())
        self.assertEqual(options - described(text, "OPTIONS"), set())
        script = (LINUX / "completions" / "quellora-backend").read_text()
        self.assertEqual({word for word in commands | options
                          if not re.search(rf"(?<![\w-]){word}(?![\w-])", script)}, set())

    def test_the_manual_and_the_help_of_the_capture_tool_agree(self):
        status, output = run(BUILD / "bin" / "quellora-screencapture", "--help")
        self.assertEqual(status, 0, output)
        options = set(re.findall(r"^  (-[\w-]+)", output, re.M))
        text = manual("quellora-screencapture")
        self.assertEqual(options, described(text, "OPTIONS"))
        statuses = set(re.findall(r"^  (\d+) ", output, re.M))
        self.assertEqual(statuses, described(text, "EXIT STATUS"))

    def test_the_manual_of_the_app_has_every_command(self):
        text = manual("quellora")
        self.assertEqual(described(text, "COMMANDS"), set(COMMANDS))
        self.assertEqual(described(text, "OPTIONS"),
                         OPTIONS | EXPORT_OPTIONS | {"-h", "-v"})

    def test_the_help_of_the_app_has_the_same_commands(self):
        with tempfile.TemporaryDirectory() as home:
            status, output = run(BUILD / "bin" / "quellora", "--help",
                                 env={"PATH": os.environ["PATH"], "HOME": home,
                                      "XDG_RUNTIME_DIR": home})
        self.assertEqual(status, 0, output)
        self.assertEqual(set(re.findall(r"^  ([a-z][a-z-]+)\b", output, re.M)), set(COMMANDS))
        self.assertEqual(set(re.findall(r"--[a-z-]+", output)), OPTIONS | EXPORT_OPTIONS)

    def test_completions_are_correct_shell(self):
        for script in COMPLETIONS:
            with self.subTest(script.name):
                self.assert_quiet("bash", "-n", script)

    @needs("shellcheck", "shellcheck")
    def test_scripts_pass_shellcheck(self):
        self.assert_quiet("shellcheck", "-s", "bash", *COMPLETIONS)
        self.assert_quiet("shellcheck", "-x", "scripts/test-packages",
                          "tests/packaging/user-service", "tests/packaging/system-service")

    @unittest.skipUnless(pathlib.Path("/usr/share/bash-completion/bash_completion").is_file(),
                         "needs the Debian package bash-completion")
    def test_the_shell_completes(self):
        self.assertEqual(complete("quellora", "quellora", ""), set(COMMANDS))
        self.assertEqual(complete("quellora", "quellora", "cap"), {word for word in COMMANDS if word.startswith("capture")})
        self.assertEqual(complete("quellora", "quellora", "--"), OPTIONS)
        self.assertEqual(complete("quellora", "quellora", "--or-start", "to"), {"toggle", "toggle-clicks"})
        self.assertEqual(complete("quellora", "quellora", "capture", ""), set())
        with tempfile.TemporaryDirectory() as home:
            name = "11111111-2222-4333-8444-555555555555"
            folder = pathlib.Path(home) / "Quellora" / "sessions" / name
            folder.mkdir(parents=True)
            stamp = "2026-01-03T10:00:00Z"
            (folder / "session.json").write_text(json.dumps(
                {"id": name, "createdAt": stamp, "updatedAt": stamp, "notes": [], "turns": [],
                 "screenshots": []}))
            path = f"{BUILD / 'bin'}:{os.environ['PATH']}"
            with unittest.mock.patch.dict(os.environ, {"XDG_DATA_HOME": home, "PATH": path}):
                self.assertEqual(complete("quellora", "quellora", "export", ""),
                                 {name, "latest", "--list"})
        self.assertEqual(complete("quellora", "quellora", "export", "latest", "--"),
                         {"--format", "--force"})
        self.assertEqual(complete("quellora", "quellora", "export", "x", "--format", ""),
                         {"md", "html", "pdf"})
        self.assertEqual(complete("quellora", "quellora", "export", "--list", ""), set())
        self.assertEqual(complete("quellora-backend", "quellora-backend", "set-"),
                         {"set-password", "set-cap", "set-plan", "set-prompt"})
        self.assertEqual(complete("quellora-backend", "quellora-backend", "serve", "--p"),
                         {"--port", "--plan", "--password-stdin"})
        self.assertEqual(complete("quellora-backend", "quellora-backend", "serve", ""), set())

    def test_the_packages_depend_on_every_imported_module(self):
        imports = {name for path in (ROOT / "src").rglob("*.qml")
                   for name in re.findall(r"^import ([\w.]+)", path.read_text(), re.M)}
        imports = {name for name in imports if not name.startswith("Quellora.")}
        self.assertEqual(imports, MODULES.keys())
        listed = re.search(r"QUELLORA_DEBIAN_QML_MODULES\n(.*?)\)",
                           (LINUX / "Debian.cmake").read_text(), re.S).group(1).split()
        self.assertEqual(set(listed), set.union(*MODULES.values()))

    def test_the_packages_depend_on_libraries_loaded_by_name(self):
        loaded = {name + version for folder in ("src", "tools")
                  for path in (ROOT / folder).rglob("*.cpp")
                  for name, version in re.findall(r'"(lib[a-z0-9-]+)\.so\.(\d+)"',
                                                  path.read_text())}
        self.assertTrue(loaded)
        self.assertLessEqual(loaded, set((LINUX / "Debian.cmake").read_text().split()))

    @needs("systemd-analyze", "systemd")
    def test_the_units_are_valid_and_confined(self):
        for manager, folder in (("--user", LINUX), ("--system", LINUX / "system")):
            with self.subTest(manager):
                self.check_unit(manager, (folder / "quellora-backend.service").read_text())

    def check_unit(self, manager, text):
        with tempfile.TemporaryDirectory() as folder:
            # Of the unit's program, only its existence is checked.
            program = BUILD / "bin" / "quellora-backend"
            unit = pathlib.Path(folder) / "quellora-backend.service"
            unit.write_text(re.sub(r"(?m)^Documentation=.*\n", "", text)
                            .replace("/usr/bin/quellora-backend", str(program)))
            status, output = run("systemd-analyze", manager, "--man=no", "verify", unit,
                                 env=os.environ | {"XDG_RUNTIME_DIR": folder})
            self.assertEqual((status, output), (0, ""))
            # Exposure from 0 to 10, times ten.
            status, output = run("systemd-analyze", "--offline=true", "--threshold=20",
                                 "--no-pager", "security", unit)
            self.assertEqual(status, 0, output)

    def test_the_systems_unit_waits_longer_than_the_longest_grace_of_the_guide(self):
        unit = (LINUX / "system" / "quellora-backend.service").read_text()
        patience = int(re.search(r"TimeoutStopSec=(\d+)", unit).group(1))
        graces = [int(seconds) for seconds in re.findall(
            r"stop_grace_seconds = (\d+)", (ROOT / "docs" / "TEAM.md").read_text())]
        self.assertTrue(graces)
        # Answers that outlast the grace take a moment to end.
        self.assertGreaterEqual(patience, max(graces) + 10)


if __name__ == "__main__":
    unittest.main()
