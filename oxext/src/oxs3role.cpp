// Role credentials: the web identity of an EKS service account, whose projected token file is
// exchanged for temporary credentials.
#include <charconv>
#include <memory>

#include "ox/ioe.h"
#include "ox/status.h"
#include "oxs3areas.h"
#include "oxs3conf.h"
#include "oxs3log.h"

namespace s3 {
namespace {

constexpr char kTokenAccessName[] = "awss3";
// Projected service-account tokens are a few kilobytes; anything far larger is not one.
constexpr uint64_t kMaxTokenBytes = uint64_t{1} << 20;

struct CloseFile {
    void operator()(OXIOEFile* file) const { file->generic.destroy(file); }
};
using OpenFile = std::unique_ptr<OXIOEFile, CloseFile>;

OXIOE_EXTENSION_S* ioService(OXS3Extension* ext) { return reinterpret_cast<OXIOE_EXTENSION_S*>(ext->oxioe); }

OXStatus tokenFileSize(OXS3Extension* ext, OX_POOL_S* pool, const char* path, uint64_t& size) {
    OXIOE_EXTENSION_S* io = ioService(ext);
    Owned<OXDictionary_S> info;
    OXStatus st = io->fileInfo(io, pool, path, info.out());
    if (st != OX_OK) return st;
    const OXU8String* text = stringEntry(ext, info.get(), OXIOE_FILESIZE);
    if (!text) return OX_FAILED;
    const char* end = text->stg + text->len;
    auto parsed = std::from_chars(text->stg, end, size);
    return parsed.ec == std::errc() && parsed.ptr == end ? OX_OK : OX_FAILED;
}

OXStatus readFully(OXIOEFile* file, char* bytes, uint64_t size, uint64_t& got) {
    while (got < size) {
        OXMemSize n = 0;
        OXStatus st = file->read(file, bytes + got, size - got, &n);
        if (st == OX_END_OF_DATA) return OX_OK;  // the file shrank since its size was taken
        if (st != OX_OK) return st;
        got += n;
    }
    return OX_OK;
}

OXStatus readTokenFile(OXS3Extension* ext, OX_POOL_S* pool, const OXU8String* path, Owned<OXU8String>& token) {
    uint64_t size = 0;
    OXStatus st = tokenFileSize(ext, pool, path->stg, size);
    if (st != OX_OK) return st;
    if (size > kMaxTokenBytes) {
        OXS3_LOG(ext->logger, LL_Error, U"The web identity token file %hs is larger than %llu bytes.", path->stg,
                 static_cast<unsigned long long>(kMaxTokenBytes));
        return OX_INVALID_ARGUMENT;
    }
    auto bytes = PoolBlock<char>::allocate(pool, size + 1);
    if (!bytes) return OX_NO_MEMORY;
    OXIOE_EXTENSION_S* io = ioService(ext);
    OXIOEFile* opened = nullptr;
    st = io->open(io, pool, OXIOE_DISK_ENGINE, kTokenAccessName, path->stg, OXIOE_READ, &opened);
    if (st != OX_OK) return st;
    OpenFile file(opened);
    uint64_t got = 0;
    st = readFully(file.get(), bytes.get(), size, got);
    if (st != OX_OK) return st;
    return ext->oxstring->createU8(ext->oxstring, pool, bytes.get(), got, OX_STR_COPY, token.out());
}

}  // namespace

OXStatus getS3CredentialsForEKSServiceAccount(OXS3Extension* ext, OX_POOL_S* pool, const OXU8String* roleArn,
                                              const OXU8String* tokenFilePath, OXDictionary* credentials) {
    if (!ext || !pool || !roleArn || !tokenFilePath || !credentials) return OX_INVALID_ARGUMENT;
    OXS3_LOG(ext->logger, LL_Trace, U"getS3CredentialsForEKSServiceAccount [ENTER]");
    Owned<OXU8String> token;
    Owned<OXDictionary_S> result;
    OXStatus st = readTokenFile(ext, pool, tokenFilePath, token);
    if (st == OX_OK && getEKSServiceAccountCredentials(ext, pool, roleArn, token.get(), result.out()) != OX_OK)
        st = OXS3_AWS_CREDENTIALS_UNREADABLE;
    if (st == OX_OK) *credentials = result.release();
    OXS3_LOG(ext->logger, LL_Trace, U"getS3CredentialsForEKSServiceAccount [EXIT]: result=0x%x", st);
    return st;
}

// The STS web-identity exchange joins here. Until it does there are no service-account
// credentials, and asking costs neither a connection nor a wait.
OXStatus getEKSServiceAccountCredentials(OXS3Extension*, OX_POOL_S*, const OXU8String*, const OXU8String*,
                                         OXDictionary*) {
    return OX_NOT_FOUND;
}

}  // namespace s3
