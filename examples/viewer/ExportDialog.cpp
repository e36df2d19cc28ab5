#include "ExportDialog.h"

#include "MovingTargetFilter.h"
#include "export/RecordingExporter.h"
#include "sources/FrameReader.h"

#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QProgressDialog>
#include <QStandardPaths>
#include <QTimer>

using Halcyra::Nereon::Export::ExportOptions;
using Halcyra::Nereon::Export::RecordingExporter;

ExportDialog::ExportDialog(QWidget* parentWindow)
    : QObject(parentWindow)
    , window(parentWindow)
    , exporter(std::make_unique<RecordingExporter>())
    , timer(new QTimer(this))
{
    // One picture per turn of the event loop keeps the window and the dialog alive.
    timer->setInterval(0);
    connect(timer, &QTimer::timeout, this, &ExportDialog::step);
}

ExportDialog::~ExportDialog() = default;

void ExportDialog::exportRecording(const QString& recording, const ExportOptions& options, bool filtered)
{
    if (timer->isActive())
        return;
    QString input = recording;
    if (input.isEmpty()) {
        input = QFileDialog::getOpenFileName(window, tr("Export which recording?"),
            QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation),
            tr("Sonar recordings (*.nrec *.aris);;All files (*)"));
        if (input.isEmpty())
            return;
    }
    const QFileInfo info(input);
    output = QFileDialog::getSaveFileName(window, tr("Export video"),
        info.dir().filePath(info.completeBaseName() + QStringLiteral(".mp4")),
        tr("Video (*.mp4 *.mkv *.mov *.avi);;Pictures of every frame (*.png)"));
    if (output.isEmpty())
        return;
    movingTargets.reset();
    if (filtered) {
        // The background is learnt from the whole recording before the first picture, as on screen.
        movingTargets = std::make_unique<MovingTargetFilter>();
        movingTargets->setEnabled(true);
        if (const auto reader = Halcyra::Nereon::Sources::FrameReader::create(input))
            movingTargets->learnFrom(*reader, 50);
        MovingTargetFilter* filter = movingTargets.get();
        exporter->setFrameFilter(
            [filter](const Halcyra::Nereon::Sources::SourceFrame& in, Halcyra::Nereon::NereonImage& out) {
                out = filter->apply(in).image;
                return true;
            });
    } else {
        exporter->setFrameFilter({});
    }
    if (!exporter->start(input, output, options)) {
        end(false, exporter->getErrorString());
        return;
    }
    progress = new QProgressDialog(tr("Exporting %1").arg(info.fileName()), tr("Cancel"), 0, exporter->getTotal(), window);
    progress->setObjectName("exportProgress");
    progress->setWindowModality(Qt::WindowModal);
    progress->setMinimumDuration(0);
    connect(progress, &QProgressDialog::canceled, this, [this] {
        timer->stop();
        exporter->cancel();
        end(false, tr("Export cancelled; nothing was written."));
    });
    timer->start();
}

void ExportDialog::step()
{
    if (exporter->step()) {
        progress->setMaximum(exporter->getTotal());
        progress->setValue(exporter->getDone());
        if (!exporter->isFinished())
            return;
    }
    timer->stop();
    if (!exporter->isFinished()) {
        end(false, exporter->getErrorString());
        return;
    }
    const QString written = tr("Exported %n picture(s) to %1.", nullptr, exporter->getDone())
                                .arg(QDir::toNativeSeparators(output));
    end(true,
        exporter->getWarning().isEmpty() ? written
                                         : written + QLatin1Char(' ') + tr("The recording is damaged: %1").arg(exporter->getWarning()));
}

void ExportDialog::end(bool written, const QString& message)
{
    if (progress) {
        progress->blockSignals(true);
        progress->close();
        progress->deleteLater();
        progress = nullptr;
    }
    if (!written && !message.startsWith(tr("Export cancelled")))
        QMessageBox::warning(window, tr("Export video"), message);
    emit finished(written, message);
}
