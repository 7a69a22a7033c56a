#pragma once

/// \file
/// Exported entry points of the log front end, with C linkage.

#include <zorcam/utils/std/Export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Tells whether a property-gated line is to be written under the camera log level read when
/// the library was loaded. Any thread.
/// \param tag not used.
/// \param level the line's level letter: 'E', 'W', 'I', 'D' or 'V'.
/// \return 1 when such a line is written, 0 otherwise (also for any other letter).
ZORCAM_EXPORT int zorcam_testLog(const char* tag, int level);

/// Kept for callers of the engineering-load switch; does nothing.
ZORCAM_EXPORT void setLogLevelToEngLoad(void);

#ifdef __cplusplus
}
#endif
