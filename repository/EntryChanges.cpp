#include "repository/EntryChanges.h"

#include "platform/Descriptor.h"

#include <QFile>
#include <QObject>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <fcntl.h>
#include <mutex>
#include <system_error>
#include <thread>
#include <unistd.h>

struct EntryChanges::Shared
{
    enum class Stage { Writing, Changing, Over, GivenUp };

    QString directory;
    QList<EntryChange> changes;
    Done done;
    std::mutex mutex;
    std::condition_variable over;
    Stage stage = Stage::Writing;
    QObject *receiver = nullptr; ///< while it wants to know
    QList<Result> results = {};

    /// False when it is in the stage no more.
    bool advance(Stage from, Stage to)
    {
        const std::scoped_lock lock(mutex);
        if (stage != from) {
            return false;
        }
        stage = to;
        over.notify_all();
        return true;
    }

    Descriptor open() const
    {
        return Descriptor(
            ::open(QFile::encodeName(directory).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }

    void dropWritten(const Descriptor &place) const
    {
        for (const EntryChange &change : changes) {
            if (!change.written.isEmpty()) {
                unlinkat(place.number(), change.written.constData(), 0);
            }
        }
    }

    static bool carryOut(const EntryChange &change, const Descriptor &place)
    {
        if (change.written.isEmpty()) {
            return unlinkat(place.number(), change.entry.constData(), 0) == 0;
        }
        const bool replaced = renameat(place.number(), change.written.constData(), place.number(),
                                       change.entry.constData()) == 0;
        if (!replaced) {
            unlinkat(place.number(), change.written.constData(), 0);
        }
        return replaced;
    }

    void run()
    {
        const Descriptor place = open();
        const bool writes =
            std::ranges::any_of(changes, [](const EntryChange &change) { return !change.written.isEmpty(); });
        const bool onDisk = place.isOpen() && (!writes || syncfs(place.number()) == 0);
        if (!advance(Stage::Writing, Stage::Changing)) {
            return;
        }
        results = QList<Result>(changes.size(), Result::Untouched);
        if (onDisk) {
            std::ranges::transform(changes, results.begin(), [&](const EntryChange &change) {
                return carryOut(change, place) ? Result::Done : Result::Untouched;
            });
            if (fsync(place.number()) != 0) {
                std::ranges::replace(results, Result::Done, Result::Unknown);
            }
        } else {
            dropWritten(place);
        }
        advance(Stage::Changing, Stage::Over);
    }
};

EntryChanges::EntryChanges(QString directory, QList<EntryChange> changes, QObject *receiver, Done done)
    : shared(std::make_shared<Shared>())
{
    shared->directory = std::move(directory);
    shared->changes = std::move(changes);
    shared->receiver = receiver;
    shared->done = std::move(done);
    const auto work = [shared = shared] {
        shared->run();
        const auto tell = [shared] {
            if (shared->receiver != nullptr) {
                shared->done(shared->results);
            }
        };
        const std::scoped_lock lock(shared->mutex);
        if (shared->receiver != nullptr) {
            QMetaObject::invokeMethod(shared->receiver, tell, Qt::QueuedConnection);
        }
    };
    try {
        std::thread(work).detach();
    } catch (const std::system_error &) {
        work();
    }
}

EntryChanges::~EntryChanges()
{
    giveUp();
}

QList<EntryChanges::Result> EntryChanges::giveUp()
{
    if (shared->advance(Shared::Stage::Writing, Shared::Stage::GivenUp)) {
        shared->dropWritten(shared->open());
    }
    std::unique_lock lock(shared->mutex);
    shared->receiver = nullptr;
    shared->over.wait(lock, [this] { return shared->stage >= Shared::Stage::Over; });
    return shared->stage == Shared::Stage::Over ? shared->results
                                                : QList<Result>(shared->changes.size(), Result::Untouched);
}
