#include "ArisLiveLink.h"

#include "ArisFrameHeader.h"

#include "aris_commands.pb.h"
#include "frame_stream.pb.h"

#include <QDateTime>
#include <QNetworkDatagram>
#include <QTcpSocket>
#include <QTimer>
#include <QUdpSocket>
#include <QtEndian>

#include <algorithm>
#include <cmath>
#include <vector>

namespace Halcyra::Nereon::Sources {

namespace {

constexpr int pingInterval = 1000; // ms: the sonar closes silent connections
constexpr int silenceLimit = 3000; // ms without a frame: the link is lost
constexpr int retryInterval = 2000; // ms

QByteArray serialise(const aris::Command& command)
{
    const std::string bytes = command.SerializeAsString();
    QByteArray framed(4, 0);
    qToBigEndian(quint32(bytes.size()), framed.data());
    framed.append(bytes.data(), int(bytes.size()));
    return framed;
}

} // namespace

ArisLiveLink::ArisLiveLink(ArisLiveSource& owner)
    : source(owner)
{
}

ArisLiveLink::~ArisLiveLink() = default;

ArisLiveSource::LinkState ArisLiveLink::getState() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return state;
}

ArisLiveSource::Statistics ArisLiveLink::getStatistics() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    ArisLiveSource::Statistics copy = statistics;
    if (!latencies.empty()) {
        std::vector<double> sorted(latencies.begin(), latencies.end());
        std::sort(sorted.begin(), sorted.end());
        copy.latencyMedian = sorted[sorted.size() / 2];
        copy.latency99 = sorted[std::min(sorted.size() - 1, sorted.size() * 99 / 100)];
    }
    return copy;
}

SonarDescription ArisLiveLink::getDescription() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return description;
}

void ArisLiveLink::setState(ArisLiveSource::LinkState newState, const QString& message)
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (state == newState)
            return;
        state = newState;
    }
    emit source.linkStateChanged(newState, message);
}

void ArisLiveLink::report(const QString& reason)
{
    // Once a kind: a lossy link would otherwise say the same thing many times a second.
    if (reported.contains(reason))
        return;
    reported.insert(reason);
    emit source.problem(QStringLiteral("Frames dropped: %1").arg(reason));
}

void ArisLiveLink::start(const QString& sonar, const ArisLiveSettings& newSettings)
{
    stop();
    running = true;
    target = sonar.trimmed();
    settings = newSettings;
    reported.clear();
    {
        const std::lock_guard<std::mutex> lock(mutex);
        statistics = ArisLiveSource::Statistics();
    }
    if (!pingTimer) {
        pingTimer = new QTimer(this);
        pingTimer->setInterval(pingInterval);
        connect(pingTimer, &QTimer::timeout, this, [this] {
            aris::Command ping;
            ping.set_type(aris::Command::PING);
            ping.mutable_ping();
            sendCommand(serialise(ping));
        });
        watchdog = new QTimer(this);
        watchdog->setInterval(500);
        connect(watchdog, &QTimer::timeout, this, [this] {
            if (sinceFrame.isValid() && sinceFrame.elapsed() > silenceLimit)
                linkLost(tr("the sonar stopped sending frames"));
        });
        retry = new QTimer(this);
        retry->setSingleShot(true);
        retry->setInterval(retryInterval);
        connect(retry, &QTimer::timeout, this, &ArisLiveLink::connectNow);
    }
    // Beacons tell the model and, for a serial number, the address.
    beacons = new QUdpSocket(this);
    if (beacons->bind(QHostAddress::AnyIPv4, settings.beaconPort, QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint))
        connect(beacons, &QUdpSocket::readyRead, this, &ArisLiveLink::readBeacons);
    // A plain number is a serial number (QHostAddress would read it as an IPv4 address).
    bool isNumber = false;
    target.toUInt(&isNumber);
    address = isNumber ? QHostAddress() : QHostAddress(target);
    if (address.isNull()) {
        if (!isNumber) {
            setState(ArisLiveSource::LinkState::Lost, tr("%1 is neither a serial number nor an address").arg(target));
            running = false;
            return;
        }
        setState(ArisLiveSource::LinkState::Searching, tr("Listening for sonar %1").arg(target));
        return;
    }
    connectNow();
}

