#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QCryptographicHash>
#include <QString>

#include <future>

/// MD5 of a stream. Of a large one it is taken in threads beside, so that whoever moves the bytes need not
/// wait for it; few streams at once have these, each half a MiB ahead.
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
    void wait();

    QCryptographicHash hash{QCryptographicHash::Md5};
    bool isBeside = false;
    QByteArray filling;
    QByteArray digested; ///< by the work
    std::future<void> work;
};
