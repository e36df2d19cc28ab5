#pragma once

#include "FanMeasurementListener.h"
#include "TernwickNereonViewsExport.h"

#include <QAbstractTableModel>
#include <QPointer>
#include <QString>

#include <vector>

namespace Halcyra::Nereon::Visualisation {
class FanDisplay;
}
namespace Halcyra::Nereon::Sources {
struct SourceFrame;
}

namespace Halcyra::Nereon::Views {

/**
 * The measurements the user finished with a FanDisplay's measuring tool (on the display,
 * and on its magnifier where FanDisplayExtensions::setMagnifierMeasuring() lets them),
 * each with the frame shown then, as a table for a QTableView, written to and read from
 * CSV. The application tells the log which frame is shown (setCurrentFrame()).
 */
class TERNWICK_NEREON_VIEWS_EXPORT MeasurementLog : public QAbstractTableModel,
                                                    public Visualisation::FanMeasurementListener
{
    Q_OBJECT

public:
    /// The table's columns, in the order of the CSV file's fields.
    enum Column
    {
        FrameColumn, ///< frame number; empty when not known
        TimeColumn, ///< UTC, ISO 8601 with microseconds
        WidgetColumn, ///< "display" or "magnifier"
        ToolColumn, ///< "distance", "rectangle" or "circle"
        StartRangeColumn, ///< metres
        StartBearingColumn, ///< degrees, positive to starboard
        EndRangeColumn,
        EndBearingColumn,
        StartAcrossColumn, ///< metres, starboard positive
        StartAlongColumn, ///< metres ahead
        EndAcrossColumn,
        EndAlongColumn,
        ValueColumn, ///< metres or square metres
        UnitColumn, ///< "m" or "m²" ("m2" in CSV)
        ColumnCount ///< number of columns, not a column
    };

    /// One logged measurement.
    struct Entry
    {
        int frame = -1; ///< -1: not known
        qint64 timeMicroseconds = 0; ///< UTC since 1970
        bool timeKnown = false; ///< false: no frame time was set, timeMicroseconds means nothing
        Visualisation::FanMeasurement measurement; ///< what the tool measured
    };

    /// An empty log, attached to no display.
    explicit MeasurementLog(QObject* parent = nullptr);
    /// Stops listening to the display.
    ~MeasurementLog() override;

    /// Logs the display's finished measurements, leaving any display before; null stops.
    void attach(Visualisation::FanDisplay* display);
    /// Stops logging the attached display's measurements, if any.
    void detach();

    /// The frame shown from now on: its number and UTC time, microseconds since 1970.
    void setCurrentFrame(int frameNumber, qint64 utcMicroseconds);
    /// The same from a frame source's frame: its index and timestamp.
    void setCurrentFrame(const Sources::SourceFrame& frame);

    /// Adds an entry as the last row and emits measurementLogged().
    void append(const Entry& entry);
    /// Every entry, oldest first: the table's rows.
    const std::vector<Entry>& getEntries() const;
    /// Removes every entry.
    void clear();

    /**
     * Writes a header row and one row per measurement. Written to a temporary file in the
     * same folder and renamed, so a failure leaves no partial file; false with the reason in
     * error (when given) on failure.
     */
    bool exportCsv(const QString& path, QString* error = nullptr) const;
    /**
     * Replaces the entries by those of a CSV file written by exportCsv(). A damaged file
     * changes nothing and gives false with the file and byte offset in error.
     */
    bool importCsv(const QString& path, QString* error = nullptr);

    /// One row per entry; none under a valid parent (a flat table).
    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    /// ColumnCount; none under a valid parent.
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    /**
     * A cell for Qt::DisplayRole, with lengths as text to 0.01 m, bearings to 0.1 degree and
     * the result to 0.001, or for Qt::EditRole, with the numbers unrounded for sorting and
     * copying. Empty for an unknown frame or time, and for other roles.
     */
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    /// The columns' titles with their units, e.g. "Start range (m)", for horizontal headers.
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    /// Removes `count` entries from `row` on; false, changing nothing, when they are not all there.
    bool removeRows(int row, int count, const QModelIndex& parent = QModelIndex()) override;

    void measurementFinished(const Visualisation::FanMeasurement& measurement) override;

signals:
    /// A measurement was logged at this row.
    void measurementLogged(int row);

private:
    std::vector<Entry> entries;
    QPointer<Visualisation::FanDisplay> display;
    int currentFrame = -1;
    qint64 currentTime = 0;
    bool currentTimeKnown = false;
};

} // namespace Halcyra::Nereon::Views
