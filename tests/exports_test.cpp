// What the shared library exports: its public interface, including the vtables and typeinfo
// callers need to derive and dynamic_cast, and none of the helpers behind it, so that changing
// a helper never changes the library's binary interface. (The ABI check fails when an exported
// function or variable goes; it lets new exports pass.)

#include <zorcam/utils/std/Format.h>

#include <dlfcn.h>

#include <gtest/gtest.h>

// Whether the library itself, not one of its dependencies, exports the symbol.
static bool exports(const char* mangled) {
    // Loaded already as this program's dependency; found by its soname.
    static void* const lib = dlopen("libzorcam_stdutils.so.1", RTLD_LAZY | RTLD_NOLOAD);
    Dl_info found{}, own{};
    void* address = lib != nullptr ? dlsym(lib, mangled) : nullptr;
    return address != nullptr && dladdr(address, &found) != 0 &&
           dladdr(dlsym(lib, "zorcam_testLog"), &own) != 0 && found.dli_fbase == own.dli_fbase;
}

TEST(ExportsTest, PublicInterfaceIsExportedAndHelpersAreNot) {
    // The typeinfo of a format leaf, ULogPrinter and FrameController; the vtables of the format
    // base and DebugScanLineImp.
    for (const char* name : {"_ZTIN5NSCam5Utils6Format11CImgFmtNV21E",
                             "_ZTIN5NSCam5Utils4ULog11ULogPrinterE",
                             "_ZTIN5NSCam5Utils15FrameControllerE",
                             "_ZTVN5NSCam5Utils6Format11CBaseImgFmtE", "_ZTV16DebugScanLineImp"})
        EXPECT_TRUE(exports(name)) << name << " is hidden";
    // Helpers of the log front end, the overlays and private members of exported classes, and
    // instantiations of platform templates that callers make for themselves: ULog's
    // cameraLogLevel and writeUnified, DrawID::always, ScanLine::paint, FrameController::pace,
    // ULogPrinter::pass, CameraProfile::printLine, RWLock's destructor and the format map's.
    for (const char* name : {"_ZN5NSCam5Utils4ULog14cameraLogLevelEv",
                             "_ZN5NSCam5Utils4ULog12writeUnifiedEPKcNS1_11DetailsTypeES3_z",
                             "_ZN5NSCam5Utils6DrawID6alwaysEv",
                             "_ZN5NSCam5Utils8ScanLine5paintEPviiiRKNS1_8SettingsERKNS1_4BandE",
                             "_ZN5NSCam5Utils15FrameController4paceEl",
                             "_ZNK5NSCam5Utils4ULog11ULogPrinter4passEv",
                             "_ZNK5NSCam5Utils13CameraProfile9printLineEcPKc",
                             "_ZN7android6RWLockD1Ev",
                             "_ZN7android12SortedVectorINS_16key_value_pair_tIiNS_2spIN5NSCam5Utils"
                             "6Format7IImgFmtEEEEED1Ev"})
        EXPECT_FALSE(exports(name)) << name << " is exported";
}

TEST(ExportsTest, CallersDynamicCastDescriptorsToTheirClasses) {
    using namespace NSCam::Utils::Format;
    const ImgFmtMap map = getMapper();
#define ZORCAM_EXPECT_LEAF(name, id, desc, planes, imageBits, bits0, bits1, bits2, family)   \
    EXPECT_NE(dynamic_cast<const CImgFmt##name*>(map.valueFor(id).get()), nullptr) << #name; \
    EXPECT_NE(dynamic_cast<const CBaseImgFmt_##family*>(map.valueFor(id).get()), nullptr) << #name;
    ZORCAM_IMG_FMT_CATALOGUE(ZORCAM_EXPECT_LEAF)
#undef ZORCAM_EXPECT_LEAF
    EXPECT_EQ(dynamic_cast<const CImgFmtNV21*>(map.valueFor(eImgFmt_NV12).get()), nullptr);
}
