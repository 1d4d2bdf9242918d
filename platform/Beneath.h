#pragma once

#include "platform/Descriptor.h"

#include <QByteArray>
#include <QString>

/// Opens what lies below one directory, and nothing else, whoever changes the paths meanwhile.
///
/// Links that stay inside are followed, absolute ones too. Nothing but a regular file or a directory is ever
/// opened for reading: no device and no pipe. The directory itself must not be a link.
class Beneath
{
public:
    enum class State {
        Open,
        Missing,    ///< there is nothing of that path
        LeadsOut,   ///< a link in the path, or the directory itself, leads elsewhere
        WrongKind,  ///< something else than what was asked for
        Unreadable, ///< it cannot be opened
    };

    struct Opened
    {
        Descriptor descriptor;
        State state = State::Open;
    };

    /// How paths are looked up: by the kernel in one step, or component by component, as it is also done when
    /// the kernel cannot.
    enum class Lookup { Whole, Stepwise };

    explicit Beneath(const QString &directory, Lookup lookup = Lookup::Whole);

    /// `Open`, or why nothing below the directory can be opened.
    State rootState() const { return state; }

    /// A regular file for reading.
    Opened openRegular(const QByteArray &path) const;
    /// A directory for reading; the empty path is the directory itself.
    Opened openDirectory(const QByteArray &path) const;

private:
    Opened find(const QByteArray &path) const;
    Opened findWhole(const QByteArray &path) const;
    Opened findStepwise(const QByteArray &path) const;
    Opened findCanonical(const QByteArray &path) const;

    QByteArray root;
    Descriptor directory;
    State state = State::Open;
    mutable Lookup lookup;
};
