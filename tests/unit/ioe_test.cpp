// The I/O service on real files in a private temporary directory: data integrity, positions,
// information items, the statuses of failures, and engines added by modules.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "ox/ioe.h"
#include "ox/string.h"
#include "testhost.h"

namespace {

namespace fs = std::filesystem;

struct FileCloser {
    void operator()(OXIOEFile* f) const { f->generic.destroy(f); }
};
using File = std::unique_ptr<OXIOEFile, FileCloser>;

class IoeTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/oxioe-test-XXXXXX";
        ASSERT_TRUE(ioe && mkdtemp(pattern));
        dir = pattern;
    }
    void TearDown() override { fs::remove_all(dir); }

    OXStatus open(const std::string& path, OXIOEMode mode, File& out, const char* engine = OXIOE_DISK_ENGINE) {
        OXIOEFile* f = nullptr;
        const OXStatus st = ioe->open(ioe.get(), pool, engine, "test file", path.c_str(), mode, &f);
        out.reset(f);
        return st;
    }
    File opened(const std::string& path, OXIOEMode mode) {
        File f;
        EXPECT_EQ(open(path, mode, f), OX_OK) << path;
        return f;
    }
    std::string written(const std::string& name, std::string_view bytes) {
        File f = opened(dir + "/" + name, OXIOE_WRITE);
        EXPECT_EQ(f->write(f.get(), bytes.data(), bytes.size()), OX_OK);
        return dir + "/" + name;
    }
    std::string readWhole(const std::string& path, size_t piece = 4096) {
        File f = opened(path, OXIOE_READ);
        std::string all, buf(piece, '\0');
        OXMemSize got = 0;
        OXStatus st;
        while ((st = f->read(f.get(), buf.data(), buf.size(), &got)) == OX_OK) all.append(buf.data(), got);
        EXPECT_EQ(st, OX_END_OF_DATA);
        EXPECT_EQ(got, 0u) << "nothing comes with the end";
        return all;
    }

    oxtest::Service<OXIOE_EXTENSION_S> ioe{"oxioe"};
    oxtest::TestPool pool;
    std::string dir;
};

TEST_F(IoeTest, BytesWrittenInUnevenPiecesReadBackIdentically) {
    std::string data(3 * 1024 * 1024 + 17, '\0');
    std::mt19937_64 gen(20240521);
    for (char& c : data) c = static_cast<char>(gen());
    const std::string path = dir + "/data.bin";
    File f = opened(path, OXIOE_WRITE);
    for (size_t at = 0, piece = 1, n; at < data.size(); at += n, piece = piece * 3 + 1)
        ASSERT_EQ(f->write(f.get(), data.data() + at, n = std::min(piece % 200000 + 1, data.size() - at)), OX_OK);
    ASSERT_EQ(f->flush(f.get()), OX_OK);
    f.reset();
    EXPECT_TRUE(readWhole(path, 4093) == data);
}

TEST_F(IoeTest, WriteReplacesAppendExtendsAndSeeksPastTheEndLeaveZeros) {
    const std::string path = written("grow", "first version, longer");
    written("grow", "second");
    File f = opened(path, OXIOE_APPEND);
    ASSERT_EQ(f->seek(f.get(), 0, OXIOE_SEEK_SET), OX_OK);
    ASSERT_EQ(f->write(f.get(), "+more", 5), OX_OK);
    f.reset();
    EXPECT_EQ(readWhole(path), "second+more");
    f = opened(path, OXIOE_WRITE);
    ASSERT_EQ(f->write(f.get(), "ab", 2), OX_OK);
    ASSERT_EQ(f->seek(f.get(), 10, OXIOE_SEEK_SET), OX_OK);
    ASSERT_EQ(f->write(f.get(), "cd", 2), OX_OK);
    OXMemSize size = 0;
    ASSERT_EQ(f->size(f.get(), &size), OX_OK);
    EXPECT_EQ(size, 12u);
    EXPECT_EQ(readWhole(path), std::string("ab\0\0\0\0\0\0\0\0cd", 12));
}

