// Loading and tearing down the extension: the record it builds, its versions, and that every
// failure on the way releases exactly what was made.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "ox/status.h"
#include "oxs3.h"
#include "oxs3areas.h"
#include "testhost.h"

namespace {

using oxtest::chars;
using oxtest::host;
using oxtest::wide;

// A host handle over the real one that can refuse any step of loading, and tracks every pool,
// service and lock it hands out until that object's destroy runs.
class TrackingHost {
public:
    TrackingHost() {
        handle_ = *host();
        handle_.poolCreate = poolCreate;
        handle_.lockCreate = lockCreate;
        handle_.loadExtension = loadExtension;
        log_ = *host()->log4qel;
        log_.GetLogger = getLogger;
        handle_.log4qel = &log_;
        current_ = this;
    }
    ~TrackingHost() { current_ = nullptr; }

    OX_HNDL_S* handle() { return &handle_; }

    std::string failService;
    bool failLogger = false, failPool = false, failRecord = false, failLock = false;
    bool failArray = false, failDictionary = false;

    // Objects handed out and not destroyed yet.
    std::set<void*> live;
    // Pools whose destroy found blocks still allocated.
    int poolsDestroyedWithBlocks = 0;
    int poolsMade = 0;

private:
    static inline TrackingHost* current_ = nullptr;
    static inline std::map<void*, OXStatus (*)(void*)> originals_;

    OX_HNDL_S handle_{};
    Log4QEL_S log_{};

    static void track(OXGeneric* g) {
        current_->live.insert(g);
        originals_[g] = g->destroy;
        g->destroy = trackedDestroy;
    }

    static OXStatus trackedDestroy(void* self) {
        auto destroy = originals_.at(self);
        originals_.erase(self);
        if (current_) current_->live.erase(self);
        return destroy(self);
    }

    static OXStatus trackedPoolDestroy(void* self) {
        auto* pool = static_cast<OX_POOL_S*>(self);
        if (current_ && pool->blocksInUse(pool) != 0) ++current_->poolsDestroyedWithBlocks;
        return trackedDestroy(self);
    }

    static Logger_S* getLogger(const OXChar* name, size_t len) {
        return current_->failLogger ? nullptr : host()->log4qel->GetLogger(name, len);
    }

    static OX_POOL_S* poolCreate(OX_HNDL_S*, const OXPoolCreateParms* parms, OXJournal* jnl, const char* name) {
        if (current_->failPool) return nullptr;
        OX_POOL_S* pool = host()->poolCreate(host(), parms, jnl, name);
        if (!pool) return nullptr;
        ++current_->poolsMade;
        if (current_->failRecord) oxPoolFailAfter(pool, 0);
        track(&pool->generic);
        pool->generic.destroy = trackedPoolDestroy;
        return pool;
    }

    static OX_LOCK_S* lockCreate(OX_HNDL_S*, const OXLockCreateParms* parms, OXJournal* jnl, const char* name) {
        if (current_->failLock) return nullptr;
        OX_LOCK_S* lock = host()->lockCreate(host(), parms, jnl, name);
        if (lock) track(&lock->generic);
        return lock;
    }

    static OXStatus refuseArray(OXArrayExt_S*, OX_POOL_S*, int64_t, OXArray*) { return OX_NO_MEMORY; }
    static OXStatus refuseDictionary(OXDictionaryExt_S*, OX_POOL_S*, uint32_t, OXDictionary*) { return OX_NO_MEMORY; }

    static OXExtension* loadExtension(OX_HNDL_S*, const OXChar* name, size_t len, OXJournal* jnl) {
        std::string ascii(name, name + len);
        if (ascii == current_->failService) return nullptr;
        OXExtension* service = host()->loadExtension(host(), name, len, jnl);
        if (!service) return nullptr;
        if (ascii == "oxarray" && current_->failArray) reinterpret_cast<OXArrayExt_S*>(service)->create = refuseArray;
        if (ascii == "oxdictionary" && current_->failDictionary)
            reinterpret_cast<OXDictionaryExt_S*>(service)->create = refuseDictionary;
        track(&service->generic);
        return service;
    }
};

class EntryTest : public ::testing::Test {
protected:
    TrackingHost fake;
    OXJournal jnl{};

