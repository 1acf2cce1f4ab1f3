// The I/O service's built-in "DISK    " engine: local files on POSIX descriptors.
#pragma once

#include "ox/ioe.h"

namespace ox::disk {

OXStatus open(OX_POOL_S* pool, const char* accessName, const char* path, OXIOEMode mode, OXIOEFile** out);

// The information items of a local path (symbolic links followed) as a new dictionary.
OXStatus pathInfo(OX_POOL_S* pool, const char* path, OXDictionary* out);

}  // namespace ox::disk
