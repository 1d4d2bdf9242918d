#pragma once

/// The style sheet of a report page: light or dark as the reader has it, readable on a phone, and on paper.
const char *pageStyle();
