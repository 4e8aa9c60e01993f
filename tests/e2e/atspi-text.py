#!/usr/bin/python3
"""The text of an application's first text object, through the accessibility bus.

Usage: atspi-text.py APP text        prints the whole text
       atspi-text.py APP select-all  selects all of it
APP is the application's name on the bus (e.g. mousepad). Exits 1 when there is no such text.
Wayland test sessions use it where keystrokes with modifiers cannot select (a headless
compositor's virtual keyboards carry no modifier state to clients).
"""
import sys
import warnings

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi  # noqa: E402

warnings.simplefilter("ignore", DeprecationWarning)


def text_object(node, depth=0):
    if node is None or depth > 30:
        return None
    if node.get_role_name() in ("text", "entry", "paragraph") and node.get_text_iface():
        return node
    for index in range(min(node.get_child_count(), 100)):
        found = text_object(node.get_child_at_index(index), depth + 1)
        if found:
            return found
    return None


def main():
    name, command = sys.argv[1], sys.argv[2]
    desktop = Atspi.get_desktop(0)
    for index in range(desktop.get_child_count()):
        app = desktop.get_child_at_index(index)
        if app is None or app.get_name() != name:
            continue
        target = text_object(app)
        if target is None:
            continue
        length = Atspi.Text.get_character_count(target)
        if command == "text":
            sys.stdout.write(Atspi.Text.get_text(target, 0, length))
            return 0
        if command == "select-all":
            return 0 if Atspi.Text.set_selection(target, 0, 0, length) or \
                Atspi.Text.add_selection(target, 0, length) else 1
    return 1


if __name__ == "__main__":
    sys.exit(main())
