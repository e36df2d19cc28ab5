#pragma once

#include <cstddef>
#include <cstdint>

/// CRC-32C (Castagnoli), the checksum of every block of a recording.
namespace Crc32c {

/// Continues `crc` (0 to start) over `size` bytes at `data`.
std::uint32_t update(std::uint32_t crc, const void* data, std::size_t size);

inline std::uint32_t compute(const void* data, std::size_t size)
{
    return update(0, data, size);
}

} // namespace Crc32c
