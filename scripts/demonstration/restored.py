"""The live data, compared with what was saved and with what they were before a restore."""

import os
import shutil
import subprocess
from collections.abc import Iterator
from functools import partial
from pathlib import Path

import databases
from device import Device, wait_until
from files import describe_tree, entries_below, owners, stamps
from items import Item
from report import Check, difference
from repository import Repository

SERVICE_DATA = "VYXSaveRestore"


def live_stamps(device: Device) -> dict[str, tuple[int, int]]:
    return {path: stamp for path, stamp in stamps(device.live).items() if not path.startswith(SERVICE_DATA)}


class Restored:
    """What a restore has to bring about. Made when the data are as saved; `note_before` when it is about to begin."""

    def __init__(self, repository: Repository, before: Path) -> None:
        self.repository = repository
        self.device = repository.device
        self.before = before
        repository.look_at_items()
        self.items = repository.items
        self.stamps_saved = live_stamps(self.device)
        self.owners_saved = owners(self.device.live)

    def note_before(self) -> None:
        """Copies the live data, and says what has to be fetched."""
        self.stamps_before = live_stamps(self.device)
        self.owners_before = owners(self.device.live)
        shutil.rmtree(self.before, ignore_errors=True)
        # A copy of the live data below a device of its own, on which a migration can be run.
        subprocess.run(["cp", "-a", self.device.live, self.before], check=True)
        differing = [item for item in self.items if self.repository.differs(item)]
        self.to_fetch = [item for item in differing if not self.is_remembered(item)]

    def is_remembered(self, item: Item) -> bool:
        """A database that was restored is another file than the saved one, and yet known to be the same."""
        if item.kind != "database" or item.selections or self.device.is_written(item):
            return False
        return self.device.remembers_digests() and not Check("", "", lambda: self.database_findings(item)).findings()

    def migrate_before(self, module: str, release: str) -> None:
        """Runs the module's migration program on the copies, as it will be run on what is restored."""
        root = self.before.parents[1]
        subprocess.run([self.device.migrations / f"{module}Migration", module, release], check=True,
                       capture_output=True, env=os.environ | {"VYX_DEVICE_ROOT": str(root)})

    # Checks of single items.

    def fate(self, item: Item) -> str:
        """What was done to it, as seen in the files themselves. What a module writes changes all the time."""
        if self.device.is_written(item):
            return "restored"
        place = self.device.live / item.place
        if not place.exists():
            return "missing"
        now = {path: stamp for path, stamp in live_stamps(self.device).items()
               if path == item.place or path.startswith(item.place + "/")}
        same = all(self.stamps_before.get(path) == stamp for path, stamp in now.items())
        return "left alone" if same else "restored"

    def database_findings(self, item: Item) -> list[str]:
        """It may lay out the same content differently than the saved one."""
        return difference(databases.describe(self.repository.load(item)),
                          databases.describe(self.device.live / item.place))

    def merged_findings(self, item: Item) -> Iterator[str]:
        """The saved rows are there again; everything else is as it was."""
        live, before, loaded = self.device.live / item.place, self.before / item.place, self.repository.load(item)
        for table in databases.tables(live):
            saved = databases.rows(loaded, table)
            if table in dict(item.selections):
                yield from [] if saved else [f"no row of {table} was saved"]
                yield from [f"{table} lacks {row}" for row in set(saved) - set(databases.rows(live, table))]
            yield from difference(databases.rows_without(before, table, loaded),
                                  databases.rows_without(live, table, loaded))

    def written_findings(self, item: Item) -> Iterator[str]:
        """The module goes on where the dump ended: its rows, then new ones."""
        live, loaded = self.device.live / item.place, self.repository.load(item)
        missing, saved = set(), databases.count_rows(loaded)
        for table in databases.tables(loaded):
            missing |= set(databases.rows(loaded, table)) - set(databases.rows(live, table))
        yield from sorted(missing)
        if not saved or not missing and not wait_until(10, lambda: databases.count_rows(live) > saved):
            yield f"{saved} rows were saved, and none is added"

    def archive_findings(self, item: Item) -> list[str]:
        """What was archived, and what was there besides before the restore."""
        archived = self.repository.archived_tree(item)
        return difference((self.added(item, archived) | archived).items(),
                          describe_tree(self.device.live / item.place).items())

    def added(self, item: Item, archived: dict[str, str]) -> dict[str, str]:
        before = self.before / item.place
        tree = describe_tree(before) if before.exists() else {}
        return {path: description for path, description in tree.items() if path not in archived}

    def item_check(self, item: Item) -> Check:
        fate = self.fate(item)
        if item.kind == "file":
            return Check(item.place, f"{fate}: same bytes, same digest", partial(self.repository.file_findings, item))
        if item.kind == "directory":
            return Check(item.place, f"{fate}: unpacked the same files, and what was added stays",
                         partial(self.archive_findings, item))
        if self.device.is_written(item):
            return Check(item.place, f"{fate}: the saved rows, and the module goes on writing",
                         partial(self.written_findings, item))
        if item.selections:
            return Check(item.place, f"{fate}: all saved rows, everything else untouched",
                         partial(self.merged_findings, item))
        return Check(item.place, f"{fate}: all rows and the schema as saved", partial(self.database_findings, item))

    def item_checks(self) -> list[Check]:
        return [self.item_check(item) for item in self.items]

    def damaged(self) -> list[Item]:
        """Those of which the checks say now that they are not as saved."""
        return [item for item in self.items if self.item_check(item).findings()]

    # Checks of the whole device.

    def spread_checks(self) -> Iterator[Check]:
        """Directories that are saved file by file hold nothing but what was saved, and what was there before."""
        for description in self.device.descriptions:
            for path in description.spread_directories(self.items):
                place = f"{description.module}/{path}"
                yield Check(place, "nothing else has come into it", partial(self.spread_findings, place))

    def spread_findings(self, place: str) -> list[str]:
        saved = {item.place.removeprefix(f"{place}/") for item in self.items}
        return difference([], set(entries_below(self.device.live / place)) - saved
                          - set(entries_below(self.before / place)))

    def untouched(self) -> dict[str, tuple[int, int]]:
        """The files that were as saved, and belong to nothing that is to be fetched."""
        fetched = tuple(item.place + "/" for item in self.to_fetch)
        return {path: stamp for path, stamp in self.stamps_before.items()
                if self.stamps_saved.get(path) == stamp and not f"{path}/".startswith(fetched)}

    def run_checks(self) -> Iterator[Check]:
        untouched = self.untouched()
        yield Check("undamaged files keep their time and number", f"{len(untouched)} files", lambda: difference(
            untouched.items(), untouched.items() & live_stamps(self.device).items()) or
            ([] if untouched else ["there are none"]))
        yield Check("no data that were set aside are left behind", "", lambda: map(
            str, self.device.root.joinpath("data").rglob(".saverestore-*")))
        added = self.owners_before.keys() - self.owners_saved.keys()
        yield Check("owners and modes as before", "", lambda: difference(
            added, [path for path, owner in owners(self.device.live).items()
                    if self.owners_saved.get(path) != owner]))
