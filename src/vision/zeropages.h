// Memory that costs nothing until it is used.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>

// An array of zeros whose pages cost no memory until they are written to.
template <class T>
class ZeroPages {
 public:
    explicit ZeroPages(std::size_t n) : memory(std::calloc(n * sizeof(T) + alignof(T), 1)) {
        if (memory == nullptr) throw std::bad_alloc();
        const auto address = reinterpret_cast<std::uintptr_t>(memory.get());
        first = reinterpret_cast<T*>((address + alignof(T) - 1) / alignof(T) * alignof(T));
    }
    ZeroPages() = default;
    T& operator[](int k) const { return first[k]; }
    T* data() const { return first; }

 private:
    struct Free {
        void operator()(void* p) const { std::free(p); }
    };
    std::unique_ptr<void, Free> memory;
    T* first = nullptr;
};
