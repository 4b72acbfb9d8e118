# SPDX-License-Identifier: MIT
"""Makes or unpacks an archive with Python's tarfile, as a contender of the comparison.

    tarfile_contender.py w|w:gz SOURCE ARCHIVE
    tarfile_contender.py r|r:gz ARCHIVE DESTINATION
"""
import os
import sys
import tarfile


def files_below(source):
    for directory, _, names in os.walk(source):
        for name in names:
            path = os.path.join(directory, name)
            yield os.path.relpath(path, source), path


def make(mode, source, archive):
    level = {"compresslevel": 1} if mode == "w:gz" else {}
    with tarfile.open(archive, mode, format=tarfile.USTAR_FORMAT, **level) as stream:
        for name, path in sorted(files_below(source)):
            entry = tarfile.TarInfo(name)
            entry.size = os.path.getsize(path)
            with open(path, "rb") as file:
                stream.addfile(entry, file)


def unpack(mode, archive, destination):
    with tarfile.open(archive, mode) as stream:
        stream.extractall(destination)


mode, first, second = sys.argv[1:]
(make if mode.startswith("w") else unpack)(mode, first, second)
