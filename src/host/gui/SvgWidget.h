#pragma once

#include <QByteArray>
#include <QRectF>
#include <QSize>

#include <memory>

class QColor;
class QPainter;
class QString;
class QSvgRenderer;

namespace Halcyra::GUI::Widgets::Bases {

/**
 * Second base of widgets that show a vector drawing: holds the SVG text and
 * its renderer. Not a widget itself; the widget base comes first.
 */
class SvgWidget
{
public:
    SvgWidget();
    virtual ~SvgWidget();

    SvgWidget(const SvgWidget&) = delete;
    SvgWidget& operator=(const SvgWidget&) = delete;

    /// Natural size of the drawing (its width and height attributes); empty without one.
    QSize getSvgSize() const;

protected:
    /// Replaces the drawing; invalid SVG leaves an empty one.
    void setSvgData(const QByteArray& data);
    const QByteArray& getSvgData() const;

    /// Draws the drawing as large as fits in bounds, keeping its aspect ratio, centred.
    void renderSvg(QPainter& painter, const QRectF& bounds) const;

    /// SVG paint attributes for a colour: name="#rrggbb" name-opacity="alpha".
    static QString paintAttributes(const QString& name, const QColor& colour);

private:
    QByteArray svgData;
    std::unique_ptr<QSvgRenderer> renderer;
};

} // namespace Halcyra::GUI::Widgets::Bases
