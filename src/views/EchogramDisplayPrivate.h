#pragma once

#include "EchogramPyramid.h"
#include "EchogramRenderer.h"
#include "views/EchogramDisplay.h"
#include "views/EchogramMark.h"

#include <QColor>
#include <QMetaObject>
#include <QPoint>
#include <QRect>
#include <QString>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <thread>
#include <vector>

class QPainter;

namespace Halcyra::Nereon::Views {

class EchogramDisplay::EchogramDisplayPrivate
{
public:
    /// A mark with the span of its drawable points, for passing over marks out of view cheaply.
    struct StoredMark
    {
        EchogramMark mark;
        std::int64_t least = 0;
        std::int64_t most = -1; // below least: nothing to draw
    };

    enum class Drag
    {
        None,
        Seek,
        Pan,
    };

    explicit EchogramDisplayPrivate(EchogramDisplay& display);

    /// Where the columns are drawn, in widget pixels: the widget less the label margins.
    QRect plotRect() const;
    /// Columns per strip slot for the current view: a power of two, so that a slot is never
    /// narrower than a pixel and small zooms keep the pooling.
    std::int64_t groupForView() const;
    /// Keeps the view on the columns there are, and on the newest while following.
    void clampView();
    /// Brings the GL strip up to date with the view and the columns, uploading as little as it can.
    void prepareStrip();
    /// Pools and uploads groups first to last (inclusive) into their slots.
    void uploadGroups(std::int64_t first, std::int64_t last);
    /// Appends a frame's column as a live frame.
    void addLive(const NereonImage& image, int frameIndex, std::int64_t timestamp);
    /// The column showing the cursor's frame, or -1.
    std::int64_t cursorColumn() const;
    /// The column whose frame a click at widget x asks for, or -1.
    std::int64_t columnForClick(int x) const;
    void requestFrameAt(int x);

    void startLoad(std::shared_ptr<Sources::FrameReader> reader, const QString& path);
    /// Asks a loading thread to stop and waits for it.
    void stopLoader();
    void loadDone(int generation, std::shared_ptr<EchogramColumns> result, std::shared_ptr<EchogramPyramid> overview,
        bool completed, const QString& message);

    void paintLabels();
    static StoredMark storeMark(const EchogramMark& mark);
    /// The kept, non-break column at a mark's position, or -1.
    std::int64_t markColumn(EchogramMark::Axis axis, std::int64_t position) const;
    /// Gathers the segments and labels of the marks in view, for plot rectangle `plot`.
    void prepareMarks(const QRect& plot);
    /// The labels prepareMarks() found room for.
    void paintMarkLabels(QPainter& painter, const QRect& plot);

    EchogramDisplay& q;
    EchogramColumns columns;
    EchogramPyramid pyramid; // a recording's only: live columns come and go
    bool showsRecording = false;
    int liveWindow = 2048;
    int nextLiveNumber = 0;
    float largestRange = 0.0f;
    bool largestRangeStale = false;

    // The view, in column numbers.
    double viewFirst = 0.0;
    double viewCount = 2048.0;
    bool following = true;
    int cursorFrame = -1;

    // The GL strip and what it holds.
    EchogramRenderer renderer;
    EchogramRenderer::Strip strip;
    bool stripValid = false; // false: rebuild from scratch at the next paint
    std::int64_t uploadedEnd = 0; // columns below this are in the strip's groups
    bool glFailed = false;
    QMetaObject::Connection contextGoing;
    int maxSlots = 8192;
    std::vector<std::uint8_t> uploadBins; // scratch for uploads, kept to spare allocations
    std::vector<float> uploadRanges;

    // Colours.
    Visualisation::FanDisplayOptions::Palette palette = Visualisation::FanDisplayOptions::Greyscale;
    std::uint8_t paletteModifier = 0;
    float lowerThreshold = 0.0f;
    float upperThreshold = 1.0f;
    bool automaticThresholds = false;
    float clampLevel = 0.0f;
    bool coloursChanged = true;
    QColor clearColour = QColor(76, 76, 76);
    QColor breakColour = QColor(255, 255, 255);
    QColor textColour = QColor(200, 200, 200);
    QColor cursorColour = QColor(0, 255, 255);
    const DataProcessing::Units::AbstractUnit* distanceUnit = nullptr;

    // Marks over the picture, drawn in the order added.
    std::map<int, StoredMark> marks;
    int nextMarkId = 1;
    struct MarkLabel
    {
        QPoint at;
        QColor colour;
        QString text;
    };
    // What the next paint draws of the marks, kept to spare allocations.
    std::vector<EchogramRenderer::LineVertex> markVertices;
    std::vector<MarkLabel> markLabels;

    // Mouse.
    Drag drag = Drag::None;
    QPoint lastMouse;
    int lastRequestedFrame = -1;

    // Loading a recording.
    std::thread loader;
    std::shared_ptr<std::atomic_bool> cancelLoading;
    int loadGeneration = 0;
    bool loading = false;
    QString loadMessage;
};

} // namespace Halcyra::Nereon::Views
