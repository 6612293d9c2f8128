// Reads shapes and values for a fuzz target from its input bytes; past the
// end every read gives zero, so any input is a valid case.
#ifndef NUMBRA_TESTS_FUZZ_INPUT_H
#define NUMBRA_TESTS_FUZZ_INPUT_H

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

namespace numbra_fuzz {

class FuzzInput {
 public:
  FuzzInput(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  std::uint8_t byte() { return pos_ < size_ ? data_[pos_++] : 0; }

  int below(int bound) { return bound <= 0 ? 0 : byte() % bound; }

  // Mostly zeros, then values around the storage threshold, signed zeros,
  // infinities, NaN and raw bit patterns.
  float value() {
    const std::uint8_t b = byte();
    if (b < 112) return 0.0f;
    static const float kSpecial[] = {1.0f,
                                     -2.5f,
                                     1e-8f,
                                     -1e-8f,
                                     1.0000001e-8f,
                                     -0.0f,
                                     std::numeric_limits<float>::infinity(),
                                     -std::numeric_limits<float>::infinity(),
                                     std::numeric_limits<float>::quiet_NaN(),
                                     std::numeric_limits<float>::denorm_min(),
                                     3e38f};
    constexpr int kCount = sizeof(kSpecial) / sizeof(kSpecial[0]);
    if (b < 112 + 8 * kCount) return kSpecial[(b - 112) / 8];
    std::uint32_t bits = 0;
    for (int i = 0; i < 4; ++i) bits = bits << 8 | byte();
    float v;
    std::memcpy(&v, &bits, sizeof v);
    return v;
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t pos_ = 0;
};

// A broken invariant ends the run with a report the fuzzer keeps.
inline void require(bool holds) {
  if (!holds) std::abort();
}

inline bool same_bits(float a, float b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// The dense conversions keep exactly the elements above 1e-8 in magnitude.
inline bool stored(float v) { return static_cast<double>(std::fabs(v)) > 1e-8; }

}  // namespace numbra_fuzz

#endif  // NUMBRA_TESTS_FUZZ_INPUT_H
