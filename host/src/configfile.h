// The configuration-file reader behind the instance service's readConfigFile and
// parseConfigText slots.
#pragma once

#include "ox/instance.h"

OXStatus oxConfigReadFile(OXInstanceSvc_S* svc, OX_POOL_S* pool, const char* path, OXDictionary* out,
                          int64_t* errorLine);
OXStatus oxConfigParseText(OXInstanceSvc_S* svc, OX_POOL_S* pool, UTF8CStr text, UTF8ByteLength len,
                           OXDictionary* out, int64_t* errorLine);
