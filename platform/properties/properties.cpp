// Host implementation of Android's system-property calls over one process-wide store, seeded
// once from the build.prop-style file that $ZORCAM_PROPERTIES names. The store is reached
// through a function-local static so that it is usable from other libraries' static
// initialisers, whatever order the loader runs them in.

#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <utility>

#include "PropertyStore.h"

namespace zorcam_properties {

namespace {

std::string_view trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r'))
        s.remove_suffix(1);
    return s;
}

std::string readFile(const char* path, bool* ok) {
    std::ifstream in(path, std::ios::binary);
    *ok = static_cast<bool>(in);
    return *ok ? std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>())
               : std::string();
}

}  // namespace

PropertyStore& PropertyStore::instance() {
    static PropertyStore* sStore = [] {
        auto* store = new PropertyStore;  // never destroyed: read from static destructors too
        const char* path = getenv("ZORCAM_PROPERTIES");
        if (path != nullptr && *path != '\0') {
            bool ok = false;
            const std::string text = readFile(path, &ok);
            if (ok)
                store->load(text, path, stderr);
            else
                fprintf(stderr, "properties: cannot read %s: %s\n", path, strerror(errno));
        }
        return store;
    }();
    return *sStore;
}

std::vector<unsigned> PropertyStore::load(std::string_view text, const char* origin, FILE* report) {
    std::vector<unsigned> skipped;
    auto skip = [&](unsigned lineNo, std::string_view key, const char* why) {
        skipped.push_back(lineNo);
        if (report == nullptr) return;
        if (key.empty())
            fprintf(report, "properties: %s:%u: %s\n", origin, lineNo, why);
        else
            fprintf(report, "properties: %s:%u: value of %.*s %s\n", origin, lineNo,
                    static_cast<int>(key.size()), key.data(), why);
    };
    std::lock_guard<std::mutex> lock(mLock);
    unsigned lineNo = 0;
    while (!text.empty()) {
        ++lineNo;
        const size_t end = text.find('\n');
        const std::string_view s = trim(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (s.empty() || s.front() == '#') continue;
        // A NUL would cut the key or the value short for every C caller.
        const size_t eq = s.find('=');
        if (eq == std::string_view::npos || s.find('\0') != std::string_view::npos) {
            skip(lineNo, {}, "malformed line skipped");
            continue;
        }
        const std::string_view key = trim(s.substr(0, eq));
        if (key.empty()) {
            skip(lineNo, {}, "malformed line skipped");
            continue;
        }
        const std::string_view value = trim(s.substr(eq + 1));
        if (value.size() >= PROP_VALUE_MAX) {
            skip(lineNo, key, "longer than 91 bytes, skipped");
            continue;
        }
        mValues[std::string(key)] = std::string(value);
    }
    return skipped;
}

bool PropertyStore::readValue(const char* key, char out[PROP_VALUE_MAX]) {
    if (key == nullptr) return false;
    std::lock_guard<std::mutex> lock(mLock);
    auto it = mValues.find(std::string_view(key));  // transparent: no allocation on reads
    if (it == mValues.end() || it->second.empty()) return false;
    size_t n = it->second.size();
    if (n > PROP_VALUE_MAX - 1) n = PROP_VALUE_MAX - 1;
    memcpy(out, it->second.data(), n);
    out[n] = '\0';
    return true;
}

int PropertyStore::get(const char* key, char* value, const char* defaultValue) {
    if (value == nullptr) return 0;
    if (readValue(key, value)) return static_cast<int>(strlen(value));
    if (defaultValue == nullptr) {
        value[0] = '\0';
        return 0;
    }
    const size_t n = strnlen(defaultValue, PROP_VALUE_MAX - 1);
    memcpy(value, defaultValue, n);
    value[n] = '\0';
    return static_cast<int>(n);
}

int8_t PropertyStore::getBool(const char* key, int8_t defaultValue) {
    char value[PROP_VALUE_MAX];
    if (!readValue(key, value)) return defaultValue;
    static const char* const kTrue[] = {"1", "y", "yes", "on", "true"};
    static const char* const kFalse[] = {"0", "n", "no", "off", "false"};
    for (const char* t : kTrue)
        if (strcmp(value, t) == 0) return 1;
    for (const char* f : kFalse)
        if (strcmp(value, f) == 0) return 0;
    return defaultValue;
}

template <typename T>
T PropertyStore::getSigned(const char* key, T defaultValue, T minValue, T maxValue) {
    char value[PROP_VALUE_MAX];
    if (!readValue(key, value)) return defaultValue;
    char* end = nullptr;
    errno = 0;
    const intmax_t result = strtoimax(value, &end, 0);
    if (end == value || *end != '\0' || errno == ERANGE) return defaultValue;
    if (result < minValue || result > maxValue) return defaultValue;
    return static_cast<T>(result);
}

int64_t PropertyStore::getInt64(const char* key, int64_t defaultValue) {
    return getSigned<int64_t>(key, defaultValue, INT64_MIN, INT64_MAX);
}

int32_t PropertyStore::getInt32(const char* key, int32_t defaultValue) {
    return getSigned<int32_t>(key, defaultValue, INT32_MIN, INT32_MAX);
}

int PropertyStore::set(const char* key, const char* value) {
    if (key == nullptr || *key == '\0') return -EINVAL;
    if (value == nullptr) value = "";
    if (strlen(value) >= PROP_VALUE_MAX) return -EINVAL;
    std::lock_guard<std::mutex> lock(mLock);
    mValues[std::string(key)] = value;
    return 0;
}

int PropertyStore::list(void (*fn)(const char*, const char*, void*), void* cookie) {
    std::vector<std::pair<std::string, std::string>> copy;
    {
        std::lock_guard<std::mutex> lock(mLock);
        copy.assign(mValues.begin(), mValues.end());
    }
    for (const auto& kv : copy) fn(kv.first.c_str(), kv.second.c_str(), cookie);
    return 0;
}

}  // namespace zorcam_properties

using zorcam_properties::PropertyStore;

extern "C" {

int property_get(const char* key, char* value, const char* default_value) {
    return PropertyStore::instance().get(key, value, default_value);
}

int8_t property_get_bool(const char* key, int8_t default_value) {
    return PropertyStore::instance().getBool(key, default_value);
}

int64_t property_get_int64(const char* key, int64_t default_value) {
    return PropertyStore::instance().getInt64(key, default_value);
}

int32_t property_get_int32(const char* key, int32_t default_value) {
    return PropertyStore::instance().getInt32(key, default_value);
}

int property_set(const char* key, const char* value) {
    return PropertyStore::instance().set(key, value);
}

int property_list(void (*propfn)(const char* key, const char* value, void* cookie), void* cookie) {
    if (propfn == nullptr) return -1;
    return PropertyStore::instance().list(propfn, cookie);
}

}  // extern "C"
