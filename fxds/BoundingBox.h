// Axis-aligned rectangles of integer coordinates.
#ifndef FXDS_BOUNDINGBOX_H
#define FXDS_BOUNDINGBOX_H

#include "fxds/Config.h"

/// Covers [x, x + width) and [y, y + height). An extent of exactly 0 is an
/// empty axis. The axes are independent, and arithmetic that leaves the range
/// of an int wraps.
class FX_API fxBoundingBox {
public:
    fxBoundingBox() : x(0), y(0), width(0), height(0) {}
    /// Nothing is checked: extents may be negative.
    fxBoundingBox(int x_, int y_, int width_, int height_)
        : x(x_), y(y_), width(width_), height(height_) {}

    /// The overlap. An axis on which the boxes only touch or lie apart gets
    /// position and extent 0; the other axis keeps its overlap.
    fxBoundingBox intersect(const fxBoundingBox& other) const;

    /// The smallest box around both. Far edges are taken as signed 16-bit
    /// numbers, so coordinates should stay within that range.
    fxBoundingBox bound(const fxBoundingBox& other) const;

    ///@{
    /// Equal in all four numbers.
    friend bool operator==(const fxBoundingBox& a, const fxBoundingBox& b) {
        return a.x == b.x && a.y == b.y && a.width == b.width && a.height == b.height;
    }
    friend bool operator!=(const fxBoundingBox& a, const fxBoundingBox& b) { return !(a == b); }
    ///@}

    int x;       ///< Left edge.
    int y;       ///< Upper edge.
    int width;   ///< Extent to the right.
    int height;  ///< Extent downwards.
};

#endif
