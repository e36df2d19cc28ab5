#include "views/EchogramDisplay.h"

#include "EchogramDisplayPrivate.h"
#include "PaletteColours.h"
#include "sources/FrameReader.h"
#include "sources/SourceFrame.h"
#include "units/AbstractUnit.h"
#include "views/EchogramBuilder.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QFontMetrics>
#include <QMouseEvent>
#include <QOpenGLContext>
#include <QPainter>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace Halcyra::Nereon::Views {

namespace {

constexpr double smallestView = 4.0;

/// A round step of at least `least`: 1, 2 or 5 times a power of ten.
double roundStep(double least)
{
    if (!(least > 0.0))
        return 1.0;
    const double power = std::pow(10.0, std::floor(std::log10(least)));
    for (const double factor : { 1.0, 2.0, 5.0, 10.0 }) {
        if (factor * power >= least)
            return factor * power;
    }
    return 10.0 * power;
}

/// A step between time labels of at least `leastUs` microseconds, one a clock reader likes.
std::int64_t timeStep(double leastUs)
{
    static const std::int64_t tenths[] = { 1, 2, 5, 10, 20, 50, 100, 150, 300, 600, 1200, 3000, 6000, 9000,
        18000, 36000, 72000, 108000, 216000, 432000, 864000 };
    for (const std::int64_t step : tenths) {
        if (static_cast<double>(step) * 1.0e5 >= leastUs)
            return step * 100000;
    }
    return static_cast<std::int64_t>(std::ceil(leastUs / 86400.0e6)) * 86400 * 1000000;
}

/// A time label, as precise as the step between labels needs.
QString timeLabel(std::int64_t timeUs, std::int64_t stepUs)
{
    const QDateTime when = QDateTime::fromMSecsSinceEpoch(timeUs / 1000, Qt::UTC);
    if (stepUs >= 86400LL * 1000000)
        return when.toString(QStringLiteral("yyyy-MM-dd"));
    if (stepUs >= 60LL * 1000000)
        return when.toString(QStringLiteral("HH:mm"));
    if (stepUs >= 1000000)
        return when.toString(QStringLiteral("HH:mm:ss"));
    return when.toString(QStringLiteral("HH:mm:ss.")) + QString::number(timeUs / 100000 % 10);
}

} // namespace

EchogramDisplay::EchogramDisplayPrivate::EchogramDisplayPrivate(EchogramDisplay& display)
    : q(display)
{
}

QRect EchogramDisplay::EchogramDisplayPrivate::plotRect() const
{
    const QFontMetrics metrics(q.font());
    int left = 0;
    if (distanceUnit) {
        const QString widest = QStringLiteral("00000 ") + QString::fromStdString(distanceUnit->getSymbol());
        left = metrics.horizontalAdvance(widest) + 6;
    }
    // Room above for half the top range label, which is centred on its range.
    const int top = distanceUnit ? metrics.height() / 2 : 0;
    const int bottom = metrics.height() + 4;
    return QRect(left, top, std::max(1, q.width() - left), std::max(1, q.height() - bottom - top));
}

std::int64_t EchogramDisplay::EchogramDisplayPrivate::groupForView() const
{
    const double pixels = std::max(1, std::min(plotRect().width(), renderer.getSlots() - 4));
    std::int64_t group = 1;
    while (static_cast<double>(group) * pixels < viewCount)
        group *= 2;
    return group;
}

void EchogramDisplay::EchogramDisplayPrivate::clampView()
{
    const double first = static_cast<double>(columns.getFirstColumn());
    const double end = static_cast<double>(columns.getEndColumn());
    const double available = std::max(end - first, smallestView);
    // Live, the view keeps its width while the first frames fill it from the right.
    const double most = showsRecording ? available : static_cast<double>(liveWindow);
    viewCount = std::clamp(viewCount, smallestView, std::max(most, smallestView));
    if (following && !showsRecording) {
        viewFirst = end - viewCount;
        return;
    }
    // Keep the columns in view: all of them when they are fewer than the view holds.
    if (viewCount <= end - first)
        viewFirst = std::clamp(viewFirst, first, end - viewCount);
    else
        viewFirst = std::clamp(viewFirst, end - viewCount, first);
}

