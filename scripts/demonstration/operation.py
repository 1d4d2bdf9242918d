"""One call of the service, and what of it is seen from outside."""

import re
import time
from typing import Any

from databases import count_rows
from device import Device, Module
from pauses import Watch, process_state
from repository import Repository


class Operation:
    """From its making, right before the call, to `end`."""

    def __init__(self, repository: Repository) -> None:
        self.device: Device = repository.device
        self.repository = repository
        self.log_begin = {name: len(self.device.log(name)) for name in ("VYXSaveRestore", "ApplicationManager")}
        self.entries_before = repository.snapshot()
        self.modules_before: list[Module] = self.device.modules()
        self.rows_before = sum(count_rows(self.device.live / item.place)
                               for item in self.device.items() if self.device.is_written(item))
        self.watch = Watch(self.device).start()
        self.device.operations += 1
        self.begin = time.monotonic()
        self.seconds = 0.0

    def call(self, method: str) -> Any:
        """The answer."""
        answer = self.device.call("VYXSaveRestore", method)
        self.seconds = time.monotonic() - self.begin
        return answer

    def end(self) -> None:
        self.watch.stop()

    def log(self, name: str = "VYXSaveRestore") -> list[str]:
        """Since the begin."""
        return self.device.log(name)[self.log_begin[name]:]

    def log_values(self, expression: str) -> list[str]:
        """What the group of the expression is in lines of the service's log that match as a whole."""
        found = [re.fullmatch(r"\w+ [^:]*: " + expression, line) for line in self.log()]
        return [match[1] for match in found if match]

    def says(self, text: str, name: str = "VYXSaveRestore") -> bool:
        return any(text in line for line in self.log(name))

    def errors(self) -> list[str]:
        return errors_in(self.log())

    def paused_modules(self) -> list[str]:
        states = {module.name: process_state(module.pid) for module in self.device.modules()}
        return [f"{name} is in state {state}" for name, state in states.items() if state in "TtZX"]

    def longest_pause(self) -> str:
        pauses = [pause for group in self.watch.groups() for pause in group]
        if not pauses:
            return "no pause"
        pause = max(pauses, key=lambda pause: pause.length)
        return f"longest pause {pause.text} ({pause.module})"

    def sent(self) -> set[str]:
        """The names of the entries that were written."""
        return {name for name, stamp in self.repository.snapshot().items() if self.entries_before.get(name) != stamp}

    def removed(self) -> set[str]:
        return self.entries_before.keys() - self.repository.snapshot().keys()

    def transfers(self) -> str:
        counts = {kind: len(self.log_values(f"({kind} file: .*)")) for kind in ("New", "Update", "Same", "Remove")}
        return (f"New {counts['New']}, updated {counts['Update']}, the same and not sent {counts['Same']}, "
                f"removed {counts['Remove']}; {self.longest_pause()}")

    def fetched(self) -> list[str]:
        return self.log_values("New/updated file '(.*)': download and update")

    def kept(self) -> list[str]:
        return self.log_values("Same file '(.*)': no need to restore")


def errors_in(lines: list[str]) -> list[str]:
    return [line for line in lines if line.startswith(("error", "warning"))]
