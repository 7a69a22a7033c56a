#pragma once

/// \file
/// Scan-line overlay: a band of one byte value painted into an 8-bit plane (in practice the
/// luma plane) that moves down the picture by a few rows with every frame. What is painted
/// is read from the "vendor.debug.cam.scanline" properties on every call, so it can be
/// retuned while the camera runs.
///
/// Plane model: row r starts at byte r * stride of buffer; size bytes from buffer may be
/// written, and nothing outside them ever is. The caller owns the buffer; nothing is kept.

#include <zorcam/utils/std/Export.h>

/// The scan-line overlay's interface. One object belongs to one thread at a time; separate
/// objects are independent.
class ZORCAM_EXPORT DebugScanLine {
public:
    /// Makes an overlay object.
    /// \return a new DebugScanLineImp with a frame count of 0; release it with
    /// destroyInstance().
    static DebugScanLine* createInstance();

    virtual ~DebugScanLine();
    /// Deletes this object.
    virtual void destroyInstance() = 0;
    /// Paints one frame's overlay into buffer (width in samples, height in rows, size and
    /// stride in bytes) and advances the band. A buffer smaller than stride * height bytes is
    /// left untouched and does not advance the band. Allocates nothing.
    /// \param width the plane's width in samples (bytes).
    /// \param height the plane's height in rows.
    /// \param buffer the plane's first byte; null leaves nothing painted.
    /// \param size bytes of buffer that may be written.
    /// \param stride bytes from one row to the next.
    virtual void drawScanLine(int width, int height, void* buffer, int size, int stride) = 0;
};

/// The overlay itself; made by DebugScanLine::createInstance().
class ZORCAM_EXPORT DebugScanLineImp : public DebugScanLine {
public:
    /// A frame count of 0: the band starts at the top.
    DebugScanLineImp();
    ~DebugScanLineImp() override;

    void destroyInstance() override;
    void drawScanLine(int width, int height, void* buffer, int size, int stride) override;

private:
    int mFrameCount;  // calls that got past the buffer-size check; places the band
};
