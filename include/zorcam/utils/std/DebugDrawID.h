#pragma once

/// \file
/// Frame-ID stamping: block digits or a short text written straight into an 8-bit plane
/// (in practice the luma plane), so a frame's number can be read off the picture.
///
/// Plane model: row r of the plane starts at byte r * stride of buffer; bufSize bytes from
/// buffer may be written. A stamp that does not fit wholly below bufSize is skipped (one debug
/// line, buffer untouched); stamps do not clip at width or stride, a stamp wider than the rest
/// of a row runs on into the next row's bytes. The caller owns the buffer; nothing is kept.
/// bg and fg are byte values 0 to 255: a char argument is taken as an unsigned byte. A null
/// buffer or a zero width or height skips the stamp with a debug line.

#include <zorcam/utils/std/Export.h>

#include <string>

/// Stamps frame numbers with settings read once from the "debug.cam.drawid" properties.
/// Objects are read-only after construction: any number of threads may stamp with one object.
class ZORCAM_EXPORT DebugDrawID {
public:
    /// Makes a stamping object with the usual defaults.
    /// \return new DebugDrawID(5, 200, 200, 10, 250, 20); release it with destroyInstance().
    static DebugDrawID* createInstance();
    /// Deletes this object.
    void destroyInstance();

    /// Reads the "debug.cam.drawid" properties once; the arguments are their defaults.
    /// \param digit how many low decimal digits to stamp.
    /// \param x left edge of the stamp, in bytes from the start of a row.
    /// \param y top row of the stamp.
    /// \param size edge of one glyph cell, in bytes and in rows.
    /// \param bg byte value of the box behind the digits.
    /// \param fg byte value of the digits.
    DebugDrawID(unsigned int digit, unsigned int x, unsigned int y, unsigned int size, char bg,
                char fg);
    ~DebugDrawID();

    /// Whether the caller should stamp.
    /// \return whether stamping was switched on by property when the object was built. draw()
    /// does not look at it: the caller asks first.
    bool needDraw() const;

    /// Stamps the low digits of magicNumber with all of the object's settings.
    /// \param magicNumber the number to stamp, usually the frame number.
    /// \param buffer the plane's first byte; null skips the stamp.
    /// \param width the plane's width in bytes; 0 skips the stamp, otherwise unused.
    /// \param height the plane's height in rows; 0 skips the stamp, otherwise unused.
    /// \param stride bytes from one row to the next.
    /// \param bufSize bytes of buffer that may be written.
    void draw(unsigned int magicNumber, char* buffer, unsigned int width, unsigned int height,
              unsigned int stride, unsigned int bufSize) const;

    /// Stamps the digit lowest decimal digits of number at byte x of row y, with the object's
    /// cell size and byte values.
    /// \param number the number to stamp.
    /// \param digit how many low decimal digits to stamp.
    /// \param x left edge, in bytes from the start of a row.
    /// \param y top row.
    /// \param buffer the plane's first byte; null skips the stamp.
    /// \param width the plane's width in bytes; 0 skips the stamp, otherwise unused.
    /// \param height the plane's height in rows; 0 skips the stamp, otherwise unused.
    /// \param stride bytes from one row to the next.
    /// \param bufSize bytes of buffer that may be written.
    void draw(unsigned int number, unsigned int digit, unsigned int x, unsigned int y,
              char* buffer, unsigned int width, unsigned int height, unsigned int stride,
              unsigned int bufSize) const;

    /// The numeric stamp: an opaque box 5 * size * digit bytes wide and 5 * size rows high,
    /// its top-left corner at byte x of row y, showing the digit lowest decimal digits of
    /// number (leading zeros kept) in fg on bg. Allocates nothing.
    /// \param number the number to stamp.
    /// \param digit how many low decimal digits to stamp.
    /// \param x left edge, in bytes from the start of a row.
    /// \param y top row.
    /// \param buffer the plane's first byte; null skips the stamp.
    /// \param width the plane's width in bytes; 0 skips the stamp, otherwise unused.
    /// \param height the plane's height in rows; 0 skips the stamp, otherwise unused.
    /// \param stride bytes from one row to the next.
    /// \param bufSize bytes of buffer that may be written.
    /// \param size edge of one glyph cell, in bytes and in rows; 0 draws nothing.
    /// \param bg byte value of the box.
    /// \param fg byte value of the digits.
    static void draw(unsigned int number, unsigned int digit, unsigned int x, unsigned int y,
                     char* buffer, unsigned int width, unsigned int height, unsigned int stride,
                     unsigned int bufSize, unsigned int size, char bg, char fg);

    /// The text stamp: digits and letters (lower case drawn as capitals), each 6 * size bytes
    /// wide and 5 * size rows high. Other bytes are not drawn and take no room, but the size
    /// check counts every byte of text. Reads no member of the object.
    /// \param text the text to stamp.
    /// \param x left edge, in bytes from the start of a row.
    /// \param y top row.
    /// \param buffer the plane's first byte; null skips the stamp.
    /// \param width the plane's width in bytes; 0 skips the stamp, otherwise unused.
    /// \param height the plane's height in rows; 0 skips the stamp, otherwise unused.
    /// \param stride bytes from one row to the next.
    /// \param bufSize bytes of buffer that may be written.
    /// \param size edge of one glyph cell, in bytes and in rows.
    /// \param bg byte value behind the glyphs.
    /// \param fg byte value of the glyphs.
    void draw(std::string text, unsigned int x, unsigned int y, char* buffer, unsigned int width,
              unsigned int height, unsigned int stride, unsigned int bufSize, unsigned int size,
              char bg, char fg) const;

private:
    bool mNeedDraw;
    unsigned int mDigit;
    unsigned int mOffsetX;
    unsigned int mOffsetY;
    unsigned int mPixelSize;
    int mBg;
    int mFg;
};
