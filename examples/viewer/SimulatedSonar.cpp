#include "SimulatedSonar.h"

#include "SonarScene.h"

#include <QTimer>

#include <algorithm>

SimulatedSonar::SimulatedSonar(const SonarConfiguration& configuration, QObject* parent)
    : QObject(parent)
    , configuration(configuration)
{
}

SimulatedSonar::~SimulatedSonar() = default;

void SimulatedSonar::start()
{
    if (!scene) {
        scene = std::make_unique<SonarScene>(configuration);
        scene->setFish(fish);
    }
    if (!timer) {
        timer = new QTimer(this);
        timer->setTimerType(Qt::PreciseTimer);
        connect(timer, &QTimer::timeout, this, &SimulatedSonar::ping);
    }
    timer->start(1000 / std::max(1, configuration.frameRate));
}

void SimulatedSonar::stop()
{
    if (timer && timer->isActive()) {
        timer->stop();
        emit disconnected();
    }
}

void SimulatedSonar::setConfiguration(const SonarConfiguration& newConfiguration)
{
    const SonarConfiguration old = configuration;
    configuration = newConfiguration;
    if (scene
        && (old.beamCount != configuration.beamCount || old.apertureDegrees != configuration.apertureDegrees
            || old.rangeLines != configuration.rangeLines || old.range != configuration.range)) {
        scene = std::make_unique<SonarScene>(configuration);
        scene->setFish(fish);
    }
    if (timer && timer->isActive())
        timer->setInterval(1000 / std::max(1, configuration.frameRate));
}

void SimulatedSonar::setFish(bool on)
{
    fish = on;
    if (scene)
        scene->setFish(on);
}

void SimulatedSonar::frameDelivered()
{
    if (framesInFlight > 0)
        --framesInFlight;
}

void SimulatedSonar::ping()
{
    // A consumer that cannot keep up loses pings instead of queueing frames without bound.
    constexpr int maximumInFlight = 3;
    if (framesInFlight >= maximumInFlight) {
        ++pingCount;
        return;
    }
    ++framesInFlight;
    // Scene time follows the ping count, not the wall clock, so a run is repeatable.
    const double seconds = static_cast<double>(pingCount++) / std::max(1, configuration.frameRate);
    emit newImage(scene->renderFrame(seconds));
}
