#pragma once

// A fresh directory under $TMPDIR (or /tmp), removed with everything in it when the object
// goes away, and a reader for the files made in it.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace zorcam_test {

/// The whole content of a file, "" when it cannot be read.
inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

class TempDir {
public:
    TempDir() {
        const char* base = getenv("TMPDIR");
        mPath = std::string(base != nullptr && *base ? base : "/tmp") + "/zorcam_test.XXXXXX";
        if (mkdtemp(mPath.data()) == nullptr) mPath.clear();
    }
    ~TempDir() { std::filesystem::remove_all(mPath, mError); }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    /// The directory, or "" when it could not be made.
    const std::string& path() const { return mPath; }
    /// path() + "/" + name.
    std::string operator/(const std::string& name) const { return mPath + "/" + name; }

private:
    std::string mPath;
    std::error_code mError;  // of the removal: "" (no directory made) fails it, harmlessly
};

}  // namespace zorcam_test
