// The pure steps of reads: how a read is split over threads, and the path an accelerated
// endpoint is asked for.
#include <gtest/gtest.h>

#include "oxs3read.h"

namespace {

constexpr OXMemSize MiB = 1024 * 1024;

struct PlanCase {
    uint64_t length;
    int threads;
    OXMemSize minBlockSize;
    s3::ReadPlan expected;
};

class ReadPlans : public ::testing::TestWithParam<PlanCase> {};

TEST_P(ReadPlans, SplitTheLengthAsStated) {
    const PlanCase& c = GetParam();
    const s3::ReadPlan plan = s3::planRead(c.length, c.threads, c.minBlockSize, nullptr);
    EXPECT_EQ(plan.threadCount, c.expected.threadCount);
    EXPECT_EQ(plan.blockSize, c.expected.blockSize);
    EXPECT_EQ(plan.remainder, c.expected.remainder);
}

INSTANTIATE_TEST_SUITE_P(Cases, ReadPlans,
                         ::testing::Values(PlanCase{20 * MiB, 4, 8 * MiB, {2, 8 * MiB, 4 * MiB}},  // blocks too small
                                           PlanCase{100 * MiB + 3, 10, 5 * MiB, {10, 10 * MiB, 3}},
                                           PlanCase{7 * MiB, 10, 5 * MiB, {1, 5 * MiB, 2 * MiB}}));

TEST(PathWithoutBucket, DropsOnlyALeadingSlashAndBucket) {
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"/bucket/key", "/key"}, {"/key", "/key"}, {"/other/key", "/other/key"}, {"bucket/key", "bucket/key"}};
    for (const auto& [path, expected] : cases) EXPECT_EQ(s3::pathWithoutBucket(path, "bucket"), expected) << path;
}

}  // namespace
