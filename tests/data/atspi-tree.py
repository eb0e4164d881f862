#!/usr/bin/python3
"""Prints the accessibility tree of a running application as JSON, as a screen reader finds it.

Usage: atspi-tree.py <pid> <seconds> <role>
Waits up to <seconds> until the application with that process id shows a node of that role
(an AT-SPI role nick such as "check-box"), then prints the application's tree: one object per node
with its role, name, states, value (where it has one) and children. Exits 1 when the time runs out.
"""
import json
import sys
import time

import pyatspi


def describe(node):
    entry = {
        "role": node.get_role().value_nick,
        "name": node.name,
        "states": sorted(state.value_nick for state in node.getState().getStates()),
        "children": [describe(child) for child in node if child is not None],
    }
    try:
        entry["value"] = node.queryValue().currentValue
    except NotImplementedError:
        pass
    return entry


def shows(entry, role):
    if entry["role"] == role and "showing" in entry["states"]:
        return True
    return any(shows(child, role) for child in entry["children"])


def main():
    pid, seconds, role = int(sys.argv[1]), float(sys.argv[2]), sys.argv[3]
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        for application in pyatspi.Registry.getDesktop(0):
            if application is not None and application.get_process_id() == pid:
                tree = describe(application)
                if shows(tree, role):
                    json.dump(tree, sys.stdout)
                    return 0
        time.sleep(0.2)
    return 1


if __name__ == "__main__":
    sys.exit(main())
