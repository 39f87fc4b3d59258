#pragma once

#include "base/Result.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace lumenar::platform {

/// What a caption asks of a font, in the terms of the classic logical-font record.
struct FontRequest
{
    std::string faceUtf8; ///< Family name ("Arial" finds its stand-in, Liberation Sans).
    int height = 0;   ///< Negative: character height (em) in pixels; positive: cell height; 0: 16-pixel cell.
    int width = 0;    ///< Average character width in pixels; 0 keeps the face's own proportions.
    int weight = 400; ///< 100..900; 600 and above picks a bold face.
    bool italic = false;
};

/// Text metrics as the classic graphics interface reports them, in whole pixels.
struct TextMetrics
{
    int height = 0; ///< ascent + descent.
    int ascent = 0;
    int descent = 0;
    int internalLeading = 0; ///< height − em size.
    int externalLeading = 0;
    int aveCharWidth = 0;
    int maxCharWidth = 0;
    int weight = 400;
    int overhang = 0; ///< Extra width of synthesised styles; 0 for real faces.
};

/// A character's A (space before the ink, may be negative), B (ink width) and C (space after) widths.
struct AbcWidths
{
    int a = 0;
    int b = 0;
    int c = 0;
};

/// An 8-bit sample sheet the font draws into; rows of `stride` bytes. When `bottomUp` is set the first
/// row in memory is the bottom row, as in the caption sheets.
struct GraySheet
{
    std::uint8_t* bits = nullptr;
    int width = 0;
    int height = 0;
    int stride = 0;
    bool bottomUp = true;
};

/// One scalable face at one size (FreeType, chosen through fontconfig). Drawing is monochrome, without
/// smoothing, like the caption sheets expect. A font is used by one thread at a time.
class Font
{
public:
    ~Font();
    Font(const Font&) = delete;
    Font& operator=(const Font&) = delete;

    /// Opens the face fontconfig gives for the request at the requested size. NotFound when no
    /// scalable face exists at all.
    static base::Result<std::unique_ptr<Font>> Create(const FontRequest& request);

    const TextMetrics& Metrics() const { return metrics_; }
    /// The face's family name, for diagnostics.
    const std::string& Family() const { return family_; }

    /// The width (advance) of one character and the cell height, as a one-character extent query.
    int Advance(char32_t character);
    /// A, B and C widths of a character; empty when the face cannot load it.
    std::optional<AbcWidths> Abc(char32_t character);

    /// Draws one character in black (sample 0) with its origin at `x` and its baseline at `baseline`,
    /// both counted from the sheet's top-left corner; ink outside the sheet is dropped.
    void Draw(GraySheet sheet, int x, int baseline, char32_t character);

private:
    struct Impl;
    explicit Font(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
    TextMetrics metrics_;
    std::string family_;
};

} // namespace lumenar::platform
