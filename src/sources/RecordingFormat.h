#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

/**
 * Layout of a frame recording, version 1 (docs/recording-format.md).
 * Every number is little-endian; every block carries a CRC-32C.
 */
namespace RecordingFormat {

/// Non-ASCII first byte, CR LF and Ctrl-Z reveal files mangled by text-mode transfers.
constexpr char magic[8] = { '\x89', 'N', 'R', 'C', '\r', '\n', '\x1a', '\n' };
constexpr std::uint16_t version = 1;

constexpr std::size_t fileHeaderSize = 32;
constexpr std::size_t recordHeaderSize = 28;
constexpr std::size_t framePrefixSize = 32;

/// "NRRC": starts every record.
constexpr std::uint32_t recordMarker = 0x4352524eu;
constexpr std::uint16_t frameRecord = 1;

/// No record's payload is larger; a writer refuses such frames, a reader calls a larger size damage.
constexpr std::uint32_t maximumPayloadSize = 1u << 30;

enum IntensityEncoding : std::uint8_t
{
    Stored = 0,
    Zstandard = 1,
};

inline void put16(std::uint8_t* p, std::uint16_t v)
{
    p[0] = std::uint8_t(v);
    p[1] = std::uint8_t(v >> 8);
}

inline void put32(std::uint8_t* p, std::uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        p[i] = std::uint8_t(v >> (8 * i));
}

inline void put64(std::uint8_t* p, std::uint64_t v)
{
    for (int i = 0; i < 8; ++i)
        p[i] = std::uint8_t(v >> (8 * i));
}

inline void putDouble(std::uint8_t* p, double v)
{
    std::uint64_t bits = 0;
    std::memcpy(&bits, &v, sizeof bits);
    put64(p, bits);
}

inline std::uint16_t get16(const std::uint8_t* p)
{
    return std::uint16_t(p[0] | p[1] << 8);
}

inline std::uint32_t get32(const std::uint8_t* p)
{
    std::uint32_t v = 0;
    for (int i = 3; i >= 0; --i)
        v = v << 8 | p[i];
    return v;
}

inline std::uint64_t get64(const std::uint8_t* p)
{
    std::uint64_t v = 0;
    for (int i = 7; i >= 0; --i)
        v = v << 8 | p[i];
    return v;
}

inline double getDouble(const std::uint8_t* p)
{
    const std::uint64_t bits = get64(p);
    double v = 0.0;
    std::memcpy(&v, &bits, sizeof v);
    return v;
}

} // namespace RecordingFormat
