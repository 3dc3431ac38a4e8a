// SPDX-License-Identifier: MIT
// Process-wide state that must stay usable until the very end: it is built on
// first use and never destroyed, so that it is still there for atexit hooks,
// fork handlers, detached threads and other static objects' destructors,
// whatever their order. Header-only: libmup and libzor each keep their own
// (hidden) instantiations.
#ifndef ZOR_BASE_NO_DESTRUCTOR_H
#define ZOR_BASE_NO_DESTRUCTOR_H

#include <new>
#include <utility>

namespace zor
{

template <typename T> class NoDestructor
{
public:
    template <typename... Args> explicit NoDestructor(Args&&... args)
    {
        ::new (static_cast<void*>(m_storage)) T(std::forward<Args>(args)...);
    }
    NoDestructor(const NoDestructor&) = delete;
    NoDestructor& operator=(const NoDestructor&) = delete;

    T& operator*() { return *get(); }
    T* operator->() { return get(); }
    T* get() { return std::launder(reinterpret_cast<T*>(m_storage)); }

private:
    alignas(T) unsigned char m_storage[sizeof(T)];
};

} // namespace zor

#endif
