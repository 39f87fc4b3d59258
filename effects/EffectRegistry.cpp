#include "effects/EffectRegistry.h"

#include "base/StrCat.h"
#include "effects/Random.h"
#include "platform/MessageBox.h"
#include "platform/ProgramFiles.h"
#include "platform/ReportBox.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <cctype>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace lumenar::effects {

namespace {

constexpr std::size_t kNameBytes = 129;
constexpr std::size_t kDescriptionBytes = 513;
constexpr int kAllRows = kPictureTableRows + kTextTableRows;

// Guards the shared rows' mutable fields (names, active flags, the random rows), the buffers and the
// instance count. Never held while a procedure runs.
std::mutex tablesLock;
int instanceCount = 0;
std::unique_ptr<char[]> nameBuffers;
std::unique_ptr<char[]> descriptionBuffers;

std::atomic<bool> seedFixed{false};
std::atomic<std::uint32_t> fixedSeed{0};
std::mutex namesFileLock; // Guards NamesFileOverride().
std::string& NamesFileOverride()
{
    static std::string path;
    return path;
}

EffectEntry* Table(int table)
{
    return table == kPictureTable ? PictureEffectTable() : TextEffectTable();
}

// Copies a drawn row's procedure into the table's last row (its name and flag stay its own).
void FillRandomRow(EffectEntry* table, int rows)
{
    const int drawn = Rand() % (rows - 1);
    EffectEntry& last = table[rows - 1];
    last.proc = table[drawn].proc;
    last.direction = table[drawn].direction;
    last.variant = table[drawn].variant;
}

std::string NamesFilePath()
{
    {
        std::lock_guard<std::mutex> hold(namesFileLock);
        if (!NamesFileOverride().empty())
            return NamesFileOverride();
    }
    if (const char* env = std::getenv("LUMENAR_EFFECT_NAMES"); env != nullptr && *env != '\0')
        return env;
    return platform::ProgramDirectory() + "/effect-names.txt";
}

// Reads "id<TAB>text" lines; empty when the file cannot be opened.
std::optional<std::map<std::uint32_t, std::string>> ReadNames(const std::string& path)
{
    std::ifstream in(path);
    if (!in)
        return std::nullopt;
    std::map<std::uint32_t, std::string> names;
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        const auto tab = line.find('\t');
        if (line.empty() || line[0] == '#' || tab == std::string::npos)
            continue;
        char* end = nullptr;
        const unsigned long id = std::strtoul(line.c_str(), &end, 10);
        if (end != line.c_str() + tab)
            continue;
        names[static_cast<std::uint32_t>(id)] = line.substr(tab + 1);
    }
    return names;
}

// Copies at most size − 1 bytes and a terminator, as a string-resource load does.
void CopyBounded(char* buffer, std::size_t size, const std::string& text)
{
    const std::size_t length = std::min(size - 1, text.size());
    std::memcpy(buffer, text.data(), length);
    buffer[length] = '\0';
}

} // namespace

EffectRegistry::EffectRegistry()
{
    std::lock_guard<std::mutex> hold(tablesLock);
    if (instanceCount++ == 0) {
        nameBuffers = std::make_unique<char[]>(kNameBytes * kAllRows);
        descriptionBuffers = std::make_unique<char[]>(kDescriptionBytes * kAllRows);
        EffectEntry* rows = PictureEffectTable();
        for (int i = 0; i < kAllRows; ++i) {
            rows[i].name = nameBuffers.get() + kNameBytes * static_cast<std::size_t>(i);
            rows[i].description = descriptionBuffers.get() + kDescriptionBytes * static_cast<std::size_t>(i);
        }
    }
    EffectEntry* rows = PictureEffectTable();
    for (int i = 0; i < kAllRows; ++i)
        rows[i].active = 0;
    SeedRandom(seedFixed.load() ? fixedSeed.load() : static_cast<std::uint32_t>(std::time(nullptr)));
    FillRandomRow(PictureEffectTable(), kPictureTableRows);
    FillRandomRow(TextEffectTable(), kTextTableRows);
}

EffectRegistry::~EffectRegistry()
{
    std::lock_guard<std::mutex> hold(tablesLock);
    if (--instanceCount == 0) {
        EffectEntry* rows = PictureEffectTable();
        for (int i = 0; i < kAllRows; ++i) {
            rows[i].name = nullptr;
            rows[i].description = nullptr;
        }
        nameBuffers.reset();
        descriptionBuffers.reset();
    }
}

