// S3's XML answers turned into records: each document on responses as S3 and the RADOS Gateway
// write them, the element stack's depth limit, malformed documents, both date forms, and that
// a failure at any allocation gives back everything.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "oxs3docs.h"
#include "oxs3xml.h"
#include "parserhost.h"
#include "testhost.h"

namespace {

using ox::Owned;

std::string text(const OXU8String* s) { return s ? std::string(s->stg, s->len) : "<absent>"; }

const OXS3BucketEntry* entryAt(OXArray a, int64_t i) { return reinterpret_cast<const OXS3BucketEntry*>(a->items[i]); }

std::vector<std::string> names(OXArray a) {
    std::vector<std::string> out;
    for (int64_t i = 0; a && i < a->count; ++i) out.push_back(text(entryAt(a, i)->name));
    return out;
}

std::string repeat(std::string_view s, int n) {
    std::string out;
    for (int i = 0; i < n; ++i) out += s;
    return out;
}

std::string nested(int depth, bool innermostEmpty) {
    return innermostEmpty ? repeat("<a>", depth - 1) + "<a/>" + repeat("</a>", depth - 1)
                          : repeat("<a>", depth) + repeat("</a>", depth);
}

constexpr double kOct12 = 1255369830.0;  // 2009-10-12T17:50:30Z

class S3XmlTest : public ::testing::Test {
protected:
    oxtest::ParserHost host;
    oxtest::TestPool pool;

    OXS3Extension* ext() { return host.ext(); }

    struct Listing {
        OXStatus status;
        Owned<OXArray_S> contents;
        Owned<OXU8String> next;
        OXBoolean truncated = 7;
    };

    Listing list(std::string_view body) {
        Listing l;
        l.status = s3::parseBucketContentList(ext(), pool, body.data(), body.size(), l.contents.out(), l.next.out(),
                                              &l.truncated);
        return l;
    }

    std::string oneEntry(std::string_view inside) {
        return "<ListBucketResult><Contents><Key>k</Key>" + std::string(inside) + "</Contents></ListBucketResult>";
    }
};

// ---- bucket list

TEST_F(S3XmlTest, ReadsTheOwnerAndEveryBucketWithItsCreationDate) {
    constexpr std::string_view doc = R"(<?xml version="1.0" encoding="UTF-8"?>
<ListAllMyBucketsResult xmlns="http://s3.amazonaws.com/doc/2006-03-01/">
  <Owner><ID>bcaf1ffd86f461ca5fb16fd081034f</ID><DisplayName>webfile</DisplayName></Owner>
  <Buckets>
    <Bucket><Name>quotes</Name><CreationDate>2006-02-03T16:45:09.000Z</CreationDate></Bucket>
    <Bucket><Name>samples</Name><CreationDate>Fri, 03 Feb 2006 16:41:58 GMT</CreationDate></Bucket>
  </Buckets>
</ListAllMyBucketsResult>)";
    Owned<OXS3BucketList> list;
    ASSERT_EQ(s3::parseBucketList(ext(), pool, doc.data(), doc.size(), list.out()), OX_OK);
    EXPECT_EQ(text(list->ownerId), "bcaf1ffd86f461ca5fb16fd081034f");
    EXPECT_EQ(text(list->ownerName), "webfile");
    ASSERT_EQ(list->bucketList->count, 2);
    auto* first = reinterpret_cast<OXS3Bucket*>(list->bucketList->items[0]);
    auto* second = reinterpret_cast<OXS3Bucket*>(list->bucketList->items[1]);
    EXPECT_EQ(text(first->name), "quotes");
    EXPECT_EQ(text(first->creationDate), "2006-02-03T16:45:09.000Z");
    EXPECT_EQ(first->creationDateTime, 1138985109.0);
    EXPECT_EQ(text(second->name), "samples");
    EXPECT_EQ(second->creationDateTime, 1138984918.0);
}

// ---- bucket contents

