#include "MainWindow.h"

#include "CommandLineNumbers.h"
#include "DisplaySettingsStore.h"
#include "EchogramPanel.h"
#include "FishCountPanel.h"
#include "LinearUnit.h"
#include "MagnifierRuler.h"
#include "MeasurementsPanel.h"
#ifdef NEREON_HAVE_EXPORT
#include "ExportDialog.h"
#endif
#ifdef NEREON_HAVE_LIVE
#include "ConnectDialog.h"
#include "sources/ArisLiveSource.h"
#endif
#include "RecordingPanel.h"
#include "SimulatedSonar.h"
#include "sources/FrameReader.h"

#include "views/EchogramDisplay.h"
#include "views/MeasurementLog.h"

#include "FanDisplayExtensions.h"
#include "ZoomDisplay.h"
#include "ZoomableFanDisplay.h"

#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QColorDialog>
#include <QComboBox>
#include <QDateTime>
#include <QDir>
#include <QDockWidget>
#include <QDoubleSpinBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QFontDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenuBar>
#include <QMimeData>
#include <QMessageBox>
#include <QPushButton>
#include <QResizeEvent>
#include <QScreen>
#include <QScrollArea>
#include <QSettings>
#include <QSlider>
#include <QSpinBox>
#include <QStandardPaths>
#include <QStatusBar>
#include <QTimer>
#include <QUrl>
#include <QVBoxLayout>
#include <QWheelEvent>
#include <QWindow>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <memory>

using namespace Halcyra::Nereon::Visualisation;
namespace Options = FanDisplayOptions;
using Halcyra::DataProcessing::Units::AbstractUnit;
using Halcyra::Nereon::NereonImage;
using Halcyra::Nereon::Sources::SourceFrame;
using Halcyra::Nereon::Views::EchogramDisplay;
using Halcyra::Nereon::Views::MeasurementLog;

namespace {

const LinearUnit* const distanceUnits[] = { &LinearUnit::metres(), &LinearUnit::feet() };
const LinearUnit* const areaUnits[] = { &LinearUnit::squareMetres(), &LinearUnit::squareFeet() };

constexpr double minimumZoom = 1.0;
constexpr double maximumZoom = 8.0;
constexpr double defaultClampLevel = 0.01;
// The magnifier's factors, one for each of its zoom steps.
constexpr double magnifierFactors[] = { 4.0, 4.5, 5.0, 5.5, 6.0, 6.5, 7.0, 8.0, 9.0, 10.0 };
constexpr int lastMagnifierLevel = int(std::size(magnifierFactors)) - 1;
// Bumped when the docks are rearranged, so that a layout saved by an older viewer is not restored.
constexpr int dockLayoutVersion = 2;

void showColour(QPushButton* button, const QColor& colour)
{
    QPixmap swatch(32, 14);
    swatch.fill(colour.isValid() ? colour : QColor(Qt::transparent));
    button->setIcon(QIcon(swatch));
    button->setText(colour.name());
}

/// `panel` in a frameless scroll area, so that its dock can be shorter than the panel.
QScrollArea* scrolling(QWidget* panel)
{
    auto* scroll = new QScrollArea;
    scroll->setWidget(panel);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    return scroll;
}

} // namespace

MainWindow::MainWindow(const ViewerOptions& viewerOptions, QWidget* parent)
    : QMainWindow(parent)
    , options(viewerOptions)
{
    setWindowTitle(tr("Nereon viewer"));

    display = new ZoomableFanDisplay(this);
    display->setMinimumSize(320, 240);
    // Units before the first paint: the range labels need one.
    display->setDistanceUnit(distanceUnits[0]);
    display->setAreaUnit(areaUnits[0]);
    display->setClampLevel(static_cast<float>(defaultClampLevel));
    // Position reports while merely hovering need tracking on.
    display->setMouseTracking(true);
    display->installEventFilter(this);
    setCentralWidget(display);
    // The grid on the beams' true edges, kept with its labels inside the widget, and none before a frame.
    FanDisplayExtensions::setTrueEdges(display, true);
    FanDisplayExtensions::setLabelMargin(display, true);
    FanDisplayExtensions::setGridAwaitsFrame(display, true);

    // A dock at the bottom goes under the fan, between the side columns, which keep their full height.
    setCorner(Qt::BottomLeftCorner, Qt::LeftDockWidgetArea);
    setCorner(Qt::BottomRightCorner, Qt::RightDockWidgetArea);

    // Left: what is looked at while measuring; the magnifier takes the height the recording leaves.
    magnifierDock = new QDockWidget(tr("Magnifier"), this);
    magnifierDock->setObjectName("magnifierDock");
    magnifierDock->setWidget(createMagnifierPanel());
    addDockWidget(Qt::LeftDockWidgetArea, magnifierDock);
    createRecordingDock();

    // Right: settings, tabbed, each panel scrolling rather than asking for height.
    auto* controlsDock = new QDockWidget(tr("Display"), this);
    controlsDock->setObjectName("displayDock");
    controlsDock->setWidget(scrolling(createDisplayControls()));
    addDockWidget(Qt::RightDockWidgetArea, controlsDock);
    sonarDock = new QDockWidget(tr("Simulated sonar"), this);
    sonarDock->setObjectName("sonarDock");
    sonarDock->setWidget(scrolling(createSonarControls()));
    addDockWidget(Qt::RightDockWidgetArea, sonarDock);
    tabifyDockWidget(controlsDock, sonarDock);
    createAnalysisDocks();
    tabifyDockWidget(sonarDock, measurementsDock);
    tabifyDockWidget(measurementsDock, fishDock);
    controlsDock->raise();
    // Tabs above their panels, where they are seen before the panel is read.
    setTabPosition(Qt::AllDockWidgetAreas, QTabWidget::North);

    setAcceptDrops(true);
    if (!options.replayPath.isEmpty() && options.replayFrame >= 0)
        options.frames = 1; // one frame is shown, paused

    positionLabel = new QLabel;
    positionLabel->setObjectName("positionLabel");
    timeLabel = new QLabel;
    timeLabel->setObjectName("timeLabel");
    timeLabel->setToolTip(tr("When the frame shown was taken"));
    sourceLabel = new QLabel;
    sourceLabel->setObjectName("sourceLabel");
    // Apart, so that the time and the source do not read as one sentence.
    timeLabel->setContentsMargins(8, 0, 8, 0);
    sourceLabel->setContentsMargins(8, 0, 4, 0);
    statusBar()->addWidget(positionLabel, 1);
    statusBar()->addPermanentWidget(timeLabel);
    statusBar()->addPermanentWidget(sourceLabel);
    // Also when no frame comes: a source that stops is said to have stopped.
    statusTimer = new QTimer(this);
    statusTimer->setInterval(500);
    connect(statusTimer, &QTimer::timeout, this, &MainWindow::showSourceStatus);
    statusTimer->start();
    createMenus();

    if (options.useSavedSettings)
        restoreSettings();
    applyCommandLine(options);
    showLook();
    connectControls();

    connect(display, &FanDisplay::newMousePosition, this, &MainWindow::showPosition);

    if (options.windowSize.isValid())
        resize(options.windowSize);
    else if (!options.useSavedSettings || QSettings().value("window/geometry").isNull())
        fitToScreen();
    // Tall enough to tell echoes apart, short enough to leave the fan most of the height.
    if (options.echogram)
        resizeDocks({ echogramDock }, { 170 }, Qt::Vertical);
    useSource(SourceStatus::Source::Simulated);

    startSonar();
    startCommandLineRecording();
#ifdef NEREON_HAVE_LIVE
    if (!options.sonar.isEmpty())
        connectToSonar(options.sonar, Halcyra::Nereon::Sources::ArisLiveSettings());
#endif

    if (!options.screenshotPath.isEmpty() && options.replayPath.isEmpty()) {
        // Should the frames never come, still leave a picture and fail.
        const int patience = 20000 + 1000 * options.frames / std::max(1, sonarConfiguration.frameRate);
        QTimer::singleShot(patience, this, [this] { takeScreenshot(false); });
    }
}

