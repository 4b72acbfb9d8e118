# SPDX-License-Identifier: MIT
"""Who is measured at which job, and with which command."""
import dataclasses
import enum

VESK = "vesk-archive"
FLOOR = "floor"  # the same in memory by plain system calls, and nothing else

# Owner, mode, time and order are fixed, as in what vesk-archive makes.
GNU_TAR = (
    "tar --format=ustar --sort=name --owner=0 --group=0 --numeric-owner --mode=0644 --mtime=@0"
    " -C {source}"
)


class Where(enum.IntEnum):
    """The data a contender is measured on; each value takes in those above it."""

    GROWTH = 1  # everything, the growth series too
    MAIN = 2  # small, real and large
    TREES = 3  # small and real
    EXTRA = 4  # small, in the full run's first rounds only


@dataclasses.dataclass(frozen=True)
class Contender:
    """`line` runs it: {source}, {archive} and {out} are filled in, "| " joins commands, and
    "> {out}" at the end catches the standard output."""

    name: str
    line: str
    where: Where


def vesk_make(form):
    return Contender(VESK, f"{{vesk}} make --quiet --format {form} . {{out}}", Where.GROWTH)


def vesk_unpack():
    return Contender(VESK, "{vesk} unpack --quiet {archive} {out}", Where.GROWTH)


def piped_from_tar(compressor, where):
    line = f"{GNU_TAR} -cf - . | {compressor} > {{out}}"
    return Contender(f"GNU tar, {compressor}", line, where)


def piped_into_tar(decoder, where):
    return Contender(f"{decoder}, tar x", f"{decoder} {{archive}} | tar -xf - -C {{out}}", where)


MAKE_TAR = [
    vesk_make("tar"),
    Contender("GNU tar", f"{GNU_TAR} -cf {{out}} .", Where.GROWTH),
    Contender(FLOOR, "{floor} make . {out}", Where.TREES),
    Contender("Python tarfile", "{python} -I -S {tarfile} w {source} {out}", Where.TREES),
    Contender("cat of all files", "xargs -0 -a {names} cat > {out}", Where.MAIN),
    Contender(
        "bsdtar (unsorted)",
        "bsdtar --format=ustar --uid 0 --gid 0 --numeric-owner -C {source} -cf {out} .",
        Where.EXTRA,
    ),
]

MAKE_TGZ = [
    vesk_make("tgz"),
    piped_from_tar("pigz -0", Where.GROWTH),
    piped_from_tar("gzip -1", Where.TREES),
    piped_from_tar("pigz -1", Where.EXTRA),
    piped_from_tar("igzip -1 -c", Where.EXTRA),
    Contender(
        "bsdtar, level 1 (unsorted)",
        "bsdtar --format=ustar --uid 0 --gid 0 --numeric-owner -z"
        " --options gzip:compression-level=1 -C {source} -cf {out} .",
        Where.EXTRA,
    ),
    Contender(
        "Python tarfile, level 1", "{python} -I -S {tarfile} w:gz {source} {out}", Where.EXTRA
    ),
]

UNPACK_TAR = [
    vesk_unpack(),
    Contender("tar xf", "tar -xf {archive} -C {out}", Where.GROWTH),
    Contender(FLOOR, "{floor} unpack {archive} {out}", Where.TREES),
    Contender("cp -r", "cp -r {source} {out}", Where.MAIN),
    Contender("bsdtar", "bsdtar -xf {archive} -C {out}", Where.EXTRA),
    Contender("Python tarfile", "{python} -I -S {tarfile} r {archive} {out}", Where.EXTRA),
]

UNPACK_TGZ = [
    vesk_unpack(),
    Contender("tar xzf", "tar -xzf {archive} -C {out}", Where.GROWTH),
    piped_into_tar("igzip -dc", Where.TREES),
    piped_into_tar("pigz -dc", Where.EXTRA),
    Contender("bsdtar", "bsdtar -xf {archive} -C {out}", Where.EXTRA),
    Contender("Python tarfile", "{python} -I -S {tarfile} r:gz {archive} {out}", Where.EXTRA),
]


@dataclasses.dataclass(frozen=True)
class Job:
    name: str
    what: str
    contenders: list
    archive: str = ""  # what is unpacked: the suffix of one of the archives made beforehand

    @property
    def makes(self):
        return not self.archive


JOBS = [
    Job("make-tar", "make a TAR archive", MAKE_TAR),
    Job("make-tgz", "make a TAR archive in a gzip member", MAKE_TGZ),
    Job("unpack-tar", "unpack a TAR archive", UNPACK_TAR, ".tar"),
    Job("unpack-tgz", "unpack a gzip member as vesk-archive writes it", UNPACK_TGZ, ".tgz"),
    Job("unpack-tgz6", "unpack a gzip member that gzip -6 wrote", UNPACK_TGZ, ".6.tgz"),
]


def limit_of(data_set, quick, memory):
    if data_set.series:
        return Where.GROWTH
    if data_set.name == "large":
        return Where.MAIN
    return Where.TREES if quick or memory or data_set.name == "real" else Where.EXTRA


def is_measured_in_memory(job, data_set):
    """The growth with bytes is, too, where no disk has a say: one that is slower than the memory
    takes part once more is written than the system lets wait."""
    if data_set.series == "single":
        return job.name in ("make-tar", "unpack-tar")
    return data_set.name in ("small", "real")


def contenders_of(job, data_set, quick=False, memory=False):
    """Returns the contenders of a job on a data set; none where the pair is not measured."""
    if quick and (memory or data_set.name != "small" or job.name == "unpack-tgz"):
        return []
    if memory and not is_measured_in_memory(job, data_set):
        return []
    if job.name == "unpack-tgz6" and (data_set.series or data_set.name == "large"):
        return []
    # Omitted: it would show only what plain TAR shows, and take minutes.
    if "tgz" in job.name and data_set.name == "empty-1000000":
        return []
    limit = limit_of(data_set, quick, memory)
    return [contender for contender in job.contenders if contender.where <= limit]
