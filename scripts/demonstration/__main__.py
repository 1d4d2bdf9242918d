"""Shows the service at work on a stand-in device of its own, and holds everything that it does against what a user
can see: files, processes, the bus. scripts/demo starts it when all is built."""

import argparse
import os
import re
import shutil
import signal
import sys
import tempfile
import time
from pathlib import Path

from device import PREFIX, SOURCES, Device
from page import begin_page, end_page, page_findings
from pictures import draw_pauses, draw_terminal
from report import DemoFailed, Report
from story import Story


PAGE = SOURCES / "build/dev/demo.html"


def main() -> int:
    arguments = parse_arguments()
    # The modes that a device's files have, whoever runs this.
    os.umask(0o022)
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda number, _: sys.exit(128 + number))
    root = Path(tempfile.mkdtemp(prefix="saverestore-demo.", dir=temporary_directory()))
    device = Device(root, SOURCES / "build/dev/bin")
    report = Report(arguments.verbose)
    stays = False
    try:
        tell(device, report, arguments)
        stays = arguments.keep
    except DemoFailed as failure:
        print(f"demo: FAILED: {failure}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        return 130
    finally:
        if not stays:
            device.stop_all()
            shutil.rmtree(root, ignore_errors=True)
    return 1 if report.failures else 0


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="scripts/demo")
    parser.add_argument("--verbose", action="store_true", help="show every check and what was sent and fetched")
    parser.add_argument("--https", action="store_true", help="the repository is an nginx that demands a certificate")
    parser.add_argument("--keep", action="store_true", help="leave the device running, and say how to play with it")
    parser.add_argument("--pictures", type=Path, metavar="DIRECTORY", help="draw what was shown and the pauses, as SVG")
    return parser.parse_args()


def temporary_directory() -> str:
    """The bus address takes no odd characters, and a socket's path is short."""
    parent = os.environ.get("TMPDIR", "/tmp")
    return parent if re.fullmatch(r"/[-0-9A-Za-z_/.]{1,60}", parent) else "/tmp"


def tell(device: Device, report: Report, arguments: argparse.Namespace) -> None:
    begin = time.monotonic()
    scratch = device.root / "scratch"
    scratch.mkdir()
    device.lay_out()
    if arguments.https:
        device.start_server()
    device.start_all()
    begin_page(device, PAGE)
    story = Story(device, report, scratch)
    story.tell()
    check_page(story, report)
    report.say(f"{report.verdict()}, {time.monotonic() - begin:.0f} s")
    shutil.rmtree(scratch)
    conclude(story, report, arguments)


def check_page(story: Story, report: Report) -> None:
    page = end_page(story.device, PAGE)
    groups = [{pause.module for pause in group} for group in story.first_pauses]
    report.check("the page of all operations", "names each module and group, leads nowhere", lambda: page_findings(
        page, [description.module for description in story.device.descriptions], groups))
    report.line(f"All operations, with time lines of the pauses, are on a page: {PAGE.relative_to(SOURCES)}")


def conclude(story: Story, report: Report, arguments: argparse.Namespace) -> None:
    """What is made of the story when it has been told, with the device still running."""
    if arguments.pictures:
        draw_terminal(arguments.pictures / "demo.svg", "scripts/demo", report.lines)
        draw_pauses(arguments.pictures / "pauses.svg", story.first_pauses)
    if arguments.keep:
        for module in story.device.modules():
            story.device.call("ApplicationManager", "startModule", "s", module.name)
        print(how_to_play(story.device))


def how_to_play(device: Device) -> str:
    pids = {name: process.pid for name, process in device.processes.items()}
    bus = pids.pop("bus")
    others = " ".join(str(pids[name]) for name in device.ends_in_order() if name in pids)
    call = f"busctl --timeout=30min call {PREFIX}.$1 /{PREFIX.replace('.', '/')}/$1 {PREFIX}.VYXInterface"
    return f"""
The device stays up, as it left the factory, and its repository as it was saved. For a shell of the same user:

    export DBUS_SYSTEM_BUS_ADDRESS={device.address} root={device.root}
    repository={device.repository} data=$root/data/VYXApplication
    vyx() {{ {call} "${{@:2}}" | sed 's/\\\\n/\\n/g'; }}

Watch, each in a shell of its own, the service's log and the events on the bus:

    tail -f $root/log/VYXSaveRestore.log
    busctl --match="type='signal',interface='{PREFIX}.VYXEvent'" monitor

Restore; damage data, and restore them:

    vyx VYXSaveRestore startRestoreFromRepository
    rm $data/PhoneBook/ringtones.conf; : >$data/PhoneBook/contacts.data; ls -l $data/PhoneBook
    vyx VYXSaveRestore startRestoreFromRepository; ls -l $data/PhoneBook

Change data, save, and look into the repository:

    sqlite3 $data/PhoneBook/contacts.data "UPDATE contact SET note = 'mine' WHERE id = 3"
    vyx VYXSaveRestore startSaveOnRepository; ls -lt $repository | head; cat $repository/PhoneBook.cksum
    zcat $repository/PhoneBook++contacts.dump.gz | grep mine; zcat $repository/Navigator++routes.tar.gz | tar -tv

Choose another repository. The call answers nothing, also when there is no such directory, so ask what is chosen:

    touch $root/data/dev_mode; mkdir $root/media/other
    vyx VYXSaveRestore setRepositoryUrl s $root/media/other; vyx VYXSaveRestore printSettings
    vyx VYXSaveRestore setRepositoryUrl s $root/media/missing; vyx VYXSaveRestore printSettings
    vyx VYXSaveRestore setRepositoryUrl s {device.repository_url}; vyx VYXSaveRestore printSettings

See what is scheduled; docs/operations.md has an example of every call:

    vyx Scheduler printTasks

End it all and remove its data:

    kill {others}; sleep 4; kill {bus}; rm -rf {device.root}
"""


sys.exit(main())
