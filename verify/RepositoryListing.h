#pragma once

#include "outcome/ItemListing.h"

struct OperationContext;

/// What the repository holds, item by item, as the description of the control interface has it; in the order
/// of modules and lines. The report tells of a failure. Nothing is staged, nobody is paused.
ItemList listRepository(const OperationContext &context);
