// The door to the parallel transfer engine. Whole-object reads, range reads and puts offer
// their transfer here once they have planned it; a transfer the engine does not take is sent
// by the operation itself as one request. Today the engine takes none.
#pragma once

#include <cstdint>
#include <string_view>

#include "oxs3.h"
#include "oxs3encrypt.h"

namespace s3 {

struct PutArguments;

// How a read is split over threads: threadCount blocks of blockSize, the remainder to the last.
struct ReadPlan {
    int threadCount = 1;
    OXMemSize blockSize = 0;
    OXMemSize remainder = 0;
};

enum class TransferKind : uint8_t { wholeObject, range, put };

struct ParallelTransfer {
    TransferKind kind;
    OXS3Connection connection;
    std::string_view bucket;  // terminated
    std::string_view path;
    EncryptionArgs encryption;
    ReadPlan plan;                       // reads
    OX_POOL_S* pool = nullptr;           // wholeObject: where the data goes
    void** data = nullptr;               // wholeObject: the result
    OXMemSize* length = nullptr;         // wholeObject: the result
    void* buffer = nullptr;              // range: the caller's buffer ...
    uint64_t offset = 0;                 // ... filled from this offset ...
    OXMemSize rangeLength = 0;           // ... with this many bytes
    const PutArguments* put = nullptr;   // put: the arguments, data and length
};

// *taken is false when the engine leaves the transfer to the caller; then nothing was sent.
OXStatus runParallel(const ParallelTransfer& transfer, bool* taken);

}  // namespace s3
