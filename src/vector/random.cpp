// Uniform random numbers in [0, 1], both ends included, from a Mersenne
// Twister seeded afresh in every call by one 32-bit draw from the system's
// random device. The generator lives on the stack for the one call.
#include <cstdint>
#include <random>
#include <string>

#include "numbra.h"

namespace numbra_internal {
namespace {

// The 32-bit Mersenne Twister with its published parameters. Each output
// advances one state word, so no call pays for a block of 624 it does not
// use; the sequence is the one the block-wise form gives.
class MersenneTwister {
 public:
  explicit MersenneTwister(std::uint32_t seed) {
    state_[0] = seed;
    for (std::uint32_t i = 1; i < kWords; ++i) {
      state_[i] = 1812433253u * (state_[i - 1] ^ (state_[i - 1] >> 30)) + i;
    }
  }

  std::uint32_t next() {
    const unsigned following = index_ + 1 == kWords ? 0 : index_ + 1;
    const unsigned distant = index_ + kShift < kWords ? index_ + kShift : index_ + kShift - kWords;
    const std::uint32_t joined = (state_[index_] & 0x80000000u) | (state_[following] & 0x7fffffffu);
    std::uint32_t word = state_[distant] ^ (joined >> 1) ^ ((joined & 1u) ? 0x9908b0dfu : 0u);
    state_[index_] = word;
    index_ = following;
    word ^= word >> 11;
    word ^= (word << 7) & 0x9d2c5680u;
    word ^= (word << 15) & 0xefc60000u;
    word ^= word >> 18;
    return word;
  }

 private:
  static constexpr unsigned kWords = 624;
  static constexpr unsigned kShift = 397;
  std::uint32_t state_[kWords];
  unsigned index_ = 0;
};

// A float takes one word and a double two, the second word the high half.
// The conversions round to nearest, so the largest words give exactly 1.
inline float uniform(MersenneTwister& words, float) {
  return static_cast<float>(words.next()) * 0x1p-32f;
}

inline double uniform(MersenneTwister& words, double) {
  const double low = static_cast<double>(words.next());
  const double high = static_cast<double>(words.next());
  return (high * 0x1p32 + low) * 0x1p-64;
}

}  // namespace
}  // namespace numbra_internal

namespace ZETL {
namespace numbra {

template <typename T>
void x86VectorRandGenerate(unsigned long n, T* y) {
  // Opening or reading the device may throw; nothing is stored before the
  // seed is in hand.
  std::random_device device(std::string("/dev/urandom"));
  numbra_internal::MersenneTwister words(device());
  for (unsigned long i = 0; i < n; ++i) y[i] = numbra_internal::uniform(words, T());
}

template void x86VectorRandGenerate<float>(unsigned long, float*);
template void x86VectorRandGenerate<double>(unsigned long, double*);

}  // namespace numbra
}  // namespace ZETL
