#include "effects/CardTransitions.h"

#include "effects/Renderer3D.h"
#include "effects/TransitionFrame.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <utility>
#include <vector>

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

// ---- Sheets on the rest plane ----------------------------------------------------------------------

// A point on the rest plane, in the scene's units, centred on the axis, +y up.
struct Point2
{
    double x = 0;
    double y = 0;
};

double HalfWidth(const Frame& f)
{
    return kHalfHeight * f.w / f.h;
}

Camera RestCamera(const Frame& f)
{
    return Camera::Filling(f.w, f.h, kHalfHeight, kRestDistance);
}

// Where on the rest plane the centre of pixel (column, row) lies, rows counted from the bottom; the
// rest plane fills the frame, so this is the camera's projection undone.
Point2 PlaneAt(const Frame& f, double column, double row)
{
    const double unit = 2 * kHalfHeight / f.h;
    return {(column + 0.5 - f.w / 2.0) * unit, (row + 0.5 - f.h / 2.0) * unit};
}

// A sheet bent about lines across `dir` (a unit vector): the point whose distance along `dir` from
// `origin` is d stays on its line across and goes to distance `along` and depth `z` (negative towards
// the eye) given by the shape for d.
struct Bend
{
    Point2 origin;
    Point2 dir;
};

struct Bent
{
    double along = 0;
    double z = 0;
};

double Distance(const Bend& bend, Point2 p)
{
    return (p.x - bend.origin.x) * bend.dir.x + (p.y - bend.origin.y) * bend.dir.y;
}

// Copies the pictures as they lie flat on the rest plane: `near` where the distance along the bend is
// below `cut`, `far` elsewhere. Exact pixels, not textures, so the flat parts are the pictures.
void CopySplit(const Frame& f, const Bend& bend, double cut, const std::uint8_t* near,
               const std::uint8_t* far)
{
    const auto isNear = [&](std::int32_t column, std::int32_t row) {
        return Distance(bend, PlaneAt(f, column, row)) < cut;
    };
    // Along a row the distance is linear in the column: one run of each picture.
    const bool nearFirst = bend.dir.x > 0 || (bend.dir.x == 0 && isNear(0, 0));
    for (std::int32_t row = 0; row < f.h; ++row) {
        std::int32_t split = 0;
        if (bend.dir.x == 0) {
            split = isNear(0, row) == nearFirst ? f.w : 0;
        } else {
            const Point2 start = PlaneAt(f, 0, row);
            const double unit = 2 * kHalfHeight / f.h;
            const double guess = (cut - Distance(bend, start)) / (bend.dir.x * unit);
            split = static_cast<std::int32_t>(std::clamp(std::ceil(guess), 0.0, static_cast<double>(f.w)));
            while (split > 0 && isNear(split - 1, row) != nearFirst)
                --split;
            while (split < f.w && isNear(split, row) == nearFirst)
                ++split;
        }
        const std::size_t offset = f.RowBytes() * static_cast<std::size_t>(row);
        const std::uint8_t* first = nearFirst ? near : far;
        const std::uint8_t* second = nearFirst ? far : near;
        CopyPixels(f.OutputRow(row), first + offset, split);
        CopyPixels(f.OutputRow(row) + static_cast<std::size_t>(split) * 4, second + offset + split * 4,
                   f.w - split);
    }
}

// How much darker the back of a bent sheet is than its front.
constexpr int kBackShade = 150;