void EchogramDisplay::EchogramDisplayPrivate::uploadGroups(std::int64_t firstGroup, std::int64_t lastGroup)
{
    const int slotTotal = renderer.getSlots();
    const int bins = renderer.getBins();
    const std::int64_t group = strip.group;
    const std::int64_t firstColumn = columns.getFirstColumn();
    const std::int64_t endColumn = columns.getEndColumn();

    std::int64_t k = firstGroup;
    while (k <= lastGroup) {
        // Contiguous slots up to the strip's wrap, in one upload.
        const int firstSlot = static_cast<int>(k % slotTotal);
        const int count = static_cast<int>(std::min<std::int64_t>(lastGroup - k + 1, slotTotal - firstSlot));
        uploadBins.assign(static_cast<std::size_t>(count) * static_cast<std::size_t>(bins), 0);
        uploadRanges.assign(static_cast<std::size_t>(count), 0.0f);
        for (int i = 0; i < count; ++i) {
            const std::int64_t from = std::max((k + i) * group, firstColumn);
            const std::int64_t to = std::min((k + i + 1) * group, endColumn);
            std::uint8_t* out = uploadBins.data() + static_cast<std::size_t>(i) * static_cast<std::size_t>(bins);
            // A break anywhere in a slot shows, however far the view is zoomed out.
            uploadRanges[static_cast<std::size_t>(i)] = from < to ? pyramid.pool(columns, from, to, out) : 0.0f;
        }
        renderer.writeSlots(firstSlot, count, uploadBins.data(), uploadRanges.data());
        k += count;
    }
}

void EchogramDisplay::EchogramDisplayPrivate::prepareStrip()
{
    const int slotTotal = renderer.getSlots();
    const std::int64_t group = groupForView();
    const std::int64_t firstColumn = columns.getFirstColumn();
    const std::int64_t endColumn = columns.getEndColumn();
    if (columns.getRangeBins() != renderer.getBins()) {
        QString error;
        if (!renderer.initialise(slotTotal, columns.getRangeBins(), &error)) {
            glFailed = true;
            qWarning("EchogramDisplay: %s", qPrintable(error));
            return;
        }
        coloursChanged = true;
        stripValid = false;
    }
    if (columns.isEmpty()) {
        strip = EchogramRenderer::Strip();
        stripValid = true;
        uploadedEnd = endColumn;
        return;
    }
    const auto groupOf = [group](std::int64_t column) {
        return column >= 0 ? column / group : -((-column + group - 1) / group);
    };
    const std::int64_t firstKept = groupOf(firstColumn);
    const std::int64_t lastKept = groupOf(endColumn - 1);
    const std::int64_t firstWanted = std::max(firstKept, groupOf(static_cast<std::int64_t>(std::floor(viewFirst))));
    const std::int64_t lastWanted
        = std::min(lastKept, groupOf(static_cast<std::int64_t>(std::ceil(viewFirst + viewCount))));

    const std::int64_t stripFirstGroup = strip.first / std::max<std::int64_t>(strip.group, 1);
    // New live columns extend the strip in place: only their slots are uploaded.
    if (stripValid && strip.group == group && uploadedEnd < endColumn && strip.valid > 0
        && stripFirstGroup + strip.valid >= groupOf(uploadedEnd)) {
        // Frames dropped before they were ever shown need no upload.
        const std::int64_t from = std::max(firstKept, groupOf(uploadedEnd));
        const std::int64_t to = lastKept;
        uploadGroups(from, to);
        std::int64_t first = stripFirstGroup;
        std::int64_t valid = to + 1 - first;
        if (valid > slotTotal) {
            first = to + 1 - slotTotal;
            valid = slotTotal;
        }
        strip.first = first * group;
        strip.valid = static_cast<int>(valid);
        strip.ringOffset = static_cast<int>(first % slotTotal);
        uploadedEnd = endColumn;
    }

    const std::int64_t currentFirst = strip.first / group;
    const bool covers = stripValid && strip.group == group && uploadedEnd == endColumn
        && currentFirst <= firstWanted && lastWanted < currentFirst + strip.valid;
    if (covers)
        return;

    // Rebuild around the view, with room to pan either way.
    const std::int64_t wanted = lastWanted - firstWanted + 1;
    std::int64_t first = std::max(firstKept, firstWanted - (slotTotal - wanted) / 2);
    const std::int64_t last = std::min(lastKept, first + slotTotal - 1);
    first = std::max(firstKept, std::min(first, last - slotTotal + 1));
    strip.group = group;
    strip.first = first * group;
    strip.valid = static_cast<int>(last - first + 1);
    strip.ringOffset = static_cast<int>(first % slotTotal);
    uploadGroups(first, last);
    uploadedEnd = endColumn;
    stripValid = true;
}

