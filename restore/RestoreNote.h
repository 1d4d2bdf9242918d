#pragma once

#include <QStringList>

#include <optional>

/// The note on the disk of whose data a restore is replacing: what a start has to look at.
namespace RestoreNote {

/// Note the modules, on the disk, before their data are touched. When that is not possible, a warning says so
/// and there is no note at all.
void write(const QStringList &modules);

/// Note that nothing is left to be put in order. What was done to the data of the noted modules is brought to
/// the disk first; blocks for that long.
void clear();

/// The first note: all data are in order.
void begin();

/// The noted modules. Nothing when there is no note: then anything may be left, anywhere.
std::optional<QStringList> read();

/// Something of a noted module could not be put in order: the note stays for this process's life.
void keep();

} // namespace RestoreNote
