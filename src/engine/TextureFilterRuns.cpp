#include "engine/TextureFilterRuns.h"

#include <QVector3D>

#include <algorithm>
#include <cmath>
#include <utility>

namespace Halcyra::Nereon::Visualisation {

namespace {

/// Away from 1 by more than the renderer's rounding of positions and derivatives can move it.
constexpr double margin = 0.01;

} // namespace

TextureFilterRuns::Filter TextureFilterRuns::classify(
    const float* triangle, const QMatrix4x4& projection, QSize viewport, QSize texture)
{
    double px[3];
    double py[3];
    double s[3];
    double t[3];
    for (int v = 0; v < 3; ++v) {
        const float* vertex = triangle + 4 * v;
        const QVector3D clip = projection.map(QVector3D(vertex[0], vertex[1], 0.0f));
        px[v] = (static_cast<double>(clip.x()) + 1.0) * 0.5 * viewport.width();
        py[v] = (static_cast<double>(clip.y()) + 1.0) * 0.5 * viewport.height();
        s[v] = static_cast<double>(vertex[2]) * texture.width();
        t[v] = static_cast<double>(vertex[3]) * texture.height();
    }

    const double e1x = px[1] - px[0];
    const double e1y = py[1] - py[0];
    const double e2x = px[2] - px[0];
    const double e2y = py[2] - py[0];
    const double det = e1x * e2y - e1y * e2x;
    // Smaller than a hundredth of a pixel: it covers no pixel centre, and its
    // derivatives are not worth trusting.
    if (!(std::abs(det) > 0.02))
        return Filter::Mixed;

    // Texels a pixel step moves along x and along y, as lengths.
    const auto derivatives = [&](const double* a) {
        const double d1 = a[1] - a[0];
        const double d2 = a[2] - a[0];
        return std::pair((d1 * e2y - d2 * e1y) / det, (d2 * e1x - d1 * e2x) / det);
    };
    const auto [dsdx, dsdy] = derivatives(s);
    const auto [dtdx, dtdy] = derivatives(t);
    const double rho = std::sqrt(std::max(dsdx * dsdx + dtdx * dtdx, dsdy * dsdy + dtdy * dtdy));
    if (rho > 1.0 + margin)
        return Filter::Nearest;
    if (rho < 1.0 - margin)
        return Filter::Linear;
    return Filter::Mixed;
}

void TextureFilterRuns::update(const std::vector<float>& vertices, int triangles,
    const QMatrix4x4& projection, QSize viewport, QSize texture)
{
    result.clear();
    triangles = std::clamp(triangles, 0, static_cast<int>(vertices.size() / 12));
    for (int i = 0; i < triangles; ++i) {
        const Filter filter = classify(vertices.data() + 12 * i, projection, viewport, texture);
        if (!result.empty() && result.back().filter == filter)
            ++result.back().count;
        else
            result.push_back(Run { i, 1, filter });
    }
}

} // namespace Halcyra::Nereon::Visualisation
