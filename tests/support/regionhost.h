// The region tests' fixture is the shared extension fixture; kept under this name for its users.
#pragma once

#include "conffixture.h"

namespace oxtest {
using RegionFixture = ExtensionFixture;
}  // namespace oxtest
