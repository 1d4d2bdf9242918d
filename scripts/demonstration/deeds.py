"""What happens to the modules' data in the course of the demo."""

import os
import shutil
import textwrap
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path

from databases import execute
from items import Item


@dataclass(frozen=True)
class Deed:
    """Something that is done to the data of one module below the directory that `do` is given: to the item `path`, or
    to all items below it."""

    module: str
    path: str
    text: str
    do: Callable[[Path], None]

    def covers(self, item: Item) -> bool:
        return item.module == self.module and f"{item.path}/".startswith(f"{self.path}/")


def do_all(deeds: list[Deed], live: Path) -> None:
    for deed in deeds:
        deed.do(live / deed.module)


def covered(deeds: list[Deed], items: list[Item]) -> list[Item]:
    return [item for item in items if any(deed.covers(item) for deed in deeds)]


def texts(deeds: list[Deed]) -> list[str]:
    """What was done, by module, in lines."""
    modules = dict.fromkeys(deed.module for deed in deeds)
    return textwrap.wrap(". ".join(f"{module}: " + ", ".join(deed.text for deed in deeds if deed.module == module)
                                   for module in modules) + ".", 96)


Doing = Callable[[Path], None]


def append(path: str, text: str) -> Doing:
    def do(data: Path) -> None:
        with (data / path).open("a") as file:
            file.write(text)
    return do


def write(path: str, content: str | bytes) -> Doing:
    def do(data: Path) -> None:
        (data / path).write_bytes(content if isinstance(content, bytes) else content.encode())
    return do


def change_byte(path: str, position: int) -> Doing:
    def do(data: Path) -> None:
        with (data / path).open("r+b") as file:
            file.seek(position)
            file.write(b"#")
    return do


def remove(path: str) -> Doing:
    return lambda data: shutil.rmtree(data / path) if (data / path).is_dir() else (data / path).unlink()


def cut(path: str, size: int) -> Doing:
    return lambda data: os.truncate(data / path, size)


def change(database: str, *commands: str) -> Doing:
    return lambda data: execute(data / f"{database}.data", *commands)


def change_routes(data: Path) -> None:
    write("routes/holiday/alps.trk", "lost\n")(data)
    remove("routes/to work.gpx")(data)
    write("routes/new.gpx", "<gpx><rte><name>new</name></rte></gpx>\n")(data)


ADDED_PICTURE = 'My Pictures/new [2] "friends".jpg'
REMOVED_PICTURE = "My Pictures/-rf.jpg"

CHANGES = [
    Deed("PhoneBook", "contacts", "a contact changed and one added", change(
        "contacts", "UPDATE contact SET note = 'moved to \"Köln\"' WHERE id = 1",
        "INSERT INTO contact VALUES (1000, 'D''Angelo', 'Zoë', '+39 06 5550 100', NULL)")),
    Deed("Radio", "presets.conf", "a line added to presets.conf", append("presets.conf", "4=97.3\n")),
    Deed("Navigator", "routes", "a file added to routes/, which is archived",
         write("routes/to the lake.gpx", "<gpx><rte><name>lake</name></rte></gpx>\n")),
    Deed("Gallery", REMOVED_PICTURE, "a picture removed", remove(REMOVED_PICTURE)),
    Deed("Gallery", ADDED_PICTURE, "one added", write(ADDED_PICTURE, os.urandom(30000))),
]

DAMAGE = [
    Deed("PhoneBook", "contacts", "contacts cut to 0 bytes", cut("contacts.data", 0)),
    Deed("PhoneBook", "calls", "calls edited, also what is not saved", change(
        "calls", "DELETE FROM calls WHERE direction = 'outgoing'", "DELETE FROM calls WHERE id = 8",
        "UPDATE calls SET number = '?', started = NULL WHERE id % 5 = 0",
        "INSERT INTO calls VALUES (1000, '+49 30 5550199', 'incoming', '2026-03-09 10:00:00', 60)",
        "DELETE FROM favourites WHERE contact = 2",
        "UPDATE favourites SET label = 'nobody', speed_dial = 9 WHERE contact = 1",
        "INSERT INTO signalling_trace VALUES (3, x'00FF')",
        "UPDATE signalling_trace SET packet = NULL WHERE id = 1")),
    Deed("PhoneBook", "ringtones.conf", "ringtones.conf overwritten", write("ringtones.conf", "default=beep\n")),
    Deed("PhoneBook", "conf", "conf/ deleted", remove("conf")),
    Deed("Navigator", "places", "places cut in the middle", cut("places.data", 5000)),
    Deed("Navigator", "navigator.ini", "a byte of navigator.ini changed", change_byte("navigator.ini", 8)),
    Deed("Navigator", "routes", "routes/ with a file overwritten, one deleted and one added", change_routes),
    Deed("Guide", "programmes", "programmes edited, also what is not saved", change(
        "programmes", "DELETE FROM reminder WHERE id = 1", "UPDATE reminder SET title = 'x' WHERE id = 2",
        "DELETE FROM broadcast WHERE id > 490")),
    Deed("Recorder", "samples", "100 samples deleted", change("samples", "DELETE FROM samples WHERE id <= 100")),
    Deed("Recorder", "conf/logs", "conf/logs/ deleted", remove("conf/logs")),
    Deed("Gallery", "My Pictures", "My Pictures/ deleted", remove("My Pictures")),
    Deed("Radio", "presets.conf", "presets.conf deleted", remove("presets.conf")),
    Deed("Tuner", "stations", "stations deleted", remove("stations.data")),
    Deed("Tuner", "conf", "conf/ deleted", remove("conf")),
]

LOSSES = [
    Deed("PhoneBook", "contacts", "some contacts deleted", change("contacts", "DELETE FROM contact WHERE id > 300")),
    # Its migration program gives a start to calls without one; a missed call is not saved, so nothing else does.
    Deed("PhoneBook", "calls", "a missed call without its start", change(
        "calls", "UPDATE calls SET started = NULL WHERE id = 4")),
]

BEFORE_SCHEDULED_SAVE = [
    Deed("PhoneBook", "contacts", "one contact changed",
         change("contacts", "UPDATE contact SET note = 'called' WHERE id = 2")),
]

USED_BEFORE_DEFAULT = [
    Deed("PhoneBook", "ringtones.conf", "ringtones.conf overwritten", write("ringtones.conf", "volume=11\n")),
]

USED_BEFORE_FACTORY = [
    Deed("Gallery", "gallery.ini", "gallery.ini overwritten", write("gallery.ini", "sort=name\n")),
    Deed("Navigator", "places", "one recent destination", change(
        "places", "INSERT INTO recent VALUES (1, '2026-03-08 09:00')")),
]