void EchogramDisplay::EchogramDisplayPrivate::addLive(
    const NereonImage& image, int frameIndex, std::int64_t timestamp)
{
    if (!EchogramColumns::isUsable(image))
        return;
    if (showsRecording || (!columns.isEmpty() && frameIndex <= columns.getFrameIndex(columns.getEndColumn() - 1))) {
        // A recording was shown, or the frames started again: a new echogram.
        if (showsRecording)
            stopLoader();
        showsRecording = false;
        columns.clear();
        pyramid.clear();
        largestRange = 0.0f;
        stripValid = false;
        following = true;
        viewCount = liveWindow;
    }
    if (automaticThresholds) {
        Visualisation::PaletteColours::followFrame(
            image.getData().data(), image.getData().size(), clampLevel, lowerThreshold, upperThreshold);
        coloursChanged = true;
    }
    const std::int64_t firstBefore = columns.getFirstColumn();
    columns.append(image, frameIndex, timestamp);
    columns.keepLast(static_cast<std::size_t>(liveWindow));
    if (columns.getFirstColumn() != firstBefore)
        largestRangeStale = true;
    largestRange = std::max(largestRange, static_cast<float>(image.getRange()));
    q.update();
}

std::int64_t EchogramDisplay::EchogramDisplayPrivate::cursorColumn() const
{
    if (cursorFrame < 0)
        return -1;
    std::int64_t column = columns.findFrame(cursorFrame);
    // A break carries the number of the frame after it.
    if (column < columns.getEndColumn() && columns.isBreak(column))
        ++column;
    if (column >= columns.getEndColumn() || columns.getFrameIndex(column) != cursorFrame)
        return -1;
    return column;
}

std::int64_t EchogramDisplay::EchogramDisplayPrivate::columnForClick(int x) const
{
    const std::int64_t column = q.pixelToColumn(x);
    if (column < 0)
        return -1;
    // The cursor's own pixel gives the cursor's frame, even where a pixel holds many frames.
    const std::int64_t cursor = cursorColumn();
    if (cursor >= 0 && q.columnToPixel(cursor) == x)
        return cursor;
    return column;
}

void EchogramDisplay::EchogramDisplayPrivate::requestFrameAt(int x)
{
    const std::int64_t column = columnForClick(x);
    if (column < 0)
        return;
    const int frame = columns.getFrameIndex(column);
    if (frame == lastRequestedFrame)
        return;
    lastRequestedFrame = frame;
    emit q.frameRequested(frame, columns.getTimestamp(column));
}

void EchogramDisplay::EchogramDisplayPrivate::stopLoader()
{
    if (cancelLoading)
        cancelLoading->store(true);
    if (loader.joinable())
        loader.join();
}

void EchogramDisplay::EchogramDisplayPrivate::startLoad(std::shared_ptr<Sources::FrameReader> reader, const QString& path)
{
    stopLoader();
    const int generation = ++loadGeneration;
    auto cancel = std::make_shared<std::atomic_bool>(false);
    cancelLoading = cancel;
    loading = true;
    loadMessage.clear();
    const int bins = columns.getRangeBins();
    const EchogramReduction reduction = columns.getReduction();
    EchogramDisplay* display = &q;
    loader = std::thread([display, reader, path, cancel, generation, bins, reduction]() mutable {
        QString message;
        auto result = std::make_shared<EchogramColumns>(bins, reduction);
        auto pyramid = std::make_shared<EchogramPyramid>();
        bool completed = false;
        if (!reader)
            reader = std::shared_ptr<Sources::FrameReader>(Sources::FrameReader::create(path, &message));
        if (reader && reader->isOpen()) {
            QElapsedTimer sinceProgress;
            sinceProgress.start();
            *result = EchogramBuilder::build(*reader, bins, reduction, [&](int done, int count) {
                if (cancel->load())
                    return false;
                // A few reports a second are enough for a progress bar.
                if (sinceProgress.elapsed() >= 40 || done == count) {
                    sinceProgress.restart();
                    QMetaObject::invokeMethod(
                        display,
                        [display, generation, done, count]() {
                            if (display->d->loadGeneration == generation)
                                emit display->loadProgress(done, count);
                        },
                        Qt::QueuedConnection);
                }
                return true;
            });
            completed = !cancel->load();
            message = reader->describeDamage();
            if (completed)
                pyramid->build(*result);
        } else if (reader && message.isEmpty()) {
            message = reader->getErrorString();
        }
        // Posted to the widget: dropped by Qt if the widget is gone, and the widget's
        // destructor waits for this thread, so `display` is alive while this runs.
        QMetaObject::invokeMethod(
            display,
            [display, generation, result, pyramid, completed, message]() {
                display->d->loadDone(generation, result, pyramid, completed, message);
            },
            Qt::QueuedConnection);
    });
}

