"""What of the modules' data is to be saved, as their descriptions and what lies on the disk say."""

import re
from collections import Counter
from collections.abc import Iterable
from dataclasses import dataclass
from pathlib import Path
from xml.etree import ElementTree


@dataclass(frozen=True)
class Item:
    """A plain file, a directory saved as an archive, or a database; `path` is as in the description."""

    module: str
    kind: str
    path: str
    features: tuple[str, ...]
    """What its line in the checksum file ends with."""
    selections: tuple[tuple[str, str], ...] = ()
    """Of a database of which not all is saved: table and query."""

    @property
    def key(self) -> str:
        """The first field of its line in the checksum file."""
        return {"file": self.path, "directory": f"{self.module}/{self.path}.tar",
                "database": f"{self.module}/{self.path}.data"}[self.kind]

    @property
    def place(self) -> str:
        """Its path below the modules' data."""
        return f"{self.module}/{self.path}" + (".data" if self.kind == "database" else "")

    @property
    def entry(self) -> str:
        """Its name in the repository, unless another module's file has the same."""
        name = self.path.replace("/", "++")
        return {"file": name, "directory": f"{self.module}++{name}.tar.gz",
                "database": f"{self.module}++{name}.dump.gz"}[self.kind]


@dataclass(frozen=True)
class Question:
    """A query whose answer is 0 when a command of a reset has done its work."""

    module: str
    database: str
    table: str
    text: str


class Description:
    """A module's restorable.xml."""

    def __init__(self, file: Path) -> None:
        self.module = file.parent.name
        self.root = ElementTree.parse(file).getroot()

    def databases(self) -> list[Item]:
        return [Item(self.module, "database", database.attrib["name"], ("high",),
                     tuple((command.attrib["table-name"], command.text or "")
                           for command in database.iter("sql-command")))
                for database in self.root.findall("databases/database")]

    def items(self, data: Path) -> list[Item]:
        """All that is to be saved, with the module's data below `data`/<module>."""
        found = self.databases()
        for file in self.root.findall("files/file"):
            path, zipped, priority = file.text or "", file.get("zip", "false"), file.attrib["priority"]
            place = data / self.module / path
            if place.is_dir() and zipped == "true":
                found.append(Item(self.module, "directory", path, ("1", priority)))
            else:
                paths = [f"{path}/{name}" for name in visible_files(place)] if place.is_dir() else [path]
                found += [Item(self.module, "file", path, (zipped, priority)) for path in paths]
        return found

    def spread_directories(self, items: Iterable[Item]) -> list[str]:
        """The directories that are saved file by file, of which there are such `items`."""
        named = [file.text or "" for file in self.root.findall("files/file")]
        return [path for path in named
                if any(item.module == self.module and item.path.startswith(path + "/") for item in items)]

    def questions(self, reset: str) -> list[Question]:
        """One for each command of the reset, "default" or "factory"."""
        commands = self.root.findall(f"reset-to-{reset}/sql-command")
        return [self.question(command.attrib["db-name"], command.text or "") for command in commands]

    def question(self, database: str, command: str) -> Question:
        if match := re.fullmatch(r"DELETE FROM (\w+)( WHERE .+)?", command):
            table, condition = match[1], match[2] or ""
        elif match := re.fullmatch(r"UPDATE (\w+) SET (\w+) = (\S+)", command):
            table, condition = match[1], f" WHERE {match[2]} IS NOT {match[3]}"
        else:
            raise ValueError(f"{self.module}: no question for: {command}")
        return Question(self.module, database, table, f"SELECT count(*) FROM {table}{condition}")


def visible_files(directory: Path) -> list[str]:
    return sorted(entry.name for entry in directory.iterdir()
                  if entry.is_file() and not entry.is_symlink() and not entry.name.startswith("."))


def entry_names(items: Iterable[Item]) -> dict[Item, str]:
    """The names of the items' entries: with the module in front where several have the same."""
    items = list(items)
    claims = Counter(item.entry for item in items)
    return {item: item.entry if claims[item.entry] == 1 else f"{item.module}++{item.entry}" for item in items}
