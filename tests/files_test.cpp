#include "FdCount.h"
#include "LogCapture.h"
#include "TempDir.h"

#include <zorcam/utils/std/Misc.h>

#include <dlfcn.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>

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

using Bytes = std::vector<unsigned char>;
using Lines = std::vector<std::string>;

class FilesTest : public LogCaptureTest {
protected:
    void TearDown() override {
        EXPECT_EQ(openFdCount(), mFds) << "a descriptor was left open";
        sMaxTransfer = SIZE_MAX;
        LogCaptureTest::TearDown();
    }
    // The Android lines without their location suffixes; clears the capture.
    Lines texts() {
        Lines out;
        for (const auto& l : androidLines()) out.push_back(stripLocation(l.text));
        clearLogs();
        return out;
    }
    TempDir mDir;
    const mode_t mMask = umask(022);  // the modes below are of umask 022
    const int mFds = openFdCount();
};

// A failure logs its one line and tries nothing deeper; parents made before it stay. (The dump
// fuzz target checks makePath against the file system for any path.)
TEST_F(FilesTest, MakePath) {
    std::ofstream(mDir / "f") << "x";
    const std::string longDir = mDir / ("b/" + std::string(300, 'n'));
    const struct { std::string path, line; } cases[] = {
            {mDir / "a//b/c/", ""},
            {"", "[do_mkdir] fail to mkdir []: 2[No such file or directory]"},
            {mDir / "f/g/h", "[do_mkdir] !S_ISDIR"},
            {longDir + "/c/d",
             "[do_mkdir] fail to mkdir [" + longDir + "]: 36[File name too long]"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(makePath(c.path.c_str(), 0750), c.line.empty()) << c.path;
        c.line.empty() ? expectNoLines() : expectError(c.line);
    }
    struct stat st;
    for (const char* dir : {"a", "a/b", "a/b/c", "b"})
        EXPECT_TRUE(stat((mDir / dir).c_str(), &st) == 0 && st.st_mode == (S_IFDIR | 0750)) << dir;
}

// Whole transfers and short ones (several passes, each going on where the last stopped);
// reading stops at the size asked, or at the end of the file when that comes first.
TEST_F(FilesTest, RoundTrips) {
    const std::string file = mDir / "buf.raw", f = " file [" + file + "]";
    Bytes out(10000);
    for (size_t i = 0; i < out.size(); ++i) out[i] = static_cast<unsigned char>(i * 7 + i / 251);
    // Reads with size `asked` into a buffer of 0xEE: the first `got` bytes of out come back.
    auto load = [&](unsigned int asked, unsigned int got) {
        Bytes in(std::max(asked, 10000u) + 16, 0xEE), want = in;
        std::copy(out.begin(), out.begin() + got, want.begin());
        EXPECT_EQ(loadFileToBuf(file.c_str(), in.data(), asked), got) << asked;
        EXPECT_TRUE(in == want) << asked;
    };
    for (auto [maxTransfer, passes] : {std::pair<size_t, const char*>{SIZE_MAX, "1"}, {3000, "4"}})
    {
        sMaxTransfer = maxTransfer;
        ASSERT_TRUE(saveBufToFile(file.c_str(), out.data(), 10000));
        load(0, 10000);
        struct stat st;
        EXPECT_TRUE(stat(file.c_str(), &st) == 0 && st.st_mode == (S_IFREG | 0704));
        EXPECT_EQ(texts(), (Lines{
                "[saveBufToFile] opening" + f,
                "[saveBufToFile] writing 10000 bytes to" + f,
                "[saveBufToFile] done writing 10000 bytes to" + f + " in " + passes + " passes",
                "[loadFileToBuf] opening" + f,
                "[loadFileToBuf] read 10000 bytes from" + f,
                "[loadFileToBuf] done reading 10000 bytes to" + f + " in " + passes + " passes",
        })) << maxTransfer;
    }
    load(100, 100);
    load(20000, 10000);
    // Saving truncates: size 0 empties the file, and reading it whole then reads nothing.
    clearLogs();
    EXPECT_TRUE(saveBufToFile(file.c_str(), out.data(), 0));
    EXPECT_EQ(loadFileToBuf(file.c_str(), out.data(), 0), 0u);
    EXPECT_EQ(texts().back(), "[loadFileToBuf] done reading 0 bytes to" + f + " in 0 passes");
}

TEST_F(FilesTest, FailuresAreLogged) {
    const std::string missing = mDir / "no/such.raw", dir = mDir.path();
    Bytes buf(64);  // a null path fails without a line worth checking
    EXPECT_FALSE(saveBufToFile(nullptr, buf.data(), 64) || makePath(nullptr, 0755));
    EXPECT_EQ(loadFileToBuf(nullptr, buf.data(), 64), 0u);
    clearLogs();
    EXPECT_EQ(loadFileToBuf(missing.c_str(), buf.data(), 64), 0u);
    EXPECT_FALSE(saveBufToFile(missing.c_str(), buf.data(), 64));
    const std::string err = " failed to create file [" + missing + "]: No such file or directory";
    EXPECT_EQ(texts(), (Lines{"[loadFileToBuf] opening file [" + missing + "]",
                              "[loadFileToBuf]" + err,
                              "[saveBufToFile] opening file [" + missing + "]",
                              "[saveBufToFile]" + err}));
    // "done writing" follows all the same.
    EXPECT_TRUE(saveBufToFile("/dev/full", buf.data(), 64));
    const Lines full = texts();
    EXPECT_TRUE(full.size() == 4u && full[2] == "[saveBufToFile] failed to write to file "
                                                "[/dev/full]: No space left on device");
    EXPECT_EQ(loadFileToBuf(dir.c_str(), buf.data(), 64), 0u);
    EXPECT_EQ(texts().at(2),
              "[loadFileToBuf] failed to read from file [" + dir + "]: Is a directory");
    // A write that neither fails nor progresses must not spin.
    sMaxTransfer = 0;
    EXPECT_TRUE(saveBufToFile((mDir / "stall.raw").c_str(), buf.data(), 64));
}
