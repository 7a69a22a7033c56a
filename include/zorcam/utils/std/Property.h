#pragma once

/// \file
/// A process-wide key/value store in memory, through which the camera components of one
/// process hand each other settings by name. It is not the Android system-property service:
/// nothing is persisted or shared between processes, and the store starts empty. Values are
/// kept as text and converted on every typed read. Every function may be called from any
/// thread; readers run together, writers exclude each other and all readers.
///
/// The typed readers use android::PropertyMap's conversions unchanged. A failed conversion
/// returns false, leaves value untouched and makes libutils log a warning under the tag
/// "PropertyMap"; an empty text fails without a warning.

#include <zorcam/utils/std/Export.h>

#include <utils/String8.h>

namespace NSCam {
namespace Utils {
/// The process-wide property store.
namespace Property {

/// Removes every key.
ZORCAM_EXPORT void clear();

/// Adds key with value, or replaces the value of an existing key.
/// \param key the name; any text, the empty one included.
/// \param value the text kept.
ZORCAM_EXPORT void set(const android::String8& key, const android::String8& value);

/// Whether a key is present.
/// \param key the name.
/// \return true when key is present.
ZORCAM_EXPORT bool hasKey(const android::String8& key);

/// Reads a value as text.
/// \param key the name.
/// \param value receives the stored text; untouched when key is absent.
/// \return true when key is present.
ZORCAM_EXPORT bool tryGet(const android::String8& key, android::String8& value);


/// Reads a value as a bool.
/// \param key the name.
/// \param value receives true for any non-zero number; untouched on failure.
/// \return true when key is present and its text reads as an int (below).
ZORCAM_EXPORT bool tryGet(const android::String8& key, bool& value);

/// Reads a value as an int. A number beyond the int range is not rejected: it wraps to 32
/// bits.
/// \param key the name.
/// \param value receives the number; untouched on failure.
/// \return true when key is present and its text is a whole decimal number (strtol base 10,
/// leading blanks allowed).
ZORCAM_EXPORT bool tryGet(const android::String8& key, int& value);

/// Reads a value as a float.
/// \param key the name.
/// \param value receives the number; untouched on failure.
/// \return true when key is present and its whole text is a floating-point number (strtof:
/// decimal, hexadecimal, "inf" and "nan" accepted).
ZORCAM_EXPORT bool tryGet(const android::String8& key, float& value);

}  // namespace Property
}  // namespace Utils
}  // namespace NSCam
