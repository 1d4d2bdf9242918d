#include "staging/DumpStream.h"

#include "commands/GzipWriter.h"

#include <algorithm>
#include <utility>

namespace {

/// More than the lines have that tell something, line feed included.
constexpr qsizetype mostKept = 64;

const QByteArray firstLine = "PRAGMA foreign_keys=OFF;\n";
const QByteArray closedTransaction = "COMMIT;\n";
const QByteArray failedTransaction = "ROLLBACK; -- due to errors\n";

/// What the shell prints where it could not read; it goes on behind it, to a proper end.
bool tellsOfAnError(const QByteArray &line)
{
    return line.startsWith("/****** CORRUPTION ERROR") || line.startsWith("/****** ERROR: ") ||
           line.startsWith("/**** ERROR: (");
}

} // namespace

DumpStream::DumpStream(GzipWriter &target, QByteArray head, QByteArray replacement)
    : target(target), head(std::move(head)), replacement(std::move(replacement))
{
}

bool DumpStream::take(QByteArrayView portion)
{
    while (!portion.isEmpty()) {
        const qsizetype end = portion.indexOf('\n');
        const QByteArrayView part = end < 0 ? portion : portion.first(end + 1);
        if (!takePart(part)) {
            return false;
        }
        portion = portion.sliced(part.size());
    }
    return true;
}

/// A part of a line, which has its line feed at the end, if at all.
bool DumpStream::takePart(QByteArrayView part)
{
    if (ended) {
        beginning.resize(0);
        decided = false;
    }
    ended = part.back() == '\n';
    if (!decided) {
        const QByteArrayView kept = part.first(std::min(part.size(), mostKept - beginning.size()));
        beginning.append(kept);
        part = part.sliced(kept.size());
        decided = ended || beginning.size() == mostKept;
        if (!decided) {
            return true;
        }
        if (!decide()) {
            return false;
        }
    }
    return !passes || target.write(part);
}

bool DumpStream::decide()
{
    failed = failed || beginning == failedTransaction || tellsOfAnError(beginning) ||
             (first && beginning != firstLine);
    first = false;
    madeObjects += beginning.startsWith("CREATE ") || beginning.startsWith("INSERT INTO sqlite_schema(") ||
                   beginning.startsWith("INSERT INTO sqlite_master(");
    passes = beginning.startsWith(head);
    if (!passes) {
        return true;
    }
    ++passedLines;
    return target.write(replacement) && target.write(QByteArrayView(beginning).sliced(head.size()));
}

bool DumpStream::complete() const
{
    return !failed && ended && beginning == closedTransaction;
}
