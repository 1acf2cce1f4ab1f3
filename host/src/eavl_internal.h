// The tree behind the "oxeavl" service, for host code that needs one without loading it.
#pragma once

#include "ox/eavl.h"

OXStatus oxEavlCreate(OX_POOL_S* pool, OXEAVLCompare compare, void* ctx, OXEAVL* out);
