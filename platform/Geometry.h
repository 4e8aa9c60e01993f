#pragma once

// Plain geometry in points. Which way y grows depends on where a value comes from: the global
// screen coordinates have their origin at the bottom-left corner of the primary screen with y
// growing upwards; accessibility geometry has its origin at the top-left corner of the primary
// screen with y growing downwards.
namespace platform {

struct Point {
    double x = 0;
    double y = 0;
    friend bool operator==(const Point&, const Point&) = default;
};

struct Size {
    double width = 0;
    double height = 0;
    friend bool operator==(const Size&, const Size&) = default;
};

struct Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    [[nodiscard]] double minX() const { return x; }
    [[nodiscard]] double maxX() const { return x + width; }
    [[nodiscard]] double minY() const { return y; }
    [[nodiscard]] double maxY() const { return y + height; }
    // Minimum edges included, maximum edges excluded.
    [[nodiscard]] bool contains(Point p) const {
        return p.x >= minX() && p.x < maxX() && p.y >= minY() && p.y < maxY();
    }
    friend bool operator==(const Rect&, const Rect&) = default;
};

} // namespace platform
