// ByteStream: a byte buffer for values on their way to and from the data-access library; and the
// little-endian numbers in value bytes.
#ifndef PYORV3_PARAMETERS_BYTE_STREAM_H
#define PYORV3_PARAMETERS_BYTE_STREAM_H

#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>

namespace Tarsel::Utility {

// Owns either nothing (size 0, no array) or exactly `size` bytes, initially zero. Throws
// std::bad_alloc if memory is exhausted; the content then stays unchanged.
class ByteStream {
  public:
    ByteStream() noexcept = default;

    // Creates a stream of `byteCount` zero bytes.
    explicit ByteStream(std::uint32_t byteCount);

    virtual ~ByteStream() = default;
    ByteStream(const ByteStream&) = delete;
    ByteStream& operator=(const ByteStream&) = delete;
    ByteStream(ByteStream&&) = delete;
    ByteStream& operator=(ByteStream&&) = delete;

    // Extends the stream with zeros to at least `byteCount` bytes. Never shrinks it.
    void grow(std::uint32_t byteCount);

    // Replaces the content with `byteCount` zero bytes; returns `byteCount`.
    std::uint32_t allocate(std::uint32_t byteCount);

    // Frees the bytes.
    void clear() noexcept;

    // Returns the first byte, or null if the stream is empty.
    [[nodiscard]] std::uint8_t* data() noexcept { return data_.get(); }
    [[nodiscard]] const std::uint8_t* data() const noexcept { return data_.get(); }

    // Returns the number of bytes.
    [[nodiscard]] std::uint32_t size() const noexcept { return size_; }

  private:
    std::uint32_t size_ = 0;
    std::unique_ptr<std::uint8_t[]> data_;
};

static_assert(std::endian::native == std::endian::little,
              "value bytes are moved as the machine holds them");

// Reads a number from the sizeof(Number) bytes at `bytes`, which need no alignment.
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
