#pragma once

// Runs tests of this program again in a child whose camera log level (read once at load) is
// set through $ZORCAM_PROPERTIES, for lines that the default level 2 keeps back.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace zorcam_test {

/// True when the child ran at least one test matching gtestFilter and all of them passed.
inline bool runWithCameraLogLevel(const std::string& gtestFilter, int logLevel) {
    // A child whose level did not take would start another, and so on without end.
    if (getenv("ZORCAM_TEST_CHILD") != nullptr) return false;
    char self[4096] = {}, props[] = "/tmp/zorcam_props_XXXXXX";
    const int fd = readlink("/proc/self/exe", self, sizeof(self) - 1) > 0 ? mkstemp(props) : -1;
    if (fd < 0) return false;
    dprintf(fd, "persist.vendor.zor.camera.log_level=%d\n", logLevel);
    close(fd);
    FILE* child = popen(("ZORCAM_TEST_CHILD=1 ZORCAM_PROPERTIES=" + std::string(props) +
                         " " ZORCAM_TEST_EMULATOR " '" + self + "' --gtest_filter='" +
                         gtestFilter + "'").c_str(), "r");
    std::string text;
    char buf[4096];
    for (size_t n; child != nullptr && (n = fread(buf, 1, sizeof(buf), child)) > 0;)
        text.append(buf, n);
    const int status = child != nullptr ? pclose(child) : -1;
    unlink(props);
    fputs(text.c_str(), stdout);
    // A filter that matches nothing passes too: require a passed test.
    return status == 0 && text.find("[  PASSED  ] 0 tests") == std::string::npos &&
           text.find("[  PASSED  ]") != std::string::npos;
}

}  // namespace zorcam_test
