// The image-format registry: descriptors, the catalogue's leaf classes and the queries.

#include <zorcam/utils/std/Format.h>

#include "LogMacros.h"

namespace NSCam {
namespace Utils {
namespace Format {

namespace {
constexpr const char* kTag = ::NSCam::Utils::ULog::kUtilsTag;
}  // namespace

// ---- Descriptors

char const* CBaseImgFmt::getName() const {
    return mName.string();
}

size_t CBaseImgFmt::getPlaneCount() const {
    return mPlaneCount;
}

int CBaseImgFmt::getPlaneBitsPerPixel(size_t planeIndex) const {
    // Only three planes are stored; a larger index names no plane of any format.
    return planeIndex < 3 ? mPlaneBitsPerPixel[planeIndex] : 0;
}

int CBaseImgFmt::getImageBitsPerPixel() const {
    return mImageBitsPerPixel;
}

bool CBaseImgFmt::checkValidBufferInfo() const {
    return true;
}

// Members go in reverse order of declaration: the name, then the description.
CBaseImgFmt::~CBaseImgFmt() = default;

#define ZORCAM_FULL_SIZE_RULE(family)                                               \
    size_t family::getPlaneWidthInPixels(size_t, size_t widthInPixels) const {      \
        return widthInPixels;                                                       \
    }                                                                               \
    size_t family::getPlaneHeightInPixels(size_t, size_t heightInPixels) const {    \
        return heightInPixels;                                                      \
    }
ZORCAM_FULL_SIZE_RULE(CBaseImgFmt_1Plane)
ZORCAM_FULL_SIZE_RULE(CBaseImgFmt_WARP_3PLANE)
ZORCAM_FULL_SIZE_RULE(CBaseImgFmt_UFO_3Plane)
#undef ZORCAM_FULL_SIZE_RULE

bool CBaseImgFmt_UFO_3Plane::checkValidBufferInfo() const {
    return false;
}

// Chroma planes (any non-zero index) are the size shifted right by one: 1921 gives 960.
#define ZORCAM_YUV420_RULE(family)                                                          \
    size_t family::getPlaneWidthInPixels(size_t planeIndex, size_t widthInPixels) const {   \
        return widthInPixels >> (planeIndex != 0);                                          \
    }                                                                                       \
    size_t family::getPlaneHeightInPixels(size_t planeIndex, size_t heightInPixels) const { \
        return heightInPixels >> (planeIndex != 0);                                         \
    }
#define ZORCAM_YUV422_RULE(family)                                                          \
    size_t family::getPlaneWidthInPixels(size_t planeIndex, size_t widthInPixels) const {   \
        return widthInPixels >> (planeIndex != 0);                                          \
    }                                                                                       \
    size_t family::getPlaneHeightInPixels(size_t, size_t heightInPixels) const {            \
        return heightInPixels;                                                              \
    }
ZORCAM_YUV420_RULE(CBaseImgFmt_YUV420_2_3_Plane_12Bits)
ZORCAM_YUV420_RULE(CBaseImgFmt_YUV420_2_3_Plane_15Bits)
ZORCAM_YUV420_RULE(CBaseImgFmt_YUV420_2_3_Plane_24Bits)
ZORCAM_YUV422_RULE(CBaseImgFmt_YUV422_2_3_Plane_16Bits)
ZORCAM_YUV422_RULE(CBaseImgFmt_YUV422_2_3_Plane_20Bits)
ZORCAM_YUV422_RULE(CBaseImgFmt_YUV422_2_3_Plane_32Bits)
#undef ZORCAM_YUV420_RULE
#undef ZORCAM_YUV422_RULE

#define ZORCAM_IMG_FMT_LEAF_CTOR(name, id, desc, planes, imageBits, bits0, bits1, bits2, family) \
    CImgFmt##name::CImgFmt##name() {                                                            \
        mDescription = desc;                                                                    \
        mName = #name;                                                                          \
        mFormat = id;                                                                           \
        mPlaneCount = planes;                                                                   \
        mImageBitsPerPixel = imageBits;                                                         \
        mPlaneBitsPerPixel[0] = bits0;                                                          \
        mPlaneBitsPerPixel[1] = bits1;                                                          \
        mPlaneBitsPerPixel[2] = bits2;                                                          \
    }
ZORCAM_IMG_FMT_CATALOGUE(ZORCAM_IMG_FMT_LEAF_CTOR)
#undef ZORCAM_IMG_FMT_LEAF_CTOR

// ---- Registry

MapMgr::MapMgr() : mMap(android::sp<IImgFmt>()) {
    mMap.clear();
#define ZORCAM_IMG_FMT_REGISTER(name, id, ...) \
    mMap.add(id, android::sp<IImgFmt>(new CImgFmt##name()));
    ZORCAM_IMG_FMT_CATALOGUE(ZORCAM_IMG_FMT_REGISTER)
#undef ZORCAM_IMG_FMT_REGISTER
}

MapMgr::~MapMgr() = default;

namespace {
ZORCAM_INIT_FORMAT MapMgr sMapMgr;
}  // namespace

// Queries read the registry in place. It is complete before any caller can run and never
// changes until the library is unloaded, and it keeps a strong reference to every
// descriptor all that time; a shared copy of the map and a strong pointer per query would
// only add six atomic read-modify-writes to every query. The search runs over the sorted
// keys directly: the map type's own indexOfKey compares through a virtual call per step.
struct RegistryAccess {
    static const IImgFmt* find(int imageFormat) {
        const ImgFmtMap& map = sMapMgr.mMap;
        size_t lo = 0;
        size_t hi = map.size();
        while (lo < hi) {
            const size_t mid = lo + (hi - lo) / 2;
            const int key = map.keyAt(mid);
            if (key < imageFormat) {
                lo = mid + 1;
            } else if (imageFormat < key) {
                hi = mid;
            } else {
                return map.valueAt(mid).get();
            }
        }
        return nullptr;
    }
};

MapMgr* getMapMgr() {
    return &sMapMgr;
}

ImgFmtMap getMapper() {
    return sMapMgr.mMap;
}

void dumpMapInformation() {
    const size_t n = getMapper().size();
    if (n == 0) {
        CAM_ULOGW(kTag, "[%s] map size is 0", __func__);
        return;
    }
    CAM_ULOGW(kTag, "[%s] map size is %zu", __func__, n);
    for (size_t i = 0; i < n; ++i) {
        const ImgFmtMap map = getMapper();
        const android::sp<IImgFmt>& fmt = map.valueAt(i);
        CAM_ULOGW(kTag, "[%s] Index (%zu): Key = %#x, value = %s", __func__, i, map.keyAt(i),
                  fmt->getName());
    }
}

// Unregistered id: dump the registry and say which function was asked.
#define ZORCAM_UNSUPPORTED(id)                                                    \
    do {                                                                                 \
        dumpMapInformation();                                                            \
        CAM_ULOGW(kTag, "[%s] Unsupported Image Format: %#x", __func__, id);             \
    } while (0)

bool checkValidFormat(int imageFormat) {
    if (RegistryAccess::find(imageFormat) == nullptr) {
        ZORCAM_UNSUPPORTED(imageFormat);
        return false;
    }
    return true;
}

std::string queryImageFormatName(int imageFormat) {
    const IImgFmt* const fmt = RegistryAccess::find(imageFormat);
    if (fmt == nullptr) {
        ZORCAM_UNSUPPORTED(imageFormat);
        return "unknown";
    }
    return fmt->getName();
}

size_t queryPlaneCount(int imageFormat) {
    const IImgFmt* const fmt = RegistryAccess::find(imageFormat);
    if (fmt == nullptr) {
        ZORCAM_UNSUPPORTED(imageFormat);
        return 0;
    }
    const size_t count = fmt->getPlaneCount();
    CAM_ULOGV(kTag, "[%s] [%s] plane count %zu", __func__, fmt->getName(), count);
    return count;
}

size_t queryPlaneWidthInPixels(int imageFormat, size_t planeIndex, size_t widthInPixels) {
    const IImgFmt* const fmt = RegistryAccess::find(imageFormat);
    if (fmt == nullptr) {
        ZORCAM_UNSUPPORTED(imageFormat);
        return 0;
    }
    const size_t width = fmt->getPlaneWidthInPixels(planeIndex, widthInPixels);
    CAM_ULOGV(kTag, "[%s] [%s] Width in pixels %zu @ %zu-th plane", __func__, fmt->getName(),
              width, planeIndex);
    return width;
}

size_t queryPlaneHeightInPixels(int imageFormat, size_t planeIndex, size_t heightInPixels) {
    const IImgFmt* const fmt = RegistryAccess::find(imageFormat);
    if (fmt == nullptr) {
        ZORCAM_UNSUPPORTED(imageFormat);
        return 0;
    }
    const size_t height = fmt->getPlaneHeightInPixels(planeIndex, heightInPixels);
    CAM_ULOGV(kTag, "[%s] [%s] Height in pixels %zu @ %zu-th plane", __func__, fmt->getName(),
              height, planeIndex);
    return height;
}

int queryPlaneBitsPerPixel(int imageFormat, size_t planeIndex) {
    const IImgFmt* const fmt = RegistryAccess::find(imageFormat);
    if (fmt == nullptr) {
        ZORCAM_UNSUPPORTED(imageFormat);
        return 0;
    }
    const int bits = fmt->getPlaneBitsPerPixel(planeIndex);
    CAM_ULOGV(kTag, "[%s] [%s] bits per pixel %d @ %zu-th plane", __func__, fmt->getName(), bits,
              planeIndex);
    return bits;
}

int queryImageBitsPerPixel(int imageFormat) {
    const IImgFmt* const fmt = RegistryAccess::find(imageFormat);
    if (fmt == nullptr) {
        ZORCAM_UNSUPPORTED(imageFormat);
        return 0;
    }
    const int bits = fmt->getImageBitsPerPixel();
    CAM_ULOGV(kTag, "[%s] [%s] bits per pixel %d", __func__, fmt->getName(), bits);
    return bits;
}

bool checkValidBufferInfo(int imageFormat) {
    const IImgFmt* const fmt = RegistryAccess::find(imageFormat);
    if (fmt == nullptr) {
        ZORCAM_UNSUPPORTED(imageFormat);
        return false;
    }
    return fmt->checkValidBufferInfo();
}

#undef ZORCAM_UNSUPPORTED

}  // namespace Format
}  // namespace Utils
}  // namespace NSCam
