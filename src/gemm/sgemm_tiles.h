// Geometry of the packed single-precision GEMM: blocks of 336 in rows,
// columns and depth, cut into tiles of 48 by 48 floats. Every packed area of
// the workspace is a sequence of tile slots of 2304 floats, however much of
// its slot a tile fills.
#ifndef NUMBRA_GEMM_SGEMM_TILES_H
#define NUMBRA_GEMM_SGEMM_TILES_H

namespace numbra_internal {
namespace {

constexpr int kPackedTileEdge = 48;
constexpr int kSlotFloats = kPackedTileEdge * kPackedTileEdge;  // 2304
constexpr int kBlockEdge = 7 * kPackedTileEdge;                 // 336
constexpr int kRegionFloats = kBlockEdge * kBlockEdge;          // 112896, one packed block

// The workspace holds packed A, packed B and the C accumulator, one region
// each: 1354752 bytes per worker.
constexpr int kPackedAOffset = 0;
constexpr int kPackedBOffset = kRegionFloats;
constexpr int kAccumulatorOffset = 2 * kRegionFloats;
constexpr unsigned long kWorkspaceBytes = 3ul * kRegionFloats * sizeof(float);

// A short last tile in a column direction is widened to a multiple of the
// 8-float lane group.
constexpr int widened(int columns) { return (columns + 7) / 8 * 8; }

// Extent of a block dimension in tiles: `full` complete tiles of 48 and a
// `tail` of 0 to 47.
struct TileSplit {
  int full, tail;
  explicit constexpr TileSplit(int extent)
      : full(extent / kPackedTileEdge), tail(extent - extent / kPackedTileEdge * kPackedTileEdge) {}
  constexpr int tiles() const { return full + (tail > 0 ? 1 : 0); }
};

}  // namespace
}  // namespace numbra_internal

#endif  // NUMBRA_GEMM_SGEMM_TILES_H