TEST_F(IoeTest, SeeksFromEachOriginButNotBeforeTheStart) {
    File f = opened(written("digits", "0123456789"), OXIOE_READ);
    char c = 0;
    OXMemSize got = 0, at = 0;
    ASSERT_EQ(f->seek(f.get(), -3, OXIOE_SEEK_END), OX_OK);
    ASSERT_EQ(f->read(f.get(), &c, 1, &got), OX_OK);
    EXPECT_EQ(c, '7');
    ASSERT_EQ(f->seek(f.get(), -5, OXIOE_SEEK_CUR), OX_OK);
    ASSERT_EQ(f->read(f.get(), &c, 1, &got), OX_OK);
    EXPECT_EQ(c, '3');
    EXPECT_EQ(f->seek(f.get(), -1, OXIOE_SEEK_SET), OX_CANNOT_POSITION);
    EXPECT_EQ(f->seek(f.get(), -11, OXIOE_SEEK_END), OX_CANNOT_POSITION);
    ASSERT_EQ(f->tell(f.get(), &at), OX_OK);
    EXPECT_EQ(at, 4u) << "a refused seek leaves the position";
    ASSERT_EQ(f->seek(f.get(), 1000, OXIOE_SEEK_SET), OX_OK);
    EXPECT_EQ(f->read(f.get(), &c, 1, &got), OX_END_OF_DATA) << "past the end reads nothing";
}

std::string item(OXDictionary d, const char* name) {
    OXInstance* value = nullptr;
    if (d->getValueU8(d, name, std::strlen(name), &value) != OX_OK) return "<missing>";
    return std::string(reinterpret_cast<OXU8String*>(value)->stg, reinterpret_cast<OXU8String*>(value)->len);
}

TEST_F(IoeTest, DescribesFilesAndDirectories) {
    const std::string path = written("sized", std::string(12345, 's'));
    const timespec times[2] = {{0, 0}, {-2, 250000000}};  // 1.75 s before 1970
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    File f = opened(path, OXIOE_READ);
    OXDictionary byFile = nullptr, byPath = nullptr, ofDir = nullptr, none = nullptr;
    ASSERT_EQ(f->info(f.get(), pool, &byFile), OX_OK);
    ASSERT_EQ(ioe->fileInfo(ioe.get(), pool, path.c_str(), &byPath), OX_OK);
    ASSERT_EQ(ioe->fileInfo(ioe.get(), pool, dir.c_str(), &ofDir), OX_OK);
    for (OXDictionary d : {byFile, byPath}) {
        EXPECT_EQ(item(d, "filesize"), "12345") << "names ignore case";
        EXPECT_EQ(item(d, OXIOE_MODIFIED), "-1.750000000");
        EXPECT_EQ(item(d, OXIOE_ISDIRECTORY), "false");
    }
    EXPECT_EQ(item(ofDir, OXIOE_ISDIRECTORY), "true");
    for (OXDictionary d : {byFile, byPath, ofDir}) d->instance.destroy(d);
    EXPECT_EQ(ioe->fileInfo(ioe.get(), pool, (dir + "/absent").c_str(), &none), OX_FILE_NOT_FOUND);
    EXPECT_EQ(none, nullptr);
}

TEST_F(IoeTest, FailedOpensLeaveNothingBehindAndOpenFilesCloseOnExec) {
    const std::string plain = written("plain", "data");
    const struct {
        std::string path;
        OXIOEMode mode;
        const char* engine;
        OXStatus expected;
    } cases[] = {
        {dir + "/absent", OXIOE_READ, OXIOE_DISK_ENGINE, OX_FILE_NOT_FOUND},
        {dir + "/no/such/dir/file", OXIOE_WRITE, OXIOE_DISK_ENGINE, OX_FILE_NOT_FOUND},
        {dir, OXIOE_READ, OXIOE_DISK_ENGINE, OX_FILE_IS_DIRECTORY},
        {dir, OXIOE_APPEND, OXIOE_DISK_ENGINE, OX_FILE_IS_DIRECTORY},
        {plain, OXIOE_READ, "TAPE    ", OX_NOT_SUPPORTED},
    };
    const auto descriptors = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()); };
    const auto before = descriptors();
    File f;
    for (const auto& c : cases) EXPECT_EQ(open(c.path, c.mode, f, c.engine), c.expected) << c.path;
    oxPoolFailAfter(pool, 0);
    EXPECT_EQ(open(plain, OXIOE_READ, f), OX_NO_MEMORY);
    oxPoolFailAfter(pool, -1);
    EXPECT_FALSE(f);
    EXPECT_EQ(descriptors(), before);
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
    EXPECT_EQ(open(plain, OXIOE_READ, f, "DISK"), OX_OK) << "a short engine name is blank padded";
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code ec;
        const int fd = std::stoi(entry.path().filename());
        EXPECT_TRUE(fs::read_symlink(entry.path(), ec) != plain || (::fcntl(fd, F_GETFD) & FD_CLOEXEC)) << "on exec";
    }
}

