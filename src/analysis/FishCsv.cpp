#include "analysis/FishCsv.h"

#include "analysis/RecordingCounter.h"

#include <QDateTime>
#include <QSaveFile>

#include <cmath>

namespace Halcyra::Nereon::Analysis {

namespace {

QString number(double value, int decimals)
{
    // An unknown value is an empty field, which every CSV reader takes as missing.
    return std::isfinite(value) ? QString::number(value, 'f', decimals) : QString();
}

QString direction(Direction d)
{
    return d == Direction::Up ? QStringLiteral("up") : QStringLiteral("down");
}

template <typename T>
bool writeFile(const QString& path, const QString& header, const std::vector<T>& items,
    QString (*format)(const T&), QString* error)
{
    // QSaveFile writes beside the target and renames over it on commit(), with the
    // permissions a new file would get; nothing is left under the name on failure.
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly)) {
        QByteArray chunk = header.toUtf8() + '\n';
        for (const T& item : items) {
            chunk += format(item).toUtf8();
            chunk += '\n';
            if (chunk.size() > (1 << 16)) {
                file.write(chunk);
                chunk.clear();
            }
        }
        file.write(chunk);
        if (file.commit())
            return true;
    }
    if (error)
        *error = QStringLiteral("cannot write %1: %2").arg(path, file.errorString());
    return false;
}

} // namespace

QString FishCsv::fishHeader()
{
    return QStringLiteral("fish_id,first_frame,last_frame,first_time,last_time,direction,length_m,range_m,"
                          "bearing_deg,speed_m_s,detections");
}

QString FishCsv::tracksHeader()
{
    return QStringLiteral("fish_id,frame,time,range_m,bearing_deg,length_m,detected");
}

QString FishCsv::summaryHeader()
{
    return QStringLiteral("file,start_time,end_time,frames,fish_up,fish_down,fish_total,damage_offset,error");
}

QString FishCsv::fishRow(const FishRecord& f)
{
    return QStringLiteral("%1,%2,%3,%4,%5,%6,%7,%8,%9,%10,%11")
        .arg(f.id)
        .arg(f.firstFrame)
        .arg(f.lastFrame)
        .arg(formatTime(f.firstTime), formatTime(f.lastTime), direction(f.direction), number(f.lengthM, 3),
            number(f.rangeM, 3), number(f.bearingDeg, 3))
        .arg(number(f.speedMS, 3))
        .arg(f.detections);
}

QString FishCsv::trackRow(const TrackPoint& p)
{
    return QStringLiteral("%1,%2,%3,%4,%5,%6,%7")
        .arg(p.fishId)
        .arg(p.frame)
        .arg(formatTime(p.time), number(p.rangeM, 3), number(p.bearingDeg, 3), number(p.lengthM, 3))
        .arg(p.detected ? 1 : 0);
}

QString FishCsv::summaryRow(const RecordingCount& c)
{
    const bool counted = c.frames > 0;
    return QStringLiteral("%1,%2,%3,%4,%5,%6,%7,%8,%9")
        .arg(quote(c.file), counted ? formatTime(c.startTime) : QString(),
            counted ? formatTime(c.endTime) : QString())
        .arg(c.frames)
        .arg(c.upstream)
        .arg(c.downstream)
        .arg(c.upstream + c.downstream)
        .arg(c.damageOffset >= 0 ? QString::number(c.damageOffset) : QString(), quote(c.error));
}

bool FishCsv::writeFish(const QString& path, const std::vector<FishRecord>& fish, QString* error)
{
    return writeFile(path, fishHeader(), fish, &FishCsv::fishRow, error);
}

bool FishCsv::writeTracks(const QString& path, const std::vector<TrackPoint>& points, QString* error)
{
    return writeFile(path, tracksHeader(), points, &FishCsv::trackRow, error);
}

bool FishCsv::writeSummary(const QString& path, const std::vector<RecordingCount>& counts, QString* error)
{
    return writeFile(path, summaryHeader(), counts, &FishCsv::summaryRow, error);
}

QString FishCsv::formatTime(std::int64_t microseconds)
{
    // Floor division, so that times before 1970 keep a positive fraction.
    std::int64_t seconds = microseconds / 1000000;
    std::int64_t fraction = microseconds % 1000000;
    if (fraction < 0) {
        fraction += 1000000;
        --seconds;
    }
    const QDateTime time = QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC);
    return time.toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss"))
        + QStringLiteral(".%1Z").arg(fraction, 6, 10, QChar('0'));
}

QString FishCsv::quote(const QString& text)
{
    if (!text.contains(QLatin1Char(',')) && !text.contains(QLatin1Char('"'))
        && !text.contains(QLatin1Char('\n')) && !text.contains(QLatin1Char('\r')))
        return text;
    QString quoted = text;
    quoted.replace(QLatin1Char('"'), QStringLiteral("\"\""));
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

} // namespace Halcyra::Nereon::Analysis
