#pragma once

#include "base/Result.h"
#include "base/StrCat.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <span>

namespace lumenar::base {

/// Bounds-checked little- and big-endian reads over a byte span it does not own (the span must
/// outlive the reader). A failed read returns an error and leaves the cursor where it was.
class ByteReader
{
public:
    explicit ByteReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    std::size_t Offset() const { return offset_; }
    std::size_t Remaining() const { return bytes_.size() - offset_; }
    bool AtEnd() const { return offset_ == bytes_.size(); }

    Result<std::span<const std::uint8_t>> ReadBytes(std::size_t count)
    {
        if (count > Remaining())
            return Error{ErrorCode::Truncated, StrCat("need ", count, " bytes at offset ", offset_, ", only ",
                                                      Remaining(), " left")};
        auto out = bytes_.subspan(offset_, count);
        offset_ += count;
        return out;
    }

    Status Skip(std::size_t count)
    {
        LUM_TRY(ReadBytes(count));
        return {};
    }

    Result<std::uint8_t> ReadU8() { return Read<std::uint8_t>(std::endian::little); }
    Result<std::uint16_t> ReadU16LE() { return Read<std::uint16_t>(std::endian::little); }
    Result<std::uint16_t> ReadU16BE() { return Read<std::uint16_t>(std::endian::big); }
    Result<std::uint32_t> ReadU32LE() { return Read<std::uint32_t>(std::endian::little); }
    Result<std::uint32_t> ReadU32BE() { return Read<std::uint32_t>(std::endian::big); }
    Result<std::int32_t> ReadI32LE() { return Read<std::int32_t>(std::endian::little); }

private:
    template <typename T> Result<T> Read(std::endian order)
    {
        auto raw = LUM_TRY(ReadBytes(sizeof(T)));
        using U = std::make_unsigned_t<T>;
        U value = 0;
        for (std::size_t i = 0; i < sizeof(T); ++i) {
            const std::size_t shift = order == std::endian::little ? i : sizeof(T) - 1 - i;
            value = static_cast<U>(value | (static_cast<U>(raw[i]) << (8 * shift)));
        }
        return static_cast<T>(value);
    }

    std::span<const std::uint8_t> bytes_;
    std::size_t offset_ = 0;
};

/// Reads a little-endian 32-bit value at a fixed offset of a record whose size the caller has checked.
inline std::int32_t LoadI32LE(std::span<const std::uint8_t> bytes, std::size_t offset)
{
    std::uint32_t v = static_cast<std::uint32_t>(bytes[offset]) |
                      static_cast<std::uint32_t>(bytes[offset + 1]) << 8 |
                      static_cast<std::uint32_t>(bytes[offset + 2]) << 16 |
                      static_cast<std::uint32_t>(bytes[offset + 3]) << 24;
    return static_cast<std::int32_t>(v);
}

} // namespace lumenar::base