MainWindow::~MainWindow()
{
    writeMeasurementsFile();
    stopSonar();
    // The magnifier draws with the display's engine, so it goes first.
    delete magnifier;
}

QWidget* MainWindow::createMagnifierPanel()
{
    auto* panel = new QWidget;
    auto* layout = new QVBoxLayout(panel);
    magnifier = display->getZoomDisplay();
    magnifier->setMinimumSize(260, 260);
    magnifier->installEventFilter(this);
    magnifier->setToolTip(tr("Drag the outline on the main display to move; wheel to zoom"));
    layout->addWidget(magnifier, 1);
    // Fish are measured here, where they are large: drag across one.
    ruler = new MagnifierRuler(magnifier);
    ruler->setDistanceUnit(distanceUnits[0]);

    auto* buttons = new QHBoxLayout;
    auto* zoomIn = new QPushButton(tr("Zoom in"));
    auto* zoomOut = new QPushButton(tr("Zoom out"));
    auto* reset = new QPushButton(tr("Reset"));
    magnifierZoomLabel = new QLabel;
    magnifierZoomLabel->setObjectName("magnifierZoomLabel");
    magnifierZoomLabel->setAlignment(Qt::AlignCenter);
    magnifierZoomLabel->setToolTip(tr("Magnification of the fan"));
    QFont bold = magnifierZoomLabel->font();
    bold.setBold(true);
    magnifierZoomLabel->setFont(bold);
    zoomIn->setObjectName("magnifierZoomIn");
    connect(zoomIn, &QPushButton::clicked, this, [this] { stepMagnifier(1); });
    connect(zoomOut, &QPushButton::clicked, this, [this] { stepMagnifier(-1); });
    connect(reset, &QPushButton::clicked, this, [this] {
        magnifier->reset();
        magnifierLevel = 0;
        stepMagnifier(0);
    });
    buttons->addWidget(zoomOut);
    buttons->addWidget(magnifierZoomLabel);
    buttons->addWidget(zoomIn);
    buttons->addWidget(reset);
    stepMagnifier(0);
    layout->addLayout(buttons);
    return panel;
}

QWidget* MainWindow::createDisplayControls()
{
    auto* panel = new QWidget;
    auto* form = new QFormLayout(panel);

    paletteBox = new QComboBox;

    paletteBox->setObjectName("paletteBox");
    paletteBox->addItems({ tr("Greyscale"), tr("Bronze"), tr("Blue"), tr("Green"), tr("Red-yellow"),
        tr("Multicolour"), tr("Fire"), tr("Aqua") });
    form->addRow(tr("Palette"), paletteBox);
    modifierSlider = new QSlider(Qt::Horizontal);
    modifierSlider->setObjectName("modifierSlider");
    modifierSlider->setRange(0, 255);
    modifierSlider->setToolTip(tr("Shapes the Fire and Aqua palettes"));
    form->addRow(tr("Modifier"), modifierSlider);

    despeckleBox = new QSpinBox;

    despeckleBox->setObjectName("despeckleBox");
    despeckleBox->setRange(0, 9);
    despeckleBox->setSpecialValueText(tr("Off"));
    form->addRow(tr("Despeckle"), despeckleBox);
    clampBox = new QDoubleSpinBox;
    clampBox->setObjectName("clampBox");
    clampBox->setRange(0.0, 0.5);
    clampBox->setDecimals(3);
    clampBox->setSingleStep(0.005);
    clampBox->setValue(defaultClampLevel);
    clampBox->setToolTip(tr("Fraction of the darkest and brightest pixels left out of the contrast"));
    form->addRow(tr("Clamp"), clampBox);

    labelsBox = new QCheckBox(tr("Range labels"));
    arcsBox = new QCheckBox(tr("Range arcs"));
    linesBox = new QCheckBox(tr("Range lines"));
    form->addRow(tr("Overlays"), labelsBox);
    form->addRow(QString(), arcsBox);
    form->addRow(QString(), linesBox);
    movingTargetsBox = new QCheckBox(tr("Moving targets"));
    movingTargetsBox->setObjectName("movingTargetsBox");
    movingTargetsBox->setToolTip(
        tr("Show only what stands out from the still background: fish rather than the bed"));
    form->addRow(tr("Filter"), movingTargetsBox);
    colourScaleBox = new QCheckBox(tr("Colour scale"));
    autoGridBox = new QCheckBox(tr("Automatic grid colour"));
    form->addRow(QString(), colourScaleBox);
    form->addRow(QString(), autoGridBox);

    measurementBox = new QComboBox;

    measurementBox->setObjectName("measurementBox");
    measurementBox->addItems({ tr("Distance"), tr("Rectangle area"), tr("Circle area") });
    form->addRow(tr("Measure"), measurementBox);
    distanceUnitBox = new QComboBox;
    distanceUnitBox->setObjectName("distanceUnitBox");
    for (const LinearUnit* unit : distanceUnits)
        distanceUnitBox->addItem(QString::fromStdString(unit->getName()));
    form->addRow(tr("Distances"), distanceUnitBox);
    areaUnitBox = new QComboBox;
    areaUnitBox->setObjectName("areaUnitBox");
    for (const LinearUnit* unit : areaUnits)
        areaUnitBox->addItem(QString::fromStdString(unit->getName()));
    form->addRow(tr("Areas"), areaUnitBox);

    rotationBox = new QSpinBox;

    rotationBox->setObjectName("rotationBox");
    rotationBox->setRange(0, 359);
    rotationBox->setWrapping(true);
    rotationBox->setSingleStep(15);
    rotationBox->setSuffix(QStringLiteral("\u00b0"));
    form->addRow(tr("Rotation"), rotationBox);
    mirrorBox = new QCheckBox(tr("Mirror left-right"));
    mirrorBox->setObjectName("mirrorBox");
    form->addRow(QString(), mirrorBox);
    upsideDownButton = new QPushButton(tr("Turn upside down"));
    form->addRow(QString(), upsideDownButton);

    zoomBox = new QDoubleSpinBox;

    zoomBox->setObjectName("zoomBox");
    zoomBox->setRange(minimumZoom, maximumZoom);
    zoomBox->setSingleStep(0.25);
    zoomBox->setSuffix(QStringLiteral("\u00d7"));
    zoomBox->setToolTip(tr("Also the mouse wheel over the display"));
    animateBox = new QCheckBox(tr("Animate"));
    animateBox->setChecked(true);
    auto* zoomRow = new QHBoxLayout;
    zoomRow->addWidget(zoomBox, 1);
    zoomRow->addWidget(animateBox);
    form->addRow(tr("Zoom"), zoomRow);

    brandingBox = new QCheckBox(tr("Show logos"));
    form->addRow(tr("Branding"), brandingBox);
    clearColourButton = new QPushButton;
    form->addRow(tr("Background"), clearColourButton);
    textColourButton = new QPushButton;
    form->addRow(tr("Text"), textColourButton);
    fontButton = new QPushButton(tr("Choose\u2026"));
    form->addRow(tr("Text font"), fontButton);
    return panel;
}