// Draws a flat face whose corners run anticlockwise on the picture seen from its front: the front with
// `front`, the back (if any) with `back`, darkened by kBackShade. The normal is the sum over the edges
// (Newell's), which holds for any corner count and does not depend on which corner comes first.
void DrawFacet(const Canvas& canvas, const Camera& camera, const Vertex* corners, int count,
               const Texture& front, const Texture* back)
{
    Vec3 normal, centre;
    for (int i = 0; i < count; ++i) {
        const Vec3& a = corners[i].p;
        const Vec3& b = corners[(i + 1) % count].p;
        normal = {normal.x + (a.y - b.y) * (a.z + b.z), normal.y + (a.z - b.z) * (a.x + b.x),
                  normal.z + (a.x - b.x) * (a.y + b.y)};
        centre = {centre.x + a.x / count, centre.y + a.y / count, centre.z + a.z / count};
    }
    const double side = normal.x * centre.x + normal.y * centre.y + normal.z * centre.z;
    const double lengths = std::sqrt((normal.x * normal.x + normal.y * normal.y + normal.z * normal.z) *
                                     (centre.x * centre.x + centre.y * centre.y + centre.z * centre.z));
    if (side == 0 || !(lengths > 0))
        return;
    const int shade = ShadeFor(side / lengths);
    if (side > 0)
        DrawFace(canvas, camera, front, corners, count, shade);
    else if (back != nullptr)
        DrawFace(canvas, camera, *back, corners, count, shade * kBackShade / 256);
}

constexpr int kMaxBands = 400;
constexpr int kMaxBandCorners = kMaxFaceCorners;

// The part of the picture's rectangle between distances d0 and d1 along the bend, anticlockwise.
int BandCorners(const Frame& f, const Bend& bend, double d0, double d1, Point2* out)
{
    const double hw = HalfWidth(f), hh = kHalfHeight;
    Point2 a[kMaxBandCorners] = {{-hw, hh}, {-hw, -hh}, {hw, -hh}, {hw, hh}};
    Point2 b[kMaxBandCorners];
    int count = 4;
    // Keeps the part where sign × (distance − limit) is not negative.
    const auto clip = [&](const Point2* in, int n, Point2* kept, double limit, double sign) {
        int m = 0;
        for (int i = 0; i < n; ++i) {
            const Point2 p = in[i], q = in[(i + 1) % n];
            const double dp = sign * (Distance(bend, p) - limit), dq = sign * (Distance(bend, q) - limit);
            if (dp >= 0)
                kept[m++] = p;
            if ((dp >= 0) != (dq >= 0)) {
                const double s = dp / (dp - dq);
                kept[m++] = {p.x + (q.x - p.x) * s, p.y + (q.y - p.y) * s};
            }
        }
        return m;
    };
    count = clip(a, count, b, d0, 1);
    count = clip(b, count, out, d1, -1);
    return count;
}

// Draws the bent part of a sheet carrying `front` (and `back` behind it) between the distances in
// `cuts` (ascending), one flat band between each two, farthest band first so that nearer ones cover it.
template <typename Shape>
void DrawBands(const Frame& f, const Bend& bend, const double* cuts, int cutCount, const Shape& shape,
               const Texture& front, const Texture* back)
{
    const double hw = HalfWidth(f), hh = kHalfHeight;
    const auto place = [&](Point2 p) {
        const double d = Distance(bend, p);
        const Bent b = shape(d);
        return Vertex{
            {p.x + (b.along - d) * bend.dir.x, p.y + (b.along - d) * bend.dir.y, kRestDistance + b.z},
            (p.x + hw) / (2 * hw),
            (hh - p.y) / (2 * hh)};
    };
    std::array<std::pair<double, int>, kMaxBands> order;
    int bands = 0;
    for (int i = 0; i + 1 < cutCount && bands < kMaxBands; ++i) {
        if (!(cuts[i + 1] > cuts[i]))
            continue;
        Point2 corners[kMaxBandCorners];
        const int n = BandCorners(f, bend, cuts[i], cuts[i + 1], corners);
        if (n < 3)
            continue;
        Vec3 centre;
        for (int k = 0; k < n; ++k) {
            const Vec3 p = place(corners[k]).p;
            centre = {centre.x + p.x / n, centre.y + p.y / n, centre.z + p.z / n};
        }
        order[static_cast<std::size_t>(bands++)] = {
            -(centre.x * centre.x + centre.y * centre.y + centre.z * centre.z), i};
    }
    std::sort(order.begin(), order.begin() + bands);
    const Canvas canvas = CanvasOf(f);
    const Camera camera = RestCamera(f);
    for (int b = 0; b < bands; ++b) {
        const int i = order[static_cast<std::size_t>(b)].second;
        Point2 corners[kMaxBandCorners];
        const int n = BandCorners(f, bend, cuts[i], cuts[i + 1], corners);
        Vertex placed[kMaxBandCorners];
        for (int k = 0; k < n; ++k)
            placed[k] = place(corners[k]);
        // A band is flat: drawn whole, it pays one set-up per row rather than one per triangle.
        DrawFacet(canvas, camera, placed, n, front, back);
    }
}

