#include "commands/StreamDigest.h"

#include <atomic>
#include <utility>

namespace {

constexpr qint64 large = qint64{16} * 1024 * 1024;
constexpr qsizetype portion = qsizetype{256} * 1024;
constexpr int mostBeside = 4;

std::atomic<int> streamsBeside = 0;

bool takeTurn()
{
    if (streamsBeside.fetch_add(1) < mostBeside) {
        return true;
    }
    --streamsBeside;
    return false;
}

} // namespace

void StreamDigest::reset(qint64 expected)
{
    wait();
    if (std::exchange(isBeside, false)) {
        --streamsBeside;
    }
    filling = {};
    digested = {};
    hash.reset();
    isBeside = expected >= large && takeTurn();
}

void StreamDigest::wait()
{
    if (work.valid()) {
        work.get();
    }
}

void StreamDigest::add(QByteArrayView bytes)
{
    if (!isBeside) {
        hash.addData(bytes);
        return;
    }
    filling.append(bytes);
    if (filling.size() >= portion) {
        wait();
        digested.swap(filling);
        filling.resize(0);
        work = std::async(std::launch::async, [this] { hash.addData(digested); });
    }
}

QString StreamDigest::result()
{
    wait();
    hash.addData(filling);
    filling.resize(0);
    return QString::fromLatin1(hash.result().toHex());
}
