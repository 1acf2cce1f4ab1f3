// Dictionaries for host code (the JSON and configuration readers) without loading the service.
#pragma once

#include "ox/dictionary.h"

OXStatus oxDictionaryCreate(OX_POOL_S* pool, uint32_t flags, OXDictionary* out);