// ---- Fold ------------------------------------------------------------------------------------------

// One half of a picture turned about the upright middle by `angle`, its outer edge going away; corners
// anticlockwise from the top-left.
std::array<Vertex, 4> FoldedHalf(const Frame& f, double angle, bool right)
{
    const double hw = HalfWidth(f), hh = kHalfHeight;
    const double x0 = right ? 0 : -hw, x1 = right ? hw : 0;
    const auto at = [&](double x, double y, double u, double v) {
        return Vertex{{x * std::cos(angle), y, kRestDistance + std::abs(x) * std::sin(angle)}, u, v};
    };
    const double u0 = right ? 0.5 : 0, u1 = right ? 1 : 0.5;
    return {at(x0, hh, u0, 0), at(x0, -hh, u0, 1), at(x1, -hh, u1, 1), at(x1, hh, u1, 0)};
}

void RenderFold(const Frame& f)
{
    if (DrawEnds(f))
        return;
    const Cards& c = CardsFor(f);
    const double t = Progress(f);
    // Closing speeds up and opening slows down, so the shut moment passes quickly.
    const bool closing = t < 0.5;
    const double u = closing ? 2 * t : 2 - 2 * t;
    const double angle = std::numbers::pi / 2 * u * u;
    const Texture& texture = closing ? c.sourceTexture : c.targetTexture;
    const Canvas canvas = CanvasOf(f);
    const Camera camera = RestCamera(f);
    Clear(canvas);
    for (const bool right : {false, true}) {
        // As if lit from the left: the right half turns out of the light, so the crease shows.
        const int light = right ? 256 - static_cast<int>(std::lround(80 * std::sin(angle))) : 256;
        const int shade = ShadeFor(std::cos(angle)) * light / 256;
        const auto k = FoldedHalf(f, angle, right);
        DrawFace(canvas, camera, texture, k.data(), 4, shade);
    }
}

// ---- Roll ------------------------------------------------------------------------------------------

// The roll's radius, as a part of the frame's half height, and how much each turn of the sheet takes
// from it at most (the first turn lies outermost).
constexpr double kRollRadius = 0.16 * kHalfHeight;
constexpr double kRollLayer = 0.012;

