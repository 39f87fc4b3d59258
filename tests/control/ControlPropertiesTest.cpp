#include "control/ControlProperties.h"

#include <gtest/gtest.h>

#include <map>

namespace lumenar::control {
namespace {

class MapBag : public PropertyBag
{
public:
    std::optional<std::string> Read(std::string_view name) override
    {
        auto it = values.find(std::string(name));
        return it == values.end() ? std::nullopt : std::optional<std::string>(it->second);
    }
    base::Status Write(std::string_view name, std::string_view value) override
    {
        order.emplace_back(name);
        values[std::string(name)] = std::string(value);
        return {};
    }
    std::map<std::string, std::string> values;
    std::vector<std::string> order;
};

const ControlProperties kSample{21166, 15875, 0x80000005u, 0x00FF8040u, "films/../my film.flm"};

TEST(ControlProperties, BagRoundTripKeepsTheWrittenOrder)
{
    MapBag bag;
    ASSERT_TRUE(SaveToBag(kSample, bag).ok());
    EXPECT_EQ(bag.order, (std::vector<std::string>{"_cx", "_cy", "BackColor", "FillColor", "File"}));
    auto loaded = LoadFromBag(bag, {});
    ASSERT_TRUE(loaded.ok()) << loaded.error().message;
    EXPECT_EQ(*loaded, kSample);
}

TEST(ControlProperties, BagValuesAsPagesWriteThem)
{
    struct Row
    {
        const char* name;
        std::map<std::string, std::string> values;
        bool ok;
        ControlProperties expected;
    } rows[] = {
        {"only File", {{"File", "a.flm"}}, true, {1, 2, 3, 4, "a.flm"}},
        {"hex forms",
         {{"BackColor", "0xFF"}, {"FillColor", "&H8000000F&"}},
         true,
         {1, 2, 0xFF, 0x8000000Fu, "old"}},
        {"html colour is red first", {{"BackColor", "#102030"}}, true, {1, 2, 0x302010, 4, "old"}},
        {"spaces around numbers", {{"_cx", " 42 "}}, true, {42, 2, 3, 4, "old"}},
        {"largest number", {{"_cy", "4294967295"}}, true, {1, 0xFFFFFFFFu, 3, 4, "old"}},
        {"number too large", {{"_cy", "4294967296"}}, false, {}},
        {"not a number", {{"BackColor", "red"}}, false, {}},
        {"negative", {{"_cx", "-1"}}, false, {}},
        {"empty number", {{"FillColor", ""}}, false, {}},
        {"short html colour", {{"BackColor", "#FFF"}}, false, {}},
        {"File past the cap", {{"File", std::string(kMaxFileBytes + 1, 'a')}}, false, {}},
    };
    const ControlProperties current{1, 2, 3, 4, "old"};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        MapBag bag;
        bag.values = row.values;
        auto loaded = LoadFromBag(bag, current);
        ASSERT_EQ(loaded.ok(), row.ok);
        if (row.ok)
            EXPECT_EQ(*loaded, row.expected);
        else
            EXPECT_FALSE(loaded.error().message.empty());
    }
}

TEST(ControlProperties, StreamRoundTripLayoutAndTruncation)
{
    const auto bytes = SaveToStream(kSample);
    // Tag, version 1, five records; the first is _cx as a number.
    ASSERT_GE(bytes.size(), 17u);
    EXPECT_EQ(std::vector<std::uint8_t>(bytes.begin(), bytes.begin() + 13),
              (std::vector<std::uint8_t>{'L', 'M', 'S', 'Q', 1, 0, 5, 0, 1, 3, '_', 'c', 'x'}));
    EXPECT_EQ(bytes[13] | bytes[14] << 8, 21166);
    auto loaded = LoadFromStream(bytes);
    ASSERT_TRUE(loaded.ok()) << loaded.error().message;
    EXPECT_EQ(*loaded, kSample);
    // Every prefix fails cleanly.
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        SCOPED_TRACE(size);
        EXPECT_FALSE(LoadFromStream(std::span(bytes).first(size)).ok());
    }
}

std::vector<std::uint8_t> Stream(std::initializer_list<std::vector<std::uint8_t>> parts)
{
    std::vector<std::uint8_t> out{'L', 'M', 'S', 'Q', 1, 0};
    for (const auto& part : parts)
        out.insert(out.end(), part.begin(), part.end());
    return out;
}

std::vector<std::uint8_t> Number(const std::string& name, std::uint32_t value)
{
    std::vector<std::uint8_t> out{1, static_cast<std::uint8_t>(name.size())};
    out.insert(out.end(), name.begin(), name.end());
    for (int i = 0; i < 4; ++i)
        out.push_back((value >> (8 * i)) & 0xFF);
    return out;
}

std::vector<std::uint8_t> Text(const std::string& name, const std::string& text, std::uint32_t declared)
{
    std::vector<std::uint8_t> out{2, static_cast<std::uint8_t>(name.size())};
    out.insert(out.end(), name.begin(), name.end());
    for (int i = 0; i < 4; ++i)
        out.push_back((declared >> (8 * i)) & 0xFF);
    out.insert(out.end(), text.begin(), text.end());
    return out;
}

TEST(ControlProperties, HostileStreams)
{
    const auto all = [](std::vector<std::uint8_t> extra, std::uint8_t count) {
        return Stream({{count, 0},
                       Number("_cx", 1),
                       Number("_cy", 2),
                       Number("BackColor", 3),
                       Number("FillColor", 4),
                       Text("File", "f", 1),
                       extra});
    };
    struct Row
    {
        const char* name;
        std::vector<std::uint8_t> bytes;
        bool ok;
    } rows[] = {
        {"well formed", all({}, 5), true},
        {"unknown number is skipped", all(Number("Zoom", 9), 6), true},
        {"unknown text is skipped", all(Text("Title", "x", 1), 6), true},
        {"File as a number", Stream({{1, 0}, Number("File", 7)}), false},
        {"colour as text", Stream({{1, 0}, Text("BackColor", "red", 3)}), false},
        {"huge text length", Stream({{1, 0}, Text("File", "abc", 0xFFFFFFF0u)}), false},
        {"text longer than the cap", Stream({{1, 0}, Text("File", "", kMaxFileBytes + 1)}), false},
        {"unknown value type", Stream({{1, 0}, {7, 3, '_', 'c', 'x', 0, 0, 0, 0}}), false},
        {"empty name", Stream({{1, 0}, {1, 0, 0, 0, 0, 0}}), false},
        {"more records than bytes", all({}, 6), false},
        {"too many records", Stream({{0xFF, 0xFF}}), false},
        {"missing File",
         Stream({{4, 0}, Number("_cx", 1), Number("_cy", 2), Number("BackColor", 3), Number("FillColor", 4)}),
         false},
        {"wrong version", {'L', 'M', 'S', 'Q', 2, 0, 0, 0}, false},
        {"wrong tag", {'X', 'M', 'S', 'Q', 1, 0, 0, 0}, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto loaded = LoadFromStream(row.bytes);
        EXPECT_EQ(loaded.ok(), row.ok) << (loaded.ok() ? "" : loaded.error().message);
        if (row.ok) {
            EXPECT_EQ(*loaded, (ControlProperties{1, 2, 3, 4, "f"}));
        }
    }
}

} // namespace
} // namespace lumenar::control
