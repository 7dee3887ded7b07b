"""Finds and uses controls by accessible role and name."""

import re
import time
import warnings

from .waiting import PATIENCE, wait_until

#: Names of the press action for different kinds of controls.
_PRESS_NAMES = ("press", "click", "toggle", "activate", "jump")

#: Roles that continue a line of the page instead of starting a new one.
_INLINE_ROLES = ("label", "static", "link", "text")


class Accessibility:
    """The program's controls as exposed to assistive technology."""

    def __init__(self, app):
        self._app = app
        self._api = None

    @property
    def api(self):
        """The library, loaded lazily because it binds to the current session bus."""
        if self._api is None:
            # The introspected interface names are marked as deprecated.
            warnings.simplefilter("ignore", DeprecationWarning)
            warnings.simplefilter("ignore", ImportWarning)
            import gi  # pylint: disable=import-outside-toplevel
            gi.require_version("Atspi", "2.0")
            from gi.repository import Atspi, GLib  # pylint: disable=import-outside-toplevel
            Atspi.init()
            Atspi.set_timeout(5000, 15000)
            self._api = (Atspi, GLib)
        return self._api

    def _pump(self):
        context = self.api[1].MainContext.default()
        while context.iteration(False):
            pass

    def root(self):
        """The program's root node, or None before it has registered."""
        atspi, glib = self.api
        self._pump()
        desktop = atspi.get_desktop(0)
        try:
            for index in range(desktop.get_child_count()):
                child = desktop.get_child_at_index(index)
                if child and child.get_process_id() == self._app.process.pid:
                    child.set_cache_mask(atspi.Cache.NONE)
                    return child
        except glib.Error:
            return None
        return None

    def walk(self, node=None, depth=0):
        """All nodes below a node (the program by default), parents first, as (depth, node)."""
        node = node or self.root()
        if node is None:
            return
        glib = self.api[1]
        try:
            children = [node.get_child_at_index(index) for index in range(node.get_child_count())]
        except glib.Error:
            return
        for child in children:
            if child is not None:
                yield depth, child
                yield from self.walk(child, depth + 1)

    def _matches(self, node, name, role):
        try:
            if role and node.get_role_name() != role:
                return False
            own = node.get_name()
            return own == name if isinstance(name, str) else bool(name.search(own or ""))
        except self.api[1].Error:
            return False

    def has_state(self, node, *names):
        """Whether a node has all the named states, e.g. "SHOWING", "SENSITIVE"."""
        atspi, glib = self.api
        try:
            states = node.get_state_set()
            return all(states.contains(getattr(atspi.StateType, name)) for name in names)
        except glib.Error:
            return False

    def shown(self, node=None):
        """All shown nodes below a node (the program by default), parents first."""
        node = node or self.root()
        if node is None:
            return
        try:
            children = [node.get_child_at_index(index) for index in range(node.get_child_count())]
        except self.api[1].Error:
            return
        for child in children:
            # Children of hidden nodes are hidden too.
            if child is not None and self.has_state(child, "SHOWING"):
                yield child
                yield from self.shown(child)

    def windows(self):
        """The program's windows on the screen."""
        root = self.root()
        if root is None:
            return []
        try:
            children = [root.get_child_at_index(index) for index in range(root.get_child_count())]
        except self.api[1].Error:
            return []
        return [child for child in children if child and self.has_state(child, "SHOWING")]

    def find(self, name, role=None):
        """The first shown control with this name (text or expression), or None."""
        for node in self.shown():
            if self._matches(node, name, role):
                return node
        return None

    def find_all(self, name, role=None):
        """Every shown control with this name."""
        return [node for node in self.shown() if self._matches(node, name, role)]

    def wait_for(self, name, role=None, focused=False, enabled=None, timeout=PATIENCE):
        """Waits for a shown control, optionally with the focus, enabled or disabled."""
        def look():
            node = self.find(name, role)
            if node is None or (focused and not self.has_state(node, "FOCUSED")):
                return None
            if enabled is not None and self.is_enabled(node) != enabled:
                return None
            return node
        try:
            return wait_until(look, timeout, f"the control {name!r}")
        except AssertionError as error:
            raise AssertionError(self._app.describe(f"{error}\n{self.dump()}")) from None

    def wait_gone(self, name, role=None, timeout=PATIENCE):
        """Waits until no control with this name is shown."""
        wait_until(lambda: self.find(name, role) is None, timeout,
                   f"the control {name!r} to disappear")

    def focused_name(self):
        """Name of the control with the keyboard focus; empty for the page or none."""
        nodes = [node for node in (self.root(),) if node]
        while nodes:
            node = nodes.pop()
            try:
                for index in range(node.get_child_count()):
                    child = node.get_child_at_index(index)
                    # Skips hidden parts and the content of the page.
                    if child is None or not self.has_state(child, "SHOWING"):
                        continue
                    if child.get_role_name() == "panel" and child.get_name() == "Response":
                        continue
                    if self.has_state(child, "FOCUSED") and child.get_name():
                        return child.get_name()
                    nodes.append(child)
            except self.api[1].Error:
                continue
        return ""

    def wait_focused(self, name, timeout=PATIENCE):
        """Waits until the control with this name, or the page ("") has the keyboard focus."""
        seen = [None]

        def look():
            seen[0] = self.focused_name()
            return seen[0] == name
        try:
            wait_until(look, timeout, f"the focus on {name!r}")
        except AssertionError as error:
            raise AssertionError(f"{error}; it is on {seen[0]!r}") from None

    def is_enabled(self, node):
        """Whether a control is enabled."""
        return self.has_state(node, "SENSITIVE")

    def press(self, name, role=None):
        """Presses a control as a screen reader does."""
        node = self.wait_for(name, role, enabled=True)
        actions = node.get_action_iface()
        if actions is None:
            raise AssertionError(f"the control {name!r} offers no action")
        offered = [actions.get_action_name(index).lower()
                   for index in range(actions.get_n_actions())]
        for wanted in _PRESS_NAMES:
            if wanted in offered:
                actions.do_action(offered.index(wanted))
                return node
        raise AssertionError(f"the control {name!r} offers only {offered}")

    def focus(self, name, role=None):
        """Focuses a control as a screen reader does; the page's controls have no press action."""
        node = self.wait_for(name, role, enabled=True)
        actions = node.get_action_iface()
        offered = [actions.get_action_name(index).lower()
                   for index in range(actions.get_n_actions())]
        actions.do_action(offered.index("setfocus"))
        return self.wait_for(name, role, focused=True)

    def bounds(self, node):
        """(x, y, width, height) of a node on the screen, in pixels."""
        atspi = self.api[0]
        box = node.get_component_iface().get_extents(atspi.CoordType.SCREEN)
        # Qt reports logical pixels.
        scale = int(self._app.environment.get("QT_SCALE_FACTOR", "1"))
        return box.x * scale, box.y * scale, box.width * scale, box.height * scale

    def click(self, name, role=None, button=1):
        """Clicks the middle of a control with the real pointer."""
        x, y, width, height = self.settled_bounds(name, role)
        self._app.desktop.click(x + width // 2, y + height // 2, button)

    def settled_bounds(self, name, role=None):
        """Bounds of a control once two consecutive readings agree, because it may be moving."""
        last = [None]

        def look():
            now = self.bounds(self.wait_for(name, role))
            same, last[0] = now == last[0] and now[2] > 0, now
            return now if same else None
        return wait_until(look, what=f"the control {name!r} to come to rest", interval=0.05)

    def text_of(self, node):
        """A node's text: from its text interface if it has one, else its name."""
        try:
            text = node.get_text_iface()
            if text is not None:
                count = text.get_character_count()
                if count > 0:
                    return self.api[0].Text.get_text(text, 0, count)
                if node.get_role_name() in ("text", "entry", "password text"):
                    return ""
            return node.get_name() or ""
        except self.api[1].Error:
            return ""

    def page_text(self):
        """The text of the response page, in reading order."""
        page = self.find(re.compile(""), "document web")
        if page is None:
            return ""
        return self._block_text(page)

    def _block_text(self, node):
        """Text below a node: inline pieces concatenated, blocks on separate lines."""
        lines = [""]
        try:
            for index in range(node.get_child_count()):
                child = node.get_child_at_index(index)
                if child is None:
                    continue
                inline = child.get_role_name() in _INLINE_ROLES
                text = (self._block_text(child) if child.get_child_count() > 0
                        else self.text_of(child))
                if inline:
                    lines[-1] += text
                else:
                    lines += [text, ""]
        except self.api[1].Error:
            pass
        return "\n".join(line for line in lines if line)

    def wait_for_page_text(self, text, timeout=PATIENCE):
        """Waits until the response page shows a text; returns the whole page text."""
        seen = [""]

        def look():
            seen[0] = self.page_text()
            return seen[0] if text in seen[0] else None
        try:
            return wait_until(look, timeout, f"{text!r} in the page", interval=0.1)
        except AssertionError as error:
            raise AssertionError(self._app.describe(
                f"{error}; it shows {seen[0]!r}\n{self.dump()}")) from None

    def dump(self):
        """The tree as text, for failures."""
        lines = []
        started = time.monotonic()
        for depth, node in self.walk():
            if time.monotonic() - started > 10:
                lines.append("…")
                break
            try:
                flags = "".join(letter for letter, state in
                                (("s", "SHOWING"), ("e", "SENSITIVE"), ("f", "FOCUSED"))
                                if self.has_state(node, state))
                lines.append(f"{'  ' * depth}{node.get_role_name()} {node.get_name()!r} [{flags}]")
            except self.api[1].Error:
                continue
        return "\n".join(lines)
