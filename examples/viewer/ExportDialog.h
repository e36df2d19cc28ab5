#pragma once

#include "export/ExportOptions.h"

#include <QObject>
#include <QString>

#include <memory>

class MovingTargetFilter;
class QProgressDialog;
class QTimer;
class QWidget;

namespace Halcyra::Nereon::Export {
class RecordingExporter;
}

/**
 * File > Export video: exports a recording with the look of the viewer's display,
 * a picture at a time between the window's events, behind a progress dialog that
 * can cancel it. A cancelled or failed export leaves no file.
 */
class ExportDialog : public QObject
{
    Q_OBJECT

public:
    explicit ExportDialog(QWidget* window);
    ~ExportDialog() override;

    /// Asks where to write `input` (or first which recording, when empty) and exports it; with
    /// `movingTargets`, only what moves, over a background learnt from the recording first.
    void exportRecording(const QString& input, const Halcyra::Nereon::Export::ExportOptions& options,
        bool movingTargets = false);

signals:
    /// The export ended: `message` says how (written, cut short at damage, failed, cancelled).
    void finished(bool written, const QString& message);

private:
    void step();
    void end(bool written, const QString& message);

    QWidget* window;
    std::unique_ptr<Halcyra::Nereon::Export::RecordingExporter> exporter;
    std::unique_ptr<MovingTargetFilter> movingTargets; ///< of the running export, when it filters
    QProgressDialog* progress = nullptr;
    QTimer* timer = nullptr;
    QString output;
};
