"""What files are like, by their names, stamps and bytes."""

import grp
import hashlib
import math
import os
import pwd
import stat
from dataclasses import dataclass
from pathlib import Path

SIDE_FILES = (".data-wal", ".data-shm", ".data-journal")


def digest(content: bytes) -> str:
    return hashlib.md5(content, usedforsecurity=False).hexdigest()


def entries_below(directory: Path) -> list[str]:
    """Paths of all that is below, relative to the directory."""
    return sorted(str(path.relative_to(directory)) for path in directory.rglob("*"))


def describe_file(path: Path) -> str:
    """Kind, permissions and content."""
    state = path.lstat()
    content = ""
    if stat.S_ISREG(state.st_mode):
        content = digest(path.read_bytes())
    elif stat.S_ISLNK(state.st_mode):
        content = os.readlink(path)
    return f"{stat.filemode(state.st_mode)} {content}"


def describe_tree(directory: Path) -> dict[str, str]:
    """What is at each path below the directory, and at the directory itself."""
    found = {".": describe_file(directory)}
    return found | {path: describe_file(directory / path) for path in entries_below(directory)}


def stamps(directory: Path) -> dict[str, tuple[int, int]]:
    """Number and time of each plain file below: they differ exactly when it was written or replaced."""
    found = {}
    for path in entries_below(directory):
        state = (directory / path).lstat()
        if stat.S_ISREG(state.st_mode) and not path.endswith(SIDE_FILES):
            found[path] = (state.st_ino, state.st_mtime_ns)
    return found


def owner_names(path: Path) -> tuple[str, str]:
    state = path.stat()
    try:
        user = pwd.getpwuid(state.st_uid).pw_name
    except KeyError:
        user = str(state.st_uid)
    try:
        group = grp.getgrgid(state.st_gid).gr_name
    except KeyError:
        group = str(state.st_gid)
    return user, group


def attributes(path: Path) -> tuple[str, ...]:
    """Permissions, owner and group as in an attributes file."""
    return f"{stat.S_IMODE(path.stat().st_mode):04o}", *owner_names(path)


def owners(directory: Path) -> dict[str, str]:
    """Kind, owner and permissions of all below but the side files of databases."""
    found = {}
    for path in entries_below(directory):
        state = (directory / path).lstat()
        if not path.endswith(SIDE_FILES):
            found[path] = f"{stat.filemode(state.st_mode)} {state.st_uid} {state.st_gid}"
    return found


@dataclass(frozen=True)
class Sum:
    """How many files there are below directories, and how large they are."""

    files: int
    kilobytes: int


def sum_of(*paths: Path) -> Sum:
    files = [file for path in paths for file in ([path] if path.is_file() else path.rglob("*")) if file.is_file()]
    return Sum(len(files), math.ceil(sum(file.stat().st_size for file in files) / 1000))
