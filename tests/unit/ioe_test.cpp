// The I/O service on real files in a private temporary directory: data integrity, positions,
// information items, the statuses of every failure, and engines added by modules.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "ox/ioe.h"
#include "ox/string.h"
#include "testhost.h"

namespace {

struct FileCloser {
    void operator()(OXIOEFile* f) const { f->generic.destroy(f); }
};
using File = std::unique_ptr<OXIOEFile, FileCloser>;

size_t openDescriptors() {
    size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
    return count;
}

std::string pseudoRandomBytes(size_t size) {
    std::mt19937_64 gen(20240521);
    std::string bytes(size, '\0');
    for (char& c : bytes) c = static_cast<char>(gen());
    return bytes;
}

size_t checksum(std::string_view bytes) { return std::hash<std::string_view>{}(bytes); }

class IoeTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(ioe);
        char pattern[] = "/tmp/oxioe-test-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
    }
    void TearDown() override {
        std::error_code ignored;
        std::filesystem::permissions(dir, std::filesystem::perms::owner_all, ignored);
        std::filesystem::remove_all(dir, ignored);
    }

    std::string pathOf(std::string_view name) const { return dir + "/" + std::string(name); }

    OXStatus open(const std::string& path, OXIOEMode mode, File& out, const char* engine = OXIOE_DISK_ENGINE) {
        OXIOEFile* f = nullptr;
        const OXStatus st = ioe->open(ioe.get(), pool, engine, "test file", path.c_str(), mode, &f);
        if (st == OX_OK) out.reset(f);
        return st;
    }

    void writeWhole(const std::string& path, std::string_view bytes) {
        File f;
        ASSERT_EQ(open(path, OXIOE_WRITE, f), OX_OK);
        ASSERT_EQ(f->write(f.get(), bytes.data(), bytes.size()), OX_OK);
        ASSERT_EQ(f->close(f.get()), OX_OK);
    }

    std::string readWhole(const std::string& path, size_t piece = 4096) {
        File f;
        EXPECT_EQ(open(path, OXIOE_READ, f), OX_OK);
        if (!f) return {};
        std::string all;
        std::string buf(piece, '\0');
        for (;;) {
            OXMemSize got = 0;
            const OXStatus st = f->read(f.get(), buf.data(), buf.size(), &got);
            if (st == OX_END_OF_DATA) break;
            EXPECT_EQ(st, OX_OK);
            if (st != OX_OK) break;
            all.append(buf.data(), got);
        }
        return all;
    }

    std::string item(OXDictionary d, std::string_view name) {
        OXInstance* value = nullptr;
        if (d->getValueU8(d, name.data(), name.size(), &value) != OX_OK) return "<missing>";
        auto* s = reinterpret_cast<OXU8String*>(value);
        return std::string(s->stg, s->len);
    }

    oxtest::Service<OXIOE_EXTENSION_S> ioe{"oxioe"};
    oxtest::TestPool pool;
    std::string dir;
};

// ---- data

using IoeDataTest = IoeTest;

TEST_F(IoeDataTest, BytesWrittenInUnevenPiecesReadBackIdentically) {
    const std::string data = pseudoRandomBytes(3 * 1024 * 1024 + 17);
    const std::string path = pathOf("data.bin");
    {
        File f;
        ASSERT_EQ(open(path, OXIOE_WRITE, f), OX_OK);
        size_t at = 0;
        for (size_t piece = 1; at < data.size(); piece = piece * 3 + 1) {
            const size_t n = std::min(piece % 200000 + 1, data.size() - at);
            ASSERT_EQ(f->write(f.get(), data.data() + at, n), OX_OK);
            at += n;
        }
        ASSERT_EQ(f->flush(f.get()), OX_OK);
    }
    const std::string back = readWhole(path, 4093);
    EXPECT_EQ(back.size(), data.size());
    EXPECT_EQ(checksum(back), checksum(data));
}

TEST_F(IoeDataTest, ReadStopsAtTheEndAndThenReportsEndOfData) {
    const std::string path = pathOf("short");
    writeWhole(path, "0123456789");
    File f;
    ASSERT_EQ(open(path, OXIOE_READ, f), OX_OK);
    char buf[64];
    OXMemSize got = 0;
    ASSERT_EQ(f->read(f.get(), buf, sizeof buf, &got), OX_OK);
    EXPECT_EQ(std::string_view(buf, got), "0123456789");
    got = 99;
    EXPECT_EQ(f->read(f.get(), buf, sizeof buf, &got), OX_END_OF_DATA);
    EXPECT_EQ(got, 0u);
}

