# SPDX-License-Identifier: MIT
"""Directory trees as values: written to disk, read back, and compared as maps of name to content.

Names are bytes. Besides regular files a tree holds what a comparison must not overlook: an empty
directory as its name with "/" at the end, any other object as its name with "?".
"""

import os
import stat


def write_tree(root, tree):
    """Writes the regular files and empty directories of the tree below the root."""
    for name, content in tree.items():
        path = os.path.join(os.fsencode(root), name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        if not name.endswith(b"/"):
            with open(path, "wb") as file:
                file.write(content)


def read_tree(root):
    """Reads what is below the root, itself "./" when empty; nothing when there is none."""
    root = os.fsencode(root)
    tree = {}
    for directory, directories, files in os.walk(root):
        if not directories and not files:
            tree[os.path.relpath(directory, root) + b"/"] = b""
        for path in [os.path.join(directory, name) for name in directories + files]:
            name = os.path.relpath(path, root)
            mode = os.lstat(path).st_mode
            if stat.S_ISREG(mode):
                with open(path, "rb") as file:
                    tree[name] = file.read()
            elif not stat.S_ISDIR(mode):
                tree[name + b"?"] = b""
    return tree
