#pragma once

#include "MovingTargetFilter.h"
#include "SonarConfiguration.h"
#include "SourceStatus.h"
#include "ViewerOptions.h"

#include "FanDisplayOptions.h"

#include <QMainWindow>
#include <QThread>

class QAction;
class QCheckBox;
class QComboBox;
class QDockWidget;
class QDoubleSpinBox;
class QLabel;
class MagnifierRuler;
class ExportDialog;
class QTimer;

namespace Halcyra::Nereon::Sources {
class ArisLiveSource;
struct ArisLiveSettings;
} // namespace Halcyra::Nereon::Sources
class QPushButton;
class RecordingPanel;
class QSlider;
class QSpinBox;
class SimulatedSonar;
class EchogramPanel;
class FishCountPanel;
class MeasurementsPanel;

namespace Halcyra::Nereon::Views {
class EchogramDisplay;
class MeasurementLog;
} // namespace Halcyra::Nereon::Views

namespace Halcyra::Nereon {
class NereonImage;
}

namespace Halcyra::Nereon::Visualisation {
class ZoomableFanDisplay;
class ZoomDisplay;
} // namespace Halcyra::Nereon::Visualisation

/**
 * The viewer: the zoomable fan display in the middle, the magnifier and the
 * recording controls on the left, the display's and the simulated sonar's
 * controls tabbed on the right; the source, its frame rate, the time of the
 * frame shown and the mouse position in the status bar. It fits a 1366 x 768
 * screen; the bottom corners belong to the side docks, so that the echogram
 * sits under the fan alone. The measurements and the fish count are tabs on
 * the right.
 */
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(const ViewerOptions& options, QWidget* parent = nullptr);
    ~MainWindow() override;

