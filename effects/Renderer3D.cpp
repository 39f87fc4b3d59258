#include "effects/Renderer3D.h"

#include "platform/Cpu.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace lumenar::effects::render3d {

Mat4 Mat4::Identity()
{
    Mat4 r;
    r.m[0] = r.m[5] = r.m[10] = r.m[15] = 1;
    return r;
}

Mat4 Mat4::Translate(double x, double y, double z)
{
    Mat4 r = Identity();
    r.m[3] = x;
    r.m[7] = y;
    r.m[11] = z;
    return r;
}

Mat4 Mat4::Scale(double x, double y, double z)
{
    Mat4 r = Identity();
    r.m[0] = x;
    r.m[5] = y;
    r.m[10] = z;
    return r;
}

Mat4 Mat4::RotateX(double radians)
{
    Mat4 r = Identity();
    const double c = std::cos(radians);
    const double s = std::sin(radians);
    r.m[5] = c;
    r.m[6] = -s;
    r.m[9] = s;
    r.m[10] = c;
    return r;
}

Mat4 Mat4::RotateY(double radians)
{
    Mat4 r = Identity();
    const double c = std::cos(radians);
    const double s = std::sin(radians);
    r.m[0] = c;
    r.m[2] = s;
    r.m[8] = -s;
    r.m[10] = c;
    return r;
}

Mat4 Mat4::RotateZ(double radians)
{
    Mat4 r = Identity();
    const double c = std::cos(radians);
    const double s = std::sin(radians);
    r.m[0] = c;
    r.m[1] = -s;
    r.m[4] = s;
    r.m[5] = c;
    return r;
}

Mat4 Mat4::operator*(const Mat4& other) const
{
    Mat4 r;
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 4; ++j) {
            double sum = 0;
            for (int k = 0; k < 4; ++k)
                sum += m[static_cast<std::size_t>(i * 4 + k)] * other.m[static_cast<std::size_t>(k * 4 + j)];
            r.m[static_cast<std::size_t>(i * 4 + j)] = sum;
        }
    }
    return r;
}

Vec3 Mat4::Apply(const Vec3& p) const
{
    return {m[0] * p.x + m[1] * p.y + m[2] * p.z + m[3], m[4] * p.x + m[5] * p.y + m[6] * p.z + m[7],
            m[8] * p.x + m[9] * p.y + m[10] * p.z + m[11]};
}

namespace {

constexpr int kWeightBits = 14;
constexpr int kWeightOne = 1 << kWeightBits;

// The source samples that make one output sample, with integer weights summing to kWeightOne.
struct Taps
{
    std::vector<std::int32_t> index;
    std::vector<std::int32_t> weight;
    std::vector<std::int32_t> first; // Per output sample, where its taps start; one more at the end.
};

// The part of a tent of half-width `radius` centred on 0 that lies left of x.
double TentBelow(double x, double radius)
{
    const double u = x / radius;
    if (u <= -1)
        return 0;
    if (u <= 0)
        return radius * (u + 1) * (u + 1) / 2;
    if (u < 1)
        return radius * (1 - (1 - u) * (1 - u) / 2);
    return radius;
}

// Shrinking weighs each source sample by the part of a tent as wide as the reduction that falls on it
// (integrating rather than sampling the tent keeps fine patterns from beating against the texels);
// enlarging interpolates linearly, and equal sizes copy. Samples beyond the picture repeat its edge.
Taps MakeTaps(int source, int dest)
{
    Taps taps;
    const double scale = static_cast<double>(source) / dest;
    const bool shrinking = scale > 1;
    const double radius = shrinking ? scale : 1.0;
    std::vector<double> w;
    std::vector<std::int32_t> at;
    for (int i = 0; i < dest; ++i) {
        taps.first.push_back(static_cast<std::int32_t>(taps.index.size()));
        const double centre = (i + 0.5) * scale - 0.5;
        const auto lo = static_cast<int>(std::floor(centre - radius));
        const auto hi = static_cast<int>(std::ceil(centre + radius));
        w.clear();
        at.clear();
        double total = 0;
        for (int j = lo; j <= hi; ++j) {
            const double weight =
                shrinking ? TentBelow(j + 0.5 - centre, radius) - TentBelow(j - 0.5 - centre, radius)
                          : 1 - std::abs(j - centre);
            if (weight <= 0)
                continue;
            w.push_back(weight);
            at.push_back(std::clamp(j, 0, source - 1));
            total += weight;
        }
        std::int32_t sum = 0;
        std::size_t largest = 0;
        const std::size_t start = taps.weight.size();
        for (std::size_t k = 0; k < w.size(); ++k) {
            const auto weight = static_cast<std::int32_t>(std::lround(w[k] / total * kWeightOne));
            taps.index.push_back(at[k]);
            taps.weight.push_back(weight);
            sum += weight;
            if (w[k] > w[largest])
                largest = k;
        }
        taps.weight[start + largest] += kWeightOne - sum;
    }
    taps.first.push_back(static_cast<std::int32_t>(taps.index.size()));
    return taps;
}

// One output sample's four bytes from `count` inputs `stride` bytes apart.
void Filter(const std::uint8_t* in, std::size_t stride, const Taps& taps, int i, std::uint8_t* out)
{
    std::int32_t sum[4] = {kWeightOne / 2, kWeightOne / 2, kWeightOne / 2, kWeightOne / 2};
    for (std::int32_t k = taps.first[static_cast<std::size_t>(i)];
         k < taps.first[static_cast<std::size_t>(i) + 1]; ++k) {
        const std::uint8_t* sample =
            in + static_cast<std::size_t>(taps.index[static_cast<std::size_t>(k)]) * stride;
        const std::int32_t weight = taps.weight[static_cast<std::size_t>(k)];
        for (int c = 0; c < 4; ++c)
            sum[c] += sample[c] * weight;
    }
    for (int c = 0; c < 4; ++c)
        out[c] = static_cast<std::uint8_t>(std::clamp(sum[c] >> kWeightBits, 0, 255));
}

} // namespace