TEST_F(IoeDataTest, WriteModeReplacesAndAppendModeExtends) {
    const std::string path = pathOf("grow");
    writeWhole(path, "first version, longer");
    writeWhole(path, "second");
    EXPECT_EQ(readWhole(path), "second");
    File f;
    ASSERT_EQ(open(path, OXIOE_APPEND, f), OX_OK);
    ASSERT_EQ(f->seek(f.get(), 0, OXIOE_SEEK_SET), OX_OK);
    ASSERT_EQ(f->write(f.get(), "+more", 5), OX_OK);
    f.reset();
    EXPECT_EQ(readWhole(path), "second+more");
}

// ---- positions

using IoePositionTest = IoeTest;

TEST_F(IoePositionTest, SeekPastTheEndIsAllowedAndReadsNothing) {
    const std::string path = pathOf("hundred");
    writeWhole(path, std::string(100, 'h'));
    File f;
    ASSERT_EQ(open(path, OXIOE_READ, f), OX_OK);
    ASSERT_EQ(f->seek(f.get(), 1000, OXIOE_SEEK_SET), OX_OK);
    OXMemSize at = 0;
    ASSERT_EQ(f->tell(f.get(), &at), OX_OK);
    EXPECT_EQ(at, 1000u);
    char buf[16];
    OXMemSize got = 7;
    EXPECT_EQ(f->read(f.get(), buf, sizeof buf, &got), OX_END_OF_DATA);
    EXPECT_EQ(got, 0u);
}

TEST_F(IoePositionTest, SeeksFromEachOrigin) {
    const std::string path = pathOf("digits");
    writeWhole(path, "0123456789");
    File f;
    ASSERT_EQ(open(path, OXIOE_READ, f), OX_OK);
    char c = 0;
    OXMemSize got = 0;
    ASSERT_EQ(f->seek(f.get(), -3, OXIOE_SEEK_END), OX_OK);
    ASSERT_EQ(f->read(f.get(), &c, 1, &got), OX_OK);
    EXPECT_EQ(c, '7');
    ASSERT_EQ(f->seek(f.get(), -5, OXIOE_SEEK_CUR), OX_OK);
    ASSERT_EQ(f->read(f.get(), &c, 1, &got), OX_OK);
    EXPECT_EQ(c, '3');
    OXMemSize at = 0;
    ASSERT_EQ(f->tell(f.get(), &at), OX_OK);
    EXPECT_EQ(at, 4u);
}

TEST_F(IoePositionTest, SeekBeforeTheStartCannotPosition) {
    const std::string path = pathOf("small");
    writeWhole(path, "abc");
    File f;
    ASSERT_EQ(open(path, OXIOE_READ, f), OX_OK);
    ASSERT_EQ(f->seek(f.get(), 2, OXIOE_SEEK_SET), OX_OK);
    EXPECT_EQ(f->seek(f.get(), -1, OXIOE_SEEK_SET), OX_CANNOT_POSITION);
    EXPECT_EQ(f->seek(f.get(), -10, OXIOE_SEEK_END), OX_CANNOT_POSITION);
    OXMemSize at = 0;
    ASSERT_EQ(f->tell(f.get(), &at), OX_OK);
    EXPECT_EQ(at, 2u);
}

TEST_F(IoePositionTest, WritingPastTheEndLeavesAGapOfZeros) {
    const std::string path = pathOf("gap");
    File f;
    ASSERT_EQ(open(path, OXIOE_WRITE, f), OX_OK);
    ASSERT_EQ(f->write(f.get(), "ab", 2), OX_OK);
    ASSERT_EQ(f->seek(f.get(), 10, OXIOE_SEEK_SET), OX_OK);
    ASSERT_EQ(f->write(f.get(), "cd", 2), OX_OK);
    OXMemSize size = 0;
    ASSERT_EQ(f->size(f.get(), &size), OX_OK);
    EXPECT_EQ(size, 12u);
    f.reset();
    EXPECT_EQ(readWhole(path), std::string("ab\0\0\0\0\0\0\0\0cd", 12));
}

// ---- information items

