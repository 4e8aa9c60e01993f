#pragma once

#include "platform/Accessibility.h"
#include "platform/Geometry.h"

#include <ostream>

// Readable test failure messages for geometry values.
namespace platform {
inline void PrintTo(const Point& p, std::ostream* out) {
    *out << "(" << p.x << ", " << p.y << ")";
}
inline void PrintTo(const Rect& r, std::ostream* out) {
    *out << "(" << r.x << ", " << r.y << " " << r.width << "x" << r.height << ")";
}
inline void PrintTo(const CFRange& r, std::ostream* out) {
    *out << "{" << r.location << ", " << r.length << "}";
}
} // namespace platform
