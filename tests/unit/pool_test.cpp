#include <gtest/gtest.h>
#include "ox/handle.h"
TEST(Pool, Placeholder) { EXPECT_NE(oxHostInit(), nullptr); }
