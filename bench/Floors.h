#pragma once

#include <QList>
#include <QString>

class Load;
class TestDevice;

/// What the hardware, plain tools and other backup programs need for the same data.
struct Floor
{
    QString what;
    double seconds = 0;
};

/// The fastest of three runs each. Programs that are not installed are left out.
QList<Floor> measureFloors(const TestDevice &device, const Load &load);
/// The fastest of three copies of a file by `cp`.
double secondsOfCopy(const QString &file);
/// First backup, one of nothing that has changed, one of a per cent, and restore, by other programs.
QList<Floor> measureOthers(const TestDevice &device, const Load &load);