using IoeInfoTest = IoeTest;

TEST_F(IoeInfoTest, DescribesAFile) {
    const std::string path = pathOf("sized");
    writeWhole(path, std::string(12345, 's'));
    OXDictionary d = nullptr;
    ASSERT_EQ(ioe->fileInfo(ioe.get(), pool, path.c_str(), &d), OX_OK);
    EXPECT_EQ(item(d, "FILESIZE"), "12345");
    EXPECT_EQ(item(d, "ISDIRECTORY"), "false");
    struct stat st {};
    ASSERT_EQ(::stat(path.c_str(), &st), 0);
    const double modified = std::strtod(item(d, "MODIFIED").c_str(), nullptr);
    EXPECT_NEAR(modified, static_cast<double>(st.st_mtim.tv_sec) + st.st_mtim.tv_nsec / 1e9, 1e-6);
    EXPECT_EQ(item(d, "filesize"), "12345") << "names ignore case";
    d->instance.destroy(d);
}

TEST_F(IoeInfoTest, DescribesADirectory) {
    OXDictionary d = nullptr;
    ASSERT_EQ(ioe->fileInfo(ioe.get(), pool, dir.c_str(), &d), OX_OK);
    EXPECT_EQ(item(d, "ISDIRECTORY"), "true");
    d->instance.destroy(d);
}

TEST_F(IoeInfoTest, ModificationsBefore1970AreWrittenWithTheirSign) {
    const std::string path = pathOf("old");
    writeWhole(path, "x");
    const timespec times[2] = {{0, 0}, {-2, 250000000}};  // 1.75 s before 1970
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    OXDictionary d = nullptr;
    ASSERT_EQ(ioe->fileInfo(ioe.get(), pool, path.c_str(), &d), OX_OK);
    EXPECT_EQ(item(d, "MODIFIED"), "-1.750000000");
    d->instance.destroy(d);
}

TEST_F(IoeInfoTest, OpenFileDescribesItself) {
    const std::string path = pathOf("open");
    writeWhole(path, "four");
    File f;
    ASSERT_EQ(open(path, OXIOE_READ, f), OX_OK);
    OXDictionary d = nullptr;
    ASSERT_EQ(f->info(f.get(), pool, &d), OX_OK);
    EXPECT_EQ(item(d, "FILESIZE"), "4");
    d->instance.destroy(d);
    EXPECT_STREQ(f->generic.name, "test file");
}

TEST_F(IoeInfoTest, MissingPathIsNotFoundAndGivesNoDictionary) {
    OXDictionary d = nullptr;
    EXPECT_EQ(ioe->fileInfo(ioe.get(), pool, pathOf("absent").c_str(), &d), OX_FILE_NOT_FOUND);
    EXPECT_EQ(d, nullptr);
}

// ---- failures

using IoeFailureTest = IoeTest;

TEST_F(IoeFailureTest, MissingFileIsNotFound) {
    File f;
    EXPECT_EQ(open(pathOf("absent"), OXIOE_READ, f), OX_FILE_NOT_FOUND);
    EXPECT_EQ(open(pathOf("no/such/dir/file"), OXIOE_WRITE, f), OX_FILE_NOT_FOUND);
    EXPECT_FALSE(f);
}

TEST_F(IoeFailureTest, DirectoryOpenedAsAFileIsRefused) {
    File f;
    EXPECT_EQ(open(dir, OXIOE_READ, f), OX_FILE_IS_DIRECTORY);
    EXPECT_EQ(open(dir, OXIOE_WRITE, f), OX_FILE_IS_DIRECTORY);
    EXPECT_EQ(open(dir, OXIOE_APPEND, f), OX_FILE_IS_DIRECTORY);
}

// Permissions do not bind the superuser, so as root the check runs in a child that gives up
// its rights first.
TEST_F(IoeFailureTest, UnreadableFileIsAccessDenied) {
    const std::string path = pathOf("locked");
    writeWhole(path, "secret");
    ASSERT_EQ(::chmod(path.c_str(), 0), 0);
    const auto denied = [&] {
        File f;
        return open(path, OXIOE_READ, f) == OX_FILE_ACCESS_DENIED;
    };
    if (geteuid() != 0) {
        EXPECT_TRUE(denied());
        return;
    }
    EXPECT_EXIT(_exit(setgid(65534) == 0 && setuid(65534) == 0 && denied() ? 0 : 1), ::testing::ExitedWithCode(0), "");
}

