#pragma once

// Argument parsing shared by the sub-commands: sizes, format names and numbers.

#include <zorcam/utils/std/Format.h>

#include <cstdint>
#include <string>

namespace zorcam_util {

/// "WxH" with both sides whole numbers from 1 to 2^31 - 1.
bool parseSize(const std::string& text, uint64_t* width, uint64_t* height);

/// A format given by name (any case) or by id (decimal or 0x-prefixed hexadecimal); null when
/// the registry has no such format. Its id goes to *id when id is not null.
android::sp<NSCam::Utils::Format::IImgFmt> findFormat(const NSCam::Utils::Format::ImgFmtMap& map,
                                                      const std::string& text, int* id = nullptr);

/// A whole decimal number from lo to hi.
bool parseInt(const std::string& text, long lo, long hi, long* value);

/// A decimal number (fractions allowed) from lo to hi.
bool parseDouble(const std::string& text, double lo, double hi, double* value);

/// Makes dir and its parents; false after a line on stderr naming the command when it cannot.
bool makeOutputDir(const char* command, const std::string& dir);

}  // namespace zorcam_util
