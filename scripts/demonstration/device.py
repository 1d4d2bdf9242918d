"""The stand-in device: its processes, its bus, and where its data lie."""

import json
import os
import re
import shutil
import socket
import subprocess
import time
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from items import Description, Item
from report import DemoFailed, require

SOURCES = Path(__file__).resolve().parents[2]
PREFIX = "com.corvane.Pelorin"
LIVES_ON_SECONDS = 8


@dataclass(frozen=True)
class Module:
    """A module as the ApplicationManager lists it."""

    name: str
    pid: int
    version: str
    release: str


def wait_until(seconds: float, condition: Callable[[], bool]) -> bool:
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.05)
    return True


class Device:
    """Everything of it is below `root`; `programs` is the directory of what was built."""

    def __init__(self, root: Path, programs: Path) -> None:
        self.root = root
        self.programs = programs
        self.live = root / "data/VYXApplication"
        self.configuration = root / "etc/VYXApplication"
        self.repository = root / "media/repository"
        self.repository_url = str(self.repository)
        self.migrations = root / "usr/lib/VYXApplication/migration"
        self.address = f"unix:path={root}/bus"
        self.processes: dict[str, subprocess.Popen[bytes]] = {}
        self.operations = 0
        """That were begun so far, by a call or by the schedule."""
        (root / "log").mkdir()
        os.environ |= {"DBUS_SYSTEM_BUS_ADDRESS": self.address, "VYX_DEVICE_ROOT": str(root), "VYX_LOG_LEVEL": "7"}

    def lay_out(self) -> None:
        subprocess.run([SOURCES / "device/make-device", self.root, self.programs], check=True)
        self.descriptions = [Description(file)
                             for file in sorted(self.configuration.glob("module/*/restorable.xml"))]

    def log_file(self, name: str) -> Path:
        return self.root / "log" / f"{name}.log"

    def log(self, name: str = "VYXSaveRestore") -> list[str]:
        return self.log_file(name).read_text(errors="replace").splitlines()

    def spawn(self, name: str, *command: str | Path) -> None:
        """In a session of its own, so that neither Ctrl-C nor the end of the terminal reaches it."""
        with self.log_file(name).open("wb") as log:
            self.processes[name] = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log,
                                                    stderr=subprocess.STDOUT, start_new_session=True)

    def start(self, name: str, *command: str | Path, ready: Callable[[], bool]) -> None:
        self.spawn(name, *command)
        if not wait_until(20, ready):
            raise DemoFailed(f"{name} does not start: " + "\n".join(self.log(name)[-3:]))

    def start_module(self, name: str) -> None:
        self.start(name, self.programs / name, ready=lambda: self.owns_name(name))

    def start_all(self) -> None:
        self.start("bus", "dbus-daemon", f"--config-file={SOURCES}/device/bus.conf", f"--address={self.address}",
                   "--nofork", ready=lambda: self.bus_call("GetId") is not None)
        for name in ("ApplicationManager", "SettingsManager", "Scheduler"):
            self.start_module(name)
        for module in self.modules():
            require(wait_until(20, lambda: self.owns_name(module.name)), f"{module.name} does not start")
        self.start_module("VYXSaveRestore")

    def stop(self, name: str) -> None:
        process = self.processes.pop(name, None)
        if process is None or process.poll() is not None:
            return
        process.terminate()
        try:
            process.wait(LIVES_ON_SECONDS)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()

    def stop_all(self) -> None:
        for name in self.ends_in_order():
            self.stop(name)

    def ends_in_order(self) -> list[str]:
        """The service first, since it resumes who is paused; the bus last."""
        return sorted(self.processes, key=lambda name: (name == "bus", name != "VYXSaveRestore"))

    def bus_call(self, method: str, *arguments: str) -> object:
        answer = subprocess.run(["busctl", f"--address={self.address}", "--json=short", "--timeout=5", "call",
                                 "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                 method, *arguments], capture_output=True)
        return json.loads(answer.stdout)["data"][0] if answer.returncode == 0 else None

    def owns_name(self, module: str) -> bool:
        return self.bus_call("NameHasOwner", "s", f"{PREFIX}.{module}") is True

    def call(self, module: str, method: str, *arguments: str) -> Any:
        """The values of the answer, a list."""
        answer = subprocess.run(["busctl", f"--address={self.address}", "--json=short", "--timeout=300", "call",
                                 f"{PREFIX}.{module}", f"/{PREFIX.replace('.', '/')}/{module}",
                                 f"{PREFIX}.VYXInterface", method, *arguments], capture_output=True, text=True)
        if answer.returncode != 0:
            raise DemoFailed(f"{module}.{method}: {answer.stderr.strip()}")
        return json.loads(answer.stdout)["data"] if answer.stdout.strip() else []

    def modules(self) -> list[Module]:
        return [Module(name, int(pid), version, release)
                for name, pid, version, release, _ in self.call("ApplicationManager", "getModulesList")[0]]

    def items(self) -> list[Item]:
        """All that the descriptions and the live disk say is to be saved."""
        return [item for description in self.descriptions for item in description.items(self.live)]

    def program_options(self) -> dict[str, list[str]]:
        """What each module is started with."""
        lines = (self.configuration / "modules.conf").read_text().splitlines()
        fields = [line.split("\t") for line in lines if line and not line.startswith("#")]
        return {name: program.split() for name, _, _, program, *_ in fields}

    def is_written(self, item: Item) -> bool:
        """Whether the module writes into this database all the time."""
        return item.kind == "database" and f"--write-database {item.path}" in \
            " ".join(self.program_options().get(item.module, []))

    def remembers_digests(self) -> bool:
        """Whether the file system changes its stamps with each content, so that what is restored is recognised."""
        kind = subprocess.run(["stat", "-f", "-c", "%T", self.live], capture_output=True, text=True).stdout.strip()
        return kind in ("ext2/ext3", "xfs", "btrfs")

    def start_server(self) -> None:
        """The repository on an nginx that demands the device's certificate; without developer mode nothing else is
        accepted."""
        pki, server = self.root / "pki", self.root / "server"
        subprocess.run([SOURCES / "device/server/make-pki", pki], check=True)
        tool = self.root / "usr/bin/getVYXinfo"
        tool.parent.mkdir(exist_ok=True)
        shutil.copy(SOURCES / "device/server/getVYXinfo", tool)
        (self.configuration / "pki.conf").write_text(
            f"CERT={pki}/device.pem\nCERT_PKEY={pki}/device.key\nCA={pki}/ca.pem\nSTATUS=SECURED\n")
        port = free_port()
        self.start("server", SOURCES / "device/server/start-server", server, str(port), pki,
                   ready=lambda: port_is_open(port))
        self.repository = server / "store"
        self.repository_url = f"https://127.0.0.1:{port}/save"
        settings = self.configuration / "settings.conf"
        settings.write_text(re.sub("(?m)^SaveRestoreUrl=.*", f"SaveRestoreUrl={self.repository_url}",
                                   settings.read_text()))
        (self.root / "data/dev_mode").unlink()


def free_port() -> int:
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        return int(listener.getsockname()[1])


def port_is_open(port: int) -> bool:
    with socket.socket() as client:
        return client.connect_ex(("127.0.0.1", port)) == 0
