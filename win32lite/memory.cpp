// Global memory with the Windows behaviour the library relies on.
//
// Fixed blocks (GMEM_FIXED) are their own address; movable blocks are handles
// to a record that holds the address and a lock count. A movable block of zero
// bytes exists but cannot be locked, as on Windows. Every block is allocated
// with exactly its size, so AddressSanitizer sees any access past its end.
// Unknown handles are refused, never dereferenced.
#include "win32lite.h"
#include "win32lite_test.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <unordered_map>

namespace {

struct Block {
    void *data = nullptr;
    SIZE_T size = 0;
    bool movable = false;
    int locks = 0;
};

struct Registry {
    std::mutex mutex;
    std::unordered_map<void *, Block> blocks; // key: the handle
    long allocCalls = 0, lockCalls = 0;
    long failAllocAt = 0, failLockAt = 0, failAllocFrom = 0;
    SIZE_T sizeLimit = 0; // 0: any size
};

Registry &registry() {
    static Registry *r = new Registry; // outlives every static destructor
    return *r;
}

bool Trips(long &failAt) {
    if (failAt <= 0) return false;
    return --failAt == 0;
}

} // namespace

extern "C" {

HGLOBAL GlobalAlloc(UINT flags, SIZE_T bytes) {
    Registry &r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    ++r.allocCalls;
    const bool outOfMemory = r.failAllocFrom && r.allocCalls >= r.failAllocFrom;
    if (Trips(r.failAllocAt) || outOfMemory || (r.sizeLimit && bytes > r.sizeLimit)) return nullptr;
    Block b;
    b.size = bytes;
    b.movable = (flags & GMEM_MOVEABLE) != 0;
    if (bytes > 0) {
        b.data = (flags & GMEM_ZEROINIT) ? std::calloc(1, bytes) : std::malloc(bytes);
        if (!b.data) return nullptr;
    } else if (!b.movable) {
        b.data = std::malloc(1); // a fixed block needs an address of its own
        if (!b.data) return nullptr;
    }
    void *handle;
    if (b.movable) {
        handle = std::malloc(1); // a distinct, stable handle value
        if (!handle) {
            std::free(b.data);
            return nullptr;
        }
    } else {
        handle = b.data;
    }
    r.blocks.emplace(handle, b);
    return handle;
}

LPVOID GlobalLock(HGLOBAL mem) {
    Registry &r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    ++r.lockCalls;
    if (Trips(r.failLockAt)) return nullptr;
    auto it = r.blocks.find(mem);
    if (it == r.blocks.end()) return nullptr;
    Block &b = it->second;
    if (!b.movable) return b.data;
    if (b.size == 0) return nullptr; // discarded: nothing to lock
    if (b.locks < GMEM_LOCKCOUNT) ++b.locks;
    return b.data;
}

BOOL GlobalUnlock(HGLOBAL mem) {
    Registry &r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    auto it = r.blocks.find(mem);
    if (it == r.blocks.end()) return FALSE;
    Block &b = it->second;
    if (!b.movable || b.locks == 0) return FALSE;
    --b.locks;
    return b.locks != 0;
}

HGLOBAL GlobalFree(HGLOBAL mem) {
    Registry &r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    auto it = r.blocks.find(mem);
    if (it == r.blocks.end()) return mem;
    Block b = it->second;
    r.blocks.erase(it);
    std::free(b.data);
    if (b.movable) std::free(mem);
    return nullptr;
}

SIZE_T GlobalSize(HGLOBAL mem) {
    Registry &r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    auto it = r.blocks.find(mem);
    return it == r.blocks.end() ? 0 : it->second.size;
}

UINT GlobalFlags(HGLOBAL mem) {
    Registry &r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    auto it = r.blocks.find(mem);
    if (it == r.blocks.end()) return GMEM_INVALID_HANDLE;
    const Block &b = it->second;
    UINT flags = static_cast<UINT>(b.locks) & GMEM_LOCKCOUNT;
    if (b.movable && b.size == 0) flags |= GMEM_DISCARDED;
    return flags;
}

} // extern "C"

namespace win32lite {

Census TakeCensus() {
    Registry &r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    Census c;
    for (const auto &entry : r.blocks) {
        ++c.liveBlocks;
        if (entry.second.movable) ++c.movableBlocks;
        c.outstandingLocks += entry.second.locks;
    }
    return c;
}

int LockCountOf(HGLOBAL block) {
    Registry &r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    auto it = r.blocks.find(block);
    return it == r.blocks.end() ? -1 : it->second.locks;
}

long AllocationCalls() {
    std::lock_guard<std::mutex> lock(registry().mutex);
    return registry().allocCalls;
}

long LockCalls() {
    std::lock_guard<std::mutex> lock(registry().mutex);
    return registry().lockCalls;
}

void FailAllocationAt(long n) {
    std::lock_guard<std::mutex> lock(registry().mutex);
    registry().failAllocAt = n;
}

void FailAllocationsFrom(long n) {
    std::lock_guard<std::mutex> lock(registry().mutex);
    registry().failAllocFrom = n;
}

void FailLockAt(long n) {
    std::lock_guard<std::mutex> lock(registry().mutex);
    registry().failLockAt = n;
}

void LimitBlockSize(SIZE_T bytes) {
    std::lock_guard<std::mutex> lock(registry().mutex);
    registry().sizeLimit = bytes;
}

void ResetMemoryFaults() {
    Registry &r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.allocCalls = r.lockCalls = 0;
    r.failAllocAt = r.failLockAt = r.failAllocFrom = 0;
}

} // namespace win32lite
