// The extension's holders for host resources are the host's C++ holders.
#pragma once

#include "ox/owned.hpp"

namespace s3 {

using ox::Owned;
using ox::PoolBlock;

}  // namespace s3
