#include "views/MeasurementLog.h"

#include "FanDisplay.h"
#include "FanDisplayExtensions.h"
#include "sources/SourceFrame.h"

#include <QDateTime>
#include <QFile>
#include <QRegularExpression>
#include <QSaveFile>
#include <QStringList>

#include <array>
#include <cmath>

namespace Halcyra::Nereon::Views {

using Visualisation::FanDisplayExtensions;
using Visualisation::FanMeasurement;
namespace Options = Visualisation::FanDisplayOptions;

namespace {

constexpr std::array<const char*, MeasurementLog::ColumnCount> csvHeader { "frame", "time_utc", "widget",
    "tool", "start_range_m", "start_bearing_deg", "end_range_m", "end_bearing_deg", "start_across_m",
    "start_along_m", "end_across_m", "end_along_m", "value", "unit" };

constexpr std::array<const char*, MeasurementLog::ColumnCount> columnTitles { "Frame", "Time (UTC)", "On",
    "Tool", "Start range (m)", "Start bearing (°)", "End range (m)", "End bearing (°)", "Start across (m)",
    "Start along (m)", "End across (m)", "End along (m)", "Result", "Unit" };

const char* toolName(Options::MeasurementMode mode)
{
    switch (mode) {
    case Options::RectangleArea:
        return "rectangle";
    case Options::CircleAreaFromCentre:
        return "circle";
    default:
        return "distance";
    }
}

bool isArea(Options::MeasurementMode mode)
{
    return mode == Options::RectangleArea || mode == Options::CircleAreaFromCentre;
}

QString formatTime(qint64 microseconds)
{
    // Whole seconds rounded down, so that times before 1970 keep a positive fraction.
    const qint64 seconds = microseconds >= 0 ? microseconds / 1000000 : -((-microseconds + 999999) / 1000000);
    const qint64 fraction = microseconds - seconds * 1000000;
    return QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC).toString(QStringLiteral("yyyy-MM-dd'T'HH:mm:ss"))
        + QStringLiteral(".%1Z").arg(fraction, 6, 10, QLatin1Char('0'));
}

bool parseTime(const QString& text, qint64& microseconds)
{
    static const QRegularExpression pattern(
        QStringLiteral("^(\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d)\\.(\\d{6})Z$"));
    const QRegularExpressionMatch match = pattern.match(text);
    if (!match.hasMatch())
        return false;
    QDateTime time = QDateTime::fromString(match.captured(1), QStringLiteral("yyyy-MM-dd'T'HH:mm:ss"));
    if (!time.isValid())
        return false;
    time.setTimeSpec(Qt::UTC);
    microseconds = time.toSecsSinceEpoch() * 1000000 + match.captured(2).toLongLong();
    return true;
}

/// The entry's fields as written to CSV; numbers in the C locale whatever the application's.
QStringList csvFields(const MeasurementLog::Entry& entry)
{
    const FanMeasurement& m = entry.measurement;
    const auto metres = [](double value) { return QString::number(value, 'f', 4); };
    return { entry.frame >= 0 ? QString::number(entry.frame) : QString(),
        entry.timeKnown ? formatTime(entry.timeMicroseconds) : QString(),
        m.onMagnifier ? QStringLiteral("magnifier") : QStringLiteral("display"),
        QString::fromLatin1(toolName(m.mode)), metres(m.startRange), metres(m.startBearing),
        metres(m.endRange), metres(m.endBearing), metres(m.startAcross), metres(m.startAlong),
        metres(m.endAcross), metres(m.endAlong), QString::number(m.value, 'f', 6),
        isArea(m.mode) ? QStringLiteral("m2") : QStringLiteral("m") };
}

/// Reads one CSV row back; the reason when it is not one of ours.
bool parseRow(const QStringList& fields, MeasurementLog::Entry& entry, QString& reason)
{
    if (fields.size() != MeasurementLog::ColumnCount) {
        reason = QStringLiteral("%1 fields, expected %2")
                     .arg(fields.size())
                     .arg(int(MeasurementLog::ColumnCount));
        return false;
    }
    bool ok = true;
    entry.frame = fields[0].isEmpty() ? -1 : fields[0].toInt(&ok);
    if (!ok || entry.frame < -1) {
        reason = QStringLiteral("bad frame number");
        return false;
    }
    entry.timeKnown = !fields[1].isEmpty();
    if (entry.timeKnown && !parseTime(fields[1], entry.timeMicroseconds)) {
        reason = QStringLiteral("bad time");
        return false;
    }
    FanMeasurement& m = entry.measurement;
    if (fields[2] == QLatin1String("display") || fields[2] == QLatin1String("magnifier")) {
        m.onMagnifier = fields[2] == QLatin1String("magnifier");
    } else {
        reason = QStringLiteral("unknown widget");
        return false;
    }
    const std::array<Options::MeasurementMode, 3> modes { Options::StraightLine, Options::RectangleArea,
        Options::CircleAreaFromCentre };
    bool known = false;
    for (const Options::MeasurementMode mode : modes) {
        if (fields[3] == QLatin1String(toolName(mode))) {
            m.mode = mode;
            known = true;
        }
    }
    if (!known) {
        reason = QStringLiteral("unknown tool");
        return false;
    }
    double* const numbers[] = { &m.startRange, &m.startBearing, &m.endRange, &m.endBearing, &m.startAcross,
        &m.startAlong, &m.endAcross, &m.endAlong, &m.value };
    for (int i = 0; i < 9; ++i) {
        *numbers[i] = fields[4 + i].toDouble(&ok);
        if (!ok || !std::isfinite(*numbers[i])) {
            reason
                = QStringLiteral("bad number in column %1").arg(QLatin1String(csvHeader[std::size_t(4 + i)]));
            return false;
        }
    }
    if (fields[13] != (isArea(m.mode) ? QLatin1String("m2") : QLatin1String("m"))) {
        reason = QStringLiteral("unit does not fit the tool");
        return false;
    }
    return true;
}

} // namespace

