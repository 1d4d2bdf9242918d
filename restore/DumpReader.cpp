#include "restore/DumpReader.h"

#include "platform/core/Waiter.h"

#include <algorithm>

namespace {

/// More than the lines have that tell something.
constexpr qsizetype mostKept = 64;

} // namespace

DumpText::DumpText()
{
    beginning.reserve(mostKept);
}

void DumpText::take(QByteArrayView portion)
{
    while (!portion.isEmpty()) {
        const qsizetype end = portion.indexOf('\n');
        const QByteArrayView line = end < 0 ? portion : portion.first(end);
        beginning.append(line.first(std::min(line.size(), mostKept - beginning.size())));
        if (end >= 0) {
            endLine();
        } else if (beginning.size() == mostKept) {
            decideKind();
        }
        portion = portion.sliced(end < 0 ? portion.size() : end + 1);
    }
}

void DumpText::end()
{
    if (!beginning.isEmpty()) {
        endLine();
    }
}

void DumpText::endLine()
{
    decideKind();
    closed = closed || beginning == "COMMIT;";
    failed = failed || beginning == "ROLLBACK; -- due to errors";
    beginning.resize(0);
}

void DumpText::decideKind()
{
    if (found == Kind::Unknown) {
        found = beginning == "PRAGMA foreign_keys=OFF;" ? Kind::Database
                : beginning == "BEGIN TRANSACTION;"     ? Kind::Rows
                                                        : Kind::Other;
    }
}

DumpReader::DumpReader(const QString &path, const Waiter &waiter, std::chrono::milliseconds limit)
    : waiter(waiter), deadline(limit), file(openedRegular(path)), gzip(file.number())
{
}

QByteArrayView DumpReader::next()
{
    if (state == State::Reading && (waiter.mustEnd() || deadline.hasExpired())) {
        state = State::BrokenOff;
    }
    if (state != State::Reading) {
        return {};
    }
    const auto block = gzip.next();
    if (!block) {
        state = State::Broken;
        return {};
    }
    if (block->isEmpty()) {
        state = State::Ended;
        text.end();
    }
    text.take(*block);
    return *block;
}
