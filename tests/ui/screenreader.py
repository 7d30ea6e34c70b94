#!/usr/bin/python3
# A screen reader user, for tst_screenreader: turns on the AT-SPI bus's screen reader
# switch, prints "bus ADDRESS" (the accessibility bus, which the test puts on the
# display for the program) and waits for the program on the bus. Then it presses keys
# only (xdotool, sent to the window that has the keyboard; with no window manager on the
# test's display, it gives each new window the keyboard as a window manager would) and
# reads what the program's accessibility bridge tells a reader: the object that gets
# the focus after each key, its role, name and description.
#
# In every window it walks the whole Tab order, round to where it began, and prints
#   window NAME: K of N focusable controls without a name
# where N counts the controls the walk reached together with every other shown control
# the bridge marks as focusable (the radio buttons that Tab enters only at the checked
# one), and K those whose name is empty: for a combo box, whose name on Linux is its
# value, the name a reader says is that of the label it is labelled by.
#
# Exits 0 when every step did what it expected, 1 (saying which) otherwise.
import subprocess
import sys
import time

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, Gio, GLib  # noqa: E402
import pyatspi  # noqa: E402

STEP_TIMEOUT = 10.0
# What holds controls rather than being one: the focus is never announced on these.
CONTAINERS = (pyatspi.ROLE_FRAME, pyatspi.ROLE_DIALOG, pyatspi.ROLE_WINDOW, pyatspi.ROLE_PANEL,
              pyatspi.ROLE_FILLER)


class Failed(Exception):
    pass


def say(*words):
    print(*words, flush=True)


def call_bus(bus, interface, method, args, reply="()"):
    return bus.call_sync("org.a11y.Bus", "/org/a11y/bus", interface, method, args,
                         GLib.VariantType.new(reply), Gio.DBusCallFlags.NONE, 5000, None)


def turn_on_the_reader():
    session = Gio.bus_get_sync(Gio.BusType.SESSION, None)
    deadline = time.monotonic() + 20
    while True:
        owned = session.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                  "org.freedesktop.DBus", "NameHasOwner",
                                  GLib.Variant("(s)", ("org.a11y.Bus",)),
                                  GLib.VariantType.new("(b)"), Gio.DBusCallFlags.NONE, 5000,
                                  None)[0]
        if owned:
            break
        if time.monotonic() > deadline:
            raise Failed("the accessibility bus launcher never came on the session bus")
        time.sleep(0.1)
    call_bus(session, "org.freedesktop.DBus.Properties", "Set",
             GLib.Variant("(ssv)", ("org.a11y.Status", "ScreenReaderEnabled",
                                    GLib.Variant("b", True))))
    address = call_bus(session, "org.a11y.Bus", "GetAddress", None, "(s)")[0]
    # Asking for the desktop starts the registry, which the program registers with.
    pyatspi.Registry.getDesktop(0)
    say("bus", address)


focus_events = []


def on_focus(event):
    if event.detail1:
        focus_events.append(event.source)


def pump(seconds):
    context = GLib.MainContext.default()
    end = time.monotonic() + seconds
    while True:
        while context.iteration(False):
            pass
        if time.monotonic() >= end:
            return
        time.sleep(0.02)


def wait_for(what, test, timeout=STEP_TIMEOUT):
    end = time.monotonic() + timeout
    while time.monotonic() < end:
        pump(0.05)
        found = test()
        if found:
            return found
    raise Failed("timed out waiting for " + what)


def key_of(accessible):
    return accessible.path


def labels(accessible):
    names = []
    for relation in accessible.getRelationSet():
        if relation.getRelationType() == pyatspi.RELATION_LABELLED_BY:
            for i in range(relation.getNTargets()):
                names.append(relation.getTarget(i).name)
    return " ".join(names)


def spoken_name(accessible):
    if accessible.getRole() == pyatspi.ROLE_COMBO_BOX:
        return labels(accessible)
    return accessible.name


def role(kind):
    """The word at-spi has for a role; it changes between releases (a push button
    became a "button"), so expectations ask for it rather than spell it."""
    return Atspi.role_get_name(kind)


def describe(accessible):
    text = "%s '%s'" % (accessible.getRoleName(), spoken_name(accessible))
    if accessible.getRole() == pyatspi.ROLE_COMBO_BOX:
        text += " value '%s'" % accessible.name
    if accessible.description:
        text += " described '%s'" % accessible.description
    return text