TEST_F(S3XmlTest, ListingMergesObjectsAndCommonPrefixesInKeyOrder) {
    constexpr std::string_view doc = R"(<?xml version="1.0" encoding="UTF-8"?>
<ListBucketResult xmlns="http://s3.amazonaws.com/doc/2006-03-01/">
  <Name>photos</Name><Prefix></Prefix><Marker></Marker><NextMarker>b</NextMarker>
  <MaxKeys>2</MaxKeys><IsTruncated>true</IsTruncated>
  <Contents>
    <Key>a/1</Key><LastModified>2009-10-12T17:50:30.000Z</LastModified>
    <ETag>&quot;fba9dede5f27731c9771645a39863328&quot;</ETag><Size>434234</Size>
    <StorageClass>STANDARD</StorageClass>
    <Owner><ID>75aa57f09aa0c8caeab4f8c24e99d10f</ID><DisplayName>mtd@amazon.com</DisplayName></Owner>
  </Contents>
  <Contents>
    <Key>b</Key><LastModified>Mon, 12 Oct 2009 17:50:30 GMT</LastModified><ETag>"d41d8cd9"</ETag>
    <Size>0</Size><StorageClass>REDUCED_REDUNDANCY</StorageClass>
  </Contents>
  <CommonPrefixes><Prefix>a/</Prefix></CommonPrefixes>
</ListBucketResult>)";
    Listing l = list(doc);
    ASSERT_EQ(l.status, OX_OK);
    EXPECT_TRUE(l.truncated);
    EXPECT_EQ(text(l.next.get()), "b");
    ASSERT_EQ(names(l.contents.get()), (std::vector<std::string>{"a/", "a/1", "b"}));

    const OXS3BucketEntry* dir = entryAt(l.contents.get(), 0);
    EXPECT_EQ(dir->size, 0u);
    EXPECT_EQ(dir->storageClass, Standard);
    EXPECT_EQ(dir->lastModifiedDate, 0.0);
    for (const OXU8String* s : {dir->lastModified, dir->hash, dir->ownerId, dir->ownerDisplayName}) EXPECT_EQ(text(s), "");

    const OXS3BucketEntry* object = entryAt(l.contents.get(), 1);
    EXPECT_EQ(text(object->lastModified), "2009-10-12T17:50:30.000Z");
    EXPECT_EQ(object->lastModifiedDate, kOct12);
    EXPECT_EQ(text(object->hash), "\"fba9dede5f27731c9771645a39863328\"");
    EXPECT_EQ(object->size, 434234u);
    EXPECT_EQ(object->storageClass, Standard);
    EXPECT_EQ(text(object->ownerId), "75aa57f09aa0c8caeab4f8c24e99d10f");
    EXPECT_EQ(text(object->ownerDisplayName), "mtd@amazon.com");

    const OXS3BucketEntry* plain = entryAt(l.contents.get(), 2);
    EXPECT_EQ(plain->lastModifiedDate, kOct12);
    EXPECT_EQ(plain->storageClass, ReducedRedundancy);
    EXPECT_EQ(text(plain->ownerId), "<absent>");
}

TEST_F(S3XmlTest, VersionTwoListingGivesItsContinuationTokenAsTheNextMarker) {
    constexpr std::string_view doc = R"(<ListBucketResult xmlns="http://s3.amazonaws.com/doc/2006-03-01/">
  <Name>bucket</Name><Prefix/><KeyCount>1</KeyCount><MaxKeys>1</MaxKeys><Delimiter>/</Delimiter>
  <ContinuationToken>1ueGcxLPRx1Tr</ContinuationToken>
  <NextContinuationToken>1ueGcxLPRx1Tr/XYExHnhbYLgveDs2J/wm36Hy4vbOwM=</NextContinuationToken>
  <StartAfter>ExampleGuide.pdf</StartAfter><EncodingType>url</EncodingType><IsTruncated>true</IsTruncated>
  <Contents><Key>ExampleObject.txt</Key><LastModified>2013-09-17T18:07:53.000Z</LastModified>
    <ETag>"599bab3ed2c697f1d26842727561fd94"</ETag><Size>857</Size><StorageClass>STANDARD</StorageClass></Contents>
  <CommonPrefixes><Prefix>photos/</Prefix></CommonPrefixes>
</ListBucketResult>)";
    Listing l = list(doc);
    ASSERT_EQ(l.status, OX_OK);
    EXPECT_EQ(text(l.next.get()), "1ueGcxLPRx1Tr/XYExHnhbYLgveDs2J/wm36Hy4vbOwM=");
    EXPECT_TRUE(l.truncated);
    EXPECT_EQ(names(l.contents.get()), (std::vector<std::string>{"ExampleObject.txt", "photos/"}));
}