void RenderRoll(const Frame& f)
{
    if (DrawEnds(f))
        return;
    const Cards& c = CardsFor(f);
    const double hw = HalfWidth(f), hh = kHalfHeight;
    // The roll starts at the edge it leaves from, opposite the way it travels.
    Bend bend;
    double length = 2 * hh;
    switch (f.direction) {
    case kDirectionTop: // Rolls down.
        bend = {{0, hh}, {0, -1}};
        break;
    case kDirectionLeft: // Rolls right.
        bend = {{-hw, 0}, {1, 0}};
        length = 2 * hw;
        break;
    case kDirectionRight: // Rolls left.
        bend = {{hw, 0}, {-1, 0}};
        length = 2 * hw;
        break;
    default: // Rolls up.
        bend = {{0, -hh}, {0, 1}};
        break;
    }
    const double r = kRollRadius;
    const double turns = length / (2 * std::numbers::pi * r);
    const double layer = std::min(kRollLayer, 0.5 * r / std::max(turns, 1.0));
    // The roll's axis travels past the far edge until even its near side is out of the frame.
    const double contact = Progress(f) * (length + 2.2 * r);
    const auto shape = [&](double d) {
        const double s = contact - d;
        if (s <= 0)
            return Bent{d, 0};
        const double angle = s / r;
        const double radius = r - layer * angle / (2 * std::numbers::pi);
        return Bent{contact - radius * std::sin(angle), -r + radius * std::cos(angle)};
    };
    CopySplit(f, bend, contact, f.target, f.source);
    // Bands a fixed angle of the roll wide, counted from where the sheet leaves the plane.
    const double wound = std::min(contact, length);
    const double step = std::max(r * std::numbers::pi / 12, wound / (kMaxBands - 4));
    std::array<double, kMaxBands> cuts;
    int count = 0;
    cuts[static_cast<std::size_t>(count++)] = 0;
    const int first = static_cast<int>(std::floor(contact / step));
    for (int k = first; k >= 1 && count < kMaxBands - 1; --k) {
        const double d = contact - k * step;
        if (d > 0 && d < wound)
            cuts[static_cast<std::size_t>(count++)] = d;
    }
    cuts[static_cast<std::size_t>(count++)] = wound;
    DrawBands(f, bend, cuts.data(), count, shape, c.sourceTexture, &c.sourceTexture);
}

// ---- Cube ------------------------------------------------------------------------------------------

void RenderCube(const Frame& f)
{
    if (DrawEnds(f))
        return;
    const Cards& c = CardsFor(f);
    const double hw = HalfWidth(f), hh = kHalfHeight;
    const double turn = std::numbers::pi / 2 * Progress(f);
    // The cube is as deep as the pictures are wide. Its leading edge would come nearer than the rest
    // plane as it turns; stepping back by that much keeps it at the plane, inside the frame.
    const double back = hw * (std::cos(turn) + std::sin(turn) - 1);
    const Mat4 place = Mat4::Translate(0, 0, kRestDistance + hw + back) * Mat4::RotateY(turn);
    const Canvas canvas = CanvasOf(f);
    Clear(canvas);
    for (const bool side : {false, true}) {
        const Mat4 face =
            place * Mat4::RotateY(side ? -std::numbers::pi / 2 : 0) * Mat4::Translate(0, 0, -hw);
        const Vec3 at[4] = {{-hw, hh, 0}, {-hw, -hh, 0}, {hw, -hh, 0}, {hw, hh, 0}};
        const double uv[4][2] = {{0, 0}, {0, 1}, {1, 1}, {1, 0}};
        Card card;
        for (std::size_t i = 0; i < 4; ++i)
            card.corners[i] = {face.Apply(at[i]), uv[i][0], uv[i][1]};
        // Only the outsides are drawn: the cube hides its own inner faces.
        card.front = side ? &c.targetTexture : &c.sourceTexture;
        DrawCard(canvas, RestCamera(f), card);
    }
}

// ---- Page curl -------------------------------------------------------------------------------------

constexpr double kCurlRadius = 0.18 * kHalfHeight;

// `page` curls off `under` from the bottom-right corner; `amount` 0 lies flat, 1 is gone.
void DrawCurl(const Frame& f, const Texture& texture, const std::uint8_t* page, const std::uint8_t* under,
              double amount)
{
    const double hw = HalfWidth(f), hh = kHalfHeight;
    const double diagonal = 2 * std::hypot(hw, hh);
    // The fold line runs across the diagonal from the bottom-right corner to the top-left one.
    const Bend bend = {{hw, -hh}, {-2 * hw / diagonal, 2 * hh / diagonal}};
    const double r = kCurlRadius;
    const double line = amount * (diagonal + 2 * r);
    const double half = std::numbers::pi * r;
    // Past the line the page wraps half way round a cylinder lying on it, then lies back over itself.
    const auto shape = [&](double d) {
        const double s = line - d;
        if (s <= 0)
            return Bent{d, 0};
        if (s >= half)
            return Bent{line + (s - half), -2 * r};
        return Bent{line - r * std::sin(s / r), -r * (1 - std::cos(s / r))};
    };
    CopySplit(f, bend, line, under, page);
    constexpr int kCylinderBands = 16;
    const double lifted = std::min(line, diagonal);
    std::array<double, kCylinderBands + 3> cuts;
    int count = 0;
    cuts[static_cast<std::size_t>(count++)] = 0;
    for (int k = kCylinderBands; k >= 1; --k) {
        const double d = line - half * k / kCylinderBands;
        if (d > 0 && d < lifted)
            cuts[static_cast<std::size_t>(count++)] = d;
    }
    cuts[static_cast<std::size_t>(count++)] = lifted;
    DrawBands(f, bend, cuts.data(), count, shape, texture, &texture);
}