def xdotool(*args):
    subprocess.run(["xdotool", *args], check=True, timeout=30)


class Reader:
    def __init__(self):
        self.app = None
        self.focused = None
        self.mismatches = []

    def find_program(self):
        def program():
            desktop = pyatspi.Registry.getDesktop(0)
            for i in range(desktop.childCount):
                child = desktop.getChildAtIndex(i)
                if child is not None and child.childCount > 0:
                    return child
            return None
        self.app = wait_for("the program on the accessibility bus", program, 30)
        say("program", self.app.name)

    def window(self, title):
        def shown():
            for i in range(self.app.childCount):
                child = self.app.getChildAtIndex(i)
                if (child is not None and child.name == title
                        and child.getState().contains(pyatspi.STATE_SHOWING)):
                    return child
            return None
        return wait_for("the window '%s'" % title, shown)

    def give_keyboard(self, title):
        """Waits for the window, gives it the keyboard and returns it with the focus
        the program put in it."""
        window = self.window(title)
        focus_events.clear()
        xdotool("search", "--sync", "--onlyvisible", "--name", "^%s$" % title,
                "windowfocus", "--sync")
        pump(0.3)

        # A window that had the keyboard already announces nothing new: the focus is
        # then where it was, or where the bridge marks it (the wizard, back from a
        # message box).
        def focus():
            controls = [e for e in focus_events if e.getRole() not in CONTAINERS]
            if controls and self.inside(controls[-1], window):
                return controls[-1]
            if self.focused is not None and self.inside(self.focused, window):
                return self.focused
            return self.focused_in(window)
        self.focused = wait_for("the focus in '%s'" % title, focus)
        say("%s: focus on %s" % (title, describe(self.focused)))
        return window

    def focused_in(self, node):
        state = node.getState()
        if not state.contains(pyatspi.STATE_SHOWING):
            return None
        if state.contains(pyatspi.STATE_FOCUSED) and node.getRole() not in CONTAINERS:
            return node
        for i in range(node.childCount):
            child = node.getChildAtIndex(i)
            if child is not None:
                found = self.focused_in(child)
                if found is not None:
                    return found
        return None

    @staticmethod
    def inside(accessible, window):
        node = accessible
        for _ in range(50):
            if node is None:
                return False
            if key_of(node) == key_of(window):
                return True
            node = node.parent
        return False

    def press(self, keys, moves_focus=True, timeout=STEP_TIMEOUT):
        focus_events.clear()
        xdotool("key", "--clearmodifiers", keys)
        if not moves_focus:
            pump(0.3)
            return self.focused

        def moved():
            controls = [e for e in focus_events if e.getRole() not in CONTAINERS]
            return controls[-1] if controls else None
        self.focused = wait_for("the focus to move on " + keys, moved, timeout)
        pump(0.1)
        self.focused = moved()
        say("  %s: %s" % (keys, describe(self.focused)))
        return self.focused

    def type_text(self, text):
        xdotool("type", "--delay", "20", text)
        pump(0.2)

    def tab_to(self, name, key="Tab"):
        for _ in range(30):
            if spoken_name(self.focused) == name:
                return self.focused
            self.press(key)
        raise Failed("Tab never reached '%s'" % name)

    def press_button(self, name, moves_focus=False):
        """Tabs to the button and presses it with the space bar."""
        self.tab_to(name)
        return self.press("space", moves_focus=moves_focus)

    def census(self, label, window):
        """Walks the whole Tab order and back to where it began; prints the window's
        line."""
        start = self.focused
        reached = {key_of(start): start}
        for _ in range(40):
            try:
                now = self.press("Tab", timeout=1.5)
            except Failed:
                break  # the only control of the window: Tab leaves the focus where it is
            if key_of(now) == key_of(start):
                break
            reached[key_of(now)] = now
        else:
            raise Failed("Tab never came back round in " + label)
        for accessible in self.focusable_in(window):
            reached.setdefault(key_of(accessible), accessible)
        unnamed = [describe(a) for a in reached.values() if not spoken_name(a).strip()]
        line = "window %s: %d of %d focusable controls without a name" % (
            label, len(unnamed), len(reached))
        if unnamed:
            line += ": " + ", ".join(unnamed)
        say(line)

    def focusable_in(self, node):
        found = []
        state = node.getState()
        if not state.contains(pyatspi.STATE_SHOWING):
            return found
        if (state.contains(pyatspi.STATE_FOCUSABLE)
                and node.getRole() not in (pyatspi.ROLE_LIST_ITEM, pyatspi.ROLE_TABLE_CELL)):
            found.append(node)
        for i in range(node.childCount):
            child = node.getChildAtIndex(i)
            if child is not None:
                found.extend(self.focusable_in(child))
        return found

    def expect_focus(self, text):
        # Noted and gone on with, so that one run reads every window.
        if describe(self.focused) != text:
            self.mismatches.append(
                "expected the focus on %s, found %s" % (text, describe(self.focused)))
            say("fail: " + self.mismatches[-1])