TEST_F(S3XmlTest, TruncatedOnlyWhenTheTextSaysTrue) {
    const std::pair<std::string_view, OXBoolean> cases[] = {
        {"<IsTruncated>TRUE</IsTruncated>", OX_TRUE}, {"<IsTruncated>false</IsTruncated>", OX_FALSE},
        {"<IsTruncated/>", OX_FALSE}, {"", OX_FALSE},
    };
    for (auto [element, truncated] : cases) {
        Listing l = list("<ListBucketResult>" + std::string(element) + "</ListBucketResult>");
        ASSERT_EQ(l.status, OX_OK) << element;
        EXPECT_EQ(l.truncated, truncated) << element;
        EXPECT_FALSE(l.contents) << "an empty page has no entries";
        EXPECT_FALSE(l.next);
    }
}

TEST_F(S3XmlTest, SizeAndStorageClassTakeOnlyExactTexts) {
    struct Case {
        std::string_view size, storageClass;
        OXMemSize wantSize;
        S8StorageClass wantClass;
    };
    const Case cases[] = {
        {"5368709120", "REDUCED_REDUNDANCY", 5368709120u, ReducedRedundancy},
        {"12", "GLACIER", 12, Glacier},
        {"-1", "reduced_redundancy", 0, Standard},
    };
    for (const Case& c : cases) {
        Listing l = list(oneEntry("<Size>" + std::string(c.size) + "</Size><StorageClass>" +
                                  std::string(c.storageClass) + "</StorageClass>"));
        ASSERT_EQ(l.status, OX_OK);
        EXPECT_EQ(entryAt(l.contents.get(), 0)->size, c.wantSize) << c.size;
        EXPECT_EQ(entryAt(l.contents.get(), 0)->storageClass, c.wantClass) << c.storageClass;
    }
}

TEST_F(S3XmlTest, DatesAreReadInIsoAndHttpFormsAndOtherTextFailsTheListing) {
    const std::pair<std::string_view, OXStatus> cases[] = {
        {"2009-10-12T17:50:30.000Z", OX_OK},
        {"20091012T175030Z", OX_OK},
        {"Monday, 12-Oct-09 17:50:30 GMT", OX_OK},
        {"yesterday", OX_DATE_NOT_IN_FORM},
    };
    for (auto [date, status] : cases) {
        Listing l = list(oneEntry("<LastModified>" + std::string(date) + "</LastModified>"));
        ASSERT_EQ(l.status, status) << date;
        if (status == OX_OK) {
            EXPECT_EQ(entryAt(l.contents.get(), 0)->lastModifiedDate, kOct12) << date;
        } else {
            EXPECT_FALSE(l.contents);
            EXPECT_EQ(l.truncated, 7) << "outputs are written only on success";
        }
    }
}

TEST_F(S3XmlTest, OrderedInsertionPutsAnEqualNameAtTheSearchsLowBound) {
    auto entry = [&](std::string_view name) {
        OXS3BucketEntry* e = nullptr;
        EXPECT_EQ(s3::createBucketEntry(pool, &e), OX_OK);
        ext()->oxstring->createU8(ext()->oxstring, pool, name.data(), name.size(), OX_STR_COPY, &e->name);
        return Owned<OXS3BucketEntry>(e);
    };
    Owned<OXArray_S> array;
    ASSERT_EQ(ext()->oxarray->create(ext()->oxarray, pool, 0, array.out()), OX_OK);
    for (std::string_view name : {"c", "a", "b"}) ASSERT_EQ(s3::addEntryInOrder(array.get(), entry(name).get()), OX_OK);
    EXPECT_EQ(names(array.get()), (std::vector<std::string>{"a", "b", "c"}));
    // A second "b" meets the first at the first probe, while the low bound is still 0.
    ASSERT_EQ(s3::addEntryInOrder(array.get(), entry("b").get()), OX_OK);
    EXPECT_EQ(names(array.get()), (std::vector<std::string>{"b", "a", "b", "c"}));
}

