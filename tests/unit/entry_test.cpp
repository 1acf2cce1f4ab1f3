// Loading and tearing down the extension: the record it builds, its versions, and that every
// failure on the way releases exactly what was made.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "conffixture.h"

namespace {

using oxtest::chars;
using oxtest::host;
using oxtest::wide;

// A host handle over the real one that can refuse any step of loading, and tracks every pool,
// service and lock it hands out until that object's destroy runs.
class TrackingHost {
public:
    TrackingHost() : handle_(*host()), log_(*host()->log4qel) {
        current_ = this;
        handle_.log4qel = &log_;
        log_.GetLogger = [](const OXChar* name, size_t len) {
            return current_->failLogger ? nullptr : host()->log4qel->GetLogger(name, len);
        };
        handle_.poolCreate = [](OX_HNDL_S*, const OXPoolCreateParms* parms, OXJournal* jnl, const char* name) {
            OX_POOL_S* pool = current_->failPool ? nullptr : host()->poolCreate(host(), parms, jnl, name);
            if (!pool) return pool;
            ++current_->poolsMade;
            if (current_->failRecord) oxPoolFailAfter(pool, 0);
            current_->pools.insert(pool);
            return track(pool);
        };
        handle_.lockCreate = [](OX_HNDL_S*, const OXLockCreateParms* parms, OXJournal* jnl, const char* name) {
            return current_->failLock ? nullptr : track(host()->lockCreate(host(), parms, jnl, name));
        };
        handle_.loadExtension = [](OX_HNDL_S*, const OXChar* name, size_t len, OXJournal* jnl) -> OXExtension* {
            const std::string ascii(name, name + len);
            if (ascii == current_->failService) return nullptr;
            OXExtension* service = host()->loadExtension(host(), name, len, jnl);
            if (service && ascii == "oxarray" && current_->failArray)
                reinterpret_cast<OXArrayExt_S*>(service)->create = [](auto...) { return OXStatus(OX_NO_MEMORY); };
            if (service && ascii == "oxdictionary" && current_->failDictionary)
                reinterpret_cast<OXDictionaryExt_S*>(service)->create = [](auto...) { return OXStatus(OX_NO_MEMORY); };
            return track(service);
        };
    }
    ~TrackingHost() { current_ = nullptr; }
    OX_HNDL_S* handle() { return &handle_; }

    std::string failService;
    bool failLogger = false, failPool = false, failRecord = false, failLock = false;
    bool failArray = false, failDictionary = false;
    std::set<void*> live, pools;  // objects handed out and not destroyed yet; every pool made
    int poolsDestroyedWithBlocks = 0, poolsMade = 0;

private:
    template <class T>
    static T* track(T* object) {
        if (!object) return object;
        current_->live.insert(object);
        originals_[object] = std::exchange(object->generic.destroy, [](void* self) {
            auto* pool = static_cast<OX_POOL_S*>(self);
            if (current_ && current_->pools.contains(self) && pool->blocksInUse(pool) != 0)
                ++current_->poolsDestroyedWithBlocks;
            if (current_) current_->live.erase(self);
            auto destroy = originals_.at(self);
            originals_.erase(self);
            return destroy(self);
        });
        return object;
    }

    static inline TrackingHost* current_ = nullptr;
    static inline std::map<void*, OXStatus (*)(void*)> originals_;
    OX_HNDL_S handle_;
    Log4QEL_S log_;
};

class EntryTest : public ::testing::Test {
protected:
    oxtest::ScopedEnvironment env;  // no custom regions from the environment
    TrackingHost fake;
    OXJournal jnl{};