    OXS3Extension* load() { return oxs3(fake.handle(), &jnl); }

    void expectEverythingReleased() {
        EXPECT_TRUE(fake.live.empty()) << fake.live.size() << " objects were not released";
        EXPECT_EQ(fake.poolsDestroyedWithBlocks, 0) << "the pool still held blocks when it was destroyed";
    }
};

TEST_F(EntryTest, BuildsTheRecordWithItsServicesAndReleasesAllOfIt) {
    OXS3Extension* ext = load();
    ASSERT_NE(ext, nullptr);
    EXPECT_EQ(ext->exth.generic.oven, OX_OVEN('n', 'e', 'v', 'o'));
    EXPECT_EQ(ext->exth.hndl, fake.handle());
    EXPECT_NE(ext->pool, nullptr);
    EXPECT_NE(ext->logger, nullptr);
    for (void* service : {(void*)ext->secSockets, (void*)ext->oxstring, (void*)ext->oxeavl, (void*)ext->oxexml,
                          (void*)ext->webclient, (void*)ext->oxdictionary, (void*)ext->oxarray, (void*)ext->oxioe})
        EXPECT_NE(service, nullptr);
    EXPECT_EQ(ext->oxinstance, ext->oxstring->oxinstance);
    EXPECT_NE(ext->oxinstance, nullptr);
    EXPECT_FALSE(ext->showAuthCalc);
    EXPECT_FALSE(ext->showParallelOps);
    ASSERT_NE(ext->customRegions, nullptr);
    EXPECT_TRUE(ext->customRegions->caseSensitive);
    EXPECT_EQ(ext->customRegions->count, 0);
    ASSERT_NE(ext->customRegionsById, nullptr);
    EXPECT_EQ(ext->customRegionsById->count, 0);
    ASSERT_NE(ext->customRegionLock, nullptr);
    EXPECT_TRUE(ext->customRegionLock->rw);
    EXPECT_EQ(ext->locationCreateU8, ext->createLocationU8);
    EXPECT_EQ(jnl.count, 0u);
    // Every service, the lock and the pool: ten objects live while loaded.
    EXPECT_EQ(fake.live.size(), 10u);

    EXPECT_EQ(ext->exth.realDestroy(ext), OX_OK);
    expectEverythingReleased();
}

TEST_F(EntryTest, ReportsItsVersionAndTheHostVersionItNeeds) {
    OXS3Extension* ext = load();
    ASSERT_NE(ext, nullptr);
    uint64_t major = 0, minor = 0, revision = 0;
    ASSERT_EQ(ext->exth.getVersion(ext, &major, &minor, &revision), OX_OK);
    EXPECT_EQ((std::array{major, minor, revision}), (std::array<uint64_t, 3>{2, 0, 0}));
    ASSERT_EQ(ext->exth.getReqVersion(ext, &major, &minor, &revision), OX_OK);
    EXPECT_EQ((std::array{major, minor, revision}), (std::array<uint64_t, 3>{7, 1, 1}));
    // The answers do not depend on the record.
    ASSERT_EQ(s3::oxs3GetVersion(nullptr, &major, &minor, &revision), OX_OK);
    EXPECT_EQ(major, 2u);
    ASSERT_EQ(s3::oxs3GetReqVersion(nullptr, &major, &minor, &revision), OX_OK);
    EXPECT_EQ(major, 7u);
    EXPECT_EQ(s3::oxs3RealDestroy(ext), OX_OK);
}

class MissingService : public EntryTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(MissingService, ReleasesWhatWasLoadedAndJournalsNothing) {
    fake.failService = GetParam();
    EXPECT_EQ(load(), nullptr);
    EXPECT_EQ(jnl.count, 0u);
    EXPECT_EQ(fake.poolsMade, 1);
    expectEverythingReleased();
}

INSTANTIATE_TEST_SUITE_P(EachServiceInTurn, MissingService,
                         ::testing::Values("secsocket", "oxstring", "oxeavl", "oxexml", "webclient", "oxdictionary",
                                           "oxarray", "oxioe"));

struct EarlyFailure {
    const char* name;
    bool TrackingHost::*flag;
    int poolsMade;
};

class EarlyFailureTest : public EntryTest, public ::testing::WithParamInterface<EarlyFailure> {};

TEST_P(EarlyFailureTest, JournalsOutOfResourcesAtSeverityFour) {
    fake.*GetParam().flag = true;
    EXPECT_EQ(load(), nullptr);
    ASSERT_EQ(jnl.count, 1u);
    EXPECT_EQ(jnl.entries[0].status, OX_NO_MEMORY);
    EXPECT_EQ(jnl.entries[0].severity, 4);
    EXPECT_EQ(fake.poolsMade, GetParam().poolsMade);
    expectEverythingReleased();
}

INSTANTIATE_TEST_SUITE_P(LoggerPoolAndRecord, EarlyFailureTest,
                         ::testing::Values(EarlyFailure{"NoLogger", &TrackingHost::failLogger, 0},
                                           EarlyFailure{"NoPool", &TrackingHost::failPool, 0},
                                           EarlyFailure{"NoRecord", &TrackingHost::failRecord, 1}),
                         [](const auto& info) { return std::string(info.param.name); });

class LateFailureTest : public EntryTest, public ::testing::WithParamInterface<EarlyFailure> {};

TEST_P(LateFailureTest, ReleasesEverythingAndJournalsNothing) {
    fake.*GetParam().flag = true;
    EXPECT_EQ(load(), nullptr);
    EXPECT_EQ(jnl.count, 0u);
    expectEverythingReleased();
}

INSTANTIATE_TEST_SUITE_P(TablesAndLock, LateFailureTest,
                         ::testing::Values(EarlyFailure{"NoArray", &TrackingHost::failArray, 1},
                                           EarlyFailure{"NoDictionary", &TrackingHost::failDictionary, 1},
                                           EarlyFailure{"NoLock", &TrackingHost::failLock, 1}),
                         [](const auto& info) { return std::string(info.param.name); });

// The EC2 answer is kept under a process-wide name; each test leaves it as it found it.
class EC2AnswerTest : public EntryTest {
protected:
    const std::u32string name = wide("oxs3.isEC2Host");

