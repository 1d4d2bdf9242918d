#pragma once

#include "bench/Measure.h"

#include <QList>
#include <QString>

/// What an operation over a line has cost, and what went over it.
struct DistantFigures
{
    QString line;
    QString operation;
    Cost cost;
    double goal = 0;        ///< seconds; 0 where nothing was set
    double floor = 0;       ///< seconds that curl needs for the same entries; 0 where it was not asked
    qint64 requests = 0;    ///< that the server has answered
    qint64 connections = 0; ///< over which they came
    qint64 handshakes = 0;  ///< connections that resumed no session
    double sent = 0;        ///< MB to the server
    double received = 0;    ///< MB from it
};

/// Saves and restores with a real server behind lines of several kinds. Empty when one failed.
QList<DistantFigures> measureDistant(int rounds, const QString &line);

void printDistantTable(const QList<DistantFigures> &figures);
void printDistantJson(const QList<DistantFigures> &figures);
