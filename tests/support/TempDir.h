#pragma once

// A fresh directory under $TMPDIR (or /tmp), removed with everything in it when the object
// goes away.

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace zorcam_test {

class TempDir {
public:
    TempDir() {
        const char* base = getenv("TMPDIR");
        std::string pattern = std::string(base != nullptr && *base ? base : "/tmp") +
                              "/zorcam_test.XXXXXX";
        if (mkdtemp(pattern.data()) != nullptr) mPath = pattern;
    }
    ~TempDir() {
        std::error_code ec;
        if (!mPath.empty()) std::filesystem::remove_all(mPath, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    /// The directory, or "" when it could not be made.
    const std::string& path() const { return mPath; }
    /// path() + "/" + name.
    std::string operator/(const std::string& name) const { return mPath + "/" + name; }

private:
    std::string mPath;
};

}  // namespace zorcam_test
