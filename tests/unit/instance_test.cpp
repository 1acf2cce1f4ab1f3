// The instance service: each type test answers for its own kind of instance only, and the
// service is the same process-wide record whichever string service record hands it out.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ox/array.h"
#include "ox/dictionary.h"
#include "ox/instance.h"
#include "ox/string.h"
#include "testhost.h"

namespace {

class InstanceService : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(strings);
        ASSERT_TRUE(arrays);
        ASSERT_TRUE(dictionaries);
        svc = strings->oxinstance;
        ASSERT_NE(svc, nullptr);
    }
    void TearDown() override {
        for (OXInstance* i : made) i->destroy(i);
    }
    OXInstance* keep(OXInstance* i) {
        made.push_back(i);
        return i;
    }

    OXInstance* u8String() {
        OXU8String* s = nullptr;
        EXPECT_EQ(strings->createU8(strings.get(), pool, "x", 1, OX_STR_COPY, &s), OX_OK);
        return keep(&s->instance);
    }
    OXInstance* wideString() {
        const OXChar text[] = {'x'};
        OXString* s = nullptr;
        EXPECT_EQ(strings->create(strings.get(), pool, text, 1, OX_STR_COPY, &s), OX_OK);
        return keep(&s->instance);
    }
    OXInstance* data() {
        OXData* d = nullptr;
        EXPECT_EQ(strings->createData(strings.get(), pool, "x", 1, &d), OX_OK);
        return keep(&d->instance);
    }
    OXInstance* array() {
        OXArray a = nullptr;
        EXPECT_EQ(arrays->create(arrays.get(), pool, 0, &a), OX_OK);
        return keep(&a->instance);
    }
    OXInstance* dictionary() {
        OXDictionary d = nullptr;
        EXPECT_EQ(dictionaries->create(dictionaries.get(), pool, 0, &d), OX_OK);
        return keep(&d->instance);
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
    std::vector<OXInstance*> made;
};

TEST_F(InstanceService, EachTypeTestAnswersForItsOwnKindOnly) {
    EXPECT_EQ(answers(u8String()), "10000");
    EXPECT_EQ(answers(wideString()), "01000");
    EXPECT_EQ(answers(data()), "00100");
    EXPECT_EQ(answers(dictionary()), "00010");
    EXPECT_EQ(answers(array()), "00001");
}

TEST_F(InstanceService, StaticStringIsAUtf8String) {
    OXU8String s{};
    strings->initStaticU8(strings.get(), &s, "abc", 3);
    EXPECT_EQ(answers(&s.instance), "10000");
}

TEST_F(InstanceService, TypeTestByNameUsesTheInstancesOwnAnswer) {
    OXInstance* s = u8String();
    EXPECT_TRUE(svc->isType(s, OX_TYPE_U8STRING));
    EXPECT_FALSE(svc->isType(s, OX_TYPE_STRING));
    EXPECT_FALSE(svc->isType(s, "OXU8"));

    OXInstance custom{};
    custom.generic.name = "oxs3Connection";
    custom.isType = [](const void*, const char* name) -> OXBoolean { return std::string(name) == "oxs3Connection"; };
    EXPECT_TRUE(svc->isType(&custom, "oxs3Connection"));
    EXPECT_EQ(answers(&custom), "00000");
}

TEST_F(InstanceService, NothingIsNoType) {
    EXPECT_EQ(answers(nullptr), "00000");
    EXPECT_FALSE(svc->isType(nullptr, OX_TYPE_ARRAY));
    EXPECT_FALSE(svc->isType(u8String(), nullptr));
    OXInstance headless{};
    EXPECT_FALSE(svc->isType(&headless, OX_TYPE_ARRAY));
}

TEST_F(InstanceService, EveryStringServiceRecordSharesOneInstanceService) {
    oxtest::Service<OXStringExt_S> another("oxstring");
    ASSERT_TRUE(another);
    EXPECT_EQ(another->oxinstance, svc);
    EXPECT_EQ(reinterpret_cast<OXU8String*>(u8String())->extHandle->oxinstance, svc);
}

TEST_F(InstanceService, CarriesTheReaders) {
    EXPECT_NE(svc->readConfigFile, nullptr);
    EXPECT_NE(svc->parseConfigText, nullptr);
    ASSERT_NE(svc->oxinstjson, nullptr);
    EXPECT_NE(svc->oxinstjson->parse, nullptr);
}

TEST_F(InstanceService, DestroyingItLeavesItInPlace) {
    EXPECT_EQ(svc->generic.destroy(svc), OX_OK);
    EXPECT_EQ(strings->oxinstance, svc);
    EXPECT_EQ(answers(array()), "00001");
}

}  // namespace
