// What the shared library exports: its public interface, including the vtables and typeinfo
// callers need to derive and dynamic_cast, and none of the helpers behind it, so that changing
// a helper never changes the library's binary interface.

#include <zorcam/utils/std/Format.h>

#include <dlfcn.h>
#include <link.h>

#include <gtest/gtest.h>

#include <string>

namespace {

struct Symbol { const char* what; const char* mangled; };

const Symbol kExported[] = {
        {"zorcam_testLog", "zorcam_testLog"},
        {"setLogLevelToEngLoad", "setLogLevelToEngLoad"},
        {"Format::getMapper", "_ZN5NSCam5Utils6Format9getMapperEv"},
        {"typeinfo for Format::CImgFmtNV21", "_ZTIN5NSCam5Utils6Format11CImgFmtNV21E"},
        {"vtable for Format::CBaseImgFmt", "_ZTVN5NSCam5Utils6Format11CBaseImgFmtE"},
        {"vtable for DebugScanLineImp", "_ZTV16DebugScanLineImp"},
        {"typeinfo for ULogPrinter", "_ZTIN5NSCam5Utils4ULog11ULogPrinterE"},
        {"typeinfo for FrameController", "_ZTIN5NSCam5Utils15FrameControllerE"},
        {"IFence::NO_FENCE", "_ZN5NSCam5Utils4Sync6IFence8NO_FENCEE"},
        {"lockNoexcept<android::Mutex>",
         "_ZN5NSCam5Utils12lockNoexceptIN7android5MutexEEEbRSt11unique_lockIT_E"},
};

// Helpers of the log front end, the overlays and private members of exported classes, and
// instantiations of platform templates that callers make for themselves.
const Symbol kHidden[] = {
        {"ULog::cameraLogLevel", "_ZN5NSCam5Utils4ULog14cameraLogLevelEv"},
        {"ULog::writeUnified", "_ZN5NSCam5Utils4ULog12writeUnifiedEPKcNS1_11DetailsTypeES3_z"},
        {"DrawID::always", "_ZN5NSCam5Utils6DrawID6alwaysEv"},
        {"ScanLine::paint", "_ZN5NSCam5Utils8ScanLine5paintEPviiiRKNS1_8SettingsERKNS1_4BandE"},
        {"FrameController::pace", "_ZN5NSCam5Utils15FrameController4paceEl"},
        {"ULogPrinter::pass", "_ZNK5NSCam5Utils4ULog11ULogPrinter4passEv"},
        {"CameraProfile::printLine", "_ZNK5NSCam5Utils13CameraProfile9printLineEcPKc"},
        {"android::RWLock::~RWLock", "_ZN7android6RWLockD1Ev"},
        {"SortedVector<key_value_pair_t<int, sp<IImgFmt>>>::~SortedVector",
         "_ZN7android12SortedVectorINS_16key_value_pair_tIiNS_2spIN5NSCam5Utils6Format7IImgFmtE"
         "EEEEED1Ev"},
};

class ExportsTest : public ::testing::Test {
protected:
    void SetUp() override {
        // Loaded already as this program's dependency; found by its soname.
        mHandle = dlopen("libzorcam_stdutils.so.1", RTLD_LAZY | RTLD_NOLOAD);
        ASSERT_NE(mHandle, nullptr) << dlerror();
        link_map* map = nullptr;
        ASSERT_EQ(dlinfo(mHandle, RTLD_DI_LINKMAP, &map), 0) << dlerror();
        mPath = map->l_name;
    }
    void TearDown() override {
        if (mHandle != nullptr) dlclose(mHandle);
    }

    // Whether the library itself, not one of its dependencies, exports the symbol.
    bool exports(const char* mangled) const {
        void* address = dlsym(mHandle, mangled);
        Dl_info info{};
        return address != nullptr && dladdr(address, &info) != 0 && info.dli_fname != nullptr &&
               mPath == info.dli_fname;
    }

    void* mHandle = nullptr;
    std::string mPath;
};

}  // namespace

TEST_F(ExportsTest, PublicInterfaceIsExportedAndHelpersAreNot) {
    for (const Symbol& s : kExported) EXPECT_TRUE(exports(s.mangled)) << s.what << " is hidden";
    for (const Symbol& s : kHidden) EXPECT_FALSE(exports(s.mangled)) << s.what << " is exported";
}

TEST_F(ExportsTest, CallersDynamicCastDescriptorsToTheirClasses) {
    using namespace NSCam::Utils::Format;
    const ImgFmtMap map = getMapper();
#define ZORCAM_EXPECT_LEAF(name, id, desc, planes, imageBits, bits0, bits1, bits2, family)   \
    EXPECT_NE(dynamic_cast<const CImgFmt##name*>(map.valueFor(id).get()), nullptr) << #name; \
    EXPECT_NE(dynamic_cast<const CBaseImgFmt_##family*>(map.valueFor(id).get()), nullptr) << #name;
    ZORCAM_IMG_FMT_CATALOGUE(ZORCAM_EXPECT_LEAF)
#undef ZORCAM_EXPECT_LEAF
    EXPECT_EQ(dynamic_cast<const CImgFmtNV21*>(map.valueFor(eImgFmt_NV12).get()), nullptr);
}
