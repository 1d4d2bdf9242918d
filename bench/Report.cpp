#include "bench/Report.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <array>
#include <cstdio>

namespace {

struct Column
{
    const char *title;
    const char *name;
    double Cost::*figure;
    int precision;
};

constexpr std::array columns = {Column{"seconds", "seconds", &Cost::seconds, 3},
                                Column{"processor s", "processorSeconds", &Cost::processor, 2},
                                Column{"pause ms", "pauseMs", &Cost::pause, 1},
                                Column{"longest ms", "longestPauseMs", &Cost::longestPause, 1},
                                Column{"silence ms", "silenceMs", &Cost::silence, 1},
                                Column{"children", "children", &Cost::children, 0},
                                Column{"written kB", "writtenKb", &Cost::written, 0},
                                Column{"memory kB", "memoryKb", &Cost::memory, 0}};

/// The figure, with the goal where it is missed.
QString shown(const Figures &row, const Column &column)
{
    const double value = row.cost.*column.figure;
    const double goal = row.goal.*column.figure;
    const QString text = QString::number(value, 'f', column.precision);
    return goal > 0 && value > goal ? text + " >" + QString::number(goal) : text;
}

} // namespace

void printTable(const QList<Figures> &figures, const QList<Floor> &floors)
{
    std::printf("%-26s", "");
    for (const Column &column : columns) {
        std::printf("%14s", column.title);
    }
    std::printf("\n");
    for (const Figures &row : figures) {
        std::printf("%-26s", qPrintable(row.what));
        for (const Column &column : columns) {
            std::printf("%14s", qPrintable(shown(row, column)));
        }
        std::printf("\n");
    }
    std::printf("\n");
    for (const Floor &floor : floors) {
        std::printf("%-52s %8.3f s\n", qPrintable(floor.what), floor.seconds);
    }
}

void printJson(const QList<Figures> &figures, const QList<Floor> &floors)
{
    QJsonArray operations;
    for (const Figures &row : figures) {
        QJsonObject object{{"operation", row.what}};
        for (const Column &column : columns) {
            object.insert(column.name, row.cost.*column.figure);
        }
        operations << object;
    }
    QJsonArray others;
    for (const Floor &floor : floors) {
        others << QJsonObject{{"what", floor.what}, {"seconds", floor.seconds}};
    }
    const QJsonObject all{{"operations", operations}, {"floors", others}};
    std::printf("%s", QJsonDocument(all).toJson().constData());
}