Texture MakeTexture(const std::uint8_t* picture, int width, int height)
{
    Texture texture;
    if (picture == nullptr || width <= 0 || height <= 0)
        return texture;
    // Across first (picture rows, top row first), then down.
    const Taps across = MakeTaps(width, kTextureSize);
    const Taps down = MakeTaps(height, kTextureSize);
    const std::size_t rowBytes = static_cast<std::size_t>(kTextureSize) * 4;
    std::vector<std::uint8_t> wide(rowBytes * static_cast<std::size_t>(height));
    for (int y = 0; y < height; ++y) {
        const std::uint8_t* row = picture + static_cast<std::size_t>(height - 1 - y) * width * 4;
        for (int x = 0; x < kTextureSize; ++x)
            Filter(row, 4, across, x,
                   &wide[static_cast<std::size_t>(y) * rowBytes + static_cast<std::size_t>(x) * 4]);
    }
    texture.texels.resize(static_cast<std::size_t>(kTexelStride) * kTexelStride);
    std::uint8_t sample[4];
    for (int y = 0; y < kTextureSize; ++y) {
        std::uint32_t* row = &texture.texels[static_cast<std::size_t>(y) * kTexelStride];
        for (int x = 0; x < kTextureSize; ++x) {
            Filter(&wide[static_cast<std::size_t>(x) * 4], rowBytes, down, y, sample);
            std::memcpy(&row[x], sample, 4);
        }
        row[kTextureSize] = row[kTextureSize - 1];
    }
    std::memcpy(&texture.texels[static_cast<std::size_t>(kTextureSize) * kTexelStride],
                &texture.texels[static_cast<std::size_t>(kTextureSize - 1) * kTexelStride],
                static_cast<std::size_t>(kTexelStride) * 4);
    return texture;
}

Camera Camera::Filling(int width, int height, double halfHeight, double distance)
{
    Camera camera;
    camera.width = width;
    camera.height = height;
    camera.focal = height / 2.0 * distance / halfHeight;
    camera.centreX = width / 2.0;
    camera.centreY = height / 2.0;
    return camera;
}