void EchogramDisplay::EchogramDisplayPrivate::loadDone(int generation, std::shared_ptr<EchogramColumns> result,
    std::shared_ptr<EchogramPyramid> overview, bool completed, const QString& message)
{
    if (generation != loadGeneration)
        return; // cancelled or replaced: already reported
    if (loader.joinable())
        loader.join();
    loading = false;
    loadMessage = message;
    const bool shown = completed && !result->isEmpty();
    if (shown) {
        columns = std::move(*result);
        pyramid = std::move(*overview);
        showsRecording = true;
        following = false;
        largestRange = columns.getLargestRange();
        largestRangeStale = false;
        viewFirst = static_cast<double>(columns.getFirstColumn());
        viewCount = static_cast<double>(columns.size());
        stripValid = false;
        q.update();
    }
    emit q.loadFinished(shown);
}

void EchogramDisplay::EchogramDisplayPrivate::paintLabels()
{
    const QRect plot = plotRect();
    QPainter painter(&q);
    painter.setFont(q.font());
    const QFontMetrics metrics(q.font());

    if (!columns.isEmpty()) {
        // Time labels, UTC, where the columns' times pass round clock values.
        const std::int64_t firstShown = std::clamp<std::int64_t>(
            static_cast<std::int64_t>(std::floor(viewFirst)), columns.getFirstColumn(), columns.getEndColumn() - 1);
        const std::int64_t lastShown = std::clamp<std::int64_t>(
            static_cast<std::int64_t>(std::ceil(viewFirst + viewCount)) - 1, columns.getFirstColumn(),
            columns.getEndColumn() - 1);
        const std::int64_t startTime = columns.getTimestamp(firstShown);
        const std::int64_t endTime = columns.getTimestamp(lastShown);
        if (endTime > startTime) {
            const double usPerPixel = static_cast<double>(endTime - startTime) / plot.width();
            std::int64_t step = timeStep(usPerPixel * (metrics.horizontalAdvance(QStringLiteral("00:00:00")) + 16));
            // Tenths make the labels wider: room for them first.
            if (step < 1000000)
                step = timeStep(usPerPixel * (metrics.horizontalAdvance(QStringLiteral("00:00:00.0")) + 16));
            const int labelWidth = metrics.horizontalAdvance(timeLabel(0, step)) + 16;
            int lastRight = -labelWidth;
            painter.setPen(textColour);
            std::int64_t time = (startTime / step + 1) * step;
            for (int drawn = 0; time <= endTime && drawn < 200; time += step, ++drawn) {
                const std::int64_t column = columns.findTime(time);
                const int x = q.columnToPixel(column);
                if (x < 0 || x - labelWidth / 2 < lastRight)
                    continue;
                const QString text = timeLabel(time, step);
                painter.drawLine(x, plot.bottom() + 1, x, plot.bottom() + 3);
                painter.drawText(QRect(x - labelWidth / 2, plot.bottom() + 2, labelWidth, metrics.height() + 2),
                    Qt::AlignHCenter | Qt::AlignTop, text);
                lastRight = x + labelWidth / 2;
            }
        }
    }

    if (distanceUnit && largestRange > 0.0f) {
        // Range labels in the application's unit, at round values.
        const double axisInUnit = distanceUnit->convertFromBase(largestRange);
        const double least = axisInUnit * (metrics.height() * 2.0) / std::max(1, plot.height());
        const double step = roundStep(least);
        const QString symbol = QString::fromStdString(distanceUnit->getSymbol());
        painter.setPen(textColour);
        for (double value = step; value <= axisInUnit && value / step < 1000; value += step) {
            const double metres = distanceUnit->convertToBase(value);
            const int y = plot.bottom() - static_cast<int>(std::lround(metres / largestRange * plot.height()));
            painter.drawLine(plot.left() - 3, y, plot.left() - 1, y);
            painter.drawText(QRect(0, y - metrics.height() / 2, plot.left() - 5, metrics.height()),
                Qt::AlignRight | Qt::AlignVCenter, QString::number(value) + QLatin1Char(' ') + symbol);
        }
    }

    paintMarkLabels(painter, plot);

    if (const std::int64_t column = cursorColumn(); column >= 0) {
        const int x = q.columnToPixel(column);
        // A filled pixel column: exactly the pixel that columnToPixel() names, at either edge too.
        if (x >= 0)
            painter.fillRect(QRect(x, plot.top(), 1, plot.height()), cursorColour);
    }
}

EchogramDisplay::EchogramDisplayPrivate::StoredMark EchogramDisplay::EchogramDisplayPrivate::storeMark(
    const EchogramMark& mark)
{
    StoredMark stored { mark };
    bool any = false;
    for (const EchogramMark::Point& point : mark.getPoints()) {
        if (!std::isfinite(point.rangeMetres))
            continue;
        stored.least = any ? std::min(stored.least, point.position) : point.position;
        stored.most = any ? std::max(stored.most, point.position) : point.position;
        any = true;
    }
    return stored;
}

