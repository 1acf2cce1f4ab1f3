// The two listing documents: the caller's buckets (ListAllMyBucketsResult) and a page of a
// bucket's contents (ListBucketResult, both listing versions), whose objects and common
// prefixes become one array in key order.
#include <charconv>
#include <string_view>

#include "oxs3docs.h"
#include "oxs3text.h"
#include "oxs3xml.h"

namespace s3 {
namespace {

// ---- ListAllMyBucketsResult

struct BucketListParser {
    S3XMLParser frame;
    Owned<OXU8String> ownerId;
    Owned<OXU8String> displayName;
    Owned<OXArray_S> buckets;
    OXS3Bucket* theBucket;  // the bucket being filled; the array holds it
};

constexpr ElementName kBucketListElements[] = {
    element("ListAllMyBucketsResult", bucketListResultElement),
    element("Owner", ownerElement),
    element("ID", idElement),
    element("DisplayName", displayNameElement),
    element("Buckets", bucketListElement),
    element("Bucket", bucketElement),
    element("Name", nameElement),
    element("CreationDate", creationDateElement),
    kEndOfTable,
};

constexpr CollectedField<BucketListParser> kOwnerFields[] = {
    {idElement, &BucketListParser::ownerId},
    {displayNameElement, &BucketListParser::displayName},
};

OXStatus openBucket(BucketListParser& p) {
    if (OXStatus st = ensureArray(p.frame, p.buckets); st != OX_OK) return st;
    Owned<OXS3Bucket> bucket;
    if (createBucket(p.frame.pool, bucket.out()) != OX_OK) return OX_NO_MEMORY;
    if (OXStatus st = appendItem(p.buckets.get(), bucket.get()); st != OX_OK) return st;
    p.theBucket = bucket.get();
    return OX_OK;
}

OXStatus bucketListStart(S3XMLParser& frame, S3XMLElementType type, std::string_view, bool isEmpty) {
    auto& p = documentOf<BucketListParser>(frame);
    if (Owned<OXU8String>* field = fieldFor(p, kOwnerFields, type)) return collect(frame, *field, isEmpty);
    switch (type) {
        case bucketListElement: return ensureArray(frame, p.buckets);
        case bucketElement: return openBucket(p);
        case nameElement: return p.theBucket ? collect(frame, p.theBucket->name, isEmpty) : OX_OK;
        case creationDateElement: return p.theBucket ? collect(frame, p.theBucket->creationDate, isEmpty) : OX_OK;
        default: return OX_OK;
    }
}

OXStatus bucketListEnd(S3XMLParser& frame, S3XMLElementType type) {
    auto& p = documentOf<BucketListParser>(frame);
    switch (type) {
        case idElement:
        case displayNameElement:
        case nameElement: stopCollecting(frame); return OX_OK;
        case bucketElement: p.theBucket = nullptr; return OX_OK;
        case creationDateElement:
            stopCollecting(frame);
            return p.theBucket ? convertDate(frame, p.theBucket->creationDate, &p.theBucket->creationDateTime) : OX_OK;
        default: return OX_OK;
    }
}

constexpr DocumentKind kBucketList{kBucketListElements, true, bucketListStart, bucketListEnd,
                                   {U"parseBucketList: 0x%x Line: %d Column: %d", false}};

// A document without Buckets lists none: the caller still gets an array.
OXStatus bucketListResult(BucketListParser& p, OXS3BucketList** result) {
    Owned<OXS3BucketList> list;
    if (createBucketList(p.frame.pool, list.out()) != OX_OK) return OX_NO_MEMORY;
    if (OXStatus st = ensureArray(p.frame, p.buckets); st != OX_OK) return st;
    list->bucketList = p.buckets.release();
    list->ownerName = p.displayName.release();
    list->ownerId = p.ownerId.release();
    *result = list.release();
    return OX_OK;
}

// ---- ListBucketResult

struct BucketContentParser {
    S3XMLParser frame;
    Owned<OXU8String> prefix;
    Owned<OXU8String> marker;
    Owned<OXU8String> maxKeys;
    Owned<OXU8String> isTruncated;
    Owned<OXU8String> nextMarker;
    Owned<OXArray_S> contents;
    // The entry being read.
    Owned<OXU8String> entryName;
    Owned<OXU8String> lastModified;
    OXDateTime lastModifiedDate;
    Owned<OXU8String> eTagHash;
    Owned<OXU8String> size;
    Owned<OXU8String> storageClass;
    Owned<OXU8String> ownerId;
    Owned<OXU8String> ownerDisplayName;
    Owned<OXArray_S> commonPrefixes;
    Owned<OXU8String> commonPrefix;
};

constexpr ElementName kBucketContentElements[] = {
    element("ListBucketResult", bucketContentResultElement),
    element("Name", nameElement),
    element("Prefix", prefixElement),
    element("Marker", markerElement),
    element("MaxKeys", maxKeysElement),
    element("IsTruncated", isTruncatedElement),
    element("NextMarker", nextMarkerElement),
    element("Contents", contentsElement),
    element("Key", keyElement),
    element("LastModified", lastModifiedElement),
    element("ETag", eTagElement),
    element("Size", sizeElement),
    element("StorageClass", storageClassElement),
    element("Owner", ownerElement),
    element("ID", idElement),
    element("DisplayName", displayNameElement),
    element("CommonPrefixes", commonPrefixesElement),
    element("Delimiter", delimiterElement),
    element("Encoding-Type", encodingTypeElement),
    element("EncodingType", encodingTypeElement),
    element("NextContinuationToken", nextContinuationTokenElement),
    element("KeyCount", keyCount),
    element("ContinuationToken", continuationTokenElement),
    kEndOfTable,
};

// Marker and token share their fields, so one result serves both listing versions. Prefix
// depends on its parent and is not here.
constexpr CollectedField<BucketContentParser> kContentFields[] = {
    {markerElement, &BucketContentParser::marker},
    {continuationTokenElement, &BucketContentParser::marker},
    {maxKeysElement, &BucketContentParser::maxKeys},
    {isTruncatedElement, &BucketContentParser::isTruncated},
    {nextMarkerElement, &BucketContentParser::nextMarker},
    {nextContinuationTokenElement, &BucketContentParser::nextMarker},
    {keyElement, &BucketContentParser::entryName},
    {lastModifiedElement, &BucketContentParser::lastModified},
    {eTagElement, &BucketContentParser::eTagHash},
    {sizeElement, &BucketContentParser::size},
    {storageClassElement, &BucketContentParser::storageClass},
    {idElement, &BucketContentParser::ownerId},
    {displayNameElement, &BucketContentParser::ownerDisplayName},
};

struct StorageClassName {
    std::string_view text;
    S8StorageClass storageClass;
};

constexpr StorageClassName kStorageClasses[] = {
    {"REDUCED_REDUNDANCY", ReducedRedundancy},
    {"GLACIER", Glacier},
};

constexpr std::string_view kFalse = "false";

S8StorageClass storageClassFor(std::string_view text) {
    for (const auto& row : kStorageClasses)
        if (row.text == text) return row.storageClass;
    return Standard;
}

// Decimal; anything else is 0.
OXMemSize sizeFor(std::string_view text) {
    OXMemSize size = 0;
    const char* end = text.data() + text.size();
    auto parsed = std::from_chars(text.data(), end, size);
    return parsed.ec == std::errc() && parsed.ptr == end ? size : 0;
}

void clearEntry(BucketContentParser& p) {
    for (Owned<OXU8String>* field : {&p.entryName, &p.lastModified, &p.eTagHash, &p.size, &p.storageClass,
                                     &p.ownerId, &p.ownerDisplayName})
        releaseText(p.frame, *field);
    p.lastModifiedDate = 0;
}

OXStatus finishEntry(BucketContentParser& p) {
    Owned<OXS3BucketEntry> entry;
    if (createBucketEntry(p.frame.pool, entry.out()) != OX_OK) return OX_NO_MEMORY;
    entry->name = p.entryName.release();
    entry->lastModified = p.lastModified.release();
    entry->lastModifiedDate = p.lastModifiedDate;
    entry->hash = p.eTagHash.release();
    entry->ownerId = p.ownerId.release();
    entry->ownerDisplayName = p.ownerDisplayName.release();
    entry->size = sizeFor(view(p.size.get()));
    entry->storageClass = storageClassFor(view(p.storageClass.get()));
    clearEntry(p);
    if (OXStatus st = ensureArray(p.frame, p.contents); st != OX_OK) return st;
    return appendItem(p.contents.get(), entry.get());
}

OXStatus finishCommonPrefix(BucketContentParser& p) {
    if (!p.commonPrefix) return OX_OK;
    if (OXStatus st = ensureArray(p.frame, p.commonPrefixes); st != OX_OK) return st;
    OXStatus st = appendItem(p.commonPrefixes.get(), p.commonPrefix.get());
    p.commonPrefix.reset();
    return st;
}

OXStatus bucketContentStart(S3XMLParser& frame, S3XMLElementType type, std::string_view, bool isEmpty) {
    auto& p = documentOf<BucketContentParser>(frame);
    if (Owned<OXU8String>* field = fieldFor(p, kContentFields, type)) return collect(frame, *field, isEmpty);
    switch (type) {
        case contentsElement: clearEntry(p); return OX_OK;
        case prefixElement:
            return collect(frame, parentOfNew(frame) == commonPrefixesElement ? p.commonPrefix : p.prefix, isEmpty);
        default: return OX_OK;
    }
}

OXStatus bucketContentEnd(S3XMLParser& frame, S3XMLElementType type) {
    auto& p = documentOf<BucketContentParser>(frame);
    switch (type) {
        case prefixElement:
            stopCollecting(frame);
            return parentOfTop(frame) == commonPrefixesElement ? finishCommonPrefix(p) : OX_OK;
        case lastModifiedElement: stopCollecting(frame); return convertDate(frame, p.lastModified.get(), &p.lastModifiedDate);
        case contentsElement: return finishEntry(p);
        default:
            if (fieldFor(p, kContentFields, type)) stopCollecting(frame);
            return OX_OK;
    }
}

constexpr DocumentKind kBucketContent{kBucketContentElements, true, bucketContentStart, bucketContentEnd,
                                      {U"parseBucketContentList: 0x%x Line: %d Column: %d", false}};

OXStatus emptyText(S3XMLParser& frame, OXU8String** text) {
    return frame.oxstring->createU8Empty(frame.oxstring, frame.pool, 0, text);
}

// A common prefix as a directory entry: the prefix as name, empty texts, size 0.
OXStatus directoryEntry(S3XMLParser& frame, OXInstance* prefix, Owned<OXS3BucketEntry>& entry) {
    if (createBucketEntry(frame.pool, entry.out()) != OX_OK) return OX_NO_MEMORY;
    frame.oxstring->retain(prefix);
    entry->name = reinterpret_cast<OXU8String*>(prefix);
    for (OXU8String** text : {&entry->lastModified, &entry->hash, &entry->ownerId, &entry->ownerDisplayName})
        if (OXStatus st = emptyText(frame, text); st != OX_OK) return st;
    return OX_OK;
}

OXStatus mergeCommonPrefixes(BucketContentParser& p) {
    if (!p.commonPrefixes) return OX_OK;
    if (OXStatus st = ensureArray(p.frame, p.contents); st != OX_OK) return st;
    for (int64_t i = 0; i < p.commonPrefixes->count; ++i) {
        Owned<OXS3BucketEntry> entry;
        if (OXStatus st = directoryEntry(p.frame, p.commonPrefixes->items[i], entry); st != OX_OK) return st;
        if (OXStatus st = addEntryInOrder(p.contents.get(), entry.get()); st != OX_OK) return st;
    }
    return OX_OK;
}

bool isTruncated(const OXU8String* text) {
    return text && oxzsu8NormCompare(text->stg, text->len, kFalse.data(), kFalse.size()) > 0;
}

std::string_view nameOf(const OXInstance* item) { return view(reinterpret_cast<const OXS3BucketEntry*>(item)->name); }

}  // namespace

OXStatus parseBucketList(OXS3Extension* ext, OX_POOL_S* pool, const char* body, OXMemSize bodyLength,
                         OXS3BucketList** list) {
    if (!ext || !pool || !list) return OX_INVALID_ARGUMENT;
    ParserRecord<BucketListParser> p;
    OXStatus st = p.parse<kBucketList>(ext, pool, body, bodyLength);
    if (st == OX_OK) st = bucketListResult(*p, list);
    return st;
}

OXStatus parseBucketContentList(OXS3Extension* ext, OX_POOL_S* pool, const char* body, OXMemSize bodyLength,
                                OXArray* contents, OXU8String** nextMarker, OXBoolean* truncated) {
    if (!ext || !pool || !contents || !nextMarker || !truncated) return OX_INVALID_ARGUMENT;
    ParserRecord<BucketContentParser> p;
    OXStatus st = p.parse<kBucketContent>(ext, pool, body, bodyLength);
    if (st == OX_OK) st = mergeCommonPrefixes(*p);
    if (st != OX_OK) return st;
    *truncated = isTruncated(p->isTruncated.get()) ? OX_TRUE : OX_FALSE;
    *contents = p->contents.release();
    *nextMarker = p->nextMarker.release();
    return OX_OK;
}

OXStatus addEntryInOrder(OXArray array, OXS3BucketEntry* entry) {
    const std::string_view name = view(entry->name);
    int64_t low = 0;
    int64_t high = array->count - 1;
    while (low <= high) {
        const int64_t middle = low + (high - low) / 2;
        const int order = name.compare(nameOf(array->items[middle]));
        if (order == 0) break;
        if (order < 0) {
            high = middle - 1;
        } else {
            low = middle + 1;
        }
    }
    return array->insertItem(array, low, &entry->instance);
}

}  // namespace s3