void ArisLiveLink::stop()
{
    if (commands && commands->state() == QAbstractSocket::ConnectedState) {
        // An empty receiver address stops the stream.
        aris::Command quiet;
        quiet.set_type(aris::Command::SET_FRAMESTREAM_RECEIVER);
        quiet.mutable_framestreamreceiver()->set_ip("0.0.0.0");
        sendCommand(serialise(quiet));
        commands->flush();
    }
    running = false;
    for (QTimer* timer : { pingTimer, watchdog, retry })
        if (timer)
            timer->stop();
    delete commands;
    commands = nullptr;
    delete frames;
    frames = nullptr;
    delete beacons;
    beacons = nullptr;
    sinceFrame.invalidate();
    assembler.reset();
    setState(ArisLiveSource::LinkState::Idle, tr("Not connected"));
}

void ArisLiveLink::readBeacons()
{
    while (beacons && beacons->hasPendingDatagrams()) {
        const QNetworkDatagram datagram = beacons->receiveDatagram(4096);
        ArisBeacon beacon;
        beacon.address = datagram.senderAddress();
        if (!ArisBeacon::parse(datagram.data(), beacon))
            continue;
        const bool ours = QString::number(beacon.serialNumber) == target
            || (!address.isNull() && beacon.address.isEqual(address, QHostAddress::TolerantConversion));
        if (!ours)
            continue;
        systemType = beacon.systemType;
        if (address.isNull()) {
            address = QHostAddress(beacon.address.toIPv4Address());
            connectNow();
        }
    }
}

void ArisLiveLink::connectNow()
{
    if (!running || address.isNull())
        return;
    delete commands;
    commands = new QTcpSocket(this);
    connect(commands, &QTcpSocket::connected, this, &ArisLiveLink::connected);
    connect(commands, &QTcpSocket::disconnected, this, [this] { linkLost(tr("the sonar closed the connection")); });
    connect(commands, &QAbstractSocket::errorOccurred, this,
        [this](QAbstractSocket::SocketError) { linkLost(commands ? commands->errorString() : QString()); });
    // Replies never come: what the sonar sends on this connection is read and ignored.
    connect(commands, &QTcpSocket::readyRead, this, [this] { commands->readAll(); });
    setState(ArisLiveSource::LinkState::Connecting,
        tr("Connecting to %1 port %2").arg(address.toString()).arg(settings.commandPort));
    commands->connectToHost(address, settings.commandPort);
    // A sonar that neither answers nor refuses counts as lost.
    sinceFrame.start();
    watchdog->start();
}

void ArisLiveLink::connected()
{
    delete frames;
    frames = new QUdpSocket(this);
    if (!frames->bind(QHostAddress::AnyIPv4, settings.framePort)) {
        linkLost(tr("cannot receive frames on UDP port %1: %2").arg(settings.framePort).arg(frames->errorString()));
        return;
    }
    // A frame arrives as a burst of parts: room for several in the socket's buffer.
    frames->setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, 8 << 20);
    connect(frames, &QUdpSocket::readyRead, this, &ArisLiveLink::readFrameParts);
    assembler.reset();
    sonarPort = 0;
    sendStartSequence();
    pingTimer->start();
    sinceFrame.start();
    setState(ArisLiveSource::LinkState::Connecting, tr("Connected to %1; waiting for frames").arg(address.toString()));
}

