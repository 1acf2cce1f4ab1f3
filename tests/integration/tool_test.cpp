// The oxs3 command-line tool against the real server: a file goes up and comes back with the
// same digest, and a failure is one sentence on stderr with a non-zero exit status.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

#include "bucketfixture.h"

namespace {

namespace fs = std::filesystem;
using oxtest::ScopedBucket;

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string sha256(const std::string& bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha256(), nullptr);
    return std::string(reinterpret_cast<const char*>(digest), length);
}

struct ToolRun {
    int status = -1;
    std::string out;
    std::string err;
};

class Tool : public oxtest::S3Test {
protected:
    void SetUp() override {
        S3Test::SetUp();
        if (HasFatalFailure()) return;
        dir = fs::temp_directory_path() / ("oxs3-tool-test-" + std::to_string(::getpid()));
        fs::create_directories(dir / "home");
        // The test's keys and no one's real configuration.
        ::setenv("HOME", (dir / "home").c_str(), 1);
        ::setenv("AWS_ACCESS_KEY_ID", env().accessKey.c_str(), 1);
        ::setenv("AWS_SECRET_ACCESS_KEY", env().secretKey.c_str(), 1);
        ::setenv("AWS_DEFAULT_REGION", env().region.c_str(), 1);
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(dir, ignored);
    }

    ToolRun tool(const std::string& arguments) {
        const std::string endpoint = "http://" + env().vhostDomain + ":" + std::to_string(env().port);
        const std::string command = std::string(OXS3_TOOL_PATH) + " --endpoint " + endpoint + " " + arguments +
                                    " >" + (dir / "out").string() + " 2>" + (dir / "err").string();
        ToolRun run;
        const int raw = std::system(command.c_str());
        run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        run.out = readFile(dir / "out");
        run.err = readFile(dir / "err");
        return run;
    }

    fs::path dir;
};

TEST_F(Tool, PutGetAndCatKeepTheBytes) {
    ScopedBucket bucket("tool");
    bucket.keys = {"d/big.bin", "d/small.txt"};
    const std::string url = "s3://" + bucket.name;
    ASSERT_EQ(tool("mb " + url).status, 0);

    // Large enough to go in blocks both ways.
    std::string bytes(9u << 20, '\0');
    std::mt19937_64 random(42);
    for (char& b : bytes) b = static_cast<char>(random());
    std::ofstream(dir / "big.bin", std::ios::binary) << bytes;
    std::ofstream(dir / "small.txt") << "hello, tool\n";

    ToolRun run = tool("put " + (dir / "big.bin").string() + " " + url + "/d/");
    ASSERT_EQ(run.status, 0) << run.err;
    ASSERT_EQ(tool("put " + (dir / "small.txt").string() + " " + url + "/d/small.txt").status, 0);
    run = tool("get " + url + "/d/big.bin " + (dir / "back.bin").string());
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(sha256(readFile(dir / "back.bin")) == sha256(bytes)) << "the file came back changed";
    EXPECT_FALSE(fs::exists(dir / "back.bin.oxs3-partial"));

    run = tool("cat " + url + "/d/small.txt");
    EXPECT_EQ(run.out, "hello, tool\n");
    run = tool("ls " + url + "/d/");
    EXPECT_NE(run.out.find("9437184  big.bin"), std::string::npos) << run.out;

    ASSERT_EQ(tool("rm -r " + url + "/d").status, 0);
    EXPECT_EQ(tool("rb " + url).status, 0);
}

TEST_F(Tool, FailureIsOneSentenceAndANonZeroStatus) {
    ScopedBucket bucket("toolfail");
    ASSERT_TRUE(bucket.create());
    ToolRun run = tool("get s3://" + bucket.name + "/missing " + (dir / "never").string());
    EXPECT_NE(run.status, 0);
    EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << "one line: " << run.err;
    EXPECT_TRUE(run.err.starts_with("oxs3: get: ")) << run.err;
    EXPECT_NE(run.err.find("not found"), std::string::npos) << run.err;
    EXPECT_FALSE(fs::exists(dir / "never"));

    ASSERT_TRUE(bucket.put("kept"));
    run = tool("rb s3://" + bucket.name);
    EXPECT_NE(run.status, 0);
    EXPECT_NE(run.err.find("BucketNotEmpty"), std::string::npos) << run.err;
}

}  // namespace
