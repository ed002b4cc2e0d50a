// Vector<T>: the platform's array container, as far as binder's dump() needs it.
//
// Host build: a thin wrapper over std::vector. A value type; not synchronised.
#pragma once

#include <sys/types.h>

#include <vector>

namespace android {

template <typename T>
class Vector {
public:
    size_t size() const { return mItems.size(); }
    bool isEmpty() const { return mItems.empty(); }
    // `index` must be below size().
    const T& operator[](size_t index) const { return mItems[index]; }
    const T& itemAt(size_t index) const { return mItems[index]; }
    // Appends `item`; returns its index.
    ssize_t add(const T& item) {
        mItems.push_back(item);
        return static_cast<ssize_t>(mItems.size() - 1);
    }
    void push_back(const T& item) { mItems.push_back(item); }
    void clear() { mItems.clear(); }

private:
    std::vector<T> mItems;
};

}  // namespace android