// Permissions do not bind the superuser, so as root the check runs in a child that gives up
// its rights first.
TEST_F(IoeTest, UnreadableFileIsAccessDenied) {
    const std::string path = written("locked", "secret");
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

TEST_F(IoeTest, RefusesOperationsOutsideTheOpenModeAndAfterClose) {
    const std::string path = written("modes", "data");
    char c;
    OXMemSize n = 0;
    File reader = opened(path, OXIOE_READ), writer = opened(path, OXIOE_APPEND);
    EXPECT_EQ(reader->write(reader.get(), "x", 1), OX_NOT_SUPPORTED);
    EXPECT_EQ(writer->read(writer.get(), &c, 1, &n), OX_NOT_SUPPORTED);
    ASSERT_EQ(reader->close(reader.get()), OX_OK);
    EXPECT_EQ(reader->read(reader.get(), &c, 1, &n), OX_FILE_NOT_OPEN);
    EXPECT_EQ(reader->seek(reader.get(), 0, OXIOE_SEEK_SET), OX_FILE_NOT_OPEN);
    EXPECT_EQ(reader->close(reader.get()), OX_FILE_NOT_OPEN);
}

// ---- engines from modules

// Remembers the path it was given, then opens it as a local file.
struct EchoEngine {
    OXIOEEngine rec{this, open};
    OXIOE_EXTENSION_S* ioe = nullptr;
    std::string seen;

    static OXStatus open(const OXIOEEngine* engine, OX_POOL_S* pool, const char* accessName, const char* path,
                         OXIOEMode mode, OXIOEFile** out) {
        auto* self = static_cast<EchoEngine*>(engine->context);
        self->seen = std::string(accessName) + " " + path;
        return self->ioe->open(self->ioe, pool, OXIOE_DISK_ENGINE, accessName, path, mode, out);
    }
};

TEST_F(IoeTest, ModuleEnginesServeEveryLoadOfTheServiceUntilUnregistered) {
    EchoEngine echo;
    echo.ioe = ioe.get();
    ASSERT_EQ(ioe->registerEngine(ioe.get(), "ECHO", &echo.rec), OX_OK);
    for (const char* name : {"ECHO    ", "DISK", "        ", ""})
        EXPECT_EQ(ioe->registerEngine(ioe.get(), name, &echo.rec), OX_INVALID_ARGUMENT) << '"' << name << '"';
    oxtest::Service<OXIOE_EXTENSION_S> second{"oxioe"};
    const std::string path = dir + "/via-echo";
    OXIOEFile* raw = nullptr;
    ASSERT_EQ(second->open(second.get(), pool, "ECHO    ", "test file", path.c_str(), OXIOE_WRITE, &raw), OX_OK);
    File f(raw);
    EXPECT_EQ(echo.seen, "test file " + path);
    ASSERT_EQ(ioe->unregisterEngine(ioe.get(), "ECHO    "), OX_OK);
    ASSERT_EQ(f->write(f.get(), "hi", 2), OX_OK) << "files already open stay usable";
    f.reset();
    EXPECT_EQ(readWhole(path), "hi");
    EXPECT_EQ(open(path, OXIOE_WRITE, f, "ECHO"), OX_NOT_SUPPORTED);
    EXPECT_EQ(ioe->unregisterEngine(ioe.get(), "ECHO"), OX_NOT_FOUND);
    EXPECT_EQ(ioe->unregisterEngine(ioe.get(), "DISK"), OX_NOT_FOUND);
}

}  // namespace
