// An allocator for the few buffers that grow with the input (a syntax tree's tokens and nodes):
// from 1 MiB up, memory comes straight from the kernel marked for transparent huge pages, so that
// touching it the first time costs one fault per 2 MiB rather than one per 4 KiB page. On a
// virtual machine a fault is dear: a 6 MB configuration's tree spent most of its time in them.
// Smaller requests go to the usual allocator.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <new>
#include <vector>

namespace pcfg {

constexpr size_t kLargeAllocation = size_t{1} << 20;

template <class T>
class LargeAllocator {
 public:
  using value_type = T;

  LargeAllocator() = default;
  template <class U>
  LargeAllocator(const LargeAllocator<U>&) {}  // NOLINT(google-explicit-constructor): rebinding

  T* allocate(size_t n) {
    if (n > max_size()) throw std::bad_array_new_length();
    const size_t bytes = n * sizeof(T);
    if (bytes >= kLargeAllocation) {
      void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
      if (memory == MAP_FAILED) throw std::bad_alloc();
      madvise(memory, bytes, MADV_HUGEPAGE);  // advice only: without huge pages it works as well
      return static_cast<T*>(memory);
    }
    return static_cast<T*>(::operator new(bytes));
  }

  void deallocate(T* pointer, size_t n) {
    const size_t bytes = n * sizeof(T);
    if (bytes >= kLargeAllocation) {
      munmap(pointer, bytes);
    } else {
      ::operator delete(pointer);
    }
  }

  static constexpr size_t max_size() { return static_cast<size_t>(-1) / sizeof(T); }

  template <class U>
  bool operator==(const LargeAllocator<U>&) const {
    return true;
  }
  template <class U>
  bool operator!=(const LargeAllocator<U>&) const {
    return false;
  }
};

template <class T>
using LargeVector = std::vector<T, LargeAllocator<T>>;

}  // namespace pcfg
