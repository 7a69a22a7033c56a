#include "FdCount.h"
#include "LogCapture.h"
#include "TempDir.h"

#include <zorcam/utils/std/Misc.h>

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

using namespace zorcam_test;
using NSCam::Utils::loadFileToBuf;
using NSCam::Utils::makePath;
using NSCam::Utils::saveBufToFile;

// The program's own read and write: they pass through to the C library unless a test asks
// for short transfers (to drive the loops through several passes) or for a write that makes
// no progress.
namespace {
std::atomic<size_t> sMaxTransfer{0};
std::atomic<bool> sWriteStalls{false};
}  // namespace

extern "C" ssize_t write(int fd, const void* buf, size_t n) {
    static const auto real =
            reinterpret_cast<ssize_t (*)(int, const void*, size_t)>(dlsym(RTLD_NEXT, "write"));
    if (sWriteStalls) return 0;
    if (sMaxTransfer != 0) n = std::min(n, sMaxTransfer.load());
    return real(fd, buf, n);
}

extern "C" ssize_t read(int fd, void* buf, size_t n) {
    static const auto real =
            reinterpret_cast<ssize_t (*)(int, void*, size_t)>(dlsym(RTLD_NEXT, "read"));
    if (sMaxTransfer != 0) n = std::min(n, sMaxTransfer.load());
    return real(fd, buf, n);
}

