// SHA-256 (FIPS 180-4) of bytes that come piece by piece.
#ifndef TOOLS_QMTOOL_SHA256_H
#define TOOLS_QMTOOL_SHA256_H

#include <cstddef>
#include <cstdint>
#include <string>

class Sha256 {
  public:
    void add(const void* bytes, size_t size);
    // Of all bytes added, 64 hexadecimal digits. Nothing can be added after.
    std::string finish();

  private:
    static constexpr size_t BLOCK = 64;

    void take_block(const uint8_t* block);

    uint32_t m_state[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                           0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    uint64_t m_bytes = 0;
    uint8_t m_block[BLOCK] = {};
    size_t m_filled = 0;
};

#endif  // TOOLS_QMTOOL_SHA256_H