std::int64_t EchogramDisplay::EchogramDisplayPrivate::markColumn(
    EchogramMark::Axis axis, std::int64_t position) const
{
    const std::int64_t end = columns.getEndColumn();
    if (axis == EchogramMark::Axis::Frame) {
        if (position < INT32_MIN || position > INT32_MAX)
            return -1;
        std::int64_t column = columns.findFrame(static_cast<int>(position));
        // A break carries the number of the frame after it.
        if (column < end && columns.isBreak(column))
            ++column;
        return column < end && columns.getFrameIndex(column) == position ? column : -1;
    }
    std::int64_t column = columns.findTime(position);
    if (column >= end || (column == columns.getFirstColumn() && columns.getTimestamp(column) != position))
        return -1;
    // Between two frames: the nearer one.
    if (columns.getTimestamp(column) != position && column > columns.getFirstColumn()
        && position - columns.getTimestamp(column - 1) < columns.getTimestamp(column) - position)
        --column;
    if (columns.isBreak(column))
        column = column + 1 < end ? column + 1 : column - 1;
    return column >= columns.getFirstColumn() && column < end && !columns.isBreak(column) ? column : -1;
}

void EchogramDisplay::EchogramDisplayPrivate::prepareMarks(const QRect& plot)
{
    markVertices.clear();
    markLabels.clear();
    if (marks.empty() || columns.isEmpty() || !(largestRange > 0.0f))
        return;
    // The span shown, a column wider each side so that lines leaving the picture reach its edges.
    const std::int64_t firstKept = columns.getFirstColumn();
    const std::int64_t lastKept = columns.getEndColumn() - 1;
    const std::int64_t firstShown
        = std::clamp<std::int64_t>(static_cast<std::int64_t>(std::floor(viewFirst)) - 1, firstKept, lastKept);
    const std::int64_t lastShown = std::clamp<std::int64_t>(
        static_cast<std::int64_t>(std::ceil(viewFirst + viewCount)), firstKept, lastKept);
    const std::int64_t framesFrom = columns.getFrameIndex(firstShown);
    const std::int64_t framesTo = columns.getFrameIndex(lastShown);
    const std::int64_t timesFrom = columns.getTimestamp(firstShown);
    const std::int64_t timesTo = columns.getTimestamp(lastShown);

    const double xScale = plot.width() / viewCount;
    const double yScale = plot.height() / static_cast<double>(largestRange);
    const double bottom = plot.top() + plot.height();
    // Far beyond the widget but well inside a float's exact integers: the scissor clips the rest.
    constexpr double farOut = 1.0e6;

    EchogramRenderer::LineVertex vertex;
    const auto addVertex = [&](QPoint at) {
        vertex.x = static_cast<GLfloat>(at.x()) + 0.5f;
        vertex.y = static_cast<GLfloat>(at.y()) + 0.5f;
        markVertices.push_back(vertex);
    };
    for (const auto& [id, stored] : marks) {
        const bool byFrame = stored.mark.getAxis() == EchogramMark::Axis::Frame;
        if (stored.most < (byFrame ? framesFrom : timesFrom) || stored.least > (byFrame ? framesTo : timesTo))
            continue;
        const QColor colour = stored.mark.getColour();
        vertex.colour[0] = static_cast<GLubyte>(colour.red());
        vertex.colour[1] = static_cast<GLubyte>(colour.green());
        vertex.colour[2] = static_cast<GLubyte>(colour.blue());
        bool inRun = false;
        bool drawn = false;
        QPoint last;
        // A segment's far end is left out by GL: a run ends with a pixel-long segment of its own.
        const auto endRun = [&]() {
            if (inRun) {
                addVertex(last);
                addVertex(last + QPoint(1, 0));
            }
            inRun = false;
        };
        for (const EchogramMark::Point& point : stored.mark.getPoints()) {
            const std::int64_t column
                = std::isfinite(point.rangeMetres) ? markColumn(stored.mark.getAxis(), point.position) : -1;
            if (column < 0) {
                endRun();
                continue;
            }
            const double x = plot.left() + (static_cast<double>(column) + 0.5 - viewFirst) * xScale;
            const double y = bottom - point.rangeMetres * yScale;
            const QPoint at(static_cast<int>(std::floor(std::clamp(x, -farOut, farOut))),
                static_cast<int>(std::floor(std::clamp(y, -farOut, farOut))));
            if (inRun) {
                // Zoomed out, many frames share a pixel: one vertex does for them.
                if (at == last)
                    continue;
                addVertex(last);
                addVertex(at);
            }
            last = at;
            inRun = true;
            drawn = true;
        }
        endRun();
        if (drawn && !stored.mark.getLabel().isEmpty() && plot.contains(last))
            markLabels.push_back({ last, colour, stored.mark.getLabel() });
    }
}