namespace {

using Lines = std::vector<std::string>;

bool isDir(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Whether every byte of v from index `from` on still holds the fill value 0xEE.
bool untouched(const std::vector<unsigned char>& v, size_t from) {
    return std::all_of(v.begin() + from, v.end(), [](unsigned char c) { return c == 0xEE; });
}

std::string contents(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

std::vector<unsigned char> pattern(size_t n) {
    std::vector<unsigned char> v(n);
    for (size_t i = 0; i < n; ++i) v[i] = static_cast<unsigned char>(i * 7 + i / 251);
    return v;
}

class FilesTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        ASSERT_FALSE(mDir.path().empty());
        mSavedUmask = umask(022);
        mFds = openFdCount();
    }
    void TearDown() override {
        EXPECT_EQ(openFdCount(), mFds) << "a descriptor was left open";
        sMaxTransfer = 0;
        sWriteStalls = false;
        umask(mSavedUmask);
        LogCaptureTest::TearDown();
    }

    std::vector<std::string> androidTexts() {
        std::vector<std::string> out;
        for (const auto& l : androidLines()) out.push_back(stripLocation(l.text));
        return out;
    }

    TempDir mDir;
    mode_t mSavedUmask = 0;
    int mFds = 0;
};

TEST_F(FilesTest, MakePathMakesEveryComponentSkippingEmptyOnes) {
    const std::string path = mDir / "a//b/c/";
    EXPECT_TRUE(makePath(path.c_str(), 0750));
    for (const char* sub : {"a", "a/b", "a/b/c"}) {
        struct stat st;
        ASSERT_EQ(stat((mDir / sub).c_str(), &st), 0) << sub;
        EXPECT_TRUE(S_ISDIR(st.st_mode)) << sub;
        EXPECT_EQ(st.st_mode & 0777, 0750u) << sub;
    }
    // Everything already there: still true, and nothing to report.
    EXPECT_TRUE(makePath(path.c_str(), 0750));
    EXPECT_TRUE(makePath((mDir / "a/b").c_str(), 0750));
    expectNoLines();
}

TEST_F(FilesTest, MakePathOfRootAndOfEmptyPath) {
    EXPECT_TRUE(makePath("/", 0755));
    expectNoLines();

    EXPECT_FALSE(makePath("", 0755));
    expectOnlyLine(6, NSCam::Utils::ULog::DETAILS_ERROR, "ZorCam/Utils",
                   "[do_mkdir] fail to mkdir []: 2[No such file or directory]");
}

TEST_F(FilesTest, MakePathStopsAtARegularFile) {
    ASSERT_TRUE(makePath((mDir / "a").c_str(), 0755));
    writeFile(mDir / "a/f", "x");
    clearLogs();

    EXPECT_FALSE(makePath((mDir / "a/f/g/h").c_str(), 0755));
    expectOnlyLine(6, NSCam::Utils::ULog::DETAILS_ERROR, "ZorCam/Utils", "[do_mkdir] !S_ISDIR");
    EXPECT_EQ(contents(mDir / "a/f"), "x");
}

TEST_F(FilesTest, MakePathStopsAtAComponentThatCannotBeMade) {
    const std::string longName(300, 'n');
    const std::string bad = mDir / ("a/" + longName);
    EXPECT_FALSE(makePath((bad + "/c/d").c_str(), 0755));
    // The parent before the failing component stays; nothing deeper is tried.
    EXPECT_TRUE(isDir(mDir / "a"));
    expectOnlyLine(6, NSCam::Utils::ULog::DETAILS_ERROR, "ZorCam/Utils",
                   "[do_mkdir] fail to mkdir [" + bad + "]: 36[File name too long]");
}

TEST_F(FilesTest, RoundTripOfAWholeBuffer) {
    const std::string file = mDir / "buf.raw";
    std::vector<unsigned char> out = pattern(100000);
    ASSERT_TRUE(saveBufToFile(file.c_str(), out.data(), out.size()));

    struct stat st;
    ASSERT_EQ(stat(file.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0704u & ~022u);
    EXPECT_EQ(st.st_size, 100000);
    EXPECT_EQ(androidTexts(), (Lines{
            "[saveBufToFile] opening file [" + file + "]",
            "[saveBufToFile] writing 100000 bytes to file [" + file + "]",
            "[saveBufToFile] done writing 100000 bytes to file [" + file + "] in 1 passes",
    }));
    clearLogs();

    std::vector<unsigned char> in(out.size() + 16, 0xEE);
    EXPECT_EQ(loadFileToBuf(file.c_str(), in.data(), 0), 100000u);
    EXPECT_TRUE(std::equal(out.begin(), out.end(), in.begin()));
    EXPECT_TRUE(untouched(in, out.size()));
    EXPECT_EQ(androidTexts(), (Lines{
            "[loadFileToBuf] opening file [" + file + "]",
            "[loadFileToBuf] read 100000 bytes from file [" + file + "]",
            "[loadFileToBuf] done reading 100000 bytes to file [" + file + "] in 1 passes",
    }));
}

TEST_F(FilesTest, ShortTransfersTakeSeveralPasses) {
    const std::string file = mDir / "passes.raw";
    std::vector<unsigned char> out = pattern(10000);
    sMaxTransfer = 3000;
    ASSERT_TRUE(saveBufToFile(file.c_str(), out.data(), out.size()));
    std::vector<unsigned char> in(out.size());
    EXPECT_EQ(loadFileToBuf(file.c_str(), in.data(), in.size()), 10000u);
    sMaxTransfer = 0;

    EXPECT_EQ(in, out);
    EXPECT_EQ(contents(file), std::string(out.begin(), out.end()));
    const auto texts = androidTexts();
    ASSERT_EQ(texts.size(), 6u);
    EXPECT_EQ(texts[2],
              "[saveBufToFile] done writing 10000 bytes to file [" + file + "] in 4 passes");
    EXPECT_EQ(texts[5],
              "[loadFileToBuf] done reading 10000 bytes to file [" + file + "] in 4 passes");
}

TEST_F(FilesTest, SizeZeroTruncatesAndReadsNothing) {
    const std::string file = mDir / "empty.raw";
    writeFile(file, std::string(5000, 'q'));
    unsigned char byte = 0x5A;
    EXPECT_TRUE(saveBufToFile(file.c_str(), &byte, 0));
    EXPECT_EQ(contents(file), "");
    EXPECT_EQ(androidTexts().back(),
              "[saveBufToFile] done writing 0 bytes to file [" + file + "] in 0 passes");
    clearLogs();

    EXPECT_EQ(loadFileToBuf(file.c_str(), &byte, 0), 0u);
    EXPECT_EQ(byte, 0x5A);
    EXPECT_EQ(androidTexts(), (Lines{
            "[loadFileToBuf] opening file [" + file + "]",
            "[loadFileToBuf] read 0 bytes from file [" + file + "]",
            "[loadFileToBuf] done reading 0 bytes to file [" + file + "] in 0 passes",
    }));
}

TEST_F(FilesTest, SavingOverALongerFileLeavesExactlyTheNewBytes) {
    const std::string file = mDir / "trunc.raw";
    writeFile(file, std::string(5000, 'q'));
    std::vector<unsigned char> out = pattern(100);
    EXPECT_TRUE(saveBufToFile(file.c_str(), out.data(), out.size()));
    EXPECT_EQ(contents(file), std::string(out.begin(), out.end()));
}

TEST_F(FilesTest, LoadStopsAtTheSizeAskedOrAtEndOfFile) {
    const std::string file = mDir / "in.raw";
    std::vector<unsigned char> bytes = pattern(5000);
    writeFile(file, std::string(bytes.begin(), bytes.end()));

    std::vector<unsigned char> small(100 + 8, 0xEE);
    EXPECT_EQ(loadFileToBuf(file.c_str(), small.data(), 100), 100u);
    EXPECT_TRUE(std::equal(small.begin(), small.begin() + 100, bytes.begin()));
    EXPECT_TRUE(untouched(small, 100));

    // Asked for more than the file holds: the loop ends at end of file.
    std::vector<unsigned char> big(8000, 0xEE);
    EXPECT_EQ(loadFileToBuf(file.c_str(), big.data(), big.size()), 5000u);
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), big.begin()));
    EXPECT_TRUE(untouched(big, 5000));
}

