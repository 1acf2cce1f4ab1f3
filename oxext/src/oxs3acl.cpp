// Access control: ACL objects with canned ACLs and grants.
#include <iterator>
#include <string_view>

#include "ox/status.h"
#include "oxs3aclheaders.h"
#include "oxs3areas.h"
#include "oxs3instance.h"
#include "oxs3log.h"
#include "oxs3owned.h"
#include "oxs3text.h"

namespace s3 {
namespace {

enum NameType : int { emailNameType = 0, userIdNameType = 1, uriNameType = 2 };

// Indexed by NameType: the grantee types of the S3 grant header grammar.
constexpr std::string_view kGranteeTypes[] = {"emailAddress", "id", "uri"};

constexpr std::string_view kTypeEntry = "type";
constexpr std::string_view kValueEntry = "value";
constexpr std::string_view kCannedHeader = "x-amz-acl";
constexpr std::string_view kBlanks = " \t\r\n";

// Indexed by OXS3AccessListType: each list and the header that carries it.
struct GrantHeader {
    OXArray OXS3ACL_S::*list;
    std::string_view name;
};
constexpr GrantHeader kGrantHeaders[] = {
    {&OXS3ACL_S::readList, "x-amz-grant-read"},
    {&OXS3ACL_S::writeList, "x-amz-grant-write"},
    {&OXS3ACL_S::readACLList, "x-amz-grant-read-acp"},
    {&OXS3ACL_S::writeACLList, "x-amz-grant-write-acp"},
    {&OXS3ACL_S::fullAccessList, "x-amz-grant-full-control"},
};
constexpr OXS3AccessListType kListTypes = static_cast<OXS3AccessListType>(std::size(kGrantHeaders));

// The nine add operations differ only in these.
enum class Items { one, list };
struct AddOp {
    const char32_t* name;
    NameType kind;
    Items items;
};
constexpr AddOp kAddAddresses{U"oxs3ACLAddAddresses", emailNameType, Items::one};
constexpr AddOp kAddAddressesU8{U"oxs3ACLAddAddressesU8", emailNameType, Items::one};
constexpr AddOp kAddAddressList{U"oxs3ACLAddAddressList", emailNameType, Items::list};
constexpr AddOp kAddUserIds{U"oxs3ACLAddUserIds", userIdNameType, Items::one};
constexpr AddOp kAddUserIdsU8{U"oxs3ACLAddUserIdsU8", userIdNameType, Items::one};
constexpr AddOp kAddUserIdList{U"oxs3ACLAddUserIdList", userIdNameType, Items::list};
constexpr AddOp kAddURI{U"oxs3ACLAddURI", uriNameType, Items::one};
constexpr AddOp kAddURIU8{U"oxs3ACLAddURIU8", uriNameType, Items::one};
constexpr AddOp kAddURIList{U"oxs3ACLAddURIList", uriNameType, Items::list};

// ---- text

std::string_view trim(std::string_view s) {
    const size_t first = s.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return std::string_view(s.data() + first, s.find_last_not_of(kBlanks) - first + 1);
}

std::string_view unquote(std::string_view s) {
    if (s.size() >= 2 && s.front() == '"' && s.back() == '"') return std::string_view(s.data() + 1, s.size() - 2);
    return s;
}

// Calls use with each piece of text between separators; the first failure ends it.
template <class F>
OXStatus forEachPiece(std::string_view text, char separator, F&& use) {
    for (;;) {
        const size_t end = text.find(separator);
        const std::string_view piece(text.data(), end == std::string_view::npos ? text.size() : end);
        if (OXStatus st = use(piece); st != OX_OK) return st;
        if (end == std::string_view::npos) return OX_OK;
        text.remove_prefix(end + 1);
    }
}

OXStatus stringEntry(OXDictionary d, std::string_view name, std::string_view* text) {
    OXInstance* value = nullptr;
    if (OXStatus st = d->getValueU8(d, name.data(), name.size(), &value); st != OX_OK) return st;
    if (!hasType(value, OX_TYPE_U8STRING)) return OX_INVALID_ARGUMENT;
    *text = view(reinterpret_cast<const OXU8String*>(value));
    return OX_OK;
}

// ---- grantees

OXArray* listOf(OXS3ACL acl, OXS3AccessListType listType) {
    if (listType < 0 || listType >= kListTypes) return nullptr;
    return &(acl->*kGrantHeaders[listType].list);
}

OXStatus makeGrantee(OXS3Extension* ext, OX_POOL_S* pool, std::string_view type, std::string_view value,
                     Owned<OXDictionary_S>& grantee) {
    OXStatus st = ext->oxdictionary->create(ext->oxdictionary, pool, OX_DICT_CASE_SENSITIVE, grantee.out());
    if (st == OX_OK) st = grantee->setU8ValueU8(grantee.get(), kTypeEntry.data(), kTypeEntry.size(), type.data(), type.size());
    if (st == OX_OK) st = grantee->setU8ValueU8(grantee.get(), kValueEntry.data(), kValueEntry.size(), value.data(), value.size());
    return st;
}

OXStatus appendGrantee(OXS3ACL acl, OXArray list, std::string_view type, std::string_view value) {
    Owned<OXDictionary_S> grantee;
    OXStatus st = makeGrantee(acl->oxs3, acl->pool, type, value, grantee);
    if (st == OX_OK) st = list->addItem(list, grantee.instance());
    return st;
}

void truncateList(OXArray list, int64_t count) {
    while (list->count > count) list->removeItem(list, list->count - 1);
}

// All of the call's grantees, or none of them: what a failure part-way appended is removed.
OXStatus appendPieces(OXS3ACL acl, OXArray list, NameType kind, std::string_view text) {
    const int64_t before = list->count;
    OXStatus st = forEachPiece(text, ',', [&](std::string_view piece) {
        piece = trim(piece);
        return piece.empty() ? OXStatus(OX_OK) : appendGrantee(acl, list, kGranteeTypes[kind], piece);
    });
    if (st != OX_OK) truncateList(list, before);
    return st;
}

OXStatus aclAdd(OXS3ACL acl, OXArray list, const AddOp& op, std::string_view text) {
    if (op.items == Items::list) return appendPieces(acl, list, op.kind, text);
    if (text.empty()) return OX_INVALID_ARGUMENT;
    return appendGrantee(acl, list, kGranteeTypes[op.kind], text);
}

OXArray* startAdd(const AddOp& op, OXS3ACL acl, OXS3AccessListType listType, const void* text) {
    if (!acl) return nullptr;
    OXS3_LOG(acl->oxs3->logger, LL_Debug, op.name);
    return text ? listOf(acl, listType) : nullptr;
}

// The add slots of an ACL object, one instance per operation.
template <const AddOp& op>
OXStatus aclAddU8(OXS3ACL acl, OXS3AccessListType listType, UTF8CStr text) {
    OXArray* list = startAdd(op, acl, listType, text);
    return list ? aclAdd(acl, *list, op, text) : OX_INVALID_ARGUMENT;
}

template <const AddOp& op>
OXStatus aclAddWide(OXS3ACL acl, OXS3AccessListType listType, const OXString* text) {
    OXArray* list = startAdd(op, acl, listType, text);
    if (!list) return OX_INVALID_ARGUMENT;
    OXStringExt_S* strings = acl->oxs3->oxstring;
    Owned<OXU8String> u8;
    OXStatus st = strings->wideToU8(strings, acl->pool, text->stg, text->len, u8.out());
    return st == OX_OK ? aclAdd(acl, *list, op, view(u8.get())) : st;
}

// ---- grant headers

// type="value", after a "," unless it is the first.
OXStatus appendGranteeText(OXU8String* out, const OXInstance* item, bool first) {
    if (!hasType(item, OX_TYPE_DICTIONARY)) return OX_INVALID_ARGUMENT;
    auto grantee = reinterpret_cast<OXDictionary>(const_cast<OXInstance*>(item));
    std::string_view type, value;
    OXStatus st = stringEntry(grantee, kTypeEntry, &type);
    if (st == OX_OK) st = stringEntry(grantee, kValueEntry, &value);
    if (st == OX_OK) st = appendText(out, {first ? "" : ",", type, "=\"", value, "\""});
    return st;
}

OXStatus addHeader(OXStringExt_S* strings, OXDictionary headers, std::string_view name, const OXArray_S* list) {
    if (!list || list->count == 0) return OX_OK;
    Owned<OXU8String> value;
    OXStatus st = strings->createU8Empty(strings, headers->pool, 0, value.out());
    for (int64_t i = 0; st == OX_OK && i < list->count; ++i) st = appendGranteeText(value.get(), list->items[i], i == 0);
    if (st == OX_OK) st = headers->setValueU8(headers, name.data(), name.size(), value.instance());
    return st;
}

// Pieces type=value between commas; type and value trimmed, quotes around the value removed.
OXStatus parseHeaderValue(OXS3ACL acl, OXArray list, std::string_view text) {
    return forEachPiece(text, ',', [&](std::string_view piece) {
        const size_t equals = piece.find('=');
        if (equals == std::string_view::npos || piece.find('=', equals + 1) != std::string_view::npos)
            return OXStatus(OX_INVALID_ARGUMENT);
        const std::string_view type = trim(std::string_view(piece.data(), equals));
        const std::string_view value = unquote(trim(piece.substr(equals + 1)));
        return appendGrantee(acl, list, type, value);
    });
}

void fillSlots(OXS3ACL acl) {
    acl->addAddresses = aclAddWide<kAddAddresses>;
    acl->addAddressesU8 = aclAddU8<kAddAddressesU8>;
    acl->addAddressList = aclAddWide<kAddAddressList>;
    acl->addUserIds = aclAddWide<kAddUserIds>;
    acl->addUserIdsU8 = aclAddU8<kAddUserIdsU8>;
    acl->addUserIdList = aclAddWide<kAddUserIdList>;
    acl->addURI = aclAddWide<kAddURI>;
    acl->addURIU8 = aclAddU8<kAddURIU8>;
    acl->addURIList = aclAddWide<kAddURIList>;
}

}  // namespace

// ---- the object

OXStatus oxs3CreateACL(OXS3Extension* ext, OX_POOL_S* pool, OXS3ACL* acl) {
    if (!ext || !pool || !acl) return OX_INVALID_ARGUMENT;
    OXS3_LOG(ext->logger, LL_Debug, U"oxs3CreateACL");
    auto block = PoolBlock<OXS3ACL_S>::allocate(pool, 1);
    if (!block) return OX_NO_MEMORY;
    initInstance(block.get()->instance, OXS3_TYPE_ACL, oxs3DestroyACL);
    Owned<OXS3ACL_S> made(block.release());
    made->pool = pool;
    made->oxs3 = ext;
    fillSlots(made.get());
    for (const GrantHeader& header : kGrantHeaders)
        if (OXStatus st = ext->oxarray->create(ext->oxarray, pool, 0, &(made.get()->*header.list)); st != OX_OK)
            return st;
    *acl = made.release();
    return OX_OK;
}

OXStatus oxs3DestroyACL(void* self) {
    auto* acl = static_cast<OXS3ACL>(self);
    if (!acl) return OX_INVALID_ARGUMENT;
    if (!dropReference(acl->instance)) return OX_OK;
    for (const GrantHeader& header : kGrantHeaders)
        if (OXArray list = acl->*header.list) list->instance.destroy(list);
    acl->pool->memFree(acl->pool, acl);
    return OX_OK;
}

// ---- headers

OXStatus setCannedACLHeader(OXStringExt_S* strings, OXDictionary headers, OXS3AccessType accessType) {
    if (!strings || !headers) return OX_INVALID_ARGUMENT;
    for (const CannedACL& row : cannedACLList) {
        if (row.nameLen == 0 || row.accessType != accessType) continue;
        Owned<OXU8String> value;
        OXStatus st = strings->createU8(strings, headers->pool, row.name, row.nameLen, OX_STR_COPY, value.out());
        if (st == OX_OK) st = headers->setValueU8(headers, kCannedHeader.data(), kCannedHeader.size(), value.instance());
        return st;
    }
    return OX_INVALID_ARGUMENT;
}

OXStatus getCannedACLFromHeaders(OXDictionary headers, OXS3AccessType* accessType) {
    if (!headers || !accessType) return OX_INVALID_ARGUMENT;
    std::string_view text;
    if (OXStatus st = stringEntry(headers, kCannedHeader, &text); st != OX_OK) return st;
    for (const CannedACL& row : cannedACLList) {
        if (row.nameLen != 0 && text == std::string_view(row.name, row.nameLen)) {
            *accessType = row.accessType;
            return OX_OK;
        }
    }
    return OX_NOT_FOUND;
}

OXStatus addACLHeaders(OXStringExt_S* strings, OXDictionary headers, const OXS3ACL_S* acl) {
    if (!strings || !headers || !acl) return OX_INVALID_ARGUMENT;
    for (const GrantHeader& header : kGrantHeaders)
        if (OXStatus st = addHeader(strings, headers, header.name, acl->*header.list); st != OX_OK) return st;
    return OX_OK;
}

OXStatus getACLFromHeaders(OXS3Extension* ext, OX_POOL_S* pool, OXDictionary headers, OXS3ACL* acl) {
    if (!headers || !acl) return OX_INVALID_ARGUMENT;
    Owned<OXS3ACL_S> made;
    OXStatus st = oxs3CreateACL(ext, pool, made.out());
    for (size_t i = 0; st == OX_OK && i < std::size(kGrantHeaders); ++i) {
        const GrantHeader& header = kGrantHeaders[i];
        if (!headers->hasKeyU8(headers, header.name.data(), header.name.size())) continue;
        std::string_view text;
        st = stringEntry(headers, header.name, &text);
        if (st == OX_OK) st = parseHeaderValue(made.get(), made.get()->*header.list, text);
    }
    if (st == OX_OK) *acl = made.release();
    return st;
}

OXStatus addAccessHeaders(OXStringExt_S* strings, OXDictionary headers, OXS3AccessType accessType,
                          const OXS3ACL_S* acl) {
    if (accessType == oxs3AccessDefault) return OX_OK;
    if (accessType == oxs3AccessList) return addACLHeaders(strings, headers, acl);
    return setCannedACLHeader(strings, headers, accessType);
}

// The ACL object's operations join the record with the access-control area.
void setACLFunctions(OXS3Extension* ext) { ext->createACL = oxs3CreateACL; }

}  // namespace s3