QWidget* MainWindow::createSonarControls()
{
    auto* panel = new QWidget;
    auto* form = new QFormLayout(panel);
    beamsBox = new QComboBox;
    beamsBox->setObjectName("beamsBox");
    beamsBox->addItems({ "256", "512" });
    form->addRow(tr("Beams"), beamsBox);
    apertureBox = new QSpinBox;
    apertureBox->setRange(30, 170);
    apertureBox->setSuffix(QStringLiteral("\u00b0"));
    form->addRow(tr("Aperture"), apertureBox);
    rangeBox = new QDoubleSpinBox;
    rangeBox->setRange(2.0, 150.0);
    rangeBox->setDecimals(1);
    rangeBox->setSuffix(tr(" m"));
    form->addRow(tr("Range"), rangeBox);
    rangeLinesBox = new QSpinBox;
    rangeLinesBox->setRange(100, 1500);
    rangeLinesBox->setSingleStep(50);
    form->addRow(tr("Range lines"), rangeLinesBox);
    frameRateBox = new QSpinBox;
    frameRateBox->setRange(1, 60);
    frameRateBox->setSuffix(tr(" Hz"));
    form->addRow(tr("Ping rate"), frameRateBox);
    pingingBox = new QCheckBox(tr("Pinging"));
    pingingBox->setChecked(true);
    form->addRow(QString(), pingingBox);
    fishBox = new QCheckBox(tr("Fish"));
    fishBox->setObjectName("simulatedFishBox");
    fishBox->setToolTip(tr("Fish swim through the scene, to try counting without a recording"));
    form->addRow(QString(), fishBox);
    return panel;
}

void MainWindow::connectControls()
{
    using IntSignal = void (QComboBox::*)(int);
    const auto comboChanged = static_cast<IntSignal>(&QComboBox::currentIndexChanged);
    const auto spinChanged = QOverload<int>::of(&QSpinBox::valueChanged);
    const auto doubleChanged = QOverload<double>::of(&QDoubleSpinBox::valueChanged);

    connect(paletteBox, comboChanged, this, [this](int index) {
        display->setPalette(static_cast<Options::Palette>(index));
        showLook();
    });
    connect(modifierSlider, &QSlider::valueChanged, this, [this](int value) {
        display->setPaletteModifier(static_cast<uint8_t>(value));
        followLookOnEchogram();
    });
    connect(despeckleBox, spinChanged, display, &FanDisplay::setDespeckleLevel);
    connect(clampBox, doubleChanged, this, [this](double level) {
        display->setClampLevel(static_cast<float>(level));
        followLookOnEchogram();
    });
    connect(movingTargetsBox, &QCheckBox::toggled, this, [this](bool on) {
        movingTargets.setEnabled(on);
        if (recordingPanel->isReplaying()) {
            learnFromReplay();
            loadEchogram();
            // A paused replay shows its frame again, as it is now to be seen.
            recordingPanel->seekToFrame(recordingPanel->getShownFrame());
        } else {
            // Columns of both kinds side by side would mislead.
            echogram->clear();
        }
    });
    const std::pair<QCheckBox*, Options::OverlayFeature> overlays[] = { { labelsBox, Options::RangeLabels },
        { arcsBox, Options::RangeArcs }, { linesBox, Options::RangeLines } };
    for (const auto& [box, feature] : overlays) {
        const Options::OverlayFeature f = feature;
        connect(box, &QCheckBox::toggled, this, [this, f](bool on) { display->setOverlayFeature(f, on); });
    }
    connect(
        colourScaleBox, &QCheckBox::toggled, this, [this](bool on) { display->setColourScaleVisible(on); });
    connect(autoGridBox, &QCheckBox::toggled, this, [this](bool on) { display->setAutomaticGridColour(on); });
    connect(measurementBox, comboChanged, this, [this](int index) {
        display->setMeasurementMode(static_cast<Options::MeasurementMode>(index));
        display->update();
    });
    connect(distanceUnitBox, comboChanged, this, [this](int index) {
        display->setDistanceUnit(distanceUnits[index]);
        ruler->setDistanceUnit(distanceUnits[index]);
        display->update();
        positionLabel->clear();
        followLookOnEchogram();
    });
    connect(areaUnitBox, comboChanged, this, [this](int index) {
        display->setAreaUnit(areaUnits[index]);
        display->update();
    });
    connect(rotationBox, spinChanged, display, &FanDisplay::setRotation);
    connect(mirrorBox, &QCheckBox::toggled, this, [this](bool mirrored) {
        if (display->getCurrentDisplaySettings().horizontalFlip != mirrored)
            display->horizontalFlip();
    });
    connect(upsideDownButton, &QPushButton::clicked, this, [this] {
        display->verticalFlip();
        showLook();
    });
    connect(zoomBox, doubleChanged, this, [this](double level) {
        if (std::abs(level - display->getZoomLevel()) > 1e-6)
            display->setZoomLevel(static_cast<float>(level), animateBox->isChecked());
    });
    connect(brandingBox, &QCheckBox::toggled, this, [this](bool on) {
        display->setBranding(on);
        display->update();
    });
    connect(clearColourButton, &QPushButton::clicked, this, [this] { chooseColour(true); });
    connect(textColourButton, &QPushButton::clicked, this, [this] { chooseColour(false); });
    connect(fontButton, &QPushButton::clicked, this, [this] {
        bool ok = false;
        const QFont font = QFontDialog::getFont(&ok, fontButton->font(), this, tr("Text font"));
        if (ok) {
            fontButton->setFont(font);
            display->setFont(font);
            display->update();
        }
    });

    connect(beamsBox, comboChanged, this, [this](int) { sendSonarConfiguration(); });
    connect(apertureBox, spinChanged, this, [this](int) { sendSonarConfiguration(); });
    connect(rangeBox, doubleChanged, this, [this](double) { sendSonarConfiguration(); });
    connect(rangeLinesBox, spinChanged, this, [this](int) { sendSonarConfiguration(); });
    connect(frameRateBox, spinChanged, this, [this](int) { sendSonarConfiguration(); });
    connect(fishBox, &QCheckBox::toggled, this, [this](bool on) {
        SimulatedSonar* target = sonar;
        QMetaObject::invokeMethod(sonar, [target, on] { target->setFish(on); });
    });
    connect(pingingBox, &QCheckBox::toggled, this, [this](bool on) {
        if (on)
            QMetaObject::invokeMethod(sonar, &SimulatedSonar::start);
        else
            QMetaObject::invokeMethod(sonar, &SimulatedSonar::stop);
        if (status.getSource() == SourceStatus::Source::Simulated) {
            status.setPaused(!on);
            showSourceStatus();
        }
    });
}

