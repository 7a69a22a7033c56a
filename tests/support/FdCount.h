#pragma once

// Counts this process's open descriptors (entries of /proc/self/fd), for tests that check
// nothing is left open.

#include <dirent.h>

namespace zorcam_test {

inline int openFdCount() {
    DIR* dir = opendir("/proc/self/fd");
    if (dir == nullptr) return -1;
    int n = 0;
    while (dirent* e = readdir(dir))
        if (e->d_name[0] != '.') ++n;
    closedir(dir);
    return n - 1;  // the directory stream's own descriptor
}

}  // namespace zorcam_test
