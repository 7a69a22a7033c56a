#pragma once

// HIDL value types for a host: hidl_string, hidl_handle (a native_handle_t, owned or
// borrowed) and hidl_memory (a named shared-memory block described by a handle).

#include <hidl/Status.h>

#include <cutils/native_handle.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace android {
namespace hardware {

class hidl_string {
public:
    hidl_string() = default;
    hidl_string(const char* s) : mBuffer(s != nullptr ? s : "") {}  // NOLINT: implicit
    hidl_string(const std::string& s) : mBuffer(s) {}                // NOLINT: implicit

    const char* c_str() const { return mBuffer.c_str(); }
    size_t size() const { return mBuffer.size(); }
    bool empty() const { return mBuffer.empty(); }
    operator std::string() const { return mBuffer; }  // NOLINT: implicit

    friend bool operator==(const hidl_string& a, const hidl_string& b) {
        return a.mBuffer == b.mBuffer;
    }
    friend bool operator!=(const hidl_string& a, const hidl_string& b) { return !(a == b); }

private:
    std::string mBuffer;
};

/// Holds a native_handle_t. Built from a pointer it borrows the handle; setTo(h, true) makes
/// it the owner, and then it closes the descriptors and deletes the handle when it lets go.
/// A copy always owns a clone of the source's handle.
class hidl_handle {
public:
    hidl_handle() = default;
    hidl_handle(const native_handle_t* handle) : mHandle(handle) {}  // NOLINT: implicit
    hidl_handle(const hidl_handle& other);
    hidl_handle(hidl_handle&& other) noexcept;
    hidl_handle& operator=(const hidl_handle& other);
    hidl_handle& operator=(hidl_handle&& other) noexcept;
    ~hidl_handle();

    hidl_handle& setTo(native_handle_t* handle, bool shouldOwn = false);

    const native_handle_t* getNativeHandle() const { return mHandle; }
    operator const native_handle_t*() const { return mHandle; }  // NOLINT: implicit
    const native_handle_t* operator->() const { return mHandle; }

private:
    void freeHandle();

    const native_handle_t* mHandle = nullptr;
    bool mOwnsHandle = false;
};

/// A shared-memory block: the name of the memory kind ("ashmem"), the handle of its
/// descriptor and its size in bytes. Built from a pointer it borrows the handle; a copy owns
/// a clone.
class hidl_memory {
public:
    hidl_memory() = default;
    hidl_memory(const hidl_string& name, const native_handle_t* handle, size_t size)
        : mHandle(handle), mSize(size), mName(name) {}
    hidl_memory(const hidl_string& name, hidl_handle&& handle, size_t size)
        : mHandle(std::move(handle)), mSize(size), mName(name) {}

    const native_handle_t* handle() const { return mHandle; }
    const hidl_string& name() const { return mName; }
    uint64_t size() const { return mSize; }
    bool valid() const { return handle() != nullptr; }

private:
    hidl_handle mHandle;
    uint64_t mSize = 0;
    hidl_string mName;
};

}  // namespace hardware
}  // namespace android
