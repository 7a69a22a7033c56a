#pragma once

// The host store behind <cutils/properties.h>: one map under a mutex, seeded from
// build.prop-style text, with Android's rules for typed reads. Private to platform/properties;
// the C functions use the process-wide instance, and the fuzz target builds its own stores.

#include <cutils/properties.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace zorcam_properties {

class PropertyStore {
public:
    /// The process-wide store, seeded on first use from the file $ZORCAM_PROPERTIES names.
    static PropertyStore& instance();

    PropertyStore() = default;

    /// Adds the "key = value" lines of `text` (blank lines and '#' comments are ignored; blanks
    /// and tabs round keys and values, and a '\r' before the line end, are dropped). A line
    /// without '=' or key, with a value of PROP_VALUE_MAX bytes or more, or holding a NUL byte
    /// is skipped and reported on `report` (when not null) as "properties: ORIGIN:LINE: why".
    /// Returns the numbers of the lines skipped, counted from 1.
    std::vector<unsigned> load(std::string_view text, const char* origin, FILE* report);

    /// The value, or `defaultValue` (cut to PROP_VALUE_MAX - 1 bytes, "" when null) when the
    /// key is unset or empty; returns its length. `value` holds PROP_VALUE_MAX bytes.
    int get(const char* key, char* value, const char* defaultValue);
    /// 1 for "1", "y", "yes", "on", "true"; 0 for "0", "n", "no", "off", "false"; else the
    /// default.
    int8_t getBool(const char* key, int8_t defaultValue);
    /// The value read as strtoimax does with base 0; the default for unset, empty, unparsable
    /// or out-of-range text.
    int64_t getInt64(const char* key, int64_t defaultValue);
    int32_t getInt32(const char* key, int32_t defaultValue);

    /// 0, or -EINVAL for a null or empty key or a value of PROP_VALUE_MAX bytes or more.
    int set(const char* key, const char* value);
    /// Calls `fn` for every key, without the lock held.
    int list(void (*fn)(const char*, const char*, void*), void* cookie);

private:
    // Copies a set, non-empty value into out; false when the key is unset or its value empty.
    bool readValue(const char* key, char out[PROP_VALUE_MAX]);
    template <typename T>
    T getSigned(const char* key, T defaultValue, T minValue, T maxValue);

    std::mutex mLock;
    std::map<std::string, std::string, std::less<>> mValues;
};

}  // namespace zorcam_properties
