#pragma once

#include "gui/SvgWidget.h"

#include <QColor>
#include <QWidget>

namespace Halcyra::GUI::Widgets::Displays {

/**
 * The maker's logo: a tern in flight over a wave and the wordmark, in two
 * colours, scaled to the widget with its aspect ratio kept. The background is
 * left alone, so the logo can be grabbed onto a transparent pixmap.
 */
class TernwickLogo : public QWidget, public Bases::SvgWidget
{
    Q_OBJECT

public:
    explicit TernwickLogo(QWidget* parent = nullptr);
    ~TernwickLogo() override;

    /// Colour of the wordmark.
    void setPrimaryColour(const QColor& colour);
    /// Colour of the mark.
    void setSecondaryColour(const QColor& colour);

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void rebuildDrawing();

    QColor primaryColour = QColor(255, 255, 255);
    QColor secondaryColour = QColor(30, 144, 255);
};

} // namespace Halcyra::GUI::Widgets::Displays