    void store(std::string_view value) {
        auto v = wide(value);
        ASSERT_EQ(host()->nameSet(host(), chars(name), name.size(), chars(v), v.size()), OX_OK);
    }

    std::string stored() {
        OXChar buf[16];
        size_t len = 0;
        if (host()->nameGet(host(), chars(name), name.size(), buf, 16, &len) != OX_OK) return "<none>";
        return std::string(buf, buf + len);
    }

    void TearDown() override { store("FALSE"); }
};

TEST_F(EC2AnswerTest, NoMetadataServiceMeansNotEC2AndTheAnswerIsKept) {
    OXS3Extension* ext = load();
    ASSERT_NE(ext, nullptr);
    EXPECT_FALSE(ext->isEC2Host);
    EXPECT_EQ(ext->ec2Region, nullptr);
    EXPECT_EQ(stored(), "FALSE");
    s3::oxs3RealDestroy(ext);
}

TEST_F(EC2AnswerTest, ALaterLoadTakesTheStoredAnswer) {
    store("TRUE");
    OXS3Extension* ext = load();
    ASSERT_NE(ext, nullptr);
    EXPECT_TRUE(ext->isEC2Host);
    s3::oxs3RealDestroy(ext);
    expectEverythingReleased();
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
    std::string command = "nm -D --defined-only " + dir + "/liboxs3.so";
    FILE* nm = popen(command.c_str(), "r");
    ASSERT_NE(nm, nullptr);
    std::vector<std::string> exported;
    char line[512];
    while (fgets(line, sizeof line, nm)) {
        std::string_view text(line);
        size_t space = text.find_last_of(' ');
        std::string name(text.substr(space + 1));
        while (!name.empty() && (name.back() == '\n' || name.back() == '\r')) name.pop_back();
        exported.push_back(name);
    }
    ASSERT_EQ(pclose(nm), 0) << command;
    EXPECT_EQ(exported, std::vector<std::string>{"oxs3"});
}

}  // namespace
