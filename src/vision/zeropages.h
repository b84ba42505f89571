// Memory that costs nothing until it is used.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <type_traits>

#if defined(__linux__)
#include <sys/mman.h>
#endif

// An array of zeros whose pages cost no memory until they are written to.
template <class T>
class ZeroPages {
 public:
    static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>);

    // Of a `sparse` array few elements are ever used, here and there: huge pages would make most of it real. Others
    // that are large enough ask for them. Throws std::bad_alloc.
    explicit ZeroPages(std::size_t n, bool sparse = false) {
        if (n > (SIZE_MAX - alignof(T)) / sizeof(T)) throw std::bad_alloc();
        const std::size_t size = n * sizeof(T) + alignof(T);
        memory.reset(std::calloc(size, 1));
        if (memory == nullptr) throw std::bad_alloc();
        const auto address = reinterpret_cast<std::uintptr_t>(memory.get());
        first = reinterpret_cast<T*>((address + alignof(T) - 1) / alignof(T) * alignof(T));
#if defined(MADV_NOHUGEPAGE)
        constexpr std::uintptr_t kPage = 4096;  // where pages are larger the advice may be refused, which does no harm
        constexpr std::size_t kHugePage = std::size_t{2} << 20;
        const std::uintptr_t begin = (address + kPage - 1) / kPage * kPage, end = (address + size) / kPage * kPage;
        if (size >= kHugePage)
            ::madvise(reinterpret_cast<void*>(begin), end - begin, sparse ? MADV_NOHUGEPAGE : MADV_HUGEPAGE);
#else
        static_cast<void>(sparse);
#endif
    }
    ZeroPages() = default;
    T& operator[](int k) const {
        return first[k];
    }
    T* data() const {
        return first;
    }
    // Makes elements from .. to - 1 real; their values stay.
    void Touch(int from, int to) const {
        constexpr std::size_t kStep = 4096;
        auto* const begin = reinterpret_cast<volatile unsigned char*>(first + from);
        const std::size_t size = static_cast<std::size_t>(to - from) * sizeof(T);
        for (std::size_t at = 0; at < size; at += kStep) {
            const unsigned char value = begin[at];
            begin[at] = value;
        }
    }

 private:
    struct Free {
        void operator()(void* p) const { std::free(p); }
    };
    std::unique_ptr<void, Free> memory;
    T* first = nullptr;
};
