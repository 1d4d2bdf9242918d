"""What the demo says, and the count of its checks."""

import subprocess
from collections.abc import Callable, Iterable
from dataclasses import dataclass

FINDINGS_SHOWN = 5


class DemoFailed(Exception):
    """The demo cannot go on."""


@dataclass(frozen=True)
class Check:
    """Holds when `look` finds nothing; its findings say what is wrong."""

    what: str
    detail: str
    look: Callable[[], Iterable[str]]

    def findings(self) -> list[str]:
        try:
            return list(self.look())
        except subprocess.CalledProcessError as error:
            return [f"{error}: {(error.stderr or b'').decode(errors='replace').strip()}"]
        except Exception as error:
            # Data that are not as they should be can break a look at them in many ways.
            return [f"{type(error).__name__}: {error}"]


def difference(expected: Iterable[object], actual: Iterable[object]) -> list[str]:
    """What is missing and what is too much, each as often as it is."""
    missing, strange = sorted(map(str, expected)), []
    for value in sorted(map(str, actual)):
        if value in missing:
            missing.remove(value)
        else:
            strange.append(value)
    return [f"missing: {value}" for value in missing] + [f"unexpected: {value}" for value in strange]


class Report:
    """Tells the story; details and checks that hold are shown only when everything is to be shown."""

    def __init__(self, verbose: bool) -> None:
        self.verbose = verbose
        self.lines: list[str] = []
        self.checks = 0
        self.failures = 0
        self.act = 0

    def say(self, text: str = "") -> None:
        print(text, flush=True)
        self.lines += text.split("\n")

    def detail(self, text: str) -> None:
        if self.verbose:
            self.say(f"     {text}")

    def heading(self, title: str) -> None:
        self.act += 1
        if self.verbose:
            self.say()
        self.say(f"{self.act:2} {title}")

    def line(self, text: str) -> None:
        self.say(f"   {text}")

    def check(self, what: str, detail: str, look: Callable[[], Iterable[str]]) -> None:
        self.run([Check(what, detail, look)])

    def run(self, checks: Iterable[Check]) -> int:
        """The number of the checks, each of which was made."""
        count = 0
        for check in checks:
            count += 1
            findings = check.findings()
            if findings:
                self.failures += 1
                self.say(f"   BAD  {check.what}  {check.detail}")
                for finding in findings[:FINDINGS_SHOWN]:
                    self.say(f"        {finding}")
            else:
                self.detail(f"ok  {check.what:<46}  {check.detail}".rstrip())
        self.checks += count
        return count

    def verdict(self) -> str:
        if self.failures == 0:
            return f"demo: all {self.checks} checks passed"
        return f"demo: FAILED: {self.failures} of {self.checks} checks failed"


def require(condition: bool, reason: str) -> None:
    if not condition:
        raise DemoFailed(reason)
