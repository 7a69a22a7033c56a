#pragma once

// Counts this process's open descriptors (entries of /proc/self/fd), for tests that check
// nothing is left open.

#include <dirent.h>

namespace zorcam_test {

inline int openFdCount() {
    DIR* dir = opendir("/proc/self/fd");
    int n = 0;
    while (dirent* e = dir != nullptr ? readdir(dir) : nullptr) n += e->d_name[0] != '.';
    return dir != nullptr && closedir(dir) == 0 ? n - 1 : -1;  // less the stream's descriptor
}

}  // namespace zorcam_test