void RenderCurl(const Frame& f)
{
    if (DrawEnds(f))
        return;
    const Cards& c = CardsFor(f);
    const double t = Progress(f);
    if (f.variant == 1)
        DrawCurl(f, c.targetTexture, f.target, f.source, 1 - t);
    else
        DrawCurl(f, c.sourceTexture, f.source, f.target, t);
}

// ---- Shatter ---------------------------------------------------------------------------------------

// One piece of the broken source: its corners at rest, and how it flies once it breaks loose.
struct Shard
{
    std::array<Vertex, 3> corners;
    Vec3 centre;
    double delay = 0;  // Progress at which it breaks loose.
    double driftX = 0; // Sideways travel by the end, in scene units.
    double driftY = 0;
    double approach = 0; // Travel towards the eye by the end.
    double spinX = 0;    // Turns by the end, in radians.
    double spinY = 0;
};

struct Shards
{
    std::int32_t w = 0;
    std::int32_t h = 0;
    std::vector<Shard> pieces;
    std::vector<std::pair<double, int>> order; // Drawing order, sized at init.
};
thread_local Shards shards;

// A value in [lo, hi) from the effects' generator.
double RandomIn(double lo, double hi)
{
    return lo + (hi - lo) * Rand() / 32768.0;
}

void MakeShards(const Frame& f)
{
    const double hw = HalfWidth(f), hh = kHalfHeight;
    constexpr int kRows = 6;
    const int columns = std::clamp(static_cast<int>(std::lround(kRows * hw / hh)), 2, 16);
    // Grid corners, the inner ones jittered by up to a third of a cell.
    std::vector<Point2> grid(static_cast<std::size_t>((columns + 1) * (kRows + 1)));
    for (int j = 0; j <= kRows; ++j) {
        for (int i = 0; i <= columns; ++i) {
            double x = -hw + 2 * hw * i / columns, y = hh - 2 * hh * j / kRows;
            if (i > 0 && i < columns)
                x += RandomIn(-1, 1) * hw / columns * 2 / 3;
            if (j > 0 && j < kRows)
                y += RandomIn(-1, 1) * hh / kRows * 2 / 3;
            grid[static_cast<std::size_t>(j * (columns + 1) + i)] = {x, y};
        }
    }
    const auto corner = [&](int i, int j) {
        const Point2 p = grid[static_cast<std::size_t>(j * (columns + 1) + i)];
        return Vertex{{p.x, p.y, kRestDistance}, (p.x + hw) / (2 * hw), (hh - p.y) / (2 * hh)};
    };
    const double reach = std::hypot(hw, hh);
    shards = {f.w, f.h, {}, {}};
    for (int j = 0; j < kRows; ++j) {
        for (int i = 0; i < columns; ++i) {
            // Corners anticlockwise: top-left, bottom-left, bottom-right, top-right; cut along either
            // diagonal.
            const Vertex k[4] = {corner(i, j), corner(i, j + 1), corner(i + 1, j + 1), corner(i + 1, j)};
            const bool other = Rand() % 2 == 1;
            const std::array<std::array<Vertex, 3>, 2> halves =
                other ? std::array<std::array<Vertex, 3>, 2>{{{k[0], k[1], k[3]}, {k[1], k[2], k[3]}}}
                      : std::array<std::array<Vertex, 3>, 2>{{{k[0], k[1], k[2]}, {k[0], k[2], k[3]}}};
            for (const auto& triangle : halves) {
                Shard s;
                s.corners = triangle;
                s.centre = {(triangle[0].p.x + triangle[1].p.x + triangle[2].p.x) / 3,
                            (triangle[0].p.y + triangle[1].p.y + triangle[2].p.y) / 3, kRestDistance};
                const double out = std::hypot(s.centre.x, s.centre.y) / reach;
                s.delay = 0.35 * out + RandomIn(0, 0.1);
                const double speed = RandomIn(0.5, 1.5);
                s.driftX = s.centre.x * speed;
                s.driftY = s.centre.y * speed;
                s.approach = kRestDistance * RandomIn(1.3, 1.8);
                s.spinX = RandomIn(-6, 6);
                s.spinY = RandomIn(-6, 6);
                shards.pieces.push_back(s);
            }
        }
    }
    shards.order.resize(shards.pieces.size());
}

