#pragma once

#include "FanDisplayOptions.h"
#include "TernwickNereonViewsExport.h"
#include "views/EchogramColumns.h"

#include <QColor>
#include <QOpenGLWidget>
#include <QString>

#include <cstdint>
#include <memory>

namespace Halcyra::DataProcessing::Units {
class AbstractUnit;
}

namespace Halcyra::Nereon {
class NereonImage;
}

namespace Halcyra::Nereon::Sources {
class FrameReader;
struct SourceFrame;
}

namespace Halcyra::Nereon::Views {

class EchogramMark;

/**
 * An echogram: one column per frame, time running to the right and range
 * running up, each pixel the strongest echo of any beam at that range (or the
 * beams' mean), coloured as the fan colours intensities.
 *
 * Two ways to fill it. Live: hand it frames as they arrive (addFrame(),
 * addImage()); it shows the last getLiveWindow() frames, scrolling, and a new
 * frame costs the upload of its column only. A recording: loadRecording()
 * computes every frame's column on a thread of its own, with loadProgress()
 * and cancelLoad(), and shows the whole file.
 *
 * A cursor marks the frame the fan shows (setCursorFrame()); a click or a drag
 * with the left button asks for the frame under the mouse (frameRequested()).
 * The wheel zooms in time about the mouse; a drag with the right or middle
 * button, or with Shift and the left button, pans. A change of beam count,
 * sample count or range starts a new segment after a break drawn in
 * getBreakColour(). Frames that cannot be drawn are ignored.
 *
 * Tracks can be drawn over the picture (addMark(), see EchogramMark): a line
 * through the columns of their frames at their ranges, where those frames are kept.
 *
 * Memory: getRangeBins() + 16 bytes a frame, and for a recording about 7 % more
 * for the coarser copies that keep zooming out fast: a day-long recording of a
 * million frames at 256 bins takes about 290 MB.
 */
class TERNWICK_NEREON_VIEWS_EXPORT EchogramDisplay : public QOpenGLWidget
{
    Q_OBJECT

public:
    /// An empty echogram; GL work waits until the widget is first shown.
    explicit EchogramDisplay(QWidget* parent = nullptr);
    /// Stops a loading thread and releases the GL resources with the widget's context current.
    ~EchogramDisplay() override;

    /// Range bins per column (1 to EchogramColumns::maximumRangeBins); 256 by default.
    /// Clears what is shown when it changes.
    void setRangeBins(int bins);
    /// Range bins per column.
    int getRangeBins() const;
    /// Maximum (the default) or mean over the beams; clears what is shown when it changes.
    void setReduction(EchogramReduction reduction);
    /// How the beams are reduced.
    EchogramReduction getReduction() const;
    /// Frames kept and shown while live (16 up to the GL texture size, at most 8192); 2048 by default.
    void setLiveWindow(int frames);
    /// Frames kept and shown while live.
    int getLiveWindow() const;

    /// The columns shown: those of the recording loaded, or the live frames kept.
    const EchogramColumns& getColumns() const;
    /// Whether a recording is being loaded.
    bool isLoading() const;
    /// What the last load said: why it failed, or where the file is damaged; empty if nothing.
    QString getLoadMessage() const;

    /// Colour of the background and of ranges beyond a frame's range; rgb(76, 76, 76) by default.
    void setClearColour(const QColor& colour);
    /// Colour of the background.
    QColor getClearColour() const;
    /// Colour of the breaks between segments; white by default.
    void setBreakColour(const QColor& colour);
    /// Colour of the breaks between segments.
    QColor getBreakColour() const;
    /// Colour of the range and time labels; rgb(200, 200, 200) by default.
    void setTextColour(const QColor& colour);
    /// Colour of the cursor line; rgb(0, 255, 255) by default.
    void setCursorColour(const QColor& colour);

    /// Number (see EchogramColumns) of the column at the left edge of the picture; may have a fraction.
    double getFirstVisibleColumn() const;
    /// Columns across the picture.
    double getVisibleColumnCount() const;
    /// Shows `count` columns from column `first`; stops following new live frames.
    void setVisibleColumns(double first, double count);
    /// The widget x (pixels) at the middle of a column, or -1 when it lies outside the picture.
    int columnToPixel(std::int64_t column) const;
    /// The column under widget x (pixels), or -1 outside the picture.
    std::int64_t pixelToColumn(int x) const;

    /// As loadRecording(path), from an opened reader, which the loading thread takes over.
    void loadRecording(std::unique_ptr<Halcyra::Nereon::Sources::FrameReader> reader);

