"""The page that saverestorectl writes of what the service does, beside the demo from its begin to its end."""

import re
from collections.abc import Iterable, Iterator
from html.parser import HTMLParser
from pathlib import Path

from device import Device, wait_until
from report import require

MONITOR = "page"
OUTSIDE = re.compile(r"(?i)https?:|//|url\(|@import|javascript:")
REFERENCES = {"href", "src", "srcset", "data", "action", "poster", "xlink:href"}


class Page(HTMLParser):
    """The texts of a page, and what in it leads out of it."""

    def __init__(self, html: str) -> None:
        super().__init__()
        self.texts: list[str] = []
        self.label = ""
        self.paused: list[set[str]] = []
        """The modules of each group that has a bar for the time in which it was paused."""
        self.operations = 0
        self.outside: list[str] = []
        self.in_style = False
        self.feed(html)

    def handle_starttag(self, tag: str, attrs: list[tuple[str, str | None]]) -> None:
        self.in_style = tag == "style"
        values = dict(attrs)
        self.operations += tag == "h2"
        if tag == "svg":
            self.label = values.get("aria-label") or ""
        if tag == "rect" and values.get("class") == "copy" and self.label:
            self.paused.append(set(self.label.split(", ")))
        self.outside += [f"{tag} {name}={value}" for name, value in attrs
                         if (name in REFERENCES and not (value or "").startswith("#"))
                         or (name == "style" and OUTSIDE.search(value or ""))]
        if tag in ("script", "link", "iframe", "object", "embed", "base"):
            self.outside.append(f"<{tag}>")

    def handle_data(self, data: str) -> None:
        if self.in_style and OUTSIDE.search(data):
            self.outside.append(data)
        self.texts.append(data.strip())

    def handle_endtag(self, tag: str) -> None:
        self.in_style = False


def begin_page(device: Device, file: Path) -> None:
    file.parent.mkdir(parents=True, exist_ok=True)
    file.unlink(missing_ok=True)
    device.start(MONITOR, device.programs / "saverestorectl", "monitor", "--html", file,
                 ready=lambda: any("Watching" in line for line in device.log(MONITOR)))


def end_page(device: Device, file: Path) -> Page:
    """Read once the last operation is in it."""
    require(wait_until(5, lambda: file.exists() and Page(file.read_text()).operations == device.operations),
            f"{file} does not tell of {device.operations} operations")
    device.stop(MONITOR)
    return Page(file.read_text())


def page_findings(page: Page, modules: Iterable[str], groups: Iterable[set[str]]) -> Iterator[str]:
    """`modules` have data; `groups` were heard to be asked on the bus and have paused."""
    named = set(" ".join(page.texts).replace(",", " ").split())
    yield from [f"missing: the module {module}" for module in modules if module not in named]
    yield from [f"missing: a pause of {' '.join(sorted(group))}" for group in groups if group not in page.paused]
    yield from [f"leads outside: {reference}" for reference in page.outside]
