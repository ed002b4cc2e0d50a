// RefBase: the platform's base of reference-counted objects, held through sp<T>.
//
// Host build: one atomic strong count, no weak references. The object deletes itself when
// the count drops from one to zero; onFirstRef() runs when the first sp takes hold of it
// (on the thread that made that sp). Thread-safe: the count is atomic.
#pragma once

#include <stdint.h>

#include <atomic>

#include <utils/StrongPointer.h>

namespace android {

class RefBase {
public:
    // `id` identifies the holder on the platform (for reference tracking); unused here.
    void incStrong(const void* id) const;
    void decStrong(const void* id) const;
    // The current number of strong references (for tests and diagnostics).
    int32_t getStrongCount() const;

    RefBase(const RefBase&) = delete;
    RefBase& operator=(const RefBase&) = delete;

protected:
    RefBase();
    virtual ~RefBase();
    // Called once, when the first strong reference is taken.
    virtual void onFirstRef();

private:
    mutable std::atomic<int32_t> mStrong;
};

}  // namespace android