void RenderShatter(const Frame& f)
{
    if (DrawEnds(f))
        return;
    const Cards& c = CardsFor(f);
    if (shards.w != f.w || shards.h != f.h || shards.pieces.empty())
        MakeShards(f);
    const double t = Progress(f);
    f.CopyTarget();
    // Where each piece is now: broken loose at its delay, then speeding up as it comes at the eye.
    const auto placed = [&](const Shard& s) {
        const double since = std::max(0.0, (t - s.delay) / (1 - s.delay));
        const double go = since * since;
        const Mat4 move = Mat4::Translate(s.centre.x + s.driftX * go, s.centre.y + s.driftY * go,
                                          s.centre.z - s.approach * go) *
                          Mat4::RotateX(s.spinX * go) * Mat4::RotateY(s.spinY * go) *
                          Mat4::Translate(-s.centre.x, -s.centre.y, -s.centre.z);
        std::array<Vertex, 3> out = s.corners;
        for (Vertex& v : out)
            v.p = move.Apply(v.p);
        return out;
    };
    for (std::size_t i = 0; i < shards.pieces.size(); ++i) {
        const auto k = placed(shards.pieces[i]);
        const double x = (k[0].p.x + k[1].p.x + k[2].p.x) / 3, y = (k[0].p.y + k[1].p.y + k[2].p.y) / 3,
                     z = (k[0].p.z + k[1].p.z + k[2].p.z) / 3;
        shards.order[i] = {-(x * x + y * y + z * z), static_cast<int>(i)};
    }
    std::sort(shards.order.begin(), shards.order.end());
    const Canvas canvas = CanvasOf(f);
    const Camera camera = RestCamera(f);
    for (const auto& [key, index] : shards.order) {
        const auto k = placed(shards.pieces[static_cast<std::size_t>(index)]);
        DrawFacet(canvas, camera, k.data(), 3, c.sourceTexture, &c.sourceTexture);
    }
}

std::int32_t WithShards(std::uint32_t message, void* params)
{
    if (message == EffectInit) {
        if (const auto frame = ReadFrame(params)) {
            MakeCards(*frame);
            MakeShards(*frame);
        }
        return 0;
    }
    if (message == EffectRelease) {
        cards = {};
        shards = {};
        return 0;
    }
    return Stateless<RenderShatter>(message, params);
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
std::int32_t FoldInHalf(std::uint32_t message, void* params)
{
    return WithCards<RenderFold>(message, params);
}
std::int32_t RollAway(std::uint32_t message, void* params)
{
    return WithCards<RenderRoll>(message, params);
}
std::int32_t CubeTurn(std::uint32_t message, void* params)
{
    return WithCards<RenderCube>(message, params);
}
std::int32_t PageCurl(std::uint32_t message, void* params)
{
    return WithCards<RenderCurl>(message, params);
}
std::int32_t Shatter(std::uint32_t message, void* params)
{
    return WithShards(message, params);
}

} // namespace lumenar::effects
