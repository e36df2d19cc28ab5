#pragma once

#include "gui/OpenGLWidget.h"

#include <QImage>
#include <QTransform>

#include <cmath>

namespace TestSupport {

using Halcyra::GUI::Widgets::Bases::OpenGLWidget;

/**
 * Fan coordinates to the pixels of a picture of the widget, as of its last paint:
 * of the given size (a grab's device pixels), or of the widget's own size.
 */
inline QTransform fanToPixels(OpenGLWidget& widget, QSizeF size)
{
    const double w = size.width() / 2.0, h = size.height() / 2.0;
    return widget.getCurrentProjection().toTransform() * QTransform(w, 0, 0, -h, w, h);
}

inline QTransform fanToPixels(OpenGLWidget& widget)
{
    return fanToPixels(widget, QSizeF(widget.size()));
}

/// The pixel of a picture of the widget that holds a fan point (pixel k spans k to k + 1).
inline QPoint pixelOf(OpenGLWidget& widget, const QImage& image, QPointF fanPoint)
{
    const QPointF at = fanToPixels(widget, QSizeF(image.size())).map(fanPoint);
    return QPoint(int(std::floor(at.x())), int(std::floor(at.y())));
}

} // namespace TestSupport
