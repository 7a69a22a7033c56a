#pragma once

// Scan-line overlay: a band of one byte value painted into an 8-bit plane (in practice the
// luma plane) that moves down the picture by a few rows with every frame. What is painted
// is read from the "vendor.debug.cam.scanline" properties on every call, so it can be
// retuned while the camera runs.
//
// Plane model: row r starts at byte r * stride of buffer; size bytes from buffer may be
// written, and nothing outside them ever is. The caller owns the buffer; nothing is kept.
// One object belongs to one thread at a time; separate objects are independent.

#include <zorcam/utils/std/Export.h>

class ZORCAM_EXPORT DebugScanLine {
public:
    /// A new DebugScanLineImp with a frame count of 0; release it with destroyInstance().
    static DebugScanLine* createInstance();

    virtual ~DebugScanLine();
    /// Deletes this object.
    virtual void destroyInstance() = 0;
    /// Paints one frame's overlay into buffer (width in samples, height in rows, size and
    /// stride in bytes) and advances the band. A buffer smaller than stride * height bytes is
    /// left untouched and does not advance the band. Allocates nothing.
    virtual void drawScanLine(int width, int height, void* buffer, int size, int stride) = 0;
};

class ZORCAM_EXPORT DebugScanLineImp : public DebugScanLine {
public:
    DebugScanLineImp();
    ~DebugScanLineImp() override;

    void destroyInstance() override;
    void drawScanLine(int width, int height, void* buffer, int size, int stride) override;

private:
    int mFrameCount;  // calls that got past the buffer-size check; places the band
};