void ArisLiveLink::sendStartSequence()
{
    aris::Command receiver;
    receiver.set_type(aris::Command::SET_FRAMESTREAM_RECEIVER);
    receiver.mutable_framestreamreceiver()->set_port(frames->localPort());
    receiver.mutable_framestreamreceiver()->set_ip(commands->localAddress().toString().toStdString());
    sendCommand(serialise(receiver));

    aris::Command dateTime;
    dateTime.set_type(aris::Command::SET_DATETIME);
    dateTime.mutable_datetime()->set_datetime(
        QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyy-MMM-dd hh:mm:ss")).toStdString());
    sendCommand(serialise(dateTime));

    // The window in metres becomes times at the assumed speed of sound, there and back.
    const double c = settings.soundSpeed > 0 ? settings.soundSpeed : 1480.0;
    const int samples = std::clamp(settings.samplesPerBeam, 128, int(ArisFrameHeader::maximumSamplesPerBeam));
    const auto samplePeriod = std::uint32_t(
        std::clamp(std::lround(settings.windowLength * 2.0 / c * 1e6 / samples), 4L, 100L));
    const auto startDelay = std::uint32_t(std::clamp(std::lround(settings.windowStart * 2.0 / c * 1e6), 930L, 65535L));
    int pingMode = settings.pingMode;
    if (pingMode == 0) // the most beams the sonar has; 48 where the model is not known
        pingMode = systemType == 1 ? 9 : systemType == 0 ? 3 : 1;
    aris::Command acoustics;
    acoustics.set_type(aris::Command::SET_ACOUSTICS);
    auto* a = acoustics.mutable_settings();
    a->set_cookie(++cookie);
    a->set_framerate(float(settings.frameRate));
    a->set_samplesperbeam(std::uint32_t(samples));
    a->set_samplestartdelay(startDelay);
    a->set_sampleperiod(samplePeriod);
    a->set_cycleperiod(startDelay + samplePeriod * std::uint32_t(samples) + 360);
    a->set_pulsewidth(std::clamp<std::uint32_t>(samplePeriod * 2, 4, 100));
    a->set_pingmode(std::uint32_t(pingMode));
    a->set_enabletransmit(true);
    a->set_frequency(settings.highFrequency ? aris::Command::SetAcousticSettings::HIGH
                                            : aris::Command::SetAcousticSettings::LOW);
    a->set_enable150volts(true);
    a->set_receivergain(settings.receiverGain);
    sendCommand(serialise(acoustics));

    aris::Command salinity;
    salinity.set_type(aris::Command::SET_SALINITY);
    salinity.mutable_salinity()->set_salinity(aris::Command::SetSalinity::Salinity(
        settings.salinity >= 35 ? 35 : settings.salinity >= 15 ? 15 : 0));
    sendCommand(serialise(salinity));

    aris::Command focus;
    focus.set_type(aris::Command::SET_FOCUS);
    focus.mutable_focusposition()->set_focusrange(
        float(settings.focusRange >= 0 ? settings.focusRange : settings.windowStart + settings.windowLength / 2));
    sendCommand(serialise(focus));
}

void ArisLiveLink::sendCommand(const QByteArray& command)
{
    // The length and the message in one write: nothing may come between them.
    if (commands && commands->state() == QAbstractSocket::ConnectedState)
        commands->write(command);
}

void ArisLiveLink::linkLost(const QString& why)
{
    if (!running)
        return;
    pingTimer->stop();
    watchdog->stop();
    sinceFrame.invalidate();
    if (commands) {
        commands->disconnect(this);
        commands->abort();
        commands->deleteLater();
        commands = nullptr;
    }
    delete frames;
    frames = nullptr;
    assembler.reset();
    sonarPort = 0;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        ++statistics.reconnections;
        statistics.frameRate = 0.0;
    }
    frameTimes.clear();
    setState(ArisLiveSource::LinkState::Lost, tr("Link lost (%1); trying again").arg(why));
    retry->start();
}

