#pragma once

#include "restorable/RestorableObject.h"

/// The descriptions as text for a person, in the order given; empty for an empty list.
QString restorableListing(const QList<RestorableObject> &objects);
