#pragma once

// Results of HIDL calls. In-process calls on a host have no transport that can fail, so every
// Return is ok; callers still use isOk()/assertOk() as they would on a device.

#include <cstdlib>

namespace android {
namespace hardware {

namespace details {
class return_status {
public:
    /// Whether the transport delivered the call. Always true on a host.
    bool isOk() const { return true; }
    bool isDeadObject() const { return false; }
    /// Aborts on a transport failure (never on a host).
    void assertOk() const {
        if (!isOk()) abort();
    }
};
}  // namespace details

template <typename T>
class Return : public details::return_status {
public:
    Return(T value) : mValue(value) {}  // NOLINT: implicit like the real type
    T withDefault(T def) const { return isOk() ? mValue : def; }
    operator T() const {
        assertOk();
        return mValue;
    }

private:
    T mValue;
};

template <>
class Return<void> : public details::return_status {};

inline Return<void> Void() {
    return Return<void>();
}

}  // namespace hardware
}  // namespace android