void MainWindow::showLook()
{
    const Options::DisplaySettings look = display->getCurrentDisplaySettings();
    const QSignalBlocker blockers[] = { QSignalBlocker(paletteBox), QSignalBlocker(modifierSlider),
        QSignalBlocker(labelsBox), QSignalBlocker(arcsBox), QSignalBlocker(linesBox),
        QSignalBlocker(rotationBox), QSignalBlocker(mirrorBox), QSignalBlocker(zoomBox) };
    paletteBox->setCurrentIndex(look.palette);
    const bool computed = look.palette == Options::Fire || look.palette == Options::Aqua;
    modifierSlider->setEnabled(computed);
    if (computed)
        modifierSlider->setValue(look.paletteModifier);
    labelsBox->setChecked(look.showRangeLabels);
    arcsBox->setChecked(look.showRangeArcs);
    linesBox->setChecked(look.showRangeLines);
    const int degrees = static_cast<int>(std::lround(look.rotation)) % 360;
    rotationBox->setValue(degrees < 0 ? degrees + 360 : degrees);
    mirrorBox->setChecked(look.horizontalFlip);
    zoomBox->setValue(display->getZoomLevel());
    showColour(clearColourButton, look.clearColour);
    showColour(textColourButton, look.textColour);
    // The magnifier's green outline is hard to see on the blue palettes: yellow there.
    const bool blue = look.palette == Options::Blue || look.palette == Options::Aqua;
    FanDisplayExtensions::setMagnifierOutlineColour(display, blue ? QColor(255, 210, 0) : QColor());
    followLookOnEchogram();
}

void MainWindow::chooseColour(bool clearColour)
{
    const Options::DisplaySettings look = display->getCurrentDisplaySettings();
    const QColor current = clearColour ? look.clearColour : look.textColour;
    const QColor chosen
        = QColorDialog::getColor(current, this, clearColour ? tr("Background colour") : tr("Text colour"));
    if (!chosen.isValid())
        return;
    if (clearColour)
        display->setClearColour(chosen);
    else
        display->setTextColour(chosen);
    display->update();
    showLook();
}

void MainWindow::showPosition(double x, double y, double range, double bearing)
{
    const AbstractUnit* unit = distanceUnits[distanceUnitBox->currentIndex()];
    const QString symbol = QString::fromStdString(unit->getSymbol());
    auto length = [unit, &symbol](double metres) {
        return QString::number(unit->convertFromBase(metres), 'f', 2) + ' ' + symbol;
    };
    positionLabel->setText(tr("Across %1   Along %2   Range %3   Bearing %4\u00b0")
                               .arg(length(x), length(y), length(range))
                               .arg(bearing, 0, 'f', 1));
}

void MainWindow::stepMagnifier(int steps)
{
    for (; steps > 0 && magnifierLevel < lastMagnifierLevel; --steps, ++magnifierLevel)
        magnifier->zoomIn();
    for (; steps < 0 && magnifierLevel > 0; ++steps, --magnifierLevel)
        magnifier->zoomOut();
    magnifierZoomLabel->setText(QStringLiteral("\u00d7%1").arg(magnifierFactors[magnifierLevel]));
}

void MainWindow::setZoomLevel(double level)
{
    level = std::clamp(level, minimumZoom, maximumZoom);
    display->setZoomLevel(static_cast<float>(level), animateBox->isChecked());
    const QSignalBlocker blocker(zoomBox);
    zoomBox->setValue(level);
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event)
{
    // The magnifier keeps a fan unit's size in pixels when resized, which slides the spot it shows
    // off its centre; as the recording panel below it grows and shrinks, keep that spot in the middle.
    if (watched == magnifier && event->type() == QEvent::Resize
        && !static_cast<QResizeEvent*>(event)->size().isEmpty() && !magnifier->size().isEmpty()) {
        const QPointF spot = magnifier->getCurrentProjection().inverted().map(QPointF(0.0, 0.0));
        // The magnifier's own handling first (QObject::event is public where QWidget's is not).
        static_cast<QObject*>(magnifier)->event(event);
        const QPointF moved = magnifier->getCurrentProjection().map(spot);
        magnifier->pan(float(-moved.x()), float(-moved.y()), false);
        return true;
    }
    if (event->type() == QEvent::Wheel) {
        const int delta = static_cast<QWheelEvent*>(event)->angleDelta().y();
        if (delta == 0)
            return false;
        if (watched == magnifier) {
            stepMagnifier(delta > 0 ? 1 : -1);
            return true;
        }
        if (watched == display) {
            setZoomLevel(display->getZoomLevel() * (delta > 0 ? 1.25 : 0.8));
            return true;
        }
    }
    return QMainWindow::eventFilter(watched, event);
}

void MainWindow::restoreSettings()
{
    QSettings settings;
    settings.beginGroup("display");
    display->configureFromSettings(
        DisplaySettingsStore::read(settings, display->getCurrentDisplaySettings()));
    settings.endGroup();

    settings.beginGroup("viewer");
    // What changes the picture is read where the export tool reads it.
    const DisplaySettingsStore::ViewerChoices choices = DisplaySettingsStore::readChoices(settings, {});
    despeckleBox->setValue(choices.despeckleLevel);
    clampBox->setValue(choices.clampLevel);
    measurementBox->setCurrentIndex(std::clamp(settings.value("measurementMode", 0).toInt(), 0, 2));
    distanceUnitBox->setCurrentIndex(choices.feet ? 1 : 0);
    areaUnitBox->setCurrentIndex(choices.squareFeet ? 1 : 0);
    brandingBox->setChecked(settings.value("branding", false).toBool());
    animateBox->setChecked(settings.value("animateZoom", true).toBool());
    colourScaleBox->setChecked(choices.colourScale);
    autoGridBox->setChecked(choices.automaticGridColour);
    // No font saved yet: keep the default without asking QFont to parse nothing.
    const QString fontDescription = settings.value("font").toString();
    QFont font;
    if (!fontDescription.isEmpty() && font.fromString(fontDescription)) {
        fontButton->setFont(font);
        display->setFont(font);
    }
    const double zoom = std::clamp(settings.value("zoomLevel", 1.0).toDouble(), minimumZoom, maximumZoom);
    display->setZoomLevel(static_cast<float>(zoom), false);
    settings.endGroup();

    settings.beginGroup("sonar");
    sonarConfiguration.beamCount
        = settings.value("beams", sonarConfiguration.beamCount).toInt() == 512 ? 512 : 256;
    sonarConfiguration.apertureDegrees
        = std::clamp(settings.value("aperture", sonarConfiguration.apertureDegrees).toDouble(), 30.0, 170.0);
    sonarConfiguration.range
        = std::clamp(settings.value("range", sonarConfiguration.range).toDouble(), 2.0, 150.0);
    sonarConfiguration.rangeLines
        = std::clamp(settings.value("rangeLines", sonarConfiguration.rangeLines).toInt(), 100, 1500);
    sonarConfiguration.frameRate
        = std::clamp(settings.value("frameRate", sonarConfiguration.frameRate).toInt(), 1, 60);
    settings.endGroup();

    restoreGeometry(settings.value("window/geometry").toByteArray());
    restoreState(settings.value("window/state").toByteArray(), dockLayoutVersion);
}

void MainWindow::saveSettings() const
{
    QSettings settings;
    settings.beginGroup("display");
    DisplaySettingsStore::write(settings, display->getCurrentDisplaySettings());
    settings.endGroup();

    settings.beginGroup("viewer");
    DisplaySettingsStore::ViewerChoices choices;
    choices.despeckleLevel = despeckleBox->value();
    choices.clampLevel = clampBox->value();
    choices.colourScale = colourScaleBox->isChecked();
    choices.automaticGridColour = autoGridBox->isChecked();
    choices.feet = distanceUnitBox->currentIndex() == 1;
    choices.squareFeet = areaUnitBox->currentIndex() == 1;
    DisplaySettingsStore::writeChoices(settings, choices);
    settings.setValue("measurementMode", measurementBox->currentIndex());
    settings.setValue("branding", brandingBox->isChecked());
    settings.setValue("animateZoom", animateBox->isChecked());
    settings.setValue("font", fontButton->font().toString());
    settings.setValue("zoomLevel", display->getZoomLevel());
    settings.endGroup();

    settings.beginGroup("sonar");
    settings.setValue("beams", sonarConfiguration.beamCount);
    settings.setValue("aperture", sonarConfiguration.apertureDegrees);
    settings.setValue("range", sonarConfiguration.range);
    settings.setValue("rangeLines", sonarConfiguration.rangeLines);
    settings.setValue("frameRate", sonarConfiguration.frameRate);
    settings.endGroup();

    settings.setValue("window/geometry", saveGeometry());
    settings.setValue("window/state", saveState(dockLayoutVersion));
}

