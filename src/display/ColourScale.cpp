#include "display/ColourScale.h"

#include "engine/FanGeometryEngine.h"
#include "gui/OpenGLWidgetPainter.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QPolygonF>
#include <QTransform>
#include <QVector3D>

#include <algorithm>
#include <array>
#include <cmath>

namespace Halcyra::Nereon::Visualisation {

namespace {

// Logical pixels.
constexpr int barWidth = 14;
constexpr int tickLength = 4;
constexpr int labelGap = 3;
constexpr int edgeMargin = 10;
constexpr int clearance = 6; // kept free around the fan and its labels
constexpr int tallestBar = 256; // one row per palette entry at most
constexpr int shortestUsefulBar = 64;
constexpr int shortestBar = 24;

// Widget corners in order of preference: the fan opens upward by default,
// which leaves the bottom corners free.
enum class Corner
{
    BottomRight,
    BottomLeft,
    TopRight,
    TopLeft
};
constexpr std::array<Corner, 4> corners { Corner::BottomRight, Corner::BottomLeft, Corner::TopRight,
    Corner::TopLeft };

bool isRight(Corner corner)
{
    return corner == Corner::BottomRight || corner == Corner::TopRight;
}
bool isBottom(Corner corner)
{
    return corner == Corner::BottomRight || corner == Corner::BottomLeft;
}

QString percentText(int percent)
{
    return QString::number(percent) + QStringLiteral(" %");
}

/// Maps model or clip coordinates to logical pixels of a widget of the given size.
class PixelMapping
{
public:
    PixelMapping(const QMatrix4x4& projection, QSize size)
        : projection(projection)
        , width(size.width())
        , height(size.height())
    {
    }

    QPointF fromClip(double x, double y) const
    {
        return QPointF((x + 1.0) / 2.0 * width, (1.0 - y) / 2.0 * height);
    }
    double clipX(double pixelX) const { return 2.0 * pixelX / width - 1.0; }
    double clipY(double pixelY) const { return 1.0 - 2.0 * pixelY / height; }

    QPointF fromModel(float x, float y) const
    {
        const QVector3D clip = projection.map(QVector3D(x, y, 0.0f));
        return fromClip(static_cast<double>(clip.x()), static_cast<double>(clip.y()));
    }