int EffectRegistry::LoadNames(int table, bool load)
{
    if (table != kPictureTable && table != kTextTable)
        return 0;
    const int count = table == kPictureTable ? pictureCount_ : textCount_;
    if (!load)
        return count;
    const auto names = ReadNames(NamesFilePath());
    if (!names) {
        platform::ReportBox(nullptr, platform::kBoxOk, 0, nullptr, 0, "Internal Error: vorbel.dll Missed");
        return 0;
    }
    std::lock_guard<std::mutex> hold(tablesLock);
    EffectEntry* rows = Table(table);
    int untitled = 0;
    for (int i = 0; i < count; ++i) {
        EffectEntry& row = rows[i];
        if (row.nameId == 0) {
            std::snprintf(row.name, kNameBytes, "Untitled FX #%d", untitled++);
        } else {
            const auto found = names->find(row.nameId);
            CopyBounded(row.name, 128, found != names->end() ? found->second : std::string());
        }
        if (row.descriptionId == 0) {
            std::strcpy(row.description, "Missed description!");
        } else {
            const auto found = names->find(row.descriptionId);
            CopyBounded(row.description, 512, found != names->end() ? found->second : std::string());
        }
    }
    return count;
}

int EffectRegistry::GetInfo(int index, int table, EffectInfo* info) const
{
    if (table != kPictureTable && table != kTextTable)
        return 0;
    const int count = table == kPictureTable ? pictureCount_ : textCount_;
    index = std::clamp(index, 0, count);
    std::lock_guard<std::mutex> hold(tablesLock);
    const EffectEntry& row = Table(table)[index];
    // The empty row past the text table has no buffers: it reads as empty.
    if (info->mask & 1)
        std::strncpy(info->name, row.name != nullptr ? row.name : "", sizeof info->name);
    if (info->mask & 2)
        std::strncpy(info->description, row.description != nullptr ? row.description : "",
                     sizeof info->description);
    return 1;
}

int EffectRegistry::First(int table)
{
    if (table == kPictureTable)
        return pictureCursor_ = 0;
    if (table == kTextTable)
        return textCursor_ = 0;
    return -1;
}

int EffectRegistry::Next(int table)
{
    int* cursor = table == kPictureTable ? &pictureCursor_ : table == kTextTable ? &textCursor_ : nullptr;
    if (cursor == nullptr)
        return -1;
    const int count = table == kPictureTable ? pictureCount_ : textCount_;
    if (*cursor >= count - 1)
        return -1;
    return ++*cursor;
}

std::int32_t EffectRegistry::RunPicture(int index, std::uint32_t message, const EffectParams* params)
{
    index = std::clamp(index, 0, pictureCount_ - 1);
    EffectParams block{};
    if (params != nullptr) {
        block.size = 64;
        block.source = params->source;
        block.target = params->target;
        block.output = params->output;
        block.width = params->width;
        block.height = params->height;
        block.progressNum = params->progressNum;
        block.progressDen = params->progressDen;
    }
    EffectProc proc;
    {
        std::lock_guard<std::mutex> hold(tablesLock);
        EffectEntry& row = PictureEffectTable()[index];
        block.direction = static_cast<std::uint16_t>(row.direction);
        block.variant = row.variant;
        if (message == EffectInit) {
            if (row.active)
                return 0;
            row.active = 1;
        } else if (message == EffectRelease) {
            if (!row.active)
                return 0;
            row.active = 0;
        }
        proc = row.proc;
    }
    const std::int32_t result = proc != nullptr ? proc(message, &block) : 0;
    if (message == EffectRelease && index == pictureCount_ - 1) {
        std::lock_guard<std::mutex> hold(tablesLock);
        FillRandomRow(PictureEffectTable(), kPictureTableRows);
    }
    return result;
}

std::int32_t EffectRegistry::RunText(int index, std::uint32_t message, const TextEffectParams& params)
{
    index = std::clamp(index, 0, textCount_ - 1);
    TextEffectParams block{};
    block.size = 64;
    block.dc = params.dc;
    block.dcBits = params.dcBits;
    block.text = params.text;
    block.glyphs = params.glyphs;
    block.glyphCount = params.glyphCount;
    block.width = params.width;
    block.height = params.height;
    block.progressNum = params.progressNum;
    block.progressDen = params.progressDen;
    EffectProc proc;
    {
        std::lock_guard<std::mutex> hold(tablesLock);
        const EffectEntry& row = TextEffectTable()[index];
        block.direction = static_cast<std::uint16_t>(row.direction);
        block.variant = row.variant;
        proc = row.proc;
    }
    const std::int32_t result = proc != nullptr ? proc(message, &block) : 0;
    if (message == EffectRelease && index == textCount_ - 1) {
        std::lock_guard<std::mutex> hold(tablesLock);
        FillRandomRow(TextEffectTable(), kTextTableRows);
    }
    return result;
}