void MainWindow::applyCommandLine(const ViewerOptions& commandLine)
{
    if (commandLine.palette >= 0)
        display->setPalette(static_cast<Options::Palette>(commandLine.palette));
    if (commandLine.paletteModifier >= 0)
        display->setPaletteModifier(static_cast<uint8_t>(commandLine.paletteModifier));
    if (commandLine.despeckleLevel >= 0)
        despeckleBox->setValue(commandLine.despeckleLevel);
    if (commandLine.clampLevel >= 0.0)
        clampBox->setValue(commandLine.clampLevel);
    if (commandLine.feet) {
        distanceUnitBox->setCurrentIndex(1);
        areaUnitBox->setCurrentIndex(1);
    }
    if (commandLine.beamCount > 0)
        sonarConfiguration.beamCount = commandLine.beamCount;
    if (commandLine.zoomLevel > 0.0)
        display->setZoomLevel(static_cast<float>(commandLine.zoomLevel), false);
    // The switches turn these on; without them the saved choice stays.
    if (commandLine.colourScale)
        colourScaleBox->setChecked(true);
    if (commandLine.automaticGridColour)
        autoGridBox->setChecked(true);
    display->setColourScaleVisible(colourScaleBox->isChecked());
    display->setAutomaticGridColour(autoGridBox->isChecked());

    // The controls set above are not connected yet: hand their values over now.
    display->setDespeckleLevel(despeckleBox->value());
    display->setClampLevel(static_cast<float>(clampBox->value()));
    display->setMeasurementMode(static_cast<Options::MeasurementMode>(measurementBox->currentIndex()));
    display->setDistanceUnit(distanceUnits[distanceUnitBox->currentIndex()]);
    ruler->setDistanceUnit(distanceUnits[distanceUnitBox->currentIndex()]);
    display->setAreaUnit(areaUnits[areaUnitBox->currentIndex()]);
    display->setBranding(brandingBox->isChecked());

    if (commandLine.echogram)
        echogramDock->show();
    if (commandLine.movingTargets)
        movingTargetsBox->setChecked(true);
    movingTargets.setEnabled(movingTargetsBox->isChecked());
    if (!commandLine.measurementsPath.isEmpty())
        measurementsDock->raise();
    if (commandLine.countFish) {
        fishPanel->setCounting(true);
        fishDock->raise();
    }
    if (commandLine.simulatedFish)
        fishBox->setChecked(true);

    const QSignalBlocker blockers[] = { QSignalBlocker(beamsBox), QSignalBlocker(apertureBox),
        QSignalBlocker(rangeBox), QSignalBlocker(rangeLinesBox), QSignalBlocker(frameRateBox) };
    beamsBox->setCurrentIndex(sonarConfiguration.beamCount == 512 ? 1 : 0);
    apertureBox->setValue(static_cast<int>(std::lround(sonarConfiguration.apertureDegrees)));
    rangeBox->setValue(sonarConfiguration.range);
    rangeLinesBox->setValue(sonarConfiguration.rangeLines);
    frameRateBox->setValue(sonarConfiguration.frameRate);
}

void MainWindow::sendSonarConfiguration()
{
    sonarConfiguration.beamCount = beamsBox->currentIndex() == 1 ? 512 : 256;
    sonarConfiguration.apertureDegrees = apertureBox->value();
    sonarConfiguration.range = rangeBox->value();
    sonarConfiguration.rangeLines = rangeLinesBox->value();
    sonarConfiguration.frameRate = frameRateBox->value();
    const SonarConfiguration configuration = sonarConfiguration;
    SimulatedSonar* target = sonar;
    QMetaObject::invokeMethod(sonar, [target, configuration] { target->setConfiguration(configuration); });
}

void MainWindow::startSonar()
{
    sonar = new SimulatedSonar(sonarConfiguration);
    sonar->moveToThread(&sonarThread);
    connect(&sonarThread, &QThread::finished, sonar, &QObject::deleteLater);
    connect(&sonarThread, &QThread::started, sonar, &SimulatedSonar::start);
    // Queued across the threads, as frames from a real driver would be.
    connect(sonar, &SimulatedSonar::disconnected, display, &FanDisplay::sonarDisconnected);
    connect(sonar, &SimulatedSonar::newImage, this, [this](const NereonImage& image) {
        if (sonar)
            sonar->frameDelivered();
        // Frames still on their way when a replay or a live sonar began are not shown.
        if (recordingPanel->isReplaying() || liveActive)
            return;
        SourceFrame frame;
        frame.image = image;
        frame.index = liveFrameNumber++;
        // The echogram and the counter want a time; the status bar says the sonar gave none.
        frame.timestamp = QDateTime::currentMSecsSinceEpoch() * 1000;
        frameArrived(frame, 0);
    });
    if (fishBox->isChecked()) {
        SimulatedSonar* target = sonar;
        QMetaObject::invokeMethod(sonar, [target] { target->setFish(true); });
    }
    sonarThread.setObjectName("simulated sonar");
    sonarThread.start();
}

void MainWindow::stopSonar()
{
    if (!sonarThread.isRunning())
        return;
    sonarThread.quit();
    sonarThread.wait();
    sonar = nullptr;
}

void MainWindow::countFrameForScreenshot()
{
    if (options.screenshotPath.isEmpty() || screenshotTaken || ++framesSeen != options.frames)
        return;
    // Give the last frame time to reach the screen.
    QTimer::singleShot(300, this, [this] { takeScreenshot(true); });
}

void MainWindow::takeScreenshot(bool complete)
{
    if (screenshotTaken)
        return;
    // The picture shows the whole echogram of a recording, not a part read so far.
    if (complete && echogram->isLoading() && echogramDock->isVisible()) {
        connect(echogram, &EchogramDisplay::loadFinished, this,
            [this] { QTimer::singleShot(300, this, [this] { takeScreenshot(true); }); });
        return;
    }
    screenshotTaken = true;
    const bool saved = grabPicture(options.fanOnly).save(options.screenshotPath);
    if (!saved)
        std::fprintf(stderr, "Could not save %s\n", qPrintable(options.screenshotPath));
    if (!complete)
        std::fprintf(stderr, "Only %d of %d frames arrived\n", framesSeen, options.frames);
    QCoreApplication::exit(saved && complete ? 0 : 1);
}

QPixmap MainWindow::grabPicture(bool fanOnly) const
{
    QScreen* screen = windowHandle() ? windowHandle()->screen() : QGuiApplication::primaryScreen();
    if (fanOnly) {
        const QPoint origin = display->mapTo(this, QPoint(0, 0));
        return screen->grabWindow(winId(), origin.x(), origin.y(), display->width(), display->height());
    }
    return screen->grabWindow(winId());
}

