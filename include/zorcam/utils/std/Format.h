#pragma once

/// \file
/// The image-format registry: one immutable, reference-counted descriptor per image format,
/// the catalogue of the 82 formats the camera pipeline exchanges, and queries by format id.
/// Everything here is read-only after the library is loaded and may be used from any thread.
///
/// The queries by format id answer an unregistered id with the failure value (false, 0 or
/// "unknown") after the registry is dumped and "Unsupported Image Format" is logged. Plane
/// indexes are not range-checked. On a registered id none allocates (but the name's string).

#include <zorcam/utils/std/Export.h>

#include <utils/KeyedVector.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace NSCam {
namespace Utils {
/// The image-format registry.
namespace Format {

/// A format descriptor. Obtained from the registry (getMapper()); never created by callers.
class ZORCAM_EXPORT IImgFmt : public android::RefBase {
public:
    /// The format's short name.
    /// \return the short name ("NV21"), owned by the descriptor and valid while it lives.
    virtual char const* getName() const = 0;
    /// How many planes the format has.
    /// \return the number of planes: 1, 2 or 3.
    virtual size_t getPlaneCount() const = 0;
    /// The index is not range-checked: any non-zero index of a subsampled format is a chroma
    /// plane.
    /// \param planeIndex the plane, from 0.
    /// \param widthInPixels the image's width.
    /// \return the plane's width in pixels.
    virtual size_t getPlaneWidthInPixels(size_t planeIndex, size_t widthInPixels) const = 0;
    /// The index is not range-checked, as for getPlaneWidthInPixels().
    /// \param planeIndex the plane, from 0.
    /// \param heightInPixels the image's height.
    /// \return the plane's height in pixels.
    virtual size_t getPlaneHeightInPixels(size_t planeIndex, size_t heightInPixels) const = 0;
    /// Bits per pixel of one plane.
    /// \param planeIndex the plane, from 0.
    /// \return bits per pixel of the plane over its own grid; 0 for planes the format does not
    /// have (also for any index of 3 or more).
    virtual int getPlaneBitsPerPixel(size_t planeIndex) const = 0;
    /// Bits per pixel of the whole image.
    /// \return bits per pixel of the whole image over the full-resolution grid.
    virtual int getImageBitsPerPixel() const = 0;
    /// Whether the format's buffer information can be trusted.
    /// \return whether the format's buffer information is valid: false only for the UFO Bayer
    /// formats.
    virtual bool checkValidBufferInfo() const = 0;
};

/// Holds a descriptor's constants; the leaf class of each format sets them once.
class ZORCAM_EXPORT CBaseImgFmt : public IImgFmt {
public:
    char const* getName() const override;
    size_t getPlaneCount() const override;
    int getPlaneBitsPerPixel(size_t planeIndex) const override;
    int getImageBitsPerPixel() const override;
    bool checkValidBufferInfo() const override;

protected:
    ~CBaseImgFmt() override;

