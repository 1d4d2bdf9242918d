"""What a reset has to bring about: told from the descriptions' commands and from the data as they left the factory."""

from collections.abc import Iterator
from functools import partial

import databases
from device import Device
from files import describe_tree
from items import Description, Item, Question
from report import Check, difference

SETTINGS = ("text", "copy")
"""The kinds of files of a module's recipe that it brings back to default."""


def module_files(device: Device, module: str) -> dict[str, str]:
    """All of a module's data but its databases."""
    return {path: description for path, description in describe_tree(device.live / module).items()
            if ".data" not in path}


class Factory:
    """What every module's files were like when the device was new."""

    def __init__(self, device: Device) -> None:
        self.device = device
        self.modules = [module.name for module in device.modules()]
        self.files = {module: module_files(device, module) for module in self.modules}

    def settings(self, module: str) -> list[str]:
        recipe = self.device.root / "usr/lib/VYXApplication/recipe" / module / "content.tsv"
        lines = recipe.read_text().splitlines() if recipe.exists() else []
        return [line.split("\t")[1] for line in lines if line.split("\t")[0] in SETTINGS]

    def spoiled(self, reset: str) -> dict[str, set[str]]:
        """Of each module the files that the reset has to bring back, and, for a reset to factory, to remove."""
        found = {}
        for module in self.modules:
            then, now = self.files[module], module_files(self.device, module)
            paths = self.settings(module) if reset == "default" else then.keys() | now.keys()
            found[module] = {path for path in paths if then.get(path) != now.get(path)}
        return {module: paths for module, paths in found.items() if paths}


class Reset:
    """Of one kind, "default" or "factory". Made when it is about to begin."""

    def __init__(self, factory: Factory, kind: str) -> None:
        self.factory = factory
        self.device = factory.device
        self.kind = kind
        self.files_before = {module: module_files(self.device, module) for module in factory.modules}
        self.spoiled_before = factory.spoiled(kind)
        self.rows_before = {(description.module, item.path): self.rows(description, item.path)
                            for description in self.device.descriptions for item in description.databases()}

    def rows(self, description: Description, database: str) -> dict[str, list[str]]:
        file = self.device.live / description.module / f"{database}.data"
        return {table: databases.rows(file, table) for table in databases.tables(file)}

    def questions(self) -> list[Question]:
        return [question for description in self.device.descriptions for question in description.questions(self.kind)]

    def ask(self, question: Question) -> list[str]:
        file = self.device.live / question.module / f"{question.database}.data"
        count = databases.number(file, question.text)
        before = len(self.rows_before[question.module, question.database][question.table])
        if self.kind == "factory" and self.is_written(question):
            # What is measured since has come into the empty table.
            return [] if count < before else [f"{count} rows, {before} before the reset"]
        return [] if count == 0 else [f"{question.text}: {count}"]

    def is_written(self, question: Question) -> bool:
        return any(self.device.is_written(item) for description in self.device.descriptions
                   for item in description.databases()
                   if (item.module, item.path) == (question.module, question.database))

    def question_checks(self) -> list[Check]:
        return [Check(f"{question.module}/{question.database}.data", f"none: {question.text[len('SELECT '):]}",
                      partial(self.ask, question)) for question in self.questions()]

    def kept_checks(self) -> Iterator[Check]:
        """Tables that no command names are as before; also what was added to a module's files stays by default."""
        named = {(question.module, question.database, question.table) for question in self.questions()}
        for description in self.device.descriptions:
            for item in description.databases():
                before = self.rows_before[description.module, item.path]
                kept = [table for table in before if (description.module, item.path, table) not in named]
                for table in () if self.device.is_written(item) else kept:
                    yield Check(item.place, f"{table} stays", partial(self.table_findings, item, table))

    def table_findings(self, item: Item, table: str) -> list[str]:
        return difference(self.rows_before[item.module, item.path][table],
                          databases.rows(self.device.live / item.place, table))

    def file_checks(self) -> Iterator[Check]:
        for module, paths in self.spoiled_before.items():
            for path in sorted(paths):
                what = "as it left the factory" if path in self.factory.files[module] else "is gone"
                yield Check(f"{module}/{path}", what, partial(self.file_findings, module, path))
        yield Check("all files that a module resets", "as they left the factory",
                    lambda: map(str, self.factory.spoiled(self.kind).items()))
        if self.kind == "default":
            yield Check("all other files", "stay, also what was added", lambda: difference(
                self.others(self.files_before), self.others({module: module_files(self.device, module)
                                                             for module in self.factory.modules})))

    def file_findings(self, module: str, path: str) -> list[str]:
        return difference([self.factory.files[module].get(path)], [module_files(self.device, module).get(path)])

    def others(self, files: dict[str, dict[str, str]]) -> list[tuple[str, str, str]]:
        return [(module, path, description) for module, paths in files.items()
                for path, description in paths.items() if path not in self.factory.settings(module)]

    def checks(self) -> Iterator[Check]:
        yield from self.question_checks()
        yield from self.kept_checks()
        yield from self.file_checks()