MeasurementLog::MeasurementLog(QObject* parent)
    : QAbstractTableModel(parent)
{
}

MeasurementLog::~MeasurementLog()
{
    detach();
}

void MeasurementLog::attach(Visualisation::FanDisplay* newDisplay)
{
    if (newDisplay == display)
        return;
    detach();
    display = newDisplay;
    FanDisplayExtensions::addMeasurementListener(display, this);
}

void MeasurementLog::detach()
{
    FanDisplayExtensions::removeMeasurementListener(display, this);
    display = nullptr;
}

void MeasurementLog::setCurrentFrame(int frameNumber, qint64 utcMicroseconds)
{
    currentFrame = frameNumber;
    currentTime = utcMicroseconds;
    currentTimeKnown = true;
}

void MeasurementLog::setCurrentFrame(const Sources::SourceFrame& frame)
{
    setCurrentFrame(frame.index, frame.timestamp);
}

void MeasurementLog::measurementFinished(const FanMeasurement& measurement)
{
    Entry entry;
    entry.frame = currentFrame;
    entry.timeMicroseconds = currentTime;
    entry.timeKnown = currentTimeKnown;
    entry.measurement = measurement;
    append(entry);
}

void MeasurementLog::append(const Entry& entry)
{
    const int row = static_cast<int>(entries.size());
    beginInsertRows(QModelIndex(), row, row);
    entries.push_back(entry);
    endInsertRows();
    emit measurementLogged(row);
}

const std::vector<MeasurementLog::Entry>& MeasurementLog::getEntries() const
{
    return entries;
}

void MeasurementLog::clear()
{
    beginResetModel();
    entries.clear();
    endResetModel();
}

bool MeasurementLog::exportCsv(const QString& path, QString* error) const
{
    // QSaveFile writes beside the target and renames on commit, or leaves nothing.
    QSaveFile file(path);
    const auto fail = [&file, &path, error] {
        if (error)
            *error = QStringLiteral("%1: %2").arg(path, file.errorString());
        return false;
    };
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text))
        return fail();
    QStringList header;
    for (const char* name : csvHeader)
        header << QLatin1String(name);
    QByteArray text = header.join(QLatin1Char(',')).toUtf8() + '\n';
    for (const Entry& entry : entries)
        text += csvFields(entry).join(QLatin1Char(',')).toUtf8() + '\n';
    if (file.write(text) != text.size())
        return fail();
    if (!file.commit())
        return fail();
    return true;
}

