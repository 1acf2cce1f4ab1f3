// The string service's process-wide record, for host services that make strings without
// loading "oxstring" through the handle. Every string points back at this record.
#pragma once

#include "ox/string.h"

OXStringExt_S* oxStringService();
