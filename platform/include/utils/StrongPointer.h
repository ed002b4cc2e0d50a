// sp<T>: the platform's strong pointer to a reference-counted object (see RefBase.h).
//
// Host build: a small intrusive pointer. Copying an sp takes a strong reference, destroying
// it drops one; the object deletes itself when the last one goes. An sp object itself is
// not synchronised (like any value), the count it manipulates is atomic, so different sp
// objects naming the same target may be used from different threads.
#pragma once

#include <cstddef>
#include <utility>

namespace android {

template <typename T>
class sp {
public:
    sp() noexcept : m_ptr(nullptr) {}
    sp(std::nullptr_t) noexcept : m_ptr(nullptr) {}  // NOLINT: implicit as on the platform

    // Takes a strong reference to `other` (which may be null); implicit as on the platform.
    sp(T* other) : m_ptr(other) {  // NOLINT
        if (m_ptr != nullptr) {
            m_ptr->incStrong(this);
        }
    }
    template <typename U>
    sp(U* other) : m_ptr(other) {  // NOLINT
        if (m_ptr != nullptr) {
            m_ptr->incStrong(this);
        }
    }

    sp(const sp<T>& other) : m_ptr(other.m_ptr) {
        if (m_ptr != nullptr) {
            m_ptr->incStrong(this);
        }
    }
    template <typename U>
    sp(const sp<U>& other) : m_ptr(other.m_ptr) {  // NOLINT
        if (m_ptr != nullptr) {
            m_ptr->incStrong(this);
        }
    }
    sp(sp<T>&& other) noexcept : m_ptr(other.m_ptr) { other.m_ptr = nullptr; }
    template <typename U>
    sp(sp<U>&& other) noexcept : m_ptr(other.m_ptr) {  // NOLINT
        other.m_ptr = nullptr;
    }

    ~sp() {
        if (m_ptr != nullptr) {
            m_ptr->decStrong(this);
        }
    }

    sp& operator=(const sp<T>& other) {
        sp<T> copy(other);
        swap(copy);
        return *this;
    }
    template <typename U>
    sp& operator=(const sp<U>& other) {
        sp<T> copy(other);
        swap(copy);
        return *this;
    }
    sp& operator=(sp<T>&& other) noexcept {
        sp<T> moved(std::move(other));
        swap(moved);
        return *this;
    }
    template <typename U>
    sp& operator=(sp<U>&& other) noexcept {
        sp<T> moved(std::move(other));
        swap(moved);
        return *this;
    }
    sp& operator=(T* other) {
        sp<T> copy(other);
        swap(copy);
        return *this;
    }
    sp& operator=(std::nullptr_t) {
        clear();
        return *this;
    }

    // Creates a T from `args` and returns the first strong reference to it.
    template <typename... Args>
    static sp<T> make(Args&&... args) {
        return sp<T>(new T(std::forward<Args>(args)...));
    }

    void clear() {
        sp<T> empty;
        swap(empty);
    }

    T& operator*() const { return *m_ptr; }
    T* operator->() const { return m_ptr; }
    T* get() const { return m_ptr; }
    explicit operator bool() const { return m_ptr != nullptr; }

private:
    template <typename Y>
    friend class sp;

    void swap(sp<T>& other) noexcept { std::swap(m_ptr, other.m_ptr); }

    T* m_ptr;
};

template <typename T, typename U>
bool operator==(const sp<T>& a, const sp<U>& b) {
    return a.get() == b.get();
}
template <typename T, typename U>
bool operator!=(const sp<T>& a, const sp<U>& b) {
    return a.get() != b.get();
}
template <typename T, typename U>
bool operator==(const sp<T>& a, const U* b) {
    return a.get() == b;
}
template <typename T, typename U>
bool operator!=(const sp<T>& a, const U* b) {
    return a.get() != b;
}
template <typename T>
bool operator==(const sp<T>& a, std::nullptr_t) {
    return a.get() == nullptr;
}
template <typename T>
bool operator!=(const sp<T>& a, std::nullptr_t) {
    return a.get() != nullptr;
}
template <typename T>
bool operator==(std::nullptr_t, const sp<T>& a) {
    return a.get() == nullptr;
}
template <typename T>
bool operator!=(std::nullptr_t, const sp<T>& a) {
    return a.get() != nullptr;
}

}  // namespace android
