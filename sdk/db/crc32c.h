// CRC-32C, the Castagnoli polynomial (RFC 3720, B.4), with the machine's instructions where it has
// them.
#ifndef SDK_DB_CRC32C_H
#define SDK_DB_CRC32C_H

#include <cstddef>
#include <cstdint>

namespace sim {

// The checksum of `size` bytes that follow what `seed` is the checksum of; 0 for the first. Two
// different seeds never give the same result for the same bytes. Any thread.
uint32_t crc32c(uint32_t seed, const void* bytes, size_t size);

// The same by tables, on any machine.
uint32_t crc32c_portable(uint32_t seed, const void* bytes, size_t size);

}  // namespace sim

#endif  // SDK_DB_CRC32C_H
