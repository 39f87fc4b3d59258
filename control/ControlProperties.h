#pragma once

#include "base/Result.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace lumenar::control {

/// Dispatch ids of the control's properties, as change sinks see them.
inline constexpr std::int32_t kDispidBackColor = -501;
inline constexpr std::int32_t kDispidFillColor = -510;
inline constexpr std::int32_t kDispidReadyState = -525;
inline constexpr std::int32_t kDispidFile = 1;
/// Not a property: sent once a session's film cannot be completed (SequenceCtl::Failure says why).
inline constexpr std::int32_t kDispidFilmFailed = 2;

/// The longest `File` a persisted form may carry, in bytes.
inline constexpr std::size_t kMaxFileBytes = 32768;

/// What the control persists, in the order it is written.
struct ControlProperties
{
    std::uint32_t cx = 0; ///< Extent in 0.01 mm.
    std::uint32_t cy = 0;
    std::uint32_t backColor = 0; ///< OLE colour.
    std::uint32_t fillColor = 0;
    std::string file; ///< UTF-8.
    bool operator==(const ControlProperties&) const = default;
};

/// A property bag: name/value text pairs (a web page's parameters, a host's settings).
class PropertyBag
{
public:
    virtual ~PropertyBag() = default;
    /// The value stored under `name`, or empty when there is none.
    virtual std::optional<std::string> Read(std::string_view name) = 0;
    virtual base::Status Write(std::string_view name, std::string_view value) = 0;
};

/// Writes "_cx", "_cy", "BackColor", "FillColor" (decimal) and "File" in that order.
base::Status SaveToBag(const ControlProperties& properties, PropertyBag& bag);

/// Reads the names the bag holds into a copy of `current` and returns it; names it lacks keep their
/// value. Numbers may be decimal, "0x" or "&H" hexadecimal, or "#RRGGBB" for colours (stored as OLE
/// colours, red in the low byte). Fails with BadData, naming the property and value, when a number is
/// not one or does not fit 32 bits, and with TooLarge for a File longer than kMaxFileBytes; nothing
/// is taken from a bag that fails.
base::Result<ControlProperties> LoadFromBag(PropertyBag& bag, const ControlProperties& current);

/// The properties as one little-endian byte stream (the layout is in ControlProperties.cpp).
std::vector<std::uint8_t> SaveToStream(const ControlProperties& properties);

/// Reads a stream written by SaveToStream. Fails cleanly on a wrong tag or version, a truncated
/// record, a known name with the wrong value type, a text longer than kMaxFileBytes or a missing
/// property; unknown names of a known type are skipped.
base::Result<ControlProperties> LoadFromStream(std::span<const std::uint8_t> bytes);

/// The name of the stream that holds the properties inside a compound-file storage.
inline constexpr std::string_view kStorageStreamName = "Contents";

} // namespace lumenar::control
