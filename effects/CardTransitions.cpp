#include "effects/CardTransitions.h"

#include "effects/Renderer3D.h"
#include "effects/TransitionFrame.h"

#include <cmath>
#include <numbers>

namespace lumenar::effects {

namespace {

using namespace render3d;

// The scene: the card rests kBaseDepth beyond the origin and the eye stands kEyeDistance in front of
// the origin, so the flip's toss of up to kTossDistance shrinks the card to about two fifths of the
// frame. At rest the card fills the frame exactly: it is 2 × kHalfHeight high and as wide as the
// pictures' proportions, seen with a field of view of about 53 degrees.
constexpr double kBaseDepth = 0.25;
constexpr double kTossDistance = 4;
constexpr double kEyeDistance = 2.4;
constexpr double kRestDistance = kEyeDistance + kBaseDepth;
constexpr double kHalfHeight = kRestDistance / 2;

struct Cards
{
    std::int32_t w = 0;
    std::int32_t h = 0;
    const std::uint8_t* source = nullptr;
    const std::uint8_t* target = nullptr;
    Texture sourceTexture;
    Texture targetTexture;
};
thread_local Cards cards;

void MakeCards(const Frame& f)
{
    cards.w = f.w;
    cards.h = f.h;
    cards.source = f.source;
    cards.target = f.target;
    cards.sourceTexture = MakeTexture(f.source, f.w, f.h);
    cards.targetTexture = MakeTexture(f.target, f.w, f.h);
}

const Cards& CardsFor(const Frame& f)
{
    if (cards.w != f.w || cards.h != f.h || cards.source != f.source || cards.target != f.target ||
        cards.sourceTexture.Empty())
        MakeCards(f);
    return cards;
}

double Progress(const Frame& f)
{
    return static_cast<double>(f.n) / f.d;
}

// The card's face at rest, centred on the axis, source on the front and the target on the back. The
// back's texture points are the front's mirrored across the upright axis, or across the level axis
// when the card ends turned over about that (`overTheTop`), so that the target ends upright.
Card MakeCard(const Cards& c, const Mat4& place, bool overTheTop)
{
    const double hw = kHalfHeight * c.w / c.h;
    const double hh = kHalfHeight;
    const Vec3 at[4] = {{-hw, hh, 0}, {-hw, -hh, 0}, {hw, -hh, 0}, {hw, hh, 0}};
    const double uv[4][2] = {{0, 0}, {0, 1}, {1, 1}, {1, 0}};
    Card card;
    for (std::size_t i = 0; i < 4; ++i) {
        card.corners[i] = {place.Apply(at[i]), uv[i][0], uv[i][1]};
        card.backUv[i] = overTheTop ? std::array<double, 2>{uv[i][0], 1 - uv[i][1]}
                                    : std::array<double, 2>{1 - uv[i][0], uv[i][1]};
    }
    card.front = &c.sourceTexture;
    card.back = &c.targetTexture;
    return card;
}

// How the card is turned at progress t for the flip's and the turn's variants; `sense` is +1 or −1.
Mat4 Turning(std::int32_t variant, double t, double sense)
{
    constexpr double pi = std::numbers::pi;
    switch (variant) {
    case 2:
        return Mat4::RotateX(sense * pi * t);
    case 3:
        return Mat4::RotateY(sense * pi * t) * Mat4::RotateX(2 * pi * t);
    case 4:
        return Mat4::RotateY(sense * 3 * pi * t);
    case 5:
        return Mat4::RotateY(sense * 7 * pi * (1 - (1 - t) * (1 - t)));
    default:
        return Mat4::RotateY(sense * pi * t);
    }
}

Canvas CanvasOf(const Frame& f)
{
    return {f.output, f.w, f.h};
}

// The ends are the pictures themselves, not their textures.
bool DrawEnds(const Frame& f)
{
    if (f.n == 0)
        f.CopySource();
    else if (f.n >= f.d)
        f.CopyTarget();
    return f.n == 0 || f.n >= f.d;
}

void DrawTurningCard(const Frame& f, double distance, double sense)
{
    const Cards& c = CardsFor(f);
    const double t = Progress(f);
    const Mat4 place = Mat4::Translate(0, 0, distance) * Turning(f.variant, t, sense);
    const Canvas canvas = CanvasOf(f);
    Clear(canvas);
    DrawCard(canvas, Camera::Filling(f.w, f.h, kHalfHeight, kRestDistance),
             MakeCard(c, place, f.variant == 2));
}

void RenderFlip(const Frame& f)
{
    if (DrawEnds(f))
        return;
    // A positive turn about the upright axis takes the left edge away (a flip to the left); one about
    // the level axis brings the bottom edge nearer (a flip upwards).
    const double sense = f.direction == kDirectionLeft || f.direction == kDirectionTop ? -1 : 1;
    DrawTurningCard(f, kRestDistance + kTossDistance * std::sin(std::numbers::pi * Progress(f)), sense);
}

void RenderTurn(const Frame& f)
{
    if (DrawEnds(f))
        return;
    // Sense as the flip's; the level turn goes up for 0x04 and down for 0x40.
    const bool level = f.variant == 2;
    DrawTurningCard(f, kRestDistance, (f.direction == kDirectionLeft) != level ? -1 : 1);
}

void RenderRotate(const Frame& f)
{
    if (DrawEnds(f))
        return;
    const Cards& c = CardsFor(f);
    const double t = Progress(f);
    f.CopyTarget();
    // Seen from the eye, a positive turn about the line of sight is anticlockwise.
    const double sense = f.direction == kDirectionRight ? 1 : -1;
    const Mat4 place =
        Mat4::Translate(0, 0, kRestDistance / (1 - t)) * Mat4::RotateZ(sense * 2 * std::numbers::pi * t);
    DrawCard(CanvasOf(f), Camera::Filling(f.w, f.h, kHalfHeight, kRestDistance), MakeCard(c, place, false));
}

template <void (*Render)(const Frame&)> std::int32_t WithCards(std::uint32_t message, void* params)
{
    if (message == EffectInit) {
        if (const auto frame = ReadFrame(params))
            MakeCards(*frame);
        return 0;
    }
    if (message == EffectRelease) {
        cards = {};
        return 0;
    }
    return Stateless<Render>(message, params);
}

} // namespace

std::int32_t Flip3D(std::uint32_t message, void* params)
{
    return WithCards<RenderFlip>(message, params);
}
std::int32_t TurnInPlace(std::uint32_t message, void* params)
{
    return WithCards<RenderTurn>(message, params);
}
std::int32_t RotateAway(std::uint32_t message, void* params)
{
    return WithCards<RenderRotate>(message, params);
}

} // namespace lumenar::effects
