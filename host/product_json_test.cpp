// JSON lines are written by hand for speed; they must be exactly what the
// JSON library writes for the same values, whatever the texts hold.
#include "host/product_json.h"

#include <gtest/gtest.h>

using json = nlohmann::ordered_json;

TEST(JsonLine, SameBytesAsTheLibraryForAnyText) {
    const std::vector<std::string> texts = {
        "",
        "plain",
        "IF2612\x01" "3510.2\x01\x01" "0\x01",  // the quote texts: an escape every few bytes
        "quote \" back \\ slash / del \x7f",
        std::string("nul \0 and \x1f \b\f\n\r\t", 18),
        "\xb9\xc9\xd6\xb8\xc6\xda\xbb\xf5",  // GBK: converted to UTF-8
        "\xff\xfe broken GBK",
    };
    for (const std::string& text : texts) {
        hostemu::PackedBody body;
        body.columns = {{"futu_hq_str", 'S', 255, 4}, {text.empty() ? "x" : text, 'S', 8, 0}, {"n", 'I', 8, 0},
                        {"d", 'D', 16, 6}, {"c", 'C', 1, 0}, {"raw", 'R', 4, 0}};
        body.rows = {{hostemu::PackCell(text), hostemu::PackCell(text), hostemu::PackCell(-7),
                      hostemu::PackCell(3510.25), hostemu::PackCell('"'), hostemu::PackCell(std::string("\x01\xff"))}};
        body.rows[0][5].kind = 'R';
        hostemu::MessageSnapshot m;
        const std::vector<char> packed = hostemu::EncodePacked(body);
        m.items[5].values = {hostemu::ItemValue{hostemu::ItemValue::Int, 620003, ""}};
        m.items[8].raw = packed;
        m.items[54].raw.assign(text.begin(), text.end());  // not a packed body: written as hex
        m.items[20].values = {hostemu::ItemValue{hostemu::ItemValue::Str, 0, text}};
        m.items[19].values = {hostemu::ItemValue{hostemu::ItemValue::Int, -1, ""}};
        m.items[9].values = {hostemu::ItemValue{hostemu::ItemValue::Str, 0, text}};
        const std::string line = product::MessageLine(m);
        json parsed;
        ASSERT_NO_THROW(parsed = json::parse(line)) << line;
        EXPECT_EQ(parsed.dump(-1, ' ', false, json::error_handler_t::replace), line);
        EXPECT_EQ(parsed["error_info"], parsed["route"][0]);
    }
}
