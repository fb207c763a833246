// Memory for texts on their way through a conversion: a client that wipes its own copies shall find none
// here.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>

namespace orm::platform {

// The standard allocator, which clears what it gives back. Short texts of a std::basic_string stay within the
// object and are overwritten with the stack.
template <class T>
struct WipingAllocator : std::allocator<T> {
  WipingAllocator() = default;
  template <class U>
  WipingAllocator(const WipingAllocator<U>&) noexcept {}
  template <class U>
  struct rebind {
    using other = WipingAllocator<U>;
  };

  void deallocate(T* memory, std::size_t count) noexcept {
    explicit_bzero(memory, count * sizeof(T));
    std::allocator<T>::deallocate(memory, count);
  }
};

}  // namespace orm::platform