OFFICE_ITEM = "%s 'Office' described 'USB printer, the default printer'" % role(
    pyatspi.ROLE_LIST_ITEM)


def open_wizard(reader):
    """Adds a printer from the printer list; returns the wizard."""
    reader.give_keyboard("Printer Configuration")
    reader.press_button("Add")
    return reader.give_keyboard("Printer Configuration Wizard")


def type_name(reader, name):
    reader.tab_to("Printer name")
    reader.press("ctrl+a", moves_focus=False)
    reader.type_text(name)


def go_through_wizard(reader, wizard, label, name=None):
    """Walks the preferences page (typing the name, if given), goes on to the summary,
    walks it and presses OK."""
    reader.census(label + ", preferences", wizard)
    if name is not None:
        type_name(reader, name)
    reader.press_button("Next", moves_focus=True)
    reader.census(label + ", summary", wizard)
    reader.press_button("OK")


def choose_printer(reader, item):
    """Goes to the printer list and chooses its first printer with the Down key; the
    reader must announce it as item."""
    reader.tab_to("Printers")
    reader.press("Down")
    reader.expect_focus(item)


def read_box(reader, title, label):
    """Walks a message box and closes it with Return."""
    box = reader.give_keyboard(title)
    reader.census(label, box)
    reader.press("Return", moves_focus=False)


def main():
    try:
        turn_on_the_reader()
        pyatspi.Registry.registerEventListener(on_focus, "object:state-changed:focused")
        reader = Reader()
        reader.find_program()

        window = reader.give_keyboard("Printer Configuration")
        reader.census("printer list", window)
        reader.expect_focus("%s 'Printers'" % role(pyatspi.ROLE_LIST))

        go_through_wizard(reader, open_wizard(reader), "wizard", name="Office")

        # The new printer, chosen with the arrow keys.
        reader.give_keyboard("Printer Configuration")
        choose_printer(reader, OFFICE_ITEM)

        # A test page, and the box that says it was sent.
        reader.press_button("Test")
        read_box(reader, "Printer", "test page box")

        # The default, then an edit through the wizard.
        reader.give_keyboard("Printer Configuration")
        reader.press_button("Default")
        # The list is read afresh after each action, with no printer chosen: the printer
        # is chosen again, and Edit is the control before the list.
        choose_printer(reader, OFFICE_ITEM)
        reader.press("shift+Tab")
        reader.expect_focus(
            "%s 'Edit' described 'Edit Printer'" % role(pyatspi.ROLE_PUSH_BUTTON))
        reader.press("space", moves_focus=False)
        wizard = reader.give_keyboard("Printer Configuration")
        go_through_wizard(reader, wizard, "wizard (edit)")

        # A name with a blank is refused in a box; Cancel leaves the wizard.
        open_wizard(reader)
        type_name(reader, "my printer")
        reader.press_button("Next")
        read_box(reader, "Printer Configuration", "name refusal box")
        reader.give_keyboard("Printer Configuration Wizard")
        reader.expect_focus("%s 'Printer name'" % role(pyatspi.ROLE_TEXT))
        reader.press_button("Cancel")

        # Delete the printer, then close the window.
        reader.give_keyboard("Printer Configuration")
        choose_printer(reader, OFFICE_ITEM)
        reader.press_button("Delete")
        reader.press_button("Close")
        if reader.mismatches:
            return 1
        say("done")
        return 0
    except (Failed, subprocess.SubprocessError) as failure:
        say("fail:", failure)
        return 1


if __name__ == "__main__":
    sys.exit(main())