void EchogramDisplay::EchogramDisplayPrivate::paintMarkLabels(QPainter& painter, const QRect& plot)
{
    if (markLabels.empty())
        return;
    painter.save();
    painter.setClipRect(plot);
    for (const MarkLabel& label : markLabels) {
        painter.setPen(label.colour);
        painter.drawText(label.at + QPoint(4, -4), label.text);
    }
    painter.restore();
}

EchogramDisplay::EchogramDisplay(QWidget* parent)
    : QOpenGLWidget(parent)
    , d(std::make_unique<EchogramDisplayPrivate>(*this))
{
    qRegisterMetaType<Sources::SourceFrame>();
    setMinimumSize(64, 48);
}

EchogramDisplay::~EchogramDisplay()
{
    d->stopLoader();
    disconnect(d->contextGoing);
    if (isValid()) {
        makeCurrent();
        d->renderer.destroy();
        doneCurrent();
    }
}

void EchogramDisplay::setRangeBins(int bins)
{
    bins = std::clamp(bins, 1, EchogramColumns::maximumRangeBins);
    if (bins == d->columns.getRangeBins())
        return;
    clear();
    d->columns = EchogramColumns(bins, d->columns.getReduction());
}

int EchogramDisplay::getRangeBins() const
{
    return d->columns.getRangeBins();
}

void EchogramDisplay::setReduction(EchogramReduction reduction)
{
    if (reduction == d->columns.getReduction())
        return;
    clear();
    d->columns = EchogramColumns(d->columns.getRangeBins(), reduction);
}

EchogramReduction EchogramDisplay::getReduction() const
{
    return d->columns.getReduction();
}

void EchogramDisplay::setLiveWindow(int frames)
{
    d->liveWindow = std::clamp(frames, 16, std::min(8192, d->maxSlots - 4));
    if (!d->showsRecording) {
        d->columns.keepLast(static_cast<std::size_t>(d->liveWindow));
        d->largestRangeStale = true;
        d->viewCount = d->liveWindow;
    }
    update();
}

int EchogramDisplay::getLiveWindow() const
{
    return d->liveWindow;
}

const EchogramColumns& EchogramDisplay::getColumns() const
{
    return d->columns;
}

bool EchogramDisplay::isLoading() const
{
    return d->loading;
}

QString EchogramDisplay::getLoadMessage() const
{
    return d->loadMessage;
}

void EchogramDisplay::setClearColour(const QColor& colour)
{
    d->clearColour = colour;
    update();
}

QColor EchogramDisplay::getClearColour() const
{
    return d->clearColour;
}

void EchogramDisplay::setBreakColour(const QColor& colour)
{
    d->breakColour = colour;
    update();
}

QColor EchogramDisplay::getBreakColour() const
{
    return d->breakColour;
}

void EchogramDisplay::setTextColour(const QColor& colour)
{
    d->textColour = colour;
    update();
}

void EchogramDisplay::setCursorColour(const QColor& colour)
{
    d->cursorColour = colour;
    update();
}

double EchogramDisplay::getFirstVisibleColumn() const
{
    d->clampView();
    return d->viewFirst;
}

double EchogramDisplay::getVisibleColumnCount() const
{
    d->clampView();
    return d->viewCount;
}

void EchogramDisplay::setVisibleColumns(double first, double count)
{
    d->following = false;
    d->viewFirst = first;
    d->viewCount = count;
    d->clampView();
    update();
}

int EchogramDisplay::columnToPixel(std::int64_t column) const
{
    d->clampView();
    const QRect plot = d->plotRect();
    const double x = plot.left() + (static_cast<double>(column) + 0.5 - d->viewFirst) / d->viewCount * plot.width();
    if (x < plot.left() || x >= plot.left() + plot.width())
        return -1;
    return static_cast<int>(std::floor(x));
}

std::int64_t EchogramDisplay::pixelToColumn(int x) const
{
    d->clampView();
    const QRect plot = d->plotRect();
    if (x < plot.left() || x >= plot.left() + plot.width())
        return -1;
    const double column = d->viewFirst + (x + 0.5 - plot.left()) / plot.width() * d->viewCount;
    const auto result = static_cast<std::int64_t>(std::floor(column));
    if (result < d->columns.getFirstColumn() || result >= d->columns.getEndColumn())
        return -1;
    return result;
}

int EchogramDisplay::getCursorFrame() const
{
    return d->cursorFrame;
}

int EchogramDisplay::addMark(const EchogramMark& mark)
{
    const int id = d->nextMarkId++;
    d->marks.emplace(id, EchogramDisplayPrivate::storeMark(mark));
    update();
    return id;
}