    android::String8 mDescription;  ///< The catalogue's description ("NV21, 2 plane ...").
    android::String8 mName;  ///< The short name.
    int32_t mFormat = 0;  ///< The format id (an EImageFormat value).
    size_t mPlaneCount = 0;  ///< 1, 2 or 3.
    int32_t mImageBitsPerPixel = 0;  ///< Bits per pixel over the full-resolution grid.
    int32_t mPlaneBitsPerPixel[3] = {0, 0, 0};  ///< Per plane, over the plane's grid.
};

/// Full-size rule: every plane is W x H.
class ZORCAM_EXPORT CBaseImgFmt_1Plane : public CBaseImgFmt {
public:
    size_t getPlaneWidthInPixels(size_t planeIndex, size_t widthInPixels) const override;
    size_t getPlaneHeightInPixels(size_t planeIndex, size_t heightInPixels) const override;
};

/// Full-size rule, for the warp-map formats.
class ZORCAM_EXPORT CBaseImgFmt_WARP_3PLANE : public CBaseImgFmt {
public:
    size_t getPlaneWidthInPixels(size_t planeIndex, size_t widthInPixels) const override;
    size_t getPlaneHeightInPixels(size_t planeIndex, size_t heightInPixels) const override;
};

/// Full-size rule; buffer information of the UFO Bayer formats is not valid.
class ZORCAM_EXPORT CBaseImgFmt_UFO_3Plane : public CBaseImgFmt {
public:
    size_t getPlaneWidthInPixels(size_t planeIndex, size_t widthInPixels) const override;
    size_t getPlaneHeightInPixels(size_t planeIndex, size_t heightInPixels) const override;
    bool checkValidBufferInfo() const override;
};

/// Declares the 4:2:0 geometry class for formats of the given bits per pixel.
#define ZORCAM_IMG_FMT_YUV420_FAMILY(bits)                                                      \
    /** 4:2:0 rule, bits bits per pixel: chroma planes are half width and half height         \
        (rounded down). */                                                                    \
    class ZORCAM_EXPORT CBaseImgFmt_YUV420_2_3_Plane_##bits##Bits : public CBaseImgFmt {        \
    public:                                                                                     \
        size_t getPlaneWidthInPixels(size_t planeIndex, size_t widthInPixels) const override;   \
        size_t getPlaneHeightInPixels(size_t planeIndex, size_t heightInPixels) const override; \
    };
/// Declares the 4:2:2 geometry class for formats of the given bits per pixel.
#define ZORCAM_IMG_FMT_YUV422_FAMILY(bits)                                                      \
    /** 4:2:2 rule, bits bits per pixel: chroma planes are half width (rounded down) and      \
        full height. */                                                                       \
    class ZORCAM_EXPORT CBaseImgFmt_YUV422_2_3_Plane_##bits##Bits : public CBaseImgFmt {        \
    public:                                                                                     \
        size_t getPlaneWidthInPixels(size_t planeIndex, size_t widthInPixels) const override;   \
        size_t getPlaneHeightInPixels(size_t planeIndex, size_t heightInPixels) const override; \
    };
ZORCAM_IMG_FMT_YUV420_FAMILY(12)
ZORCAM_IMG_FMT_YUV420_FAMILY(15)
ZORCAM_IMG_FMT_YUV420_FAMILY(24)
ZORCAM_IMG_FMT_YUV422_FAMILY(16)
ZORCAM_IMG_FMT_YUV422_FAMILY(20)
ZORCAM_IMG_FMT_YUV422_FAMILY(32)
#undef ZORCAM_IMG_FMT_YUV420_FAMILY
#undef ZORCAM_IMG_FMT_YUV422_FAMILY