TEST_F(IoeFailureTest, UnknownEngineIsNotSupported) {
    File f;
    writeWhole(pathOf("x"), "x");
    EXPECT_EQ(open(pathOf("x"), OXIOE_READ, f, "TAPE    "), OX_NOT_SUPPORTED);
    EXPECT_EQ(open(pathOf("x"), OXIOE_READ, f, "DISK"), OX_OK) << "a short name is blank padded";
}

TEST_F(IoeFailureTest, ClosedFileAnswersNotOpen) {
    const std::string path = pathOf("closed");
    writeWhole(path, "data");
    File f;
    ASSERT_EQ(open(path, OXIOE_READ, f), OX_OK);
    ASSERT_EQ(f->close(f.get()), OX_OK);
    char buf[4];
    OXMemSize n = 0;
    EXPECT_EQ(f->read(f.get(), buf, sizeof buf, &n), OX_FILE_NOT_OPEN);
    EXPECT_EQ(f->write(f.get(), buf, sizeof buf), OX_FILE_NOT_OPEN);
    EXPECT_EQ(f->seek(f.get(), 0, OXIOE_SEEK_SET), OX_FILE_NOT_OPEN);
    EXPECT_EQ(f->tell(f.get(), &n), OX_FILE_NOT_OPEN);
    EXPECT_EQ(f->size(f.get(), &n), OX_FILE_NOT_OPEN);
    EXPECT_EQ(f->flush(f.get()), OX_FILE_NOT_OPEN);
    EXPECT_EQ(f->close(f.get()), OX_FILE_NOT_OPEN);
}

TEST_F(IoeFailureTest, OperationsOutsideTheOpenModeAreRefused) {
    const std::string path = pathOf("modes");
    writeWhole(path, "data");
    File reader;
    ASSERT_EQ(open(path, OXIOE_READ, reader), OX_OK);
    EXPECT_EQ(reader->write(reader.get(), "x", 1), OX_NOT_SUPPORTED);
    File writer;
    ASSERT_EQ(open(path, OXIOE_APPEND, writer), OX_OK);
    char c;
    OXMemSize got = 0;
    EXPECT_EQ(writer->read(writer.get(), &c, 1, &got), OX_NOT_SUPPORTED);
}

TEST_F(IoeFailureTest, FailedAllocationLeavesNoDescriptorOpen) {
    const std::string path = pathOf("plain");
    writeWhole(path, "data");
    const size_t before = openDescriptors();
    oxPoolFailAfter(pool, 0);
    File f;
    EXPECT_EQ(open(path, OXIOE_READ, f), OX_NO_MEMORY);
    oxPoolFailAfter(pool, -1);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(IoeFailureTest, FailedOpenLeavesNothingBehind) {
    const size_t before = openDescriptors();
    File f;
    EXPECT_EQ(open(dir, OXIOE_READ, f), OX_FILE_IS_DIRECTORY);
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
}

TEST_F(IoeFailureTest, DescriptorsAreClosedOnExec) {
    const std::string path = pathOf("cloexec");
    writeWhole(path, "data");
    File f;
    ASSERT_EQ(open(path, OXIOE_READ, f), OX_OK);
    size_t flagged = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fdinfo")) {
        std::ifstream info(entry.path());
        std::string key, pos, flagsKey;
        unsigned long flags = 0;
        std::string target;
        std::error_code ec;
        target = std::filesystem::read_symlink("/proc/self/fd/" + entry.path().filename().string(), ec);
        if (target != path) continue;
        info >> key >> pos >> flagsKey >> std::oct >> flags;
        EXPECT_NE(flags & 02000000, 0u) << "O_CLOEXEC";
        ++flagged;
    }
    EXPECT_EQ(flagged, 1u);
}

// ---- engines from modules

struct EchoEngine {
    OXIOEEngine rec{};  // first: the engine pointer is the record
    OXIOE_EXTENSION_S* ioe = nullptr;
    std::string accessName;
    std::string path;
    OXIOEMode mode = OXIOE_READ;