TEST_F(S3XmlTest, AnElementRepeatedInsideItselfNeverWritesIntoReleasedText) {
    Listing l = list("<ListBucketResult><Contents><Key>a<Key/>b</Key><Size>1<Contents/>2</Size></Contents>"
                     "</ListBucketResult>");
    ASSERT_EQ(l.status, OX_OK);
    EXPECT_EQ(names(l.contents.get()), (std::vector<std::string>{"<absent>"})) << "an empty Contents starts afresh";

    constexpr std::string_view doc = "<DeleteResult><Error><Key>a<Key/>b</Key><Code>c</Code></Error></DeleteResult>";
    Owned<OXArray_S> errors;
    ASSERT_EQ(s3::parseDeleteResult(ext(), pool, doc.data(), doc.size(), errors.out()), OX_OK);
    EXPECT_EQ(text(reinterpret_cast<OXS3DeleteError*>(errors->items[0])->key), "b");
}

// ---- the small result documents

TEST_F(S3XmlTest, InitiateUploadGivesBucketKeyAndUploadId) {
    constexpr std::string_view doc = R"(<?xml version="1.0" encoding="UTF-8"?>
<InitiateMultipartUploadResult xmlns="http://s3.amazonaws.com/doc/2006-03-01/">
  <Bucket>example-bucket</Bucket><Key>example-object</Key>
  <UploadId>VXBsb2FkIElEIGZvciA2aWWpbmcncyBteS1tb3ZpZS5tMnRzIHVwbG9hZA</UploadId>
</InitiateMultipartUploadResult>)";
    Owned<OXU8String> bucket, key, uploadId;
    ASSERT_EQ(s3::parseInitiateUpload(ext(), pool, doc.data(), doc.size(), bucket.out(), key.out(), uploadId.out()),
              OX_OK);
    EXPECT_EQ(text(bucket.get()), "example-bucket");
    EXPECT_EQ(text(key.get()), "example-object");
    EXPECT_EQ(text(uploadId.get()), "VXBsb2FkIElEIGZvciA2aWWpbmcncyBteS1tb3ZpZS5tMnRzIHVwbG9hZA");

    constexpr std::string_view noKey = "<InitiateMultipartUploadResult><UploadId>2~x</UploadId></InitiateMultipartUploadResult>";
    ASSERT_EQ(s3::parseInitiateUpload(ext(), pool, noKey.data(), noKey.size(), bucket.out(), key.out(), uploadId.out()),
              OX_OK);
    EXPECT_FALSE(key);
    EXPECT_EQ(text(uploadId.get()), "2~x");
}

TEST_F(S3XmlTest, CopyResultsGiveTheirETag) {
    constexpr std::string_view doc =
        R"(<CopyObjectResult><LastModified>2009-10-28T22:32:00Z</LastModified><ETag>"9b2cf535f27731c974343645a3985328"</ETag></CopyObjectResult>)";
    Owned<OXU8String> found;
    ASSERT_EQ(s3::parseCopyPartResult(ext(), pool, doc.data(), doc.size(), found.out()), OX_OK);
    EXPECT_EQ(text(found.get()), "\"9b2cf535f27731c974343645a3985328\"");
    constexpr std::string_view none = "<CopyPartResult/>";
    OXU8String* eTag = reinterpret_cast<OXU8String*>(1);
    ASSERT_EQ(s3::parseCopyPartResult(ext(), pool, none.data(), none.size(), &eTag), OX_OK);
    EXPECT_EQ(eTag, nullptr);
}

