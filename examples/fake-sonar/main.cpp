// nereon-fake-sonar: an ARIS sonar on the network that plays a recording, for
// trying live mode without a sonar: nereon-fake-sonar sample.aris, then
// nereon-viewer --sonar 127.0.0.1.

#include "FakeArisSonar.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdio>

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription("Plays an ARIS recording (.aris) as a live ARIS sonar on the network:\n"
                                     "beacons, the command connection and the frame stream, looping the file.");
    parser.addHelpOption();
    parser.addPositionalArgument("FILE", "The ARIS recording to play.");
    const QCommandLineOption address("address", "Listen on, and send beacons to, ADDR (default 127.0.0.1).", "ADDR");
    const QCommandLineOption serial("serial", "Serial number (default: the recording's).", "N");
    const QCommandLineOption port("command-port", "Command port (default 56888).", "N");
    const QCommandLineOption beacons("beacon-port", "Port beacons are sent to (default 56124).", "N");
    const QCommandLineOption loss("loss", "Lose this percentage of frame parts, as a poor link does.", "PERCENT");
    parser.addOptions({ address, serial, port, beacons, loss });
    parser.process(application);
    if (parser.positionalArguments().size() != 1) {
        std::fprintf(stderr, "nereon-fake-sonar: give one ARIS recording (see --help)\n");
        return 2;
    }
    FakeArisSonar::Options options;
    options.file = parser.positionalArguments().first();
    if (parser.isSet(address))
        options.address = QHostAddress(parser.value(address));
    if (options.address.isNull()) {
        std::fprintf(stderr, "nereon-fake-sonar: %s is not an address\n", qPrintable(parser.value(address)));
        return 2;
    }
    options.serialNumber = parser.value(serial).toUInt();
    if (parser.isSet(port))
        options.commandPort = std::uint16_t(parser.value(port).toUInt());
    if (parser.isSet(beacons))
        options.beaconPort = std::uint16_t(parser.value(beacons).toUInt());
    options.lossPercent = parser.value(loss).toDouble();
    FakeArisSonar sonar;
    if (options.lossPercent > 0)
        sonar.setFault(FakeArisSonar::Fault::LoseParts);
    QString error;
    if (!sonar.start(options, &error)) {
        std::fprintf(stderr, "nereon-fake-sonar: %s\n", qPrintable(error));
        return 1;
    }
    std::printf("Fake ARIS sonar %u on %s port %u, beacons to port %u; Ctrl+C stops it\n", sonar.getSerialNumber(),
        qPrintable(options.address.toString()), sonar.getCommandPort(), options.beaconPort);
    std::fflush(stdout);
    return QCoreApplication::exec();
}
