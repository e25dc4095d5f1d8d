// ByteStream: the owned, zero-filled byte buffer in which values travel to and from the
// data-access library; and the numbers in value bytes, which are little-endian.
#ifndef PYORV3_PARAMETERS_BYTE_STREAM_H
#define PYORV3_PARAMETERS_BYTE_STREAM_H

#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>

namespace Tarsel::Utility {

// Holds either nothing (size 0, no array) or exactly `size` bytes that start out zero.
// Exhausted memory is reported as std::bad_alloc; the stream then keeps what it had.
class ByteStream {
  public:
    ByteStream() noexcept = default;

    // A stream of `byteCount` zero bytes.
    explicit ByteStream(std::uint32_t byteCount);

    virtual ~ByteStream() = default;
    ByteStream(const ByteStream&) = delete;
    ByteStream& operator=(const ByteStream&) = delete;
    ByteStream(ByteStream&&) = delete;
    ByteStream& operator=(ByteStream&&) = delete;

    // Makes the stream at least `byteCount` bytes long: the old bytes stay in front, the new ones
    // are zero. Never shrinks.
    void grow(std::uint32_t byteCount);

    // Makes the stream exactly `byteCount` bytes long, all of them zero; returns `byteCount`.
    std::uint32_t allocate(std::uint32_t byteCount);

    // Frees the bytes.
    void clear() noexcept;

    // The first byte; null when the stream is empty.
    [[nodiscard]] std::uint8_t* data() noexcept { return data_.get(); }
    [[nodiscard]] const std::uint8_t* data() const noexcept { return data_.get(); }

    // The number of bytes.
    [[nodiscard]] std::uint32_t size() const noexcept { return size_; }

  private:
    std::uint32_t size_ = 0;
    std::unique_ptr<std::uint8_t[]> data_;
};

static_assert(std::endian::native == std::endian::little,
              "value bytes are moved as the machine holds them");

// The number of type Number in the sizeof(Number) bytes at `bytes`, which need no alignment.
template <typename Number>
[[nodiscard]] Number readLittleEndian(const std::uint8_t* bytes) noexcept {
    Number number{};
    std::memcpy(&number, bytes, sizeof number);
    return number;
}

// Writes the sizeof(Number) bytes of the number to `bytes`.
template <typename Number>
void writeLittleEndian(std::uint8_t* bytes, Number number) noexcept {
    std::memcpy(bytes, &number, sizeof number);
}

}  // namespace Tarsel::Utility

#endif
