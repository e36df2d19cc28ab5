#pragma once

#include "SonarConfiguration.h"

#include "nereon/NereonImage.h"

#include <QObject>

#include <atomic>
#include <memory>

class QTimer;
class SonarScene;

/**
 * A sonar driver stand-in: lives on its own thread and emits frames of a
 * SonarScene from a timer, as a real driver emits what arrives from the wire.
 * Control it only through queued calls (its slots) from other threads.
 */
class SimulatedSonar : public QObject
{
    Q_OBJECT

public:
    explicit SimulatedSonar(const SonarConfiguration& configuration, QObject* parent = nullptr);
    ~SimulatedSonar() override;

    /// Tells the sonar that a frame reached its consumer; callable from any thread.
    void frameDelivered();

public slots:
    /// Starts pinging; the timer is created here, on the sonar's own thread.
    void start();
    void stop();
    /// Rebuilds the scene for the new layout and adjusts the ping interval.
    void setConfiguration(const SonarConfiguration& configuration);
    /// Adds fish passing through the fan (off by default), kept across configurations.
    void setFish(bool on);

signals:
    void newImage(const Halcyra::Nereon::NereonImage& image);
    void disconnected();

private:
    void ping();

    SonarConfiguration configuration;
    std::unique_ptr<SonarScene> scene;
    QTimer* timer = nullptr;
    qint64 pingCount = 0;
    bool fish = false;
    std::atomic<int> framesInFlight { 0 };
};
