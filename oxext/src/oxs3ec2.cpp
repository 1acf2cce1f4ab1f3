// EC2 instance detection: whether the process runs on an EC2 instance and in which region,
// decided once per process and kept in the host name "oxs3.isEC2Host" for later loads.
#include <iterator>
#include <string_view>

#include "ox/status.h"
#include "oxs3areas.h"
#include "oxs3conf.h"
#include "oxs3log.h"

namespace s3 {
namespace {

constexpr std::u32string_view kIsEC2HostName = U"oxs3.isEC2Host";
constexpr std::u32string_view kTrue = U"TRUE";
constexpr std::u32string_view kFalse = U"FALSE";

const OXChar* chars(std::u32string_view s) { return reinterpret_cast<const OXChar*>(s.data()); }

// Asks the instance metadata service for the region. Until the metadata client exists there
// is no service to ask, and the answer must never wait on the network.
OXStatus probeEC2Region(OXS3Extension*, OX_POOL_S*, OXU8String**) { return OX_NOT_FOUND; }

// The stored answer of an earlier load: true, false, or none (-1).
int storedAnswer(OX_HNDL_S* h) {
    if (!h->nameExists(h, chars(kIsEC2HostName), kIsEC2HostName.size())) return -1;
    OXChar value[8];
    size_t len = 0;
    if (h->nameGet(h, chars(kIsEC2HostName), kIsEC2HostName.size(), value, std::size(value), &len) != OX_OK) return -1;
    return std::u32string_view(reinterpret_cast<const char32_t*>(value), len) == kTrue ? 1 : 0;
}

void storeAnswer(OX_HNDL_S* h, bool isEC2) {
    std::u32string_view v = isEC2 ? kTrue : kFalse;
    h->nameSet(h, chars(kIsEC2HostName), kIsEC2HostName.size(), chars(v), v.size());
}

}  // namespace

OXStatus initEC2Info(OXS3Extension* ext, OX_POOL_S* pool) {
    OXS3_LOG(ext->logger, LL_Trace, U"initEC2Info [ENTER]");
    OX_HNDL_S* h = ext->exth.hndl;
    OXStatus st = OX_OK;
    int stored = storedAnswer(h);
    if (stored >= 0) {
        ext->isEC2Host = stored == 1;
        if (ext->isEC2Host && !ext->ec2Region) st = probeEC2Region(ext, pool, &ext->ec2Region);
    } else {
        ext->isEC2Host = probeEC2Region(ext, pool, &ext->ec2Region) == OX_OK;
        storeAnswer(h, ext->isEC2Host);
    }
    OXS3_LOG(ext->logger, LL_Trace, U"initEC2Info [EXIT] : result=0x%x isEC2Host=%s", st,
             chars(ext->isEC2Host ? kTrue : kFalse));
    return st;
}

}  // namespace s3

// Credentials of the instance role, for callers that connect without keys.
namespace s3 {
namespace {

struct RoleItem {
    std::string_view name;
    OXU8String* S3Settings::*field;
};

constexpr RoleItem kRoleItems[] = {
    {"AccessKeyId", &S3Settings::keyId},
    {"SecretAccessKey", &S3Settings::secret},
    {"Token", &S3Settings::session},
    {"Region", &S3Settings::region},
};

// Only string items are taken; a later one replaces an earlier value.
void setItemFromRole(OXS3Extension* ext, OXDictionary role, std::string_view item, OXU8String*& field) {
    OXInstance* value = nullptr;
    if (role->getValueU8(role, item.data(), item.size(), &value) != OX_OK) return;
    if (!value->isType(value, OX_TYPE_U8STRING)) return;
    ext->oxstring->retain(value);
    if (field) field->instance.destroy(field);
    field = reinterpret_cast<OXU8String*>(value);
}

}  // namespace

OXStatus getS3CredentialsFromEC2Role(OXS3Extension* ext, OX_POOL_S* pool, S3Settings** settings) {
    if (!ext || !pool || !settings) return OX_INVALID_ARGUMENT;
    *settings = nullptr;
    if (!ext->isEC2Host || !ext->getEC2RoleName || !ext->getIAMRole) return OX_OK;
    Owned<OXU8String> roleName;
    if (ext->getEC2RoleName(ext, pool, roleName.out()) != OX_OK || !roleName) {
        OXS3_LOG(ext->logger, LL_Debug, U"The instance has no role, so there are no instance-role credentials.");
        return OX_OK;
    }
    Owned<OXDictionary_S> role;
    OXStatus st = ext->getIAMRole(ext, roleName->stg, pool, role.out());
    if (st != OX_OK || !role) return st;
    Owned<S3Settings> record;
    st = allocateS3Settings(pool, record.out());
    if (st != OX_OK) return st;
    for (const RoleItem& item : kRoleItems) setItemFromRole(ext, role.get(), item.name, record.get()->*item.field);
    *settings = record.release();
    return OX_OK;
}

}  // namespace s3
