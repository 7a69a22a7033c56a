// Loads the input as the contents of a $ZORCAM_PROPERTIES file into a fresh host property
// store, then reads every key that the text names back as text, flag, 32-bit and 64-bit
// number, and checks what the store answers against what the lines say:
// - every line is a blank or comment, a stored value, or reported as skipped: nothing else;
// - a key reads back as the value of its last good line (the default when that is empty);
// - a number reads back only from text that is a whole number in range, and the two widths
//   agree; a plain decimal reads as its value; a flag only from its ten words.

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <charconv>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "PropertyStore.h"

namespace {

[[noreturn]] void fail(const char* what, const std::string& key, const std::string& value) {
    fprintf(stderr, "property_fuzz: %s (key \"%s\", value \"%s\")\n", what, key.c_str(),
            value.c_str());
    abort();
}

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

// Decimal text as the C library writes numbers: an optional '-' and digits without a
// leading zero.
bool isPlainDecimal(std::string_view s) {
    if (!s.empty() && s.front() == '-') s.remove_prefix(1);
    if (s.empty() || (s.front() == '0' && s.size() > 1)) return false;
    return std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
}

struct Line {
    std::string_view key, value;
    bool ignored;  // blank or comment
};

// What a line can be read as, looked at character by character rather than by the store's
// own trimming: the key is what precedes the first '=' without blanks round it (nor a '\r'
// before the '='), the value what follows without blanks round it nor '\r's at its end.
Line classify(std::string_view line) {
    size_t first = 0;
    while (first < line.size() && isBlank(line[first])) ++first;
    size_t last = line.size();
    while (last > first && (isBlank(line[last - 1]) || line[last - 1] == '\r')) --last;
    if (first == last || line[first] == '#') return {{}, {}, true};
    const std::string_view body = line.substr(first, last - first);
    const size_t eq = body.find('=');
    if (eq == std::string_view::npos) return {{}, {}, false};
    std::string_view key = body.substr(0, eq), value = body.substr(eq + 1);
    while (!key.empty() && (isBlank(key.back()) || key.back() == '\r')) key.remove_suffix(1);
    while (!value.empty() && isBlank(value.front())) value.remove_prefix(1);
    return {key, value, false};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    zorcam_properties::PropertyStore store;
    const std::vector<unsigned> skipped = store.load(text, "fuzz", nullptr);

    // The expected store: the last good line of each key.
    std::map<std::string, std::string> expected;
    std::vector<unsigned> expectedSkips;
    unsigned lineNo = 0;
    for (std::string_view rest = text; !rest.empty();) {
        ++lineNo;
        const size_t end = rest.find('\n');
        const std::string_view line = rest.substr(0, end);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        const Line l = classify(line);
        if (l.ignored) continue;
        const bool good = !l.key.empty() && l.value.size() < PROP_VALUE_MAX &&
                          line.find('\0') == std::string_view::npos;
        if (good)
            expected[std::string(l.key)] = std::string(l.value);
        else
            expectedSkips.push_back(lineNo);
    }
    if (skipped != expectedSkips) fail("skipped lines differ", "", std::string(text));

    for (const auto& [key, value] : expected) {
        char out[PROP_VALUE_MAX];
        memset(out, 0x5A, sizeof(out));
        const int n = store.get(key.c_str(), out, "dflt");
        const std::string got(out, strnlen(out, sizeof(out)));
        if (n != static_cast<int>(got.size())) fail("length differs from the text", key, value);
        if (got != (value.empty() ? "dflt" : value)) fail("text read back differs", key, value);

        const int8_t flag = store.getBool(key.c_str(), -7);
        const bool isTrue =
                value == "1" || value == "y" || value == "yes" || value == "on" || value == "true";
        const bool isFalse =
                value == "0" || value == "n" || value == "no" || value == "off" || value == "false";
        if (flag != (isTrue ? 1 : isFalse ? 0 : -7)) fail("flag read back wrong", key, value);

        // Two defaults tell a parsed value from a default.
        const char* k = key.c_str();
        const int64_t a64 = store.getInt64(k, INT64_MIN), b64 = store.getInt64(k, INT64_MAX);
        const int32_t a32 = store.getInt32(k, INT32_MIN), b32 = store.getInt32(k, INT32_MAX);
        const bool parsed64 = a64 == b64, parsed32 = a32 == b32;
        if (parsed32 && (!parsed64 || a64 != a32)) fail("32-bit read without 64-bit", key, value);
        if (parsed64 && a64 >= INT32_MIN && a64 <= INT32_MAX && !parsed32)
            fail("64-bit value in 32-bit range not read as 32-bit", key, value);
        if (parsed64) {
            // Whatever was parsed is a number with nothing after it.
            const char* v = value.c_str();
            char* end = nullptr;
            errno = 0;
            const intmax_t again = strtoimax(v, &end, 0);
            if (end == v || *end != '\0' || errno == ERANGE || again != a64)
                fail("number read from text that is not one", key, value);
        }
        if (isPlainDecimal(value)) {
            int64_t want = 0;
            const auto [ptr, ec] = std::from_chars(value.data(), value.data() + value.size(), want);
            const bool fits = ec == std::errc() && ptr == value.data() + value.size();
            if (fits != parsed64 || (fits && want != a64)) fail("decimal read wrongly", key, value);
        }
    }
    // Keys the text never set stay unset.
    char out[PROP_VALUE_MAX];
    if (expected.count("fuzz.unset") == 0 && store.get("fuzz.unset", out, nullptr) != 0)
        fail("unset key reads as set", "fuzz.unset", out);
    return 0;
}
