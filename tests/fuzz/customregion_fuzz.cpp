// Arbitrary bytes as custom-region text. Neither a definition nor a whole text may crash or
// leak; every region a text defines must come back unchanged from its saved form; and a text
// that fails leaves only the regions defined before the failing definition.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "ox/handle.h"
#include "ox/status.h"
#include "oxs3.h"
#include "oxs3custom.h"
#include "oxs3owned.h"
#include "oxs3text.h"

namespace {

struct Harness {
    OXS3Extension* ext = nullptr;
    OXMemSize baseline = 0;

    Harness() {
        unsetenv("OXS3_CUSTOM_REGION");
        OX_HNDL_S* h = oxHostInit();
        ext = oxs3(h, nullptr);
        if (!ext) std::abort();
        h->log4qel->SetLevel(ext->logger, LL_Off);
    }
};

void check(bool condition) {
    if (!condition) std::abort();
}

void clearRegions(OXS3Extension* ext);

// The slot array keeps its storage once it has held a region, so the pool is measured after
// one region came and went.
Harness& harness() {
    static Harness instance = [] {
        Harness h;
        check(s3::addCustomRegionsFromText(h.ext, "warm,up,0,0,TRUE,TRUE") == OX_OK);
        clearRegions(h.ext);
        h.baseline = h.ext->pool->blocksInUse(h.ext->pool);
        return h;
    }();
    return instance;
}

// The saved form of one region, read back.
void checkSavedForm(OXS3Extension* ext, const s3::EndpointInstance* entry) {
    s3::Owned<OXU8String> text;
    check(ext->oxstring->createU8Empty(ext->oxstring, ext->pool, 64, text.out()) == OX_OK);
    check(s3::endpointToString(entry, text.get()) == OX_OK);
    s3::CustomRegionDefinition back;
    check(s3::parseCustomRegionDefinition(s3::view(text.get()), &back) == OX_OK);
    const HTEndpoint& ht = entry->awsEndpoint.htEndpoint;
    check(back.name == s3::view(entry->regionName) && back.host == s3::view(entry->hostname));
    check(back.port == ht.port && back.sslPort == entry->awsEndpoint.sslPort);
    check(back.sslRequired == (ht.sslRequired != 0) && back.sslAllowed == (ht.sslAllowed != 0));
}

// Removes every region the input defined, and the emptied slots they leave.
void clearRegions(OXS3Extension* ext) {
    OXArray byId = ext->customRegionsById;
    for (int64_t i = 0; i < byId->count; ++i)
        if (const s3::EndpointInstance* entry = s3::asCustomRegion(byId->items[i]))
            check(ext->removeCustomRegion(ext, entry->regionName->stg) == OX_OK);
    while (byId->count) byId->removeItem(byId, byId->count - 1);
    check(ext->customRegions->count == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Harness& hs = harness();
    const std::string_view text(reinterpret_cast<const char*>(data), size);

    s3::CustomRegionDefinition one;
    if (s3::parseCustomRegionDefinition(text, &one) == OX_OK) check(one.sslAllowed || !one.sslRequired);

    const OXStatus st = s3::addCustomRegionsFromText(hs.ext, text);
    check(st == OX_OK || st == OX_INVALID_ARGUMENT || st == OXS3_REGION_NAME_IN_USE);
    OXArray byId = hs.ext->customRegionsById;
    check(byId->count == hs.ext->customRegions->count);
    for (int64_t i = 0; i < byId->count; ++i) {
        const s3::EndpointInstance* entry = s3::asCustomRegion(byId->items[i]);
        check(entry && entry->index == i && entry->region == First_Custom_Region + i);
        check(hs.ext->regionForNameU8(hs.ext, entry->regionName->stg) >= 0);
        checkSavedForm(hs.ext, entry);
    }
    clearRegions(hs.ext);
    check(hs.ext->pool->blocksInUse(hs.ext->pool) == hs.baseline);
    return 0;
}
