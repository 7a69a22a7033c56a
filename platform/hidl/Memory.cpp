// The ashmem allocator and memory mapper. Blocks are anonymous memfd files, as current Android
// kernels back ashmem: they live in memory, so handing a camera buffer to the dump service
// costs a copy rather than a trip through a disk-backed file (libcutils' host
// ashmem_create_region makes an unlinked file under /tmp). They are shared and mapped the same
// way.

#include <hidlmemory/mapping.h>

#include <android/hidl/allocator/1.0/IAllocator.h>

#include "Ashmem.h"

#include <cutils/native_handle.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>

namespace android {
namespace hardware {

namespace {

using hidl::allocator::V1_0::IAllocator;
using hidl::memory::V1_0::IMemory;

// A sized, sealed-size memory file; -1 when it cannot be made.
int createRegion(uint64_t size) {
    if (size > static_cast<uint64_t>(INT64_MAX)) return -1;
    const int fd = memfd_create("ashmem", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (fd < 0) return -1;
    if (ftruncate(fd, static_cast<off_t>(size)) != 0 ||
        fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

class AshmemAllocator : public IAllocator {
public:
    Return<void> allocate(uint64_t size, allocate_cb cb) override {
        const int fd = createRegion(size);
        native_handle_t* handle = fd >= 0 ? native_handle_create(1, 0) : nullptr;
        if (handle == nullptr) {
            if (fd >= 0) close(fd);
            cb(false, hidl_memory());
            return Void();
        }
        handle->data[0] = fd;
        // Like a block received over a transport, it lives only for the callback.
        cb(true, hidl_memory("ashmem", handle, size));
        native_handle_close(handle);
        native_handle_delete(handle);
        return Void();
    }
};

class AshmemMemory : public IMemory {
public:
    AshmemMemory(void* data, size_t size) : mData(data), mSize(size) {}
    ~AshmemMemory() override { munmap(mData, mSize); }

    // Shared mappings are coherent: access brackets have nothing to do.
    Return<void> update() override { return Void(); }
    Return<void> updateRange(uint64_t, uint64_t) override { return Void(); }
    Return<void> read() override { return Void(); }
    Return<void> readRange(uint64_t, uint64_t) override { return Void(); }
    Return<void> commit() override { return Void(); }
    Return<void*> getPointer() override { return mData; }
    Return<uint64_t> getSize() override { return mSize; }

private:
    void* const mData;
    const size_t mSize;
};

}  // namespace

sp<IMemory> mapMemory(const hidl_memory& memory) {
    const native_handle_t* handle = memory.handle();
    if (memory.name() != "ashmem" || handle == nullptr || handle->numFds < 1) return nullptr;
    const uint64_t size = memory.size();
    const int fd = handle->data[0];
    // Mapping past the region's end would fault on first access instead of failing here.
    struct stat st;
    if (size == 0 || fstat(fd, &st) != 0 || st.st_size < 0 ||
        size > static_cast<uint64_t>(st.st_size) || size > SIZE_MAX) {
        return nullptr;
    }
    void* data = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (data == MAP_FAILED) return nullptr;
    return new AshmemMemory(data, size);
}

namespace host {

sp<hidl::base::V1_0::IBase> createAshmemAllocator() {
    return new AshmemAllocator();
}

}  // namespace host

}  // namespace hardware
}  // namespace android
