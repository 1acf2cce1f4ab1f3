// The instance service: each type test answers for its own kind of instance only, and the
// service is the same process-wide record whichever string service record hands it out.
#include <gtest/gtest.h>

#include <string>

#include "ox/array.h"
#include "ox/dictionary.h"
#include "ox/instance.h"
#include "ox/string.h"
#include "testhost.h"

namespace {

class InstanceService : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(strings && arrays && dictionaries);
        svc = strings->oxinstance;
        ASSERT_NE(svc, nullptr);
    }
    // Which of the five type tests say yes, in the order string, wide, data, dictionary, array.
    std::string answers(const OXInstance* i) const {
        std::string out;
        for (auto test : {svc->isU8String, svc->isString, svc->isData, svc->isDictionary, svc->isArray})
            out += test(i) ? '1' : '0';
        return out;
    }

    oxtest::Service<OXStringExt_S> strings{"oxstring"};
    oxtest::Service<OXArrayExt_S> arrays{"oxarray"};
    oxtest::Service<OXDictionaryExt_S> dictionaries{"oxdictionary"};
    oxtest::TestPool pool;
    OXInstanceSvc_S* svc = nullptr;
};

TEST_F(InstanceService, EachTypeTestAnswersForItsOwnKindOnly) {
    const OXChar wide[] = {'x'};
    OXU8String* u8 = nullptr;
    OXString* w = nullptr;
    OXData* data = nullptr;
    OXDictionary dict = nullptr;
    OXArray array = nullptr;
    ASSERT_EQ(strings->createU8(strings.get(), pool, "x", 1, OX_STR_COPY, &u8), OX_OK);
    ASSERT_EQ(strings->create(strings.get(), pool, wide, 1, OX_STR_COPY, &w), OX_OK);
    ASSERT_EQ(strings->createData(strings.get(), pool, "x", 1, &data), OX_OK);
    ASSERT_EQ(dictionaries->create(dictionaries.get(), pool, 0, &dict), OX_OK);
    ASSERT_EQ(arrays->create(arrays.get(), pool, 0, &array), OX_OK);
    OXU8String fixed{};
    strings->initStaticU8(strings.get(), &fixed, "abc", 3);
    OXInstance custom{};  // answers only to its own type name
    custom.isType = [](const void*, const char* name) -> OXBoolean { return std::string(name) == "oxs3Connection"; };
    const std::pair<OXInstance*, const char*> cases[] = {
        {&u8->instance, "10000"},   {&fixed.instance, "10000"},  {&w->instance, "01000"}, {&data->instance, "00100"},
        {&dict->instance, "00010"}, {&array->instance, "00001"}, {&custom, "00000"},     {nullptr, "00000"},
    };
    for (const auto& [inst, expected] : cases) EXPECT_EQ(answers(inst), expected);
    EXPECT_TRUE(svc->isType(&u8->instance, OX_TYPE_U8STRING));
    EXPECT_FALSE(svc->isType(&u8->instance, OX_TYPE_STRING));
    EXPECT_FALSE(svc->isType(&u8->instance, "OXU8"));
    EXPECT_FALSE(svc->isType(&u8->instance, nullptr));
    EXPECT_TRUE(svc->isType(&custom, "oxs3Connection"));
    OXInstance headless{};
    EXPECT_FALSE(svc->isType(&headless, OX_TYPE_ARRAY));
    EXPECT_FALSE(svc->isType(nullptr, OX_TYPE_ARRAY));
    EXPECT_EQ(u8->extHandle->oxinstance, svc);
    for (OXInstance* i : {&u8->instance, &w->instance, &data->instance, &dict->instance, &array->instance})
        i->destroy(i);
}

TEST_F(InstanceService, IsOneSharedRecordCarryingTheReaders) {
    oxtest::Service<OXStringExt_S> another("oxstring");
    ASSERT_TRUE(another);
    EXPECT_EQ(another->oxinstance, svc);
    EXPECT_EQ(svc->generic.destroy(svc), OX_OK);  // leaves it in place
    EXPECT_EQ(strings->oxinstance, svc);
    EXPECT_TRUE(svc->readConfigFile && svc->parseConfigText && svc->oxinstjson);
    OXInstance* root = nullptr;
    ASSERT_EQ(svc->oxinstjson->parse(svc->oxinstjson, pool, R"(["b"])", 5, &root, nullptr), OX_OK);
    EXPECT_EQ(answers(root), "00001");
    root->destroy(root);
}

}  // namespace
