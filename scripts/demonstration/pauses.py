"""Who is asked to pause, and how long modules are paused, seen on the bus and in /proc alone."""

import json
import os
import subprocess
import threading
import time
from collections.abc import Iterable
from dataclasses import dataclass, field
from typing import IO

from device import PREFIX, Device, Module, wait_until

LOOK_SECONDS = 0.0003
BAR_WIDTH = 44


@dataclass
class Event:
    """Something that was broadcast: when, by whom, its name and its arguments."""

    time: float
    sender: str
    name: str
    arguments: dict[str, object]


@dataclass
class Pause:
    """Of one module, in seconds since the epoch; without a pause both moments are None. One that was too short to be
    seen in /proc has no length."""

    module: str
    asked: float
    paused: float | None = None
    resumed: float | None = None

    @property
    def length(self) -> float:
        return self.resumed - self.paused if self.paused is not None and self.resumed is not None else 0.0

    @property
    def text(self) -> str:
        return f"{1000 * self.length:.0f} ms" if self.length >= 0.001 else "< 1 ms"


@dataclass
class Watch:
    """Hears the device's events and sees its modules stop and run, from `start` to `stop`."""

    device: Device
    events: list[Event] = field(default_factory=list)
    changes: list[tuple[float, str, bool]] = field(default_factory=list)

    def start(self) -> "Watch":
        self.monitor = subprocess.Popen(
            ["busctl", f"--address={self.device.address}", "--json=short", "monitor",
             f"--match=type='signal',interface='{PREFIX}.VYXEvent'"],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, start_new_session=True)
        assert self.monitor.stdout and self.monitor.stderr
        self.output = self.monitor.stdout
        # It says so when it hears all.
        self.monitor.stderr.readline()
        self.done = threading.Event()
        self.threads = [threading.Thread(target=self.hear, daemon=True),
                        threading.Thread(target=self.look, args=(self.device.modules(),), daemon=True)]
        for thread in self.threads:
            thread.start()
        return self

    def stop(self) -> None:
        time.sleep(0.1)  # what was broadcast before may still be on its way
        self.done.set()
        self.monitor.terminate()
        self.monitor.wait()
        for thread in self.threads:
            thread.join()

    def hear(self) -> None:
        for line in self.output:
            message = json.loads(line)
            if message.get("interface") != f"{PREFIX}.VYXEvent":
                continue  # the bus has ended
            arguments = {name: value["data"] for name, value in message["payload"]["data"][0].items()}
            self.events.append(Event(message["timestamp-realtime"] / 1e6, message["path"].rsplit("/", 1)[1],
                                     message["member"], arguments))

    def look(self, modules: Iterable[Module]) -> None:
        stopped = {module: False for module in modules}
        files = {module: open(f"/proc/{module.pid}/stat", "rb", buffering=0) for module in modules if module.pid}
        while not self.done.is_set():
            for module, file in files.items():
                is_stopped = state_in(file) == "T"
                if is_stopped != stopped[module]:
                    self.changes.append((time.time(), module.name, is_stopped))
                stopped[module] = is_stopped
            time.sleep(LOOK_SECONDS)
        for file in files.values():
            file.close()

    def heard(self, name: str, module: str | None = None) -> bool:
        """Whether the event comes, within two seconds."""
        return wait_until(2, lambda: any(event.name == name and module in (None, event.arguments.get("ModuleName"))
                                         for event in self.events))

    def groups(self) -> list[list[Pause]]:
        """The pauses of each group, in the order in which they were asked for."""
        asked = [event for event in self.events if event.name == "stop_save_restore"]
        return [[self.pause(module, event.time) for module in str(event.arguments["ModulesPidsList"]).split(":")
                 if module] for event in asked]

    def pause(self, module: str, asked: float) -> Pause:
        """From the moment it is seen stopped, or says that it stops now."""
        pause = Pause(module, asked)
        own = [(moment, is_stopped) for moment, name, is_stopped in self.changes if name == module and moment > asked]
        said = [event.time for event in self.events if event.name == "stop_save_restore_OK"
                and event.arguments["ModuleName"] == module and event.time > asked]
        pause.paused = next((moment for moment, is_stopped in own if is_stopped), next(iter(said), None))
        if pause.paused is not None:
            pause.resumed = next((moment for moment, is_stopped in own if moment > pause.paused), pause.paused)
        return pause


def state_in(file: IO[bytes]) -> str:
    """A letter as in /proc/<pid>/stat; "X" when there is no such process."""
    try:
        return os.pread(file.fileno(), 4096, 0).decode(errors="replace").rsplit(")", 1)[1].split()[0]
    except OSError:
        return "X"


def process_state(pid: int) -> str:
    try:
        with open(f"/proc/{pid}/stat", "rb", buffering=0) as file:
            return state_in(file)
    except OSError:
        return "X"


def span(groups: list[list[Pause]]) -> tuple[float, float]:
    """From the first that was asked to the last that runs again."""
    pauses = [pause for group in groups for pause in group]
    return min(pause.asked for pause in pauses), max(pause.resumed or pause.asked for pause in pauses)


def time_line(groups: list[list[Pause]]) -> list[str]:
    """One line for each module: asked ".", paused "#"."""
    begin, end = span(groups)
    scale = BAR_WIDTH / max(end - begin, 0.001)
    lines = []
    for number, group in enumerate(groups, 1):
        for pause in group:
            paused, resumed = pause.paused or pause.asked, pause.resumed or pause.asked
            asked, first, last = (round((moment - begin) * scale) for moment in (pause.asked, paused, resumed))
            asked = min(asked, BAR_WIDTH - 1)
            bar = " " * asked + "." * (min(first, BAR_WIDTH - 1) - asked) + "#" * max(last - first, 1)
            lines.append(f"#{number} {pause.module:<10} |{bar[:BAR_WIDTH]:<{BAR_WIDTH}}| {pause.text:>6}")
    return lines
