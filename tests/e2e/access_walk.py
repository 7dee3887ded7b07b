"""Checks a whole screen through accessibility: controls, names, states and Tab order."""

import re

from harness import wait_until

#: Roles of pressable controls.
PRESSABLE = {"push button", "check box", "radio button", "menu item", "list item", "link",
             "combo box", "toggle button"}
#: Roles of controls, enabled or not.
CONTROLS = PRESSABLE | {"document web", "text", "password text", "slider", "scroll bar", "list", "page tab"}
_PRESSES = {"press", "toggle", "click", "activate"}


class Node:
    """Snapshot of an accessible node."""

    def __init__(self, access, node):
        self.access = access
        self.node = node
        self.role = node.get_role_name()
        self.name = node.get_name() or ""
        self.description = node.get_description() or ""
        self.states = {state.value_nick for state in node.get_state_set().get_states()}
        actions = node.get_action_iface()
        count = actions.get_n_actions() if actions is not None else 0
        self.actions = {actions.get_action_name(index).lower() for index in range(count)}

    def __str__(self):
        return f"{self.role} {self.name!r}"

    @property
    def is_control(self):
        """Whether it is a control, enabled or not."""
        # Qt makes every text focusable for assistive technology.
        return (self.role in CONTROLS or bool(self.actions & _PRESSES)
                or ("focusable" in self.states and self.role != "label"))

    def has_focus(self):
        """Whether it has the keyboard focus."""
        return self.access.has_state(self.node, "FOCUSED")


class Screen:
    """Snapshot of the shown nodes below a node (the whole program by default)."""

    def __init__(self, app, below=None, scrolled=False):
        self.app = app
        self.access = app.access
        nodes = self.access.shown(below)
        if scrolled:
            # Includes nodes scrolled out of view, which cannot be distinguished from hidden ones.
            nodes = (node for _, node in self.access.walk(below))
        self.seen = [Node(self.access, node) for node in nodes]

    def problems(self):
        """Accessibility problems of the shown controls, as text."""
        found = []
        for item in self.seen:
            if not item.is_control:
                continue
            if not item.name.strip():
                found.append(f"{item}: no name")
            if item.actions & _PRESSES and item.role not in PRESSABLE:
                found.append(f"{item}: takes presses in this role")
            if item.description and item.description == item.name:
                found.append(f"{item}: says its name twice")
            if "focusable" in item.states and item.role in ("heading", "image"):
                found.append(f"{item}: takes the focus")
            if "focusable" in item.states and "sensitive" not in item.states:
                found.append(f"{item}: disabled, but takes the focus")
        return found

    def secrets(self, *texts):
        """Nodes that expose a secret."""
        return [str(item) for item in self.seen for text in texts
                if text in item.name + item.description + self.access.text_of(item.node)]

    def all(self, name, role=None):
        """Every node with this name (text or expression)."""
        def matches(item):
            same = item.name == name if isinstance(name, str) else name.search(item.name)
            return same and role in (None, item.role)
        return [item for item in self.seen if matches(item)]

    def get(self, name, role=None):
        """The first node with this name."""
        found = self.all(name, role)
        if not found:
            raise AssertionError(f"no {role or 'control'} {name!r}\n{self.access.dump()}")
        return found[0]

    def controls(self):
        """(name, role) of every shown control, in tree order."""
        return [(item.name, item.role) for item in self.seen if item.role in CONTROLS]

    def walk_with_tab(self, *names, key="tab"):
        """Presses Tab once for each name and once more, starting before the first.

        Every press must focus the named control, the last one the starting point. Repeated names
        refer to the controls in tree order.
        """
        used = {}
        stops = []
        for name in names:
            same = [item for item in self.all(name) if item.role in CONTROLS]
            at = used.get(name, 0)
            if same and same[0].role == "document web":
                # The page is always reported as focused; its first stop is the whole page.
                at = 0
            if at >= len(same):
                raise AssertionError(f"no control {name!r}\n{self.access.dump()}")
            used[name] = at + 1
            stops.append(same[at])
        begin = next((item for item in self.seen
                      if item.has_focus() and item.role != "document web"), None)
        if begin is None:
            raise AssertionError(f"nothing has the focus\n{self.access.dump()}")
        for stop in stops + [begin]:
            self.app.desktop.press(key)
            try:
                wait_until(stop.has_focus, 5, "the focus")
            except AssertionError:
                now = [str(item) for item in Screen(self.app).seen if item.has_focus()]
                raise AssertionError(f"{key} does not lead to {stop}, but to {now}") from None


def titled(title):
    """Regular expression for a History row's name: title and time."""
    return re.compile(f"^{re.escape(title)}, ")
