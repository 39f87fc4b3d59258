#include "platform/Font.h"

#include "base/StrCat.h"

#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_TRUETYPE_TABLES_H

#include <algorithm>
#include <cmath>
#include <mutex>
#include <optional>
#include <vector>

namespace lumenar::platform {

using base::Error;
using base::ErrorCode;
using base::StrCat;

namespace {

// FreeType's library object and fontconfig's matching are shared by every font; opening and closing
// faces must not overlap.
std::mutex libraryLock; // Guards Library(), fontconfig matching, and face creation and destruction.

FT_Library Library()
{
    static FT_Library library = [] {
        FT_Library made = nullptr;
        FT_Init_FreeType(&made);
        return made;
    }();
    return library;
}

// Rounds a 26.6 value to whole pixels.
int Round26(FT_Pos value)
{
    return static_cast<int>((value + 32) >> 6);
}

struct FoundFace
{
    std::string file;
    int index = 0;
    std::string family;
};

std::optional<FoundFace> FindFace(const FontRequest& request)
{
    if (!FcInit())
        return std::nullopt;
    FcPattern* pattern = FcPatternCreate();
    if (!request.faceUtf8.empty())
        FcPatternAddString(pattern, FC_FAMILY, reinterpret_cast<const FcChar8*>(request.faceUtf8.c_str()));
    FcPatternAddInteger(pattern, FC_WEIGHT, request.weight >= 600 ? FC_WEIGHT_BOLD : FC_WEIGHT_REGULAR);
    FcPatternAddInteger(pattern, FC_SLANT, request.italic ? FC_SLANT_ITALIC : FC_SLANT_ROMAN);
    FcPatternAddBool(pattern, FC_SCALABLE, FcTrue);
    FcConfigSubstitute(nullptr, pattern, FcMatchPattern);
    FcDefaultSubstitute(pattern);
    FcResult result = FcResultNoMatch;
    FcPattern* match = FcFontMatch(nullptr, pattern, &result);
    FcPatternDestroy(pattern);
    if (match == nullptr)
        return std::nullopt;
    FoundFace found;
    FcChar8* file = nullptr;
    FcChar8* family = nullptr;
    if (FcPatternGetString(match, FC_FILE, 0, &file) == FcResultMatch && file != nullptr)
        found.file = reinterpret_cast<const char*>(file);
    if (FcPatternGetString(match, FC_FAMILY, 0, &family) == FcResultMatch && family != nullptr)
        found.family = reinterpret_cast<const char*>(family);
    FcPatternGetInteger(match, FC_INDEX, 0, &found.index);
    FcPatternDestroy(match);
    if (found.file.empty())
        return std::nullopt;
    return found;
}

// The file of a scalable face that has `character`, when fontconfig knows one.
std::optional<FoundFace> FindFaceWith(char32_t character)
{
    if (!FcInit())
        return std::nullopt;
    FcPattern* pattern = FcPatternCreate();
    FcCharSet* wanted = FcCharSetCreate();
    FcCharSetAddChar(wanted, static_cast<FcChar32>(character));
    FcPatternAddCharSet(pattern, FC_CHARSET, wanted);
    FcPatternAddBool(pattern, FC_SCALABLE, FcTrue);
    FcConfigSubstitute(nullptr, pattern, FcMatchPattern);
    FcDefaultSubstitute(pattern);
    FcResult result = FcResultNoMatch;
    FcPattern* match = FcFontMatch(nullptr, pattern, &result);
    FcPatternDestroy(pattern);
    std::optional<FoundFace> found;
    FcCharSet* has = nullptr;
    FcChar8* file = nullptr;
    if (match != nullptr && FcPatternGetCharSet(match, FC_CHARSET, 0, &has) == FcResultMatch &&
        FcCharSetHasChar(has, static_cast<FcChar32>(character)) &&
        FcPatternGetString(match, FC_FILE, 0, &file) == FcResultMatch && file != nullptr) {
        found = FoundFace{reinterpret_cast<const char*>(file), 0, {}};
        FcPatternGetInteger(match, FC_INDEX, 0, &found->index);
    }
    if (match != nullptr)
        FcPatternDestroy(match);
    FcCharSetDestroy(wanted);
    return found;
}

} // namespace

struct Font::Impl
{
    FT_Face face = nullptr;
    // Faces that draw the characters the chosen one lacks (a Japanese caption in the stand-in for
    // Arial, say), at the same size, as the system's font linking would. A few at most per font.
    std::vector<FT_Face> fallbacks;
    std::vector<char32_t> unfound; // Characters no face has: asked for once.
    FT_F26Dot6 sizeX = 0, sizeY = 0;
    FT_GlyphSlot slot = nullptr; // Of the last Load.

