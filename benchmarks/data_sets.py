# SPDX-License-Identifier: MIT
"""The data that is archived and unpacked, made the same way on every machine (but for `real`)."""
import dataclasses
import os
import random
import shutil
from typing import Callable

KIB, MIB, GIB = 1 << 10, 1 << 20, 1 << 30


@dataclasses.dataclass(frozen=True)
class DataSet:
    name: str
    what: str
    fill: Callable  # fill(directory)
    rounds: int  # timed rounds for contenders that a goal or a growth table needs
    series: str = ""  # the growth table that it is a point of
    scale: int = 1  # what its cost is divided by there: files or bytes
    few_files: bool = False  # so few that deleting them disturbs nothing


def write(path, content):
    with open(path, "wb") as file:
        file.write(content)


def pseudo_text(rng, size):
    """Text that compresses about as source code does: words of a small vocabulary, some numbers."""
    words = [
        "".join(rng.choices("etaoinshrdlucmfwypvbg", k=rng.randint(2, 9))) for _ in range(3000)
    ]
    words += ["\n", "\n    ", "(", ")", ";", " = "] * 150 + [str(n) for n in range(500)]
    text = " ".join(rng.choices(words, k=size // 5))
    return text.encode()[:size]


def fill_small(directory):
    rng = random.Random(20000)
    text = pseudo_text(rng, 4 * MIB)
    for d in range(400):
        os.mkdir(f"{directory}/d{d:03}")
        for f in range(50):
            size = rng.randint(0, 16 * KIB)
            start = rng.randrange(len(text) - size)
            write(f"{directory}/d{d:03}/file{f:02}.txt", text[start : start + size])


def fill_real(directory):
    """Copies without links, empty directories, and names that unpacking refuses."""
    for root in ("/usr/include", "/usr/share/doc"):
        for parent, _, names in os.walk(root):
            target = directory + parent
            for name in names:
                path = os.path.join(parent, name)
                if os.path.isfile(path) and not os.path.islink(path) and not set(":\\") & set(path):
                    os.makedirs(target, exist_ok=True)
                    shutil.copyfile(path, os.path.join(target, name))


def write_noise(path, size, seed):
    """Incompressible: the repetition is far outside what DEFLATE can refer back to."""
    noise = random.Random(seed).randbytes(min(size, 16 * MIB))
    with open(path, "wb") as file:
        for start in range(0, size, len(noise)):
            file.write(noise[: size - start])


def fill_large(directory):
    write_noise(f"{directory}/1GiB.bin", GIB, 0)
    for i in range(1, 11):
        write_noise(f"{directory}/50MiB-{i:02}.bin", 50 * MIB, i)


def fill_empty(count):
    def fill(directory):
        for i in range(count):
            if i % 500 == 0:
                os.mkdir(f"{directory}/d{i // 500:04}")
            write(f"{directory}/d{i // 500:04}/f{i % 500:03}", b"")

    return fill


def fill_single(size):
    return lambda directory: write_noise(f"{directory}/data.bin", size, size)


def empty(count, rounds):
    return DataSet(
        f"empty-{count}", f"{count:,} empty files", fill_empty(count), rounds, "empty", count
    )


def single(label, size, rounds):
    what = f"one incompressible file of {label}"
    return DataSet(
        f"single-{label.replace(' ', '')}", what, fill_single(size), rounds, "single", size, True
    )


# Those of few files are placed where the file system has to recover after deleting many.
DATA_SETS = [
    DataSet("small", "20,000 files of 0 to 16 KiB of text in 400 directories", fill_small, 7),
    DataSet(
        "large",
        "one file of 1 GiB and ten of 50 MiB, incompressible",
        fill_large,
        3,
        few_files=True,
    ),
    single("1 KiB", KIB, 15),
    single("1 MiB", MIB, 15),
    single("64 MiB", 64 * MIB, 5),
    single("3 GiB", 3 * GIB, 1),
    DataSet("real", "/usr/include and /usr/share/doc, copied without links", fill_real, 7),
    empty(1_000, 9),
    empty(10_000, 5),
    empty(100_000, 2),
    empty(1_000_000, 1),
]