bool MeasurementLog::importCsv(const QString& path, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = QStringLiteral("%1: %2").arg(path, file.errorString());
        return false;
    }
    const QByteArray bytes = file.readAll();
    std::vector<Entry> read;
    qsizetype offset = 0;
    bool headerSeen = false;
    while (offset < bytes.size()) {
        qsizetype end = bytes.indexOf('\n', offset);
        if (end < 0)
            end = bytes.size();
        QByteArray line = bytes.mid(offset, end - offset);
        if (line.endsWith('\r'))
            line.chop(1);
        const QStringList fields = QString::fromUtf8(line).split(QLatin1Char(','));
        QString reason;
        if (!headerSeen) {
            QStringList header;
            for (const char* name : csvHeader)
                header << QLatin1String(name);
            if (fields != header)
                reason = QStringLiteral("not a measurement log header");
            headerSeen = true;
        } else if (!line.isEmpty()) {
            Entry entry;
            if (parseRow(fields, entry, reason))
                read.push_back(entry);
        }
        if (!reason.isEmpty()) {
            if (error)
                *error = QStringLiteral("%1: byte offset %2: %3").arg(path).arg(offset).arg(reason);
            return false;
        }
        offset = end + 1;
    }
    if (!headerSeen) {
        if (error)
            *error = QStringLiteral("%1: byte offset 0: empty file").arg(path);
        return false;
    }
    beginResetModel();
    entries = std::move(read);
    endResetModel();
    return true;
}

int MeasurementLog::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(entries.size());
}

int MeasurementLog::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant MeasurementLog::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount() || index.column() >= ColumnCount)
        return {};
    if (role != Qt::DisplayRole && role != Qt::EditRole)
        return {};
    const Entry& entry = entries[static_cast<std::size_t>(index.row())];
    const FanMeasurement& m = entry.measurement;
    // The edit role gives the numbers unrounded, for sorting and copying.
    const auto number = [role](double value, int decimals) -> QVariant {
        if (role == Qt::EditRole)
            return value;
        return QString::number(value, 'f', decimals);
    };
    switch (index.column()) {
    case FrameColumn:
        return entry.frame >= 0 ? QVariant(entry.frame) : QVariant();
    case TimeColumn:
        return entry.timeKnown ? QVariant(formatTime(entry.timeMicroseconds)) : QVariant();
    case WidgetColumn:
        return m.onMagnifier ? tr("magnifier") : tr("display");
    case ToolColumn:
        return QString::fromLatin1(toolName(m.mode));
    case StartRangeColumn:
        return number(m.startRange, 2);
    case StartBearingColumn:
        return number(m.startBearing, 1);
    case EndRangeColumn:
        return number(m.endRange, 2);
    case EndBearingColumn:
        return number(m.endBearing, 1);
    case StartAcrossColumn:
        return number(m.startAcross, 2);
    case StartAlongColumn:
        return number(m.startAlong, 2);
    case EndAcrossColumn:
        return number(m.endAcross, 2);
    case EndAlongColumn:
        return number(m.endAlong, 2);
    case ValueColumn:
        return number(m.value, 3);
    case UnitColumn:
        return isArea(m.mode) ? QStringLiteral("m²") : QStringLiteral("m");
    default:
        return {};
    }
}

QVariant MeasurementLog::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole || section < 0 || section >= ColumnCount)
        return QAbstractTableModel::headerData(section, orientation, role);
    return tr(columnTitles[static_cast<std::size_t>(section)]);
}

bool MeasurementLog::removeRows(int row, int count, const QModelIndex& parent)
{
    if (parent.isValid() || row < 0 || count <= 0 || row + count > rowCount())
        return false;
    beginRemoveRows(parent, row, row + count - 1);
    entries.erase(entries.begin() + row, entries.begin() + row + count);
    endRemoveRows();
    return true;
}

} // namespace Halcyra::Nereon::Views
