// hidl_handle ownership: borrowed pointers are never closed, owned handles are closed and
// deleted exactly once.

#include <hidl/HidlSupport.h>

#include <utility>

namespace android {
namespace hardware {

hidl_handle::hidl_handle(const hidl_handle& other) {
    *this = other;
}

hidl_handle::hidl_handle(hidl_handle&& other) noexcept {
    *this = std::move(other);
}

hidl_handle& hidl_handle::operator=(const hidl_handle& other) {
    if (this == &other) return *this;
    freeHandle();
    if (other.mHandle != nullptr) {
        mHandle = native_handle_clone(other.mHandle);
        mOwnsHandle = mHandle != nullptr;
    }
    return *this;
}

hidl_handle& hidl_handle::operator=(hidl_handle&& other) noexcept {
    if (this == &other) return *this;
    freeHandle();
    mHandle = other.mHandle;
    mOwnsHandle = other.mOwnsHandle;
    other.mHandle = nullptr;
    other.mOwnsHandle = false;
    return *this;
}

hidl_handle::~hidl_handle() {
    freeHandle();
}

hidl_handle& hidl_handle::setTo(native_handle_t* handle, bool shouldOwn) {
    freeHandle();
    mHandle = handle;
    mOwnsHandle = shouldOwn && handle != nullptr;
    return *this;
}

void hidl_handle::freeHandle() {
    if (mOwnsHandle) {
        native_handle_t* handle = const_cast<native_handle_t*>(mHandle);
        native_handle_close(handle);
        native_handle_delete(handle);
    }
    mHandle = nullptr;
    mOwnsHandle = false;
}

}  // namespace hardware
}  // namespace android
