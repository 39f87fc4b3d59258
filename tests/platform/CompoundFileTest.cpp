#include "platform/CompoundFile.h"

#include "tests/support/FilmWriter.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>

namespace lumenar::platform {
namespace {

using testing::Bytes;
using testing::Node;

std::vector<Node> SampleTree()
{
    return {Node::Stream("Alpha", Bytes{1, 2, 3, 4, 5}),
            Node::Storage("Folder", {Node::Stream("Inner", Bytes(5000, 7)), Node::Storage("Empty", {})}),
            Node::Stream("Zero", {})};
}

TEST(CompoundFile, ReadsWithCaseFreeNamesWhereKindAndNameMatch)
{
    auto root = CompoundStorage::OpenMemory(testing::WriteCompoundFile(SampleTree()));
    ASSERT_TRUE(root.ok()) << root.error().message;
    auto elements = (*root)->Elements();
    ASSERT_TRUE(elements.ok());
    ASSERT_EQ(elements->size(), 3u);
    int storages = 0;
    for (const auto& element : *elements)
        storages += element.kind == ElementKind::Storage;
    EXPECT_EQ(storages, 1);

    struct Row
    {
        const char* name;
        std::size_t maxBytes;
        std::size_t expectedSize;
    } rows[] = {{"ALPHA", 4, 4}, {"alpha", 516, 5}, {"Zero", 4, 0}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto bytes = (*root)->ReadStream(row.name, row.maxBytes);
        ASSERT_TRUE(bytes.ok()) << bytes.error().message;
        EXPECT_EQ(bytes->size(), row.expectedSize);
        if (!bytes->empty()) {
            EXPECT_EQ((*bytes)[0], 1);
        }
    }

    auto folder = (*root)->OpenStorage("FOLDER");
    ASSERT_TRUE(folder.ok());
    auto inner = (*folder)->ReadStream("inner", 6000);
    ASSERT_TRUE(inner.ok());
    EXPECT_EQ(*inner, Bytes(5000, 7));
    EXPECT_TRUE((*folder)->OpenStorage("empty").ok());

    EXPECT_EQ((*root)->OpenStorage("Alpha").error().code, base::ErrorCode::NotFound);
    EXPECT_EQ((*root)->ReadStream("Folder", 4).error().code, base::ErrorCode::NotFound);
    EXPECT_EQ((*root)->ReadStream("Missing", 4).error().code, base::ErrorCode::NotFound);
    EXPECT_EQ((*root)->OpenStorage("Alph").error().code, base::ErrorCode::NotFound);
    const Bytes text = {'h', 'e', 'l', 'l', 'o'};
    EXPECT_FALSE(CompoundStorage::Sniff(text));
    EXPECT_EQ(CompoundStorage::OpenMemory(text).error().code, base::ErrorCode::BadData);
    EXPECT_EQ(CompoundStorage::OpenFile("/nonexistent/film.flm").error().code, base::ErrorCode::NotFound);
    EXPECT_TRUE(CompoundStorage::Sniff(testing::WriteCompoundFile(SampleTree())));
}

// Little-endian words of a file in memory, for the damage below.
std::uint32_t WordAt(const Bytes& bytes, std::size_t at)
{
    return bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 |
           static_cast<std::uint32_t>(bytes[at + 3]) << 24;
}
void SetWord(Bytes& bytes, std::size_t at, std::uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

TEST(CompoundFile, DamagedTablesFailOrEndInsteadOfLooping)
{
    const Bytes good = testing::WriteCompoundFile(SampleTree());
    // 512-byte sectors: sector n starts at (n + 1) * 512; the header names the directory's first sector
    // (offset 48) and the first sector of the allocation table (offset 76).
    const std::uint32_t directory = WordAt(good, 48);
    const std::size_t entries = (directory + 1) * 512;
    const std::size_t fat = (WordAt(good, 76) + 1) * 512;
    const std::uint32_t firstChild = WordAt(good, entries + 76);
    struct Row
    {
        const char* name;
        std::function<void(Bytes&)> damage;
        bool opens;
    } rows[] = {
        {"a child is its own sibling",
         [&](Bytes& b) {
             SetWord(b, entries + firstChild * 128 + 68, firstChild);
             SetWord(b, entries + firstChild * 128 + 72, firstChild);
         },
         true},
        {"a storage is its own child", [&](Bytes& b) { SetWord(b, entries + 76, 0); }, true},
        {"the directory's chain loops", [&](Bytes& b) { SetWord(b, fat + 4 * directory, directory); }, true},
        {"the directory lies past the end", [&](Bytes& b) { SetWord(b, 48, 100000); }, false},
        {"huge sectors", [&](Bytes& b) { b[30] = 30; }, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Bytes damaged = good;
        row.damage(damaged);
        auto root = CompoundStorage::OpenMemory(damaged);
        EXPECT_EQ(root.ok(), row.opens);
        if (root.ok()) {
            auto elements = (*root)->Elements();
            ASSERT_TRUE(elements.ok());
            EXPECT_LE(elements->size(), 3u);
        }
    }
    // Every prefix of a good file fails cleanly or reads.
    for (std::size_t cut = 0; cut < good.size(); cut += 97)
        if (auto root = CompoundStorage::OpenMemory(std::span(good).first(cut)); root.ok())
            (void)(*root)->ReadStream("Alpha", 16);
}

TEST(CompoundFile, FileIsHeldExclusivelyWhileOpenAndWhenKept)
{
    const std::string path = testing::TempPath("locked.flm");
    testing::WriteCompoundFileTo(path, SampleTree());
    {
        auto first = CompoundStorage::OpenFile(path);
        ASSERT_TRUE(first.ok()) << first.error().message;
        EXPECT_EQ(CompoundStorage::OpenFile(path).error().code, base::ErrorCode::Io);
    }
    auto again = CompoundStorage::OpenFile(path);
    ASSERT_TRUE(again.ok());
    CompoundStorage::KeepOpenUntilExit(std::move(again).value());
    EXPECT_FALSE(CompoundStorage::OpenFile(path).ok());
    std::remove(path.c_str());
}

} // namespace
} // namespace lumenar::platform