void MainWindow::createMenus()
{
    QMenu* file = menuBar()->addMenu(tr("&File"));
    QAction* replay = file->addAction(tr("&Open recording\u2026"));
    replay->setShortcut(QKeySequence::Open);
    replay->setToolTip(tr("Replay the viewer's own recordings or ARIS files; or drop a file on the window"));
    connect(replay, &QAction::triggered, recordingPanel, &RecordingPanel::chooseRecording);
    recordAction = file->addAction(tr("&Record\u2026"));
    recordAction->setCheckable(true);
    recordAction->setShortcut(QKeySequence(tr("Ctrl+R")));
    connect(recordAction, &QAction::triggered, this, [this] {
        recordingPanel->toggleRecording();
        recordAction->setChecked(recordingPanel->isRecording());
    });
    connect(recordingPanel, &RecordingPanel::recordingChanged, recordAction, &QAction::setChecked);
    QAction* live = file->addAction(tr("Back to &live"));
    connect(live, &QAction::triggered, recordingPanel, &RecordingPanel::returnToLive);
#ifdef NEREON_HAVE_LIVE
    QAction* connectSonar = file->addAction(tr("&Connect to sonar\u2026"));
    connectSonar->setToolTip(tr("Show a live ARIS sonar on the network"));
    connect(connectSonar, &QAction::triggered, this, [this] {
        ConnectDialog dialog(this);
        if (dialog.exec() == QDialog::Accepted)
            connectToSonar(dialog.getTarget(), dialog.getSettings());
    });
    QAction* disconnectAction = file->addAction(tr("&Disconnect sonar"));
    connect(disconnectAction, &QAction::triggered, this, &MainWindow::disconnectSonar);
    file->addSeparator();
#endif
#ifdef NEREON_HAVE_EXPORT
    QAction* exportVideo = file->addAction(tr("&Export video\u2026"));
    exportVideo->setToolTip(tr("The recording being replayed, or one you choose, as a video with this look"));
    connect(exportVideo, &QAction::triggered, this, &MainWindow::exportVideo);
#endif
    file->addSeparator();
    QAction* screenshot = file->addAction(tr("Save &screenshot\u2026"));
    screenshot->setShortcut(QKeySequence(tr("Ctrl+Shift+S")));
    connect(screenshot, &QAction::triggered, this, [this] { saveScreenshot(false); });
    QAction* fanPicture = file->addAction(tr("Save picture of the &fan\u2026"));
    connect(fanPicture, &QAction::triggered, this, [this] { saveScreenshot(true); });
    file->addSeparator();
    QAction* quit = file->addAction(tr("&Quit"));
    quit->setShortcut(QKeySequence::Quit);
    connect(quit, &QAction::triggered, this, &QWidget::close);

    // A dock closed by its title bar's button comes back from here.
    QMenu* view = menuBar()->addMenu(tr("&View"));
    for (QDockWidget* dock : findChildren<QDockWidget*>())
        view->addAction(dock->toggleViewAction());
}

void MainWindow::createRecordingDock()
{
    recordingPanel = new RecordingPanel;
    recordingDock = new QDockWidget(tr("Recording"), this);
    recordingDock->setObjectName("recordingDock");
    recordingDock->setWidget(recordingPanel);
    addDockWidget(Qt::LeftDockWidgetArea, recordingDock);

    connect(recordingPanel, &RecordingPanel::sourceFrameReplayed, this, [this](const SourceFrame& frame) {
        ++framesReplayed;
        frameArrived(frame, frame.timestamp);
    });
    connect(recordingPanel, &RecordingPanel::replayStarted, this, [this] { useReplay(true); });
    connect(recordingPanel, &RecordingPanel::liveRequested, this, [this] { useReplay(false); });
    connect(recordingPanel, &RecordingPanel::playingChanged, this, [this](bool playing) {
        status.setPaused(!playing);
        showSourceStatus();
    });
    connect(recordingPanel, &RecordingPanel::replayStopped, this, [this](qint64 damageOffset) {
        status.setStopped(damageOffset < 0 ? tr("at the end") : tr("stopped at damage"));
        showSourceStatus();
    });
    connect(recordingPanel, &RecordingPanel::replayStopped, this, &MainWindow::replayStopped);
    connect(recordingPanel, &RecordingPanel::replayFailed, this, &MainWindow::replayFailed);
    connect(recordingPanel, &RecordingPanel::sonarDescribed, this, [this] {
        setWindowTitle(tr("Nereon viewer \u2014 %1").arg(recordingPanel->getReplayName()));
    });
    connect(recordingPanel, &RecordingPanel::replayOpened, this, [this](int, qint64 duration) {
        if (options.screenshotPath.isEmpty() || !commandLineReplay)
            return;
        // Should the frames stop coming, still leave a picture and fail.
        const double seconds = double(duration) / 1e6 / options.replaySpeed;
        QTimer::singleShot(
            20000 + int(std::min(seconds, 3600.0) * 1000), this, [this] { takeScreenshot(false); });
    });
}

void MainWindow::startCommandLineRecording()
{
    if (!options.recordPath.isEmpty() && !recordingPanel->startRecording(options.recordPath)) {
        std::fprintf(stderr, "Cannot record to %s: %s\n", qPrintable(options.recordPath),
            qPrintable(recordingPanel->getRecordingError()));
        QTimer::singleShot(0, this, [] { QCoreApplication::exit(2); });
        return;
    }
    if (!options.replayPath.isEmpty() && options.replayFrame >= 0) {
        // Refused as the export tool refuses it, rather than showing the last frame instead.
        const std::unique_ptr<Halcyra::Nereon::Sources::FrameReader> reader
            = Halcyra::Nereon::Sources::FrameReader::create(options.replayPath);
        if (reader && options.replayFrame >= reader->getFrameCount()) {
            std::fprintf(stderr, "nereon-viewer: %s\n",
                qPrintable(CommandLineNumbers::missingFrame(QFileInfo(options.replayPath).fileName(),
                    reader->getFrameCount(), options.replayFrame + 1)));
            QTimer::singleShot(0, this, [] { QCoreApplication::exit(1); });
            return;
        }
    }
    if (!options.replayPath.isEmpty()) {
        commandLineReplay = true;
        recordingPanel->openRecording(options.replayPath, options.replaySpeed, options.replayFrame);
    }
}

void MainWindow::frameReceived(const NereonImage& image, qint64 frameTime)
{
    status.frameShown(QDateTime::currentMSecsSinceEpoch(), frameTime);
    timeLabel->setText(status.getTimeText());
    ruler->setRange(image.getRange());
    if (!magnifierOptionsApplied) {
        magnifierOptionsApplied = true;
        if (options.magnifierAtRangeBearing)
            options.magnifierCentre = ViewerOptions::fanPoint(options.magnifierAt, image.getRange());
        applyMagnifierOptions();
    }
    recordingPanel->record(image);
    countFrameForScreenshot();
}

void MainWindow::useReplay(bool replay)
{
    // A replay takes the place of a live sonar.
    if (replay)
        disconnectSonar();
    // The simulated sonar rests while a recording plays.
    pingingBox->setChecked(!replay);
    if (!replay)
        commandLineReplay = false;
    if (!replay)
        setWindowTitle(tr("Nereon viewer"));
    useSource(replay ? SourceStatus::Source::Replay : SourceStatus::Source::Simulated);
    // Not playing until the player says so: a replay opened at a frame waits, paused.
    if (replay)
        status.setPaused(true);
    showSourceStatus();
}

