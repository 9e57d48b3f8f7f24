#include "TransformSampling.h"

#include "vern/Vern3DAnimation.h"

#include <algorithm>
#include <cmath>

namespace vern3d {

namespace {

using Vec = std::array<double, 3>;

double DotV(const Vec& a, const Vec& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
Vec CrossV(const Vec& a, const Vec& b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
double LengthV(const Vec& a) { return std::sqrt(DotV(a, a)); }

// A unit vector along `a`, or `fallback` when `a` has no usable length.
Vec UnitOr(const Vec& a, const Vec& fallback)
{
    const double length = LengthV(a);
    if (!(length > 1e-30) || !std::isfinite(length))
        return fallback;
    return {a[0] / length, a[1] / length, a[2] / length};
}

}  // namespace

Trs Decompose(const std::array<float, 16>& m)
{
    Trs trs;
    trs.translation = {m[12], m[13], m[14]};
    // Rows 0..2 are the images of the x, y and z axes.
    Vec rows[3];
    for (int r = 0; r < 3; ++r)
        rows[r] = {m[4 * r], m[4 * r + 1], m[4 * r + 2]};
    double scale[3] = {LengthV(rows[0]), LengthV(rows[1]), LengthV(rows[2])};
    if (DotV(rows[0], CrossV(rows[1], rows[2])) < 0.0) {
        scale[0] = -scale[0];
        rows[0] = {-rows[0][0], -rows[0][1], -rows[0][2]};
    }
    const Vec a0 = UnitOr(rows[0], {1, 0, 0});
    const double along = DotV(rows[1], a0);
    Vec a1 = UnitOr({rows[1][0] - along * a0[0], rows[1][1] - along * a0[1], rows[1][2] - along * a0[2]},
                    std::abs(a0[1]) < 0.9 ? Vec{0, 1, 0} : Vec{0, 0, 1});
    if (std::abs(DotV(a1, a0)) > 0.5)  // the fallback itself lay along a0
        a1 = UnitOr(CrossV(a0, {0, 0, 1}), {0, 1, 0});
    a1 = UnitOr({a1[0] - DotV(a1, a0) * a0[0], a1[1] - DotV(a1, a0) * a0[1], a1[2] - DotV(a1, a0) * a0[2]}, a1);
    const Vec a2 = CrossV(a0, a1);

    // Column j of the column-vector rotation is axis j: R[i][j] = a_j[i].
    const double r00 = a0[0], r01 = a1[0], r02 = a2[0];
    const double r10 = a0[1], r11 = a1[1], r12 = a2[1];
    const double r20 = a0[2], r21 = a1[2], r22 = a2[2];
    double x, y, z, w;
    const double trace = r00 + r11 + r22;
    if (trace > 0.0) {
        const double s = std::sqrt(trace + 1.0) * 2.0;
        w = 0.25 * s, x = (r21 - r12) / s, y = (r02 - r20) / s, z = (r10 - r01) / s;
    } else if (r00 > r11 && r00 > r22) {
        const double s = std::sqrt(1.0 + r00 - r11 - r22) * 2.0;
        w = (r21 - r12) / s, x = 0.25 * s, y = (r01 + r10) / s, z = (r02 + r20) / s;
    } else if (r11 > r22) {
        const double s = std::sqrt(1.0 + r11 - r00 - r22) * 2.0;
        w = (r02 - r20) / s, x = (r01 + r10) / s, y = 0.25 * s, z = (r12 + r21) / s;
    } else {
        const double s = std::sqrt(1.0 + r22 - r00 - r11) * 2.0;
        w = (r10 - r01) / s, x = (r02 + r20) / s, y = (r12 + r21) / s, z = 0.25 * s;
    }
    const double norm = std::sqrt(x * x + y * y + z * z + w * w);
    trs.rotation = {static_cast<float>(x / norm), static_cast<float>(y / norm), static_cast<float>(z / norm),
                    static_cast<float>(w / norm)};
    trs.scale = {static_cast<float>(scale[0]), static_cast<float>(scale[1]), static_cast<float>(scale[2])};
    return trs;
}

bool HasMovingKeys(const Animation& animation)
{
    return animation.positionKeys.size() >= 2 || animation.rotationKeys.size() >= 2;
}

std::vector<uint32_t> SampleTimes(const Animation& animation, uint32_t stepMilliseconds, size_t maxSamples)
{
    std::vector<uint32_t> times;
    auto addKeys = [&](const auto& keys) {
        if (keys.size() < 2)
            return;
        for (const auto& key : keys) {
            if (key.time >= 0)
                times.push_back(static_cast<uint32_t>(key.time));
        }
    };
    addKeys(animation.positionKeys);
    addKeys(animation.rotationKeys);
    std::sort(times.begin(), times.end());
    times.erase(std::unique(times.begin(), times.end()), times.end());
    if (times.size() < 2)
        return times;
    const uint64_t begin = times.front();
    const uint64_t span = times.back() - begin;
    // Steps k * step < span add ceil(span / step) - 1 samples: at most `room`.
    const uint64_t room = maxSamples > times.size() ? maxSamples - times.size() : 0;
    const uint64_t step = std::max<uint64_t>({stepMilliseconds, 1, (span + room) / (room + 1)});
    for (uint64_t t = begin + step; t < begin + span; t += step)
        times.push_back(static_cast<uint32_t>(t));
    std::sort(times.begin(), times.end());
    times.erase(std::unique(times.begin(), times.end()), times.end());
    if (times.size() > maxSamples)  // more keys than the limit: keep an even selection, the last included
    {
        std::vector<uint32_t> kept;
        for (size_t i = 0; i < maxSamples; ++i)
            kept.push_back(times[i * (times.size() - 1) / std::max<size_t>(maxSamples - 1, 1)]);
        kept.erase(std::unique(kept.begin(), kept.end()), kept.end());
        times = std::move(kept);
    }
    return times;
}

std::vector<std::array<float, 16>> EvaluateLocal(const std::array<float, 16>& localMatrix, const Animation& animation,
                                                 const std::vector<uint32_t>& times)
{
    Matrix local{localMatrix};
    std::vector<std::array<float, 16>> matrices;
    matrices.reserve(times.size());
    for (uint32_t time : times) {
        EvaluateKeys(animation.positionKeys, animation.rotationKeys, time, local);
        matrices.push_back(local.m);
    }
    return matrices;
}

TransformSamples SampleTransform(const std::array<float, 16>& localMatrix, const Animation& animation,
                                 const std::vector<uint32_t>& times)
{
    TransformSamples samples;
    samples.times = times;
    for (const std::array<float, 16>& matrix : EvaluateLocal(localMatrix, animation, times)) {
        Trs trs = Decompose(matrix);
        // Neighbouring quaternions in one hemisphere, so that interpolation takes the short way.
        if (!samples.values.empty()) {
            const auto& previous = samples.values.back().rotation;
            const float dot = previous[0] * trs.rotation[0] + previous[1] * trs.rotation[1] +
                              previous[2] * trs.rotation[2] + previous[3] * trs.rotation[3];
            if (dot < 0.0f)
                for (float& component : trs.rotation)
                    component = -component;
        }
        samples.values.push_back(trs);
    }
    return samples;
}

}  // namespace vern3d
