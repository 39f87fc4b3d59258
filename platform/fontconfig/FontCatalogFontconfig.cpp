#include "platform/FontCatalog.h"

#include <fontconfig/fontconfig.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace lumenar::platform {

namespace {

struct PatternFree
{
    void operator()(FcPattern* p) const { FcPatternDestroy(p); }
};
struct FontSetFree
{
    void operator()(FcFontSet* s) const { FcFontSetDestroy(s); }
};
struct ObjectSetFree
{
    void operator()(FcObjectSet* s) const { FcObjectSetDestroy(s); }
};
using PatternPtr = std::unique_ptr<FcPattern, PatternFree>;

// Fontconfig's library-wide state is not safe to initialise from several threads at once.
std::mutex fontconfigLock; // Guards every call into fontconfig.

bool IsScalableOutline(FcPattern* font)
{
    FcChar8* format = nullptr;
    if (FcPatternGetString(font, FC_FONTFORMAT, 0, &format) != FcResultMatch || format == nullptr)
        return false;
    const std::string name(reinterpret_cast<const char*>(format));
    return name == "TrueType" || name == "CFF";
}

std::string Lower(std::string s)
{
    std::transform(s.begin(), s.end(), s.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return s;
}

FontFaceInfo Describe(FcPattern* font)
{
    FontFaceInfo info;
    FcChar8* family = nullptr;
    if (FcPatternGetString(font, FC_FAMILY, 0, &family) == FcResultMatch && family != nullptr)
        info.family = reinterpret_cast<const char*>(family);
    int weight = FC_WEIGHT_REGULAR;
    FcPatternGetInteger(font, FC_WEIGHT, 0, &weight);
    info.weight = std::clamp(FcWeightToOpenType(weight), 100, 900);
    int slant = FC_SLANT_ROMAN;
    FcPatternGetInteger(font, FC_SLANT, 0, &slant);
    info.italic = slant != FC_SLANT_ROMAN;
    int spacing = FC_PROPORTIONAL;
    FcPatternGetInteger(font, FC_SPACING, 0, &spacing);
    const bool fixed = spacing == FC_MONO;
    const std::string lower = Lower(info.family);
    int familyClass = 0x20; // Sans serif unless the name says otherwise.
    if (fixed || lower.find("mono") != std::string::npos)
        familyClass = 0x30;
    else if (lower.find("serif") != std::string::npos && lower.find("sans") == std::string::npos)
        familyClass = 0x10;
    info.pitchAndFamily = (fixed ? 1 : 2) | familyClass;
    return info;
}

// The face fontconfig picks for `family`, accepted only when it is that family or one of its
// configured stand-ins (the names listed before the generic "sans-serif"/"serif"/"monospace"), so
// that the global fallback does not pass for a family that is not there.
std::optional<FontFaceInfo> MatchFamily(std::string_view family)
{
    PatternPtr pattern(FcPatternCreate());
    const std::string name(family);
    FcPatternAddString(pattern.get(), FC_FAMILY, reinterpret_cast<const FcChar8*>(name.c_str()));
    FcPatternAddInteger(pattern.get(), FC_WEIGHT, FC_WEIGHT_REGULAR);
    FcPatternAddInteger(pattern.get(), FC_SLANT, FC_SLANT_ROMAN);
    FcConfigSubstitute(nullptr, pattern.get(), FcMatchPattern);
    FcDefaultSubstitute(pattern.get());
    FcResult result = FcResultNoMatch;
    PatternPtr match(FcFontMatch(nullptr, pattern.get(), &result));
    if (!match || result != FcResultMatch || !IsScalableOutline(match.get()))
        return std::nullopt;
    FontFaceInfo info = Describe(match.get());
    FcChar8* listed = nullptr;
    for (int i = 0; FcPatternGetString(pattern.get(), FC_FAMILY, i, &listed) == FcResultMatch; ++i) {
        const std::string candidate = Lower(reinterpret_cast<const char*>(listed));
        if (candidate == "sans-serif" || candidate == "serif" || candidate == "monospace")
            break;
        if (candidate == Lower(info.family))
            return info;
    }
    return std::nullopt;
}

std::optional<FontFaceInfo> FirstOfAnyFamily()
{
    PatternPtr pattern(FcPatternCreate());
    std::unique_ptr<FcObjectSet, ObjectSetFree> objects(
        FcObjectSetBuild(FC_FAMILY, FC_WEIGHT, FC_SLANT, FC_SPACING, FC_FONTFORMAT, nullptr));
    std::unique_ptr<FcFontSet, FontSetFree> fonts(FcFontList(nullptr, pattern.get(), objects.get()));
    if (!fonts)
        return std::nullopt;
    // Fontconfig lists in no fixed order; the first family by name (its regular face) is repeatable.
    std::optional<FontFaceInfo> best;
    for (int i = 0; i < fonts->nfont; ++i) {
        if (!IsScalableOutline(fonts->fonts[i]))
            continue;
        FontFaceInfo info = Describe(fonts->fonts[i]);
        const bool regular = info.weight == 400 && !info.italic;
        if (!best || info.family < best->family || (info.family == best->family && regular))
            best = info;
    }
    return best;
}

} // namespace

std::optional<FontFaceInfo> FirstTrueTypeFace(std::string_view family)
{
    std::lock_guard<std::mutex> hold(fontconfigLock);
    if (!FcInit())
        return std::nullopt;
    if (!family.empty())
        return MatchFamily(family);
    return FirstOfAnyFamily();
}

} // namespace lumenar::platform