    ~Impl()
    {
        std::lock_guard<std::mutex> hold(libraryLock);
        for (FT_Face fallback : fallbacks)
            FT_Done_Face(fallback);
        if (face != nullptr)
            FT_Done_Face(face);
    }

    FT_Face FaceFor(char32_t character)
    {
        if (character < 0x80 || FT_Get_Char_Index(face, character) != 0)
            return face;
        for (FT_Face fallback : fallbacks)
            if (FT_Get_Char_Index(fallback, character) != 0)
                return fallback;
        constexpr std::size_t kMaxFallbacks = 4;
        if (fallbacks.size() >= kMaxFallbacks ||
            std::find(unfound.begin(), unfound.end(), character) != unfound.end())
            return face;
        std::lock_guard<std::mutex> hold(libraryLock);
        const std::optional<FoundFace> found = FindFaceWith(character);
        FT_Face opened = nullptr;
        if (!found || FT_New_Face(Library(), found->file.c_str(), found->index, &opened) != 0) {
            unfound.push_back(character);
            return face;
        }
        if (FT_Set_Char_Size(opened, sizeX, sizeY, 72, 72) != 0 ||
            FT_Get_Char_Index(opened, character) == 0) {
            FT_Done_Face(opened);
            unfound.push_back(character);
            return face;
        }
        fallbacks.push_back(opened);
        return opened;
    }