/// The catalogue, in the order of registration. Each row:
///   X(name, id, description, planes, image bits, plane bits 0, 1, 2, geometry family).
/// The leaf class is CImgFmt<name>, derived from CBaseImgFmt_<family>.
#define ZORCAM_IMG_FMT_CATALOGUE(X) \
    X(YV12, 0x32315659, "YV12, 3 plane (Y)(V)(U), 420p", 3, 12, 8, 8, 8, YUV420_2_3_Plane_12Bits) \
    X(I420, 0x2007, "I420, 3 plane (Y)(U)(V)", 3, 12, 8, 8, 8, YUV420_2_3_Plane_12Bits) \
    X(NV21, 0x11, "NV21, 2 plane (Y)(VU), 420sp", 2, 12, 8, 16, 0, YUV420_2_3_Plane_12Bits) \
    X(NV12, 0x1000, "NV12, 2 plane (Y)(UV), 420", 2, 12, 8, 16, 0, YUV420_2_3_Plane_12Bits) \
    X(NV12_BLK, 0x2004, "NV12 block, 2 plane (Y)(UV), 420", 2, 12, 8, 16, 0, YUV420_2_3_Plane_12Bits) \
    X(NV21_BLK, 0x2005, "NV21 block, 2 plane (Y)(VU), 420", 2, 12, 8, 16, 0, YUV420_2_3_Plane_12Bits) \
    X(YV16, 0x2006, "YV16, 3 plane (Y)(V)(U), 422", 3, 16, 8, 8, 8, YUV422_2_3_Plane_16Bits) \
    X(NV61, 0x2003, "NV61, 2 plane (Y)(VU), 422", 2, 16, 8, 16, 0, YUV422_2_3_Plane_16Bits) \
    X(NV16, 0x10, "NV16, 2 plane (Y)(UV), 422sp", 2, 16, 8, 16, 0, YUV422_2_3_Plane_16Bits) \
    X(I422, 0x2008, "I422, 3 plane (Y)(V)(U), 422", 3, 16, 8, 8, 8, YUV422_2_3_Plane_16Bits) \
    X(YUY2, 0x14, "YUY2, 1 plane (YUYV), 422i", 1, 16, 16, 0, 0, 1Plane) \
    X(YVYU, 0x2000, "YVYU, 1 plane (YVYU), 422", 1, 16, 16, 0, 0, 1Plane) \
    X(UYVY, 0x2001, "UYVY, 1 plane (UYVY), 422", 1, 16, 16, 0, 0, 1Plane) \
    X(VYUY, 0x2002, "VYUY, 1 plane (VYUY), 422", 1, 16, 16, 0, 0, 1Plane) \
    X(YUYV_Y210, 0x2009, "YUYV, 1 plane (YUYV_Y210), 422", 1, 32, 32, 0, 0, 1Plane) \
    X(YVYU_Y210, 0x200A, "YVYU, 1 plane (YVYU_Y210), 422", 1, 32, 32, 0, 0, 1Plane) \
    X(UYVY_Y210, 0x200B, "UYVY, 1 plane (UYVY_Y210), 422", 1, 32, 32, 0, 0, 1Plane) \
    X(VYUY_Y210, 0x200C, "VYUY, 1 plane (VYUY_Y210), 422", 1, 32, 32, 0, 0, 1Plane) \
    X(YUV_P210, 0x200D, "YUV_P210, 2 plane (Y),(UV) = P210", 2, 32, 16, 32, 0, YUV422_2_3_Plane_32Bits) \
    X(YVU_P210, 0x200E, "YVU_P210, 2 plane (Y),(VU)", 2, 32, 16, 32, 0, YUV422_2_3_Plane_32Bits) \
    X(YUV_P210_3PLANE, 0x200F, "YUV_P210_3PLANE, 3 plane (Y),(U),(V)", 3, 32, 16, 16, 16, YUV422_2_3_Plane_32Bits) \
    X(YUV_P010, 0x2010, "YUV_P010, 2 plane (Y),(UV) = P010", 2, 24, 16, 32, 0, YUV420_2_3_Plane_24Bits) \
    X(YVU_P010, 0x2011, "YVU_P010, 2 plane (Y),(VU)", 2, 24, 16, 32, 0, YUV420_2_3_Plane_24Bits) \
    X(YUV_P010_3PLANE, 0x2012, "YUV_P010_3PLANE, 3 plane (Y),(U),(V)", 3, 24, 16, 16, 16, YUV420_2_3_Plane_24Bits) \
    X(ZOR_YUYV_Y210, 0x2013, "YUYV, 1 plane (ZOR_YUYV_Y210), 422", 1, 20, 20, 0, 0, 1Plane) \
    X(ZOR_YVYU_Y210, 0x2014, "YVYU, 1 plane (ZOR_YVYU_Y210), 422", 1, 20, 20, 0, 0, 1Plane) \
    X(ZOR_UYVY_Y210, 0x2015, "UYVY, 1 plane (ZOR_UYVY_Y210), 422", 1, 20, 20, 0, 0, 1Plane) \
    X(ZOR_VYUY_Y210, 0x2016, "VYUY, 1 plane (ZOR_VYUY_Y210), 422", 1, 20, 20, 0, 0, 1Plane) \
    X(ZOR_YUV_P210, 0x2017, "ZOR_YUV_P210, 2 plane (Y),(UV) = P210", 2, 20, 10, 20, 0, YUV422_2_3_Plane_20Bits) \
    X(ZOR_YVU_P210, 0x2018, "ZOR_YVU_P210, 2 plane (Y),(VU)", 2, 20, 10, 20, 0, YUV422_2_3_Plane_20Bits) \
    X(ZOR_YUV_P210_3PLANE, 0x2019, "ZOR_YUV_P210_3PLANE, 3 plane (Y),(U),(V)", 3, 20, 10, 10, 10, YUV422_2_3_Plane_20Bits) \
    X(ZOR_YUV_P010, 0x201A, "ZOR_YUV_P010, 2 plane (Y),(UV) = P010", 2, 15, 10, 20, 0, YUV420_2_3_Plane_15Bits) \
    X(ZOR_YVU_P010, 0x201B, "ZOR_YVU_P010, 2 plane (Y),(VU)", 2, 15, 10, 20, 0, YUV420_2_3_Plane_15Bits) \
    X(ZOR_YUV_P010_3PLANE, 0x201C, "ZOR_YUV_P010_3PLANE, 3 plane (Y),(U),(V)", 3, 15, 10, 10, 10, YUV420_2_3_Plane_15Bits) \
    X(Y16, 0x20363159, "16-bit Y plane, 1 plane", 1, 16, 16, 0, 0, 1Plane) \
    X(Y8, 0x20203859, " 8-bit Y plane, 1 plane", 1, 8, 8, 0, 0, 1Plane) \
    X(RGB565, 0x4, "RGB565, 1 plane", 1, 16, 16, 0, 0, 1Plane) \
    X(RGB888, 0x3, "RGB888, 1 plane, LSB:R, MSB:B", 1, 24, 24, 0, 0, 1Plane) \
    X(RGBA8888, 0x1, "RGBA8888, 1 plane, LSB:R, MSB:A", 1, 32, 32, 0, 0, 1Plane) \
    X(RGBX8888, 0x2, "RGBX8888, 1 plane, LSB:R, MSB:X", 1, 32, 32, 0, 0, 1Plane) \
    X(BGRA8888, 0x5, "BGRA8888, 1 plane, LSB:B, MSB:A", 1, 32, 32, 0, 0, 1Plane) \
    X(ARGB8888, 0x2100, "ARGB8888, 1 plane, A:LSB, B:MSB", 1, 32, 32, 0, 0, 1Plane) \
    X(RGB48, 0x2101, "RGB48, 1 plane, LSB:R, MSB:B", 1, 48, 48, 0, 0, 1Plane) \
    X(BLOB, 0x21, "BLOB (width=size, height=1)", 1, 8, 8, 0, 0, 1Plane) \
    X(JPEG, 0x2300, "JPEG", 1, 8, 8, 0, 0, 1Plane) \
    X(ISP_TUING, 0x2303, "ISP_TUING", 1, 8, 8, 0, 0, 1Plane) \
    X(BAYER8, 0x2200, "Bayer8", 1, 8, 8, 0, 0, 1Plane) \
    X(BAYER10, 0x2201, "Bayer10", 1, 10, 10, 0, 0, 1Plane) \
    X(BAYER12, 0x2202, "Bayer12", 1, 12, 12, 0, 0, 1Plane) \
    X(BAYER14, 0x2203, "Bayer14", 1, 14, 14, 0, 0, 1Plane) \
    X(WARP_1PLANE, 0x2219, "WARP_1PLANE", 1, 32, 32, 0, 0, 1Plane) \
    X(WARP_2PLANE, 0x221A, "WARP_2PLANE", 2, 64, 32, 32, 0, WARP_3PLANE) \
    X(WARP_3PLANE, 0x221B, "WARP_3PLANE", 3, 96, 32, 32, 32, WARP_3PLANE) \
    X(RAW16, 0x20, "RAW16", 1, 16, 16, 0, 0, 1Plane) \
    X(FG_BAYER8, 0x2204, "FG_Bayer8", 1, 12, 12, 0, 0, 1Plane) \
    X(FG_BAYER10, 0x2205, "FG_Bayer10", 1, 15, 15, 0, 0, 1Plane) \
    X(FG_BAYER12, 0x2206, "FG_Bayer12", 1, 18, 18, 0, 0, 1Plane) \
    X(FG_BAYER14, 0x2207, "FG_Bayer14", 1, 21, 21, 0, 0, 1Plane) \
    X(UFO_BAYER8, 0x2208, "UFO_BAYER8", 3, 12, 12, 12, 0, UFO_3Plane) \
    X(UFO_BAYER10, 0x2209, "UFO_BAYER10", 3, 15, 15, 15, 0, UFO_3Plane) \
    X(UFO_BAYER12, 0x220A, "UFO_BAYER12", 3, 18, 18, 18, 0, UFO_3Plane) \
    X(UFO_BAYER14, 0x220B, "UFO_BAYER14", 3, 21, 21, 21, 0, UFO_3Plane) \
    X(UFO_FG_BAYER8, 0x220C, "UFO_FG_BAYER8", 3, 12, 12, 12, 0, UFO_3Plane) \
    X(UFO_FG_BAYER10, 0x220D, "UFO_FG_BAYER10", 3, 15, 15, 15, 0, UFO_3Plane) \
    X(UFO_FG_BAYER12, 0x220E, "UFO_FG_BAYER12", 3, 18, 18, 18, 0, UFO_3Plane) \
    X(UFO_FG_BAYER14, 0x220F, "UFO_FG_BAYER14", 3, 21, 21, 21, 0, UFO_3Plane) \
    X(BAYER8_UNPAK, 0x2212, "Bayer8 unpak, 16bits", 1, 16, 16, 0, 0, 1Plane) \
    X(BAYER10_UNPAK, 0x2213, "Bayer10 unpak, 16bits", 1, 16, 16, 0, 0, 1Plane) \
    X(BAYER12_UNPAK, 0x2214, "Bayer12 unpak, 16bits", 1, 16, 16, 0, 0, 1Plane) \
    X(BAYER14_UNPAK, 0x2215, "Bayer14 unpak, 16bits", 1, 16, 16, 0, 0, 1Plane) \
    X(BAYER15_UNPAK, 0x2216, "Bayer15 unpak, 16bits", 1, 16, 16, 0, 0, 1Plane) \
    X(BAYER16_UNPAK, 0x2217, "Bayer16 unpak, 16bits", 1, 16, 16, 0, 0, 1Plane) \
    X(BAYER22_PAK, 0x2218, "Bayer24 pak, 24bits", 1, 24, 24, 0, 0, 1Plane) \
    X(BAYER16_APPLY_LSC, 0x221C, "Bayer16 apply LSC, 16-bit", 1, 16, 16, 0, 0, 1Plane) \
    X(STA_BYTE, 0x2400, "statistic format, 8-bit", 1, 8, 8, 0, 0, 1Plane) \
    X(STA_2BYTE, 0x2401, "statistic format, 16-bit", 1, 16, 16, 0, 0, 1Plane) \
    X(STA_4BYTE, 0x2402, "statistic format, 32-bit", 1, 32, 32, 0, 0, 1Plane) \
    X(STA_10BIT, 0x2403, "statistic format, 10-bit", 1, 10, 10, 0, 0, 1Plane) \
    X(STA_12BIT, 0x2404, "statistic format, 12-bit", 1, 12, 12, 0, 0, 1Plane) \
    X(CAMERA_OPAQUE, 0x111, "Opaque Reprocessing", 1, 10, 10, 0, 0, 1Plane) \
    X(UFO_FG, 0x2210, "ufo length table, 8-bit", 1, 8, 8, 0, 0, 1Plane) \
    X(BAYER10_MIPI, 0x2211, "Bayer10 Mipi", 1, 10, 10, 0, 0, 1Plane)

