"""Looking into SQLite databases, and loading dumps as any user would."""

import sqlite3
import subprocess
from contextlib import closing
from pathlib import Path
from urllib.parse import quote

LOCK_LIMIT_SECONDS = 5


def open_database(file: Path, mode: str = "ro") -> closing[sqlite3.Connection]:
    """Makes no database of a missing one, which would hide that it is missing."""
    connection = sqlite3.connect(f"file:{quote(str(file))}?mode={mode}", uri=True, timeout=LOCK_LIMIT_SECONDS)
    connection.text_factory = lambda raw: raw.decode(errors="surrogateescape")
    return closing(connection)


def execute(file: Path, *commands: str) -> None:
    with open_database(file, "rw") as connection, connection:
        for command in commands:
            connection.execute(command)


def query(file: Path, text: str) -> list[str]:
    """The rows in an order of their own, each as a text that tells 1, 1.0 and '1' apart."""
    with open_database(file) as connection:
        return sorted(map(repr, connection.execute(text)))


def number(file: Path, text: str) -> int:
    with open_database(file) as connection:
        return int(connection.execute(text).fetchone()[0])


def tables(file: Path) -> list[str]:
    with open_database(file) as connection:
        return [name for name, in connection.execute("SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY 1")]


def rows(file: Path, table: str) -> list[str]:
    return query(file, f'SELECT * FROM "{table}"')


def count_rows(file: Path) -> int:
    return sum(number(file, f'SELECT count(*) FROM "{table}"') for table in tables(file))


def describe(file: Path) -> list[str]:
    """Everything in a database that a copy must have too."""
    lines = [f"{pragma}: {number(file, f'PRAGMA {pragma}')}" for pragma in ("user_version", "application_id")]
    lines += query(file, "SELECT type, name, tbl_name, sql FROM sqlite_master")
    for table in tables(file):
        lines += [f"{table}: {row}" for row in rows(file, table)]
    return lines


def rows_without(file: Path, table: str, others: Path) -> list[str]:
    """The rows of the table whose key no row of the same table in `others` has."""
    with open_database(file) as connection:
        columns = list(connection.execute(f"PRAGMA table_info({table})"))
        key = ", ".join(column[1] for column in columns if column[5]) or ", ".join(column[1] for column in columns)
        connection.execute("ATTACH ? AS others", (f"file:{quote(str(others))}?mode=ro",))
        return sorted(map(repr, connection.execute(
            f"SELECT * FROM main.{table} WHERE ({key}) NOT IN (SELECT {key} FROM others.{table})")))


def run(*command: str | Path, given: bytes = b"") -> bytes:
    return subprocess.run(command, input=given, capture_output=True, check=True, timeout=60).stdout


def load_dump(entry: Path, target: Path, schema_of: Path | None = None) -> Path:
    """The dump in a new database; one of selected rows needs the schema of a database that has one."""
    target.unlink(missing_ok=True)
    if schema_of is not None:
        run("sqlite3", "-batch", "-bail", target, given=run("sqlite3", "-batch", "-readonly", schema_of, ".schema"))
    run("sqlite3", "-batch", "-bail", target, given=run("zcat", entry))
    return target
