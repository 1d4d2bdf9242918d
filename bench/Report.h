#pragma once

#include "bench/Floors.h"
#include "bench/Measure.h"

#include <QList>
#include <QString>

/// One kind of operation with what it is to cost at most; 0 where nothing was set.
struct Figures
{
    QString what;
    Cost cost;
    Cost goal = {};
};

/// A table for the terminal.
void printTable(const QList<Figures> &figures, const QList<Floor> &floors);
/// The same as a JSON object.
void printJson(const QList<Figures> &figures, const QList<Floor> &floors);
