// The array service's maker, for host services that build arrays without loading "oxarray"
// through the handle.
#pragma once

#include "ox/array.h"

OXStatus oxArrayCreate(OX_POOL_S* pool, int64_t initialCapacity, OXArray* out);
