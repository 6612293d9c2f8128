// Buffers that fault on the first access outside their range: the elements
// sit flush against an inaccessible page, after their end or before their
// start.
#ifndef NUMBRA_TESTS_GUARDED_BUFFER_H
#define NUMBRA_TESTS_GUARDED_BUFFER_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace numbra_test {

enum class Guard { kAfter, kBefore };

template <typename T>
class GuardedBuffer {
 public:
  GuardedBuffer(std::size_t count, Guard guard) : count_(count) {
    const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t bytes = count * sizeof(T);
    const std::size_t data_pages = (bytes + page - 1) / page;
    mapped_bytes_ = (data_pages + 1) * page;
    void* base =
        mmap(nullptr, mapped_bytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (base == MAP_FAILED) throw std::runtime_error("mmap failed");
    mapping_ = static_cast<unsigned char*>(base);
    unsigned char* guard_page;
    if (guard == Guard::kAfter) {
      guard_page = mapping_ + data_pages * page;
      data_ = reinterpret_cast<T*>(guard_page - bytes);
    } else {
      guard_page = mapping_;
      data_ = reinterpret_cast<T*>(mapping_ + page);
    }
    if (mprotect(guard_page, page, PROT_NONE) != 0) throw std::runtime_error("mprotect failed");
  }
  GuardedBuffer(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(const GuardedBuffer&) = delete;
  ~GuardedBuffer() { munmap(mapping_, mapped_bytes_); }

  T* data() { return data_; }
  std::size_t size() const { return count_; }
  T& operator[](std::size_t i) { return data_[i]; }

  void assign(const T* values) {
    if (count_ != 0) std::memcpy(data_, values, count_ * sizeof(T));
  }

 private:
  std::size_t count_;
  std::size_t mapped_bytes_ = 0;
  unsigned char* mapping_ = nullptr;
  T* data_ = nullptr;
};

}  // namespace numbra_test

#endif  // NUMBRA_TESTS_GUARDED_BUFFER_H
