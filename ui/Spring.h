#pragma once

#include <QEasingCurve>
#include <cmath>

// Spring-like motion for the animated parts of the interface. A spring is described by its
// response (the period of the undamped oscillation, in seconds) and its damping fraction (1 is
// critically damped; below 1 it overshoots a little). Qt animates over a fixed duration, so a
// spring becomes an easing curve that follows the spring's step response and a duration after
// which the remaining motion is invisible (within 0.1 % of the distance).
namespace ui {

struct Spring {
    double response;
    double dampingFraction;
};

// Phase changes of the picker; changes of the highlighted action; a pressed button.
inline constexpr Spring phaseSpring{0.4, 0.85};
inline constexpr Spring selectionSpring{0.3, 0.8};
inline constexpr Spring tapSpring{0.2, 0.6};

// Where a spring released at 0 towards 1 stands after `t` seconds.
inline double springStep(const Spring& spring, double t) {
    const double omega = 2.0 * M_PI / spring.response;
    const double zeta = spring.dampingFraction;
    if (zeta >= 1.0)
        return 1.0 - std::exp(-omega * t) * (1.0 + omega * t);
    const double damped = omega * std::sqrt(1.0 - zeta * zeta);
    return 1.0 - std::exp(-zeta * omega * t) *
                     (std::cos(damped * t) + (zeta * omega / damped) * std::sin(damped * t));
}

// Seconds until the envelope of the motion is below 0.1 % of the distance (an underdamped
// spring's envelope starts at 1 / sqrt(1 - zeta^2), not at 1).
inline double springSettlingTime(const Spring& spring) {
    const double omega = 2.0 * M_PI / spring.response;
    const double zeta = std::min(spring.dampingFraction, 0.999);
    return std::log(1000.0 / std::sqrt(1.0 - zeta * zeta)) / (zeta * omega);
}

inline int springDurationMs(const Spring& spring) {
    return static_cast<int>(std::lround(springSettlingTime(spring) * 1000.0));
}

template <const Spring& S> qreal springEasing(qreal progress) {
    if (progress >= 1.0)
        return 1.0;
    return springStep(S, progress * springSettlingTime(S));
}

template <const Spring& S> QEasingCurve springCurve() {
    QEasingCurve curve;
    curve.setCustomType(&springEasing<S>);
    return curve;
}

} // namespace ui
