// Directories and deletion. A directory is a key prefix ending in "/"; its placeholder is the
// zero-length object of that key. Every request goes through the send cycle; a tree is deleted
// one key at a time, deepest and latest keys first.
#include "oxs3dir.h"

#include "ox/status.h"
#include "ox/webclient.h"
#include "oxs3aclheaders.h"
#include "oxs3bucket.h"
#include "oxs3connection.h"
#include "oxs3docs.h"
#include "oxs3encode.h"
#include "oxs3log.h"
#include "oxs3owned.h"
#include "oxs3path.h"
#include "oxs3request.h"
#include "oxs3send.h"
#include "oxs3sign.h"
#include "oxs3text.h"
#include "oxs3textbuf.h"
#include "oxs3write.h"

namespace s3 {
namespace {

constexpr SendCycleOp kCreateDirectory = {"oxs3CreateDirectory",
                                          U"oxs3CreateDirectory: Put failed with result 0x%x. Retrying."};
constexpr SendCycleOp kDeleteObject = {"oxs3DeleteObject", U"oxs3DeleteObject: Delete failed with result 0x%x. Retrying."};
constexpr SendCycleOp kDeleteFiles = {"deleteFiles", U"deleteFiles: Request failed with result 0x%x. Retrying."};

constexpr std::string_view kRoot = "/";
constexpr std::string_view kMfaHeader = "x-amz-mfa";
constexpr std::string_view kDeleteMarkerHeader = "x-amz-delete-marker";
constexpr std::string_view kStorageClassHeader = "x-amz-storage-class";
constexpr std::string_view kContentMD5Header = "Content-MD5";
constexpr std::string_view kDeleteXMLStart =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Delete>\n    <Quiet>false</Quiet>\n";
constexpr std::string_view kDeleteXMLEnd = "</Delete>\n";

// ---- bucket and path

// The bucket and the path inside it, as views into the caller's texts.
struct DirTarget {
    std::string_view bucket;
    std::string_view path;  // begins with "/"
};

// A bucket given as an argument ("s3://" allowed), or the path's first component.
OXStatus dirTarget(OXS3Connection c, UTF8CStr bucket, UTF8CStr path, DirTarget* target) {
    if (!path) return OX_INVALID_ARGUMENT;
    std::string_view text(path);
    if (text.empty() || text.front() != '/') return OXS3_PATH_NOT_ABSOLUTE;
    std::string_view name;
    if (bucket) {
        UTF8CStr normalised = nullptr;
        if (OXStatus st = getBucketName(c->oxs3, bucket, &normalised); st != OX_OK) return st;
        name = normalised;
    } else {
        const size_t slash = text.find('/', 1);
        name = text.substr(1, slash == std::string_view::npos ? slash : slash - 1);
        text = slash == std::string_view::npos ? std::string_view{} : text.substr(slash);
        if (text.empty()) return OX_INVALID_ARGUMENT;
    }
    if (!validBucketName(c->oxs3, name.data(), name.size())) return OX_INVALID_ARGUMENT;
    *target = {name, text};
    return OX_OK;
}

// The path with a trailing "/", terminated, in out.
OXStatus directoryPath(std::string_view path, TextBuffer& out) {
    out.append(path);
    if (!path.ends_with('/')) out.push('/');
    out.c_str();
    return out.status();
}

// ---- one request

OXStatus newHeaders(OXS3Connection c, Owned<OXDictionary_S>& headers) {
    return createRequest(c, nullptr, nullptr, nullptr, nullptr, headers.out(), oxzdtgmt());
}

OXStatus setOptionalText(OXDictionary headers, std::string_view name, UTF8CStr value) {
    return value ? setText(headers, name, value) : OX_OK;
}

OXStatus sendSigned(Attempt& a, HTTPMethod method, const DirTarget& t, OXDictionary query, OXDictionary headers,
                    std::string_view body, std::string_view payloadHash) {
    OXStatus st = buildRequest(a.connection, a.http, nullptr, headers, methodText(method), t.bucket, t.path, query,
                               payloadHash, body.size());
    if (st != OX_OK) return st;
    return sendBuiltRequest(a, method, query, headers, static_cast<int64_t>(body.size()),
                            body.empty() ? nullptr : body.data(), body.size());
}

// Exactly "true" marks a delete marker; any other value does not.
bool deleteMarkerSet(HTConnection http) {
    UTF8CStr value = nullptr;
    UTF8ByteLength length = 0;
    if (http->getResponseHeader(http, kDeleteMarkerHeader.data(), kDeleteMarkerHeader.size(), &value, &length) !=
            OX_OK ||
        !value)
        return false;
    return std::string_view(value, length) == "true";
}

// ---- attempts

struct DirectoryPut {
    DirTarget target;
    OXS3AccessType accessType;
    const OXS3ACL_S* accessControl;
    OXDictionary metadata;
    bool reducedRedundancy;
};

OXStatus createOnce(Attempt& a, const DirectoryPut& put) {
    OXS3Connection c = a.connection;
    Owned<OXDictionary_S> headers;
    OXStatus st = newHeaders(c, headers);
    if (st == OX_OK)
        st = setText(headers.get(), kStorageClassHeader, put.reducedRedundancy ? "REDUCED_REDUNDANCY" : "STANDARD");
    if (st == OX_OK) st = addAccessHeaders(c->oxs3->oxstring, headers.get(), put.accessType, put.accessControl);
    if (st == OX_OK && put.metadata) st = requestAddMetadata(c, headers.get(), put.metadata);
    if (st == OX_OK) st = sendSigned(a, httpPut, put.target, nullptr, headers.get(), {}, kEmptyPayloadHash);
    HTTPStatus status{};
    if (st == OX_OK) st = readAnswer(a, status, {OX_HTTP_OK});
    PoolBlock<char> body;
    OXMemSize length = 0;
    return st == OX_OK ? readBody(a, body, length) : st;
}

OXStatus deleteOnce(Attempt& a, const DirTarget& t, UTF8CStr mfa, OXDictionary query, bool& marker) {
    Owned<OXDictionary_S> headers;
    OXStatus st = newHeaders(a.connection, headers);
    if (st == OX_OK) st = setOptionalText(headers.get(), kMfaHeader, mfa);
    if (st == OX_OK) st = sendSigned(a, httpDelete, t, query, headers.get(), {}, kEmptyPayloadHash);
    HTTPStatus status{};
    if (st == OX_OK) st = readAnswer(a, status, {OX_HTTP_OK, OX_HTTP_NOT_FOUND});
    if (st != OX_OK) return st;
    marker = deleteMarkerSet(a.http);
    PoolBlock<char> body;
    OXMemSize length = 0;
    st = readBody(a, body, length);
    if (st == OX_OK && status.message == OX_HTTP_NOT_FOUND) return OX_HTTP_NOT_FOUND;
    return st;
}

struct DeletePost {
    DirTarget target;
    OXDictionary query;
    UTF8CStr mfa;
    std::string_view body;
    std::string_view payloadHash;
    std::string_view contentMD5;
};

OXStatus deleteFilesOnce(Attempt& a, const DeletePost& post, Owned<OXArray_S>& errors) {
    OXS3Connection c = a.connection;
    errors.reset();
    Owned<OXDictionary_S> headers;
    OXStatus st = newHeaders(c, headers);
    if (st == OX_OK) st = setText(headers.get(), kContentMD5Header, post.contentMD5);
    if (st == OX_OK) st = setOptionalText(headers.get(), kMfaHeader, post.mfa);
    if (st == OX_OK) st = sendSigned(a, httpPost, post.target, post.query, headers.get(), post.body, post.payloadHash);
    HTTPStatus status{};
    if (st == OX_OK) st = readAnswer(a, status, {OX_HTTP_OK});
    PoolBlock<char> body;
    OXMemSize length = 0;
    if (st == OX_OK) st = readBody(a, body, length);
    if (st != OX_OK || length == 0) return st;
    return parseDeleteResult(c->oxs3, c->pool, body.get(), length, errors.out());
}

// ---- operations behind the slots

OXStatus deleteKey(OXS3Connection c, const DirTarget& t, UTF8CStr mfa, OXDictionary query, OXBoolean* deleteMarker) {
    bool marker = false;
    OXStatus st = sendCycle(c, kDeleteObject, [&](Attempt& a) { return deleteOnce(a, t, mfa, query, marker); });
    if (st == OX_OK && deleteMarker) *deleteMarker = marker ? OX_TRUE : OX_FALSE;
    return st;
}

// Whether anything but the placeholder lies under the directory: one listing page suffices,
// since a truncated page has more after it.
OXStatus holdsEntries(OXS3Connection c, const DirTarget& t, std::string_view prefix, bool* found) {
    Owned<OXArray_S> page;
    Owned<OXU8String> next;
    OXBoolean truncated = OX_FALSE;
    OXStatus st = getBucketContents(c, t.bucket, prefix.data(), nullptr, true, page.out(), next.out(), &truncated, true);
    if (st == OX_OK) *found = (page && page->count > 0) || truncated;
    return st;
}

OXStatus deleteEmptyDirectory(OXS3Connection c, const DirTarget& t, UTF8CStr mfa, OXBoolean* deleteMarker) {
    TextBuffer placeholder(c->pool);
    bool found = false;
    OXStatus st = directoryPath(t.path, placeholder);
    if (st == OX_OK && placeholder.view() == kRoot) st = OX_INVALID_ARGUMENT;  // a DELETE there removes the bucket
    if (st == OX_OK) st = holdsEntries(c, t, placeholder.c_str(), &found);
    if (st != OX_OK) return st;
    if (found) return OXS3_DIRECTORY_NOT_EMPTY;
    return deleteKey(c, {t.bucket, placeholder.view()}, mfa, nullptr, deleteMarker);
}

OXStatus deleteDirectoryIn(OXS3Connection c, UTF8CStr bucket, UTF8CStr dirPath, UTF8CStr mfa, OXBoolean* deleteMarker,
                           OXBoolean contents, OXArray* errorList) {
    if (contents) {
        if (!errorList) return OX_INVALID_ARGUMENT;
        return deleteDirectoryTree(c, bucket, dirPath, mfa, errorList);
    }
    DirTarget target;
    OXStatus st = dirTarget(c, bucket, dirPath, &target);
    return st == OX_OK ? deleteEmptyDirectory(c, target, mfa, deleteMarker) : st;
}

// ---- tree walk

// Every key under prefix, over as many pages as the listing takes, in listing order.
OXStatus collectKeys(OXS3Connection c, std::string_view bucket, std::string_view prefix, OXArray all) {
    Owned<OXU8String> marker;
    for (;;) {
        Owned<OXU8String> next;
        OXBoolean truncated = OX_FALSE;
        OXStatus st = getDirContents(c, bucket, prefix, marker.get(), all, next.out(), &truncated);
        if (st != OX_OK) return st;
        // A truncated page without a marker cannot be continued: asking again would repeat it.
        if (!truncated || !next) return OX_OK;
        marker = std::move(next);
    }
}

OXStatus deleteKeysBackwards(OXS3Connection c, std::string_view bucket, OXArray keys, UTF8CStr mfa) {
    TextBuffer path(c->pool);
    for (int64_t i = keys->count; i-- > 0;) {
        path.clear();
        path.push('/');
        path.append(view(reinterpret_cast<const OXS3BucketEntry*>(keys->items[i])->name));
        if (path.status() != OX_OK) return path.status();
        if (OXStatus st = deleteKey(c, {bucket, path.view()}, mfa, nullptr, nullptr); st != OX_OK) return st;
    }
    return OX_OK;
}

// ---- entries with full keys

// Entries of the page whose relative names continue the prefix, renamed to their full keys.
OXStatus appendFullKeys(OXS3Connection c, OXArray page, std::string_view prefix, OXArray out) {
    OXStringExt_S* strings = c->oxs3->oxstring;
    TextBuffer key(c->pool);
    for (int64_t i = 0; i < page->count; ++i) {
        auto* entry = reinterpret_cast<OXS3BucketEntry*>(page->items[i]);
        const std::string_view name = view(entry->name);
        if (!name.starts_with('/')) continue;  // a sibling sharing the prefix's letters
        key.clear();
        key.append(prefix);
        key.append(name);
        OXU8String* full = nullptr;
        OXStatus st = copyToString(strings, c->pool, key, &full);
        if (st != OX_OK) return st;
        entry->name->instance.destroy(entry->name);
        entry->name = full;
        if ((st = out->addItems(out, &page->items[i], 1)) != OX_OK) return st;
    }
    return OX_OK;
}

}  // namespace

// The bucket area's listing names its entries relative to the prefix it lists; it lists the
// prefix without its trailing "/" here so that every entry under the directory keeps that "/"
// and no relative name can be mistaken for the placeholder.
OXStatus getDirContents(OXS3Connection connection, std::string_view bucket, std::string_view prefix,
                        const OXU8String* marker, OXArray contentList, OXU8String** nextMarker,
                        OXBoolean* isTruncated) {
    if (!connection || !contentList || !nextMarker || !isTruncated) return OX_INVALID_ARGUMENT;
    const std::string_view stem = prefix.ends_with('/') ? prefix.substr(0, prefix.size() - 1) : prefix;
    TextBuffer path(connection->pool);
    path.push('/');
    path.append(stem);
    if (path.status() != OX_OK) return path.status();
    Owned<OXArray_S> page;
    Owned<OXU8String> next;
    OXBoolean truncated = OX_FALSE;
    OXStatus st = getBucketContents(connection, bucket, stem.empty() ? nullptr : path.c_str(), marker, false,
                                    page.out(), next.out(), &truncated, false);
    if (st == OX_OK && page) {
        st = stem.empty() ? contentList->addItems(contentList, page->items, page->count)
                          : appendFullKeys(connection, page.get(), stem, contentList);
    }
    if (st != OX_OK) return st;
    *nextMarker = next.release();
    *isTruncated = truncated;
    return OX_OK;
}

OXStatus deleteDirectoryTree(OXS3Connection connection, UTF8CStr bucket, UTF8CStr dirPath, UTF8CStr multiFactorAuthCode,
                             OXArray* errorList) {
    if (!connection || !errorList) return OX_INVALID_ARGUMENT;
    *errorList = nullptr;
    DirTarget target;
    TextBuffer directory(connection->pool);
    OXStatus st = dirTarget(connection, bucket, dirPath, &target);
    if (st == OX_OK) st = directoryPath(target.path, directory);
    Owned<OXArray_S> keys;
    if (st == OX_OK) st = connection->oxs3->oxarray->create(connection->oxs3->oxarray, connection->pool, 0, keys.out());
    if (st == OX_OK) st = collectKeys(connection, target.bucket, directory.view().substr(1), keys.get());
    return st == OX_OK ? deleteKeysBackwards(connection, target.bucket, keys.get(), multiFactorAuthCode) : st;
}

OXStatus startDeleteXML(OXStringExt_S* strings, OX_POOL_S* pool, OXU8String** xml) {
    if (!strings || !pool || !xml) return OX_INVALID_ARGUMENT;
    return strings->createU8(strings, pool, kDeleteXMLStart.data(), kDeleteXMLStart.size(), OX_STR_COPY, xml);
}

OXStatus deleteFiles(OXS3Connection connection, UTF8CStr bucket, UTF8CStr mfaCode, OXU8String* xml,
                     OXArray* errorList) {
    if (!connection || !bucket || !xml || !errorList) return OX_INVALID_ARGUMENT;
    beginOperation(connection, U"deleteFiles");
    OXWebClient_S* wc = webClient(connection->oxs3);
    DirTarget target;
    OXStatus st = dirTarget(connection, bucket, kRoot.data(), &target);
    if (st == OX_OK) st = appendText(xml, {kDeleteXMLEnd});
    const std::string_view body = view(xml);
    uint8_t digest[OX_MD5_LEN];
    char md5Text[32] = {};
    size_t md5Length = 0;
    TextBuffer hash(connection->pool);
    if (st == OX_OK) st = wc->md5(body.data(), body.size(), digest);
    if (st == OX_OK) st = wc->base64Encode(digest, sizeof digest, md5Text, sizeof md5Text, &md5Length);
    if (st == OX_OK) st = appendSha256Hex(wc, body, hash);
    Owned<OXDictionary_S> query;
    if (st == OX_OK) st = newQueryU8(connection->oxs3, connection->pool, "delete", nullptr, query.out());
    if (st != OX_OK) return st;
    const DeletePost post{target, query.get(), mfaCode, body, hash.view(), {md5Text, md5Length}};
    Owned<OXArray_S> errors;
    st = sendCycle(connection, kDeleteFiles, [&](Attempt& a) { return deleteFilesOnce(a, post, errors); });
    if (st == OX_OK) *errorList = errors.release();
    return st;
}

OXStatus bucketNameFromPath(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr objectPath, OXU8String** bucketName,
                            OXU8String** newPath) {
    if (!ext || !pool || !objectPath || !bucketName || !newPath) return OX_INVALID_ARGUMENT;
    std::string_view text(objectPath);
    if (text.starts_with('/')) text.remove_prefix(1);
    const size_t slash = text.find('/');
    if (slash == 0 || slash == std::string_view::npos || slash + 1 == text.size()) return OXS3_LOCATION_NO_BUCKET;
    OXStringExt_S* strings = ext->oxstring;
    Owned<OXU8String> name, path;
    const std::string_view rest = text.substr(slash);  // keeps its "/"
    OXStatus st = strings->createU8(strings, pool, text.data(), slash, OX_STR_COPY, name.out());
    if (st == OX_OK) st = strings->createU8(strings, pool, rest.data(), rest.size(), OX_STR_COPY, path.out());
    if (st != OX_OK) return st;
    *bucketName = name.release();
    *newPath = path.release();
    return OX_OK;
}

OXStatus oxs3PathIsDirectory(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path, OXBoolean* isDir) {
    if (!connection || !path || !isDir) return OX_INVALID_ARGUMENT;
    beginOperation(connection, U"oxs3PathIsDirectory");
    DirTarget target;
    OXStatus st = dirTarget(connection, bucket, path, &target);
    if (st != OX_OK) return st;
    if (target.path == kRoot) {
        *isDir = OX_TRUE;
        return OX_OK;
    }
    TextBuffer prefix(connection->pool);
    Owned<OXArray_S> page;
    Owned<OXU8String> next;
    OXBoolean truncated = OX_FALSE;
    st = directoryPath(target.path, prefix);
    if (st == OX_OK)
        st = getBucketContents(connection, target.bucket, prefix.c_str(), nullptr, false, page.out(), next.out(),
                               &truncated, false);
    if (st == OX_OK) *isDir = page && page->count > 0 ? OX_TRUE : OX_FALSE;
    return st;
}

OXStatus oxs3CreateDirectory(OXS3Connection connection, UTF8CStr bucket, UTF8CStr dirPath, OXS3AccessType accessType,
                             OXS3ACL_S* accessControl, OXDictionary metadata, OXBoolean useReducedRedundancy) {
    if (!connection) return OX_INVALID_ARGUMENT;
    beginOperation(connection, U"oxs3CreateDirectory");
    DirTarget target;
    TextBuffer placeholder(connection->pool);
    OXStatus st = dirTarget(connection, bucket, dirPath, &target);
    if (st == OX_OK) st = directoryPath(target.path, placeholder);
    if (st != OX_OK) return st;
    if (placeholder.view() == kRoot) return OX_OK;  // the root always exists
    const DirectoryPut put{{target.bucket, placeholder.view()}, accessType, accessControl, metadata,
                           useReducedRedundancy != OX_FALSE};
    return sendCycle(connection, kCreateDirectory, [&](Attempt& a) { return createOnce(a, put); });
}

OXStatus oxs3DeleteDirectory(OXS3Connection connection, UTF8CStr bucket, UTF8CStr dirPath, UTF8CStr multiFactorAuthCode,
                             OXBoolean* deleteMarker, OXBoolean contents, OXArray* errorList) {
    if (!connection) return OX_INVALID_ARGUMENT;
    beginOperation(connection, U"oxs3DeleteDirectory");
    Logger_S* logger = connection->oxs3->logger;
    OXS3_LOG(logger, LL_Trace, U"oxs3DeleteDirectory [ENTER] : bucket: %hs path: %hs contents=%hs",
             bucket ? bucket : "NULL", dirPath ? dirPath : "NULL", contents ? "TRUE" : "FALSE");
    if (deleteMarker) *deleteMarker = OX_FALSE;
    const OXStatus st =
        deleteDirectoryIn(connection, bucket, dirPath, multiFactorAuthCode, deleteMarker, contents, errorList);
    OXS3_LOG(logger, LL_Trace, U"oxs3DeleteDirectory [EXIT]: result=0x%x", st);
    return st;
}

OXStatus oxs3DeleteObject(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path, UTF8CStr multiFactorAuthCode,
                          UTF8CStr versionId, OXBoolean* deleteMarker) {
    if (!connection) return OX_INVALID_ARGUMENT;
    beginOperation(connection, U"oxs3DeleteObject");
    DirTarget target;
    OXStatus st = dirTarget(connection, bucket, path, &target);
    if (st == OX_OK && target.path == kRoot) st = OX_INVALID_ARGUMENT;  // a DELETE there removes the bucket
    Owned<OXDictionary_S> query;
    if (st == OX_OK && versionId) st = newQueryU8(connection->oxs3, connection->pool, "versionId", versionId, query.out());
    return st == OX_OK ? deleteKey(connection, target, multiFactorAuthCode, query.get(), deleteMarker) : st;
}

void setDirectoryOps(OXS3Connection connection) {
    connection->pathIsDir = oxs3PathIsDirectory;
    connection->createDirectory = oxs3CreateDirectory;
    connection->deleteDirectory = oxs3DeleteDirectory;
    connection->deleteObject = oxs3DeleteObject;
}

}  // namespace s3