TEST_F(S3XmlTest, DeleteResultListsOnlyTheKeysThatFailed) {
    constexpr std::string_view doc = R"(<?xml version="1.0" encoding="UTF-8"?>
<DeleteResult xmlns="http://s3.amazonaws.com/doc/2006-03-01/">
  <Deleted><Key>sample1.txt</Key><VersionId>v1</VersionId></Deleted>
  <Deleted><Key>sample2.txt</Key><DeleteMarker>true</DeleteMarker><DeleteMarkerVersionId>m1</DeleteMarkerVersionId></Deleted>
  <Error><Key>sample3.txt</Key><Code>AccessDenied</Code><Message>Access Denied</Message></Error>
  <Error><Key>sample4.txt</Key><VersionId>v4</VersionId><Code>InternalError</Code><Message>We encountered an internal error. Please try again.</Message></Error>
</DeleteResult>)";
    Owned<OXArray_S> errors;
    ASSERT_EQ(s3::parseDeleteResult(ext(), pool, doc.data(), doc.size(), errors.out()), OX_OK);
    ASSERT_EQ(errors->count, 2);
    auto* first = reinterpret_cast<OXS3DeleteError*>(errors->items[0]);
    auto* second = reinterpret_cast<OXS3DeleteError*>(errors->items[1]);
    EXPECT_EQ(text(first->key), "sample3.txt");
    EXPECT_EQ(text(first->code), "AccessDenied");
    EXPECT_EQ(text(first->message), "Access Denied");
    EXPECT_EQ(text(first->version), "v1") << "a field the Error does not set keeps the earlier text";
    EXPECT_EQ(text(second->key), "sample4.txt");
    EXPECT_EQ(text(second->version), "v4");
    EXPECT_EQ(text(second->code), "InternalError");

    constexpr std::string_view allDeleted = "<DeleteResult><Deleted><Key>a</Key></Deleted></DeleteResult>";
    ASSERT_EQ(s3::parseDeleteResult(ext(), pool, allDeleted.data(), allDeleted.size(), errors.out()), OX_OK);
    EXPECT_FALSE(errors);
}

TEST_F(S3XmlTest, AccelerationIsEnabledOrSuspendedOnlyByTheExactText) {
    const std::pair<std::string_view, S3AccelerateState> cases[] = {
        {R"(<AccelerateConfiguration xmlns="http://s3.amazonaws.com/doc/2006-03-01/"><Status>Enabled</Status></AccelerateConfiguration>)",
         s3AccelerateEnabled},
        {"<AccelerateConfiguration><Status>Suspended</Status></AccelerateConfiguration>", s3AccelerateSuspended},
        {R"(<AccelerateConfiguration xmlns="http://s3.amazonaws.com/doc/2006-03-01/"/>)", s3AccelerateUnknown},
    };
    for (auto [doc, want] : cases) {
        S3AccelerateState state = s3AccelerateNotSet;
        ASSERT_EQ(s3::parseAccelerateResult(ext(), pool, doc.data(), doc.size(), &state), OX_OK) << doc;
        EXPECT_EQ(state, want) << doc;
    }
}

// ---- the error document

TEST_F(S3XmlTest, ErrorDocumentKeepsFurtherElementsAsDetails) {
    constexpr std::string_view doc = R"(<?xml version="1.0" encoding="UTF-8"?>
<Error><Code>NoSuchBucket</Code><Message>The specified bucket does not exist</Message><BucketName>nobucket</BucketName><Empty/><RequestId>tx00000a5b-0065</RequestId><HostId>5f2d-default</HostId></Error>)";
    Owned<OXS3Error> error;
    ASSERT_EQ(s3::parseError(ext(), pool, doc.data(), doc.size(), error.out()), OX_OK);
    EXPECT_EQ(text(error->code), "NoSuchBucket");
    EXPECT_EQ(text(error->message), "The specified bucket does not exist");
    EXPECT_EQ(text(error->requestId), "tx00000a5b-0065");
    EXPECT_EQ(text(error->hostId), "5f2d-default");
    ASSERT_NE(error->details, nullptr);
    EXPECT_EQ(error->details->count, 2);
    for (auto [name, want] : {std::pair{"BucketName", "nobucket"}, std::pair{"Empty", ""}}) {
        OXInstance* value = nullptr;
        ASSERT_EQ(error->details->getValueU8(error->details, name, std::strlen(name), &value), OX_OK);
        EXPECT_EQ(text(reinterpret_cast<OXU8String*>(value)), want);
    }
}