void MainWindow::useSource(SourceStatus::Source source)
{
    const bool simulated = source == SourceStatus::Source::Simulated;
    sonarDock->setEnabled(simulated);
    sonarDock->setVisible(simulated);
    status.setSource(source);
    // A new source has another background and other fish.
    movingTargets.reset();
    Halcyra::Nereon::Analysis::CountOptions counting = fishPanel->getOptions();
    const Halcyra::Nereon::Analysis::CountOptions defaults;
    // The simulated sonar draws fresh, fully developed speckle on every ping, harsher than a real
    // sonar's: only echoes well above it are fish.
    counting.thresholdDifference = simulated ? 40 : defaults.thresholdDifference;
    counting.thresholdSpreadFactor = simulated ? 5.0 : defaults.thresholdSpreadFactor;
    fishPanel->setOptions(counting);
    lastCountedFrame = -1;
    if (simulated)
        status.setPaused(!pingingBox->isChecked());
    timeLabel->clear();
    showSourceStatus();
}

void MainWindow::showSourceStatus()
{
#ifdef NEREON_HAVE_LIVE
    if (liveSonar && liveActive)
        status.setDroppedFrames(liveSonar->getStatistics().droppedFrames);
#endif
    sourceLabel->setText(status.getText(QDateTime::currentMSecsSinceEpoch()));
}

void MainWindow::fitToScreen()
{
    const QRect available = screen()->availableGeometry();
    // The title bar and frame are not known before the window is shown: leave room for a generous one.
    const QSize room = available.size() - QSize(16, 48);
    // Width beyond the side columns goes to the fan.
    resize(QSize(1440, 900).boundedTo(room).expandedTo(minimumSizeHint()));
    // The recording panel gets the height of its controls; the magnifier, where fish are measured, the rest.
    resizeDocks({ magnifierDock, recordingDock }, { height(), 1 }, Qt::Vertical);
}

void MainWindow::replayStopped(qint64 damageOffset, const QString& description)
{
    if (damageOffset >= 0)
        std::fprintf(stderr, "Replay stopped at byte %lld of %s: %s\n", static_cast<long long>(damageOffset),
            qPrintable(options.replayPath.isEmpty() ? tr("the recording") : options.replayPath),
            qPrintable(description));
    if (!commandLineReplay)
        return;
    if (framesReplayed == 0) {
        std::fprintf(stderr, "Nothing could be replayed from %s\n", qPrintable(options.replayPath));
        QCoreApplication::exit(1);
        return;
    }
    // The recording has no more frames to give: the picture shows what there was.
    if (!options.screenshotPath.isEmpty() && !screenshotTaken && framesSeen < options.frames)
        QTimer::singleShot(300, this, [this] { takeScreenshot(true); });
}

void MainWindow::replayFailed(const QString& message)
{
    status.setStopped(tr("cannot be read"));
    showSourceStatus();
    std::fprintf(stderr, "Cannot replay %s: %s\n", qPrintable(options.replayPath), qPrintable(message));
    if (commandLineReplay)
        QCoreApplication::exit(1);
}

void MainWindow::saveScreenshot(bool fanOnly)
{
    // Grabbed before the file dialog opens, so that the dialog is not in the picture.
    const QPixmap picture = grabPicture(fanOnly);
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::PicturesLocation);
    const QString suggestion = QDir(folder).filePath(
        QStringLiteral("nereon-%1.png").arg(QDateTime::currentDateTime().toString("yyyyMMdd-HHmmss")));
    const QString path = QFileDialog::getSaveFileName(
        this, tr("Save screenshot"), suggestion, tr("Pictures (*.png *.jpg *.bmp)"));
    if (path.isEmpty())
        return;
    if (picture.save(path))
        statusBar()->showMessage(tr("Saved %1").arg(QDir::toNativeSeparators(path)), 5000);
    else
        QMessageBox::warning(this, tr("Save screenshot"), tr("Could not save %1.").arg(path));
}

void MainWindow::connectToSonar(const QString& target, const Halcyra::Nereon::Sources::ArisLiveSettings& given)
{
#ifdef NEREON_HAVE_LIVE
    using Halcyra::Nereon::Sources::ArisLiveSource;
    Halcyra::Nereon::Sources::ArisLiveSettings settings = given;
    QString sonar = target;
    // ADDRESS:PORT for a sonar (or a fake one) on another command port.
    if (target.count(':') == 1) {
        bool ok = false;
        const int port = target.section(':', 1).toInt(&ok);
        if (ok && port > 0 && port < 65536) {
            settings.commandPort = std::uint16_t(port);
            sonar = target.section(':', 0, 0);
        }
    }
    if (!liveSonar) {
        liveSonar = new ArisLiveSource(this);
        using Halcyra::Nereon::Sources::SourceFrame;
        connect(liveSonar, &ArisLiveSource::frameReady, this, [this](const SourceFrame& frame) {
            if (!liveActive || recordingPanel->isReplaying())
                return;
            frameArrived(frame, frame.timestamp);
        });
        connect(liveSonar, &ArisLiveSource::linkStateChanged, this,
            [this](ArisLiveSource::LinkState state, const QString& message) {
                if (!liveActive)
                    return;
                status.setLink(message, state == ArisLiveSource::LinkState::Receiving);
                showSourceStatus();
                if (!options.screenshotPath.isEmpty())
                    std::fprintf(stderr, "%s\n", qPrintable(message));
            });
        connect(liveSonar, &ArisLiveSource::descriptionChanged, this,
            [this](const Halcyra::Nereon::Sources::SonarDescription& sonar) {
                if (liveActive)
                    status.setSonar(sonar.model, sonar.serialNumber);
            });
        connect(liveSonar, &ArisLiveSource::problem, this,
            [this](const QString& message) { statusBar()->showMessage(message, 10000); });
    }
    if (recordingPanel->isReplaying())
        recordingPanel->returnToLive();
    liveActive = true;
    pingingBox->setChecked(false);
    useSource(SourceStatus::Source::Live);
    status.setLink(tr("Connecting to %1").arg(target), false);
    showSourceStatus();
    liveSonar->connectToSonar(sonar, settings);
#else
    Q_UNUSED(target)
    Q_UNUSED(given)
#endif
}

void MainWindow::disconnectSonar()
{
#ifdef NEREON_HAVE_LIVE
    if (!liveActive)
        return;
    liveActive = false;
    liveSonar->disconnectFromSonar();
    pingingBox->setChecked(true);
    useSource(SourceStatus::Source::Simulated);
#endif
}

void MainWindow::exportVideo()
{
#ifdef NEREON_HAVE_EXPORT
    if (!exportDialog) {
        exportDialog = new ExportDialog(this);
        connect(exportDialog, &ExportDialog::finished, this,
            [this](bool, const QString& message) { statusBar()->showMessage(message, 10000); });
    }
    // The look of the display as it is now, at its size (even, as video needs).
    Halcyra::Nereon::Export::ExportOptions look;
    look.size = QSize(display->width() & ~1, display->height() & ~1);
    look.look = display->getCurrentDisplaySettings();
    look.despeckleLevel = despeckleBox->value();
    look.clampLevel = clampBox->value();
    look.feet = distanceUnitBox->currentIndex() == 1;
    look.colourScale = colourScaleBox->isChecked();
    look.automaticGridColour = autoGridBox->isChecked();
    exportDialog->exportRecording(recordingPanel->isReplaying() ? recordingPanel->getReplayPath() : QString(),
        look, movingTargets.isEnabled());
#endif
}

