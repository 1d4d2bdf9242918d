"""The acts of the demo, in their order."""

import re
import time
from collections import Counter
from collections.abc import Iterable, Iterator
from datetime import datetime
from pathlib import Path
from typing import Any

from databases import number
from deeds import (BEFORE_SCHEDULED_SAVE, CHANGES, DAMAGE, LOSSES, USED_BEFORE_DEFAULT, USED_BEFORE_FACTORY, Deed,
                   covered, do_all, texts)
from device import Device, wait_until
from files import sum_of
from items import Item
from operation import Operation, errors_in
from pauses import Pause, span, time_line
from report import DemoFailed, Report, difference, require
from repository import Repository
from resets import Factory, Reset
from restored import Restored
from server import access_checks, access_summary

CLOCK_SETTLES_SECONDS = 4
"""What a restore has put back is believed to be the same once it is older than the file system's clock can tell."""
OLD_RELEASE, NEW_RELEASE, NEW_VERSION = "2026.1", "2026.2", "4.3.0"


class Story:
    """On a device that runs; `scratch` is a directory for what the checks unpack and copy."""

    def __init__(self, device: Device, report: Report, scratch: Path) -> None:
        self.device = device
        self.report = report
        self.repository = Repository(device, scratch)
        self.before = scratch / "before/data/VYXApplication"
        self.before.parent.mkdir(parents=True)
        self.factory = Factory(device)
        self.first_pauses: list[list[Pause]] = []

    def tell(self) -> None:
        self.show_device()
        self.first_save()
        self.second_save()
        self.third_save()
        self.damage()
        self.restore()
        self.restore_other_release()
        self.scheduled_save()
        self.reset_to_default()
        self.reset_to_factory()
        self.look_at_logs()

    # What several acts share.

    def check_repository(self) -> None:
        before = self.report.checks
        self.report.run(self.repository.checks(self.operation.rows_before))
        self.report.line(f"{len(self.repository.all_entries())} entries against the live data, by zcat, tar and "
                         f"sqlite3: {self.report.checks - before} checks")

    def show(self, lines: Iterable[str]) -> None:
        for line in lines:
            self.report.line(line)

    # The acts.

    def show_device(self) -> None:
        modules, live = self.device.modules(), sum_of(self.device.live)
        self.report.line(f"A device with {len(modules)} modules on a bus of its own, {live.files} files with "
                         f"{live.kilobytes} kB, below {self.device.root}.")
        self.report.line(f"Its repository is {self.device.repository_url}")
        for module in modules:
            found = sum_of(self.device.live / module.name)
            self.report.detail(f"{module.name:<10} pid {module.pid:<7} {found.kilobytes:4} kB, {found.files:2} files")

    def save(self, title: str) -> None:
        """One by a call; what has to be sent and removed was told before."""
        to_send, to_remove = self.repository.entries_to_send(), self.repository.entries_to_remove()
        self.operation = Operation(self.repository)
        answer = self.operation.call("startSaveOnRepository")
        self.operation.end()
        self.report.heading(f"{title}: {self.operation.seconds:.1f} s")
        require(answer == [True], f"the save failed: {answer}\n" + "\n".join(self.operation.errors()))
        self.check_saved(to_send, to_remove)

    def check_saved(self, to_send: set[str], to_remove: set[str]) -> None:
        operation = self.operation
        ignored = self.repository.optional_entries() if operation.entries_before else set()
        self.report.check("all modules run again", "", operation.paused_modules)
        self.report.check("only what differed was sent", f"{len(to_send)} entries",
                          lambda: difference(to_send - ignored, operation.sent() - ignored))
        self.report.check("only what disappeared was removed", f"{len(to_remove)} entries",
                          lambda: difference(to_remove, operation.removed()))

    def first_save(self) -> None:
        self.save("First save, into an empty repository")
        self.show(self.saved_by_module())
        self.first_pauses = self.operation.watch.groups()
        require(bool(self.first_pauses), "no module was asked to pause")
        self.report.check("every module that was asked has paused", "", lambda: [
            pause.module for group in self.first_pauses for pause in group if pause.paused is None])
        self.show_pauses(self.first_pauses)
        self.check_repository()

    def saved_by_module(self) -> Iterator[str]:
        items = self.repository.items
        for module in dict.fromkeys(item.module for item in items):
            own = [item for item in items if item.module == module]
            live = sum_of(*(self.repository.live(item) for item in own))
            saved = sum_of(*(self.repository.entry(item) for item in own))
            yield f"{module:<10} {kinds_of(own)}: {live.kilobytes:4} kB live, {saved.kilobytes:4} kB saved"

    def show_pauses(self, groups: list[list[Pause]]) -> None:
        begin, end = span(groups)
        self.report.line(f"Asked to pause (.) on the bus, stopped (#) in /proc; {1000 * (end - begin):.0f} ms in all:")
        self.show(time_line(groups))

    def second_save(self) -> None:
        do_all(CHANGES, self.device.live)
        self.repository.look_at_items()
        self.check_differing(CHANGES)
        self.save("Second save, after some changes")
        self.show(texts(CHANGES))
        self.report.line(self.operation.transfers())
        self.show_log_details("(?:New|Update|Remove) file: .*")
        self.check_repository()

    def check_differing(self, deeds: list[Deed]) -> None:
        """A check that cannot fail shows nothing: what was done has to be found."""
        written = [item for item in self.repository.items if self.device.is_written(item)]
        self.report.check("what was changed differs from what was saved", "and nothing else", lambda: difference(
            {*covered(deeds, self.repository.items), *written}, self.repository.changed_items()))

    def show_log_details(self, expression: str) -> None:
        for text in self.operation.log_values(f"({expression})"):
            self.report.detail(text)

    def third_save(self) -> None:
        self.repository.look_at_items()
        self.check_differing([])
        self.save("Third save, with nothing changed but what the Recorder measures")
        self.report.line(self.operation.transfers())
        self.check_repository()

    def damage(self) -> None:
        self.report.heading("The device is damaged")
        self.restored = Restored(self.repository, self.before)
        do_all(DAMAGE, self.device.live)
        self.restored.note_before()
        self.show(texts(DAMAGE))
        damaged = self.restored.damaged()
        self.report.check("the checks of the restore find all of it", f"{len(damaged)} items differ",
                          lambda: difference(covered(DAMAGE, self.restored.items), damaged))
        self.report.check("before it nothing else is to be fetched", "", lambda: difference(
            damaged, self.restored.to_fetch))

    def restore(self) -> None:
        self.call_restore("Restore")
        self.check_restored()

    def call_restore(self, title: str, lost: Iterable[str] = ()) -> None:
        self.operation = Operation(self.repository)
        self.operation.call("startRestoreFromRepository")
        self.operation.end()
        self.report.heading(f"{title}: {self.operation.seconds:.1f} s")
        self.show(lost)
        back = [item for item in self.restored.items if self.restored.fate(item) == "restored"]
        self.report.line(f"Came back: {kinds_of(back)}; left alone: {len(self.restored.items) - len(back)}; "
                         f"{self.operation.longest_pause()}")
        self.report.detail("fetched: " + ", ".join(self.operation.fetched()))

    def check_restored(self) -> None:
        report, restored, before = self.report, self.restored, self.report.checks
        report.run(restored.item_checks())
        report.run(restored.spread_checks())
        report.check("only what differed was fetched", "", lambda: difference(
            [item.key for item in restored.to_fetch], self.operation.fetched()))
        report.check("each other item was found to be the same", "", lambda: difference(
            [item.key for item in restored.items], self.operation.fetched() + self.operation.kept()))
        report.run(restored.run_checks())
        report.check("the service reports the end, and no error", "but for what was missing", self.end_findings)
        report.check("all modules run, in the same processes", "", lambda: self.operation.paused_modules() + difference(
            self.operation.modules_before, self.device.modules()))
        self.check_repository_untouched()
        report.line(f"Every item against what was saved, and what nobody had damaged: {report.checks - before} checks")

    def end_findings(self) -> list[str]:
        ends = self.operation.log_values(r"(Restore finished \(.*PhoneBook.*\))")
        return self.operation.errors() + difference(["1 end"], [f"{len(ends)} end"])

    def check_repository_untouched(self) -> None:
        self.report.check("the repository", "not touched", lambda: difference(
            self.operation.entries_before.items(), self.repository.snapshot().items()))

    def restore_other_release(self) -> None:
        require(self.device.call("ApplicationManager", "setModuleRelease", "sss", "PhoneBook", NEW_RELEASE,
                                 NEW_VERSION) == [True], "no other release for PhoneBook")
        self.restored = Restored(self.repository, self.before)
        do_all(LOSSES, self.device.live)
        time.sleep(CLOCK_SETTLES_SECONDS)
        self.restored.note_before()
        self.restored.migrate_before("PhoneBook", OLD_RELEASE)
        self.call_restore(f"PhoneBook comes in release {NEW_RELEASE}, and restore again", texts(LOSSES))
        self.check_migration()
        self.check_restored()

    def check_migration(self) -> None:
        done = "Migration of module 'PhoneBook' done"
        wait_until(20, lambda: self.operation.says(done, "ApplicationManager"))
        asked = f"Start migration process for module 'PhoneBook' : '{OLD_RELEASE}' -> '{NEW_RELEASE}'"
        self.report.check("the service asks for this migration alone", f"from {OLD_RELEASE} to {NEW_RELEASE}",
                          lambda: difference([asked], self.operation.log_values("(Start migration process .*)")))
        self.report.check("the ApplicationManager ran the program", "to its end", lambda: difference(
            [True], [self.operation.says(done, "ApplicationManager")]))
        start = "SELECT started = '1970-01-01 00:00:00' FROM calls WHERE id = 4"
        self.report.check("the program did its work", "a call without a start has one", lambda: difference(
            [1], [number(self.device.live / "PhoneBook/calls.data", start)]))
        for line in self.operation.log("ApplicationManager"):
            if "migrated from release" in line:
                self.report.line(f"The migration program says: {line}")

    def next_save(self) -> datetime:
        """The Scheduler's next time for the service."""
        tasks = self.device.call("Scheduler", "printTasks")[0]
        found = re.search(r"VYXSaveRestore\.startSaveOnRepository, next: ([-0-9T:]+)", tasks)
        if found is None:
            raise DemoFailed(f"no save is scheduled: {tasks}")
        return datetime.fromisoformat(found[1])

    def scheduled_save(self) -> None:
        self.report.heading("A scheduled save")
        refused = self.set_setting("SaveRestoreSchedule", "25")
        self.report.check("a schedule of 25 o'clock is refused", "by the service, through the SettingsManager",
                          lambda: difference([False], refused[:1]))
        self.set_setting("SaveRestoreSchedule", "4")
        self.set_setting("SaveRestoreScheduleType", "2")
        for line in self.device.call("VYXSaveRestore", "printSettings")[0].splitlines():
            self.report.detail(line)
        do_all(BEFORE_SCHEDULED_SAVE, self.device.live)
        # What a restore has put back is another file than the saved one; what is not remembered is sent again.
        (self.device.live / "VYXSaveRestore/digests").unlink(missing_ok=True)
        to_send, to_remove = self.repository.entries_to_send(), self.repository.entries_to_remove()
        moment = self.next_save()
        self.operation = Operation(self.repository)
        self.report.check("the save starts when its time comes", "the Scheduler's clock is put ahead",
                          lambda: difference([True], [self.runs_at(moment)]))
        self.operation.end()
        self.report.line(f"The Scheduler, put ahead, called it at {moment:%H:%M}.")
        self.report.line(self.operation.transfers())
        self.check_saved(to_send, to_remove)
        self.check_repository()

    def set_setting(self, name: str, value: str) -> Any:
        """The SettingsManager's report."""
        return self.device.call("SettingsManager", "setSettingValue", "ss", name, value)[0]

    def runs_at(self, moment: datetime) -> bool:
        ahead = int((moment - datetime.now()).total_seconds()) + 2
        self.device.call("Scheduler", "advanceClock", "i", str(ahead))
        return wait_until(120, lambda: self.operation.says("Saving operations done"))

    def reset(self, kind: str, deeds: list[Deed], answer: list[object]) -> None:
        do_all(deeds, self.device.live)
        reset = Reset(self.factory, kind)
        questions = reset.question_checks()
        self.report.check(f"before the reset none of its {len(questions)} commands is done", "", lambda: [
            check.what for check in questions if not check.findings()])
        self.report.check("before the reset what was done to files is found", "", lambda: [
            deed.text for deed in deeds if deed.path.endswith((".conf", ".ini")) and
            deed.path not in reset.spoiled_before.get(deed.module, ())])
        self.operation = Operation(self.repository)
        found = self.operation.call("resetTo" + kind.capitalize())
        self.report.heading(f"Reset to {kind}: {self.operation.seconds:.1f} s")
        self.report.check("the call's answer", str(answer), lambda: difference(answer, found))
        if kind == "factory":
            self.report.check("all modules are stopped", "", lambda: [] if wait_until(10, self.no_module_runs) else
                              map(str, self.device.modules()))
        count = self.report.run(reset.checks())
        self.check_reports(kind)
        self.operation.end()
        self.check_repository_untouched()
        files = sum(map(len, reset.spoiled_before.values()))
        self.report.line(f"{len(questions)} commands on databases, {files} files back as they were: {count} checks")

    def check_reports(self, kind: str) -> None:
        modules = [module.name for module in self.device.modules()] + ["VYXSaveRestore"]
        done = f"reset_{kind}_done"
        self.report.check("every module has reported", "", lambda: [
            f"{module} has not" for module in modules if not self.operation.watch.heard(done, module)])
        rebooting = [name for name, options in self.device.program_options().items() if "--needs-reboot" in options]
        self.report.check("who asks for a reboot", ", ".join(rebooting), lambda: difference(
            rebooting, [event.arguments["ModuleName"] for event in self.operation.watch.events
                        if event.name == done and event.arguments["NeedReboot"]]))

    def no_module_runs(self) -> bool:
        return all(module.pid == 0 for module in self.device.modules())

    def reset_to_default(self) -> None:
        self.reset("default", USED_BEFORE_DEFAULT, [True])
        self.report.check("the end is announced", "", lambda: [] if any(
            event.name == "reset_data_default_complete" for event in self.operation.watch.events) else ["it is not"])
        self.report.check("all modules run", "", self.operation.paused_modules)

    def reset_to_factory(self) -> None:
        self.reset("factory", USED_BEFORE_FACTORY, [])

    def look_at_logs(self) -> None:
        self.report.check("the service's whole log", "neither a warning nor an error",
                          lambda: errors_in(self.device.log()))
        access_log = self.device.root / "server/log/access.log"
        if access_log.exists():
            self.report.heading(f"The server's access log: {access_summary(access_log)}")
            self.report.run(access_checks(access_log))


def kinds_of(items: list[Item]) -> str:
    counts = Counter(item.kind for item in items)
    return f"databases {counts['database']}, archives {counts['directory']}, files {counts['file']:>2}"