TEST_F(S3XmlTest, ErrorWrappedInAResponseTakesTheRequestIdAfterIt) {
    constexpr std::string_view doc = R"(<ErrorResponse xmlns="https://sts.amazonaws.com/doc/2011-06-15/">
  <Error><Type>Sender</Type><Code>ValidationError</Code><Message>1 validation error detected</Message></Error>
  <RequestId>c6104cbe-af31-11e0-8154-cbc7ccf896c7</RequestId>
</ErrorResponse>)";
    Owned<OXS3Error> error;
    ASSERT_EQ(s3::parseError(ext(), pool, doc.data(), doc.size(), error.out()), OX_OK);
    EXPECT_EQ(text(error->code), "ValidationError");
    EXPECT_EQ(text(error->requestId), "c6104cbe-af31-11e0-8154-cbc7ccf896c7");
    EXPECT_EQ(error->details->count, 1);
}

TEST_F(S3XmlTest, ErrorDocumentRefusesElementsInsideDetailsOrAfterTheError) {
    struct Case {
        std::string_view doc;
        OXStatus status;
        bool hasError;
    };
    const Case cases[] = {
        {"<Error><Code>X</Code><BucketName><Inner/></BucketName></Error>", OX_INVALID_ARGUMENT, false},
        {"<Wrap><Error><Code>X</Code></Error><Extra/></Wrap>", OX_INVALID_ARGUMENT, false},
        {"<Wrap><Before><Deep/></Before><Error><Code>X</Code></Error></Wrap>", OX_OK, true},
        {"<Other><Thing>x</Thing></Other>", OX_OK, false},
    };
    for (const Case& c : cases) {
        Owned<OXS3Error> error;
        ASSERT_EQ(s3::parseError(ext(), pool, c.doc.data(), c.doc.size(), error.out()), c.status) << c.doc;
        EXPECT_EQ(bool(error), c.hasError) << c.doc;
    }
}

// ---- every document: depth, malformed input, allocation failures

struct Document {
    const char* name;
    std::string_view sample;
    OXStatus (*parse)(OXS3Extension*, OX_POOL_S*, std::string_view);  // releases what it made
};

#define OX_PARSE(...) [](OXS3Extension* e, OX_POOL_S* p, std::string_view d) { __VA_ARGS__ }

const Document kDocuments[] = {
    {"BucketList",
     "<ListAllMyBucketsResult><Owner><ID>i</ID><DisplayName>d</DisplayName></Owner><Buckets><Bucket><Name>n</Name>"
     "<CreationDate>2006-02-03T16:45:09.000Z</CreationDate></Bucket></Buckets></ListAllMyBucketsResult>",
     OX_PARSE(Owned<OXS3BucketList> list; return s3::parseBucketList(e, p, d.data(), d.size(), list.out());)},
    {"BucketContents",
     "<ListBucketResult><NextMarker>m</NextMarker><IsTruncated>true</IsTruncated><Contents><Key>a/1</Key>"
     "<LastModified>2009-10-12T17:50:30.000Z</LastModified><ETag>\"e\"</ETag><Size>1</Size><StorageClass>GLACIER"
     "</StorageClass><Owner><ID>i</ID><DisplayName>d</DisplayName></Owner></Contents><CommonPrefixes><Prefix>a/"
     "</Prefix></CommonPrefixes></ListBucketResult>",
     OX_PARSE(Owned<OXArray_S> contents; Owned<OXU8String> next; OXBoolean truncated; return s3::parseBucketContentList(e, p, d.data(), d.size(), contents.out(), next.out(), &truncated);)},
    {"InitiateUpload",
     "<InitiateMultipartUploadResult><Bucket>b</Bucket><Key>k</Key><UploadId>u</UploadId>"
     "</InitiateMultipartUploadResult>",
     OX_PARSE(Owned<OXU8String> bucket, key, id; return s3::parseInitiateUpload(e, p, d.data(), d.size(), bucket.out(), key.out(), id.out());)},
    {"Error", "<Error><Code>c</Code><Message>m</Message><Key>k</Key><RequestId>r</RequestId><HostId>h</HostId></Error>",
     OX_PARSE(Owned<OXS3Error> error; return s3::parseError(e, p, d.data(), d.size(), error.out());)},
    {"CopyPartResult", "<CopyPartResult><LastModified>x</LastModified><ETag>e</ETag></CopyPartResult>",
     OX_PARSE(Owned<OXU8String> eTag; return s3::parseCopyPartResult(e, p, d.data(), d.size(), eTag.out());)},
    {"DeleteResult",
     "<DeleteResult><Deleted><Key>a</Key></Deleted><Error><Key>b</Key><Code>c</Code><Message>m</Message></Error>"
     "</DeleteResult>",
     OX_PARSE(Owned<OXArray_S> errors; return s3::parseDeleteResult(e, p, d.data(), d.size(), errors.out());)},
    {"AccelerateResult", "<AccelerateConfiguration><Status>Enabled</Status></AccelerateConfiguration>",
     OX_PARSE(S3AccelerateState state; return s3::parseAccelerateResult(e, p, d.data(), d.size(), &state);)},
};

