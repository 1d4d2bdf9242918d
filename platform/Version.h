#pragma once

#include <QString>

/// The version of the project that this program was built from, as "1.2.3".
QString projectVersion();
