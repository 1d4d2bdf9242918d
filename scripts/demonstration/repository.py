"""What the repository holds, compared with the live data by zcat, tar and sqlite3 alone."""

import filecmp
import os
import re
import shutil
from collections.abc import Iterable, Iterator
from dataclasses import dataclass
from functools import partial
from pathlib import Path

import databases
from device import Device, Module
from files import attributes, describe_tree, digest
from items import Description, Item, entry_names
from report import Check, difference

MODULES_LIST = "modules-list.sav"
FORMAT = ".saverestore-format"


@dataclass(frozen=True)
class Line:
    """Of a checksum file."""

    key: str
    digest: str
    kind: str
    features: tuple[str, ...]


class Repository:
    """Of the device, for what is on its live disk now; `scratch` is a directory for what is unpacked."""

    def __init__(self, device: Device, scratch: Path) -> None:
        self.device = device
        self.directory = device.repository
        self.scratch = scratch
        self.items: list[Item] = []
        """As found when the repository was last to be compared or to be written."""
        self.names: dict[Item, str] = {}

    def look_at_items(self) -> None:
        self.items = self.device.items()
        self.names = entry_names(self.items)

    def entry(self, item: Item) -> Path:
        return self.directory / self.names[item]

    def live(self, item: Item) -> Path:
        return self.device.live / item.place

    def lines(self, module: str) -> list[Line]:
        file = self.directory / f"{module}.cksum"
        text = file.read_text() if file.exists() else ""
        fields = [line.split("\t") for line in text.splitlines()]
        return [Line(key, digest, kind, tuple(features)) for key, digest, kind, *features in fields]

    def digest(self, item: Item) -> str | None:
        """What the module's checksum file promises."""
        return next((line.digest for line in self.lines(item.module)
                     if (line.key, line.kind) == (item.key, item.kind)), None)

    def snapshot(self) -> dict[str, tuple[int, int]]:
        """Number and time of change of each entry: they differ exactly when it was written."""
        return {entry.name: (entry.stat().st_ino, entry.stat().st_ctime_ns) for entry in os.scandir(self.directory)}

    # What is unpacked.

    def load(self, item: Item) -> Path:
        """The dump in a database; one of selected rows has the schema of the live one."""
        return databases.load_dump(self.entry(item), self.scratch / "loaded.data",
                                   self.live(item) if item.selections else None)

    def unpack(self, item: Item) -> Path:
        """The directory as archived, below the scratch directory."""
        target = self.scratch / "unpacked"
        shutil.rmtree(target, ignore_errors=True)
        target.mkdir()
        databases.run("tar", "-xp", "-C", target, given=databases.run("zcat", self.entry(item)))
        return target / str(self.live(item)).lstrip("/")

    def archived_tree(self, item: Item) -> dict[str, str]:
        return describe_tree(self.unpack(item))

    # Checks of single entries.

    def file_findings(self, item: Item) -> Iterator[str]:
        live, entry = self.live(item), self.entry(item)
        if not filecmp.cmp(live, entry, shallow=False):
            yield f"{live} and {entry} differ"
        yield from self.digest_findings(item, live.read_bytes())

    def digest_findings(self, item: Item, content: bytes) -> list[str]:
        return difference([self.digest(item)], [digest(content)])

    def archive_findings(self, item: Item) -> Iterator[str]:
        live, archived = describe_tree(self.live(item)), self.archived_tree(item)
        yield from difference(live.items(), archived.items())
        members = databases.run("tar", "-t", given=databases.run("zcat", self.entry(item))).decode().splitlines()
        place = str(self.live(item)).lstrip("/")
        yield from [f"outside: {member}" for member in members if not f"{member}/".startswith(f"{place}/")]
        yield from self.digest_findings(item, databases.run("zcat", self.entry(item)))

    def database_findings(self, item: Item) -> Iterator[str]:
        live = self.live(item)
        yield from difference(databases.describe(live), databases.describe(self.load(item)))
        yield from self.digest_findings(item, live.read_bytes())

    def selection_findings(self, item: Item) -> Iterator[str]:
        live, loaded = self.live(item), self.load(item)
        selected = dict(item.selections)
        for table in databases.tables(loaded):
            saved = databases.rows(loaded, table)
            wanted = databases.query(live, selected[table]) if table in selected else []
            if table in selected and not saved:
                yield f"no row of {table}"
            yield from difference(wanted, saved)
        yield from self.digest_findings(item, live.read_bytes())

    def written_findings(self, item: Item, least: int) -> Iterator[str]:
        """The module goes on writing: the dump is an earlier state, but not one from before the save."""
        live, loaded = self.live(item), self.load(item)
        for table in databases.tables(loaded):
            saved = databases.rows(loaded, table)
            if len(saved) < least:
                yield f"{len(saved)} rows saved, {least} before the save"
            if databases.number(loaded, f"SELECT max(rowid) FROM {table}") != len(saved):
                yield "rows in between are missing"
            yield from [f"not in the live database: {row}" for row in set(saved) - set(databases.rows(live, table))]

    # Checks of modules.

    def attributes_text(self, module: str) -> list[str]:
        """The lines that the module's attributes file has to have."""
        items = [item for item in self.items if item.module == module and item.kind != "directory"]
        return ["\t".join((item.key, *attributes(self.live(item)), self.time(item)))
                for item in sorted(items, key=lambda item: item.key.encode())]

    def time(self, item: Item) -> str:
        """What a running module writes has its time from another moment."""
        return "any" if self.device.is_written(item) else str(self.live(item).stat().st_mtime_ns)

    def saved_attributes(self, module: str) -> list[str]:
        file = self.directory / f"{module}.attributes"
        lines = file.read_text().splitlines() if file.exists() else []
        written = {item.key for item in self.items if self.device.is_written(item)}
        return [re.sub(r"\t\d+$", "\tany", line) if line.split("\t")[0] in written else line for line in lines]

    def version(self, module: str) -> str:
        file = self.directory / f"{module}.version"
        return file.read_text().strip() if file.exists() else ""

    def modules(self) -> list[tuple[Module, Description]]:
        """Those with data to save."""
        running = {module.name: module for module in self.device.modules()}
        return [(running[description.module], description) for description in self.device.descriptions]

    # What there is to check.

    def item_check(self, item: Item, least_rows: int) -> Check:
        name, live = self.names[item], self.live(item)
        if item.kind == "file":
            return Check(name, f"{item.module}: same bytes, same digest", partial(self.file_findings, item))
        if item.kind == "directory":
            count = sum(path.is_file() for path in live.rglob("*"))
            return Check(name, f"unpacked: the same {count} files as live", partial(self.archive_findings, item))
        if self.device.is_written(item):
            return Check(name, f"loaded: rows 1 to n of the live table, n >= {least_rows}",
                         partial(self.written_findings, item, least_rows))
        if item.selections:
            return Check(name, f"loaded: the selected rows of {len(item.selections)} table(s), none of another",
                         partial(self.selection_findings, item))
        return Check(name, f"loaded: all {databases.count_rows(live)} rows and the schema as live",
                     partial(self.database_findings, item))

    def module_checks(self, module: Module) -> Iterator[Check]:
        name, version = module.name, f"{module.release}::{module.version}"
        wanted = [(item.key, item.kind, item.features) for item in self.items if item.module == name]
        yield Check(f"{name}.version", version, lambda: difference([version], [self.version(name)]))
        yield Check(f"{name}.cksum", f"a line for each of {len(wanted)} items and no other", lambda: difference(
            wanted, [(line.key, line.kind, line.features) for line in self.lines(name)]))
        yield Check(f"{name}.attributes", "of its files and databases as live",
                    lambda: difference(self.attributes_text(name), self.saved_attributes(name)))
        program = self.device.migrations / f"{name}Migration"
        if program.exists():
            yield Check(program.name, "the installed program", lambda: difference(
                [program.read_bytes()], [(self.directory / program.name).read_bytes()]))

    def all_entries(self) -> set[str]:
        """The names of all entries that there have to be."""
        names = {FORMAT, MODULES_LIST, *self.names.values()}
        for _, description in self.modules():
            names |= {f"{description.module}.{suffix}" for suffix in ("version", "cksum", "attributes")}
            if (self.device.migrations / f"{description.module}Migration").exists():
                names.add(f"{description.module}Migration")
        return names

    def checks(self, least_rows: int) -> Iterator[Check]:
        """Of everything in the repository; what a module writes has at least that many rows."""
        self.look_at_items()
        yield from (self.item_check(item, least_rows) for item in self.items)
        modules = self.modules()
        for module, _ in modules:
            yield from self.module_checks(module)
        names = [description.module for _, description in modules]
        yield Check(MODULES_LIST, f"the {len(names)} modules with data to save", lambda: difference(
            names, (self.directory / MODULES_LIST).read_text().splitlines()))
        yield Check(FORMAT, "version 1", lambda: difference(["1\n"], [(self.directory / FORMAT).read_text()]))
        yield Check("the repository", "holds nothing else",
                    lambda: difference(self.all_entries(), self.snapshot()))

    # What a save has to do, told from the disk before it.

    def differs(self, item: Item) -> bool:
        """Whether the live item is another one than the saved one, or may become so at any time."""
        if self.device.is_written(item) or not self.live(item).exists() or self.digest(item) is None:
            return True
        if item.kind != "directory":
            return digest(self.live(item).read_bytes()) != self.digest(item)
        archived = self.unpack(item)
        return describe_tree(archived) != describe_tree(self.live(item)) or times(archived) != times(self.live(item))

    def changed_items(self) -> list[Item]:
        return [item for item in self.items if self.differs(item)]

    def entries_to_send(self) -> set[str]:
        """The names of the entries that the next save has to write."""
        self.look_at_items()
        changed = self.changed_items()
        names = {self.names[item] for item in changed}
        for module, _ in self.modules():
            keys = {item.key for item in self.items if item.module == module.name}
            gone = {line.key for line in self.lines(module.name)} - keys
            if gone or any(item.module == module.name for item in changed):
                names.add(f"{module.name}.cksum")
            if self.attributes_text(module.name) != self.saved_attributes(module.name):
                names.add(f"{module.name}.attributes")
            if self.version(module.name) != f"{module.release}::{module.version}":
                program = self.device.migrations / f"{module.name}Migration"
                names |= {f"{module.name}.version"} | ({program.name} if program.exists() else set())
        return names if (self.directory / MODULES_LIST).exists() else names | {FORMAT, MODULES_LIST}

    def entries_to_remove(self) -> set[str]:
        return set(self.snapshot()) - self.all_entries()

    def optional_entries(self) -> set[str]:
        """Who writes all the time may have written to the database's file itself, or to its log."""
        return {f"{item.module}.attributes" for item in self.items if self.device.is_written(item)}


def times(directory: Path) -> dict[Path, int]:
    """In whole seconds, as an archive has them."""
    paths: Iterable[Path] = [directory, *directory.rglob("*")]
    return {path.relative_to(directory): int(path.stat().st_mtime) for path in paths}
