#include "SourceStatus.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QRegularExpression>
#include <QStringList>

#include <algorithm>

namespace {

// Long enough to smooth a sonar's uneven pace, short enough to follow a change of speed.
constexpr qint64 rateWindow = 3000;

QString tr(const char* text)
{
    return QCoreApplication::translate("SourceStatus", text);
}

QString formatRate(double rate)
{
    return tr("%1 frames/s").arg(rate, 0, 'f', rate >= 10.0 ? 0 : 1);
}

} // namespace

void SourceStatus::setSource(Source newSource)
{
    source = newSource;
    paused = false;
    stopped.clear();
    linkMessage.clear();
    receiving = false;
    model.clear();
    serialNumber.clear();
    droppedFrames = 0;
    frameTime = 0;
    shownAt.clear();
}

void SourceStatus::setPaused(bool on)
{
    paused = on;
}

void SourceStatus::setStopped(const QString& why)
{
    stopped = why;
}

void SourceStatus::setLink(const QString& message, bool frames)
{
    linkMessage = message;
    receiving = frames;
}

void SourceStatus::setSonar(const QString& sonarModel, const QString& serial)
{
    model = sonarModel;
    // A sonar reached by its address may report the address in place of its serial number.
    static const QRegularExpression digits(QStringLiteral("^\\d+$"));
    serialNumber = digits.match(serial).hasMatch() ? serial : QString();
}

void SourceStatus::setDroppedFrames(qint64 dropped)
{
    droppedFrames = dropped;
}

void SourceStatus::frameShown(qint64 now, qint64 taken)
{
    // A frame after the end is one sought back to.
    stopped.clear();
    frameTime = taken;
    shownAt.push_back(now);
    // The last two stay whatever their age, so that a source slower than the window still has a rate.
    while (shownAt.size() > 2 && now - shownAt.front() > rateWindow)
        shownAt.pop_front();
}

double SourceStatus::getFrameRate(qint64 now) const
{
    if (shownAt.size() < 2)
        return 0.0;
    const double span = double(std::max<qint64>(1, shownAt.back() - shownAt.front()));
    const double interval = span / double(shownAt.size() - 1);
    // Frames have stopped once three of their intervals pass without one.
    if (double(now - shownAt.back()) > std::max(1500.0, 3.0 * interval))
        return 0.0;
    return 1000.0 / interval;
}

QString SourceStatus::getText(qint64 now) const
{
    const double rate = getFrameRate(now);
    const QString flowing = rate > 0.0 ? formatRate(rate) : tr("waiting for frames");
    QStringList parts;
    switch (source) {
    case Source::Simulated:
        parts << tr("Simulated sonar") << (paused ? tr("stopped") : flowing);
        break;
    case Source::Replay:
        parts << tr("Replay") << (!stopped.isEmpty() ? stopped : paused ? tr("paused") : flowing);
        break;
    case Source::Live: {
        QString sonar = model;
        if (!serialNumber.isEmpty())
            sonar += (sonar.isEmpty() ? tr("Serial %1") : tr(", serial %1")).arg(serialNumber);
        if (!sonar.isEmpty())
            parts << sonar;
        parts << linkMessage;
        if (receiving && rate > 0.0)
            parts << formatRate(rate);
        if (droppedFrames > 0)
            parts << (droppedFrames == 1 ? tr("1 frame dropped")
                                         : tr("%1 frames dropped").arg(droppedFrames));
        break;
    }
    }
    parts.removeAll(QString());
    return parts.join(QStringLiteral(" \u00b7 "));
}

QString SourceStatus::getTimeText() const
{
    if (frameTime == 0)
        return QString();
    const QDateTime taken = QDateTime::fromMSecsSinceEpoch(frameTime / 1000, Qt::UTC);
    return taken.toString(QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz")) + tr(" UTC");
}
