"""Captures while windows are created, changed and destroyed: none fails, and none contains an
excluded window."""

import os
import random
import threading
import unittest

from Xlib import X, Xatom, display

from picture import capture
from screen import CAPTURE_EXCLUDE, ROOT_COLOUR, Screen

WITH_COMPOSITOR = os.environ.get("CAPTURE_TEST_COMPOSITOR") == "1"
EXCLUDED = 0xff00ff
ROUNDS = 40


class Churn(threading.Thread):
    """An X client that continuously creates, moves and destroys windows."""

    def __init__(self, name):
        super().__init__(daemon=True)
        self.display = display.Display(name)
        self.display.set_error_handler(lambda error, request: None)
        self.stopping = threading.Event()
        self.iterations = 0
        self.random = random.Random(1)

    def run(self):
        root = self.display.screen().root
        while not self.stopping.is_set():
            pick = self.random.randrange
            window = root.create_window(pick(-50, 500), pick(-50, 400), pick(20, 300),
                                        pick(20, 300), pick(0, 4), X.CopyFromParent,
                                        X.InputOutput, X.CopyFromParent, override_redirect=1,
                                        background_pixel=0x808080)
            child = window.create_window(3, 3, 20, 20, 0, X.CopyFromParent,
                                         background_pixel=0x404040)
            child.map()
            window.map()
            self.display.sync()
            window.configure(x=pick(-50, 500), y=pick(-50, 400), width=pick(20, 300))
            self.display.sync()
            window.destroy()
            self.iterations += 1
        self.display.close()


class MovingPanel(threading.Thread):
    """An excluded window that is continuously moved, hidden and shown."""

    def __init__(self, name):
        super().__init__(daemon=True)
        self.display = display.Display(name)
        self.stopping = threading.Event()
        self.iterations = 0
        self.random = random.Random(2)

    def run(self):
        root = self.display.screen().root
        window = root.create_window(200, 150, 100, 80, 0, X.CopyFromParent, X.InputOutput,
                                    X.CopyFromParent, override_redirect=1,
                                    background_pixel=EXCLUDED)
        window.change_property(self.display.intern_atom(CAPTURE_EXCLUDE), Xatom.CARDINAL, 32, [1])
        while not self.stopping.is_set():
            window.map()
            for _ in range(5):
                window.configure(x=self.random.randrange(500), y=self.random.randrange(400))
                self.display.sync()
            window.unmap()
            self.iterations += 1
        self.display.close()


class VanishingTest(unittest.TestCase):
    def setUp(self):
        self.screen = Screen(compositor=[] if WITH_COMPOSITOR else None)
        self.addCleanup(self.screen.close)
        self.screen.fill_root()

    def start(self, thread):
        thread.start()

        def stop_thread():
            thread.stopping.set()
            thread.join(30)

        self.addCleanup(stop_thread)
        return thread

    def test_vanishing_windows(self):
        self.screen.window((100, 80, 300, 250), EXCLUDED, excluded=True)
        churns = [self.start(Churn(self.screen.name)) for _ in range(2)]
        for _ in range(ROUNDS):
            picture = capture(self.screen, "-C")
            self.assertNotIn(EXCLUDED, picture.colours((0, 0, 640, 480)))
        self.assertTrue(all(churn.iterations > 0 for churn in churns))

    def test_moving_panel(self):
        """Without a compositor, which may briefly show a moved window at its old position."""
        if WITH_COMPOSITOR:
            self.screen = Screen()
            self.addCleanup(self.screen.close)
            self.screen.fill_root()
        panel = self.start(MovingPanel(self.screen.name))
        for _ in range(ROUNDS):
            picture = capture(self.screen)
            self.assertEqual(picture.colours((0, 0, 640, 480)), {ROOT_COLOUR})
        self.assertGreater(panel.iterations, 0)

    def test_several_captures_at_once(self):
        self.screen.window((100, 80, 300, 250), EXCLUDED, excluded=True)
        problems = []

        def capture_repeatedly(number):
            view = type("View", (), {"environment": self.screen.environment,
                                     "folder": os.path.join(self.screen.folder, str(number))})
            os.mkdir(view.folder)
            try:
                for _ in range(8):
                    if EXCLUDED in capture(view).colours((0, 0, 640, 480)):
                        problems.append("the excluded window is in the picture")
            except AssertionError as error:
                problems.append(str(error))

        threads = [threading.Thread(target=capture_repeatedly, args=(number,))
                   for number in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(problems, [])


if __name__ == "__main__":
    unittest.main()
