#include "effects/EffectTables.h"

#include "effects/BasicTransitions.h"
#include "effects/CardTransitions.h"
#include "effects/FlatTransitions.h"
#include "effects/LineTransitions.h"
#include "effects/TextEffects.h"
#include "effects/TextMotionEffects.h"
#include "effects/TextRevealEffects.h"
#include "effects/WarpTransitions.h"

namespace lumenar::effects {

namespace {

constexpr EffectEntry Row(std::uint32_t nameId, EffectProc proc, const char* procName,
                          std::uint32_t direction, std::int32_t variant, std::int32_t number, Built built)
{
    return EffectEntry{nullptr, nullptr, nameId, 0, proc, direction, variant, 0, number, procName, built};
}

// Both tables in one array: picture rows 0-98 (the effect number is the index), text rows 0-53, and one
// empty row. Columns: name id, procedure, family, direction, variant, stored number, built.
// Written by the registry only (names, active flags, the random rows), under its tables lock.
EffectEntry effectRows[kPictureTableRows + kTextTableRows + 1] = {
    // Picture table.
    Row(10, Flip3D, "Flip3D", 0x04, 1, 19, Built::Yes),                     // 0
    Row(121, Flip3D, "Flip3D", 0x40, 1, 19, Built::Yes),                    // 1
    Row(32, Flip3D, "Flip3D", 0x01, 2, 19, Built::Yes),                     // 2
    Row(122, Flip3D, "Flip3D", 0x10, 2, 19, Built::Yes),                    // 3
    Row(34, Flip3D, "Flip3D", 0x00, 3, 19, Built::Yes),                     // 4
    Row(80, Flip3D, "Flip3D", 0x00, 4, 19, Built::Yes),                     // 5
    Row(81, Flip3D, "Flip3D", 0x00, 5, 19, Built::Yes),                     // 6
    Row(15, TurnInPlace, "PictureEffect07", 0x04, 1, 19, Built::Yes),       // 7
    Row(123, TurnInPlace, "PictureEffect07", 0x40, 1, 19, Built::Yes),      // 8
    Row(94, TurnInPlace, "PictureEffect07", 0x04, 2, 19, Built::Yes),       // 9
    Row(124, TurnInPlace, "PictureEffect07", 0x40, 2, 19, Built::Yes),      // 10
    Row(85, TurnInPlace, "PictureEffect07", 0x00, 3, 19, Built::Yes),       // 11
    Row(95, TurnInPlace, "PictureEffect07", 0x00, 4, 19, Built::Yes),       // 12
    Row(96, TurnInPlace, "PictureEffect07", 0x00, 5, 19, Built::Yes),       // 13
    Row(24, CubeTurn, "PictureEffect14", 0x00, 0, 19, Built::Yes),          // 14
    Row(109, PageCurl, "PictureEffect15", 0x00, 0, 19, Built::Yes),         // 15
    Row(110, PageCurl, "PictureEffect15", 0x00, 1, 19, Built::Yes),         // 16
    Row(113, FoldInHalf, "PictureEffect17", 0x00, 0, 19, Built::Yes),       // 17
    Row(114, RollAway, "PictureEffect18", 0x01, 0, 19, Built::Yes),         // 18
    Row(118, RollAway, "PictureEffect18", 0x10, 0, 19, Built::Yes),         // 19
    Row(119, RollAway, "PictureEffect18", 0x40, 0, 19, Built::Yes),         // 20
    Row(120, RollAway, "PictureEffect18", 0x04, 0, 19, Built::Yes),         // 21
    Row(57, Ripple, "PictureEffect22", 0x00, 0, 19, Built::Yes),            // 22
    Row(5, Split, "PictureEffect23", 0x00, 0, 19, Built::Yes),              // 23
    Row(52, Swirl, "PictureEffect24", 0x00, 1, 19, Built::Yes),             // 24
    Row(54, Checkerboard, "PictureEffect25", 0x00, 0, 19, Built::Yes),      // 25
    Row(53, Spiral, "PictureEffect26", 0x00, 1, 19, Built::Yes),            // 26
    Row(55, SwirlQuarters, "PictureEffect27", 0x00, 0, 19, Built::Yes),     // 27
    Row(56, SpiralQuarters, "PictureEffect28", 0x00, 0, 19, Built::Yes),    // 28
    Row(60, Iris, "PictureEffect29", 0x00, 0, 19, Built::Yes),              // 29
    Row(61, Mosaic, "PictureEffect30", 0x00, 4, 19, Built::Yes),            // 30
    Row(62, Mosaic, "PictureEffect30", 0x00, 8, 19, Built::Yes),            // 31
    Row(63, Mosaic, "PictureEffect30", 0x00, 20, 19, Built::Yes),           // 32
    Row(64, ZoomIn, "PictureEffect33", 0x00, 0, 19, Built::Yes),            // 33
    Row(9, ZoomOut, "PictureEffect34", 0x00, 0, 19, Built::Yes),            // 34
    Row(4, Stretch, "PictureEffect35", 0x00, 0, 19, Built::Yes),            // 35
    Row(47, TileDissolve, "TileDissolve", 0x00, 4, 19, Built::Yes),         // 36
    Row(48, TileDissolve, "TileDissolve", 0x00, 8, 19, Built::Yes),         // 37
    Row(49, TileDissolve, "TileDissolve", 0x00, 20, 19, Built::Yes),        // 38
    Row(1, CutAtHalf, "CutAtHalf", 0x00, 0, 0, Built::Yes),                 // 39
    Row(65, FadeThroughBlack, "PictureEffect40", 0x00, 0, 19, Built::Yes),  // 40
    Row(38, CrossFade, "CrossFade", 0x00, 1, 19, Built::Yes),               // 41
    Row(115, GradientDissolve, "PictureEffect42", 0x00, 0, 19, Built::Yes), // 42
    Row(26, PatternWipe, "PictureEffect43", 0x00, 8, 19, Built::Yes),       // 43
    Row(18, PatternWipe, "PictureEffect43", 0x00, 264, 19, Built::Yes),     // 44
    Row(36, PatternWipe, "PictureEffect43", 0x00, 780, 19, Built::Yes),     // 45
    Row(76, RotateAway, "PictureEffect46", 0x04, 0, 19, Built::Yes),        // 46
    Row(77, RotateAway, "PictureEffect46", 0x40, 0, 19, Built::Yes),        // 47
    Row(88, ClockWipe, "PictureEffect48", 0x00, 0, 19, Built::Yes),         // 48
    Row(11, Push, "Push", 0x01, 1, 3, Built::Yes),                          // 49
    Row(12, Push, "Push", 0x10, 1, 4, Built::Yes),                          // 50
    Row(13, Push, "Push", 0x40, 1, 2, Built::Yes),                          // 51
    Row(14, Push, "Push", 0x04, 1, 1, Built::Yes),                          // 52
    Row(19, SlideIn, "SlideIn", 0x01, 1, 11, Built::Yes),                   // 53
    Row(20, SlideIn, "SlideIn", 0x10, 1, 12, Built::Yes),                   // 54
    Row(21, SlideIn, "SlideIn", 0x40, 1, 10, Built::Yes),                   // 55
    Row(22, SlideIn, "SlideIn", 0x04, 1, 9, Built::Yes),                    // 56
    Row(27, Wipe, "Wipe", 0x01, 1, 7, Built::Yes),                          // 57
    Row(28, Wipe, "Wipe", 0x10, 1, 8, Built::Yes),                          // 58
    Row(29, Wipe, "Wipe", 0x40, 1, 5, Built::Yes),                          // 59
    Row(30, Wipe, "Wipe", 0x04, 1, 6, Built::Yes),                          // 60
    Row(125, OutAndBack, "OutAndBack", 0x40, 0, 15, Built::Yes),            // 61
    Row(126, OutAndBack, "OutAndBack", 0x04, 0, 16, Built::Yes),            // 62
    Row(127, OutAndBack, "OutAndBack", 0x01, 0, 17, Built::Yes),            // 63
    Row(128, OutAndBack, "OutAndBack", 0x10, 0, 18, Built::Yes),            // 64
    Row(116, BoxWipe, "BoxWipe", 0x40, 0, 14, Built::Yes),                  // 65
    Row(117, BoxWipe, "BoxWipe", 0x40, 1, 13, Built::Yes),                  // 66
    Row(106, PatternWipe, "PictureEffect43", 0x10, 512, 19, Built::Yes),    // 67
    Row(99, PatternWipe, "PictureEffect43", 0x01, 512, 19, Built::Yes),     // 68
    Row(108, PatternWipe, "PictureEffect43", 0x40, 512, 19, Built::Yes),    // 69
    Row(107, PatternWipe, "PictureEffect43", 0x04, 512, 19, Built::Yes),    // 70
    Row(16, Push, "Push", 0x01, 50, 19, Built::Yes),                        // 71
    Row(17, Push, "Push", 0x40, 50, 19, Built::Yes),                        // 72
    Row(23, SlideIn, "SlideIn", 0x01, 50, 19, Built::Yes),                  // 73
    Row(25, SlideIn, "SlideIn", 0x40, 50, 19, Built::Yes),                  // 74
    Row(31, Wipe, "Wipe", 0x01, 50, 19, Built::Yes),                        // 75
    Row(33, Wipe, "Wipe", 0x40, 50, 19, Built::Yes),                        // 76
    Row(39, Blinds, "Blinds", 0x01, 16, 19, Built::Yes),                    // 77
    Row(40, Blinds, "Blinds", 0x10, 16, 19, Built::Yes),                    // 78
    Row(41, Blinds, "Blinds", 0x40, 16, 19, Built::Yes),                    // 79
    Row(42, Blinds, "Blinds", 0x04, 16, 19, Built::Yes),                    // 80
    Row(43, SmearWipe, "SmearWipe", 0x10, 1, 19, Built::Yes),               // 81
    Row(44, SmearWipe, "SmearWipe", 0x01, 1, 19, Built::Yes),               // 82
    Row(45, SmearWipe, "SmearWipe", 0x04, 1, 19, Built::Yes),               // 83
    Row(46, SmearWipe, "SmearWipe", 0x40, 1, 19, Built::Yes),               // 84
    Row(6, Squeeze, "PictureEffect85", 0x00, 0, 19, Built::Yes),            // 85
    Row(58, Shatter, "PictureEffect86", 0x00, 0, 19, Built::Yes),           // 86
    Row(7, StretchAcross, "PictureEffect87", 0x00, 0, 19, Built::Yes),      // 87
    Row(97, Melt, "PictureEffect88", 0x00, 0, 19, Built::Yes),              // 88
    Row(35, Burst, "PictureEffect89", 0x00, 1, 19, Built::Yes),             // 89
    Row(59, Bounce, "PictureEffect90", 0x00, 0, 19, Built::Yes),            // 90
    Row(66, Wave, "PictureEffect91", 0x01, 1, 19, Built::Yes),              // 91
    Row(67, Wave, "PictureEffect91", 0x10, 1, 19, Built::Yes),              // 92
    Row(68, Wave, "PictureEffect91", 0x40, 1, 19, Built::Yes),              // 93
    Row(69, Wave, "PictureEffect91", 0x04, 1, 19, Built::Yes),              // 94
    Row(74, Pixelate, "PictureEffect95", 0x00, 0, 19, Built::Yes),          // 95
    Row(73, SqueezeThrough, "PictureEffect96", 0x00, 0, 19, Built::Yes),    // 96
    Row(111, DiagonalFlipWave, "PictureEffect97", 0x00, 0, 19, Built::Yes), // 97
    Row(3, nullptr, "-", 0x00, 0, 19, Built::Random),                       // 98
    // Text table.
    Row(27, TextFadeSweep, "TextFadeSweep", 0x10, 0, 5, Built::Yes),         // 0
    Row(28, TextFadeSweep, "TextFadeSweep", 0x01, 0, 6, Built::Yes),         // 1
    Row(29, TextFadeSweep, "TextFadeSweep", 0x04, 0, 7, Built::Yes),         // 2
    Row(30, TextFadeSweep, "TextFadeSweep", 0x40, 0, 8, Built::Yes),         // 3
    Row(1, TextShowAtHalf, "TextShowAtHalf", 0x00, 0, 0, Built::Yes),        // 4
    Row(445, TextEffect05, "TextEffect05", 0x00, 1, 12, Built::Yes),         // 5
    Row(446, TextEffect05, "TextEffect05", 0x00, 0, 12, Built::Yes),         // 6
    Row(447, TextEffect05, "TextEffect05", 0x00, 2, 12, Built::Yes),         // 7
    Row(448, TextEffect05, "TextEffect05", 0x00, 3, 12, Built::Yes),         // 8
    Row(406, TextGlyphStream, "TextGlyphStream", 0x10, 0, 12, Built::Yes),   // 9
    Row(407, TextGlyphStream, "TextGlyphStream", 0x01, 0, 12, Built::Yes),   // 10
    Row(408, TextGlyphStream, "TextGlyphStream", 0x04, 0, 12, Built::Yes),   // 11
    Row(409, TextGlyphStream, "TextGlyphStream", 0x40, 0, 12, Built::Yes),   // 12
    Row(404, TextEffect13, "TextEffect13", 0x00, 0, 12, Built::Yes),         // 13
    Row(444, TextEffect14, "TextEffect14", 0x00, 0, 12, Built::Yes),         // 14
    Row(410, TextGlyphScatter, "TextGlyphScatter", 0x10, 1, 12, Built::Yes), // 15
    Row(411, TextGlyphScatter, "TextGlyphScatter", 0x01, 1, 12, Built::Yes), // 16
    Row(412, TextGlyphScatter, "TextGlyphScatter", 0x04, 1, 12, Built::Yes), // 17
    Row(413, TextGlyphScatter, "TextGlyphScatter", 0x40, 1, 12, Built::Yes), // 18
    Row(19, TextFlyIn, "TextFlyIn", 0x10, 0, 2, Built::Yes),                 // 19
    Row(20, TextFlyIn, "TextFlyIn", 0x01, 0, 1, Built::Yes),                 // 20
    Row(21, TextFlyIn, "TextFlyIn", 0x04, 0, 4, Built::Yes),                 // 21
    Row(22, TextFlyIn, "TextFlyIn", 0x40, 0, 3, Built::Yes),                 // 22
    Row(401, TextEffect23, "TextEffect23", 0x44, 0, 9, Built::Yes),          // 23
    Row(402, TextEffect23, "TextEffect23", 0x11, 0, 10, Built::Yes),         // 24
    Row(405, TextEffect25, "TextEffect25", 0x00, 0, 12, Built::Yes),         // 25
    Row(436, TextEffect26, "TextEffect26", 0x00, 0, 12, Built::Yes),         // 26
    Row(437, TextEffect26, "TextEffect26", 0x00, 1, 12, Built::Yes),         // 27
    Row(449, TextEffect28, "TextEffect28", 0x00, 0, 11, Built::Yes),         // 28
    Row(418, TextGlyphGrow, "TextGlyphGrow", 0x00, 0, 12, Built::Yes),       // 29
    Row(421, TextGlyphGrow, "TextGlyphGrow", 0x00, 1, 12, Built::Yes),       // 30
    Row(427, TextGlyphGrow, "TextGlyphGrow", 0x00, 2, 12, Built::Yes),       // 31
    Row(438, TextEffect32, "TextEffect32", 0x00, 0, 12, Built::Yes),         // 32
    Row(439, TextGlyphGrow, "TextGlyphGrow", 0x00, 3, 12, Built::Yes),       // 33
    Row(440, TextGlyphGrow, "TextGlyphGrow", 0x00, 4, 12, Built::Yes),       // 34
    Row(426, TextEffect35, "TextEffect35", 0x00, 0, 12, Built::Yes),         // 35
    Row(428, TextEffect36, "TextEffect36", 0x00, 0, 12, Built::Yes),         // 36
    Row(434, TextEffect36, "TextEffect36", 0x00, 1, 12, Built::Yes),         // 37
    Row(430, TextEffect38, "TextEffect38", 0x01, 0, 12, Built::Yes),         // 38
    Row(431, TextEffect38, "TextEffect38", 0x10, 0, 12, Built::Yes),         // 39
    Row(432, TextEffect38, "TextEffect38", 0x40, 0, 12, Built::Yes),         // 40
    Row(433, TextEffect38, "TextEffect38", 0x04, 0, 12, Built::Yes),         // 41
    Row(435, TextEffect42, "TextEffect42", 0x00, 0, 12, Built::Yes),         // 42
    Row(442, TextEffect43, "TextEffect43", 0x00, 0, 12, Built::Yes),         // 43
    Row(443, TextEffect43, "TextEffect43", 0x00, 1, 12, Built::Yes),         // 44
    Row(419, TextEffect45, "TextEffect45", 0x00, 0, 12, Built::Yes),         // 45
    Row(420, TextEffect46, "TextEffect46", 0x00, 0, 12, Built::Yes),         // 46
    Row(429, TextEffect47, "TextEffect47", 0x00, 0, 12, Built::Yes),         // 47
    Row(441, TextEffect48, "TextEffect48", 0x00, 0, 12, Built::Yes),         // 48
    Row(422, TextEffect49, "TextEffect49", 0x04, 0, 12, Built::Yes),         // 49
    Row(423, TextEffect49, "TextEffect49", 0x40, 0, 12, Built::Yes),         // 50
    Row(424, TextEffect51, "TextEffect51", 0x04, 0, 12, Built::Yes),         // 51
    Row(425, TextEffect51, "TextEffect51", 0x40, 0, 12, Built::Yes),         // 52
    Row(3, nullptr, "-", 0x00, 0, 12, Built::Random),                        // 53
    // The empty row past the text table.
    Row(0, nullptr, "", 0, 0, 0, Built::NotYet),
};

} // namespace

EffectEntry* PictureEffectTable()
{
    return effectRows;
}

EffectEntry* TextEffectTable()
{
    return effectRows + kPictureTableRows;
}

} // namespace lumenar::effects