    // Monochrome hinting: the glyphs are drawn without smoothing.
    bool Load(char32_t character, FT_Int32 flags)
    {
        FT_Face used = FaceFor(character);
        if (FT_Load_Char(used, character, flags | FT_LOAD_TARGET_MONO) != 0)
            return false;
        slot = used->glyph;
        return true;
    }
};

Font::Font(std::unique_ptr<Impl> impl) : impl_(std::move(impl))
{
}
Font::~Font() = default;

base::Result<std::unique_ptr<Font>> Font::Create(const FontRequest& request)
{
    auto impl = std::make_unique<Impl>();
    std::optional<FoundFace> found;
    {
        std::lock_guard<std::mutex> hold(libraryLock);
        found = FindFace(request);
        if (!found)
            return Error{ErrorCode::NotFound, StrCat("no scalable font for '", request.faceUtf8, "'")};
        if (Library() == nullptr ||
            FT_New_Face(Library(), found->file.c_str(), found->index, &impl->face) != 0)
            return Error{ErrorCode::Io, StrCat("cannot open font file ", found->file)};
    }
    FT_Face face = impl->face;
    const auto* os2 = static_cast<const TT_OS2*>(FT_Get_Sfnt_Table(face, FT_SFNT_OS2));
    const double unitsPerEm = face->units_per_EM > 0 ? face->units_per_EM : 2048;
    // Cell metrics as the classic interface takes them: the Windows ascent and descent of the face.
    const double cellAscent = os2 != nullptr && os2->usWinAscent > 0 ? os2->usWinAscent : face->ascender;
    const double cellDescent = os2 != nullptr && os2->usWinDescent > 0 ? os2->usWinDescent : -face->descender;
    const double cellUnits = std::max(1.0, cellAscent + cellDescent);
    // A zero height takes the classic default cell of 16 pixels.
    const int height = request.height == 0 ? 16 : request.height;
    // Negative heights name the em size; positive ones the whole cell.
    const double em =
        std::clamp(height < 0 ? -static_cast<double>(height) : height * unitsPerEm / cellUnits, 1.0, 4096.0);
    const double averageUnits =
        os2 != nullptr && os2->xAvgCharWidth > 0 ? os2->xAvgCharWidth : unitsPerEm / 2;
    const double emX =
        request.width > 0 ? std::clamp(request.width * unitsPerEm / averageUnits, 1.0, 4096.0) : em;
    impl->sizeX = static_cast<FT_F26Dot6>(std::lround(emX * 64));
    impl->sizeY = static_cast<FT_F26Dot6>(std::lround(em * 64));
    if (FT_Set_Char_Size(face, impl->sizeX, impl->sizeY, 72, 72) != 0)
        return Error{ErrorCode::BadData,
                     StrCat("font ", found->family, " cannot be scaled to ", em, " pixels")};

    TextMetrics m;
    const double scaleY = em / unitsPerEm;
    const double scaleX = emX / unitsPerEm;
    m.ascent = static_cast<int>(std::lround(cellAscent * scaleY));
    m.descent = static_cast<int>(std::lround(cellDescent * scaleY));
    m.height = m.ascent + m.descent;
    m.internalLeading = std::max(0, m.height - static_cast<int>(std::lround(em)));
    const double lineGap =
        os2 != nullptr ? os2->sTypoLineGap : face->height - (face->ascender - face->descender);
    m.externalLeading = std::max(0, static_cast<int>(std::lround(lineGap * scaleY)));
    m.aveCharWidth = static_cast<int>(std::lround(averageUnits * scaleX));
    m.maxCharWidth = static_cast<int>(std::lround(face->max_advance_width * scaleX));
    m.weight = request.weight > 0 ? request.weight : 400;
    m.overhang = 0;

    auto font = std::unique_ptr<Font>(new Font(std::move(impl)));
    font->metrics_ = m;
    font->family_ = found->family;
    return font;
}

int Font::Advance(char32_t character)
{
    if (!impl_->Load(character, FT_LOAD_DEFAULT))
        return 0;
    return Round26(impl_->slot->advance.x);
}

std::optional<AbcWidths> Font::Abc(char32_t character)
{
    if (!impl_->Load(character, FT_LOAD_DEFAULT))
        return std::nullopt;
    const FT_Glyph_Metrics& g = impl_->slot->metrics;
    AbcWidths abc;
    abc.a = Round26(g.horiBearingX);
    abc.b = Round26(g.width);
    abc.c = Round26(g.horiAdvance) - abc.a - abc.b;
    return abc;
}

void Font::Draw(GraySheet sheet, int x, int baseline, char32_t character)
{
    if (sheet.bits == nullptr || !impl_->Load(character, FT_LOAD_RENDER))
        return;
    const FT_GlyphSlot slot = impl_->slot;
    const FT_Bitmap& bitmap = slot->bitmap;
    const int left = x + slot->bitmap_left;
    const int top = baseline - slot->bitmap_top;
    for (unsigned row = 0; row < bitmap.rows; ++row) {
        const int y = top + static_cast<int>(row);
        if (y < 0 || y >= sheet.height)
            continue;
        const int memoryRow = sheet.bottomUp ? sheet.height - 1 - y : y;
        std::uint8_t* out = sheet.bits + static_cast<std::ptrdiff_t>(memoryRow) * sheet.stride;
        const unsigned char* in = bitmap.buffer + static_cast<std::ptrdiff_t>(row) * bitmap.pitch;
        for (unsigned column = 0; column < bitmap.width; ++column) {
            const int px = left + static_cast<int>(column);
            if (px < 0 || px >= sheet.width)
                continue;
            const bool ink = bitmap.pixel_mode == FT_PIXEL_MODE_MONO
                                 ? ((in[column >> 3] >> (7 - (column & 7))) & 1) != 0
                                 : in[column] >= 128;
            if (ink)
                out[px] = 0;
        }
    }
}

} // namespace lumenar::platform
