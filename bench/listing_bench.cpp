// Parsing a bucket listing page of 1000 keys (ListBucketResult as S3 writes it, with owners and
// a few common prefixes) into entries, in bytes of XML per second.
#include <benchmark/benchmark.h>

#include <string>

#include "oxs3docs.h"
#include "parserhost.h"

namespace {

std::string listingPage(int keys) {
    std::string doc =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<ListBucketResult xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\">"
        "<Name>benchmark-bucket</Name><Prefix>logs/</Prefix><Marker></Marker>"
        "<NextMarker>logs/2024/12/31/host-0999.log.gz</NextMarker><MaxKeys>1000</MaxKeys>"
        "<Delimiter>/</Delimiter><IsTruncated>true</IsTruncated>";
    for (int i = 0; i < keys; ++i) {
        char entry[640];
        std::snprintf(entry, sizeof entry,
                      "<Contents><Key>logs/2024/%02d/%02d/host-%04d.log.gz</Key>"
                      "<LastModified>2024-%02d-%02dT17:50:%02d.000Z</LastModified>"
                      "<ETag>&quot;fba9dede5f27731c9771645a3986%04d&quot;</ETag><Size>%d</Size>"
                      "<Owner><ID>75aa57f09aa0c8caeab4f8c24e99d10f8e7faeebf76c078efc7c6caea54ba06a</ID>"
                      "<DisplayName>mtd@amazon.com</DisplayName></Owner><StorageClass>STANDARD</StorageClass>"
                      "</Contents>",
                      i % 12 + 1, i % 28 + 1, i, i % 12 + 1, i % 28 + 1, i % 60, i, 1000 + i * 37);
        doc += entry;
    }
    for (int i = 0; i < 10; ++i) doc += "<CommonPrefixes><Prefix>logs/archive-" + std::to_string(i) + "/</Prefix></CommonPrefixes>";
    doc += "</ListBucketResult>";
    return doc;
}

void BM_ParseListingOf1000Keys(benchmark::State& state) {
    oxtest::ParserHost host;
    OX_HNDL_S* h = oxHostInit();
    OXPoolCreateParms parms{};
    OX_POOL_S* pool = h->poolCreate(h, &parms, nullptr, "listing bench");
    const std::string doc = listingPage(1000);
    for (auto _ : state) {
        OXArray contents = nullptr;
        OXU8String* next = nullptr;
        OXBoolean truncated = OX_FALSE;
        if (s3::parseBucketContentList(host.ext(), pool, doc.data(), doc.size(), &contents, &next, &truncated) !=
                OX_OK ||
            contents->count != 1010) {
            state.SkipWithError("the listing did not parse");
            break;
        }
        contents->instance.destroy(contents);
        next->instance.destroy(next);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * doc.size()));
    state.counters["bytes_per_page"] = static_cast<double>(doc.size());
    pool->generic.destroy(pool);
}

BENCHMARK(BM_ParseListingOf1000Keys)->Unit(benchmark::kMicrosecond);

}  // namespace
