"""What the access log of the server says."""

from collections import Counter
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path

from report import Check

CLOCK_SECONDS = 0.002
"""The times in the log are to the millisecond, and an answer is under way a moment."""


@dataclass(frozen=True)
class Request:
    begin: float
    end: float
    subject: str
    method: str
    entry: str
    status: str


def requests(log: Path) -> list[Request]:
    fields = [line.split("\t") for line in log.read_text().splitlines()]
    return [Request(float(end) - float(seconds), float(end), subject, method, entry, status)
            for end, seconds, _, _, _, subject, method, entry, status, *_ in fields]


def access_summary(log: Path) -> str:
    counts = Counter(f"{request.method} {request.status}" for request in requests(log))
    return ", ".join(f"{count} {kind}" for kind, count in sorted(counts.items()))


def access_checks(log: Path) -> Iterator[Check]:
    found = requests(log)
    yield Check("every request", "with the certificate of the device", lambda: [] if found and all(
        "device 0001" in request.subject for request in found) else {request.subject for request in found})
    yield Check("every request", "after the one before for the same entry had ended", lambda: overlaps(found))


def overlaps(found: list[Request]) -> Iterator[str]:
    last: dict[str, float] = {}
    for request in sorted(found, key=lambda request: request.begin):
        if request.begin < last.get(request.entry, 0) - CLOCK_SECONDS:
            yield f"{request.method} {request.entry} began {last[request.entry] - request.begin:.3f} s too early"
        last[request.entry] = request.end
