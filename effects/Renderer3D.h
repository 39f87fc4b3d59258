#pragma once

// A small software renderer for the transitions that show the pictures as cards in space: affine
// transforms, a perspective camera, pictures resampled into square textures, and textured triangles
// with perspective-correct coordinates, bilinear sampling, near-plane clipping and flat shading.
// Everything is computed the same way on every run and build (no fast arithmetic, no threads), so a
// frame's bytes depend on its inputs alone. Internal to effects/.
#include <array>
#include <cstdint>
#include <vector>

namespace lumenar::effects::render3d {

struct Vec3
{
    double x = 0;
    double y = 0;
    double z = 0;
};

/// A 4 × 4 transform of points, row-major, acting on column vectors (x, y, z, 1).
struct Mat4
{
    std::array<double, 16> m{};

    static Mat4 Identity();
    static Mat4 Translate(double x, double y, double z);
    static Mat4 Scale(double x, double y, double z);
    /// Turns by `radians` about an axis through the origin; positive turns carry +y towards +z (X),
    /// +z towards +x (Y), +x towards +y (Z).
    static Mat4 RotateX(double radians);
    static Mat4 RotateY(double radians);
    static Mat4 RotateZ(double radians);

    /// This transform after `other`: (A × B) p = A (B p).
    Mat4 operator*(const Mat4& other) const;
    Vec3 Apply(const Vec3& p) const;
};

/// Texels per side of a texture.
inline constexpr int kTextureSize = 512;
/// Texels per stored row (and stored rows): one more than the texture's side, the extra column and row
/// repeating the last ones, so that every sample's right and lower neighbours exist.
inline constexpr int kTexelStride = kTextureSize + 1;

/// A picture resampled to kTextureSize × kTextureSize texels (32-bit, blue in the low byte as in the
/// pictures), top row first, rows kTexelStride apart: texture coordinates (u, v) run from (0, 0) at the
/// picture's top-left corner to (1, 1) at its bottom-right.
struct Texture
{
    std::vector<std::uint32_t> texels;
    bool Empty() const { return texels.empty(); }
    std::uint32_t At(int x, int y) const
    {
        return texels[static_cast<std::size_t>(y) * kTexelStride + static_cast<std::size_t>(x)];
    }
};

/// Resamples a picture (rows of `width` 32-bit pixels, bottom row first) into a texture with a tent
/// filter as wide as the reduction, so that pictures larger than the texture do not alias. A picture
/// of exactly the texture's size is copied unchanged. Empty for a picture without pixels.
Texture MakeTexture(const std::uint8_t* picture, int width, int height);

/// Where the eye is and what it sees. The eye is at the origin looking along +z, with +y up and +x to
/// the right; a point (x, y, z) lands on the picture at column centreX + focal × x / z and at row
/// (counted from the top) centreY − focal × y / z. Pixels are square.
struct Camera
{
    int width = 0;
    int height = 0;
    double focal = 1;
    double centreX = 0;
    double centreY = 0;

    /// The camera for a picture of width × height in which a card `halfHeight` high above and below
    /// the axis, `distance` in front of the eye and as wide as the picture's proportions, fills the
    /// picture exactly.
    static Camera Filling(int width, int height, double halfHeight, double distance);
};

/// The picture drawn into: 32-bit pixels, `width` per row, bottom row first.
struct Canvas
{
    std::uint8_t* pixels = nullptr;
    int width = 0;
    int height = 0;
};

/// One corner of a triangle: where it is relative to the eye, and which texture point it shows.
struct Vertex
{
    Vec3 p;
    double u = 0;
    double v = 0;
};

/// Points nearer the eye than this are cut away before projection.
inline constexpr double kNearPlane = 1.0 / 1024;

/// Draws a triangle over the canvas with `texture`, each texel's colour multiplied by `shade` / 256
/// (0..256). Covers the pixels whose centres lie inside the projected triangle (a centre on a left or
/// top edge is inside, on a right or bottom edge outside, so triangles sharing an edge cover each pixel
/// once); the parts nearer than kNearPlane are cut away first. Either winding is drawn.
void DrawTriangle(const Canvas& canvas, const Camera& camera, const Texture& texture, const Vertex& a,
                  const Vertex& b, const Vertex& c, int shade);

/// Draws a flat convex polygon of up to kMaxFaceCorners corners (in order around it, either winding) as
/// DrawTriangle draws a triangle: one set-up and one pass down the rows for the whole face, where a fan
/// of triangles would pay both per triangle. Fewer than 3 or more than kMaxFaceCorners corners draw
/// nothing.
inline constexpr int kMaxFaceCorners = 6;
void DrawFace(const Canvas& canvas, const Camera& camera, const Texture& texture, const Vertex* corners,
              int count, int shade);

/// A flat four-cornered face with a texture on each side, corners in order around it (a, b, c, d,
/// with texture points for the front). The front is the side from which a, b, c, d run anticlockwise
/// on the picture; the back shows `back` at the texture points `backUv` (the front's mirrored as the
/// scene needs). The side towards the eye is drawn, darker the more it turns away from the eye.
struct Card
{
    std::array<Vertex, 4> corners;
    std::array<std::array<double, 2>, 4> backUv{};
    const Texture* front = nullptr;
    const Texture* back = nullptr;
};

/// The shade of a face whose normal makes an angle with the line of sight of cosine `facing` (taken
/// as its absolute value): 256 facing the eye, down to 96 edge-on.
int ShadeFor(double facing);

/// Draws the side of the card that faces the eye (nothing when it is seen exactly edge-on or the
/// side's texture is missing). Returns true when the front was the side drawn.
bool DrawCard(const Canvas& canvas, const Camera& camera, const Card& card);

/// A texel position in 1/65536 texel, clamped so that the sample and its right or lower neighbour both
/// lie in the texture.
inline std::int32_t ClampTexel(std::int64_t position)
{
    constexpr std::int64_t kLast = std::int64_t{kTextureSize - 1} << 16;
    return static_cast<std::int32_t>(position < 0 ? 0 : position > kLast ? kLast : position);
}

/// The rasteriser's inner loop: draws `count` pixels sampling the texels bilinearly (down, then across) at
/// positions in 1/65536 texel stepping from (tu, tv) by (du, dv), clamped into the texture, each colour
/// multiplied by shade / 256. The SSE2 form (where it is built, SampleSpanSse2Built) gives the same bytes.
void SampleSpanPortable(const std::uint32_t* texels, std::int64_t tu, std::int64_t tv, std::int64_t du,
                        std::int64_t dv, int count, std::uint32_t shade, std::uint8_t* out);
bool SampleSpanSse2Built();
void SampleSpanSse2(const std::uint32_t* texels, std::int64_t tu, std::int64_t tv, std::int64_t du,
                    std::int64_t dv, int count, std::uint32_t shade, std::uint8_t* out);

/// Fills the canvas with black (fourth byte 0).
void Clear(const Canvas& canvas);

} // namespace lumenar::effects::render3d
