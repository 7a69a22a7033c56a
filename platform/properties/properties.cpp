// Host implementation of Android's system-property calls. Keeps one process-wide map
// under a mutex, seeded once from the build.prop-style file that $ZORCAM_PROPERTIES names.
// The store is reached through a function-local static so that it is usable from other
// libraries' static initialisers, whatever order the loader runs them in.

#include <cutils/properties.h>

#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

class PropertyStore {
public:
    static PropertyStore& instance() {
        static PropertyStore sStore;
        return sStore;
    }

    // Copies the value into out (at most PROP_VALUE_MAX - 1 characters); false when unset.
    bool get(std::string_view key, char out[PROP_VALUE_MAX]) {
        std::lock_guard<std::mutex> lock(mLock);
        auto it = mValues.find(key);  // transparent lookup: no allocation on the read path
        if (it == mValues.end()) return false;
        size_t n = it->second.size();
        if (n > PROP_VALUE_MAX - 1) n = PROP_VALUE_MAX - 1;
        memcpy(out, it->second.data(), n);
        out[n] = '\0';
        return true;
    }

    int set(const char* key, const char* value) {
        if (key == nullptr || *key == '\0') return -EINVAL;
        if (value == nullptr) value = "";
        if (strlen(value) >= PROP_VALUE_MAX) return -EINVAL;
        std::lock_guard<std::mutex> lock(mLock);
        mValues[std::string(key)] = value;
        return 0;
    }

    int list(void (*fn)(const char*, const char*, void*), void* cookie) {
        std::vector<std::pair<std::string, std::string>> copy;
        {
            std::lock_guard<std::mutex> lock(mLock);
            copy.assign(mValues.begin(), mValues.end());
        }
        // Called without the lock so that the callback may read or set properties.
        for (const auto& kv : copy) fn(kv.first.c_str(), kv.second.c_str(), cookie);
        return 0;
    }

private:
    PropertyStore() {
        const char* path = getenv("ZORCAM_PROPERTIES");
        if (path != nullptr && *path != '\0') load(path);
    }

    static std::string_view trim(std::string_view s) {
        while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
        while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r'))
            s.remove_suffix(1);
        return s;
    }

    void load(const char* path) {
        std::ifstream in(path);
        if (!in) {
            fprintf(stderr, "properties: cannot read %s: %s\n", path, strerror(errno));
            return;
        }
        std::string line;
        for (unsigned lineNo = 1; std::getline(in, line); ++lineNo) {
            std::string_view s = trim(line);
            if (s.empty() || s.front() == '#') continue;
            size_t eq = s.find('=');
            std::string_view key = eq == std::string_view::npos ? s : trim(s.substr(0, eq));
            if (eq == std::string_view::npos || key.empty()) {
                fprintf(stderr, "properties: %s:%u: malformed line skipped\n", path, lineNo);
                continue;
            }
            std::string_view value = trim(s.substr(eq + 1));
            if (value.size() >= PROP_VALUE_MAX) {
                fprintf(stderr, "properties: %s:%u: value of %.*s longer than %d bytes, skipped\n",
                        path, lineNo, static_cast<int>(key.size()), key.data(),
                        PROP_VALUE_MAX - 1);
                continue;
            }
            mValues[std::string(key)] = std::string(value);
        }
    }

    std::mutex mLock;
    std::map<std::string, std::string, std::less<>> mValues;
};

// Reads a set, non-empty value; false when the key is unset or its value empty.
bool readValue(const char* key, char out[PROP_VALUE_MAX]) {
    if (key == nullptr) return false;
    return PropertyStore::instance().get(key, out) && out[0] != '\0';
}

template <typename T>
T getSigned(const char* key, T defaultValue, T minValue, T maxValue) {
    char value[PROP_VALUE_MAX];
    if (!readValue(key, value)) return defaultValue;
    char* end = nullptr;
    errno = 0;
    intmax_t result = strtoimax(value, &end, 0);
    if (end == value || *end != '\0' || errno == ERANGE) return defaultValue;
    if (result < minValue || result > maxValue) return defaultValue;
    return static_cast<T>(result);
}

}  // namespace

extern "C" {

int property_get(const char* key, char* value, const char* default_value) {
    if (value == nullptr) return 0;
    if (readValue(key, value)) return static_cast<int>(strlen(value));
    if (default_value == nullptr) {
        value[0] = '\0';
        return 0;
    }
    size_t n = strnlen(default_value, PROP_VALUE_MAX - 1);
    memcpy(value, default_value, n);
    value[n] = '\0';
    return static_cast<int>(n);
}

int8_t property_get_bool(const char* key, int8_t default_value) {
    char value[PROP_VALUE_MAX];
    if (!readValue(key, value)) return default_value;
    static const char* const kTrue[] = {"1", "y", "yes", "on", "true"};
    static const char* const kFalse[] = {"0", "n", "no", "off", "false"};
    for (const char* t : kTrue)
        if (strcmp(value, t) == 0) return 1;
    for (const char* f : kFalse)
        if (strcmp(value, f) == 0) return 0;
    return default_value;
}

int64_t property_get_int64(const char* key, int64_t default_value) {
    return getSigned<int64_t>(key, default_value, INT64_MIN, INT64_MAX);
}

int32_t property_get_int32(const char* key, int32_t default_value) {
    return getSigned<int32_t>(key, default_value, INT32_MIN, INT32_MAX);
}

int property_set(const char* key, const char* value) {
    return PropertyStore::instance().set(key, value);
}

int property_list(void (*propfn)(const char* key, const char* value, void* cookie),
                  void* cookie) {
    if (propfn == nullptr) return -1;
    return PropertyStore::instance().list(propfn, cookie);
}

}  // extern "C"