    // Remembers its arguments, then opens the path as a local file.
    static OXStatus open(const OXIOEEngine* engine, OX_POOL_S* pool, const char* accessName, const char* path,
                         OXIOEMode mode, OXIOEFile** out) {
        auto* self = static_cast<EchoEngine*>(engine->context);
        self->accessName = accessName ? accessName : "";
        self->path = path;
        self->mode = mode;
        return self->ioe->open(self->ioe, pool, OXIOE_DISK_ENGINE, accessName, path, mode, out);
    }
};

class IoeEngineTest : public IoeTest {
protected:
    void SetUp() override {
        IoeTest::SetUp();
        echo.rec.context = &echo;
        echo.rec.open = EchoEngine::open;
        echo.ioe = ioe.get();
    }
    void TearDown() override {
        ioe->unregisterEngine(ioe.get(), "ECHO    ");
        IoeTest::TearDown();
    }
    EchoEngine echo;
};

TEST_F(IoeEngineTest, RegisteredEngineOpensFilesByItsName) {
    ASSERT_EQ(ioe->registerEngine(ioe.get(), "ECHO", &echo.rec), OX_OK);
    const std::string path = pathOf("via-echo");
    File f;
    ASSERT_EQ(open(path, OXIOE_WRITE, f, "ECHO    "), OX_OK);
    EXPECT_EQ(echo.accessName, "test file");
    EXPECT_EQ(echo.path, path);
    EXPECT_EQ(echo.mode, OXIOE_WRITE);
    ASSERT_EQ(f->write(f.get(), "hi", 2), OX_OK);
    f.reset();
    EXPECT_EQ(readWhole(path), "hi");
}

TEST_F(IoeEngineTest, EnginesAreSharedByEveryLoadOfTheService) {
    ASSERT_EQ(ioe->registerEngine(ioe.get(), "ECHO", &echo.rec), OX_OK);
    oxtest::Service<OXIOE_EXTENSION_S> second{"oxioe"};
    File f;
    OXIOEFile* raw = nullptr;
    EXPECT_EQ(second->open(second.get(), pool, "ECHO", nullptr, pathOf("shared").c_str(), OXIOE_WRITE, &raw), OX_OK);
    f.reset(raw);
    EXPECT_EQ(echo.path, pathOf("shared"));
}

TEST_F(IoeEngineTest, UnregisteredEngineIsNoLongerFound) {
    ASSERT_EQ(ioe->registerEngine(ioe.get(), "ECHO", &echo.rec), OX_OK);
    ASSERT_EQ(ioe->unregisterEngine(ioe.get(), "ECHO    "), OX_OK);
    File f;
    EXPECT_EQ(open(pathOf("gone"), OXIOE_WRITE, f, "ECHO"), OX_NOT_SUPPORTED);
    EXPECT_EQ(ioe->unregisterEngine(ioe.get(), "ECHO"), OX_NOT_FOUND);
}

TEST_F(IoeEngineTest, RefusesDuplicateBuiltInAndBlankNames) {
    ASSERT_EQ(ioe->registerEngine(ioe.get(), "ECHO", &echo.rec), OX_OK);
    EXPECT_EQ(ioe->registerEngine(ioe.get(), "ECHO    ", &echo.rec), OX_INVALID_ARGUMENT);
    EXPECT_EQ(ioe->registerEngine(ioe.get(), "DISK", &echo.rec), OX_INVALID_ARGUMENT);
    EXPECT_EQ(ioe->registerEngine(ioe.get(), "        ", &echo.rec), OX_INVALID_ARGUMENT);
    EXPECT_EQ(ioe->registerEngine(ioe.get(), "", &echo.rec), OX_INVALID_ARGUMENT);
    EXPECT_EQ(ioe->unregisterEngine(ioe.get(), "DISK"), OX_NOT_FOUND);
}

TEST_F(IoeEngineTest, FullTableRefusesMoreEngines) {
    std::vector<std::string> names;
    OXStatus st = OX_OK;
    for (int i = 0; i < 100 && st == OX_OK; ++i) {
        char name[OXIOE_ENGINE_NAME_LEN + 1];
        std::snprintf(name, sizeof name, "E%d", i);
        names.emplace_back(name);
        st = ioe->registerEngine(ioe.get(), names.back().c_str(), &echo.rec);
    }
    EXPECT_EQ(st, OX_NO_MEMORY);
    names.pop_back();
    for (const std::string& name : names) EXPECT_EQ(ioe->unregisterEngine(ioe.get(), name.c_str()), OX_OK);
}

}  // namespace
