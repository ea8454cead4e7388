#include "fxds/BoundingBox.h"

#include <algorithm>
#include <cstdint>

// Both operations work on one axis at a time.

namespace {

struct Axis {
    int position;
    int extent;
};

int add(int a, int b) {
    return static_cast<int>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

int subtract(int a, int b) {
    return static_cast<int>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

int farEdge(Axis axis) { return static_cast<int16_t>(add(axis.position, axis.extent)); }

Axis overlap(Axis a, Axis b) {
    if (a.position > b.position) std::swap(a, b);
    const int end = add(a.position, a.extent);
    if (b.position >= end) return {0, 0};
    return {b.position, std::min(subtract(end, b.position), b.extent)};
}

Axis cover(Axis a, Axis b) {
    if (a.extent == 0) return b;
    if (b.extent == 0) return a;
    const int position = std::min(a.position, b.position);
    return {position, subtract(std::max(farEdge(a), farEdge(b)), position)};
}

fxBoundingBox perAxis(Axis (*operation)(Axis, Axis), const fxBoundingBox& a,
                      const fxBoundingBox& b) {
    const Axis x = operation({a.x, a.width}, {b.x, b.width});
    const Axis y = operation({a.y, a.height}, {b.y, b.height});
    return fxBoundingBox(x.position, y.position, x.extent, y.extent);
}

}  // namespace

fxBoundingBox fxBoundingBox::intersect(const fxBoundingBox& other) const {
    return perAxis(overlap, *this, other);
}

fxBoundingBox fxBoundingBox::bound(const fxBoundingBox& other) const {
    return perAxis(cover, *this, other);
}
