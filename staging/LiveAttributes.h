#pragma once

#include "catalogue/ChecksumFile.h"
#include "catalogue/FileAttributes.h"

/// The attributes that a module's plain files and databases have on the device, of those that can be opened.
AttributesByKey liveAttributes(const QString &module, const ChecksumLines &lines);
