// The random fill. Where the test may create a private mount namespace (as
// root, with unshare), a child process sees a file of known bytes in place
// of /dev/urandom, so its output can be compared word for word with a
// Mersenne Twister seeded by those bytes; an empty file makes the draw fail.
#include <gtest/gtest.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "numbra.h"
#include "support/float_bits.h"
#include "support/guarded_buffer.h"

namespace nb = ZETL::numbra;

namespace {

constexpr unsigned long kCount = 1500;  // more than one state block of words
constexpr int kNoNamespace = 42;
constexpr int kNoBindMount = 43;

// What the child leaves for the parent, in a page they share.
struct Shared {
  float floats[kCount];
  double doubles[kCount];
  int threw[3];
};

Shared& shared_page() {
  static void* const page =
      mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  return *static_cast<Shared*>(page);
}

// Runs `body` in a child whose /dev/urandom holds `bytes`, and returns an
// empty string or the reason why that could not be arranged.
template <class Body>
std::string with_device(const std::vector<unsigned char>& bytes, Body body) {
  if (geteuid() != 0) return "not running as root, so no private mount namespace";
  char path[] = "/tmp/numbra-device-XXXXXX";
  const int fd = mkstemp(path);
  const bool written = fd >= 0 && write(fd, bytes.data(), bytes.size()) == ssize_t(bytes.size());
  if (fd >= 0) close(fd);
  const pid_t pid = written ? fork() : -1;
  if (pid == 0) {
    if (unshare(CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
      _exit(kNoNamespace);
    if (mount(path, "/dev/urandom", nullptr, MS_BIND, nullptr) != 0) _exit(kNoBindMount);
    body();
    _exit(0);
  }
  int status = 0;
  if (pid > 0) waitpid(pid, &status, 0);
  unlink(path);
  if (pid < 0) return "cannot write a device file or fork";
  if (WIFEXITED(status) && WEXITSTATUS(status) == kNoNamespace)
    return "unshare of the mount namespace is not permitted here";
  if (WIFEXITED(status) && WEXITSTATUS(status) == kNoBindMount)
    return "cannot bind-mount over /dev/urandom here";
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
  return "";
}

TEST(RandGenerate, IsTheTwisterSeededByOneDeviceWord) {
  // The seed is the first four bytes in the machine's order; the rest of the
  // file must never be read.
  Shared& out = shared_page();
  std::memset(&out, 0, sizeof(Shared));
  const std::string why = with_device({0x78, 0x56, 0x34, 0x12, 0xde, 0xad, 0xbe, 0xef}, [&] {
    nb::x86VectorRandGenerate<float>(kCount, out.floats);
    nb::x86VectorRandGenerate<double>(kCount, out.doubles);
  });
  if (!why.empty()) GTEST_SKIP() << why;

  std::mt19937 words(0x12345678u);
  for (unsigned long i = 0; i < kCount; ++i) {
    const float want = static_cast<float>(words()) * 0x1p-32f;
    ASSERT_EQ(numbra_test::bits(want), numbra_test::bits(out.floats[i])) << "float " << i;
  }
  words.seed(0x12345678u);
  for (unsigned long i = 0; i < kCount; ++i) {
    const double low = words(), high = words();
    const double want = (high * 0x1p32 + low) * 0x1p-64;
    ASSERT_EQ(numbra_test::bits(want), numbra_test::bits(out.doubles[i])) << "double " << i;
  }
}

TEST(RandGenerate, ThrowsWithoutStoringWhenTheDeviceIsEmpty) {
  Shared& out = shared_page();
  std::fill(out.floats, out.floats + kCount, -1.0f);
  std::fill(out.doubles, out.doubles + kCount, -1.0);
  const std::string why = with_device({}, [&] {
    const auto throws = [](auto call) {
      try {
        call();
      } catch (const std::exception&) {
        return 1;
      }
      return 0;
    };
    out.threw[0] = throws([&] { nb::x86VectorRandGenerate<float>(kCount, out.floats); });
    out.threw[1] = throws([&] { nb::x86VectorRandGenerate<double>(kCount, out.doubles); });
    // The device is opened and read even when nothing is to be stored.
    out.threw[2] = throws([&] { nb::x86VectorRandGenerate<float>(0, nullptr); });
  });
  if (!why.empty()) GTEST_SKIP() << why;
  EXPECT_EQ(1, out.threw[0]);
  EXPECT_EQ(1, out.threw[1]);
  EXPECT_EQ(1, out.threw[2]);
  for (unsigned long i = 0; i < kCount; ++i) {
    ASSERT_EQ(-1.0f, out.floats[i]);
    ASSERT_EQ(-1.0, out.doubles[i]);
  }
}

template <typename T>
class RandGenerateTest : public ::testing::Test {};

using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(RandGenerateTest, Precisions);

// Each call seeds afresh, so two calls differ and call_guarded, which wants
// them alike, does not apply: the guarded buffers are used directly.
TYPED_TEST(RandGenerateTest, FillsExactlyTheRangeWithValuesInTheUnitInterval) {
  using T = TypeParam;
  for (const unsigned long n : numbra_test::boundary_lengths()) {
    numbra_test::GuardedBuffer<T> after(n, numbra_test::Guard::kAfter);
    numbra_test::GuardedBuffer<T> before(n, numbra_test::Guard::kBefore);
    nb::x86VectorRandGenerate<T>(n, after.data());
    nb::x86VectorRandGenerate<T>(n, before.data());
    double sum = 0;
    for (unsigned long i = 0; i < n; ++i) {
      ASSERT_TRUE(after[i] >= T(0) && after[i] <= T(1)) << after[i];
      sum += after[i];
    }
    if (n >= 1000) {
      EXPECT_NEAR(0.5, sum / double(n), 0.05);
    }
    if (n >= 8) {
      EXPECT_NE(0, std::memcmp(after.data(), before.data(), n * sizeof(T)));
    }
  }
}

}  // namespace
