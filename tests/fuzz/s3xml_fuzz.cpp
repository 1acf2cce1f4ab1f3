// Arbitrary bytes through the S3 document parsers and the error-answer mapping; the first byte
// picks which. None may crash or leak, and results must be whole (a list has its array, a
// truncated flag is a boolean, an acceleration state is set). The error document echoes a body it cannot parse to stderr, so run
// with -close_fd_mask=2 to keep the output readable.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "../support/parserhost.h"
#include "oxs3docs.h"
#include "oxs3error.h"

namespace {

struct Fixture {
    oxtest::ParserHost host;
    OX_POOL_S* pool = nullptr;

    Fixture() {
        OXPoolCreateParms parms{};
        pool = oxHostInit()->poolCreate(oxHostInit(), &parms, nullptr, "s3xml fuzz");
        if (!pool) std::abort();
    }
};

Fixture& fixture() {
    static Fixture instance;
    return instance;
}

template <class T>
void drop(T* p) {
    if (p) reinterpret_cast<OXInstance*>(p)->destroy(p);
}

void parseListing(OXS3Extension* ext, OX_POOL_S* pool, std::string_view body) {
    OXArray contents = nullptr;
    OXU8String* next = nullptr;
    OXBoolean truncated = 2;
    OXStatus st = s3::parseBucketContentList(ext, pool, body.data(), body.size(), &contents, &next, &truncated);
    if (st == OX_OK && truncated > 1) std::abort();
    drop(contents);
    drop(next);
}

void parseDocument(uint8_t which, OXS3Extension* ext, OX_POOL_S* pool, std::string_view body) {
    switch (which % 8) {
        case 0: {
            OXS3BucketList* list = nullptr;
            if (s3::parseBucketList(ext, pool, body.data(), body.size(), &list) == OX_OK && !list->bucketList) std::abort();
            drop(list);
            break;
        }
        case 1: parseListing(ext, pool, body); break;
        case 2: {
            OXU8String *bucket = nullptr, *key = nullptr, *uploadId = nullptr;
            s3::parseInitiateUpload(ext, pool, body.data(), body.size(), &bucket, &key, &uploadId);
            drop(bucket);
            drop(key);
            drop(uploadId);
            break;
        }
        case 3: {
            OXS3Error* error = nullptr;
            if (s3::parseError(ext, pool, body.data(), body.size(), &error) == OX_OK && error) s3::statusForS3Error(error);
            drop(error);
            break;
        }
        case 4: {
            OXU8String* eTag = nullptr;
            s3::parseCopyPartResult(ext, pool, body.data(), body.size(), &eTag);
            drop(eTag);
            break;
        }
        case 5: {
            OXArray errors = nullptr;
            s3::parseDeleteResult(ext, pool, body.data(), body.size(), &errors);
            drop(errors);
            break;
        }
        case 6: {
            S3AccelerateState state = s3AccelerateNotSet;
            if (s3::parseAccelerateResult(ext, pool, body.data(), body.size(), &state) == OX_OK &&
                state == s3AccelerateNotSet)
                std::abort();
            break;
        }
        default: {
            const HTTPStatus http{OX_HTTP_NOT_FOUND, 404, "Not Found"};
            s3::ErrorReply reply = s3::interpretErrorResponse(ext, pool, "application/xml", http, body);
            if (reply.text != s3::ErrorText::document && reply.message) std::abort();
            break;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    Fixture& f = fixture();
    parseDocument(data[0], f.host.ext(), f.pool, std::string_view(reinterpret_cast<const char*>(data) + 1, size - 1));
    if (f.pool->blocksInUse(f.pool) != 0) std::abort();
    return 0;
}
