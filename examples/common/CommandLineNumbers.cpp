#include "CommandLineNumbers.h"

#include <QStringList>

#include <cmath>

namespace CommandLineNumbers {

namespace {

/// `text` without the first of `suffixes` it ends with; false when it ends with none.
bool stripUnit(QString& text, std::initializer_list<const char*> suffixes, const char** found)
{
    for (const char* suffix : suffixes) {
        const QString unit = QString::fromUtf8(suffix);
        if (text.endsWith(unit, Qt::CaseInsensitive)) {
            text.chop(unit.size());
            *found = suffix;
            return true;
        }
    }
    return false;
}

} // namespace

bool toInteger(const QString& text, int low, int high, int& value)
{
    bool ok = false;
    const int v = text.trimmed().toInt(&ok);
    if (!ok || v < low || v > high)
        return false;
    value = v;
    return true;
}

bool toNumber(const QString& text, double low, double high, double& value)
{
    bool ok = false;
    const double v = text.trimmed().toDouble(&ok);
    if (!ok || !std::isfinite(v) || v < low || v > high)
        return false;
    value = v;
    return true;
}

bool toNumbers(const QString& text, int count, double* values)
{
    const QStringList parts = text.split(',');
    if (parts.size() != count)
        return false;
    for (int i = 0; i < count; ++i)
        if (!toNumber(parts[i], -HUGE_VAL, HUGE_VAL, values[i]))
            return false;
    return true;
}

bool toSize(const QString& text, int low, int high, QSize& size)
{
    const QStringList parts = text.split('x');
    int width = 0;
    int height = 0;
    if (parts.size() != 2 || !toInteger(parts[0], low, high, width)
        || !toInteger(parts[1], low, high, height))
        return false;
    size = QSize(width, height);
    return true;
}

bool toRangeBearing(const QString& text, RangeBearing& point)
{
    const QStringList parts = text.split(',');
    if (parts.size() != 2)
        return false;
    QString range = parts[0].trimmed();
    QString bearing = parts[1].trimmed();
    const char* rangeUnit = nullptr;
    const char* bearingUnit = nullptr;
    if (!stripUnit(range, { "ft", "m" }, &rangeUnit)
        || !stripUnit(bearing, { "deg", "\u00b0" }, &bearingUnit))
        return false;
    RangeBearing read;
    if (!toNumber(range, 0.0, 1e5, read.range) || !toNumber(bearing, -180.0, 180.0, read.bearing))
        return false;
    if (QLatin1String(rangeUnit) == QLatin1String("ft"))
        read.range *= 0.3048;
    point = read;
    return true;
}

QString missingFrame(const QString& fileName, int frameCount, int frame)
{
    return QStringLiteral("%1 has %2 frames, not %3").arg(fileName).arg(frameCount).arg(frame);
}

} // namespace CommandLineNumbers