/// Format ids, one per catalogue row.
enum EImageFormat : int {
/// One enumerator per catalogue row: eImgFmt_<name> = id.
#define ZORCAM_IMG_FMT_ID(name, id, ...) eImgFmt_##name = id,
    ZORCAM_IMG_FMT_CATALOGUE(ZORCAM_IMG_FMT_ID)
#undef ZORCAM_IMG_FMT_ID
};

/// Declares the leaf descriptor class of one catalogue row.
#define ZORCAM_IMG_FMT_LEAF(name, id, desc, planes, imageBits, bits0, bits1, bits2, family) \
    /** The name descriptor (id id): desc; planes planes, imageBits bits per pixel. */      \
    class ZORCAM_EXPORT CImgFmt##name : public CBaseImgFmt_##family {                       \
    public:                                                                                 \
        /** Sets the catalogue row's constants; the registry makes the one instance. */    \
        CImgFmt##name();                                                                    \
    };
ZORCAM_IMG_FMT_CATALOGUE(ZORCAM_IMG_FMT_LEAF)
#undef ZORCAM_IMG_FMT_LEAF

/// Format id to descriptor, sorted by id; absent ids map to a null pointer.
using ImgFmtMap = android::DefaultKeyedVector<int, android::sp<IImgFmt>>;