    /// On-screen angle (degrees counter-clockwise) of a model direction, as the overlay painter turns text.
    double screenAngle(int degrees, float rotation) const
    {
        const double radians = degrees * 3.14159265358979323846 / 180.0;
        const QVector3D direction = projection.mapVector(
            QVector3D(static_cast<float>(std::cos(radians)), static_cast<float>(std::sin(radians)), 0.0f));
        const double dx = static_cast<double>(direction.x()) * width;
        const double dy = static_cast<double>(direction.y()) * height;
        if (dx == 0.0 && dy == 0.0)
            return degrees + static_cast<double>(rotation);
        return std::atan2(dy, dx) * 180.0 / 3.14159265358979323846;
    }

private:
    const QMatrix4x4& projection;
    double width;
    double height;
};

/// The pixels a range label covers, placed the way the overlay painter places text.
QPolygonF labelOutline(
    const RangeLabelParams& label, const PixelMapping& mapping, const QFontMetricsF& metrics, float rotation)
{
    const QString text = QString::fromStdString(label.text);
    const double advance = metrics.horizontalAdvance(text);
    double originX = 0.0;
    if ((label.anchor & 0x0f) == 0x02)
        originX = -advance;
    else if ((label.anchor & 0x0f) == 0x04)
        originX = -advance / 2.0;
    double originY = (metrics.ascent() - metrics.descent()) / 2.0;
    if ((label.anchor & 0xf0) == 0x20)
        originY = metrics.ascent();

    const QPointF at = label.screenCoordinates
        ? mapping.fromClip(static_cast<double>(label.x), static_cast<double>(label.y))
        : mapping.fromModel(label.x, label.y);
    QTransform transform;
    transform.translate(at.x(), at.y());
    transform.rotate(-mapping.screenAngle(label.angle, rotation));
    return transform.map(QPolygonF(QRectF(originX, originY - metrics.ascent(), advance, metrics.height())));
}

} // namespace

bool ColourScale::LayoutKey::operator==(const LayoutKey& other) const
{
    return size == other.size && projection == other.projection && font == other.font
        && fanOutline == other.fanOutline && labels == other.labels && reserved == other.reserved;
}

QRect ColourScale::getBarRectangle() const
{
    return layout.bar;
}

void ColourScale::draw(
    GUI::Widgets::Bases::OpenGLWidgetPainter& painter, FanGeometryEngine& engine, const Scene& scene)
{
    if (scene.size.width() <= 0 || scene.size.height() <= 0)
        return;

    // The outer arc is the fan's rim; its ends and the projection pin the fan down on screen.
    LayoutKey key { scene.size, scene.projection, scene.font, {}, {}, scene.reserved };
    const std::vector<std::vector<float>>& arcs = engine.getRangeArcVertices();
    if (!arcs.empty() && arcs.back().size() >= 2) {
        const std::vector<float>& rim = arcs.back();
        key.fanOutline = { rim[0], rim[1], rim[rim.size() - 2], rim[rim.size() - 1] };
    }
    if (scene.rangeLabelsShown) {
        for (const RangeLabelParams& label : engine.getRangeLabelParams(scene.rotation))
            key.labels += QString::fromStdString(label.text) + QLatin1Char('\n');
    }
    if (!layoutKey || !(*layoutKey == key)) {
        layout = computeLayout(engine, scene);
        layoutKey = std::move(key);
    }
    if (layout.bar.isEmpty())
        return;

    const FanDisplayOptions::Palette palette = engine.getPalette();
    const unsigned char modifier = engine.getPaletteModifier();
    const float lower = engine.getLowerThreshold();
    const float upper = engine.getUpperThreshold();
    const QSize imageSize(static_cast<int>(std::lround(layout.bar.width() * scene.devicePixelRatio)),
        static_cast<int>(std::lround(layout.bar.height() * scene.devicePixelRatio)));
    if (!barPalette || !barPalette->isFor(palette, modifier, lower, upper) || barImage.size() != imageSize) {
        barPalette.emplace(palette, modifier, lower, upper);
        barImage = QImage(imageSize, QImage::Format_RGB32);
        const int lastRow = std::max(imageSize.height() - 1, 1);
        for (int row = 0; row < imageSize.height(); ++row) {
            const QRgb colour = barPalette->colourAt(1.0 - static_cast<double>(row) / lastRow).rgb();
            auto* line = reinterpret_cast<QRgb*>(barImage.scanLine(row));
            std::fill(line, line + imageSize.width(), colour);
        }
    }

    const PixelMapping mapping(scene.projection, scene.size);
    if (!layout.plate.isEmpty()) {
        // Over the fan the labels need a quiet ground to be read on.
        const QSize plateSize(static_cast<int>(std::lround(layout.plate.width() * scene.devicePixelRatio)),
            static_cast<int>(std::lround(layout.plate.height() * scene.devicePixelRatio)));
        QColor ground = scene.backgroundColour.isValid() ? scene.backgroundColour : QColor(Qt::black);
        ground.setAlpha(200);
        if (plateImage.size() != plateSize || plateImage.pixelColor(0, 0) != ground) {
            plateImage = QImage(plateSize, QImage::Format_ARGB32);
            plateImage.fill(ground);
        }
        painter.drawImage(static_cast<float>(mapping.clipX(layout.plate.left())),
            static_cast<float>(mapping.clipY(layout.plate.top())), plateImage, true);
    }
    const QRect& bar = layout.bar;
    painter.drawImage(static_cast<float>(mapping.clipX(bar.left())),
        static_cast<float>(mapping.clipY(bar.top())), barImage, true);

    // A frame just outside the bar, so that its ends read against any background.
    const double left = bar.left() - 0.5;
    const double right = bar.left() + bar.width() + 0.5;
    const double top = bar.top() - 0.5;
    const double bottom = bar.top() + bar.height() + 0.5;
    const auto clip = [&mapping](double x, double y, std::vector<float>& out) {
        out.push_back(static_cast<float>(mapping.clipX(x)));
        out.push_back(static_cast<float>(mapping.clipY(y)));
    };
    std::vector<float> frame;
    clip(left, top, frame);
    clip(right, top, frame);
    clip(right, bottom, frame);
    clip(left, bottom, frame);
    painter.drawLines(frame, 1, scene.textColour, true, true, true);

    std::vector<float> ticks;
    const double tickStart = layout.labelsOnLeft ? left : right;
    const double tickEnd = layout.labelsOnLeft ? tickStart - tickLength : tickStart + tickLength;
    const double labelX = layout.labelsOnLeft ? tickEnd - labelGap : tickEnd + labelGap;
    for (const int percent : layout.tickPercents) {
        // Centre of the row that shows this intensity.
        const double y = bar.top() + (1.0 - percent / 100.0) * (bar.height() - 1) + 0.5;
        clip(tickStart, y, ticks);
        clip(tickEnd, y, ticks);
    }
    painter.drawLines(ticks, 1, scene.textColour, true, false, false);

    // Labels in the display's text font and colour, which the display has selected.
    for (const int percent : layout.tickPercents) {
        const double y = bar.top() + (1.0 - percent / 100.0) * (bar.height() - 1) + 0.5;
        painter.drawText(static_cast<float>(mapping.clipX(labelX)), static_cast<float>(mapping.clipY(y)), 0,
            percentText(percent).toStdString(), layout.labelsOnLeft ? 0x12 : 0x10, true);
    }
}

ColourScale::Layout ColourScale::computeLayout(FanGeometryEngine& engine, const Scene& scene) const
{
    const int width = scene.size.width();
    const int height = scene.size.height();
    const QFontMetricsF metrics(scene.font);
    const int overhang = static_cast<int>(std::ceil(metrics.height() / 2.0));
    const int labelWidth = static_cast<int>(std::ceil(metrics.horizontalAdvance(percentText(100))));
    const int boxWidth = barWidth + 1 + tickLength + labelGap + labelWidth;
    const int tallest = std::min(tallestBar, static_cast<int>(0.45 * height));
    if (tallest < shortestBar || boxWidth + 2 * edgeMargin > width)
        return {};

    // What must stay visible, painted at half resolution: the fan (apex and rim),
    // its range labels and the reserved areas, each grown by the clearance.
    const PixelMapping mapping(scene.projection, scene.size);
    QImage occupied((width + 1) / 2, (height + 1) / 2, QImage::Format_RGB32);
    occupied.fill(Qt::black);
    {
        QPainter mask(&occupied);
        mask.scale(0.5, 0.5);
        mask.setPen(QPen(Qt::white, 2 * clearance, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        mask.setBrush(Qt::white);

        const std::vector<std::vector<float>>& arcs = engine.getRangeArcVertices();
        if (!arcs.empty() && arcs.back().size() >= 4) {
            const std::vector<float>& rim = arcs.back();
            QPolygonF fan;
            fan << mapping.fromModel(0.0f, 0.0f);
            for (std::size_t i = 0; i + 1 < rim.size(); i += 2)
                fan << mapping.fromModel(rim[i], rim[i + 1]);
            mask.drawPolygon(fan);
        }
        if (scene.rangeLabelsShown) {
            for (const RangeLabelParams& label : engine.getRangeLabelParams(scene.rotation))
                mask.drawPolygon(labelOutline(label, mapping, metrics, scene.rotation));
        }
        for (const QRectF& area : scene.reserved)
            mask.drawRect(area);
    }

    // For each corner, how far the box can reach from the widget's edge before it meets anything.
    const int wanted = (tallest + 2 * overhang + 1) / 2; // in mask rows
    int bestHeight = -1;
    Corner best = Corner::BottomRight;
    for (const Corner corner : corners) {
        const int boxLeft = isRight(corner) ? width - edgeMargin - boxWidth : edgeMargin;
        const int firstColumn = std::clamp(boxLeft / 2, 0, occupied.width() - 1);
        const int lastColumn = std::clamp((boxLeft + boxWidth + 1) / 2, 0, occupied.width() - 1);
        const int edgeRow = isBottom(corner) ? (height - edgeMargin) / 2 - 1 : (edgeMargin + 1) / 2;
        int freeRows = 0;
        for (; freeRows < wanted; ++freeRows) {
            const int row = isBottom(corner) ? edgeRow - freeRows : edgeRow + freeRows;
            if (row < 0 || row >= occupied.height())
                break;
            const auto* line = reinterpret_cast<const QRgb*>(occupied.constScanLine(row));
            if (std::any_of(
                    line + firstColumn, line + lastColumn + 1, [](QRgb pixel) { return qRed(pixel) != 0; }))
                break;
        }
        const int barHeight = std::min(tallest, 2 * freeRows - 2 * overhang);
        if (barHeight > bestHeight) {
            bestHeight = barHeight;
            best = corner;
        }
    }
    // Where nothing is free (a magnified view), a short bar over the picture still tells the colours.
    const int barHeight = std::max(bestHeight, std::min(shortestUsefulBar, tallest));

    Layout result;
    result.labelsOnLeft = isRight(best);
    const int barLeft = isRight(best) ? width - edgeMargin - barWidth : edgeMargin;
    const int barTop = isBottom(best) ? height - edgeMargin - overhang - barHeight : edgeMargin + overhang;
    result.bar = QRect(barLeft, barTop, barWidth, barHeight);
    if (bestHeight < shortestUsefulBar) {
        constexpr int padding = 4;
        const int boxLeft = isRight(best) ? width - edgeMargin - boxWidth : edgeMargin;
        result.plate = QRect(boxLeft - padding, barTop - overhang - padding, boxWidth + 2 * padding,
            barHeight + 2 * overhang + 2 * padding);
    }

    const double lineHeight = metrics.height() * 1.2;
    if (barHeight >= 4 * lineHeight)
        result.tickPercents = { 0, 25, 50, 75, 100 };
    else if (barHeight >= 2 * lineHeight)
        result.tickPercents = { 0, 50, 100 };
    else
        result.tickPercents = { 0, 100 };
    return result;
}

} // namespace Halcyra::Nereon::Visualisation
