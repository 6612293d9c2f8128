// A program that knows the library only from its installed files.
#include <numbra.h>

#include <cstdio>

int main() {
  const float x[5] = {1, 2, 3, 4, 5};
  float y[5] = {0, 0, 0, 0, 0};
  ZETL::numbra::x86VectorAxpby<float>(5, 2.0f, x, 0.0f, y);
  const float sum = ZETL::numbra::x86VectorSum<float>(5, y);
  std::printf("sum %g\n", sum);
  return sum == 30.0f ? 0 : 1;
}
