// Buckets on the test S3 server for tests of layers below request signing: one that anyone may
// read and write, holding known objects, and one private. Made once per test program with
// signed raw requests, removed when it exits.
#pragma once

#include <cstdint>
#include <string>

namespace oxtest {

struct PublicBuckets {
    std::string open;    // public-read-write
    std::string closed;  // private: anonymous writes are refused
    std::string error;   // why they could not be made; empty when they exist

    static constexpr const char* kSmallKey = "small.txt";
    static constexpr const char* kSmallText = "hello from the gateway\n";
    static constexpr const char* kPageKey = "page.bin";
    static constexpr uint64_t kPageSize = 4096;    // patternByte(i), like the large object
    static constexpr const char* kBigKey = "big.bin";
    static constexpr uint64_t kBigSize = 1 << 20;  // patternByte(i) for each offset i

    explicit operator bool() const { return error.empty(); }
};

// Needs the S3 server (requireS3Env); the result says why when it could not be made.
const PublicBuckets& publicBuckets();

}  // namespace oxtest