TEST_F(FilesTest, FilesThatCannotBeOpened) {
    const std::string missing = mDir / "no/such.raw";
    unsigned char buf[4] = {1, 2, 3, 4};
    EXPECT_EQ(loadFileToBuf(missing.c_str(), buf, sizeof(buf)), 0u);
    EXPECT_EQ(buf[0], 1);
    EXPECT_EQ(androidTexts(), (Lines{
            "[loadFileToBuf] opening file [" + missing + "]",
            "[loadFileToBuf] failed to create file [" + missing + "]: No such file or directory",
    }));
    clearLogs();

    EXPECT_FALSE(saveBufToFile(missing.c_str(), buf, sizeof(buf)));
    EXPECT_EQ(androidTexts().back(), "[saveBufToFile] failed to create file [" + missing +
                                             "]: No such file or directory");
    clearLogs();

    EXPECT_FALSE(saveBufToFile(nullptr, buf, sizeof(buf)));
    EXPECT_EQ(loadFileToBuf(nullptr, buf, sizeof(buf)), 0u);
    EXPECT_FALSE(makePath(nullptr, 0755));
    EXPECT_EQ(androidLines().size(), 3u);
}

TEST_F(FilesTest, TransferFailuresAreLoggedAndEndTheLoop) {
    std::vector<unsigned char> out = pattern(64);
    EXPECT_TRUE(saveBufToFile("/dev/full", out.data(), out.size()));
    EXPECT_EQ(androidTexts(), (Lines{
            "[saveBufToFile] opening file [/dev/full]",
            "[saveBufToFile] writing 64 bytes to file [/dev/full]",
            "[saveBufToFile] failed to write to file [/dev/full]: No space left on device",
            "[saveBufToFile] done writing 64 bytes to file [/dev/full] in 0 passes",
    }));
    clearLogs();

    std::vector<unsigned char> in(16, 0xEE);
    EXPECT_EQ(loadFileToBuf(mDir.path().c_str(), in.data(), in.size()), 0u);
    EXPECT_EQ(androidTexts()[2], "[loadFileToBuf] failed to read from file [" + mDir.path() +
                                         "]: Is a directory");
    EXPECT_EQ(androidTexts().back(), "[loadFileToBuf] done reading 16 bytes to file [" +
                                             mDir.path() + "] in 0 passes");
    clearLogs();

    // A write that neither fails nor progresses must not spin.
    const std::string file = mDir / "stall.raw";
    sWriteStalls = true;
    EXPECT_TRUE(saveBufToFile(file.c_str(), out.data(), out.size()));
    sWriteStalls = false;
    EXPECT_EQ(contents(file), "");
    EXPECT_EQ(androidTexts().back(),
              "[saveBufToFile] done writing 64 bytes to file [" + file + "] in 0 passes");
}

}  // namespace
