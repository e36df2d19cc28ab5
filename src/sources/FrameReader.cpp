#include "sources/FrameReader.h"

#include "sources/ArisReader.h"
#include "sources/RecordingReader.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cstring>

namespace Halcyra::Nereon::Sources {

FrameReader::FrameReader() = default;

FrameReader::~FrameReader() = default;

FrameReader::Format FrameReader::detectFormat(const QByteArray& firstBytes)
{
    if (RecordingReader::hasSignature(firstBytes))
        return Format::NereonRecording;
    if (ArisReader::hasSignature(firstBytes))
        return Format::Aris;
    return Format::Unknown;
}

FrameReader::Format FrameReader::detectFormat(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return Format::Unknown;
    return detectFormat(file.read(16));
}

std::unique_ptr<FrameReader> FrameReader::create(Format format)
{
    switch (format) {
    case Format::NereonRecording:
        return std::make_unique<RecordingReader>();
    case Format::Aris:
        return std::make_unique<ArisReader>();
    case Format::Unknown:
        break;
    }
    return nullptr;
}

std::unique_ptr<FrameReader> FrameReader::create(const QString& path, QString* error)
{
    auto file = std::make_unique<QFile>(path);
    const QString name = QFileInfo(path).fileName();
    if (!file->open(QIODevice::ReadOnly)) {
        if (error)
            *error = QStringLiteral("%1: %2").arg(name, file->errorString());
        return nullptr;
    }
    const Format format = detectFormat(file->peek(16));
    std::unique_ptr<FrameReader> reader = create(format);
    if (!reader) {
        if (error)
            *error = QStringLiteral("%1: not a sonar recording of a known format").arg(name);
        return nullptr;
    }
    if (!reader->open(std::move(file), name)) {
        if (error)
            *error = reader->getErrorString();
        return nullptr;
    }
    return reader;
}

bool FrameReader::open(const QString& path)
{
    return open(std::make_unique<QFile>(path), QFileInfo(path).fileName());
}

bool FrameReader::open(std::unique_ptr<QIODevice> newDevice, const QString& name)
{
    close();
    fileName = name;
    if (!newDevice) {
        fail(QStringLiteral("no file"));
        return false;
    }
    device = std::move(newDevice);
    if (!device->isOpen() && !device->open(QIODevice::ReadOnly)) {
        fail(device->errorString());
        device.reset();
        return false;
    }
    if (!device->seek(0) || !openDevice(*device) || getFrameCount() == 0) {
        if (errorString.isEmpty()) {
            if (hasDamage())
                errorString = describeDamage();
            else
                fail(QStringLiteral("no frames"));
        }
        return false;
    }
    return true;
}

void FrameReader::close()
{
    if (device) {
        closeDevice();
        device.reset();
    }
    fileName.clear();
    errorString.clear();
    damageDescription.clear();
    damageOffset = -1;
    position = 0;
}

bool FrameReader::isOpen() const
{
    return device != nullptr;
}

bool FrameReader::readFrame(int frame, SourceFrame& out)
{
    if (!device || frame < 0 || frame >= getFrameCount())
        return false;
    if (!decodeFrame(*device, frame, out))
        return false;
    out.index = frame;
    return true;
}

bool FrameReader::next(SourceFrame& out)
{
    if (!readFrame(position, out)) {
        position = std::min(position, getFrameCount());
        return false;
    }
    ++position;
    return true;
}

void FrameReader::seekToFrame(int frame)
{
    position = std::clamp(frame, 0, getFrameCount());
}

void FrameReader::seekToTime(std::int64_t timestamp)
{
    seekToFrame(std::max(findFrame(timestamp), 0));
}

int FrameReader::findFrame(std::int64_t timestamp) const
{
    // Timestamps never decrease within a source, so a binary search finds the frame.
    int low = 0;
    int high = getFrameCount();
    if (high == 0)
        return -1;
    while (low < high) {
        const int middle = low + (high - low) / 2;
        if (getTimestamp(middle) <= timestamp)
            low = middle + 1;
        else
            high = middle;
    }
    return std::max(low - 1, 0);
}

QString FrameReader::describeDamage() const
{
    if (!hasDamage())
        return QString();
    return QStringLiteral("Stopped at byte %1 of %2: %3").arg(damageOffset).arg(fileName, damageDescription);
}

void FrameReader::markDamage(std::int64_t offset, const QString& description)
{
    if (damageOffset >= 0 && damageOffset <= offset)
        return;
    damageOffset = offset;
    damageDescription = description;
}

void FrameReader::fail(const QString& description)
{
    errorString = fileName.isEmpty() ? description : QStringLiteral("%1: %2").arg(fileName, description);
}

} // namespace Halcyra::Nereon::Sources
