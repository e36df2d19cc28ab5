#pragma once

#include "gui/SvgWidget.h"

#include <QColor>
#include <QWidget>

namespace Halcyra::GUI::Widgets::Displays {

/**
 * The product's logo: a sonar fan with range arcs and the wordmark, in one
 * colour, scaled to the widget with its aspect ratio kept. The background is
 * left alone, so the logo can be grabbed onto a transparent pixmap.
 */
class NereonLogo : public QWidget, public Bases::SvgWidget
{
    Q_OBJECT

public:
    explicit NereonLogo(QWidget* parent = nullptr);
    ~NereonLogo() override;

    void setColour(const QColor& colour);

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void rebuildDrawing();

    QColor colour = QColor(255, 255, 255);
};

} // namespace Halcyra::GUI::Widgets::Displays
