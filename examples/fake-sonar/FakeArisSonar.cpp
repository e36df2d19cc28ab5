#include "FakeArisSonar.h"

#include "ArisSampleOrder.h"
#include "aris_commands.pb.h"
#include "frame_stream.pb.h"
#include "sources/ArisBeacon.h"
#include "sources/ArisReader.h"

#include <QFile>
#include <QNetworkDatagram>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QUdpSocket>
#include <QtEndian>

#include <algorithm>
#include <cmath>

using namespace Halcyra::Nereon::Sources;

namespace {
// The frame header's bytes in use: what a sonar sends in a frame's first part.
constexpr int headerInUse = 744;
constexpr qint64 fileHeaderSize = 1024;
} // namespace

FakeArisSonar::FakeArisSonar(QObject* parent)
    : QObject(parent)
{
}

FakeArisSonar::~FakeArisSonar() = default;

bool FakeArisSonar::start(const Options& newOptions, QString* error)
{
    options = newOptions;
    ArisReader reader;
    if (!reader.open(options.file)) {
        if (error)
            *error = reader.getErrorString();
        return false;
    }
    const SonarDescription sonar = reader.getDescription();
    frameCount = reader.getFrameCount();
    beams = sonar.beamCount;
    samplesPerBeam = sonar.samplesPerBeam;
    frameRate = std::isfinite(sonar.frameRate) && sonar.frameRate > 0 ? sonar.frameRate : 10.0;
    serialNumber = options.serialNumber ? options.serialNumber : sonar.serialNumber.toUInt();
    if (serialNumber == 0)
        serialNumber = 1;
    systemType = sonar.model.contains("3000") ? 1 : sonar.model.contains("1200") ? 2 : 0;

    server = new QTcpServer(this);
    if (!server->listen(options.address, options.commandPort)) {
        if (error)
            *error = QStringLiteral("cannot listen on %1 port %2: %3")
                         .arg(options.address.toString())
                         .arg(options.commandPort)
                         .arg(server->errorString());
        return false;
    }
    connect(server, &QTcpServer::newConnection, this, &FakeArisSonar::accept);
    udp = new QUdpSocket(this);
    udp->bind(options.address, 0);
    // Acknowledgements arrive here; a sonar reads and forgets them.
    connect(udp, &QUdpSocket::readyRead, this, [this] {
        while (udp->hasPendingDatagrams())
            udp->receiveDatagram();
    });
    beaconTimer = new QTimer(this);
    beaconTimer->setInterval(1000);
    connect(beaconTimer, &QTimer::timeout, this, &FakeArisSonar::sendBeacon);
    beaconTimer->start();
    frameTimer = new QTimer(this);
    frameTimer->setTimerType(Qt::PreciseTimer);
    frameTimer->setInterval(int(std::lround(1000.0 / frameRate)));
    connect(frameTimer, &QTimer::timeout, this, &FakeArisSonar::sendFrame);
    // Parts leave at about 100 Mbit/s, as a sonar's Ethernet sends them, not in one burst.
    pacer = new QTimer(this);
    pacer->setTimerType(Qt::PreciseTimer);
    pacer->setInterval(1);
    connect(pacer, &QTimer::timeout, this, &FakeArisSonar::sendQueued);
    QTimer::singleShot(0, this, &FakeArisSonar::sendBeacon);
    return true;
}

std::uint16_t FakeArisSonar::getCommandPort() const
{
    return server ? server->serverPort() : 0;
}

void FakeArisSonar::dropConnection()
{
    if (client)
        client->abort();
}

void FakeArisSonar::sendBeacon()
{
    ArisBeacon beacon;
    beacon.serialNumber = serialNumber;
    beacon.systemType = systemType;
    beacon.softwareVersion = QStringLiteral("2.8.0");
    beacon.busy = client != nullptr;
    udp->writeDatagram(beacon.serialise(), options.address, options.beaconPort);
}

void FakeArisSonar::accept()
{
    QTcpSocket* next = server->nextPendingConnection();
    if (client) {
        // One client at a time, as a sonar.
        next->abort();
        next->deleteLater();
        return;
    }
    client = next;
    pending.clear();
    acousticsSet = false;
    connect(client, &QTcpSocket::readyRead, this, &FakeArisSonar::readCommands);
    connect(client, &QTcpSocket::disconnected, this, [this] {
        frameTimer->stop();
        client->deleteLater();
        client = nullptr;
    });
}