EffectRowDescription EffectRegistry::Describe(int table, int index) const
{
    std::lock_guard<std::mutex> hold(tablesLock);
    const EffectEntry& row = Table(table)[index];
    EffectRowDescription out;
    out.table = table;
    out.row = index;
    out.procName = row.procName;
    out.direction = row.direction;
    out.variant = row.variant;
    out.number = row.number;
    out.name = row.name != nullptr ? row.name : "";
    out.built = row.built;
    return out;
}

void EffectRegistry::FixSeed(std::optional<std::uint32_t> seed)
{
    fixedSeed.store(seed.value_or(0));
    seedFixed.store(seed.has_value());
}

void EffectRegistry::SetNamesFile(std::string path)
{
    std::lock_guard<std::mutex> hold(namesFileLock);
    NamesFileOverride() = std::move(path);
}

namespace {

// Lower case, with '-' and '_' read as spaces, so that `flip-right` names "Flip right".
std::string Folded(std::string_view text)
{
    std::string out(text);
    for (char& c : out)
        c = c == '-' || c == '_' ? ' ' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

std::size_t EditDistance(std::string_view a, std::string_view b)
{
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

// Quoted names for one line of an error: the first six, and how many more.
std::string Listed(const std::vector<std::string>& names)
{
    constexpr std::size_t kShown = 6;
    std::string out;
    for (std::size_t i = 0; i < names.size() && i < kShown; ++i)
        out += base::StrCat(i == 0 ? "" : ", ", "\"", names[i], "\"");
    if (names.size() > kShown)
        out += base::StrCat(" and ", names.size() - kShown, " more");
    return out;
}

} // namespace

base::Result<int> ResolveEffectRow(int table, std::string_view text)
{
    const bool picture = table == kPictureTable;
    const int count = picture ? kPictureEffectCount : kTextEffectCount;
    const char* kind = picture ? "picture" : "text";
    const std::string_view digits = text.starts_with('-') ? text.substr(1) : text;
    if (!digits.empty() &&
        std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        const long row = text.size() <= 4 ? std::strtol(std::string(text).c_str(), nullptr, 10) : count;
        if (row < 0 || row >= count)
            return base::Error{base::ErrorCode::BadData,
                               base::StrCat("not a ", kind, "-effect row (0-", count - 1, ")")};
        return static_cast<int>(row);
    }
    const auto names = ReadNames(NamesFilePath());
    if (!names)
        return base::Error{base::ErrorCode::NotFound,
                           base::StrCat("the effect names file ", NamesFilePath(), " cannot be read")};
    const std::string wanted = Folded(text);
    std::vector<std::string> rowNames(static_cast<std::size_t>(count));
    std::vector<int> starting;
    const EffectEntry* rows = Table(table);
    for (int i = 0; i < count; ++i) {
        const auto found = names->find(rows[i].nameId);
        rowNames[static_cast<std::size_t>(i)] = found != names->end() ? found->second : std::string();
        const std::string folded = Folded(rowNames[static_cast<std::size_t>(i)]);
        if (folded.empty())
            continue;
        if (folded == wanted)
            return i;
        if (!wanted.empty() && folded.starts_with(wanted))
            starting.push_back(i);
    }
    if (starting.size() == 1)
        return starting[0];
    std::vector<std::string> listed;
    if (!starting.empty()) {
        for (int i : starting)
            listed.push_back(rowNames[static_cast<std::size_t>(i)]);
        return base::Error{base::ErrorCode::BadData,
                           base::StrCat("names more than one ", kind, " effect: ", Listed(listed))};
    }
    // The closest names, by edit distance from the start of each name as long as what was typed.
    std::vector<std::pair<std::size_t, int>> ranked;
    for (int i = 0; i < count; ++i) {
        const std::string folded = Folded(rowNames[static_cast<std::size_t>(i)]);
        if (!folded.empty())
            ranked.emplace_back(
                std::min(EditDistance(wanted, folded), EditDistance(wanted, folded.substr(0, wanted.size()))),
                i);
    }
    std::stable_sort(ranked.begin(), ranked.end());
    for (std::size_t i = 0; i < ranked.size() && i < 3; ++i)
        listed.push_back(rowNames[static_cast<std::size_t>(ranked[i].second)]);
    return base::Error{base::ErrorCode::BadData,
                       base::StrCat("names no ", kind, " effect; the closest are ", Listed(listed))};
}

} // namespace lumenar::effects
