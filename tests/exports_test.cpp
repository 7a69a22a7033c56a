// What the shared library exports: none of the helpers behind its public interface, so that
// changing a helper never changes the library's binary interface. (The ABI check fails when
// an exported function, variable, vtable or typeinfo goes, but lets new exports pass.)

#include <dlfcn.h>

#include <gtest/gtest.h>

// Whether the library itself, not one of its dependencies, exports the symbol.
static bool exports(const char* mangled) {
    // Found by its soname: loaded already as this program's dependency.
    static void* const lib = dlopen("libzorcam_stdutils.so.1", RTLD_LAZY);
    Dl_info found{}, own{};
    void* address = lib != nullptr ? dlsym(lib, mangled) : nullptr;
    return address != nullptr && dladdr(address, &found) != 0 &&
           dladdr(dlsym(lib, "zorcam_testLog"), &own) != 0 && found.dli_fbase == own.dli_fbase;
}

// Helpers of the log front end, the overlays and private members of exported classes, and
// instantiations of platform templates that callers make for themselves: ULog's cameraLogLevel
// and writeUnified, DrawID::always, ScanLine::paint, FrameController::pace, ULogPrinter::pass,
// CameraProfile::printLine, RWLock's destructor and the format map's. The typeinfo callers need
// to dynamic_cast a format descriptor shows that the look-up finds what is exported.
TEST(ExportsTest, PublicInterfaceIsExportedAndHelpersAreNot) {
    EXPECT_TRUE(exports("_ZTIN5NSCam5Utils6Format11CImgFmtNV21E"));
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
