// Host stand-in for the exception-report library. There is no report service on a host, so
// each report becomes one line on stderr and is always accepted.

#include <kfdv/kfe.h>

#include <cstdio>

namespace {

const char* orNull(const char* text) {
    return text != nullptr ? text : "(null)";
}

int report(const char* kind, const char* module, const char* path, unsigned int flags,
           const char* msg) {
    // One fprintf per report so that concurrent reports do not interleave within a line.
    fprintf(stderr, "kfe %s: module=%s path=%s flags=%#x msg=%s\n", kind, orNull(module),
            orNull(path), flags, orNull(msg));
    return 0;
}

}  // namespace

extern "C" int kfe_system_warning(const char* module, const char* path, unsigned int flags,
                                  const char* msg) {
    return report("warning", module, path, flags, msg);
}

extern "C" int kfe_system_exception(const char* module, const char* path, unsigned int flags,
                                    const char* msg) {
    return report("exception", module, path, flags, msg);
}
