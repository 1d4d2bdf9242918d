#pragma once

#include <QByteArrayList>
#include <QByteArrayView>
#include <QString>

#include <limits>
#include <optional>
#include <sys/stat.h>
#include <utility>

/// An open file descriptor that is closed with its owner.
class Descriptor
{
public:
    Descriptor() = default;
    /// Takes the descriptor over; a negative number is none.
    explicit Descriptor(int number) : fileNumber(number) {}
    ~Descriptor();

    Descriptor(Descriptor &&other) noexcept : fileNumber(other.release()) {}
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        std::swap(fileNumber, other.fileNumber);
        return *this;
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    bool isOpen() const { return fileNumber >= 0; }
    int number() const { return fileNumber; }
    /// Give the descriptor to the caller, who closes it.
    int release() { return std::exchange(fileNumber, -1); }

    /// What is open; all zero when that cannot be told.
    struct stat status() const;

private:
    int fileNumber = -1;
};

/// The names in a directory, as bytes, in their order and without "." and "..", but no more of them than
/// `most`. Nothing when it cannot be read so far.
std::optional<QByteArrayList> namesIn(const Descriptor &directory,
                                      qsizetype most = std::numeric_limits<qsizetype>::max());

/// False when not all could be written.
bool writeAll(const Descriptor &file, QByteArrayView bytes);

/// What was found with O_PATH, opened for reading: that very file, whatever its path names meanwhile. Not
/// open when it is no regular file, which is then left alone, or cannot be read.
Descriptor openedForReading(const Descriptor &found);

/// The same with what a path names, which is no link.
Descriptor openedRegular(const QString &path);