    /// Lower threshold in use, 0..1.
    float getLowerThreshold() const;
    /// Upper threshold in use, 0..1.
    float getUpperThreshold() const;

    /// The frame marked by the cursor, -1 for none.
    int getCursorFrame() const;

    /**
     * Draws `mark` over the picture, following zoom and pan, where its frames are kept; returns
     * its id (from 1 on, never reused while the widget lives).
     */
    int addMark(const EchogramMark& mark);
    /// Replaces the mark `id` by `mark`; false when there is no such mark.
    bool updateMark(int id, const EchogramMark& mark);
    /// Takes the mark `id` away; false when there is no such mark.
    bool removeMark(int id);
    /// Takes every mark away.
    void clearMarks();
    /// Marks drawn.
    int getMarkCount() const;

signals:
    /// The user clicked or dragged over the frame `frame` taken at `timestampUs` (µs since 1970 UTC).
    void frameRequested(int frame, qint64 timestampUs);
    /// A recording's columns are being computed: `framesDone` of `frameCount`.
    void loadProgress(int framesDone, int frameCount);
    /// A load ended: `completed` false when it was cancelled or the file could not be read
    /// (what was shown before stays then).
    void loadFinished(bool completed);

public slots:
    /// Adds a live frame (numbered by its index, shown at its timestamp). Starts afresh after a
    /// recording, or when the frame's number is not above the last one's.
    void addFrame(const Halcyra::Nereon::Sources::SourceFrame& frame);
    /// Adds a live picture taken at `timestampUs` (µs since 1970 UTC), numbered from 0 on.
    void addImage(const Halcyra::Nereon::NereonImage& image, qint64 timestampUs);
    /// Forgets every column and any load under way.
    void clear();

    /// Computes and shows the echogram of the recording at `path` on a thread of its own;
    /// replaces a load under way.
    void loadRecording(const QString& path);
    /// Stops a load under way; what was shown before stays.
    void cancelLoad();

    /// Marks frame `frame` (as numbered by the frames or recording), -1 for none.
    void setCursorFrame(int frame);
    /**
     * The frame the fan now shows, while a loaded recording is on screen: moves the cursor to
     * it and automatic thresholds on by it. Connect a player's frameReady() here.
     */
    void showFrame(const Halcyra::Nereon::Sources::SourceFrame& frame);
    /// Shows the newest live frames again after a pan or zoom.
    void followLatest();

    /// Unit of the range labels; borrowed, must outlive its use here. None: no range labels.
    void setDistanceUnit(const Halcyra::DataProcessing::Units::AbstractUnit* unit);
    /// Colour table, as the fan's.
    void setPalette(Halcyra::Nereon::Visualisation::FanDisplayOptions::Palette palette);
    /// Modifier of the Fire or Aqua palette.
    void setPaletteModifier(std::uint8_t modifier);
    /// Fixed thresholds (0..1) between which intensities are clamped before the colour lookup;
    /// 0 and 1 by default. Stops automatic thresholds.
    void setThresholds(float lower, float upper);
    /**
     * Thresholds that follow the frames as the fan's do at clamp level `clampLevel`: each live
     * frame, and each picture given to followThresholds(), moves them. Fed the frames the fan
     * gets, with the fan's clamp level, the colours are the fan's.
     */
    void setAutomaticThresholds(float clampLevel);
    /// Moves automatic thresholds on by a frame without adding a column (connect the fan's
    /// frames here while a recording is shown).
    void followThresholds(const Halcyra::Nereon::NereonImage& image);

protected:
    /// Builds the shaders and the column strip once the GL context exists.
    void initializeGL() override;
    /// Uploads what changed since the last paint, then draws the columns, labels and cursor.
    void paintGL() override;
    /// Nothing to do: the next paint pools the columns for the new width.
    void resizeGL(int width, int height) override;
    /// Asks for the frame under the mouse (left button), or starts a pan.
    void mousePressEvent(QMouseEvent* event) override;
    /// Follows a seek or a pan.
    void mouseMoveEvent(QMouseEvent* event) override;
    /// Ends a seek or a pan.
    void mouseReleaseEvent(QMouseEvent* event) override;
    /// Zooms in time about the mouse.
    void wheelEvent(QWheelEvent* event) override;

private:
    class EchogramDisplayPrivate;
    std::unique_ptr<EchogramDisplayPrivate> const d;
};

} // namespace Halcyra::Nereon::Views
