#include "commands/StreamDigest.h"

#include "commands/LargeStream.h"

#include <algorithm>
#include <atomic>
#include <utility>

namespace {

constexpr int mostBeside = 2;

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
    end();
    hash.reset();
    if (expected >= largeStream && takeTurn()) {
        begin();
    }
}

void StreamDigest::begin()
{
    filling = 0;
    vacant.release(portions - 1);
    beside = std::thread([this] { work(); });
}

void StreamDigest::add(QByteArrayView bytes)
{
    if (!beside.joinable()) {
        hash.addData(bytes);
        return;
    }
    while (!bytes.isEmpty()) {
        QByteArray &portion = ring.at(filling);
        const auto fitting = bytes.first(std::min(bytes.size(), largePortion - portion.size()));
        portion.append(fitting);
        bytes = bytes.sliced(fitting.size());
        if (portion.size() == largePortion) {
            filled.release();
            vacant.acquire();
            filling = (filling + 1) % portions;
        }
    }
}

void StreamDigest::work()
{
    for (size_t at = 0;; at = (at + 1) % portions) {
        filled.acquire();
        if (ring.at(at).isEmpty()) {
            return;
        }
        hash.addData(ring.at(at));
        ring.at(at).resize(0);
        vacant.release();
    }
}

/// What was added is in the digest by then.
void StreamDigest::end()
{
    if (!beside.joinable()) {
        return;
    }
    const QByteArray rest = std::exchange(ring.at(filling), {});
    filled.release();
    beside.join();
    --streamsBeside;
    hash.addData(rest);
    ring = {};
    while (vacant.try_acquire()) {
    }
}

QString StreamDigest::result()
{
    end();
    return QString::fromLatin1(hash.result().toHex());
}