namespace {

// Room for a face cut at the near plane: a convex face gains at most one corner, and twice the corners
// leaves room for any that is not quite convex.
constexpr int kMaxCorners = 2 * kMaxFaceCorners;

// A corner after projection: its place on the picture and the values that vary linearly there.
struct Projected
{
    double x;
    double y;
    double q;  // 1 / depth.
    double uq; // u / depth.
    double vq;
};

// Cuts away what lies nearer than the near plane. Intersections are computed from the nearer corner
// of each edge, so two faces sharing an edge cut it at the same point.
int ClipNear(const Vertex* in, int count, Vertex* out)
{
    int n = 0;
    for (int i = 0; i < count; ++i) {
        const Vertex& a = in[i];
        const Vertex& b = in[(i + 1) % count];
        const bool aIn = a.p.z >= kNearPlane;
        const bool bIn = b.p.z >= kNearPlane;
        if (aIn)
            out[n++] = a;
        if (aIn != bIn) {
            const Vertex& nearer = a.p.z < b.p.z ? a : b;
            const Vertex& farther = a.p.z < b.p.z ? b : a;
            const double t = (kNearPlane - nearer.p.z) / (farther.p.z - nearer.p.z);
            Vertex cut;
            cut.p = {nearer.p.x + (farther.p.x - nearer.p.x) * t, nearer.p.y + (farther.p.y - nearer.p.y) * t,
                     kNearPlane};
            cut.u = nearer.u + (farther.u - nearer.u) * t;
            cut.v = nearer.v + (farther.v - nearer.v) * t;
            out[n++] = cut;
        }
    }
    return n;
}

// Where an edge crosses a row's centre line, computed from the edge's upper end so that the faces on
// both sides of an edge find the same place.
double CrossingAt(const Projected& a, const Projected& b, double yc)
{
    const Projected& top = (a.y < b.y || (a.y == b.y && a.x < b.x)) ? a : b;
    const Projected& bottom = &top == &a ? b : a;
    return top.x + (bottom.x - top.x) * ((yc - top.y) / (bottom.y - top.y));
}

std::uint32_t Lerp(std::uint32_t a, std::uint32_t b, std::uint32_t f)
{
    const std::uint32_t rb = (((a & 0x00FF00FFu) * (256 - f) + (b & 0x00FF00FFu) * f) >> 8) & 0x00FF00FFu;
    const std::uint32_t ga =
        ((((a >> 8) & 0x00FF00FFu) * (256 - f) + ((b >> 8) & 0x00FF00FFu) * f) >> 8) & 0x00FF00FFu;
    return rb | (ga << 8);
}

std::uint32_t Shade(std::uint32_t pixel, std::uint32_t shade)
{
    const std::uint32_t rb = (((pixel & 0x00FF00FFu) * shade) >> 8) & 0x00FF00FFu;
    const std::uint32_t ga = ((((pixel >> 8) & 0x00FF00FFu) * shade) >> 8) & 0x00FF00FFu;
    return rb | (ga << 8);
}

// A texture coordinate as a texel position in 1/65536 texel (texel centres at whole texels), held to a
// range in which the steps along a span cannot overflow.
std::int64_t TexelPosition(double coordinate)
{
    constexpr double kLimit = 1099511627776.0; // 2^40
    const double t = (coordinate * kTextureSize - 0.5) * 65536 + 0.5;
    if (!(t > -kLimit))
        return -static_cast<std::int64_t>(kLimit);
    if (!(t < kLimit))
        return static_cast<std::int64_t>(kLimit);
    return static_cast<std::int64_t>(std::floor(t));
}

// Pixels between exact perspective divisions: texture positions are stepped linearly in between, which
// stays within a fraction of a texel of the exact place for any face the scenes draw.
constexpr int kSpan = 16;

} // namespace

// Draws `count` pixels of a span: the texture sampled bilinearly at positions stepping from (tu, tv) by
// (du, dv), down the texture first and then across, each colour multiplied by shade / 256. The SSE2 form
// gives the same bytes.
void SampleSpanPortable(const std::uint32_t* texels, std::int64_t tu, std::int64_t tv, std::int64_t du,
                        std::int64_t dv, int count, std::uint32_t shade, std::uint8_t* out)
{
    for (int k = 0; k < count; ++k, tu += du, tv += dv, out += 4) {
        const std::int32_t fu = ClampTexel(tu);
        const std::int32_t fv = ClampTexel(tv);
        const std::uint32_t* at = texels + static_cast<std::size_t>(fv >> 16) * kTexelStride + (fu >> 16);
        const auto fx = static_cast<std::uint32_t>(fu >> 8 & 255);
        const auto fy = static_cast<std::uint32_t>(fv >> 8 & 255);
        const std::uint32_t left = Lerp(at[0], at[kTexelStride], fy);
        const std::uint32_t right = Lerp(at[1], at[kTexelStride + 1], fy);
        std::uint32_t pixel = Lerp(left, right, fx);
        if (shade < 256)
            pixel = Shade(pixel, shade);
        std::memcpy(out, &pixel, 4);
    }
}

