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
    enum Column
    {
        FrameColumn,
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
        UnitColumn, ///< "m" or "m2"
        ColumnCount
    };

    /// One logged measurement.
    struct Entry
    {
        int frame = -1; ///< -1: not known
        qint64 timeMicroseconds = 0; ///< UTC since 1970
        bool timeKnown = false;
        Visualisation::FanMeasurement measurement;
    };

    explicit MeasurementLog(QObject* parent = nullptr);
    /// Stops listening to the display.
    ~MeasurementLog() override;

    /// Logs the display's finished measurements, leaving any display before; null stops.
    void attach(Visualisation::FanDisplay* display);
    void detach();

    /// The frame shown from now on: its number and UTC time, microseconds since 1970.
    void setCurrentFrame(int frameNumber, qint64 utcMicroseconds);
    /// The same from a frame source's frame: its index and timestamp.
    void setCurrentFrame(const Sources::SourceFrame& frame);

    void append(const Entry& entry);
    const std::vector<Entry>& getEntries() const;
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

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
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
