#pragma once

#include "restorable/RestorableObject.h"

#include <QList>
#include <QStringList>

/// Modules that are paused and saved together, in save order.
using SaveGroups = QList<QStringList>;

/// One group per module that has something to save, made of the module and its dependencies; groups with a
/// name in common are merged. Groups and names keep their order; a name appears once in a group.
SaveGroups computeGroups(const QList<RestorableObject> &objects);

/// True when every module that has something to save is in a group.
bool haveGroups(const QList<RestorableObject> &objects, const SaveGroups &groups);