bool EchogramDisplay::updateMark(int id, const EchogramMark& mark)
{
    const auto found = d->marks.find(id);
    if (found == d->marks.end())
        return false;
    found->second = EchogramDisplayPrivate::storeMark(mark);
    update();
    return true;
}

bool EchogramDisplay::removeMark(int id)
{
    if (d->marks.erase(id) == 0)
        return false;
    update();
    return true;
}

void EchogramDisplay::clearMarks()
{
    if (d->marks.empty())
        return;
    d->marks.clear();
    update();
}

int EchogramDisplay::getMarkCount() const
{
    return static_cast<int>(d->marks.size());
}

void EchogramDisplay::addFrame(const Sources::SourceFrame& frame)
{
    const int index = frame.index >= 0 ? frame.index : d->nextLiveNumber;
    d->nextLiveNumber = index + 1;
    d->addLive(frame.image, index, frame.timestamp);
}

void EchogramDisplay::addImage(const NereonImage& image, qint64 timestampUs)
{
    d->addLive(image, d->nextLiveNumber++, timestampUs);
}

void EchogramDisplay::clear()
{
    cancelLoad();
    d->stopLoader();
    d->columns.clear();
    d->pyramid.clear();
    d->showsRecording = false;
    d->nextLiveNumber = 0;
    d->largestRange = 0.0f;
    d->largestRangeStale = false;
    d->following = true;
    d->viewCount = d->liveWindow;
    d->stripValid = false;
    d->lastRequestedFrame = -1;
    update();
}

void EchogramDisplay::loadRecording(const QString& path)
{
    d->startLoad(nullptr, path);
}

void EchogramDisplay::loadRecording(std::unique_ptr<Sources::FrameReader> reader)
{
    const QString name = reader ? reader->getFileName() : QString();
    d->startLoad(std::shared_ptr<Sources::FrameReader>(std::move(reader)), name);
}

void EchogramDisplay::cancelLoad()
{
    if (!d->loading)
        return;
    // The thread stops at its next frame; its result, arriving later, is dropped.
    if (d->cancelLoading)
        d->cancelLoading->store(true);
    ++d->loadGeneration;
    d->loading = false;
    emit loadFinished(false);
}

void EchogramDisplay::setCursorFrame(int frame)
{
    d->cursorFrame = frame;
    update();
}

void EchogramDisplay::showFrame(const Sources::SourceFrame& frame)
{
    followThresholds(frame.image);
    setCursorFrame(frame.index);
}

void EchogramDisplay::followLatest()
{
    d->following = true;
    update();
}

void EchogramDisplay::setDistanceUnit(const DataProcessing::Units::AbstractUnit* unit)
{
    d->distanceUnit = unit;
    update();
}

void EchogramDisplay::setPalette(Visualisation::FanDisplayOptions::Palette palette)
{
    d->palette = palette;
    d->coloursChanged = true;
    update();
}

void EchogramDisplay::setPaletteModifier(std::uint8_t modifier)
{
    d->paletteModifier = modifier;
    d->coloursChanged = true;
    update();
}

void EchogramDisplay::setThresholds(float lower, float upper)
{
    d->automaticThresholds = false;
    d->lowerThreshold = lower;
    d->upperThreshold = upper;
    d->coloursChanged = true;
    update();
}

void EchogramDisplay::setAutomaticThresholds(float clampLevel)
{
    d->automaticThresholds = true;
    d->clampLevel = clampLevel;
}

void EchogramDisplay::followThresholds(const NereonImage& image)
{
    if (!d->automaticThresholds || !EchogramColumns::isUsable(image))
        return;
    Visualisation::PaletteColours::followFrame(
        image.getData().data(), image.getData().size(), d->clampLevel, d->lowerThreshold, d->upperThreshold);
    d->coloursChanged = true;
    update();
}

float EchogramDisplay::getLowerThreshold() const
{
    return d->lowerThreshold;
}

float EchogramDisplay::getUpperThreshold() const
{
    return d->upperThreshold;
}

void EchogramDisplay::initializeGL()
{
    d->renderer.destroy();
    disconnect(d->contextGoing);
    // Qt replaces the context when the widget moves to another window: release with it.
    d->contextGoing = connect(context(), &QOpenGLContext::aboutToBeDestroyed, this, [this]() {
        makeCurrent();
        d->renderer.destroy();
        doneCurrent();
    });
    GLint maxTextureSize = 2048;
    context()->functions()->glGetIntegerv(GL_MAX_TEXTURE_SIZE, &maxTextureSize);
    d->maxSlots = std::min(8192, static_cast<int>(maxTextureSize));
    d->liveWindow = std::min(d->liveWindow, d->maxSlots - 4);
    QString error;
    d->glFailed = !d->renderer.initialise(d->maxSlots, d->columns.getRangeBins(), &error);
    if (d->glFailed)
        qWarning("EchogramDisplay: %s", qPrintable(error));
    d->coloursChanged = true;
    d->stripValid = false;
}