void MainWindow::applyMagnifierOptions()
{
    stepMagnifier(options.magnifierSteps);
    if (options.magnifierCentred) {
        // The view's centre shows the fan point -translation / scale.
        const auto& scale = magnifier->getCurrentScale();
        magnifier->pan(float(-options.magnifierCentre.x() * double(scale.x)),
            float(-options.magnifierCentre.y() * double(scale.y)), true);
    }
    if (!options.measurement.isNull())
        ruler->setMeasurement(options.measurement.p1(), options.measurement.p2());
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event)
{
    const QList<QUrl> urls = event->mimeData()->urls();
    if (urls.size() == 1 && urls.first().isLocalFile())
        event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event)
{
    const QList<QUrl> urls = event->mimeData()->urls();
    if (urls.size() != 1 || !urls.first().isLocalFile())
        return;
    event->acceptProposedAction();
    recordingPanel->openRecording(urls.first().toLocalFile());
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    if (options.useSavedSettings)
        saveSettings();
    writeMeasurementsFile();
    stopSonar();
    event->accept();
}

void MainWindow::createAnalysisDocks()
{
    echogramPanel = new EchogramPanel;
    echogram = echogramPanel->getEchogram();
    echogramDock = new QDockWidget(tr("Echogram"), this);
    echogramDock->setObjectName("echogramDock");
    echogramDock->setWidget(echogramPanel);
    addDockWidget(Qt::BottomDockWidgetArea, echogramDock);
    // Asked for (View menu, --echogram): reading a whole recording is not free.
    echogramDock->hide();
    connect(echogramDock, &QDockWidget::visibilityChanged, this, [this](bool visible) {
        if (visible && recordingPanel->isReplaying() && echogramRecording != recordingPanel->getReplayPath())
            loadEchogram();
    });
    connect(
        echogram, &EchogramDisplay::frameRequested, this, [this](int frame, qint64) { goToFrame(frame); });

    measurementLog = new MeasurementLog(this);
    measurementLog->attach(display);
    // Fish are measured where they are large: the magnifier's measurements are logged too.
    FanDisplayExtensions::setMagnifierMeasuring(display, true);
    // The magnifier's ruler lies over it and takes its drags: what it measures is logged as the magnifier's.
    connect(ruler, &MagnifierRuler::measurementFinished, this, [this](QPointF start, QPointF end) {
        const double range = ruler->getRange();
        Halcyra::Nereon::Visualisation::FanMeasurement m;
        m.onMagnifier = true;
        m.startAcross = start.x() * range;
        m.startAlong = start.y() * range;
        m.endAcross = end.x() * range;
        m.endAlong = end.y() * range;
        m.startRange = std::hypot(m.startAcross, m.startAlong);
        m.endRange = std::hypot(m.endAcross, m.endAlong);
        m.startBearing = std::atan2(m.startAcross, m.startAlong) * 180.0 / M_PI;
        m.endBearing = std::atan2(m.endAcross, m.endAlong) * 180.0 / M_PI;
        m.value = ruler->getDistance();
        measurementLog->measurementFinished(m);
    });
    measurementsPanel = new MeasurementsPanel(measurementLog);
    measurementsDock = new QDockWidget(tr("Measurements"), this);
    measurementsDock->setObjectName("measurementsDock");
    measurementsDock->setWidget(measurementsPanel);
    addDockWidget(Qt::RightDockWidgetArea, measurementsDock);
    connect(measurementsPanel, &MeasurementsPanel::frameRequested, this, &MainWindow::goToFrame);
    connect(measurementLog, &MeasurementLog::measurementLogged, this,
        [this] { statusBar()->showMessage(tr("Measurement logged"), 3000); });

    fishPanel = new FishCountPanel(display);
    fishPanel->setEchogram(echogram);
    fishDock = new QDockWidget(tr("Fish"), this);
    fishDock->setObjectName("fishDock");
    fishDock->setWidget(scrolling(fishPanel));
    addDockWidget(Qt::RightDockWidgetArea, fishDock);

    connect(recordingPanel, &RecordingPanel::replayOpened, this, [this] {
        learnFromReplay();
        echogramRecording.clear();
        if (echogramDock->isVisible())
            loadEchogram();
    });
    connect(recordingPanel, &RecordingPanel::replayStopped, this, [this](qint64) { fishPanel->finish(); });
}

void MainWindow::frameArrived(const SourceFrame& frame, qint64 statusTime)
{
    if (fishPanel->isCounting()) {
        // The counter follows fish from frame to frame: a jump back in a replay starts a new count.
        if (frame.index <= lastCountedFrame)
            fishPanel->restart();
        lastCountedFrame = frame.index;
        fishPanel->addFrame(frame);
    }
    const SourceFrame shown = movingTargets.apply(frame);
    display->newImageReceived(shown.image);
    // Numbered from 1, as the player and the status bar number them.
    measurementLog->setCurrentFrame(shown.index + 1, shown.timestamp);
    if (recordingPanel->isReplaying())
        echogram->showFrame(shown);
    else
        echogram->addFrame(shown);
    // What was received is recorded, not the filtered view.
    frameReceived(frame.image, statusTime);
}

void MainWindow::followLookOnEchogram()
{
    if (!echogram)
        return;
    const Options::DisplaySettings look = display->getCurrentDisplaySettings();
    echogram->setPalette(look.palette);
    echogram->setPaletteModifier(look.paletteModifier);
    echogram->setClearColour(look.clearColour);
    echogram->setAutomaticThresholds(static_cast<float>(clampBox->value()));
    echogram->setDistanceUnit(distanceUnits[distanceUnitBox->currentIndex()]);
}

void MainWindow::loadEchogram()
{
    if (!recordingPanel->isReplaying())
        return;
    const QString path = recordingPanel->getReplayPath();
    echogramRecording = path;
    if (!movingTargets.isEnabled()) {
        echogram->loadRecording(path);
        return;
    }
    QString error;
    std::unique_ptr<Halcyra::Nereon::Sources::FrameReader> reader
        = Halcyra::Nereon::Sources::FrameReader::create(path, &error);
    if (!reader) {
        statusBar()->showMessage(error, 10000);
        return;
    }
    echogram->loadRecording(MovingTargetFilter::filtered(std::move(reader)));
}

void MainWindow::learnFromReplay()
{
    if (!recordingPanel->isReplaying() || (!movingTargets.isEnabled() && !fishPanel->isCounting()))
        return;
    const std::unique_ptr<Halcyra::Nereon::Sources::FrameReader> reader
        = Halcyra::Nereon::Sources::FrameReader::create(recordingPanel->getReplayPath());
    if (!reader)
        return; // the player says why
    if (movingTargets.isEnabled())
        movingTargets.learnFrom(*reader);
    if (fishPanel->isCounting())
        fishPanel->learnBackground(MovingTargetFilter::sample(*reader));
}

void MainWindow::goToFrame(int frame)
{
    if (recordingPanel->isReplaying())
        recordingPanel->seekToFrame(frame);
    else
        statusBar()->showMessage(
            tr("Frame %1 was live: only a recording can go back to it").arg(frame + 1), 5000);
}

void MainWindow::writeMeasurementsFile()
{
    if (options.measurementsPath.isEmpty() || measurementsWritten)
        return;
    measurementsWritten = true;
    QString error;
    if (!measurementLog->exportCsv(options.measurementsPath, &error))
        std::fprintf(stderr, "%s\n", qPrintable(error));
}
