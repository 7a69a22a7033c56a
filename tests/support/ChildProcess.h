#pragma once

// Runs tests of this program again in a child process whose camera log level (read once when
// the library is loaded) is set through $ZORCAM_PROPERTIES, for lines that the default level 2
// keeps back. The child's test output goes to the same stdout.

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace zorcam_test {

/// Runs the tests matching gtestFilter in a child of this program with the camera log level
/// set to logLevel; true when the child ran at least one test and all of them passed.
inline bool runWithCameraLogLevel(const std::string& gtestFilter, int logLevel) {
    char path[] = "/tmp/zorcam_props_XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0) return false;
    const std::string content =
            "persist.vendor.zor.camera.log_level=" + std::to_string(logLevel) + "\n";
    const bool written = write(fd, content.data(), content.size()) ==
                         static_cast<ssize_t>(content.size());
    close(fd);
    if (!written) {
        unlink(path);
        return false;
    }
    fflush(nullptr);
    const std::string filter = "--gtest_filter=" + gtestFilter;
    int pipeFds[2];
    if (pipe(pipeFds) != 0) {
        unlink(path);
        return false;
    }
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(pipeFds[1], STDOUT_FILENO);
        close(pipeFds[0]);
        close(pipeFds[1]);
        setenv("ZORCAM_PROPERTIES", path, 1);
        execl("/proc/self/exe", "/proc/self/exe", filter.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    close(pipeFds[1]);
    std::string output;
    char chunk[4096];
    ssize_t n;
    while ((n = read(pipeFds[0], chunk, sizeof(chunk))) > 0) output.append(chunk, n);
    close(pipeFds[0]);
    int status = 0;
    const bool waited = pid > 0 && waitpid(pid, &status, 0) == pid;
    unlink(path);
    fputs(output.c_str(), stdout);
    // A filter that matches nothing also exits with 0: require a passed test.
    const bool ranSome = output.find("[  PASSED  ] 0 tests") == std::string::npos &&
                         output.find("[  PASSED  ]") != std::string::npos;
    return waited && WIFEXITED(status) && WEXITSTATUS(status) == 0 && ranSome;
}

}  // namespace zorcam_test
