// The two walks that cut len rows (or columns) into `parts` ranges of about
// quota = total / parts entries each. idx[p] is the first row of range p.
//
// The pointer walk runs on running sums ptr[0..len] and puts each boundary
// at the nearer of the two row starts around its target, a tie going up.
// The count walk runs on per-row counts (counts[i + 1] for row i) and keeps
// its own running sum s; its boundaries land one row later than the pointer
// walk's unless it steps back, its step back compares against the count that
// comes next, and after a step back s is short by that count and the next
// pass adds the current one again. Both behaviours are the library's
// contract.
//
// Internal linkage: included by files built for different instruction sets.
#ifndef NUMBRA_SPARSE_SPLIT_WALK_H
#define NUMBRA_SPARSE_SPLIT_WALK_H

namespace numbra_internal {
namespace {

// Writes idx[0] and idx[parts]; in between, walk(quota) writes the other
// boundaries. With fewer than two parts there is nothing to walk, and the
// end goes to idx[1].
template <typename Walk>
void split_ranges(int len, unsigned long total, int parts, int* idx, Walk walk) {
  idx[0] = 0;
  const unsigned long quota = total / static_cast<unsigned long>(parts);
  if (parts < 2) {
    idx[1] = len;
    return;
  }
  walk(quota);
  idx[parts] = len;
}

// A zero quota can bring the search to row 0 with a target of 0, where the
// row start before it counts as 0.
inline void pointer_walk(const int* ptr, int parts, unsigned long quota, int* idx) {
  int r = 1;
  for (int p = 1; p < parts; ++p) {
    const long target = static_cast<long>(static_cast<unsigned long>(p) * quota);
    int q = r - 1;
    do {
      ++q;
    } while (ptr[q] < target);
    const long below = q == 0 ? 0 : ptr[q - 1];
    const long over = ptr[q] - target;
    const long under = target - below;
    r = over > under ? q - 1 : q;
    idx[p] = r;
  }
}

// Counts past counts[len] read as zero, and a search that has used up the
// counts without reaching its target stops there.
inline void count_walk(const int* counts, int len, int parts, unsigned long quota, int* idx) {
  auto count = [&](long i) -> long { return i <= len ? counts[i] : 0; };
  long s = 0;
  long c = 1;
  for (int p = 1; p < parts; ++p) {
    const long target = static_cast<long>(static_cast<unsigned long>(p) * quota);
    long old;
    do {
      old = c;
      c = old + 1;
      s += count(old);
    } while (s < target && old < len);
    const long prev = s - count(old + 1);
    if (s - target > target - prev) {
      c = old;
      s = prev;
    }
    idx[p] = static_cast<int>(c);
  }
}

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_SPARSE_SPLIT_WALK_H