/// The one process-wide registry, built when the library is loaded and never changed.
class ZORCAM_EXPORT MapMgr {
public:
    /// Registers every catalogue row; the library makes the one instance (getMapMgr()).
    MapMgr();
    ~MapMgr();

private:
    friend ImgFmtMap getMapper();
    friend struct RegistryAccess;  // the queries' in-place lookup
    ImgFmtMap mMap;
};

/// The process-wide registry.
/// \return the registry; never null.
ZORCAM_EXPORT MapMgr* getMapMgr();

/// The registry's map, shared until changed.
/// \return a copy of the registry's map. It shares the registry's storage (no entry is
/// copied) until the caller changes its copy; changes affect the copy only.
ZORCAM_EXPORT ImgFmtMap getMapper();

/// Writes the whole registry to the log as warnings: the size, then one line per entry.
ZORCAM_EXPORT void dumpMapInformation();


/// Whether a format id is registered.
/// \param imageFormat a format id.
/// \return whether the id is registered (an unregistered id is also logged, as below).
ZORCAM_EXPORT bool checkValidFormat(int imageFormat);
/// A format's short name.
/// \param imageFormat a format id.
/// \return the format's short name; "unknown" for an unregistered id.
ZORCAM_EXPORT std::string queryImageFormatName(int imageFormat);
/// A format's plane count.
/// \param imageFormat a format id.
/// \return the number of planes; 0 for an unregistered id.
ZORCAM_EXPORT size_t queryPlaneCount(int imageFormat);
/// A plane's width for an image width.
/// \param imageFormat a format id.
/// \param planeIndex the plane, from 0 (not range-checked).
/// \param widthInPixels the image's width.
/// \return the plane's width in pixels; 0 for an unregistered id.
ZORCAM_EXPORT size_t queryPlaneWidthInPixels(int imageFormat, size_t planeIndex,
                                             size_t widthInPixels);
/// A plane's height for an image height.
/// \param imageFormat a format id.
/// \param planeIndex the plane, from 0 (not range-checked).
/// \param heightInPixels the image's height.
/// \return the plane's height in pixels; 0 for an unregistered id.
ZORCAM_EXPORT size_t queryPlaneHeightInPixels(int imageFormat, size_t planeIndex,
                                              size_t heightInPixels);
/// A plane's bits per pixel.
/// \param imageFormat a format id.
/// \param planeIndex the plane, from 0.
/// \return bits per pixel of the plane over its own grid; 0 for a plane the format does not
/// have or an unregistered id.
ZORCAM_EXPORT int queryPlaneBitsPerPixel(int imageFormat, size_t planeIndex);
/// An image's bits per pixel.
/// \param imageFormat a format id.
/// \return bits per pixel of the whole image; 0 for an unregistered id.
ZORCAM_EXPORT int queryImageBitsPerPixel(int imageFormat);
/// Whether a format's buffer information can be trusted.
/// \param imageFormat a format id.
/// \return false for the UFO Bayer formats and an unregistered id, true otherwise.
ZORCAM_EXPORT bool checkValidBufferInfo(int imageFormat);

}  // namespace Format
}  // namespace Utils
}  // namespace NSCam
