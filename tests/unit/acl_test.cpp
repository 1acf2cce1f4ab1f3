// Access control: the ACL object's add operations and the grant headers they become, canned
// ACLs, ACLs read back from answer headers, and the input refused.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>

#include "connfixture.h"
#include "oxs3aclheaders.h"

namespace {

using Headers = std::map<std::string, std::string>;
using ACL = s3::Owned<OXS3ACL_S>;
using WideAdd = OXStatus (*OXS3ACL_S::*)(OXS3ACL_S*, OXS3AccessListType, const OXString*);
using U8Add = OXStatus (*OXS3ACL_S::*)(OXS3ACL_S*, OXS3AccessListType, UTF8CStr);

constexpr const char* kAllUsers = "http://acs.amazonaws.com/groups/global/AllUsers";

class Access : public oxtest::ExtensionFixture {
protected:
    ACL create(OX_POOL_S* in = nullptr) {
        ACL acl;
        EXPECT_EQ(ext->createACL(ext, in ? in : pool.get(), acl.out()), OX_OK);
        return acl;
    }
    s3::Owned<OXString> wide(const char* text) {
        const std::u32string w = oxtest::wide(text);
        s3::Owned<OXString> s;
        EXPECT_EQ(ext->oxstring->create(ext->oxstring, pool, oxtest::chars(w), w.size(), OX_STR_COPY, s.out()), OX_OK);
        return s;
    }
    oxtest::Dictionary headers(Headers from = {}) {
        oxtest::Dictionary d;
        EXPECT_EQ(ext->oxdictionary->create(ext->oxdictionary, pool, 0, d.out()), OX_OK);
        for (const auto& [name, value] : from)
            EXPECT_EQ(d->setU8ValueU8(d.get(), name.data(), name.size(), value.data(), value.size()), OX_OK);
        return d;
    }
    static Headers all(OXDictionary d) {
        Headers out;
        void* at = nullptr;
        OXU8String* name = nullptr;
        OXInstance* value = nullptr;
        while (d->nextValue(d, &at, &name, &value) == OX_OK) out[oxtest::stringText(name)] = oxtest::valueText(value);
        return out;
    }
    Headers grants(const OXS3ACL_S* acl) {
        oxtest::Dictionary d = headers();
        EXPECT_EQ(s3::addACLHeaders(ext->oxstring, d.get(), acl), OX_OK);
        return all(d.get());
    }
};

struct AddCase {
    const char* name;
    WideAdd wide;
    U8Add u8;
    OXS3AccessListType list;
    const char* text;
    Headers expected;
};

const AddCase kAddCases[] = {
    {"AddressesU8", nullptr, &OXS3ACL_S::addAddressesU8, oxs3WriteAccess, "a@example.com",
     {{"x-amz-grant-write", R"(emailAddress="a@example.com")"}}},
    {"AddressListTrimsItems", &OXS3ACL_S::addAddressList, nullptr, oxs3ReadACLAccess, "a@example.com, b@example.com",
     {{"x-amz-grant-read-acp", R"(emailAddress="a@example.com",emailAddress="b@example.com")"}}},
    {"UserIdsU8", nullptr, &OXS3ACL_S::addUserIdsU8, oxs3FullAccess, "79a5", {{"x-amz-grant-full-control", R"(id="79a5")"}}},
    {"UserIdListSkipsEmptyItems", &OXS3ACL_S::addUserIdList, nullptr, oxs3ReadAccess, "i1,\ti2 ,,i3,",
     {{"x-amz-grant-read", R"(id="i1",id="i2",id="i3")"}}},
    {"URI", &OXS3ACL_S::addURI, nullptr, oxs3ReadAccess, kAllUsers,
     {{"x-amz-grant-read", R"(uri="http://acs.amazonaws.com/groups/global/AllUsers")"}}},
};

void PrintTo(const AddCase& c, std::ostream* os) { *os << c.name; }

class AddOperations : public Access, public ::testing::WithParamInterface<AddCase> {};

TEST_P(AddOperations, MakeExactlyOneGrantHeader) {
    const AddCase& c = GetParam();
    ACL acl = create();
    ASSERT_EQ(c.wide ? (acl.get()->*c.wide)(acl.get(), c.list, wide(c.text).get()) : (acl.get()->*c.u8)(acl.get(), c.list, c.text), OX_OK);
    EXPECT_EQ(grants(acl.get()), c.expected);
}

INSTANTIATE_TEST_SUITE_P(Cases, AddOperations, ::testing::ValuesIn(kAddCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(Access, RefusedAddsLeaveTheListsEmpty) {
    ACL acl = create();
    EXPECT_EQ(acl->addUserIdsU8(acl.get(), 5, "id"), OX_INVALID_ARGUMENT);
    EXPECT_EQ(acl->addUserIdsU8(acl.get(), oxs3ReadAccess, nullptr), OX_INVALID_ARGUMENT);
    EXPECT_EQ(acl->addURIU8(acl.get(), oxs3ReadAccess, ""), OX_INVALID_ARGUMENT);
    EXPECT_EQ(acl->addAddressList(acl.get(), 7, wide("a@example.com").get()), OX_INVALID_ARGUMENT);
    EXPECT_EQ(grants(acl.get()), Headers{});
}

// Every allocation of the call fails in turn: the call adds all of its grantees or none.
TEST_F(Access, ListFailingPartWayKeepsOnlyEarlierGrantees) {
    oxtest::TestPool own;
    ACL acl = create(own);
    ASSERT_EQ(acl->addUserIdsU8(acl.get(), oxs3ReadAccess, "first"), OX_OK);
    s3::Owned<OXString> list = wide("a, b, c, d");
    OXStatus st = OX_NO_MEMORY;
    for (int64_t countdown = 0; st == OX_NO_MEMORY && countdown < 500; ++countdown) {
        oxPoolFailAfter(own, countdown);
        st = acl->addUserIdList(acl.get(), oxs3ReadAccess, list.get());
        oxPoolFailAfter(own, -1);
        EXPECT_EQ(acl->readList->count, st == OX_OK ? 5 : 1) << countdown;
    }
    EXPECT_EQ(st, OX_OK);
}

TEST_F(Access, CannedACLsWriteAndReadBack) {
    const char* names[] = {"private",           "public-read",               "public-read-write", "authenticated-read",
                           "bucket-owner-read", "bucket-owner-full-control", "log-delivery-write"};
    for (OXS3AccessType type = oxs3PrivateAccess; type <= oxs3LogDeliveryWriteAccess; ++type) {
        oxtest::Dictionary d = headers();
        ASSERT_EQ(s3::addAccessHeaders(ext->oxstring, d.get(), type, nullptr), OX_OK);
        EXPECT_EQ(all(d.get()), (Headers{{"x-amz-acl", names[type]}}));
        OXS3AccessType back = -1;
        ASSERT_EQ(s3::getCannedACLFromHeaders(d.get(), &back), OX_OK);
        EXPECT_EQ(back, type);
    }
    OXS3AccessType back = -1;
    EXPECT_EQ(s3::getCannedACLFromHeaders(headers().get(), &back), OX_NOT_FOUND);
    EXPECT_EQ(s3::getCannedACLFromHeaders(headers({{"x-amz-acl", "private-x"}}).get(), &back), OX_NOT_FOUND);
    EXPECT_EQ(back, -1);
}

TEST_F(Access, OtherAccessTypesNeverSendACannedACL) {
    ACL acl = create();
    ASSERT_EQ(acl->addUserIdsU8(acl.get(), oxs3ReadAccess, "r"), OX_OK);
    oxtest::Dictionary d = headers();
    for (OXS3AccessType type : {OXS3AccessType(oxs3AccessList), 9})
        EXPECT_EQ(s3::setCannedACLHeader(ext->oxstring, d.get(), type), OX_INVALID_ARGUMENT);
    EXPECT_EQ(s3::addAccessHeaders(ext->oxstring, d.get(), oxs3AccessDefault, acl.get()), OX_OK);
    EXPECT_EQ(all(d.get()), Headers{});
    EXPECT_EQ(s3::addAccessHeaders(ext->oxstring, d.get(), oxs3AccessList, acl.get()), OX_OK);
    EXPECT_EQ(all(d.get()), (Headers{{"x-amz-grant-read", R"(id="r")"}}));
    EXPECT_EQ(s3::addAccessHeaders(ext->oxstring, d.get(), oxs3AccessList, nullptr), OX_INVALID_ARGUMENT);
}

TEST_F(Access, GrantHeadersReadBackIntoTheirLists) {
    const std::string full = R"(uri="http://acs.amazonaws.com/groups/global/AllUsers")";
    oxtest::Dictionary d = headers({{"x-amz-grant-read", R"(id="abc", emailAddress = "x@example.com")"},
                                    {"x-amz-grant-full-control", full}});
    ACL acl;
    ASSERT_EQ(s3::getACLFromHeaders(ext, pool, d.get(), acl.out()), OX_OK);
    EXPECT_EQ(oxtest::entryText(reinterpret_cast<OXDictionary>(acl->readList->items[1]), "value"), "x@example.com");
    EXPECT_EQ(grants(acl.get()),
              (Headers{{"x-amz-grant-read", R"(id="abc",emailAddress="x@example.com")"}, {"x-amz-grant-full-control", full}}));
}

TEST_F(Access, GrantPiecesThatAreNotTypeEqualsValueAreRefused) {
    for (const char* value : {R"(id"abc")", R"(id="a=b")", R"(id="a",)"}) {
        OXS3ACL acl = nullptr;
        EXPECT_EQ(s3::getACLFromHeaders(ext, pool, headers({{"x-amz-grant-write", value}}).get(), &acl),
                  OX_INVALID_ARGUMENT)
            << value;
        EXPECT_EQ(acl, nullptr);
    }
}

}  // namespace