protected:
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QWidget* createMagnifierPanel();
    QWidget* createDisplayControls();
    QWidget* createSonarControls();
    void connectControls();
    void restoreSettings();
    void saveSettings() const;
    void applyCommandLine(const ViewerOptions& options);
    /// Brings the controls in line with the display without feeding changes back.
    void showLook();
    void showPosition(double x, double y, double range, double bearing);
    void setZoomLevel(double level);
    /// Zooms the magnifier `steps` levels in (or out, when negative) and shows its factor.
    void stepMagnifier(int steps);
    void chooseColour(bool clearColour);
    void sendSonarConfiguration();
    void startSonar();
    void stopSonar();
    void countFrameForScreenshot();
    void takeScreenshot(bool complete);
    QPixmap grabPicture(bool fanOnly) const;

    // Recording, replay and screenshots from the window.
    void createMenus();
    void createRecordingDock();
    void startCommandLineRecording();
    /// Every frame shown, live or replayed, passes here.
    /// `frameTime` is when the frame was taken, microseconds since 1970 UTC (0 if unknown).
    void frameReceived(const Halcyra::Nereon::NereonImage& image, qint64 frameTime = 0);
    void useReplay(bool replay);
    /// Every frame from any source comes here first: it is counted as it came, filtered,
    /// then shown. `statusTime` is the time for the status bar (0 when the source has none).
    void frameArrived(const Halcyra::Nereon::Sources::SourceFrame& frame, qint64 statusTime);
    void createAnalysisDocks();
    /// The echogram takes the fan's palette, thresholds and distance unit.
    void followLookOnEchogram();
    /// Reads the recording being replayed into the echogram, filtered as the fan is.
    void loadEchogram();
    /// What a recording being replayed teaches the filter and the counter before its frames come.
    void learnFromReplay();
    /// Shows frame `frame` of the recording being replayed.
    void goToFrame(int frame);
    void writeMeasurementsFile();
    /// Shows the simulated sonar's controls only while it is the source, and says which source it is.
    void useSource(SourceStatus::Source source);
    void showSourceStatus();
    /// A size that leaves the whole window, title bar included, on the screen.
    void fitToScreen();
    void replayStopped(qint64 damageOffset, const QString& description);
    void replayFailed(const QString& message);
    void saveScreenshot(bool fanOnly);
    /// Shows the live ARIS sonar `target` (serial number, or address with an optional :port).
    void connectToSonar(const QString& target, const Halcyra::Nereon::Sources::ArisLiveSettings& settings);
    /// Back to the simulated sonar.
    void disconnectSonar();
    /// File > Export video: the recording being replayed, or one to choose, with the display's look.
    void exportVideo();
    /// The magnifier's zoom, centre and measurement from the command line, once it has its size.
    void applyMagnifierOptions();

    Halcyra::Nereon::Visualisation::ZoomableFanDisplay* display = nullptr;
    Halcyra::Nereon::Visualisation::ZoomDisplay* magnifier = nullptr;
    MagnifierRuler* ruler = nullptr;
    bool magnifierOptionsApplied = false;
    ExportDialog* exportDialog = nullptr;
    Halcyra::Nereon::Sources::ArisLiveSource* liveSonar = nullptr;
    bool liveActive = false;

    QThread sonarThread;
    SimulatedSonar* sonar = nullptr;
    SonarConfiguration sonarConfiguration;

    QComboBox* paletteBox = nullptr;
    QSlider* modifierSlider = nullptr;
    QSpinBox* despeckleBox = nullptr;
    QDoubleSpinBox* clampBox = nullptr;
    QCheckBox* labelsBox = nullptr;
    QCheckBox* arcsBox = nullptr;
    QCheckBox* linesBox = nullptr;
    QCheckBox* colourScaleBox = nullptr;
    QCheckBox* autoGridBox = nullptr;
    QComboBox* measurementBox = nullptr;
    QComboBox* distanceUnitBox = nullptr;
    QComboBox* areaUnitBox = nullptr;
    QSpinBox* rotationBox = nullptr;
    QCheckBox* mirrorBox = nullptr;
    QPushButton* upsideDownButton = nullptr;
    QDoubleSpinBox* zoomBox = nullptr;
    QCheckBox* animateBox = nullptr;
    QCheckBox* brandingBox = nullptr;
    QPushButton* clearColourButton = nullptr;
    QPushButton* textColourButton = nullptr;
    QPushButton* fontButton = nullptr;

    QComboBox* beamsBox = nullptr;
    QSpinBox* apertureBox = nullptr;
    QDoubleSpinBox* rangeBox = nullptr;
    QSpinBox* rangeLinesBox = nullptr;
    QSpinBox* frameRateBox = nullptr;
    QCheckBox* pingingBox = nullptr;

    QDockWidget* sonarDock = nullptr;
    QDockWidget* magnifierDock = nullptr;
    QDockWidget* recordingDock = nullptr;
    QLabel* magnifierZoomLabel = nullptr;
    int magnifierLevel = 0; ///< index into the magnifier's table of factors
    RecordingPanel* recordingPanel = nullptr;
    QAction* recordAction = nullptr;
    int framesReplayed = 0;
    bool commandLineReplay = false;

    SourceStatus status;
    QLabel* sourceLabel = nullptr;
    QLabel* timeLabel = nullptr;
    QTimer* statusTimer = nullptr;
    QLabel* positionLabel = nullptr;

    MovingTargetFilter movingTargets;
    QCheckBox* movingTargetsBox = nullptr;
    QCheckBox* fishBox = nullptr;
    EchogramPanel* echogramPanel = nullptr;
    Halcyra::Nereon::Views::EchogramDisplay* echogram = nullptr;
    QDockWidget* echogramDock = nullptr;
    QString echogramRecording; ///< the recording whose echogram is shown or being read
    Halcyra::Nereon::Views::MeasurementLog* measurementLog = nullptr;
    MeasurementsPanel* measurementsPanel = nullptr;
    QDockWidget* measurementsDock = nullptr;
    FishCountPanel* fishPanel = nullptr;
    QDockWidget* fishDock = nullptr;
    int liveFrameNumber = 0; ///< numbers the frames of sources that do not number them
    int lastCountedFrame = -1;
    bool measurementsWritten = false;

    ViewerOptions options;
    int framesSeen = 0;
    bool screenshotTaken = false;
};
