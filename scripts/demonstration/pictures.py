"""Drawing what was shown on a terminal, and pauses on a time line, as SVG for light and dark pages."""

from html import escape
from pathlib import Path

from pauses import Pause, span

CHARACTER_WIDTH = 7.8
LINE_HEIGHT = 17
MARGIN = 14
STYLE = """text { font: 13px ui-monospace, Menlo, Consolas, "DejaVu Sans Mono", monospace; fill: #1f2328; }
.page { fill: #f6f8fa; stroke: #d1d9e0; } .faint { fill: #59636e; } .good { fill: #1a7f37; } .bad { fill: #cf222e; }
.head { font-weight: bold; } .asked { fill: #bf8700; } .paused { fill: #0969da; } line { stroke: #d1d9e0; }
@media (prefers-color-scheme: dark) {
text { fill: #e6edf3; } .page { fill: #151b23; stroke: #3d444d; } .faint { fill: #9198a1; } .good { fill: #3fb950; }
.bad { fill: #f85149; } .asked { fill: #d29922; } .paused { fill: #4493f8; } line { stroke: #3d444d; }
}"""


def picture(width: float, height: float, title: str, content: list[str]) -> str:
    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width:.0f} {height:.0f}" width="{width:.0f}">',
        f"<title>{escape(title)}</title>", f"<style>{STYLE}</style>",
        f'<rect class="page" x="0.5" y="0.5" width="{width - 1:.0f}" height="{height - 1:.0f}" rx="6"/>',
        *content, "</svg>", ""])


def text(x: float, y: float, content: str, style: str = "", anchor: str = "start") -> str:
    return (f'<text x="{x:.1f}" y="{y:.1f}" class="{style}" text-anchor="{anchor}" xml:space="preserve" '
            f'style="white-space: pre">{escape(content)}</text>')


def style_of(line: str) -> str:
    if line.startswith("demo: all") or line.startswith("   ok"):
        return "good"
    if "FAILED" in line or line.startswith("   BAD"):
        return "bad"
    return "head" if line[:2].strip().isdigit() or line.startswith("$") else ""


def draw_terminal(file: Path, command: str, lines: list[str]) -> None:
    shown = [f"$ {command}", *lines]
    content = [text(MARGIN, MARGIN + LINE_HEIGHT * (number + 0.7), line, style_of(line))
               for number, line in enumerate(shown) if line]
    width = 2 * MARGIN + CHARACTER_WIDTH * max(map(len, shown))
    file.write_text(picture(width, 2 * MARGIN + LINE_HEIGHT * len(shown), f"What {command} shows", content))


def draw_pauses(file: Path, groups: list[list[Pause]]) -> None:
    """A line for each module: from the moment it is asked to the one it runs again."""
    begin, end = span(groups)
    left, width, top = 170, 520, MARGIN + 2 * LINE_HEIGHT
    scale = width / (1000 * max(end - begin, 0.001))
    content, y = legend(left), float(top)
    for number, group in enumerate(groups, 1):
        y += LINE_HEIGHT / 2
        content.append(text(MARGIN, y + 12, f"group {number}", "faint"))
        for pause in group:
            content += bars(pause, begin, left, scale, y)
            y += LINE_HEIGHT
    content = axis(1000 * (end - begin), left, scale, top, y) + content
    file.write_text(picture(left + width + 80, y + 2 * LINE_HEIGHT + MARGIN, "The pauses of a save", content))


def legend(left: float) -> list[str]:
    y = MARGIN + 12
    return [text(MARGIN, y, "pauses of a save", "head"),
            rectangle("asked", left, y - 9, 20), text(left + 26, y, "asked to pause"),
            rectangle("paused", left + 160, y - 9, 20), text(left + 186, y, "paused")]


def rectangle(style: str, x: float, y: float, width: float) -> str:
    return f'<rect class="{style}" x="{x:.1f}" y="{y:.1f}" width="{max(width, 1.5):.1f}" height="10"/>'


def bars(pause: Pause, begin: float, left: float, scale: float, y: float) -> list[str]:
    paused, resumed = pause.paused or pause.asked, pause.resumed or pause.asked
    asked, first, last = (left + 1000 * scale * (moment - begin) for moment in (pause.asked, paused, resumed))
    return [text(MARGIN + 66, y + 12, pause.module), rectangle("asked", asked, y + 3, first - asked),
            rectangle("paused", first, y + 3, last - first), text(last + 6, y + 12, pause.text, "faint")]


def axis(milliseconds: float, left: float, scale: float, top: float, bottom: float) -> list[str]:
    step = next(step for step in (1, 2, 5, 10, 20, 50, 100, 200, 500, 1000, 10000, 100000) if milliseconds / step <= 8)
    drawn = []
    for mark in range(0, int(milliseconds) + 1, step):
        x = left + scale * mark
        drawn.append(f'<line x1="{x:.1f}" y1="{top}" x2="{x:.1f}" y2="{bottom + 6:.1f}"/>')
        drawn.append(text(x, bottom + 20, f"{mark} ms" if mark == 0 else str(mark), "faint", "middle"))
    return drawn
