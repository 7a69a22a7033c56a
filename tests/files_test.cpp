#include "FdCount.h"
#include "LogCapture.h"
#include "TempDir.h"

#include <zorcam/utils/std/Misc.h>

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

using namespace zorcam_test;
using namespace NSCam::Utils;

// The program's own read and write cut each transfer to at most sMaxTransfer bytes, so that
// tests can drive the loops through several passes, or make a write that makes no progress.
static std::atomic<size_t> sMaxTransfer{SIZE_MAX};

extern "C" ssize_t write(int fd, const void* buf, size_t n) {
    static const auto real =
            reinterpret_cast<ssize_t (*)(int, const void*, size_t)>(dlsym(RTLD_NEXT, "write"));
    return real(fd, buf, std::min(n, sMaxTransfer.load()));
}

extern "C" ssize_t read(int fd, void* buf, size_t n) {
    static const auto real =
            reinterpret_cast<ssize_t (*)(int, void*, size_t)>(dlsym(RTLD_NEXT, "read"));
    return real(fd, buf, std::min(n, sMaxTransfer.load()));
}

namespace {

using Bytes = std::vector<unsigned char>;
using Lines = std::vector<std::string>;

struct stat statOf(const std::string& path) {
    struct stat st = {};
    stat(path.c_str(), &st);
    return st;
}

Bytes pattern(size_t n) {
    Bytes v(n);
    for (size_t i = 0; i < n; ++i) v[i] = static_cast<unsigned char>(i * 7 + i / 251);
    return v;
}

// Whether buf starts with want and holds the fill value 0xEE after it.
bool filledWith(const Bytes& buf, const Bytes& want) {
    return std::equal(want.begin(), want.end(), buf.begin()) &&
           std::all_of(buf.begin() + want.size(), buf.end(), [](auto c) { return c == 0xEE; });
}

class FilesTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        umask(022);
        mFds = openFdCount();
    }
    void TearDown() override {
        EXPECT_EQ(openFdCount(), mFds) << "a descriptor was left open";
        sMaxTransfer = SIZE_MAX;
        LogCaptureTest::TearDown();
    }

    Lines texts() {
        Lines out;
        for (const auto& l : androidLines()) out.push_back(stripLocation(l.text));
        return out;
    }

    TempDir mDir;
    int mFds = 0;
};

// A failure logs its one line and tries nothing deeper; parents made before it stay.
TEST_F(FilesTest, MakePath) {
    std::ofstream(mDir / "f") << "x";
    const std::string longDir = mDir / ("b/" + std::string(300, 'n'));
    const struct { std::string path; bool made; std::string line; } cases[] = {
            {mDir / "a//b/c/", true, ""},
            {mDir / "a//b/c/", true, ""},  // all there already
            {"/", true, ""},
            {"", false, "[do_mkdir] fail to mkdir []: 2[No such file or directory]"},
            {mDir / "f/g/h", false, "[do_mkdir] !S_ISDIR"},
            {longDir + "/c/d", false,
             "[do_mkdir] fail to mkdir [" + longDir + "]: 36[File name too long]"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        clearLogs();
        EXPECT_EQ(makePath(c.path.c_str(), 0750), c.made);
        c.made ? expectNoLines() : expectError(c.line);
    }
    for (const char* dir : {"a", "a/b", "a/b/c", "b"})
        EXPECT_EQ(statOf(mDir / dir).st_mode, mode_t{S_IFDIR | 0750}) << dir;
}

// Whole transfers and short ones (several passes, each continuing where the last stopped).
TEST_F(FilesTest, RoundTrips) {
    const std::string file = mDir / "buf.raw";
    Bytes out = pattern(10000);
    for (auto [maxTransfer, passes] :
         {std::pair<size_t, const char*>{SIZE_MAX, "1"}, {3000, "4"}}) {
        SCOPED_TRACE(maxTransfer);
        clearLogs();
        sMaxTransfer = maxTransfer;
        ASSERT_TRUE(saveBufToFile(file.c_str(), out.data(), 10000));
        Bytes in(out.size() + 16, 0xEE);
        EXPECT_EQ(loadFileToBuf(file.c_str(), in.data(), 0), 10000u);
        EXPECT_TRUE(filledWith(in, out));
        EXPECT_EQ(statOf(file).st_mode, mode_t{S_IFREG | 0704});
        const std::string f = " file [" + file + "]";
        EXPECT_EQ(texts(), (Lines{
                "[saveBufToFile] opening" + f,
                "[saveBufToFile] writing 10000 bytes to" + f,
                "[saveBufToFile] done writing 10000 bytes to" + f + " in " + passes + " passes",
                "[loadFileToBuf] opening" + f,
                "[loadFileToBuf] read 10000 bytes from" + f,
                "[loadFileToBuf] done reading 10000 bytes to" + f + " in " + passes + " passes",
        }));
    }
    // Reading stops at the size asked, or at end of file when that comes first.
    for (unsigned int asked : {100u, 20000u}) {
        Bytes in(asked + 16, 0xEE);
        const unsigned int got = std::min(asked, 10000u);
        EXPECT_EQ(loadFileToBuf(file.c_str(), in.data(), asked), got) << asked;
        EXPECT_TRUE(filledWith(in, Bytes(out.begin(), out.begin() + got))) << asked;
    }
    // Saving truncates: size 0 empties the file, and reading it whole then reads nothing.
    EXPECT_TRUE(saveBufToFile(file.c_str(), out.data(), 0));
    EXPECT_EQ(loadFileToBuf(file.c_str(), out.data(), 0), 0u);
    EXPECT_EQ(texts().back(),
              "[loadFileToBuf] done reading 0 bytes to file [" + file + "] in 0 passes");
}

TEST_F(FilesTest, FailuresAreLogged) {
    const std::string missing = mDir / "no/such.raw";
    Bytes buf = pattern(64);  // a null path fails without a line worth checking
    EXPECT_FALSE(saveBufToFile(nullptr, buf.data(), 64));
    EXPECT_EQ(loadFileToBuf(nullptr, buf.data(), 64), 0u);
    EXPECT_FALSE(makePath(nullptr, 0755));
    clearLogs();
    EXPECT_EQ(loadFileToBuf(missing.c_str(), buf.data(), 64), 0u);
    EXPECT_FALSE(saveBufToFile(missing.c_str(), buf.data(), 64));
    const std::string err = " failed to create file [" + missing + "]: No such file or directory";
    EXPECT_EQ(texts(), (Lines{"[loadFileToBuf] opening file [" + missing + "]",
                              "[loadFileToBuf]" + err,
                              "[saveBufToFile] opening file [" + missing + "]",
                              "[saveBufToFile]" + err}));
    clearLogs();
    EXPECT_TRUE(saveBufToFile("/dev/full", buf.data(), 64));
    EXPECT_EQ(texts().at(2),
              "[saveBufToFile] failed to write to file [/dev/full]: No space left on device");
    EXPECT_EQ(texts().size(), 4u);  // "done writing" follows all the same
    clearLogs();
    EXPECT_EQ(loadFileToBuf(mDir.path().c_str(), buf.data(), 64), 0u);
    EXPECT_EQ(texts().at(2),
              "[loadFileToBuf] failed to read from file [" + mDir.path() + "]: Is a directory");

    // A write that neither fails nor progresses must not spin.
    sMaxTransfer = 0;
    EXPECT_TRUE(saveBufToFile((mDir / "stall.raw").c_str(), buf.data(), 64));
}

}  // namespace