void FakeArisSonar::readCommands()
{
    if (fault == Fault::Hangs)
        return;
    pending += client->readAll();
    while (pending.size() >= 4) {
        const quint32 length = qFromBigEndian<quint32>(pending.constData());
        if (length > 1 << 20) {
            client->abort();
            return;
        }
        if (pending.size() < int(4 + length))
            return;
        aris::Command command;
        const bool ok = command.ParseFromArray(pending.constData() + 4, int(length));
        pending.remove(0, int(4 + length));
        if (!ok)
            continue;
        switch (command.type()) {
        case aris::Command::SET_FRAMESTREAM_RECEIVER: {
            const QString ip = QString::fromStdString(command.framestreamreceiver().ip());
            receiver = ip.isEmpty() ? client->peerAddress() : QHostAddress(ip);
            receiverPort = std::uint16_t(command.framestreamreceiver().port());
            if (ip == QLatin1String("0.0.0.0"))
                receiverPort = 0;
            break;
        }
        case aris::Command::SET_ACOUSTICS:
            acousticsSet = command.settings().samplesperbeam() > 0;
            break;
        default:
            break;
        }
        if (acousticsSet && receiverPort != 0 && !frameTimer->isActive())
            frameTimer->start();
        if (receiverPort == 0)
            frameTimer->stop();
    }
}

void FakeArisSonar::sendPart(const QByteArray& part)
{
    if (fault == Fault::LoseParts && std::uniform_real_distribution<double>(0.0, 100.0)(random) < options.lossPercent)
        return;
    udp->writeDatagram(part, receiver, receiverPort);
    if (fault == Fault::RepeatParts)
        udp->writeDatagram(part, receiver, receiverPort);
}

void FakeArisSonar::sendFrame()
{
    if (fault == Fault::Silent || !client)
        return;
    // A frame not yet sent whole is cut short by the next, as on a slow link.
    queued.clear();
    const int fileFrame = framesSent % frameCount;
    const qint64 sampleCount = qint64(beams) * samplesPerBeam;
    QFile file(options.file);
    if (!file.open(QIODevice::ReadOnly) || !file.seek(fileHeaderSize + fileFrame * (1024 + sampleCount)))
        return;
    QByteArray header = file.read(1024);
    const QByteArray display = file.read(sampleCount);
    if (header.size() != 1024 || display.size() != sampleCount)
        return;
    // As the sonar sends it: channel order, marked as not reordered.
    QByteArray samples(int(sampleCount), 0);
    ArisSampleOrder::toSonarOrder(reinterpret_cast<const std::uint8_t*>(display.constData()), beams, samplesPerBeam,
        reinterpret_cast<std::uint8_t*>(samples.data()));
    header.replace(516, 4, QByteArray(4, '\0')); // ReorderedSamples: 0
    header.truncate(headerInUse);

    ++framesSent;
    int index = framesSent;
    if (fault == Fault::OlderFrames && framesSent % 2 == 0)
        index = std::max(1, framesSent - 5);
    const int total = fault == Fault::AbsurdSize ? 0x7fffffff : int(sampleCount);
    std::vector<QByteArray> parts;
    for (int offset = 0; offset < sampleCount; offset += options.partSize) {
        frame_stream::FramePart part;
        part.set_frame_index(index);
        part.set_total_data_size(total);
        if (offset == 0)
            part.set_header(header.constData(), std::size_t(header.size()));
        const int length = std::min<int>(options.partSize, int(sampleCount) - offset);
        part.set_data(samples.constData() + offset, std::size_t(length));
        part.set_data_offset(offset + (fault == Fault::WrongSizePart && offset > 0 && offset + length >= sampleCount ? 7 : 0));
        part.set_ack_port(udp->localPort());
        const std::string bytes = part.SerializeAsString();
        parts.emplace_back(bytes.data(), int(bytes.size()));
    }
    if (fault == Fault::FarAheadParts && framesSent == 3) {
        for (const int stray : { index + 500, 0x7fffffff }) {
            frame_stream::FramePart part;
            part.set_frame_index(stray);
            part.set_total_data_size(total);
            part.set_data(samples.constData(), std::size_t(std::min<qint64>(options.partSize, sampleCount)));
            part.set_ack_port(udp->localPort());
            const std::string bytes = part.SerializeAsString();
            parts.insert(parts.begin() + std::ptrdiff_t(parts.size() / 2),
                QByteArray(bytes.data(), int(bytes.size())));
        }
    }
    if (fault != Fault::ReverseParts)
        std::reverse(parts.begin(), parts.end());
    queued = std::move(parts);
    sendQueued();
    pacer->start();
}

void FakeArisSonar::sendQueued()
{
    for (int i = 0; i < 8 && !queued.empty(); ++i) {
        sendPart(queued.back());
        queued.pop_back();
    }
    if (queued.empty())
        pacer->stop();
}