void ArisLiveLink::readFrameParts()
{
    while (frames && frames->hasPendingDatagrams()) {
        // Larger datagrams than any part a sonar sends are cut, then refused as unreadable.
        const QNetworkDatagram datagram = frames->receiveDatagram(65536);
        QElapsedTimer latency;
        latency.start();
        // The port is open to anyone: only the connected sonar's parts (and, once it has sent
        // a whole frame, only those from its port) reach the assembler, and only it is acknowledged.
        QString stranger;
        if (!datagram.senderAddress().isEqual(address, QHostAddress::TolerantConversion))
            stranger = QStringLiteral("frame part from another address than the sonar's");
        else if (sonarPort != 0 && datagram.senderPort() != sonarPort)
            stranger = QStringLiteral("frame part from another port than the sonar's");
        if (!stranger.isEmpty()) {
            {
                const std::lock_guard<std::mutex> lock(mutex);
                ++statistics.parts;
                assembler.countDroppedPart(stranger);
                statistics.droppedParts = assembler.getDroppedParts();
                statistics.dropsByReason = assembler.getDrops();
            }
            report(stranger);
            continue;
        }
        ArisFramePartAssembler::Result result = assembler.add(datagram.data());
        if (result.outcome == ArisFramePartAssembler::Outcome::Frame && sonarPort == 0)
            sonarPort = quint16(datagram.senderPort());
        {
            const std::lock_guard<std::mutex> lock(mutex);
            ++statistics.parts;
            statistics.droppedFrames = assembler.getDroppedFrames();
            statistics.droppedParts = assembler.getDroppedParts();
            statistics.dropsByReason = assembler.getDrops();
        }
        if (result.ackPort > 0 && result.ackPort < 65536) {
            // The sonar does not send lost parts again, but it is told where the frame stands.
            frame_stream::FramePartAck ack;
            ack.set_frame_index(result.frameIndex);
            ack.set_data_offset(result.nextOffset);
            const std::string bytes = ack.SerializeAsString();
            frames->writeDatagram(bytes.data(), qint64(bytes.size()), datagram.senderAddress(), quint16(result.ackPort));
        }
        if (!result.abandoned.isEmpty())
            report(result.abandoned);
        if (result.outcome == ArisFramePartAssembler::Outcome::Dropped) {
            report(result.reason);
            continue;
        }
        if (result.outcome != ArisFramePartAssembler::Outcome::Frame)
            continue;
        sinceFrame.start();
        const qint64 now = QDateTime::currentMSecsSinceEpoch();
        frameTimes.push_back(now);
        while (frameTimes.size() > 2 && now - frameTimes.front() > 3000)
            frameTimes.pop_front();
        bool describe = false;
        SonarDescription sonar;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            latencies.push_back(double(latency.nsecsElapsed()) / 1e3);
            if (latencies.size() > 1000)
                latencies.pop_front();
            ++statistics.frames;
            if (frameTimes.size() > 1)
                statistics.frameRate
                    = double(frameTimes.size() - 1) * 1000.0 / double(std::max<qint64>(1, now - frameTimes.front()));
            const NereonImage& image = result.frame.image;
            const int samples = image.getHeight() - result.frame.firstSampleRow;
            if (description.beamCount != image.getWidth() || description.samplesPerBeam != samples
                || std::abs(description.windowStart - result.frame.windowStart) > 1e-6) {
                description.format = QStringLiteral("ARIS live");
                description.model = systemType >= 0 ? ArisBeacon { 0, systemType, {}, false, {} }.getModel() : QStringLiteral("ARIS");
                description.serialNumber = address.isNull() ? QString() : target;
                description.beamCount = image.getWidth();
                description.samplesPerBeam = samples;
                description.windowStart = result.frame.windowStart;
                description.windowLength = image.getRange() / image.getHeight() * samples;
                description.leftmostBearing = image.getBearings().front() / 100.0;
                description.rightmostBearing = image.getBearings().back() / 100.0;
                description.frameRate = settings.frameRate;
                description.startTime = result.frame.timestamp;
                sonar = description;
                describe = true;
            }
        }
        if (describe)
            emit source.descriptionChanged(sonar);
        if (getState() != ArisLiveSource::LinkState::Receiving)
            setState(ArisLiveSource::LinkState::Receiving, tr("Receiving from %1").arg(address.toString()));
        source.emitFrame(result.frame);
    }
}

} // namespace Halcyra::Nereon::Sources