    OXS3Extension* load() { return oxs3(fake.handle(), &jnl); }
    void expectEverythingReleased() {
        EXPECT_TRUE(fake.live.empty()) << fake.live.size() << " objects were not released";
        EXPECT_EQ(fake.poolsDestroyedWithBlocks, 0) << "the pool still held blocks when it was destroyed";
    }
};

TEST_F(EntryTest, BuildsTheRecordWithItsServicesReportsItsVersionsAndReleasesAllOfIt) {
    OXS3Extension* ext = load();
    ASSERT_NE(ext, nullptr);
    EXPECT_EQ(ext->exth.generic.oven, OX_OVEN('n', 'e', 'v', 'o'));
    EXPECT_EQ(ext->exth.hndl, fake.handle());
    for (void* made : {(void*)ext->pool, (void*)ext->logger, (void*)ext->secSockets, (void*)ext->oxstring,
                       (void*)ext->oxeavl, (void*)ext->oxexml, (void*)ext->webclient, (void*)ext->oxdictionary,
                       (void*)ext->oxarray, (void*)ext->oxioe, (void*)ext->oxinstance})
        EXPECT_NE(made, nullptr);
    ASSERT_TRUE(ext->customRegions && ext->customRegionsById && ext->customRegionLock);
    EXPECT_TRUE(ext->customRegions->caseSensitive);
    EXPECT_TRUE(ext->customRegionLock->rw);
    EXPECT_EQ(jnl.count, 0u);
    EXPECT_EQ(fake.live.size(), 10u) << "every service, the lock and the pool";
    uint64_t v[6] = {};
    ASSERT_EQ(ext->exth.getVersion(ext, &v[0], &v[1], &v[2]), OX_OK);
    ASSERT_EQ(s3::oxs3GetReqVersion(nullptr, &v[3], &v[4], &v[5]), OX_OK);  // answered without a record
    EXPECT_EQ(std::vector<uint64_t>(v, v + 6), (std::vector<uint64_t>{2, 0, 0, 7, 1, 1}));
    EXPECT_EQ(ext->exth.realDestroy(ext), OX_OK);
    expectEverythingReleased();
}

// Without a logger, a pool or the record, out of resources is journaled at severity four; a later
// failure (a service, named by the case, or a table or the lock) journals nothing. Either way all
// that was made is released.
struct Failure {
    const char* name;
    bool TrackingHost::*flag;  // null: the service of that name is missing
    int poolsMade;
    bool journaled;
};

class FailureTest : public EntryTest, public ::testing::WithParamInterface<Failure> {};

TEST_P(FailureTest, ReleasesEverythingAndJournalsOnlyEarlyFailures) {
    if (GetParam().flag) fake.*GetParam().flag = true;
    if (!GetParam().flag) fake.failService = GetParam().name;
    EXPECT_EQ(load(), nullptr);
    ASSERT_EQ(jnl.count, GetParam().journaled ? 1u : 0u);
    if (GetParam().journaled) {
        EXPECT_EQ(jnl.entries[0].status, OX_NO_MEMORY);
        EXPECT_EQ(jnl.entries[0].severity, 4);
    }
    EXPECT_EQ(fake.poolsMade, GetParam().poolsMade);
    expectEverythingReleased();
}

INSTANTIATE_TEST_SUITE_P(
    EachStep, FailureTest,
    ::testing::Values(Failure{"NoLogger", &TrackingHost::failLogger, 0, true},
                      Failure{"NoPool", &TrackingHost::failPool, 0, true},
                      Failure{"NoRecord", &TrackingHost::failRecord, 1, true},
                      Failure{"NoArray", &TrackingHost::failArray, 1, false},
                      Failure{"NoDictionary", &TrackingHost::failDictionary, 1, false},
                      Failure{"NoLock", &TrackingHost::failLock, 1, false}, Failure{"secsocket", nullptr, 1, false},
                      Failure{"oxstring", nullptr, 1, false}, Failure{"oxeavl", nullptr, 1, false},
                      Failure{"oxexml", nullptr, 1, false}, Failure{"webclient", nullptr, 1, false},
                      Failure{"oxdictionary", nullptr, 1, false}, Failure{"oxarray", nullptr, 1, false},
                      Failure{"oxioe", nullptr, 1, false}),
    [](const auto& info) { return std::string(info.param.name); });

// The EC2 answer is probed once (there is no metadata service here) and kept under a process-wide
// name, whose answer later loads take.
class EC2Answer : public oxtest::ExtensionFixture {};

TEST_F(EC2Answer, IsProbedOnceAndKeptForLaterLoads) {
    unload();
    privateHost.names.erase(U"oxs3.isEC2Host");
    ASSERT_NE(ext = load(), nullptr);
    EXPECT_FALSE(ext->isEC2Host);
    EXPECT_EQ(ext->ec2Region, nullptr);
    EXPECT_EQ(privateHost.names[U"oxs3.isEC2Host"], U"FALSE");
    unload();
    privateHost.names[U"oxs3.isEC2Host"] = U"TRUE";
    ASSERT_NE(ext = load(), nullptr);
    EXPECT_TRUE(ext->isEC2Host);
}

std::string libraryDir() {
    const char* dir = std::getenv("OXS3_LIBRARY_DIR");
    return dir ? dir : "";
}

TEST(EntryLibrary, LoadsByNameThroughTheHost) {
    std::string dir = libraryDir();
    ASSERT_FALSE(dir.empty()) << "OXS3_LIBRARY_DIR must name the build directory holding liboxs3.so";
    setenv("OX_MODULE_PATH", dir.c_str(), 1);
    auto name = wide("oxs3");
    OXJournal jnl{};
    auto* ext = reinterpret_cast<OXS3Extension*>(host()->loadExtension(host(), chars(name), name.size(), &jnl));
    ASSERT_NE(ext, nullptr) << "journal entries: " << jnl.count;
    EXPECT_NE(ext->exth.handle, nullptr);
    uint64_t v[3];
    ASSERT_EQ(ext->exth.getVersion(ext, &v[0], &v[1], &v[2]), OX_OK);
    EXPECT_EQ(v[0], 2u);
    EXPECT_EQ(ext->exth.realDestroy(ext), OX_OK);
}

TEST(EntryLibrary, ExportsOnlyItsEntry) {
    std::string dir = libraryDir();
    ASSERT_FALSE(dir.empty()) << "OXS3_LIBRARY_DIR must name the build directory holding liboxs3.so";
    std::string command = "nm -D --defined-only --format=just-symbols " + dir + "/liboxs3.so";
    FILE* nm = popen(command.c_str(), "r");
    ASSERT_NE(nm, nullptr);
    std::string exported;
    for (int c; (c = fgetc(nm)) != EOF;) exported.push_back(static_cast<char>(c));
    ASSERT_EQ(pclose(nm), 0) << command;
    EXPECT_EQ(exported, "oxs3\n");
}

}  // namespace