namespace {

using SpanSampler = void (*)(const std::uint32_t*, std::int64_t, std::int64_t, std::int64_t, std::int64_t,
                             int, std::uint32_t, std::uint8_t*);

SpanSampler ChooseSampler()
{
#if defined(__SSE2__)
    if (platform::Simd().sse2)
        return &SampleSpanSse2;
#endif
    return &SampleSpanPortable;
}

void DrawPolygon(const Canvas& canvas, const Camera& camera, const Texture& texture, const Vertex* corners,
                 int count, int shade)
{
    Vertex clipped[kMaxCorners];
    for (int i = 0; i < count; ++i) {
        const Vertex& c = corners[i];
        if (!std::isfinite(c.p.x) || !std::isfinite(c.p.y) || !std::isfinite(c.p.z) || !std::isfinite(c.u) ||
            !std::isfinite(c.v))
            return;
    }
    const int n = ClipNear(corners, count, clipped);
    if (n < 3)
        return;
    Projected p[kMaxCorners];
    double minY = 1e300, maxY = -1e300;
    for (int i = 0; i < n; ++i) {
        const double q = 1.0 / clipped[i].p.z;
        p[i] = {camera.centreX + camera.focal * clipped[i].p.x * q,
                camera.centreY - camera.focal * clipped[i].p.y * q, q, clipped[i].u * q, clipped[i].v * q};
        minY = std::min(minY, p[i].y);
        maxY = std::max(maxY, p[i].y);
    }
    // Orientation: inside is where every edge function is positive.
    double area = 0;
    for (int i = 0; i < n; ++i) {
        const Projected& a = p[i];
        const Projected& b = p[(i + 1) % n];
        area += a.x * b.y - b.x * a.y;
    }
    if (!(std::abs(area) > 1e-9) || !std::isfinite(area))
        return;
    if (area < 0)
        std::reverse(p, p + n);
    // The linear functions of the picture position, from the corner triple that spans the most area.
    int best = 1;
    double bestArea = 0;
    for (int i = 1; i + 1 < n; ++i) {
        const double a =
            (p[i].x - p[0].x) * (p[i + 1].y - p[0].y) - (p[i + 1].x - p[0].x) * (p[i].y - p[0].y);
        if (std::abs(a) > bestArea) {
            bestArea = std::abs(a);
            best = i;
        }
    }
    const Projected& p0 = p[0];
    const Projected& p1 = p[best];
    const Projected& p2 = p[best + 1];
    const double dx1 = p1.x - p0.x, dy1 = p1.y - p0.y, dx2 = p2.x - p0.x, dy2 = p2.y - p0.y;
    const double det = dx1 * dy2 - dx2 * dy1;
    if (!(std::abs(det) > 1e-12))
        return;
    auto gradient = [&](double a0, double a1, double a2, double& ax, double& ay) {
        ax = ((a1 - a0) * dy2 - (a2 - a0) * dy1) / det;
        ay = ((a2 - a0) * dx1 - (a1 - a0) * dx2) / det;
    };
    double qx, qy, ux, uy, vx, vy;
    gradient(p0.q, p1.q, p2.q, qx, qy);
    gradient(p0.uq, p1.uq, p2.uq, ux, uy);
    gradient(p0.vq, p1.vq, p2.vq, vx, vy);

    const int firstRow =
        static_cast<int>(std::clamp(std::ceil(minY - 0.5), 0.0, static_cast<double>(canvas.height)));
    const int endRow =
        static_cast<int>(std::clamp(std::ceil(maxY - 0.5), 0.0, static_cast<double>(canvas.height)));
    const std::uint32_t* texels = texture.texels.data();
    const SpanSampler sample = ChooseSampler();
    for (int y = firstRow; y < endRow; ++y) {
        const double yc = y + 0.5;
        double left = 0, right = canvas.width;
        bool empty = false;
        for (int i = 0; i < n && !empty; ++i) {
            const Projected& a = p[i];
            const Projected& b = p[(i + 1) % n];
            const double dy = b.y - a.y;
            if (dy == 0) {
                // A level edge: the row is inside when on its inner side; a row exactly on it belongs to
                // the face it runs left to right along.
                const double e = (b.x - a.x) * (yc - a.y);
                empty = e < 0 || (e == 0 && b.x - a.x <= 0);
                continue;
            }
            const double x = CrossingAt(a, b, yc);
            if (dy > 0)
                right = std::min(right, x);
            else
                left = std::max(left, x);
        }
        if (empty || !(left < right))
            continue;
        const int xs =
            static_cast<int>(std::clamp(std::ceil(left - 0.5), 0.0, static_cast<double>(canvas.width)));
        const int xe =
            static_cast<int>(std::clamp(std::ceil(right - 0.5), 0.0, static_cast<double>(canvas.width)));
        const double oy = yc - p0.y;
        const double qRow = p0.q + qy * oy;
        const double uRow = p0.uq + uy * oy;
        const double vRow = p0.vq + vy * oy;
        std::uint8_t* out = canvas.pixels + static_cast<std::size_t>(canvas.height - 1 - y) *
                                                static_cast<std::size_t>(canvas.width) * 4;
        // The exact texture position at a pixel's centre (inside the face the depth is positive; the
        // floor only guards rounding at a cut edge).
        auto exact = [&](int x, std::int64_t& tu, std::int64_t& tv) {
            const double ox = x + 0.5 - p0.x;
            const double depth = 1.0 / std::max(qRow + qx * ox, 1e-12);
            tu = TexelPosition((uRow + ux * ox) * depth);
            tv = TexelPosition((vRow + vx * ox) * depth);
        };
        for (int x0 = xs; x0 < xe; x0 += kSpan) {
            const int count = std::min(kSpan, xe - x0);
            std::int64_t tu = 0, tv = 0, endU = 0, endV = 0;
            exact(x0, tu, tv);
            exact(x0 + count - 1, endU, endV);
            // Whole spans divide by a constant, which the compiler turns into a multiplication.
            const std::int64_t du = count == kSpan ? (endU - tu) / (kSpan - 1)
                                    : count > 1    ? (endU - tu) / (count - 1)
                                                   : 0;
            const std::int64_t dv = count == kSpan ? (endV - tv) / (kSpan - 1)
                                    : count > 1    ? (endV - tv) / (count - 1)
                                                   : 0;
            sample(texels, tu, tv, du, dv, count, static_cast<std::uint32_t>(shade),
                   out + static_cast<std::size_t>(x0) * 4);
        }
    }
}

Vec3 Minus(const Vec3& a, const Vec3& b)
{
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}

Vec3 Cross(const Vec3& a, const Vec3& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

double Dot(const Vec3& a, const Vec3& b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

} // namespace

void DrawTriangle(const Canvas& canvas, const Camera& camera, const Texture& texture, const Vertex& a,
                  const Vertex& b, const Vertex& c, int shade)
{
    if (canvas.pixels == nullptr || canvas.width <= 0 || canvas.height <= 0 || texture.Empty())
        return;
    const Vertex corners[3] = {a, b, c};
    DrawPolygon(canvas, camera, texture, corners, 3, std::clamp(shade, 0, 256));
}

void DrawFace(const Canvas& canvas, const Camera& camera, const Texture& texture, const Vertex* corners,
              int count, int shade)
{
    if (canvas.pixels == nullptr || canvas.width <= 0 || canvas.height <= 0 || texture.Empty() ||
        corners == nullptr || count < 3 || count > kMaxFaceCorners)
        return;
    DrawPolygon(canvas, camera, texture, corners, count, std::clamp(shade, 0, 256));
}

int ShadeFor(double facing)
{
    const double f = std::isfinite(facing) ? std::min(std::abs(facing), 1.0) : 0.0;
    return static_cast<int>(std::lround(96 + 160 * f));
}

bool DrawCard(const Canvas& canvas, const Camera& camera, const Card& card)
{
    const auto& k = card.corners;
    const Vec3 normal = Cross(Minus(k[1].p, k[0].p), Minus(k[3].p, k[0].p));
    const Vec3 centre = {(k[0].p.x + k[1].p.x + k[2].p.x + k[3].p.x) / 4,
                         (k[0].p.y + k[1].p.y + k[2].p.y + k[3].p.y) / 4,
                         (k[0].p.z + k[1].p.z + k[2].p.z + k[3].p.z) / 4};
    const double side = Dot(normal, centre);
    const double lengths = std::sqrt(Dot(normal, normal) * Dot(centre, centre));
    if (side == 0 || !(lengths > 0))
        return false;
    const bool front = side > 0;
    const Texture* texture = front ? card.front : card.back;
    if (texture == nullptr || texture->Empty() || canvas.pixels == nullptr || canvas.width <= 0 ||
        canvas.height <= 0)
        return front;
    Vertex corners[4] = {k[0], k[1], k[2], k[3]};
    if (!front) {
        for (std::size_t i = 0; i < 4; ++i) {
            corners[i].u = card.backUv[i][0];
            corners[i].v = card.backUv[i][1];
        }
    }
    DrawPolygon(canvas, camera, *texture, corners, 4, ShadeFor(side / lengths));
    return front;
}

void Clear(const Canvas& canvas)
{
    if (canvas.pixels != nullptr && canvas.width > 0 && canvas.height > 0)
        std::memset(canvas.pixels, 0,
                    static_cast<std::size_t>(canvas.width) * static_cast<std::size_t>(canvas.height) * 4);
}

} // namespace lumenar::effects::render3d
