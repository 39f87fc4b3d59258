#include "app/FilmJson.h"

#include "platform/CodePage.h"

#include <cstdio>
#include <optional>
#include <string>

namespace lumenar::app {

namespace {

class JsonWriter
{
public:
    explicit JsonWriter(int codePage) : codePage_(codePage) {}

    std::string& Out() { return out_; }

    void Key(const char* key)
    {
        Comma();
        out_ += '"';
        out_ += key;
        out_ += "\":";
        needComma_ = false;
    }
    void Int(const char* key, long long value)
    {
        Key(key);
        Number(value);
    }
    void Number(long long value)
    {
        Comma();
        out_ += std::to_string(value);
        needComma_ = true;
    }
    void Text(const char* key, const std::string& bytes, std::optional<int> codePage = std::nullopt)
    {
        Key(key);
        Quoted(platform::ToUtf8(bytes, codePage.value_or(codePage_)));
        needComma_ = true;
    }
    void Open(char bracket)
    {
        Comma();
        out_ += bracket;
        needComma_ = false;
    }
    void Close(char bracket)
    {
        out_ += bracket;
        needComma_ = true;
    }
    void Comma()
    {
        if (needComma_)
            out_ += ',';
    }

private:
    void Quoted(const std::string& utf8)
    {
        out_ += '"';
        for (unsigned char c : utf8) {
            switch (c) {
            case '"':
                out_ += "\\\"";
                break;
            case '\\':
                out_ += "\\\\";
                break;
            case '\n':
                out_ += "\\n";
                break;
            case '\r':
                out_ += "\\r";
                break;
            case '\t':
                out_ += "\\t";
                break;
            default:
                if (c < 0x20) {
                    char escaped[8];
                    std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
                    out_ += escaped;
                } else {
                    out_ += static_cast<char>(c);
                }
            }
        }
        out_ += '"';
    }

    std::string out_;
    int codePage_;
    bool needComma_ = false;
};

void WriteFile(JsonWriter& json, const char* key, const film::FilmFile& file)
{
    json.Key(key);
    json.Open('{');
    json.Text("path", file.cstrPath);
    json.Text("name", file.cstrName);
    json.Close('}');
}

std::string FixedField(const char* field, std::size_t size)
{
    std::size_t length = 0;
    while (length < size && field[length] != '\0')
        ++length;
    return std::string(field, length);
}

void WriteStyle(JsonWriter& json, const records::TextRecord& style)
{
    json.Key("style");
    json.Open('{');
    json.Int("x", style.x);
    json.Int("y", style.y);
    json.Key("font");
    json.Open('{');
    const records::LogFont& f = style.font;
    json.Int("height", f.height);
    json.Int("width", f.width);
    json.Int("escapement", f.escapement);
    json.Int("orientation", f.orientation);
    json.Int("weight", f.weight);
    json.Int("italic", f.italic);
    json.Int("underline", f.underline);
    json.Int("strikeOut", f.strikeOut);
    json.Int("charSet", f.charSet);
    json.Int("outPrecision", f.outPrecision);
    json.Int("clipPrecision", f.clipPrecision);
    json.Int("quality", f.quality);
    json.Int("pitchAndFamily", f.pitchAndFamily);
    json.Text("faceName", FixedField(f.faceName, sizeof f.faceName), platform::CodePageOfCharSet(f.charSet));
    json.Close('}');
    json.Int("colour", style.colour);
    json.Int("lineSpacing", style.lineSpacing);
    json.Int("alignment", style.alignment);
    json.Int("shadow", style.shadow);
    json.Int("extentWidth", style.extentWidth);
    json.Int("extentHeight", style.extentHeight);
    json.Int("effectState", style.effectState);
    json.Close('}');
}

void WriteItem(JsonWriter& json, const film::FilmItem& item)
{
    json.Open('{');
    json.Int("index", item.index);
    json.Int("kind", item.kind);
    WriteFile(json, "photo", item.photo);
    WriteFile(json, "mask", item.mask);
    WriteFile(json, "clipFile", item.clipFile);
    WriteFile(json, "clipPicture1", item.clipPicture1);
    WriteFile(json, "clipPicture2", item.clipPicture2);
    WriteFile(json, "showFile", item.showFile);
    WriteFile(json, "sound", item.sound);
    json.Int("width", item.width);
    json.Int("height", item.height);
    json.Int("displaySeconds", item.displaySeconds);
    json.Int("effect", item.effect);
    json.Int("effectMs", item.effectMs);
    json.Int("soundMode", item.soundMode);
    json.Key("rect");
    json.Open('[');
    for (std::int32_t edge : item.rect)
        json.Number(edge);
    json.Close(']');
    json.Key("texts");
    json.Open('[');
    for (const film::FilmText& text : item.texts) {
        json.Open('{');
        json.Int("ordinal", text.ordinal);
        json.Int("effect", text.effect);
        // A caption whose font names its character set is read in that set's page.
        json.Text("text", text.text, platform::CodePageOfCharSet(text.style.font.charSet));
        WriteStyle(json, text.style);
        json.Close('}');
    }
    json.Close(']');
    json.Close('}');
}

} // namespace

std::string FilmToJson(const film::Film& film, int result, int codePage)
{
    JsonWriter json(codePage);
    json.Open('{');
    json.Int("result", result);
    json.Int("loop", film.GetLoop());
    json.Int("advanceMode", film.GetAdvanceMode());
    json.Text("music", film.GetMusicPath());
    json.Int("itemCount", film.ItemCount());
    json.Key("items");
    json.Open('[');
    for (std::int32_t i = 1; i <= film.ItemCount(); ++i)
        WriteItem(json, film.GetItem(i));
    json.Close(']');
    json.Close('}');
    return json.Out();
}

} // namespace lumenar::app