class EveryDocument : public S3XmlTest, public ::testing::WithParamInterface<Document> {};

TEST_P(EveryDocument, SixtyThreeLevelsParseASixtyFourthIsRefusedAndMalformedXmlFails) {
    const auto& parse = GetParam().parse;
    EXPECT_EQ(parse(ext(), pool, nested(63, false)), OX_OK);
    EXPECT_EQ(parse(ext(), pool, nested(63, true)), OX_OK);
    EXPECT_EQ(parse(ext(), pool, nested(64, false)), OX_INVALID_ARGUMENT);
    EXPECT_EQ(parse(ext(), pool, nested(64, true)), OX_INVALID_ARGUMENT) << "even an empty element";
    const std::string broken = std::string(GetParam().sample.substr(0, GetParam().sample.size() / 2)) + "</oops>";
    EXPECT_EQ(GetParam().parse(ext(), pool, broken), OX_XML_MALFORMED);
    EXPECT_EQ(GetParam().parse(ext(), pool, ""), OX_XML_MALFORMED);
}

TEST_P(EveryDocument, FailingAnyAllocationReleasesEverything) {
    OXStatus st = OX_NO_MEMORY;
    int64_t allowed = 0;
    for (; st != OX_OK && allowed < 500; ++allowed) {
        oxPoolFailAfter(pool, allowed);
        st = GetParam().parse(ext(), pool, GetParam().sample);
        oxPoolFailAfter(pool, -1);
        ASSERT_EQ(pool->blocksInUse(pool), 0u) << "after failing allocation " << allowed;
    }
    EXPECT_EQ(st, OX_OK);
    EXPECT_GT(allowed, 1);
}

INSTANTIATE_TEST_SUITE_P(S3Documents, EveryDocument, ::testing::ValuesIn(kDocuments),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- the frame

struct FrameOnly {
    s3::S3XMLParser frame;
};

TEST_F(S3XmlTest, MalformedXmlLeavesTheFaultsLineAndColumn) {
    s3::ParserRecord<FrameOnly> p;
    ASSERT_EQ(p.create(ext(), pool, nullptr, nullptr), OX_OK);
    constexpr std::string_view doc = "<a>\n  <b></a>";
    auto* xml = reinterpret_cast<OXXMLExt_S*>(ext()->oxexml);
    EXPECT_EQ(s3::parseXML(xml, &p->frame, doc.data(), doc.size()), OX_XML_MALFORMED);
    EXPECT_EQ(p->frame.parseResult, static_cast<uint32_t>(OX_XML_MALFORMED));
    EXPECT_EQ(p->frame.errorLine, 2u);
    EXPECT_EQ(p->frame.errorColumn, 8u);
}

}  // namespace
