#pragma once

// Exported entry points of the log front end, with C linkage.

#include <zorcam/utils/std/Export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Whether a property-gated line of level letter 'E', 'W', 'I', 'D' or 'V' is to be written
/// under the camera log level read when the library was loaded: 1 or 0. The tag is not used.
ZORCAM_EXPORT int zorcam_testLog(const char* tag, int level);

/// Kept for callers of the engineering-load switch; does nothing.
ZORCAM_EXPORT void setLogLevelToEngLoad(void);

#ifdef __cplusplus
}
#endif