void EchogramDisplay::resizeGL(int, int)
{
    // The pooling follows the width; prepareStrip() notices a change of group by itself.
}

void EchogramDisplay::paintGL()
{
    QOpenGLFunctions* gl = context()->functions();
    gl->glClearColor(d->clearColour.redF(), d->clearColour.greenF(), d->clearColour.blueF(), 1.0f);
    gl->glClear(GL_COLOR_BUFFER_BIT);
    if (d->glFailed || !d->renderer.isInitialised())
        return;

    if (d->largestRangeStale) {
        d->largestRange = d->columns.getLargestRange();
        d->largestRangeStale = false;
    }
    d->clampView();
    d->prepareStrip();
    if (d->coloursChanged) {
        d->renderer.setColours(Visualisation::PaletteColours::shownColours(
            d->palette, d->paletteModifier, d->lowerThreshold, d->upperThreshold));
        d->coloursChanged = false;
    }
    if (!d->columns.isEmpty() && d->largestRange > 0.0f) {
        const QRect plot = d->plotRect();
        // Widget pixels to clip coordinates; the rectangle's top() is its lower edge in clip space.
        const double w = width();
        const double h = height();
        const QRectF clip(2.0 * plot.left() / w - 1.0, 1.0 - 2.0 * (plot.top() + plot.height()) / h,
            2.0 * plot.width() / w, 2.0 * plot.height() / h);
        d->renderer.draw(clip, d->strip, d->viewFirst - static_cast<double>(d->strip.first), d->viewCount,
            d->largestRange, d->clearColour, d->breakColour);
        d->prepareMarks(plot);
        d->renderer.drawLines(d->markVertices, width(), height(), plot, devicePixelRatioF());
    } else {
        d->markLabels.clear();
    }
    d->paintLabels();
}

void EchogramDisplay::mousePressEvent(QMouseEvent* event)
{
    d->lastMouse = event->pos();
    const bool pan = event->button() == Qt::RightButton || event->button() == Qt::MiddleButton
        || (event->button() == Qt::LeftButton && (event->modifiers() & Qt::ShiftModifier));
    if (pan) {
        d->drag = EchogramDisplayPrivate::Drag::Pan;
    } else if (event->button() == Qt::LeftButton) {
        d->drag = EchogramDisplayPrivate::Drag::Seek;
        d->lastRequestedFrame = -1;
        d->requestFrameAt(event->pos().x());
    }
    event->accept();
}

void EchogramDisplay::mouseMoveEvent(QMouseEvent* event)
{
    if (d->drag == EchogramDisplayPrivate::Drag::Seek) {
        d->requestFrameAt(event->pos().x());
    } else if (d->drag == EchogramDisplayPrivate::Drag::Pan) {
        d->clampView();
        const double columnsPerPixel = d->viewCount / d->plotRect().width();
        d->viewFirst -= (event->pos().x() - d->lastMouse.x()) * columnsPerPixel;
        d->following = false;
        d->clampView();
        // Panned back to the newest live frame: follow again.
        if (!d->showsRecording && d->viewFirst + d->viewCount >= static_cast<double>(d->columns.getEndColumn()))
            d->following = true;
        update();
    }
    d->lastMouse = event->pos();
    event->accept();
}

void EchogramDisplay::mouseReleaseEvent(QMouseEvent* event)
{
    d->drag = EchogramDisplayPrivate::Drag::None;
    event->accept();
}

void EchogramDisplay::wheelEvent(QWheelEvent* event)
{
    const int delta = event->angleDelta().y();
    if (delta == 0)
        return;
    d->clampView();
    const QRect plot = d->plotRect();
#if QT_VERSION >= QT_VERSION_CHECK(5, 15, 0)
    const double x = event->position().x();
#else
    const double x = event->pos().x();
#endif
    // Zoom about the column under the mouse, which stays where it is.
    const double u = std::clamp((x - plot.left()) / plot.width(), 0.0, 1.0);
    const double anchor = d->viewFirst + u * d->viewCount;
    const double factor = std::pow(1.25, -delta / 120.0);
    d->viewCount *= factor;
    d->viewFirst = anchor - u * d->viewCount;
    if (!d->following || d->showsRecording)
        d->following = false;
    d->clampView();
    update();
    event->accept();
}

} // namespace Halcyra::Nereon::Views
