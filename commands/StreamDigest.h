#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QCryptographicHash>
#include <QString>

#include <array>
#include <semaphore>
#include <thread>

/// MD5 of a stream. Of a large one it is taken in a thread beside, so that whoever moves the bytes need not
/// wait for it; few streams at once have one, each 2 MiB ahead.
class StreamDigest
{
public:
    StreamDigest() = default;
    ~StreamDigest() { reset(); }
    StreamDigest(const StreamDigest &) = delete;
    StreamDigest &operator=(const StreamDigest &) = delete;

    /// Forget everything. So many bytes are to come, as far as that is known.
    void reset(qint64 expected = 0);

    void add(QByteArrayView bytes);

    /// The digest of all bytes since the last reset, 32 lower-case hexadecimal digits.
    QString result();

private:
    static constexpr int portions = 16;

    void begin();
    void end();
    void work();

    QCryptographicHash hash{QCryptographicHash::Md5};
    std::array<QByteArray, portions> ring; ///< an empty portion tells that no more will follow
    size_t filling = 0;
    std::counting_semaphore<portions> filled{0};
    std::counting_semaphore<portions> vacant{0};
    std::thread beside;
};
